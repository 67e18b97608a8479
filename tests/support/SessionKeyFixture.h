// SessionKeyFixture: a provider session in a temporary key store for the session-key tests. It
// opens a PROV_RSA_FULL provider by name (the empty name takes the platform's default), makes
// session keys tied to it, and at the end clears and terminates every key it made and the
// provider. The application log is kept quiet. Header only: the support library does not link
// the automation objects, the test programs do.
#ifndef QUIV_TESTS_SUPPORT_SESSIONKEYFIXTURE_H
#define QUIV_TESTS_SUPPORT_SESSIONKEYFIXTURE_H

#include "support/QuietLog.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "automation/Ref.h"
#include "automation/String.h"
#include "constants/CConstQUIV.h"
#include "data/CMessagetext.h"
#include "keys/CSessionKey.h"
#include "provider/CProvider.h"
#include "support/InternalAccess.h"
#include "support/TempKeyStore.h"

namespace quiv::test {

// The key's last error message, or "" while it has no record.
inline std::string KeyMessage(const Ref<CSessionKey>& key) {
  return key->m_oLastError.IsNothing() ? std::string() : key->m_oLastError->LastError().ToUtf8();
}

// The key's ciphertext of plain, made through a message object of its own.
inline ByteArray EncryptOnce(const Ref<CSessionKey>& key, const ByteArray& plain) {
  Ref<CMessagetext> message = MakeRef<CMessagetext>();
  EXPECT_TRUE(message->SetMessageText(plain));
  EXPECT_TRUE(key->Encrypt(message)) << KeyMessage(key);
  ByteArray out;
  EXPECT_TRUE(message->GetMessageText(out));
  return out;
}

class SessionKeyFixture : public ::testing::Test {
 protected:
  void TearDown() override {
    for (Ref<CSessionKey>& key : m_keys) {
      key->Clear();
      Internal(key).Terminate();
    }
    if (!provider.IsNothing()) provider->TerminateAll();
  }

  void Open(const String& providerName) {
    const CConstQUIV k;
    provider = CProvider::Create();
    ASSERT_TRUE(provider->SetProviderTypeID(k.PROV_RSA_FULL()));
    if (!providerName.IsEmpty()) {
      ASSERT_TRUE(provider->SetProviderName(providerName));
    }
    ASSERT_TRUE(provider->LoadProvider());
  }
  void OpenBase() { Open(CConstQUIV().MS_DEF_PROV()); }
  void OpenEnhanced() { Open(CConstQUIV().MS_ENHANCED_PROV()); }
  // "Base", "Enhanced" or "Default" (the platform's default provider).
  void OpenByLabel(const std::string& which) {
    if (which == "Base") OpenBase();
    if (which == "Enhanced") OpenEnhanced();
    if (which == "Default") Open(String());
  }

  Ref<CSessionKey> NewKey() {
    Ref<CSessionKey> key = MakeRef<CSessionKey>();
    EXPECT_TRUE(Internal(key).SetProvider(provider));
    m_keys.push_back(key);
    return key;
  }

  // A key made with these settings (0 keeps the setting's default).
  Ref<CSessionKey> MakeKey(int32_t algId, const String& phrase = String(), int32_t bits = 0) {
    Ref<CSessionKey> key = NewKey();
    EXPECT_TRUE(key->SetKeyAlgorithmID(algId));
    EXPECT_TRUE(key->SetKeyLength(bits));
    if (!phrase.IsEmpty()) {
      EXPECT_TRUE(key->SetKeyPhrase(phrase));
    }
    EXPECT_TRUE(key->GenerateSessionKey()) << Message(key);
    return key;
  }

  static std::string Message(const Ref<CSessionKey>& key) { return KeyMessage(key); }
  // Whether the record's assembled message shows the parameter "(name=value)".
  static bool Shows(const Ref<CSessionKey>& key, const std::string& nameAndValue) {
    return Message(key).find("(" + nameAndValue + ")") != std::string::npos;
  }

  static ByteArray EncryptOnce(const Ref<CSessionKey>& key, const ByteArray& plain) {
    return test::EncryptOnce(key, plain);
  }
  static int32_t KeyLength(const Ref<CSessionKey>& key) {
    int32_t bits = -1;
    EXPECT_TRUE(key->GetKeyLength(bits)) << Message(key);
    return bits;
  }
  // The key's IV as hex.
  static std::string IV(const Ref<CSessionKey>& key) {
    String hex;
    EXPECT_TRUE(key->UnloadIV(hex, STRING_HEX)) << Message(key);
    return hex.ToUtf8();
  }

  // Ten bytes of plaintext: "QUIV keys!".
  const ByteArray m_sample{0x51, 0x55, 0x49, 0x56, 0x20, 0x6B, 0x65, 0x79, 0x73, 0x21};
  QuietLog m_quiet;
  platform::ScopedPlatformOverride m_use{m_quiet};
  TempKeyStore m_store;
  Ref<CProvider> provider;
  std::vector<Ref<CSessionKey>> m_keys;
};

// The same behaviour on every provider the library names, and on the platform default. A test
// file instantiates it with EVERY_SESSION_KEY_PROVIDER(suite).
class SessionKeyOnEveryProvider : public SessionKeyFixture,
                                  public ::testing::WithParamInterface<const char*> {
 protected:
  void SetUp() override { OpenByLabel(GetParam()); }
};

}  // namespace quiv::test

#define EVERY_SESSION_KEY_PROVIDER(suite)                                                      \
  INSTANTIATE_TEST_SUITE_P(Providers, suite, ::testing::Values("Base", "Enhanced", "Default"), \
                           [](const auto& info) { return std::string(info.param); })

#endif
