// CHashValue: the refusals the other hash tests leave out: negative algorithm identifiers, the
// session-key argument, the platform failing a session key, a property or a hash object, the
// unloaders past their first check, a termination whose Clear fails, and OnStartPage.

// The fakes use wincrypt macros, which the constants catalogue the fixture includes takes away.
#include "provider/ProviderFakes.h"
#include "support/PlatformSpy.h"
#include "support/RsaKeyPairFixture.h"

#include "signing/CHashValue.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <map>
#include <string>

#include "automation/MapPageContext.h"
#include "automation/RuntimeError.h"
#include "constants/CConstQUIV.h"
#include "errors/QuivError.h"
#include "keys/CSessionKey.h"
#include "platform/PlatformSeam.h"
#include "support/InternalAccess.h"
#include "support/RecordMatchers.h"

namespace quiv {
namespace {

using test::Call;
using test::FailedWith;
using test::PlatformSpy;

const CConstQUIV k;

// Every test of this file runs without writing the application log.
const auto* const kQuiet = ::testing::AddGlobalTestEnvironment(new test::QuietEnvironment);

const char* const kMd5OfAbc = "900150983CD24FB0D6963F7D28E17F72";

// The number of the library error a call throws past its caller, or 0 when it throws none.
int32_t ThrownNumber(const std::function<void()>& call) {
  try {
    call();
  } catch (const RuntimeError& error) {
    return error.Number();
  }
  return 0;
}

class CHashValueFailureTest : public test::RsaKeyPairFixture {
 protected:
  void SetUp() override { ASSERT_TRUE(Internal(hash).SetProvider(s_provider)); }
  void TearDown() override { Internal(hash).Terminate(); }

  const Ref<CErrHandler>& Record() const { return hash->m_oLastError; }
  bool HoldsAHash() {
    HCRYPTHASH handle = 0;
    return Internal(hash).GetHashHandle(handle);
  }
  std::string ValueHex() {
    String hex;
    EXPECT_TRUE(hash->UnloadHashValue(hex, STRING_HEX));
    return hex.ToUtf8();
  }

