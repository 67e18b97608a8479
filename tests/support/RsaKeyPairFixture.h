// RsaKeyPairFixture: what the CRSAKeyPair suites share: one PROV_RSA_FULL provider over a
// temporary key store for the whole suite, exchange and signature key pair objects, and the
// readers the tests check results with. RsaKeyPairFileFixture adds a scratch folder per test for
// the suites that unload to files.
//
// Header only: it reaches the automation objects (quiv_core), which the support library does not
// link; only the signing tests include it.
#ifndef QUIV_TESTS_SUPPORT_RSAKEYPAIRFIXTURE_H
#define QUIV_TESTS_SUPPORT_RSAKEYPAIRFIXTURE_H

#include "support/QuietLog.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "automation/ByteArray.h"
#include "constants/CConstQUIV.h"
#include "data/CMessagetext.h"
#include "keys/CSessionKey.h"
#include "provider/CContainer.h"
#include "provider/CProvider.h"
#include "signing/CRSAKeyPair.h"
#include "support/InternalAccess.h"
#include "support/TempKeyStore.h"
#include "support/VectorFile.h"

namespace quiv::test {

class RsaKeyPairFixture : public ::testing::Test {
 protected:
  static constexpr int16_t kExchange = static_cast<int16_t>(CConstQUIV().AT_KEYEXCHANGE());
  static constexpr int16_t kSignature = static_cast<int16_t>(CConstQUIV().AT_SIGNATURE());
  // MD5's identifier with every upper bit set: a negative number whose class bits alone read as
  // a hash's.
  static constexpr int32_t kNegativeMd5 =
      static_cast<int32_t>(0xFFFF0000u | static_cast<uint32_t>(CConstQUIV().CALG_MD5()));

  // A suite that keeps keys of its own calls these around its own set-up and tear-down.
  static void SetUpTestSuite() {
    s_store = std::make_unique<TempKeyStore>();
    s_provider = CProvider::Create();
    ASSERT_TRUE(s_provider->SetProviderTypeID(CConstQUIV().PROV_RSA_FULL()));
    ASSERT_TRUE(s_provider->LoadProvider());
  }
  static void TearDownTestSuite() {
    s_signature.SetNothing();
    s_exchange.SetNothing();
    s_provider->TerminateAll();
    s_provider.SetNothing();
    s_store.reset();
  }
  // The suite container's two keys, for suites whose tests share them; after SetUpTestSuite.
  static void GenerateSuiteKeys(int32_t signatureBits, int32_t exchangeBits) {
    if (HasFatalFailure()) return;
    s_signature = Generated(kSignature, signatureBits);
    s_exchange = Generated(kExchange, exchangeBits);
  }

  // A key pair object on `provider`; a `keySpec` of 0 leaves the key type unset, as the factory
  // would.
  static Ref<CRSAKeyPair> Pair(const Ref<CProvider>& provider, int16_t keySpec) {
    Ref<CRSAKeyPair> pair = MakeRef<CRSAKeyPair>();
    EXPECT_TRUE(Internal(pair).SetProvider(provider));
    if (keySpec != 0) {
      EXPECT_TRUE(Internal(pair).SetExOrSigKeyObject(keySpec));
    }
    return pair;
  }
  static Ref<CRSAKeyPair> Pair(int16_t keySpec) { return Pair(s_provider, keySpec); }
  // A key pair object holding the suite container's key of `keySpec`.
  static Ref<CRSAKeyPair> ContainersPair(int16_t keySpec) {
    Ref<CRSAKeyPair> pair = Pair(keySpec);
    EXPECT_TRUE(pair->LoadKeyPair(String(), CURRENT_KEY_CONTAINER));
    return pair;
  }
  // A generated pair: it becomes the container's key of its type.
  static Ref<CRSAKeyPair> Generated(const Ref<CProvider>& provider, int16_t keySpec, int32_t bits) {
    Ref<CRSAKeyPair> pair = Pair(provider, keySpec);
    EXPECT_TRUE(pair->SetModulus(bits));
    EXPECT_TRUE(pair->GenerateKeyPair());
    return pair;
  }
  static Ref<CRSAKeyPair> Generated(int16_t keySpec, int32_t bits = 512) {
    return Generated(s_provider, keySpec, bits);
  }
  // Loads the provider with a fresh container of that name, so the suite's keys stay as they are.
  static bool OpenNewContainer(const Ref<CProvider>& provider, const String& name) {
    Ref<CContainer> container;
    return provider->SetProviderTypeID(CConstQUIV().PROV_RSA_FULL()) && provider->LoadProvider() &&
           provider->GetContainerObject(container) && container->NewContainer(name, SINGLE_USER);
  }
  // A session key derived from a phrase (or none made when the phrase is empty).
  static Ref<CSessionKey> SessionKey(int32_t algorithm, const String& phrase) {
    Ref<CSessionKey> key = MakeRef<CSessionKey>();
    EXPECT_TRUE(Internal(key).SetProvider(s_provider));
    EXPECT_TRUE(key->SetKeyAlgorithmID(algorithm));
    if (!phrase.IsEmpty()) {
      EXPECT_TRUE(key->SetKeyPhrase(phrase));
      EXPECT_TRUE(key->GenerateSessionKey());
    }
    return key;
  }

