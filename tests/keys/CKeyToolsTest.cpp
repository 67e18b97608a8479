// CKeyTools: blob header checks, key parameters, permissions, algorithm fields and code names,
// with keys made by the real provider.
#include "support/QuietLog.h"

#include "keys/CKeyTools.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "automation/RunTime.h"
#include "constants/CConstQUIV.h"
#include "errors/QuivError.h"
#include "platform/ForwardingPlatform.h"
#include "platform/PlatformSeam.h"
#include "provider/CProvider.h"
#include "support/InternalAccess.h"
#include "support/RecordMatchers.h"
#include "support/TempKeyStore.h"

namespace quiv {
namespace {

using test::FailedWith;

const CConstQUIV k;

// A blob header: type, version 2, reserved, then the algorithm identifier little-endian.
ByteArray Blob(int32_t type, int32_t algId) {
  return ByteArray{static_cast<uint8_t>(type),
                   2,
                   0,
                   0,
                   static_cast<uint8_t>(algId & 0xFF),
                   static_cast<uint8_t>((algId >> 8) & 0xFF),
                   0,
                   0,
                   0xA4,
                   0x00};
}

class CKeyToolsTest : public ::testing::Test {
 protected:
  const Ref<CErrHandler>& Record() const { return tools->m_oLastError; }

  // A provider session with the named provider and a fresh 128-bit (or default) key.
  HCRYPTKEY MakeKey(const String& providerName, int32_t algId, int32_t bits) {
    EXPECT_TRUE(provider->SetProviderTypeID(k.PROV_RSA_FULL()));
    EXPECT_TRUE(provider->SetProviderName(providerName));
    EXPECT_TRUE(provider->LoadProvider());
    HCRYPTKEY key = 0;
    EXPECT_TRUE(platform::Platform().CryptGenKey(
        Internal(provider).ContextHandle(), static_cast<ALG_ID>(algId),
        static_cast<DWORD>(bits << 16) | static_cast<DWORD>(k.CRYPT_EXPORTABLE()), &key));
    return key;
  }
  void TearDown() override { provider->TerminateAll(); }

