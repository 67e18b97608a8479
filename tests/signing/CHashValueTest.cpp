// CHashValue: known answers (RFC 1319/1320/1321, FIPS 180-1) through message text, the running
// hash, the algorithm setters and getters, loading and unloading values, the session-key path,
// and the platform failures each step reports.
#include "support/QuietLog.h"

#include "signing/CHashValue.h"

#include <gtest/gtest.h>

#include <cctype>
#include <cstdint>
#include <string>
#include <vector>

#include "automation/RuntimeError.h"
#include "data/CMessagetext.h"
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

ByteArray Ascii(const std::string& text) {
  return ByteArray(std::vector<uint8_t>(text.begin(), text.end()));
}

ByteArray FromHex(const std::string& hex) {
  std::vector<uint8_t> out;
  for (size_t i = 0; i + 1 < hex.size(); i += 2) {
    out.push_back(static_cast<uint8_t>(std::stoi(hex.substr(i, 2), nullptr, 16)));
  }
  return ByteArray(out);
}

const CConstQUIV& Const() {
  static const CConstQUIV constants{};
  return constants;
}

std::string Lower(std::string text) {
  for (char& c : text) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return text;
}

// Fails one platform call with a fixed error; everything else goes to the real provider.
class FailCreateHash final : public platform::ForwardingPlatform {
 public:
  FailCreateHash() : ForwardingPlatform(platform::Platform()) {}
  BOOL CryptCreateHash(HCRYPTPROV, ALG_ID, HCRYPTKEY, DWORD, HCRYPTHASH*) override {
    SetLastError(static_cast<DWORD>(Const().NTE_NO_MEMORY()));
    return FALSE;
  }
};

class FailDestroyHash final : public platform::ForwardingPlatform {
 public:
  FailDestroyHash() : ForwardingPlatform(platform::Platform()) {}
  BOOL CryptDestroyHash(HCRYPTHASH) override {
    SetLastError(static_cast<DWORD>(Const().NTE_BAD_HASH()));
    return FALSE;
  }
};

class FailHashData final : public platform::ForwardingPlatform {
 public:
  FailHashData() : ForwardingPlatform(platform::Platform()) {}
  BOOL CryptHashData(HCRYPTHASH, const BYTE*, DWORD, DWORD) override {
    SetLastError(static_cast<DWORD>(Const().NTE_BAD_HASH_STATE()));
    return FALSE;
  }
};

// The size query fails with something other than "more data".
class FailHashParamSize final : public platform::ForwardingPlatform {
 public:
  FailHashParamSize() : ForwardingPlatform(platform::Platform()) {}
  BOOL CryptGetHashParam(HCRYPTHASH, DWORD, BYTE*, DWORD*, DWORD) override {
    SetLastError(static_cast<DWORD>(Const().NTE_BAD_HASH()));
    return FALSE;
  }
};

// Answers every hash property with two bytes, asking for the size first.
class AnswerAnyHashParam final : public platform::ForwardingPlatform {
 public:
  AnswerAnyHashParam() : ForwardingPlatform(platform::Platform()) {}
  BOOL CryptGetHashParam(HCRYPTHASH, DWORD, BYTE* data, DWORD* length, DWORD) override {
    if (*length < 2) {
      *length = 2;
      SetLastError(static_cast<DWORD>(Const().ERROR_MORE_DATA()));
      return FALSE;
    }
    data[0] = 1;
    data[1] = 2;
    *length = 2;
    return TRUE;
  }
};

// Counts hash destructions and passes them on.
class CountDestroyHash final : public platform::ForwardingPlatform {
 public:
  CountDestroyHash() : ForwardingPlatform(platform::Platform()) {}
  BOOL CryptDestroyHash(HCRYPTHASH h) override {
    ++m_nCalls;
    return ForwardingPlatform::CryptDestroyHash(h);
  }
  int m_nCalls = 0;
};

// A hashee that answers what the test sets.
class FakeHashee final : public Object, public IHash {
 public:
  bool m_fWhatOk = true;
  int16_t m_nWhat = MESSAGETEXT;
  bool m_fDataOk = true;
  ByteArray m_abData = ByteArray{1, 2};
  bool m_fKeyOk = true;
  HCRYPTKEY m_hKey = 0;
  bool WhatToHash(int16_t& o_nWhat) override {
    o_nWhat = m_nWhat;
    return m_fWhatOk;
  }
  bool GetDataAsByteArray(ByteArray& o_abData) override {
    o_abData = m_abData;
    return m_fDataOk;
  }
  bool GetSessionKeyHandle(HCRYPTKEY& o_hKey) override {
    o_hKey = m_hKey;
    return m_fKeyOk;
  }
  String TypeName() const override { return u"FakeHashee"; }
};

class CHashValueTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(provider->SetProviderTypeID(k.PROV_RSA_FULL()));
    ASSERT_TRUE(provider->LoadProvider());
    ASSERT_TRUE(Internal(hash).SetProvider(provider));
  }
  void TearDown() override {
    Internal(hash).Terminate();
    provider->TerminateAll();
  }

  Ref<CMessagetext> Message(const std::string& text) {
    Ref<CMessagetext> message = MakeRef<CMessagetext>();
    EXPECT_TRUE(message->SetMessageText(Ascii(text)));
    return message;
  }
  ByteArray Value() {
    ByteArray out;
    EXPECT_TRUE(hash->GetHashValue(out));
    return out;
  }
  const Ref<CErrHandler>& Record() const { return hash->m_oLastError; }

  const CConstQUIV k{};
  test::QuietLog m_quiet;
  platform::ScopedPlatformOverride m_use{m_quiet};
  test::TempKeyStore m_store;
  Ref<CProvider> provider = CProvider::Create();
  Ref<CHashValue> hash = MakeRef<CHashValue>();
};

TEST_F(CHashValueTest, ANewObjectHasNoHashForAnyGetter) {
  ByteArray value{7};
  EXPECT_TRUE(FailedWith(hash->GetHashValue(value), Record(),
                         HASH_ERROR_HASH_OBJECT_DOES_NOT_CONTAIN_A_HASH,
                         "QUIV.CHashValue.GetHashValue"));
  int32_t id = 0;
  EXPECT_TRUE(FailedWith(hash->GetHashAlgorithmID(id), Record(),
                         HASH_ERROR_HASH_OBJECT_DOES_NOT_CONTAIN_A_HASH,
                         "QUIV.CHashValue.GetHashAlgorithm"));
  int16_t size = 0;
  EXPECT_TRUE(FailedWith(hash->GetHashValueLengthInBytes(size), Record(),
                         HASH_ERROR_HASH_OBJECT_DOES_NOT_CONTAIN_A_HASH,
                         "QUIV.CHashValue.GetHashValueLength"));
  String code;
  EXPECT_TRUE(FailedWith(hash->GetHashAlgorithmCode(code), Record(),
                         HASH_ERROR_UNABLE_TO_GET_HASH_ALGORITHM_ID,
                         "QUIV.CHashValue.GetHashAlgorithmCode"));
  HCRYPTHASH handle = 0;
  EXPECT_TRUE(FailedWith(Internal(hash).GetHashHandle(handle), Record(),
                         HASH_ERROR_HASH_OBJECT_DOES_NOT_CONTAIN_A_HASH,
                         "QUIV.CHashValue.GetHashHandle"));
  Variant out;
  EXPECT_TRUE(FailedWith(Internal(hash).GetHashParam(handle, k.HP_HASHVAL(), out), Record(),
                         HASH_ERROR_HASH_OBJECT_DOES_NOT_CONTAIN_A_HASH,
                         "QUIV.CHashValue.GetHashParam"));
  String fprint;
  EXPECT_TRUE(FailedWith(hash->UnloadFingerprint(fprint, STRING_VB), Record(),
                         HASH_ERROR_HASH_OBJECT_DOES_NOT_CONTAIN_A_HASH,
                         "QUIV.CHashValue.UnloadFingerprint"));
}

struct KnownAnswer {
  const char* code;
  std::string text;
  const char* hex;
};

// RFC 1321 A.5, RFC 1320 A.5, RFC 1319 A.5, FIPS 180-1 appendices A and B.
TEST_F(CHashValueTest, KnownAnswersThroughMessageText) {
  const KnownAnswer answers[] = {
      {"CALG_MD5", "abc", "900150983cd24fb0d6963f7d28e17f72"},
      {"CALG_MD5", "message digest", "f96b697d7cb7938d525a2f31aaf161d0"},
      {"CALG_MD5", "abcdefghijklmnopqrstuvwxyz", "c3fcd3d76192e4007dfb496cca67e13b"},
      {"CALG_MD2", "abc", "da853b0d3f88d99b30283a69e6ded6bb"},
      {"CALG_MD2", "message digest", "ab4f496bfb2a530b219ff33031fe06b0"},
      {"CALG_SHA", "abc", "a9993e364706816aba3e25717850c26c9cd0d89d"},
      {"CALG_SHA1", "abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq",
       "84983e441c3bd26ebaae4aa1f95129e5e54670f1"},
  };
  for (const KnownAnswer& answer : answers) {
    SCOPED_TRACE(std::string(answer.code) + " " + answer.text);
    ASSERT_TRUE(hash->Clear());
    ASSERT_TRUE(hash->SetHashAlgorithmCode(String::FromUtf8(answer.code)));
    ASSERT_TRUE(hash->Hash(Message(answer.text)));
    EXPECT_EQ(Value(), FromHex(answer.hex));
  }
}