  static int16_t Contents(const Ref<CRSAKeyPair>& pair) {
    int16_t contents = 0;
    EXPECT_TRUE(Internal(pair).GetKeyPairContents(contents));
    return contents;
  }
  static String PublicHex(const Ref<CRSAKeyPair>& pair) {
    String hex;
    EXPECT_TRUE(pair->UnloadPublicKey(hex, STRING_HEX));
    return hex;
  }
  static String PrivateHex(const Ref<CRSAKeyPair>& pair) {
    String hex;
    EXPECT_TRUE(pair->UnloadPrivateKey(hex, STRING_HEX));
    return hex;
  }
  // The verdict of VerifySignature, which itself must succeed.
  static bool Verifies(const Ref<CRSAKeyPair>& pair, const Ref<IHash>& signee, const String& block,
                       int32_t algorithm = -1, DATA_FORMAT format = STRING_HEX) {
    bool valid = false;
    EXPECT_TRUE(pair->VerifySignature(signee, block, format, valid, algorithm))
        << pair->m_oLastError->m_lErrNumber;
    return valid;
  }
  // Upper-case hex, as the key pair writes STRING_HEX.
  static std::string HexOf(std::span<const uint8_t> bytes) {
    std::string hex = VectorFile::EncodeHex(bytes);
    std::transform(hex.begin(), hex.end(), hex.begin(),
                   [](char c) { return static_cast<char>(std::toupper(c)); });
    return hex;
  }
  static std::vector<uint8_t> BytesOfHex(const String& hex) {
    return VectorFile::DecodeHex(hex.ToUtf8());
  }
  // CryptoAPI keeps numbers and signatures little-endian, PKCS #1 and OpenSSL big-endian.
  static std::vector<uint8_t> Reversed(std::vector<uint8_t> bytes) {
    std::reverse(bytes.begin(), bytes.end());
    return bytes;
  }
  static Ref<CMessagetext> Message(const std::string& text) {
    Ref<CMessagetext> message = MakeRef<CMessagetext>();
    EXPECT_TRUE(message->SetMessageText(ByteArray(std::vector<uint8_t>(text.begin(), text.end()))));
    return message;
  }
  // Whether the record's assembled message shows the parameter as "(name=value)".
  static bool Shows(const Ref<CRSAKeyPair>& pair, const std::string& nameAndValue) {
    return pair->m_oLastError->LastError().ToUtf8().find("(" + nameAndValue + ")") !=
           std::string::npos;
  }

  static inline std::unique_ptr<TempKeyStore> s_store;
  static inline Ref<CProvider> s_provider;
  static inline Ref<CRSAKeyPair> s_signature;  // empty unless GenerateSuiteKeys ran
  static inline Ref<CRSAKeyPair> s_exchange;
};

class RsaKeyPairFileFixture : public RsaKeyPairFixture {
 protected:
  // The process id keeps parallel runs of the same test apart.
  void SetUp() override {
    const auto* test = ::testing::UnitTest::GetInstance()->current_test_info();
    m_dir = std::filesystem::temp_directory_path() /
            ("quiv-rsapair-" + std::to_string(::getpid()) + "-" + test->test_suite_name() + "-" +
             test->name());
    std::filesystem::create_directories(m_dir);
  }
  void TearDown() override { std::filesystem::remove_all(m_dir); }

  std::string PathOf(const char* name) const { return (m_dir / name).string(); }
  String PathString(const char* name) const { return String::FromUtf8(PathOf(name)); }

  std::filesystem::path m_dir;
};

}  // namespace quiv::test

#endif
