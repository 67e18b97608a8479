// CSessionKey: moving a session key between provider sessions as a SIMPLEBLOB wrapped by an RSA
// exchange key, the recorded Windows import, and what a refused load or unload leaves behind.
#include "support/QuietLog.h"

#include "keys/CSessionKey.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "constants/CConstQUIV.h"
#include "data/CMessagetext.h"
#include "errors/QuivError.h"
#include "keys/KeyEnums.h"
#include "platform/PlatformSeam.h"
#include "provider/CProvider.h"
#include "signing/CRSAKeyPair.h"
#include "support/InternalAccess.h"
#include "support/RecordMatchers.h"
#include "support/SessionKeyFixture.h"
#include "support/TempKeyStore.h"
#include "support/VectorFile.h"

namespace quiv {
namespace {

using test::FailedWith;

const CConstQUIV k;

// The library's hex text is upper case; the vector file's encoder writes lower case.
String Hex(const std::vector<uint8_t>& bytes) {
  return String::FromUtf8(test::VectorFile::EncodeHex(bytes)).UCase();
}

// One provider session with its own exchange key pair and session keys.
struct Session {
  Ref<CProvider> provider;
  Ref<CRSAKeyPair> exchange;
  std::vector<Ref<CSessionKey>> keys;

  void Open(const String& providerName) {
    provider = CProvider::Create();
    ASSERT_TRUE(provider->SetProviderTypeID(k.PROV_RSA_FULL()));
    if (!providerName.IsEmpty()) {
      ASSERT_TRUE(provider->SetProviderName(providerName));
    }
    ASSERT_TRUE(provider->LoadProvider());
    exchange = MakeRef<CRSAKeyPair>();
    ASSERT_TRUE(Internal(exchange).SetProvider(provider));
    ASSERT_TRUE(Internal(exchange).SetExOrSigKeyObject(static_cast<int16_t>(k.AT_KEYEXCHANGE())));
  }
  Ref<CSessionKey> NewKey() {
    Ref<CSessionKey> key = MakeRef<CSessionKey>();
    EXPECT_TRUE(Internal(key).SetProvider(provider));
    keys.push_back(key);
    return key;
  }
  void Close() {
    for (Ref<CSessionKey>& key : keys) {
      key->Clear();
      Internal(key).Terminate();
    }
    keys.clear();
    if (!exchange.IsNothing()) {
      exchange->Clear();
      Internal(exchange).Terminate();
    }
    if (!provider.IsNothing()) provider->TerminateAll();
  }
};

using test::EncryptOnce;
class TransportBase : public ::testing::Test {
 protected:
  void TearDown() override {
    receiver.Close();
    sender.Close();
  }

  // Gives the receiving session the sender's exchange key pair (private part included).
  void ShareExchangePair() {
    ASSERT_TRUE(sender.exchange->GenerateKeyPair());
    String privateBlob;
    ASSERT_TRUE(sender.exchange->UnloadPrivateKey(privateBlob, STRING_HEX));
    ASSERT_TRUE(receiver.exchange->LoadKeyPair(privateBlob, STRING_HEX));
  }