  Ref<CHashValue> hash = MakeRef<CHashValue>();
};

// ---- negative identifiers ----

TEST_F(CHashValueFailureTest, ANegativeIdentifierIsNoHashAlgorithmWhateverItsClassBits) {
  EXPECT_TRUE(FailedWith(hash->SetHashAlgorithmID(kNegativeMd5), Record(),
                         HASH_ERROR_UNKNOWN_HASH_ALGORITHM_ID,
                         "QUIV.CHashValue.SetHashAlgorithmID"));
  // The default stays in force.
  ASSERT_TRUE(hash->Hash(Message("abc")));
  int32_t id = 0;
  ASSERT_TRUE(hash->GetHashAlgorithmID(id));
  EXPECT_EQ(id, k.CALG_MD5());
}

TEST_F(CHashValueFailureTest, AValueCannotBeLoadedUnderANegativeIdentifier) {
  ASSERT_TRUE(hash->Hash(Message("abc")));
  EXPECT_TRUE(FailedWith(hash->LoadHashValue(String::FromUtf8(kMd5OfAbc), STRING_HEX, kNegativeMd5),
                         Record(), HASH_ERROR_UNABLE_TO_SET_HASH_ALGORITHM_ID,
                         "QUIV.CHashValue.LoadHashValue"));
  EXPECT_FALSE(HoldsAHash());  // cleared first, and no new hash object made
}

// ---- the session-key argument ----

TEST_F(CHashValueFailureTest, ASessionKeyArgumentIsRefusedForEveryHashOfAFullRsaProvider) {
  const Ref<CSessionKey> key = MakeRef<CSessionKey>();  // never handed to the platform
  for (const char16_t* code : {u"CALG_MD5", u"CALG_SHA1", u"CALG_MAC", u"CALG_HMAC"}) {
    SCOPED_TRACE(String(code).ToUtf8());
    ASSERT_TRUE(hash->SetHashAlgorithmCode(code));
    EXPECT_TRUE(FailedWith(hash->Hash(Message("abc"), key), Record(),
                           HASH_ERROR_KEY_PASSED_IN_FOR_UNKEYED_HASH, "QUIV.CHashValue.Hash"));
    EXPECT_FALSE(HoldsAHash());
  }
}

TEST_F(CHashValueFailureTest, ASessionKeyArgumentNeedsTheProvidersType) {
  PlatformSpy spy;
  platform::ScopedPlatformOverride use(spy);
  spy.Break(Call::GetProvParam, static_cast<DWORD>(k.NTE_FAIL()),
            static_cast<DWORD>(k.PP_PROVTYPE()));
  EXPECT_TRUE(FailedWith(hash->Hash(Message("abc"), MakeRef<CSessionKey>()), Record(),
                         PROVIDER_ERROR_UNABLE_TO_GET_PROVIDER_TYPE_ID, "QUIV.CHashValue.Hash"));
  EXPECT_FALSE(HoldsAHash());
}

TEST_F(CHashValueFailureTest, ASessionKeyArgumentWithAnotherProviderTypeIsRefused) {
  test::FakeProvParam otherType(static_cast<DWORD>(k.PP_PROVTYPE()),
                                test::FixedBytes({24, 0, 0, 0}));
  platform::ScopedPlatformOverride use(otherType);
  EXPECT_TRUE(FailedWith(hash->Hash(Message("abc"), MakeRef<CSessionKey>()), Record(),
                         PROVIDER_ERROR_UNKNOWN_PROVIDER_TYPE, "QUIV.CHashValue.Hash"));
}

// ---- platform refusals ----

TEST_F(CHashValueFailureTest, ASessionKeyThePlatformCannotHashIsReported) {
  const Ref<CSessionKey> key = SessionKey(k.CALG_RC4(), u"hashed through its handle");
  PlatformSpy spy;
  platform::ScopedPlatformOverride use(spy);
  spy.Break(Call::HashSessionKey, static_cast<DWORD>(k.NTE_BAD_KEY()));
  EXPECT_TRUE(FailedWith(hash->Hash(key), Record(), HASH_ERROR_UNABLE_TO_HASH_SESSION_KEY,
                         "QUIV.CHashValue.Hash"));
  EXPECT_TRUE(HoldsAHash());  // made before the refusal, and kept
}

TEST_F(CHashValueFailureTest, APropertyTheSecondReadRefusesIsItsOwnFailure) {
  ASSERT_TRUE(hash->Hash(Message("abc")));
  PlatformSpy spy;
  platform::ScopedPlatformOverride use(spy);
  spy.Break(Call::GetHashParam, static_cast<DWORD>(k.NTE_BAD_HASH()), PlatformSpy::kAnyParam, 1);
  HCRYPTHASH ignored = 0;
  Variant value;
  EXPECT_TRUE(FailedWith(Internal(hash).GetHashParam(ignored, k.HP_HASHVAL(), value), Record(),
                         HASH_ERROR_UNABLE_TO_GET_HASH_PROPERTY, "QUIV.CHashValue.GetHashParam"));
}

TEST_F(CHashValueFailureTest, EachGetterReportsItsOwnCodeWhenItsPropertyCannotBeRead) {
  ASSERT_TRUE(hash->Hash(Message("abc")));
  PlatformSpy spy;
  platform::ScopedPlatformOverride use(spy);
  spy.Break(Call::GetHashParam, static_cast<DWORD>(k.NTE_BAD_HASH()));
  int32_t id = -1;
  EXPECT_TRUE(FailedWith(hash->GetHashAlgorithmID(id), Record(),
                         HASH_ERROR_UNABLE_TO_GET_HASH_ALGORITHM_ID,
                         "QUIV.CHashValue.GetHashAlgorithm"));
  int16_t size = -1;
  EXPECT_TRUE(FailedWith(hash->GetHashValueLengthInBytes(size), Record(),
                         HASH_ERROR_UNABLE_TO_GET_HASH_SIZE, "QUIV.CHashValue.GetHashValueLength"));
  String code = u"kept";
  EXPECT_TRUE(FailedWith(hash->GetHashAlgorithmCode(code), Record(),
                         HASH_ERROR_UNABLE_TO_GET_HASH_ALGORITHM_ID,
                         "QUIV.CHashValue.GetHashAlgorithmCode"));
  EXPECT_EQ(id, -1);
  EXPECT_EQ(size, -1);
  EXPECT_EQ(code, String(u"kept"));
}

TEST_F(CHashValueFailureTest, AnMd4HashHasNoCodeName) {
  ASSERT_TRUE(hash->SetHashAlgorithmID(k.CALG_MD4()));
  ASSERT_TRUE(hash->Hash(Message("abc")));
  String code;
  EXPECT_TRUE(FailedWith(hash->GetHashAlgorithmCode(code), Record(),
                         HASH_ERROR_UNKNOWN_HASH_ALGORITHM_ID,
                         "QUIV.CHashValue.GetHashAlgorithmCode"));
}

// ---- loading ----

TEST_F(CHashValueFailureTest, ALoadStopsWhenTheOldHashCannotBeCleared) {
  ASSERT_TRUE(hash->Hash(Message("abc")));
  PlatformSpy spy;
  platform::ScopedPlatformOverride use(spy);
  spy.Break(Call::DestroyHash, static_cast<DWORD>(k.NTE_BAD_HASH()));
  EXPECT_TRUE(FailedWith(
      hash->LoadHashValue(u"F96B697D7CB7938D525A2F31AAF161D0", STRING_HEX, k.CALG_MD5()), Record(),
      HASH_ERROR_UNABLE_TO_CLEAR_HASH_OBJECT, "QUIV.CHashValue.LoadHashValue"));
  EXPECT_EQ(ValueHex(), kMd5OfAbc);  // the old hash is still the one held
}

TEST_F(CHashValueFailureTest, ALoadWhoseHashObjectCannotBeMadeHoldsNone) {
  ASSERT_TRUE(hash->Hash(Message("abc")));
  PlatformSpy spy;
  platform::ScopedPlatformOverride use(spy);
  spy.Break(Call::CreateHash, static_cast<DWORD>(k.NTE_NO_MEMORY()));
  EXPECT_TRUE(FailedWith(hash->LoadHashValue(String::FromUtf8(kMd5OfAbc), STRING_HEX, k.CALG_MD5()),
                         Record(), HASH_ERROR_UNABLE_TO_CREATE_CRYPTOAPI_HASH_OBJECT,
                         "QUIV.CHashValue.LoadHashValue"));
  EXPECT_FALSE(HoldsAHash());
}

// ---- unloading past the first check ----

TEST_F(CHashValueFailureTest, UnloadHashValueThrowsWhatFailsAfterItsFirstCheck) {
  ASSERT_TRUE(hash->Hash(Message("abc")));
  String out = u"kept";
  EXPECT_EQ(ThrownNumber([&] { hash->UnloadHashValue(out, CURRENT_KEY_CONTAINER); }),
            DATA_FORMAT_ERROR_UNABLE_TO_CONVERT_BYTE_ARRAY_TO_DATA_FORMAT);
  EXPECT_TRUE(Record().IsNothing());
  PlatformSpy spy;
  platform::ScopedPlatformOverride use(spy);
  spy.Break(Call::GetHashParam, static_cast<DWORD>(k.NTE_BAD_HASH()));
  EXPECT_EQ(ThrownNumber([&] { hash->UnloadHashValue(out, STRING_HEX); }),
            HASH_ERROR_UNABLE_TO_GET_HASH_VALUE);
  // Only the property read recorded its own failure.
  EXPECT_TRUE(FailedWith(false, Record(), GENERAL_ERROR_UNABLE_TO_GET_AVAILABLE_MEMORY,
                         "QUIV.CHashValue.GetHashParam"));
  EXPECT_EQ(out, String(u"kept"));
}

TEST_F(CHashValueFailureTest, UnloadFingerprintRecordsWhatFailsAfterItsFirstCheck) {
  ASSERT_TRUE(hash->Hash(Message("abc")));
  String out = u"kept";
  EXPECT_TRUE(FailedWith(hash->UnloadFingerprint(out, CURRENT_KEY_CONTAINER), Record(),
                         DATA_FORMAT_ERROR_UNABLE_TO_CONVERT_BYTE_ARRAY_TO_DATA_FORMAT,
                         "QUIV.CHashValue.UnloadFingerprint"));
  PlatformSpy spy;
  platform::ScopedPlatformOverride use(spy);
  spy.Break(Call::GetHashParam, static_cast<DWORD>(k.NTE_BAD_HASH()));
  EXPECT_TRUE(FailedWith(hash->UnloadFingerprint(out, STRING_VB), Record(),
                         HASH_ERROR_UNABLE_TO_GET_HASH_VALUE, "QUIV.CHashValue.UnloadFingerprint"));
  EXPECT_EQ(out, String(u"kept"));
}

// ---- termination and the page ----

TEST_F(CHashValueFailureTest, ATerminationWhoseClearFailsIsRecordedUnderTheKeyPairsName) {
  ASSERT_TRUE(hash->OnStartPage(MakeRef<MapPageContext>(std::map<String, String>{}, String())));
  const Ref<CErrHandler> record = Record();  // termination lets go of its own reference
  ASSERT_TRUE(hash->Hash(Message("abc")));
  {
    PlatformSpy spy;
    platform::ScopedPlatformOverride use(spy);
    spy.Break(Call::DestroyHash, static_cast<DWORD>(k.NTE_BAD_HASH()));
    Internal(hash).Terminate();
  }
  EXPECT_TRUE(FailedWith(false, record, HASH_ERROR_UNABLE_TO_CLEAR_HASH_OBJECT,
                         "QUIV.CRSAKeyPair.Class_Terminate"));
  EXPECT_TRUE(Record().IsNothing());
}

TEST_F(CHashValueFailureTest, OnStartPageMakesTheRecordAndHandsItThePage) {
  const std::map<String, String> variables{{u"PATH_INFO", u"/hash.asp"}};
  ASSERT_TRUE(hash->OnStartPage(MakeRef<MapPageContext>(variables, String(u"h=1"))));
  ASSERT_FALSE(Record().IsNothing());
  EXPECT_FALSE(HoldsAHash());  // a failure the record reports with the page's address
  EXPECT_EQ(Record()->m_sWebPageURL.ToUtf8(), "/hash.asp?h=1");
}

}  // namespace
}  // namespace quiv