TEST_F(CHashValueTest, Md4KnownAnswerThroughTheIdentifier) {
  ASSERT_TRUE(hash->SetHashAlgorithmID(k.CALG_MD4()));
  ASSERT_TRUE(hash->Hash(Message("abc")));  // RFC 1320 A.5
  EXPECT_EQ(Value(), FromHex("a448017aaf21d8525fc10ae87aa6729d"));
}

TEST_F(CHashValueTest, DefaultsAreMd5AndReportTheirCodeAndSize) {
  ASSERT_TRUE(hash->Hash(Message("abc")));
  String code;
  ASSERT_TRUE(hash->GetHashAlgorithmCode(code));
  EXPECT_EQ(code, String(u"CALG_MD5"));
  int32_t id = 0;
  ASSERT_TRUE(hash->GetHashAlgorithmID(id));
  EXPECT_EQ(id, k.CALG_MD5());
  int16_t size = 0;
  ASSERT_TRUE(hash->GetHashValueLengthInBytes(size));
  EXPECT_EQ(size, 16);
}

TEST_F(CHashValueTest, SuccessiveHashesAccumulateUntilClear) {
  ASSERT_TRUE(hash->Hash(Message("message ")));
  ASSERT_TRUE(hash->Hash(Message("digest")));
  EXPECT_EQ(Value(), FromHex("f96b697d7cb7938d525a2f31aaf161d0"));
  ASSERT_TRUE(hash->Clear());
  ASSERT_TRUE(hash->Hash(Message("abc")));
  EXPECT_EQ(Value(), FromHex("900150983cd24fb0d6963f7d28e17f72"));
}

TEST_F(CHashValueTest, OneByteMessageIsNoDataAndEmptyMessageCannotGiveData) {
  EXPECT_TRUE(FailedWith(hash->Hash(Message("x")), Record(), HASH_ERROR_NO_DATA_TO_HASH,
                         "QUIV.CHashValue.Hash"));
  EXPECT_TRUE(FailedWith(hash->Hash(MakeRef<CMessagetext>()), Record(),
                         SIGNATURE_ERROR_UNABLE_TO_GET_DATA_TO_SIGN_OR_VERIFY,
                         "QUIV.CHashValue.Hash"));
}

TEST_F(CHashValueTest, HasheeAnswersDecideThePath) {
  auto hashee = MakeRef<FakeHashee>();
  hashee->m_fWhatOk = false;
  EXPECT_TRUE(FailedWith(hash->Hash(hashee), Record(), HASH_ERROR_UNABLE_TO_DETERMINE_WHAT_TO_HASH,
                         "QUIV.CHashValue.Hash"));
  hashee->m_fWhatOk = true;
  hashee->m_nWhat = UNSPECIFIED;
  EXPECT_TRUE(FailedWith(hash->Hash(hashee), Record(), HASH_ERROR_WHAT_TO_HASH_NOT_SPECIFIED,
                         "QUIV.CHashValue.Hash"));
  hashee->m_nWhat = SESSION_KEY;
  hashee->m_fKeyOk = false;
  EXPECT_TRUE(FailedWith(hash->Hash(hashee), Record(), HASH_ERROR_UNABLE_TO_GET_SESSION_KEY_HANDLE,
                         "QUIV.CHashValue.Hash"));
  // Values outside the enumeration are treated as data.
  hashee->m_nWhat = 42;
  hashee->m_abData = Ascii("abc");
  ASSERT_TRUE(hash->Hash(hashee));
  EXPECT_EQ(Value(), FromHex("900150983cd24fb0d6963f7d28e17f72"));
  // A one-byte array is empty whatever its byte.
  hashee->m_abData = ByteArray{0x41};
  EXPECT_TRUE(
      FailedWith(hash->Hash(hashee), Record(), HASH_ERROR_NO_DATA_TO_HASH, "QUIV.CHashValue.Hash"));
  hashee->m_fDataOk = false;
  EXPECT_TRUE(FailedWith(hash->Hash(hashee), Record(),
                         SIGNATURE_ERROR_UNABLE_TO_GET_DATA_TO_SIGN_OR_VERIFY,
                         "QUIV.CHashValue.Hash"));
}