  test::QuietLog m_quiet;
  platform::ScopedPlatformOverride m_use{m_quiet};
  test::TempKeyStore store;
  Ref<CProvider> provider = CProvider::Create();
  Ref<CKeyTools> tools = MakeRef<CKeyTools>();
};

TEST_F(CKeyToolsTest, ASimpleBlobOfAStreamOrBlockCipherIsASessionKey) {
  for (const int32_t alg : {k.CALG_RC4(), k.CALG_RC2()}) {
    ByteArray blob = Blob(k.SIMPLEBLOB(), alg);
    int32_t algClass = k.ALG_CLASS_DATA_ENCRYPT();
    EXPECT_TRUE(tools->ValidateBlob(k.SIMPLEBLOB(), algClass, blob));
    EXPECT_EQ(algClass, k.ALG_CLASS_DATA_ENCRYPT());
    EXPECT_EQ(blob, Blob(k.SIMPLEBLOB(), alg));
  }
}

TEST_F(CKeyToolsTest, ASimpleBlobAskedForAsAnExchangeKeyIsRefusedBeforeItIsRead) {
  ByteArray blob = Blob(k.SIMPLEBLOB(), k.CALG_RC4());
  int32_t algClass = k.AT_KEYEXCHANGE();
  EXPECT_TRUE(FailedWith(tools->ValidateBlob(k.SIMPLEBLOB(), algClass, blob), Record(),
                         DATA_FORMAT_ERROR_SESSION_CANNOT_LOAD_NON_RSA_KEY_BLOB_AS_RSA_KEY,
                         "QUIV.CKeyTools.ValidateBlob"));
  EXPECT_EQ(blob, ByteArray{0});
  EXPECT_EQ(algClass, k.ALG_CLASS_KEY_EXCHANGE());
  // The class is recorded as it stood at the failure: already rewritten.
  const std::string message = Record()->LastError().ToUtf8();
  EXPECT_NE(message.find("i_lBlobType=1"), std::string::npos) << message;
  EXPECT_NE(message.find("i_lBlobAlgClass=40960"), std::string::npos) << message;
}

TEST_F(CKeyToolsTest, APairBlobAskedForAsASessionKeyIsRefused) {
  ByteArray blob = Blob(k.PUBLICKEYBLOB(), k.CALG_RSA_KEYX());
  int32_t algClass = k.ALG_CLASS_DATA_ENCRYPT();
  EXPECT_TRUE(FailedWith(tools->ValidateBlob(k.PUBLICKEYBLOB(), algClass, blob), Record(),
                         DATA_FORMAT_ERROR_SESSION_CANNOT_LOAD_NON_SESSION_KEY_BLOB_AS_SESSION_KEY,
                         "QUIV.CKeyTools.ValidateBlob"));
}

TEST_F(CKeyToolsTest, AnUnknownExpectedClassIsRefused) {
  ByteArray blob = Blob(k.SIMPLEBLOB(), k.CALG_RC4());
  int32_t algClass = k.ALG_CLASS_HASH();
  EXPECT_TRUE(FailedWith(tools->ValidateBlob(k.SIMPLEBLOB(), algClass, blob), Record(),
                         DATA_FORMAT_ERROR_UNKNOWN_CIPHER_TYPE_SPECIFIED,
                         "QUIV.CKeyTools.ValidateBlob"));
}

TEST_F(CKeyToolsTest, APrivateBlobWhereAPublicOneIsExpectedIsNamedSo) {
  ByteArray blob = Blob(k.PRIVATEKEYBLOB(), k.CALG_RSA_KEYX());
  int32_t algClass = k.AT_KEYEXCHANGE();
  EXPECT_TRUE(FailedWith(tools->ValidateBlob(k.PUBLICKEYBLOB(), algClass, blob), Record(),
                         DATA_FORMAT_ERROR_REQUESTED_KEY_IS_NOT_A_PUBLIC_RSA_KEY,
                         "QUIV.CKeyTools.ValidateBlob"));
  blob = Blob(k.PUBLICKEYBLOB(), k.CALG_RSA_KEYX());
  algClass = k.AT_KEYEXCHANGE();
  EXPECT_TRUE(FailedWith(tools->ValidateBlob(k.PRIVATEKEYBLOB(), algClass, blob), Record(),
                         DATA_FORMAT_ERROR_REQUESTED_KEY_IS_NOT_A_PRIVATE_RSA_KEY,
                         "QUIV.CKeyTools.ValidateBlob"));
  blob = Blob(k.PUBLICKEYBLOB(), k.CALG_RC4());
  algClass = k.ALG_CLASS_DATA_ENCRYPT();
  EXPECT_TRUE(FailedWith(tools->ValidateBlob(k.SIMPLEBLOB(), algClass, blob), Record(),
                         DATA_FORMAT_ERROR_REQUESTED_KEY_IS_NOT_A_SESSION_KEY,
                         "QUIV.CKeyTools.ValidateBlob"));
}

TEST_F(CKeyToolsTest, ARightClassPassesAndAWrongOneIsCheckedForTypeFirst) {
  ByteArray blob = Blob(k.SIMPLEBLOB(), k.CALG_RSA_KEYX());
  int32_t algClass = k.ALG_CLASS_DATA_ENCRYPT();
  EXPECT_TRUE(FailedWith(tools->ValidateBlob(k.SIMPLEBLOB(), algClass, blob), Record(),
                         DATA_FORMAT_ERROR_ATTEMPTED_TO_LOAD_A_NON_SESSION_KEY,
                         "QUIV.CKeyTools.ValidateBlob"));
  blob = Blob(k.SIMPLEBLOB(), k.CALG_MD5());
  algClass = k.ALG_CLASS_DATA_ENCRYPT();
  EXPECT_TRUE(FailedWith(
      tools->ValidateBlob(k.SIMPLEBLOB(), algClass, blob), Record(),
      DATA_FORMAT_ERROR_ATTEMPTED_TO_LOAD_KEY_ALGORITHM_TYPE_UNSUPPORTED_BY_PROV_RSA_FULL_PROVIDERS,
      "QUIV.CKeyTools.ValidateBlob"));
  blob = Blob(k.PUBLICKEYBLOB(), k.CALG_RSA_SIGN());
  algClass = k.AT_KEYEXCHANGE();
  EXPECT_TRUE(FailedWith(tools->ValidateBlob(k.PUBLICKEYBLOB(), algClass, blob), Record(),
                         DATA_FORMAT_ERROR_ATTEMPTED_TO_LOAD_A_NON_EXCHANGE_KEY,
                         "QUIV.CKeyTools.ValidateBlob"));
  blob = Blob(k.PUBLICKEYBLOB(), k.CALG_RSA_KEYX());
  algClass = k.AT_SIGNATURE();
  EXPECT_TRUE(FailedWith(tools->ValidateBlob(k.PUBLICKEYBLOB(), algClass, blob), Record(),
                         DATA_FORMAT_ERROR_ATTEMPTED_TO_LOAD_A_NON_SIGNATURE_KEY,
                         "QUIV.CKeyTools.ValidateBlob"));
}

TEST_F(CKeyToolsTest, ASignatureBlobLeavesTheSignatureClassInTheCallersVariable) {
  ByteArray blob = Blob(k.PUBLICKEYBLOB(), k.CALG_RSA_SIGN());
  int32_t algClass = k.AT_SIGNATURE();
  ASSERT_TRUE(tools->ValidateBlob(k.PUBLICKEYBLOB(), algClass, blob));
  EXPECT_EQ(algClass, k.ALG_CLASS_SIGNATURE());
}

TEST_F(CKeyToolsTest, OnlyTheLowWordOfTheBlobsAlgorithmIsRead) {
  ByteArray blob = Blob(k.SIMPLEBLOB(), k.CALG_RC4());
  blob[6] = 0xFF;
  blob[7] = 0xFF;
  int32_t algClass = k.ALG_CLASS_DATA_ENCRYPT();
  EXPECT_TRUE(tools->ValidateBlob(k.SIMPLEBLOB(), algClass, blob));
}

TEST_F(CKeyToolsTest, ABlobTooShortToReadIsTheRunTimesSubscriptError) {
  ByteArray blob{static_cast<uint8_t>(k.SIMPLEBLOB()), 2, 0, 0, 1};
  int32_t algClass = k.ALG_CLASS_DATA_ENCRYPT();
  EXPECT_TRUE(FailedWith(tools->ValidateBlob(k.SIMPLEBLOB(), algClass, blob), Record(),
                         kErrSubscriptOutOfRange, "QUIV.CKeyTools.ValidateBlob"));
  EXPECT_EQ(blob, ByteArray{0});
}

TEST_F(CKeyToolsTest, AlgorithmFieldsAreTheirMasks) {
  EXPECT_EQ(tools->GetAlgClass(k.CALG_RC2()), k.ALG_CLASS_DATA_ENCRYPT());
  EXPECT_EQ(tools->GetAlgType(k.CALG_RC2()), k.ALG_TYPE_BLOCK());
  EXPECT_EQ(tools->GetAlgSID(k.CALG_RC2()), k.ALG_SID_RC2());
  EXPECT_EQ(tools->GetAlgClass(k.CALG_SHA1()), k.ALG_CLASS_HASH());
  EXPECT_EQ(tools->GetAlgType(k.CALG_RC4()), k.ALG_TYPE_STREAM());
  EXPECT_TRUE(tools->m_oLastError.IsNothing());
}

TEST_F(CKeyToolsTest, ANegativeIdentifierGivesZeroAndSaysWhatItGot) {
  EXPECT_EQ(tools->GetAlgClass(-1), 0);
  ASSERT_FALSE(Record().IsNothing());
  EXPECT_EQ(Record()->m_lErrNumber, UNDEFINED_ERROR);
  EXPECT_EQ(test::RecordSource(Record()), "QUIV.CKeyTools.GetAlgClass");
  EXPECT_EQ(Record()->m_sErrSource.ToUtf8(), "Cryptography.CKeyTools.GetAlgClass");
  EXPECT_EQ(Record()->m_sErrDescription.ToUtf8(), "Negative input not allowed, received:-1");
  EXPECT_NE(Record()->LastError().ToUtf8().find("iAlgID=-1"), std::string::npos);
  Record()->Clear();
  EXPECT_EQ(tools->GetAlgType(-7), 0);
  EXPECT_EQ(Record()->m_sErrSource.ToUtf8(), "Cryptography.CKeyTools.GetAlgType");
  Record()->Clear();
  EXPECT_EQ(tools->GetAlgSID(-2), 0);
  EXPECT_EQ(test::RecordSource(Record()), "QUIV.CKeyTools.GetAlgSID");
}

TEST_F(CKeyToolsTest, KeyParametersComeBackAsNumbersOrBytes) {
  const HCRYPTKEY key = MakeKey(k.MS_ENHANCED_PROV(), k.CALG_RC2(), 128);
  Variant value;
  ASSERT_TRUE(tools->GetKeyParam(key, k.KP_KEYLEN(), value));
  EXPECT_EQ(value.ToLong(), 128);
  ASSERT_TRUE(tools->GetKeyParam(key, k.KP_ALGID(), value));
  EXPECT_EQ(value.ToLong(), k.CALG_RC2());
  const std::vector<BYTE> iv{1, 2, 3, 4, 5, 6, 7, 8};
  ASSERT_TRUE(
      platform::Platform().CryptSetKeyParam(key, static_cast<DWORD>(k.KP_IV()), iv.data(), 0));
  ASSERT_TRUE(tools->GetKeyParam(key, k.KP_IV(), value));
  EXPECT_EQ(value.ToByteArray(), (ByteArray{1, 2, 3, 4, 5, 6, 7, 8}));
  platform::Platform().CryptDestroyKey(key);
}

// Answers KP_P with four bytes, as a provider with DSS keys would; everything else goes on.
class AnswersKpP final : public platform::ForwardingPlatform {
 public:
  AnswersKpP() : ForwardingPlatform(platform::Platform()) {}
  BOOL CryptGetKeyParam(HCRYPTKEY hKey, DWORD dwParam, BYTE* pbData, DWORD* pdwDataLen,
                        DWORD dwFlags) override {
    if (dwParam != static_cast<DWORD>(k.KP_P())) {
      return ForwardingPlatform::CryptGetKeyParam(hKey, dwParam, pbData, pdwDataLen, dwFlags);
    }
    const bool fits = *pdwDataLen >= 4;
    *pdwDataLen = 4;
    if (!fits) {
      SetLastError(static_cast<DWORD>(k.ERROR_MORE_DATA()));
      return FALSE;
    }
    for (int i = 0; i < 4; ++i) pbData[i] = static_cast<BYTE>(0xA0 + i);
    return TRUE;
  }
};

TEST_F(CKeyToolsTest, AParameterItDoesNotDecodeIsUnknownAfterTheReads) {
  const HCRYPTKEY key = MakeKey(k.MS_ENHANCED_PROV(), k.CALG_RC2(), 128);
  Variant value;
  {
    AnswersKpP answers;
    platform::ScopedPlatformOverride use(answers);
    EXPECT_TRUE(FailedWith(tools->GetKeyParam(key, k.KP_P(), value), Record(),
                           KEY_ERROR_UNKNOWN_KEY_PARAMETER, "QUIV.CKeyTools.GetKeyParam"));
  }
  // Our provider has no KP_P for a session key: its refusal comes at the size query.
  EXPECT_TRUE(FailedWith(tools->GetKeyParam(key, k.KP_P(), value), Record(),
                         GENERAL_ERROR_UNABLE_TO_GET_AVAILABLE_MEMORY,
                         "QUIV.CKeyTools.GetKeyParam"));
  platform::Platform().CryptDestroyKey(key);
}

TEST_F(CKeyToolsTest, AParameterOfAStaleHandleIsAMemoryError) {
  Variant value;
  EXPECT_TRUE(FailedWith(tools->GetKeyParam(0x7777, k.KP_KEYLEN(), value), Record(),
                         GENERAL_ERROR_UNABLE_TO_GET_AVAILABLE_MEMORY,
                         "QUIV.CKeyTools.GetKeyParam"));
}

TEST_F(CKeyToolsTest, ChangingPermissionsStopsAtAProviderThatReportsItsName) {
  const HCRYPTKEY key = MakeKey(k.MS_ENHANCED_PROV(), k.CALG_RC4(), 128);
  EXPECT_TRUE(FailedWith(
      tools->ChangeKeyPermissions(provider, key, true, true, false, true, true, false), Record(),
      PROVIDER_ERROR_UNABLE_TO_GET_PROVIDER_NAME, "QUIV.CKeyTools.ChangeKeyPermissions"));
  platform::Platform().CryptDestroyKey(key);
}

TEST_F(CKeyToolsTest, PermissionsOfAnExportableKeyOnTheEnhancedProvider) {
  const HCRYPTKEY key = MakeKey(k.MS_ENHANCED_PROV(), k.CALG_RC4(), 128);
  bool encrypt = false, decrypt = false, exportable = false, read = false, write = false,
       mac = false;
  ASSERT_TRUE(
      tools->GetKeyPermissions(provider, key, 0, encrypt, decrypt, exportable, read, write, mac));
  EXPECT_TRUE(encrypt);
  EXPECT_TRUE(decrypt);
  EXPECT_TRUE(exportable);
  EXPECT_TRUE(read);
  platform::Platform().CryptDestroyKey(key);
}

TEST_F(CKeyToolsTest, TheBaseProviderIgnoresKeySettings) {
  const HCRYPTKEY key = MakeKey(k.MS_DEF_PROV(), k.CALG_RC4(), 40);
  bool f[6] = {};
  EXPECT_TRUE(FailedWith(
      tools->GetKeyPermissions(provider, key, 0, f[0], f[1], f[2], f[3], f[4], f[5]), Record(),
      GENERAL_ERROR_BASE_PROVIDER_IGNORES_KEY_SETTINGS, "QUIV.CKeyTools.GetKeyPermissions"));
  platform::Platform().CryptDestroyKey(key);
}

TEST_F(CKeyToolsTest, PermissionsNeedAProviderThatCanName) {
  // Without a context the provider cannot read its name.
  bool f[6] = {};
  EXPECT_TRUE(FailedWith(
      tools->GetKeyPermissions(provider, 1, 0, f[0], f[1], f[2], f[3], f[4], f[5]), Record(),
      PROVIDER_ERROR_UNABLE_TO_GET_PROVIDER_NAME, "QUIV.CKeyTools.GetKeyPermissions"));
  // The reversed test of ChangeKeyPermissions goes on, and the stale handle stops it.
  EXPECT_TRUE(FailedWith(
      tools->ChangeKeyPermissions(provider, 0x7777, true, false, false, false, false, false),
      Record(), KEY_ERROR_INVALID_KEY_HANDLE, "QUIV.CKeyTools.ChangeKeyPermissions"));
}

TEST_F(CKeyToolsTest, AlgorithmCodeNamesTakeTheFirstNameOfAValue) {
  String code;
  ASSERT_TRUE(tools->KeyAlg_ID2Code(k.CALG_SHA1(), code));
  EXPECT_EQ(code.ToUtf8(), "CALG_SHA");
  ASSERT_TRUE(tools->KeyAlg_ID2Code(k.CALG_RC2(), code));
  EXPECT_EQ(code.ToUtf8(), "CALG_RC2");
  ASSERT_TRUE(tools->KeyAlg_ID2Code(k.CALG_TLS1PRF(), code));
  EXPECT_EQ(code.ToUtf8(), "CALG_TLS1PRF");
  EXPECT_TRUE(FailedWith(tools->KeyAlg_ID2Code(12345, code), Record(),
                         KEY_ERROR_UNKNOWN_KEY_ALGORITHM_ID, "QUIV.CKeyTools.KeyAlg_ID2Code"));
  EXPECT_EQ(code.ToUtf8(), "(Unknown Key Algorithm ID!)");
}

TEST_F(CKeyToolsTest, CipherModeNamesAndTheOtherRoutinesSource) {
  String code;
  ASSERT_TRUE(tools->CipherMode_ID2Code(k.CRYPT_MODE_CBC(), code));
  EXPECT_EQ(code.ToUtf8(), "CRYPT_MODE_CBC");
  ASSERT_TRUE(tools->CipherMode_ID2Code(k.CRYPT_MODE_CFB(), code));
  EXPECT_EQ(code.ToUtf8(), "CRYPT_MODE_CFB");
  EXPECT_TRUE(FailedWith(tools->CipherMode_ID2Code(k.CRYPT_MODE_CTS(), code), Record(),
                         KEY_ERROR_UNKNOWN_CIPHER_MODE, "QUIV.CKeyTools.KeyAlg_ID2Code"));
  EXPECT_EQ(code.ToUtf8(), "CRYPT_MODE_CFB");
}

}  // namespace
}  // namespace quiv
