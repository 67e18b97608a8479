// CRSAKeyPair import and export: PUBLICKEYBLOB and PRIVATEKEYBLOB in every outside form, the
// key specification check on import, the container's own key, the unloadable flag, the
// platform's refusals, and the bytes the key pair offers to hashing.
#include "support/RsaKeyPairFixture.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "automation/ByteArray.h"
#include "constants/CConstQUIV.h"
#include "data/CMessagetext.h"
#include "errors/QuivError.h"
#include "keys/CSessionKey.h"
#include "platform/ForwardingPlatform.h"
#include "platform/PlatformSeam.h"
#include "provider/CProvider.h"
#include "signing/CHashValue.h"
#include "signing/CRSAKeyPair.h"
#include "support/InternalAccess.h"
#include "support/RecordMatchers.h"

namespace quiv {
namespace {

namespace fs = std::filesystem;
using test::FailedWith;

const CConstQUIV k;

// Every test of this file runs without writing the application log.
const auto* const kQuiet = ::testing::AddGlobalTestEnvironment(new test::QuietEnvironment);

// ---- one-call fakes ----

// Records the flags of CryptImportKey, and fails it on request.
class RecordingImport final : public platform::ForwardingPlatform {
 public:
  explicit RecordingImport(bool fail = false)
      : ForwardingPlatform(platform::Platform()), m_fail(fail) {}
  BOOL CryptImportKey(HCRYPTPROV p, const BYTE* data, DWORD length, HCRYPTKEY pub, DWORD flags,
                      HCRYPTKEY* key) override {
    ++calls;
    lastFlags = flags;
    lastWrapKey = pub;
    if (m_fail) {
      SetLastError(static_cast<DWORD>(k.NTE_BAD_DATA()));
      return FALSE;
    }
    return ForwardingPlatform::CryptImportKey(p, data, length, pub, flags, key);
  }
  int calls = 0;
  DWORD lastFlags = 0xFFFFFFFFu;
  HCRYPTKEY lastWrapKey = 0xFFFFFFFFu;

 private:
  bool m_fail;
};

// Fails the n-th call (1-based) of CryptExportKey with NTE_BAD_KEY.
class FailingExport final : public platform::ForwardingPlatform {
 public:
  explicit FailingExport(int failingCall)
      : ForwardingPlatform(platform::Platform()), m_failingCall(failingCall) {}
  BOOL CryptExportKey(HCRYPTKEY key, HCRYPTKEY exp, DWORD type, DWORD flags, BYTE* data,
                      DWORD* length) override {
    if (++m_calls == m_failingCall) {
      SetLastError(static_cast<DWORD>(k.NTE_BAD_KEY()));
      return FALSE;
    }
    return ForwardingPlatform::CryptExportKey(key, exp, type, flags, data, length);
  }