TEST_F(CHashValueTest, SessionKeyHandleIsHashedThroughThePlatform) {
  HCRYPTKEY key = 0;
  ASSERT_TRUE(platform::Platform().CryptGenKey(Internal(provider).ContextHandle(),
                                               static_cast<ALG_ID>(k.CALG_RC4()),
                                               static_cast<DWORD>(k.CRYPT_EXPORTABLE()), &key));
  auto hashee = MakeRef<FakeHashee>();
  hashee->m_nWhat = SESSION_KEY;
  hashee->m_hKey = key;
  ASSERT_TRUE(hash->Hash(hashee));
  const ByteArray first = Value();
  EXPECT_EQ(first.UBound(), 15);
  // The same key hashed again in a fresh object gives the same value.
  ASSERT_TRUE(hash->Clear());
  ASSERT_TRUE(hash->Hash(hashee));
  EXPECT_EQ(Value(), first);
  platform::Platform().CryptDestroyKey(key);
}

TEST_F(CHashValueTest, AlgorithmIdentifierMustBeOfTheHashClass) {
  EXPECT_TRUE(FailedWith(hash->SetHashAlgorithmID(k.CALG_RC2()), Record(),
                         HASH_ERROR_UNKNOWN_HASH_ALGORITHM_ID,
                         "QUIV.CHashValue.SetHashAlgorithmID"));
  // The failed call left MD5 in place.
  ASSERT_TRUE(hash->Hash(Message("abc")));
  EXPECT_EQ(Value(), FromHex("900150983cd24fb0d6963f7d28e17f72"));
}

TEST_F(CHashValueTest, AlgorithmCodesAreCaseSensitive) {
  EXPECT_TRUE(FailedWith(hash->SetHashAlgorithmCode(u"calg_md5"), Record(),
                         HASH_ERROR_UNKNOWN_HASH_ALGORITHM_ID,
                         "QUIV.CHashValue.SetHashAlgorithmCode"));
  EXPECT_TRUE(FailedWith(hash->SetHashAlgorithmCode(u"CALG_RC4"), Record(),
                         HASH_ERROR_UNKNOWN_HASH_ALGORITHM_ID,
                         "QUIV.CHashValue.SetHashAlgorithmCode"));
}

TEST_F(CHashValueTest, Sha1IsReportedAsSha) {
  ASSERT_TRUE(hash->SetHashAlgorithmCode(u"CALG_SHA1"));
  ASSERT_TRUE(hash->Hash(Message("abc")));
  String code;
  ASSERT_TRUE(hash->GetHashAlgorithmCode(code));
  EXPECT_EQ(code, String(u"CALG_SHA"));
  int16_t size = 0;
  ASSERT_TRUE(hash->GetHashValueLengthInBytes(size));
  EXPECT_EQ(size, 20);
}

TEST_F(CHashValueTest, HmacIsAcceptedByCodeButCannotBeCreatedWithoutAKey) {
  ASSERT_TRUE(hash->SetHashAlgorithmCode(u"CALG_HMAC"));
  EXPECT_TRUE(FailedWith(hash->Hash(Message("abc")), Record(),
                         HASH_ERROR_UNABLE_TO_CREATE_CRYPTOAPI_HASH_OBJECT,
                         "QUIV.CHashValue.Hash"));
}

TEST_F(CHashValueTest, NewAlgorithmWaitsForTheNextHashObject) {
  ASSERT_TRUE(hash->Hash(Message("abc")));
  ASSERT_TRUE(hash->SetHashAlgorithmCode(u"CALG_SHA"));
  int32_t id = 0;
  ASSERT_TRUE(hash->GetHashAlgorithmID(id));
  EXPECT_EQ(id, k.CALG_MD5());
  ASSERT_TRUE(hash->Clear());
  ASSERT_TRUE(hash->Hash(Message("abc")));
  ASSERT_TRUE(hash->GetHashAlgorithmID(id));
  EXPECT_EQ(id, k.CALG_SHA1());
}