  test::QuietLog m_quiet;
  platform::ScopedPlatformOverride m_use{m_quiet};
  test::TempKeyStore m_store;
  Session sender;
  Session receiver;
  const ByteArray m_plain{0x74, 0x72, 0x61, 0x6E, 0x73, 0x70, 0x6F, 0x72, 0x74, 0x65, 0x64};
};

class EveryProvider : public TransportBase, public ::testing::WithParamInterface<const char*> {
 protected:
  void SetUp() override {
    const std::string which = GetParam();
    const String name = which == "Base"       ? k.MS_DEF_PROV()
                        : which == "Enhanced" ? k.MS_ENHANCED_PROV()
                                              : String();
    sender.Open(name);
    receiver.Open(name);
  }
};

INSTANTIATE_TEST_SUITE_P(Providers, EveryProvider, ::testing::Values("Base", "Enhanced", "Default"),
                         [](const auto& info) { return std::string(info.param); });

TEST_P(EveryProvider, AKeySentToAnotherSessionEncryptsTheSameWithTheSameModeAndIV) {
  ShareExchangePair();
  for (int32_t algId : {k.CALG_RC2(), k.CALG_RC4(), k.CALG_DES()}) {
    Ref<CSessionKey> original = sender.NewKey();
    ASSERT_TRUE(original->SetKeyAlgorithmID(algId));
    ASSERT_TRUE(original->GenerateSessionKey()) << test::KeyMessage(original);
    String blob;
    ASSERT_TRUE(original->UnloadSessionKey(sender.exchange, blob, STRING_HEX))
        << test::KeyMessage(original);

    Ref<CSessionKey> copy = receiver.NewKey();
    ASSERT_TRUE(copy->LoadSessionKey(receiver.exchange, blob, STRING_HEX))
        << test::KeyMessage(copy);
    int32_t copiedAlg = 0;
    ASSERT_TRUE(copy->GetKeyAlgorithmID(copiedAlg));
    EXPECT_EQ(copiedAlg, algId);
    int32_t bitsSent = 0;
    int32_t bitsReceived = 0;
    ASSERT_TRUE(original->GetKeyLength(bitsSent));
    ASSERT_TRUE(copy->GetKeyLength(bitsReceived));
    EXPECT_EQ(bitsReceived, bitsSent);
    if (algId != k.CALG_RC4()) {
      // The mode and the IV travel separately.
      ASSERT_TRUE(original->AddRandomIV());
      ASSERT_TRUE(original->ChangeCipherModeCode(u"CRYPT_MODE_CFB"));
      String iv;
      ASSERT_TRUE(original->UnloadIV(iv, STRING_HEX));
      ASSERT_TRUE(copy->LoadAndAddIV(iv, STRING_HEX));
      ASSERT_TRUE(copy->ChangeCipherModeCode(u"CRYPT_MODE_CFB"));
    }
    EXPECT_EQ(EncryptOnce(copy, m_plain), EncryptOnce(original, m_plain));
  }
}

TEST_P(EveryProvider, TheBlobIsThePlatformsSimpleBlobUnchanged) {
  ASSERT_TRUE(sender.exchange->GenerateKeyPair());
  Ref<CSessionKey> key = sender.NewKey();
  ASSERT_TRUE(key->GenerateSessionKey());
  String hex;
  ASSERT_TRUE(key->UnloadSessionKey(sender.exchange, hex, STRING_HEX)) << test::KeyMessage(key);
  const std::vector<uint8_t> blob = test::VectorFile::DecodeHex(hex.ToUtf8());
  int32_t modulus = 0;
  ASSERT_TRUE(sender.exchange->GetModulus(modulus));
  ASSERT_EQ(blob.size(), 12u + static_cast<size_t>(modulus) / 8);
  EXPECT_EQ(blob[0], static_cast<uint8_t>(k.SIMPLEBLOB()));
  EXPECT_EQ(blob[4] | blob[5] << 8, k.CALG_RC2());
  EXPECT_EQ(blob[8] | blob[9] << 8, k.CALG_RSA_KEYX());
}

TEST_P(EveryProvider, AKeyMadeNotUnloadableCannotBeSent) {
  ASSERT_TRUE(sender.exchange->GenerateKeyPair());
  Ref<CSessionKey> key = sender.NewKey();
  ASSERT_TRUE(key->SetUnloadable(false));
  ASSERT_TRUE(key->GenerateSessionKey());
  String out = u"unchanged";
  EXPECT_FALSE(key->UnloadSessionKey(sender.exchange, out, STRING_HEX));
  const int32_t code = key->m_oLastError->m_lErrNumber;
  EXPECT_TRUE(code == GENERAL_ERROR_UNABLE_TO_GET_AVAILABLE_MEMORY ||
              code == DATA_FORMAT_ERROR_UNABLE_TO_UNLOAD_KEY)
      << test::KeyMessage(key);
  EXPECT_EQ(test::RecordSource(key->m_oLastError), "QUIV.CSessionKey.UnloadSessionKey");
  EXPECT_EQ(out, String(u"unchanged"));
}

TEST_P(EveryProvider, AnImportedKeyIsExportableOnlyWhenTheImporterSaysSo) {
  ShareExchangePair();
  Ref<CSessionKey> original = sender.NewKey();
  ASSERT_TRUE(original->GenerateSessionKey());
  String blob;
  ASSERT_TRUE(original->UnloadSessionKey(sender.exchange, blob, STRING_HEX));
  Ref<CSessionKey> sealed = receiver.NewKey();
  ASSERT_TRUE(sealed->SetUnloadable(false));
  ASSERT_TRUE(sealed->LoadSessionKey(receiver.exchange, blob, STRING_HEX))
      << test::KeyMessage(sealed);
  String again;
  EXPECT_FALSE(sealed->UnloadSessionKey(receiver.exchange, again, STRING_HEX));
  Ref<CSessionKey> open = receiver.NewKey();
  ASSERT_TRUE(open->LoadSessionKey(receiver.exchange, blob, STRING_HEX));
  EXPECT_TRUE(open->UnloadSessionKey(receiver.exchange, again, STRING_HEX))
      << test::KeyMessage(open);
}

TEST_F(TransportBase, APublicKeyBlobIsNoSessionKeyAndTheOldKeyIsGone) {
  sender.Open(k.MS_ENHANCED_PROV());
  ASSERT_TRUE(sender.exchange->GenerateKeyPair());
  String publicBlob;
  ASSERT_TRUE(sender.exchange->UnloadPublicKey(publicBlob, STRING_HEX));
  Ref<CSessionKey> key = sender.NewKey();
  ASSERT_TRUE(key->GenerateSessionKey());
  EXPECT_TRUE(FailedWith(key->LoadSessionKey(sender.exchange, publicBlob, STRING_HEX),
                         key->m_oLastError, KEY_ERROR_WRONG_KEY_TYPE,
                         "QUIV.CSessionKey.LoadSessionKey"));
  EXPECT_NE(test::KeyMessage(key).find("(i_nLoadFormat=2)"), std::string::npos)
      << test::KeyMessage(key);
  HCRYPTKEY handle = 0;
  EXPECT_FALSE(Internal(key).GetKeyHandle(handle));
}

TEST_F(TransportBase, EachLoadStepReportsItsOwnCode) {
  sender.Open(k.MS_ENHANCED_PROV());
  receiver.Open(k.MS_ENHANCED_PROV());
  ASSERT_TRUE(sender.exchange->GenerateKeyPair());
  Ref<CSessionKey> original = sender.NewKey();
  ASSERT_TRUE(original->GenerateSessionKey());
  String blob;
  ASSERT_TRUE(original->UnloadSessionKey(sender.exchange, blob, STRING_HEX));
  const char* source = "QUIV.CSessionKey.LoadSessionKey";

  Ref<CSessionKey> key = receiver.NewKey();
  EXPECT_TRUE(FailedWith(key->LoadSessionKey(receiver.exchange, u"not hex", STRING_HEX),
                         key->m_oLastError, DATA_FORMAT_ERROR_UNABLE_TO_LOAD_KEY, source));
  EXPECT_NE(test::KeyMessage(key).find("(io_sSessionKey=not hex)"), std::string::npos)
      << test::KeyMessage(key);
  // A pair without keys, then a public key alone: no private key to unwrap with.
  EXPECT_TRUE(FailedWith(key->LoadSessionKey(receiver.exchange, blob, STRING_HEX),
                         key->m_oLastError, KEY_ERROR_UNABLE_TO_GET_RSA_PRIVATE_KEY_HANDLE,
                         source));
  String publicBlob;
  ASSERT_TRUE(sender.exchange->UnloadPublicKey(publicBlob, STRING_HEX));
  ASSERT_TRUE(receiver.exchange->LoadPublicKey(publicBlob, STRING_HEX));
  EXPECT_TRUE(FailedWith(key->LoadSessionKey(receiver.exchange, blob, STRING_HEX),
                         key->m_oLastError, KEY_ERROR_UNABLE_TO_GET_RSA_PRIVATE_KEY_HANDLE,
                         source));
  // Another private key cannot unwrap it.
  ASSERT_TRUE(receiver.exchange->GenerateKeyPair());
  EXPECT_TRUE(FailedWith(key->LoadSessionKey(receiver.exchange, blob, STRING_HEX),
                         key->m_oLastError, KEY_ERROR_CRYPTIMPORTKEY_FAILED, source));
  HCRYPTKEY handle = 0;
  EXPECT_FALSE(Internal(key).GetKeyHandle(handle));
}

TEST_F(TransportBase, EachUnloadStepReportsItsOwnCode) {
  sender.Open(k.MS_DEF_PROV());
  Ref<CSessionKey> key = sender.NewKey();
  String out = u"unchanged";
  const char* source = "QUIV.CSessionKey.UnloadSessionKey";
  EXPECT_TRUE(FailedWith(key->UnloadSessionKey(sender.exchange, out, STRING_HEX), key->m_oLastError,
                         KEY_ERROR_KEY_OBJECT_DOES_NOT_HAVE_SESSION_KEY_HANDLE, source));
  ASSERT_TRUE(key->GenerateSessionKey());
  EXPECT_TRUE(FailedWith(key->UnloadSessionKey(sender.exchange, out, STRING_HEX), key->m_oLastError,
                         KEY_ERROR_UNABLE_TO_GET_RSA_PUBLIC_KEY_HANDLE, source));
  ASSERT_TRUE(sender.exchange->GenerateKeyPair());
  EXPECT_TRUE(FailedWith(key->UnloadSessionKey(sender.exchange, out, CURRENT_KEY_CONTAINER),
                         key->m_oLastError, DATA_FORMAT_ERROR_UNABLE_TO_UNLOAD, source));
  EXPECT_EQ(out, String(u"unchanged"));
}

TEST_F(TransportBase, ASessionKeyTravelsThroughAHexFile) {
  sender.Open(k.MS_ENHANCED_PROV());
  receiver.Open(k.MS_ENHANCED_PROV());
  ShareExchangePair();
  Ref<CSessionKey> original = sender.NewKey();
  ASSERT_TRUE(original->SetKeyAlgorithmID(k.CALG_3DES()));
  ASSERT_TRUE(original->GenerateSessionKey());
  String path = String::FromUtf8((m_store.folder() / "session.hex").string());
  ASSERT_TRUE(original->UnloadSessionKey(sender.exchange, path, FILE_HEX))
      << test::KeyMessage(original);
  Ref<CSessionKey> copy = receiver.NewKey();
  ASSERT_TRUE(copy->LoadSessionKey(receiver.exchange, path, FILE_HEX)) << test::KeyMessage(copy);
  EXPECT_EQ(EncryptOnce(copy, m_plain), EncryptOnce(original, m_plain));
}

TEST_F(TransportBase, TheRecordedWindowsSimpleBlobImportsAndDecrypts) {
  // rsa.keyx1024.simpleblob_import_and_decrypt: a 56-bit RC4 key wrapped by a known exchange key
  // on Windows decrypts the recorded ciphertext to the recorded plaintext.
  const test::VectorFile& file = test::WindowsVectors();
  const nlohmann::json& vector = file.Vector("rsa.keyx1024.simpleblob_import_and_decrypt");
  sender.Open(k.MS_ENHANCED_PROV());
  ASSERT_TRUE(sender.exchange->LoadKeyPair(Hex(file.Shared("rsa1024_keyx_private")), STRING_HEX))
      << sender.exchange->m_oLastError->LastError().ToUtf8();
  Ref<CSessionKey> key = sender.NewKey();
  ASSERT_TRUE(key->LoadSessionKey(sender.exchange,
                                  Hex(file.Shared("simpleblob_rc4_56_under_rsa1024")), STRING_HEX))
      << test::KeyMessage(key);
  int32_t algId = 0;
  ASSERT_TRUE(key->GetKeyAlgorithmID(algId));
  EXPECT_EQ(algId, k.CALG_RC4());
  int32_t bits = 0;
  ASSERT_TRUE(key->GetKeyLength(bits));
  EXPECT_EQ(bits, 56);
  Ref<CMessagetext> message = MakeRef<CMessagetext>();
  ASSERT_TRUE(message->SetMessageText(ByteArray(
      test::VectorFile::DecodeHex(vector.at("inputs").at("ciphertext").get<std::string>()))));
  ASSERT_TRUE(key->Decrypt(message)) << test::KeyMessage(key);
  ByteArray plain;
  ASSERT_TRUE(message->GetMessageText(plain));
  const std::vector<uint8_t> expected =
      test::VectorFile::DecodeHex(vector.at("expected").at("plaintext").get<std::string>());
  EXPECT_EQ(plain.ToVector(), expected);
  EXPECT_EQ(plain.size(), vector.at("expected").at("decrypted_length").get<size_t>());
}

}  // namespace
}  // namespace quiv