 private:
  int m_calls = 0;
  int m_failingCall;
};

// ---- fixture: the default container's two 512-bit keys ----

class CRSAKeyPairImportExportTest : public test::RsaKeyPairFileFixture {
 protected:
  static void SetUpTestSuite() {
    RsaKeyPairFixture::SetUpTestSuite();
    // The default container's two keys; no other test generates keys in it.
    GenerateSuiteKeys(512, 512);
  }
};

// ---- public keys ----

TEST_F(CRSAKeyPairImportExportTest, APublicKeyBlobHasTheCryptoApiLayout) {
  // BLOBHEADER (type 6, version 2, reserved, the key's algorithm) then RSAPUBKEY ("RSA1", bit
  // length, exponent 65537), then the 64-byte modulus.
  const String signature = PublicHex(s_signature);
  EXPECT_EQ(signature.Length(), 2u * (8 + 12 + 64));
  EXPECT_EQ(signature.Left(40).ToUtf8(), "0602000000240000525341310002000001000100");
  EXPECT_EQ(PublicHex(s_exchange).Left(16).ToUtf8(), "0602000000A40000");
}

TEST_F(CRSAKeyPairImportExportTest, AnUnloadedPublicKeyLoadsAsAPublicKeyAndExportsTheSame) {
  const String blob = PublicHex(s_signature);
  Ref<CRSAKeyPair> pair = Pair(kSignature);
  ASSERT_TRUE(pair->LoadPublicKey(blob, STRING_HEX));
  EXPECT_EQ(Contents(pair), PUBLIC_KEY);
  EXPECT_EQ(PublicHex(pair), blob);
  int32_t modulus = 0;
  ASSERT_TRUE(pair->GetModulus(modulus));
  EXPECT_EQ(modulus, 512);
}

TEST_F(CRSAKeyPairImportExportTest, AnExchangePublicKeyDoesNotLoadAsASignatureKey) {
  Ref<CRSAKeyPair> pair = Pair(kSignature);
  ASSERT_TRUE(pair->LoadPublicKey(PublicHex(s_signature), STRING_HEX));
  EXPECT_TRUE(FailedWith(pair->LoadPublicKey(PublicHex(s_exchange), STRING_HEX), pair->m_oLastError,
                         KEY_ERROR_WRONG_KEY_TYPE, "QUIV.CRSAKeyPair.LoadPublicKey"));
  EXPECT_EQ(Contents(pair), NOKEYS);  // cleared before the load
  Ref<CRSAKeyPair> exchange = Pair(kExchange);
  EXPECT_TRUE(FailedWith(exchange->LoadPublicKey(PublicHex(s_signature), STRING_HEX),
                         exchange->m_oLastError, KEY_ERROR_WRONG_KEY_TYPE,
                         "QUIV.CRSAKeyPair.LoadPublicKey"));
}

TEST_F(CRSAKeyPairImportExportTest, BlobsOfTheWrongKindAreRefused) {
  Ref<CRSAKeyPair> pair = Pair(kExchange);
  EXPECT_TRUE(FailedWith(pair->LoadPublicKey(PrivateHex(s_exchange), STRING_HEX),
                         pair->m_oLastError, KEY_ERROR_WRONG_KEY_TYPE,
                         "QUIV.CRSAKeyPair.LoadPublicKey"));
  EXPECT_TRUE(FailedWith(pair->LoadKeyPair(PublicHex(s_exchange), STRING_HEX), pair->m_oLastError,
                         KEY_ERROR_WRONG_KEY_TYPE, "QUIV.CRSAKeyPair.LoadKeyPair"));
  EXPECT_TRUE(FailedWith(pair->LoadKeyPair(PrivateHex(s_signature), STRING_HEX), pair->m_oLastError,
                         KEY_ERROR_WRONG_KEY_TYPE, "QUIV.CRSAKeyPair.LoadKeyPair"));
  EXPECT_EQ(Contents(pair), NOKEYS);
}

TEST_F(CRSAKeyPairImportExportTest, TextThatIsNoBlobIsRefusedBeforeTheKeyTools) {
  Ref<CRSAKeyPair> pair = Pair(kExchange);
  EXPECT_TRUE(FailedWith(pair->LoadKeyPair(u"not hex", STRING_HEX), pair->m_oLastError,
                         DATA_FORMAT_ERROR_UNABLE_TO_CONVERT_DATA_TO_BYTE_ARRAY,
                         "QUIV.CRSAKeyPair.LoadKeyPair"));
  EXPECT_TRUE(FailedWith(pair->LoadPublicKey(String(), STRING_VB), pair->m_oLastError,
                         DATA_FORMAT_ERROR_UNABLE_TO_CONVERT_DATA_TO_BYTE_ARRAY,
                         "QUIV.CRSAKeyPair.LoadPublicKey"));
}

TEST_F(CRSAKeyPairImportExportTest, APublicKeyIsAlwaysImportedExportable) {
  Ref<CRSAKeyPair> pair = Pair(kSignature);
  ASSERT_TRUE(pair->SetUnloadable(false));
  RecordingImport recorder;
  platform::ScopedPlatformOverride use(recorder);
  ASSERT_TRUE(pair->LoadPublicKey(PublicHex(s_signature), STRING_HEX));
  EXPECT_EQ(recorder.lastFlags, static_cast<DWORD>(k.CRYPT_EXPORTABLE()));
  EXPECT_EQ(recorder.lastWrapKey, 0u);
}

TEST_F(CRSAKeyPairImportExportTest, APublicKeyImportTheProviderRefusesLeavesNoKeys) {
  Ref<CRSAKeyPair> pair = Pair(kSignature);
  ASSERT_TRUE(pair->LoadPublicKey(PublicHex(s_signature), STRING_HEX));
  // A header that passes the checks over a body that is too short for its bit length.
  const String truncated = PublicHex(s_signature).Left(2 * 30);
  EXPECT_TRUE(FailedWith(pair->LoadPublicKey(truncated, STRING_HEX), pair->m_oLastError,
                         KEY_ERROR_UNABLE_TO_LOAD_RSA_KEY, "QUIV.CRSAKeyPair.LoadPublicKey"));
  EXPECT_NE(pair->m_oLastError->m_dblErrLastDLLError, 0.0);
  EXPECT_EQ(Contents(pair), NOKEYS);
}

TEST_F(CRSAKeyPairImportExportTest, UnloadingAPublicKeyNeedsAKey) {
  Ref<CRSAKeyPair> pair = Pair(kExchange);
  String text = u"as given";
  EXPECT_TRUE(FailedWith(pair->UnloadPublicKey(text, STRING_HEX), pair->m_oLastError,
                         KEY_ERROR_KEY_PAIR_OBJECT_HAS_NO_KEYS,
                         "QUIV.CRSAKeyPair.UnloadPublicKey"));
  EXPECT_EQ(text, String(u"as given"));
  EXPECT_TRUE(Shows(pair, "io_sPublicKey=as given"));
  EXPECT_TRUE(Shows(pair, "i_nUnloadFormat=2"));
}

// ---- private keys ----

TEST_F(CRSAKeyPairImportExportTest, AnUnloadedPrivateKeyLoadsAsTheSamePair) {
  const String blob = PrivateHex(s_exchange);
  EXPECT_EQ(blob.Left(16).ToUtf8(), "0702000000A40000");
  EXPECT_EQ(blob.Mid(17, 8).ToUtf8(), "52534132");  // "RSA2"
  Ref<CRSAKeyPair> pair = Pair(kExchange);
  ASSERT_TRUE(pair->LoadKeyPair(blob, STRING_HEX));
  EXPECT_EQ(Contents(pair), KEY_PAIR);
  EXPECT_EQ(PrivateHex(pair), blob);
  EXPECT_EQ(PublicHex(pair), PublicHex(s_exchange));
}

TEST_F(CRSAKeyPairImportExportTest, ThePrivateKeyOfAPublicKeyOrOfNothingIsRefused) {
  Ref<CRSAKeyPair> pair = Pair(kSignature);
  String text = u"kept";
  EXPECT_TRUE(FailedWith(pair->UnloadPrivateKey(text, STRING_HEX), pair->m_oLastError,
                         KEY_ERROR_KEY_PAIR_OBJECT_DOES_NOT_HAVE_KEY_PAIR_HANDLE,
                         "QUIV.CRSAKeyPair.UnloadPrivateKey"));
  EXPECT_TRUE(Shows(pair, "i_sKeyPair=kept"));
  EXPECT_TRUE(Shows(pair, "i_nUnloadFormat=2"));
  // A public key alone: the pair-handle check comes before the public-only one.
  Ref<CRSAKeyPair> publicOnly = Pair(kSignature);
  ASSERT_TRUE(publicOnly->LoadPublicKey(PublicHex(s_signature), STRING_HEX));
  EXPECT_TRUE(FailedWith(publicOnly->UnloadPrivateKey(text, STRING_HEX), publicOnly->m_oLastError,
                         KEY_ERROR_KEY_PAIR_OBJECT_DOES_NOT_HAVE_KEY_PAIR_HANDLE,
                         "QUIV.CRSAKeyPair.UnloadPrivateKey"));
  EXPECT_EQ(text, String(u"kept"));
}

TEST_F(CRSAKeyPairImportExportTest, AnUnloadablePairIsImportedWithoutTheExportFlag) {
  const String blob = PrivateHex(s_exchange);
  Ref<CRSAKeyPair> pair = Pair(kExchange);
  {
    RecordingImport recorder;
    platform::ScopedPlatformOverride use(recorder);
    ASSERT_TRUE(pair->LoadKeyPair(blob, STRING_HEX));
    EXPECT_EQ(recorder.lastFlags, static_cast<DWORD>(k.CRYPT_EXPORTABLE()));
    ASSERT_TRUE(pair->SetUnloadable(false));
    ASSERT_TRUE(pair->LoadKeyPair(blob, STRING_HEX));
    EXPECT_EQ(recorder.lastFlags, 0u);
    EXPECT_EQ(recorder.lastWrapKey, 0u);
  }
  // The provider now refuses the private export already at the size query, which the two-call
  // read reports as a memory failure carrying the provider's code; the public export works.
  String text;
  EXPECT_TRUE(FailedWith(pair->UnloadPrivateKey(text, STRING_HEX), pair->m_oLastError,
                         GENERAL_ERROR_UNABLE_TO_GET_AVAILABLE_MEMORY,
                         "QUIV.CRSAKeyPair.UnloadPrivateKey"));
  EXPECT_EQ(static_cast<uint32_t>(pair->m_oLastError->m_dblErrLastDLLError),
            static_cast<uint32_t>(k.NTE_BAD_KEY_STATE()));
  EXPECT_EQ(PublicHex(pair), PublicHex(s_exchange));
  // The import also replaced the container's exchange key: put the exportable one back.
  ASSERT_TRUE(pair->SetUnloadable(true));
  ASSERT_TRUE(pair->LoadKeyPair(blob, STRING_HEX));
}

TEST_F(CRSAKeyPairImportExportTest, AGeneratedUnloadablePairKeepsItsPrivateKeyInside) {
  Ref<CProvider> provider = CProvider::Create();
  ASSERT_TRUE(OpenNewContainer(provider, u"inside"));
  Ref<CRSAKeyPair> pair = Pair(provider, kSignature);
  ASSERT_TRUE(pair->SetUnloadable(false));
  ASSERT_TRUE(pair->SetModulus(512));
  ASSERT_TRUE(pair->GenerateKeyPair());
  String text;
  EXPECT_TRUE(FailedWith(pair->UnloadPrivateKey(text, STRING_HEX), pair->m_oLastError,
                         GENERAL_ERROR_UNABLE_TO_GET_AVAILABLE_MEMORY,
                         "QUIV.CRSAKeyPair.UnloadPrivateKey"));
  EXPECT_EQ(static_cast<uint32_t>(pair->m_oLastError->m_dblErrLastDLLError),
            static_cast<uint32_t>(k.NTE_BAD_KEY_STATE()));
  EXPECT_TRUE(pair->UnloadPublicKey(text, STRING_HEX));
  Internal(pair).Terminate();
  provider->TerminateAll();
}

TEST_F(CRSAKeyPairImportExportTest, LoadingAPairNeedsAContext) {
  Ref<CProvider> idle = CProvider::Create();
  Ref<CRSAKeyPair> pair = Pair(idle, kExchange);
  EXPECT_TRUE(FailedWith(pair->LoadKeyPair(PrivateHex(s_exchange), STRING_HEX), pair->m_oLastError,
                         GENERAL_ERROR_NO_CONTEXT, "QUIV.CRSAKeyPair.LoadKeyPair"));
  Internal(pair).Terminate();
  idle->TerminateAll();
}

TEST_F(CRSAKeyPairImportExportTest, APairImportTheProviderRefusesLeavesNoKeys) {
  Ref<CRSAKeyPair> pair = Pair(kExchange);
  ASSERT_TRUE(pair->LoadKeyPair(PrivateHex(s_exchange), STRING_HEX));
  const String truncated = PrivateHex(s_exchange).Left(2 * 40);
  EXPECT_TRUE(FailedWith(pair->LoadKeyPair(truncated, STRING_HEX), pair->m_oLastError,
                         DATA_FORMAT_ERROR_UNABLE_TO_LOAD_RSA_KEY_PAIR,
                         "QUIV.CRSAKeyPair.LoadKeyPair"));
  EXPECT_EQ(Contents(pair), NOKEYS);
  RecordingImport failing(true);
  platform::ScopedPlatformOverride use(failing);
  EXPECT_TRUE(FailedWith(pair->LoadKeyPair(PrivateHex(s_exchange), STRING_HEX), pair->m_oLastError,
                         DATA_FORMAT_ERROR_UNABLE_TO_LOAD_RSA_KEY_PAIR,
                         "QUIV.CRSAKeyPair.LoadKeyPair"));
  EXPECT_EQ(static_cast<uint32_t>(pair->m_oLastError->m_dblErrLastDLLError),
            static_cast<uint32_t>(k.NTE_BAD_DATA()));
}

// ---- private keys wrapped under a session key ----

TEST_F(CRSAKeyPairImportExportTest, AWrappedPrivateKeyLoadsWithTheSameSessionKeyOnly) {
  const String plain = PrivateHex(s_exchange);
  for (int32_t algorithm :
       {static_cast<int32_t>(k.CALG_RC4()), static_cast<int32_t>(k.CALG_3DES())}) {
    SCOPED_TRACE(algorithm);
    Ref<CSessionKey> session = SessionKey(algorithm, u"wrap the private key");
    String wrapped;
    ASSERT_TRUE(s_exchange->UnloadPrivateKey(wrapped, STRING_HEX, session));
    // The BLOBHEADER stays in clear; everything after it is encrypted.
    EXPECT_EQ(wrapped.Left(16), plain.Left(16));
    EXPECT_NE(wrapped.Mid(17, 8), plain.Mid(17, 8));
    HCRYPTKEY sessionHandle = 0;
    ASSERT_TRUE(Internal(session).GetKeyHandle(sessionHandle));
    Ref<CRSAKeyPair> pair = Pair(kExchange);
    {
      RecordingImport recorder;
      platform::ScopedPlatformOverride use(recorder);
      ASSERT_TRUE(pair->LoadKeyPair(wrapped, STRING_HEX, session));
      EXPECT_EQ(recorder.lastWrapKey, sessionHandle);
    }
    EXPECT_EQ(PrivateHex(pair), plain);
    // Without the session key, or with another one, the provider cannot read the blob.
    EXPECT_TRUE(FailedWith(pair->LoadKeyPair(wrapped, STRING_HEX), pair->m_oLastError,
                           DATA_FORMAT_ERROR_UNABLE_TO_LOAD_RSA_KEY_PAIR,
                           "QUIV.CRSAKeyPair.LoadKeyPair"));
    EXPECT_EQ(Contents(pair), NOKEYS);
    Ref<CSessionKey> other = SessionKey(algorithm, u"another phrase");
    EXPECT_TRUE(FailedWith(pair->LoadKeyPair(wrapped, STRING_HEX, other), pair->m_oLastError,
                           DATA_FORMAT_ERROR_UNABLE_TO_LOAD_RSA_KEY_PAIR,
                           "QUIV.CRSAKeyPair.LoadKeyPair"));
  }
}

TEST_F(CRSAKeyPairImportExportTest, ASessionKeyWithoutAKeyCannotWrapOrUnwrap) {
  Ref<CSessionKey> keyless = SessionKey(static_cast<int32_t>(k.CALG_RC4()), String());
  String text = u"kept";
  EXPECT_TRUE(FailedWith(s_exchange->UnloadPrivateKey(text, STRING_HEX, keyless),
                         s_exchange->m_oLastError, KEY_ERROR_UNABLE_TO_GET_SESSION_KEY_HANDLE,
                         "QUIV.CRSAKeyPair.UnloadPrivateKey"));
  EXPECT_EQ(text, String(u"kept"));
  Ref<CRSAKeyPair> pair = Pair(kExchange);
  ASSERT_TRUE(pair->LoadKeyPair(PrivateHex(s_exchange), STRING_HEX));
  EXPECT_TRUE(FailedWith(pair->LoadKeyPair(PrivateHex(s_exchange), STRING_HEX, keyless),
                         pair->m_oLastError, KEY_ERROR_UNABLE_TO_GET_SESSION_KEY_HANDLE,
                         "QUIV.CRSAKeyPair.LoadKeyPair"));
  EXPECT_EQ(Contents(pair), NOKEYS);
  // The container's key needs no session key: one given is ignored.
  ASSERT_TRUE(pair->LoadKeyPair(String(), CURRENT_KEY_CONTAINER, keyless));
  EXPECT_EQ(Contents(pair), KEY_PAIR);
}

// ---- the key container ----

TEST_F(CRSAKeyPairImportExportTest, TheContainersKeyLoadsAsAPairThroughEitherLoader) {
  Ref<CRSAKeyPair> pair = Pair(kExchange);
  RecordingImport recorder;
  platform::ScopedPlatformOverride use(recorder);
  ASSERT_TRUE(pair->LoadKeyPair(u"ignored", CURRENT_KEY_CONTAINER));
  EXPECT_EQ(Contents(pair), KEY_PAIR);
  EXPECT_EQ(PublicHex(pair), PublicHex(s_exchange));
  // The public loader takes the container's pair too, and then holds the pair.
  Ref<CRSAKeyPair> publicLoaded = Pair(kSignature);
  ASSERT_TRUE(publicLoaded->LoadPublicKey(String(), CURRENT_KEY_CONTAINER));
  EXPECT_EQ(Contents(publicLoaded), KEY_PAIR);
  EXPECT_FALSE(publicLoaded->PrivateKey().IsNothing());
  EXPECT_EQ(PublicHex(publicLoaded), PublicHex(s_signature));
  EXPECT_EQ(recorder.calls, 0);  // nothing is imported
}

TEST_F(CRSAKeyPairImportExportTest, AContainerWithoutTheKeyGivesNoHandle) {
  Ref<CProvider> provider = CProvider::Create();
  ASSERT_TRUE(OpenNewContainer(provider, u"empty"));
  Ref<CRSAKeyPair> pair = Pair(provider, kSignature);
  EXPECT_TRUE(FailedWith(pair->LoadKeyPair(String(), CURRENT_KEY_CONTAINER), pair->m_oLastError,
                         KEY_ERROR_UNABLE_TO_GET_RSA_KEY_PAIR_HANDLE,
                         "QUIV.CRSAKeyPair.LoadKeyPair"));
  EXPECT_TRUE(FailedWith(pair->LoadPublicKey(String(), CURRENT_KEY_CONTAINER), pair->m_oLastError,
                         KEY_ERROR_UNABLE_TO_GET_RSA_KEY_PAIR_HANDLE,
                         "QUIV.CRSAKeyPair.LoadPublicKey"));
  EXPECT_EQ(Contents(pair), NOKEYS);
  Internal(pair).Terminate();
  provider->TerminateAll();
}

// ---- formats and export refusals ----

TEST_F(CRSAKeyPairImportExportTest, KeysTravelThroughFilesAndStrings) {
  for (DATA_FORMAT format : {FILE_BINARY, FILE_HEX, STRING_HEX, STRING_VB}) {
    SCOPED_TRACE(format);
    String pub = format <= FILE_HEX ? PathString("pub") : String();
    String priv = format <= FILE_HEX ? PathString("priv") : String();
    ASSERT_TRUE(s_exchange->UnloadPublicKey(pub, format));
    ASSERT_TRUE(s_exchange->UnloadPrivateKey(priv, format));
    Ref<CRSAKeyPair> publicOnly = Pair(kExchange);
    ASSERT_TRUE(publicOnly->LoadPublicKey(pub, format));
    EXPECT_EQ(PublicHex(publicOnly), PublicHex(s_exchange));
    Ref<CRSAKeyPair> pair = Pair(kExchange);
    ASSERT_TRUE(pair->LoadKeyPair(priv, format));
    EXPECT_EQ(PrivateHex(pair), PrivateHex(s_exchange));
    fs::remove(m_dir / "pub");
    fs::remove(m_dir / "priv");
  }
  // A binary file holds the blob's bytes.
  String path = PathString("raw");
  ASSERT_TRUE(s_signature->UnloadPublicKey(path, FILE_BINARY));
  EXPECT_EQ(fs::file_size(m_dir / "raw"), 84u);
}

TEST_F(CRSAKeyPairImportExportTest, TheContainerIsNoUnloadFormat) {
  String text = u"t";
  EXPECT_TRUE(FailedWith(s_signature->UnloadPublicKey(text, CURRENT_KEY_CONTAINER),
                         s_signature->m_oLastError, DATA_FORMAT_ERROR_UNABLE_TO_UNLOAD,
                         "QUIV.CRSAKeyPair.UnloadPublicKey"));
  EXPECT_TRUE(FailedWith(
      s_signature->UnloadPrivateKey(text, CURRENT_KEY_CONTAINER), s_signature->m_oLastError,
      DATA_FORMAT_ERROR_UNABLE_TO_UNLOAD_RSA_PRIVATE_KEY, "QUIV.CRSAKeyPair.UnloadPrivateKey"));
  EXPECT_TRUE(Shows(s_signature, "i_nUnloadFormat=4"));
}

TEST_F(CRSAKeyPairImportExportTest, ASizeQueryRefusedIsAMemoryFailureAndARefusedExportItsOwn) {
  String text;
  {
    FailingExport failing(1);
    platform::ScopedPlatformOverride use(failing);
    Ref<CRSAKeyPair> pair = ContainersPair(kExchange);
    EXPECT_TRUE(FailedWith(pair->UnloadPublicKey(text, STRING_HEX), pair->m_oLastError,
                           GENERAL_ERROR_UNABLE_TO_GET_AVAILABLE_MEMORY,
                           "QUIV.CRSAKeyPair.UnloadPublicKey"));
  }
  {
    FailingExport failing(2);
    platform::ScopedPlatformOverride use(failing);
    Ref<CRSAKeyPair> pair = ContainersPair(kExchange);
    EXPECT_TRUE(FailedWith(pair->UnloadPrivateKey(text, STRING_HEX), pair->m_oLastError,
                           KEY_ERROR_CRYPTEXPORTKEY_FAILED, "QUIV.CRSAKeyPair.UnloadPrivateKey"));
  }
  EXPECT_TRUE(text.IsEmpty());
}

// ---- what the key pair offers to hashing ----

TEST_F(CRSAKeyPairImportExportTest, TheViewsOfferTheirBlobsAsStringVbCarriesThem) {
  Ref<CRSAKeyPair> pair = ContainersPair(kSignature);
  ByteArray data;
  ASSERT_FALSE(pair->PublicKey().IsNothing());
  ASSERT_TRUE(pair->GetDataAsByteArray(data));
  EXPECT_EQ(data.ToVector(), BytesOfHex(PublicHex(pair)));
  ASSERT_FALSE(pair->PrivateKey().IsNothing());
  ASSERT_TRUE(pair->GetDataAsByteArray(data));
  EXPECT_EQ(data.ToVector(), BytesOfHex(PrivateHex(pair)));
  int16_t what = 0;
  ASSERT_TRUE(pair->WhatToHash(what));
  EXPECT_EQ(what, PRIVATE_SIGNATURE_KEY);
}

TEST_F(CRSAKeyPairImportExportTest, NoViewOrNoKeyOffersNothing) {
  Ref<CRSAKeyPair> pair = Pair(kExchange);
  ByteArray data{9};
  EXPECT_TRUE(FailedWith(pair->GetDataAsByteArray(data), pair->m_oLastError,
                         KEY_ERROR_KEY_PAIR_OBJECT_HAS_NO_KEYS,
                         "QUIV.CRSAKeyPair.IHash_GetDataAsByteArray"));
  ASSERT_TRUE(pair->LoadKeyPair(String(), CURRENT_KEY_CONTAINER));
  EXPECT_TRUE(FailedWith(pair->GetDataAsByteArray(data), pair->m_oLastError,
                         HASH_ERROR_WHAT_TO_HASH_INCORRECTLY_SPECIFIED,
                         "QUIV.CRSAKeyPair.IHash_GetDataAsByteArray"));
  EXPECT_EQ(data, ByteArray{9});
}

TEST_F(CRSAKeyPairImportExportTest, APrivateViewKeptOverAPublicLoadOffersNoPrivateKey) {
  Ref<CRSAKeyPair> pair = ContainersPair(kSignature);
  ASSERT_FALSE(pair->PrivateKey().IsNothing());
  ASSERT_TRUE(pair->LoadPublicKey(PublicHex(s_signature), STRING_HEX));  // the view stays
  ByteArray data;
  EXPECT_TRUE(FailedWith(pair->GetDataAsByteArray(data), pair->m_oLastError,
                         KEY_ERROR_KEY_PAIR_OBJECT_DOES_NOT_HAVE_KEY_PAIR_HANDLE,
                         "QUIV.CRSAKeyPair.IHash_GetDataAsByteArray"));
}

TEST_F(CRSAKeyPairImportExportTest, AnExportFailureReachesTheHashingCallerAsAConversionFailure) {
  Ref<CRSAKeyPair> pair = ContainersPair(kExchange);
  ASSERT_FALSE(pair->PublicKey().IsNothing());
  FailingExport failing(1);
  platform::ScopedPlatformOverride use(failing);
  ByteArray data;
  EXPECT_TRUE(FailedWith(pair->GetDataAsByteArray(data), pair->m_oLastError,
                         DATA_FORMAT_ERROR_UNABLE_TO_CONVERT_BYTE_ARRAY_TO_DATA_FORMAT,
                         "QUIV.CRSAKeyPair.IHash_GetDataAsByteArray"));
}

TEST_F(CRSAKeyPairImportExportTest, HashingAPublicViewTwiceGivesTheHashOfItsBlob) {
  Ref<CRSAKeyPair> pair = ContainersPair(kSignature);
  auto hashOf = [](const Ref<IHash>& hashee) {
    Ref<CHashValue> hash = MakeRef<CHashValue>();
    EXPECT_TRUE(Internal(hash).SetProvider(s_provider));
    EXPECT_TRUE(hash->Hash(hashee));
    ByteArray value;
    EXPECT_TRUE(hash->GetHashValue(value));
    Internal(hash).Terminate();
    return value;
  };
  const ByteArray first = hashOf(pair->PublicKey());
  const ByteArray second = hashOf(pair->PublicKey());
  EXPECT_EQ(first.size(), 16u);  // MD5, the hash object's default
  EXPECT_EQ(first, second);
  // The same as hashing the blob's STRING_VB bytes as message text.
  String text;
  ASSERT_TRUE(pair->UnloadPublicKey(text, STRING_VB));
  Ref<CMessagetext> message = MakeRef<CMessagetext>();
  ASSERT_TRUE(message->SetMessageText(ByteArray(text.Bytes())));
  EXPECT_EQ(hashOf(message), first);
  EXPECT_NE(hashOf(pair->PrivateKey()), first);
}

TEST_F(CRSAKeyPairImportExportTest, AKeyPairWithoutAViewCannotBeHashed) {
  Ref<CRSAKeyPair> pair = ContainersPair(kExchange);
  Ref<CHashValue> hash = MakeRef<CHashValue>();
  ASSERT_TRUE(Internal(hash).SetProvider(s_provider));
  EXPECT_TRUE(FailedWith(hash->Hash(pair), hash->m_oLastError,
                         HASH_ERROR_WHAT_TO_HASH_NOT_SPECIFIED, "QUIV.CHashValue.Hash"));
  Internal(hash).Terminate();
}

}  // namespace
}  // namespace quiv