TEST_F(CHashValueTest, LoadedValueUnloadsAsHexAndFingerprint) {
  ASSERT_TRUE(hash->LoadHashValue(u"900150983CD24FB0D6963F7D28E17F72", STRING_HEX, k.CALG_MD5()));
  EXPECT_EQ(Value(), FromHex("900150983cd24fb0d6963f7d28e17f72"));
  String hex;
  ASSERT_TRUE(hash->UnloadHashValue(hex, STRING_HEX));
  EXPECT_EQ(Lower(hex.ToUtf8()), "900150983cd24fb0d6963f7d28e17f72");
  String fprint;
  ASSERT_TRUE(hash->UnloadFingerprint(fprint, STRING_VB));
  EXPECT_EQ(Lower(fprint.ToUtf8()), "9001-5098-3cd2-4fb0-d696-3f7d-28e1-7f72");
}

TEST_F(CHashValueTest, LoadRefusesCipherAlgorithmAndBadHex) {
  EXPECT_TRUE(FailedWith(hash->LoadHashValue(u"00", STRING_HEX, k.CALG_RC2()), Record(),
                         HASH_ERROR_UNABLE_TO_SET_HASH_ALGORITHM_ID,
                         "QUIV.CHashValue.LoadHashValue"));
  EXPECT_TRUE(FailedWith(hash->LoadHashValue(u"0G", STRING_HEX, k.CALG_MD5()), Record(),
                         DATA_FORMAT_ERROR_UNABLE_TO_CONVERT_DATA_TO_BYTE_ARRAY,
                         "QUIV.CHashValue.LoadHashValue"));
  // The new hash object stays after a failure past its creation.
  HCRYPTHASH handle = 0;
  EXPECT_TRUE(Internal(hash).GetHashHandle(handle));
  EXPECT_NE(handle, 0u);
}

TEST_F(CHashValueTest, UnloadHashValueThrowsAndLeavesLastErrorAlone) {
  String out;
  try {
    hash->UnloadHashValue(out, STRING_HEX);
    FAIL() << "no failure";
  } catch (const RuntimeError& error) {
    EXPECT_EQ(error.Number(), HASH_ERROR_HASH_OBJECT_DOES_NOT_CONTAIN_A_HASH);
  }
  EXPECT_TRUE(Record().IsNothing());
}

TEST_F(CHashValueTest, AbsentSessionKeyArgumentTakesTheUnkeyedPath) {
  ASSERT_TRUE(hash->Hash(Message("abc"), Ref<CSessionKey>()));
  EXPECT_EQ(Value(), FromHex("900150983cd24fb0d6963f7d28e17f72"));
}

TEST_F(CHashValueTest, PlatformFailuresAreReported) {
  {
    FailCreateHash fake;
    platform::ScopedPlatformOverride use(fake);
    EXPECT_TRUE(FailedWith(hash->Hash(Message("abc")), Record(),
                           HASH_ERROR_UNABLE_TO_CREATE_CRYPTOAPI_HASH_OBJECT,
                           "QUIV.CHashValue.Hash"));
  }
  {
    FailHashData fake;
    platform::ScopedPlatformOverride use(fake);
    EXPECT_TRUE(FailedWith(hash->Hash(Message("abc")), Record(), HASH_ERROR_UNABLE_TO_HASH_THE_DATA,
                           "QUIV.CHashValue.Hash"));
  }
  {
    FailHashParamSize fake;
    platform::ScopedPlatformOverride use(fake);
    HCRYPTHASH ignored = 0;
    Variant out;
    EXPECT_TRUE(FailedWith(Internal(hash).GetHashParam(ignored, k.HP_HASHVAL(), out), Record(),
                           GENERAL_ERROR_UNABLE_TO_GET_AVAILABLE_MEMORY,
                           "QUIV.CHashValue.GetHashParam"));
    ByteArray value;
    EXPECT_TRUE(FailedWith(hash->GetHashValue(value), Record(), HASH_ERROR_UNABLE_TO_GET_HASH_VALUE,
                           "QUIV.CHashValue.GetHashValue"));
  }
  {
    FailDestroyHash fake;
    platform::ScopedPlatformOverride use(fake);
    EXPECT_TRUE(FailedWith(hash->Clear(), Record(), HASH_ERROR_UNABLE_TO_DESTROY_HASH,
                           "QUIV.CHashValue.Clear"));
    HCRYPTHASH handle = 0;
    EXPECT_TRUE(Internal(hash).GetHashHandle(handle));  // the flag stays set
  }
}

TEST_F(CHashValueTest, UnknownHashPropertyIsRefused) {
  ASSERT_TRUE(hash->Hash(Message("abc")));
  HCRYPTHASH ignored = 0;
  Variant out;
  // The real provider refuses the property at the size query.
  EXPECT_TRUE(FailedWith(Internal(hash).GetHashParam(ignored, 0x7777, out), Record(),
                         GENERAL_ERROR_UNABLE_TO_GET_AVAILABLE_MEMORY,
                         "QUIV.CHashValue.GetHashParam"));
  // A platform that answers it still gets the property refused by the library.
  AnswerAnyHashParam fake;
  platform::ScopedPlatformOverride use(fake);
  EXPECT_TRUE(FailedWith(Internal(hash).GetHashParam(ignored, 0x7777, out), Record(),
                         HASH_ERROR_UNKNOWN_HASH_PROPERTY, "QUIV.CHashValue.GetHashParam"));
}

TEST_F(CHashValueTest, TerminateDestroysTheHashOnceAndTheDestructorLeavesThePlatformAlone) {
  CountDestroyHash fake;
  platform::ScopedPlatformOverride use(fake);
  ASSERT_TRUE(hash->Hash(Message("abc")));
  Internal(hash).Terminate();
  EXPECT_EQ(fake.m_nCalls, 1);
  hash = MakeRef<CHashValue>();
  EXPECT_EQ(fake.m_nCalls, 1);
}

TEST_F(CHashValueTest, LoadedValueLengthIsLeftToThePlatform) {
  const String twenty = u"A9993E364706816ABA3E25717850C26C9CD0D89D";
  if (hash->LoadHashValue(twenty, STRING_HEX, k.CALG_MD5())) {
    // The platform takes as many bytes as the algorithm's size: MD5 keeps the first 16.
    EXPECT_EQ(Value(), FromHex("a9993e364706816aba3e25717850c26c"));
  } else {
    EXPECT_TRUE(FailedWith(false, Record(), HASH_ERROR_UNABLE_TO_IMPORT_HASH,
                           "QUIV.CHashValue.LoadHashValue"));
  }
}

TEST_F(CHashValueTest, ShortLoadedValueIsZeroPaddedToTheAlgorithmSize) {
  ASSERT_TRUE(hash->LoadHashValue(u"0102", STRING_HEX, k.CALG_MD5()));
  EXPECT_EQ(Value(), FromHex("01020000000000000000000000000000"));
}

TEST_F(CHashValueTest, LoadStartsFromAClearedObject) {
  ASSERT_TRUE(hash->Hash(Message("abc")));
  ASSERT_TRUE(hash->LoadHashValue(u"F96B697D7CB7938D525A2F31AAF161D0", STRING_HEX, k.CALG_MD5()));
  EXPECT_EQ(Value(), FromHex("f96b697d7cb7938d525a2f31aaf161d0"));
}

TEST_F(CHashValueTest, MacCodeIsStoredButNeedsAKeyToCreate) {
  ASSERT_TRUE(hash->SetHashAlgorithmCode(u"CALG_MAC"));
  EXPECT_TRUE(FailedWith(hash->Hash(Message("abc")), Record(),
                         HASH_ERROR_UNABLE_TO_CREATE_CRYPTOAPI_HASH_OBJECT,
                         "QUIV.CHashValue.Hash"));
  EXPECT_TRUE(FailedWith(hash->LoadHashValue(u"00", STRING_HEX, k.CALG_RC4()), Record(),
                         HASH_ERROR_UNABLE_TO_SET_HASH_ALGORITHM_ID,
                         "QUIV.CHashValue.LoadHashValue"));
}

TEST_F(CHashValueTest, HandleIsTheOneTheHashWasMadeWith) {
  ASSERT_TRUE(hash->Hash(Message("abc")));
  HCRYPTHASH handle = 0;
  ASSERT_TRUE(Internal(hash).GetHashHandle(handle));
  BYTE value[16] = {};
  DWORD length = sizeof(value);
  ASSERT_TRUE(platform::Platform().CryptGetHashParam(handle, static_cast<DWORD>(k.HP_HASHVAL()),
                                                     value, &length, 0));
  EXPECT_EQ(ByteArray(std::vector<uint8_t>(value, value + length)),
            FromHex("900150983cd24fb0d6963f7d28e17f72"));
}

}  // namespace
}  // namespace quiv
