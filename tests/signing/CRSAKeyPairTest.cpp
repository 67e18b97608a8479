// CRSAKeyPair: its state and key specification, generation, the handle routines the session key
// uses, the modulus, the PublicKey / PrivateKey views, Clear and termination, against the real
// software provider with its key stores in a temporary folder.
#include "support/RsaKeyPairFixture.h"

#include "signing/CRSAKeyPair.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <map>
#include <string>

#include "automation/MapPageContext.h"
#include "automation/RunTime.h"
#include "automation/RuntimeError.h"
#include "constants/CConstQUIV.h"
#include "errors/QuivError.h"
#include "platform/ForwardingPlatform.h"
#include "platform/PlatformSeam.h"
#include "support/InternalAccess.h"
#include "support/RecordMatchers.h"

namespace quiv {
namespace {

using test::FailedWith;

const CConstQUIV k;

// Every test of this file runs without writing the application log.
const auto* const kQuiet = ::testing::AddGlobalTestEnvironment(new test::QuietEnvironment);

// ---- one-call fakes: each forwards everything but the call it is named after ----

// Records CryptGenKey's arguments, and fails it on request.
class RecordingGenKey final : public platform::ForwardingPlatform {
 public:
  explicit RecordingGenKey(bool fail = false)
      : ForwardingPlatform(platform::Platform()), m_fail(fail) {}
  BOOL CryptGenKey(HCRYPTPROV p, ALG_ID alg, DWORD flags, HCRYPTKEY* key) override {
    ++calls;
    lastAlg = alg;
    lastFlags = flags;
    if (m_fail) {
      SetLastError(static_cast<DWORD>(k.NTE_FAIL()));
      return FALSE;
    }
    return ForwardingPlatform::CryptGenKey(p, alg, flags, key);
  }
  int calls = 0;
  ALG_ID lastAlg = 0;
  DWORD lastFlags = 0;

 private:
  bool m_fail;
};

// Counts CryptDestroyKey, and fails it (without destroying) on request.
class CountingDestroy final : public platform::ForwardingPlatform {
 public:
  explicit CountingDestroy(bool fail = false)
      : ForwardingPlatform(platform::Platform()), m_fail(fail) {}
  BOOL CryptDestroyKey(HCRYPTKEY key) override {
    ++calls;
    if (m_fail) {
      SetLastError(static_cast<DWORD>(k.NTE_BAD_KEY()));
      return FALSE;
    }
    return ForwardingPlatform::CryptDestroyKey(key);
  }
  int calls = 0;

 private:
  bool m_fail;
};

// CryptGetKeyParam refused.
class FailingGetKeyParam final : public platform::ForwardingPlatform {
 public:
  FailingGetKeyParam() : ForwardingPlatform(platform::Platform()) {}
  BOOL CryptGetKeyParam(HCRYPTKEY, DWORD, BYTE*, DWORD*, DWORD) override {
    SetLastError(static_cast<DWORD>(k.NTE_BAD_KEY()));
    return FALSE;
  }
};

// ---- fixture: one provider (and its default container) for the whole suite ----

class CRSAKeyPairTest : public test::RsaKeyPairFixture {
 protected:
  static int16_t What(const Ref<CRSAKeyPair>& pair) {
    int16_t what = -1;
    EXPECT_TRUE(pair->WhatToHash(what));
    return what;
  }
  // A pair of `keySpec` holding only the public key of `from`.
  static Ref<CRSAKeyPair> PublicOnlyOf(const Ref<CRSAKeyPair>& from, int16_t keySpec) {
    Ref<CRSAKeyPair> pair = Pair(keySpec);
    EXPECT_TRUE(pair->LoadPublicKey(PublicHex(from), STRING_HEX));
    return pair;
  }
};

// ---- a fresh object ----

TEST_F(CRSAKeyPairTest, AFreshObjectHoldsNoKeysAndAsksForNothing) {
  Ref<CRSAKeyPair> pair = Pair(kExchange);
  EXPECT_EQ(Contents(pair), NOKEYS);
  EXPECT_EQ(What(pair), UNSPECIFIED);
  EXPECT_TRUE(pair->m_oLastError.IsNothing());  // made on the first failure only

  int32_t modulus = 77;
  EXPECT_TRUE(FailedWith(pair->GetModulus(modulus), pair->m_oLastError,
                         KEY_ERROR_KEY_PAIR_OBJECT_HAS_NO_KEYS, "QUIV.CRSAKeyPair.GetModulus"));
  EXPECT_EQ(modulus, 77);
}

TEST_F(CRSAKeyPairTest, TheKeyPairHandleOfAnEmptyObjectNamesItsKeySpecification) {
  HCRYPTKEY key = 5;
  Ref<CRSAKeyPair> exchange = Pair(kExchange);
  EXPECT_TRUE(FailedWith(Internal(exchange).GetKeyPairHandle(key), exchange->m_oLastError,
                         KEY_ERROR_CONTAINER_DOES_NOT_CONTAIN_EXCHANGE_KEY_PAIR,
                         "QUIV.CRSAKeyPair.GetKeyPairHandle"));
  EXPECT_TRUE(Shows(exchange, "key pair type=1"));

  Ref<CRSAKeyPair> signature = Pair(kSignature);
  EXPECT_TRUE(FailedWith(Internal(signature).GetKeyPairHandle(key), signature->m_oLastError,
                         KEY_ERROR_CONTAINER_DOES_NOT_CONTAIN_SIGNATURE_KEY_PAIR,
                         "QUIV.CRSAKeyPair.GetKeyPairHandle"));
  EXPECT_TRUE(Shows(signature, "key pair type=2"));

  // Before the factory fixes the specification it is 0, which is neither.
  Ref<CRSAKeyPair> unset = Pair(0);
  EXPECT_TRUE(FailedWith(Internal(unset).GetKeyPairHandle(key), unset->m_oLastError,
                         KEY_ERROR_MUST_BE_EITHER_SIGNATURE_OR_EXCHANGE_KEY_PAIR_TYPE,
                         "QUIV.CRSAKeyPair.GetKeyPairHandle"));
  EXPECT_TRUE(Shows(unset, "key pair type=0"));
  EXPECT_EQ(key, 5u);
}

TEST_F(CRSAKeyPairTest, ThePublicKeyHandleOfAnEmptyObjectIsRefusedUnderItsOwnSource) {
  HCRYPTKEY key = 5;
  Ref<CRSAKeyPair> pair = Pair(kSignature);
  EXPECT_TRUE(FailedWith(Internal(pair).GetPublicKeyHandle(key), pair->m_oLastError,
                         KEY_ERROR_KEY_PAIR_OBJECT_HAS_NO_KEYS,
                         "QUIV.CRSAPublicKey.GetPublicKeyHandle"));
  EXPECT_EQ(key, 5u);
}

TEST_F(CRSAKeyPairTest, OnlyTheTwoKeySpecificationsAreAccepted) {
  Ref<CRSAKeyPair> pair = Pair(0);
  for (int16_t keySpec : {int16_t{0}, int16_t{3}, int16_t{-1}, int16_t{0x2400}}) {
    SCOPED_TRACE(keySpec);
    EXPECT_TRUE(FailedWith(Internal(pair).SetExOrSigKeyObject(keySpec), pair->m_oLastError,
                           KEY_ERROR_MUST_BE_EITHER_SIGNATURE_OR_EXCHANGE_KEY_PAIR_TYPE,
                           "QUIV.CRSAKeyPair.SetExOrSigKeyObject"));
  }
  EXPECT_TRUE(Internal(pair).SetExOrSigKeyObject(kSignature));
  EXPECT_TRUE(Internal(pair).SetExOrSigKeyObject(kExchange));
  HCRYPTKEY key = 0;
  EXPECT_TRUE(FailedWith(Internal(pair).GetKeyPairHandle(key), pair->m_oLastError,
                         KEY_ERROR_CONTAINER_DOES_NOT_CONTAIN_EXCHANGE_KEY_PAIR,
                         "QUIV.CRSAKeyPair.GetKeyPairHandle"));
}

TEST_F(CRSAKeyPairTest, ViewsOfAnEmptyObjectAreNothingAndKeepTheView) {
  Ref<CRSAKeyPair> pair = Pair(kSignature);
  EXPECT_TRUE(pair->PublicKey().IsNothing());
  EXPECT_TRUE(FailedWith(false, pair->m_oLastError, KEY_ERROR_KEY_PAIR_OBJECT_HAS_NO_KEYS,
                         "QUIV.CRSAKeyPair.PublicKey Get"));
  EXPECT_TRUE(Shows(pair, "type of keypair:=2"));
  EXPECT_TRUE(Shows(pair, "contains only pub key:=False"));

  Ref<CRSAKeyPair> other = Pair(kExchange);
  EXPECT_TRUE(other->PrivateKey().IsNothing());
  EXPECT_TRUE(FailedWith(false, other->m_oLastError, KEY_ERROR_KEY_PAIR_OBJECT_HAS_NO_KEYS,
                         "QUIV.CRSAKeyPair.PrivateKey Get"));
  EXPECT_EQ(What(pair), UNSPECIFIED);
  EXPECT_EQ(What(other), UNSPECIFIED);
}

// ---- generation ----

TEST_F(CRSAKeyPairTest, GenerationPutsTheModulusInTheUpperSixteenBitsAndMakesItExportable) {
  RecordingGenKey recorder;
  platform::ScopedPlatformOverride use(recorder);
  Ref<CRSAKeyPair> pair = Generated(kSignature, 1024);
  EXPECT_EQ(recorder.calls, 1);
  EXPECT_EQ(recorder.lastAlg, static_cast<ALG_ID>(k.AT_SIGNATURE()));
  EXPECT_EQ(recorder.lastFlags, (1024u << 16) | static_cast<DWORD>(k.CRYPT_EXPORTABLE()));
  EXPECT_EQ(Contents(pair), KEY_PAIR);
  int32_t modulus = 0;
  ASSERT_TRUE(pair->GetModulus(modulus));
  EXPECT_EQ(modulus, 1024);
}

TEST_F(CRSAKeyPairTest, AnUnloadablePairIsGeneratedWithoutTheExportFlag) {
  RecordingGenKey recorder;
  platform::ScopedPlatformOverride use(recorder);
  Ref<CRSAKeyPair> pair = Pair(kExchange);
  ASSERT_TRUE(pair->SetUnloadable(false));
  ASSERT_TRUE(pair->SetModulus(512));
  ASSERT_TRUE(pair->GenerateKeyPair());
  EXPECT_EQ(recorder.lastAlg, static_cast<ALG_ID>(k.AT_KEYEXCHANGE()));
  EXPECT_EQ(recorder.lastFlags, 512u << 16);
}

TEST_F(CRSAKeyPairTest, GetModulusReportsTheKeysLengthNotTheStoredRequest) {
  Ref<CRSAKeyPair> pair = Generated(kExchange, 512);
  ASSERT_TRUE(pair->SetModulus(2048));  // stored only; takes effect at the next generation
  int32_t modulus = 0;
  ASSERT_TRUE(pair->GetModulus(modulus));
  EXPECT_EQ(modulus, 512);
}

TEST_F(CRSAKeyPairTest, ModulusZeroGeneratesTheProvidersDefaultLength) {
  String name;
  ASSERT_TRUE(s_provider->GetProviderName(name));
  // Base provider 512 bits, Enhanced 1024.
  const int32_t expected = name == k.MS_DEF_PROV() ? 512 : 1024;
  RecordingGenKey recorder;
  platform::ScopedPlatformOverride use(recorder);
  Ref<CRSAKeyPair> pair = Generated(kSignature, 0);
  EXPECT_EQ(recorder.lastFlags, static_cast<DWORD>(k.CRYPT_EXPORTABLE()));
  int32_t modulus = 0;
  ASSERT_TRUE(pair->GetModulus(modulus));
  EXPECT_EQ(modulus, expected);
}

TEST_F(CRSAKeyPairTest, AModulusOf32768OrMoreOverflowsBeforeThePlatformIsAsked) {
  Ref<CRSAKeyPair> pair = Generated(kSignature, 512);
  RecordingGenKey recorder;
  platform::ScopedPlatformOverride use(recorder);
  for (int32_t modulus : {40000, 32768, -32769}) {
    SCOPED_TRACE(modulus);
    ASSERT_TRUE(pair->SetModulus(modulus));
    EXPECT_TRUE(FailedWith(pair->GenerateKeyPair(), pair->m_oLastError, kErrOverflow,
                           "QUIV.CRSAKeyPair.GenerateKeyPair"));
    EXPECT_EQ(Contents(pair), NOKEYS);  // cleared first
  }
  EXPECT_EQ(recorder.calls, 0);
  // The parameters of the first failure stay in the record (names are added once).
  EXPECT_TRUE(Shows(pair, "unloadable=True"));
  EXPECT_TRUE(Shows(pair, "modulus=40000"));
}

TEST_F(CRSAKeyPairTest, TheLowestModulusThatFitsReachesTheProvider) {
  // -32768 is the one negative length the conversion takes: the provider then refuses it.
  Ref<CRSAKeyPair> pair = Pair(kSignature);
  RecordingGenKey recorder;
  platform::ScopedPlatformOverride use(recorder);
  ASSERT_TRUE(pair->SetModulus(-32768));
  EXPECT_TRUE(FailedWith(pair->GenerateKeyPair(), pair->m_oLastError,
                         KEY_ERROR_UNABLE_TO_CREATE_KEY, "QUIV.CRSAKeyPair.GenerateKeyPair"));
  EXPECT_EQ(recorder.lastFlags, 0x80000000u | static_cast<DWORD>(k.CRYPT_EXPORTABLE()));
}

TEST_F(CRSAKeyPairTest, ALengthTheProviderRefusesLeavesNoKeys) {
  Ref<CRSAKeyPair> pair = Generated(kExchange, 512);
  ASSERT_TRUE(pair->SetModulus(100));  // below the provider's 384
  EXPECT_TRUE(FailedWith(pair->GenerateKeyPair(), pair->m_oLastError,
                         KEY_ERROR_UNABLE_TO_CREATE_KEY, "QUIV.CRSAKeyPair.GenerateKeyPair"));
  EXPECT_NE(pair->m_oLastError->m_dblErrLastDLLError, 0.0);
  EXPECT_TRUE(Shows(pair, "modulus=100"));
  EXPECT_EQ(Contents(pair), NOKEYS);
}

TEST_F(CRSAKeyPairTest, APlatformRefusalOfGenerationIsRecordedWithItsCode) {
  RecordingGenKey failing(true);
  platform::ScopedPlatformOverride use(failing);
  Ref<CRSAKeyPair> pair = Pair(kSignature);
  ASSERT_TRUE(pair->SetModulus(512));
  EXPECT_TRUE(FailedWith(pair->GenerateKeyPair(), pair->m_oLastError,
                         KEY_ERROR_UNABLE_TO_CREATE_KEY, "QUIV.CRSAKeyPair.GenerateKeyPair"));
  EXPECT_EQ(static_cast<uint32_t>(pair->m_oLastError->m_dblErrLastDLLError),
            static_cast<uint32_t>(k.NTE_FAIL()));
  EXPECT_EQ(Contents(pair), NOKEYS);
}

TEST_F(CRSAKeyPairTest, GenerationFailsWhenTheOldKeyCannotBeDestroyed) {
  Ref<CRSAKeyPair> pair = Generated(kSignature, 512);
  {
    CountingDestroy failing(true);
    platform::ScopedPlatformOverride use(failing);
    EXPECT_TRUE(FailedWith(pair->GenerateKeyPair(), pair->m_oLastError,
                           KEY_ERROR_UNABLE_TO_DESTROY_KEY, "QUIV.CRSAKeyPair.GenerateKeyPair"));
  }
  EXPECT_EQ(Contents(pair), KEY_PAIR);  // the old key is still held
}

// ---- handles ----

TEST_F(CRSAKeyPairTest, AFullPairHandsOutItsOneHandleAsPairAndPublicKey) {
  Ref<CRSAKeyPair> pair = Generated(kExchange, 512);
  HCRYPTKEY pairHandle = 0, publicHandle = 0;
  ASSERT_TRUE(Internal(pair).GetKeyPairHandle(pairHandle));
  ASSERT_TRUE(Internal(pair).GetPublicKeyHandle(publicHandle));
  EXPECT_NE(pairHandle, 0u);
  EXPECT_EQ(pairHandle, publicHandle);
  // The handle is a live key of the provider: its length reads back.
  DWORD bits = 0, size = sizeof(bits);
  ASSERT_TRUE(platform::Platform().CryptGetKeyParam(pairHandle, static_cast<DWORD>(k.KP_KEYLEN()),
                                                    reinterpret_cast<BYTE*>(&bits), &size, 0));
  EXPECT_EQ(bits, 512u);
}

TEST_F(CRSAKeyPairTest, APublicKeyHasAPublicHandleButNoPairHandle) {
  Ref<CRSAKeyPair> source = Generated(kSignature, 512);
  Ref<CRSAKeyPair> pair = PublicOnlyOf(source, kSignature);
  EXPECT_EQ(Contents(pair), PUBLIC_KEY);
  HCRYPTKEY publicHandle = 0, pairHandle = 9;
  ASSERT_TRUE(Internal(pair).GetPublicKeyHandle(publicHandle));
  EXPECT_NE(publicHandle, 0u);
  EXPECT_TRUE(FailedWith(Internal(pair).GetKeyPairHandle(pairHandle), pair->m_oLastError,
                         KEY_ERROR_KEY_PAIR_FN_ATTEMPTED_WITH_PUBLIC_KEY_HANDLE,
                         "QUIV.CRSAKeyPair.GetKeyPairHandle"));
  EXPECT_EQ(pairHandle, 9u);
  int32_t modulus = 0;
  ASSERT_TRUE(pair->GetModulus(modulus));
  EXPECT_EQ(modulus, 512);
}

TEST_F(CRSAKeyPairTest, AFailingKeyParameterReadIsRecorded) {
  Ref<CRSAKeyPair> pair = Generated(kExchange, 512);
  FailingGetKeyParam failing;
  platform::ScopedPlatformOverride use(failing);
  int32_t modulus = 3;
  EXPECT_TRUE(FailedWith(pair->GetModulus(modulus), pair->m_oLastError,
                         KEY_ERROR_CRYPTGETKEYPARAM_FAILED, "QUIV.CRSAKeyPair.GetModulus"));
  EXPECT_EQ(modulus, 3);
}

// ---- the views ----

TEST_F(CRSAKeyPairTest, ViewsReturnTheSameObjectAndSwitchWhatItOffers) {
  Ref<CRSAKeyPair> signature = Generated(kSignature, 512);
  Ref<CRSAKeyPair> view = signature->PublicKey();
  EXPECT_TRUE(view == signature);
  EXPECT_EQ(What(signature), PUBLIC_SIGNATURE_KEY);
  view = signature->PrivateKey();
  EXPECT_TRUE(view == signature);
  EXPECT_EQ(What(signature), PRIVATE_SIGNATURE_KEY);

  Ref<CRSAKeyPair> exchange = Generated(kExchange, 512);
  EXPECT_TRUE(exchange->PublicKey() == exchange);
  EXPECT_EQ(What(exchange), PUBLIC_EXCHANGE_KEY);
  EXPECT_TRUE(exchange->PrivateKey() == exchange);
  EXPECT_EQ(What(exchange), PRIVATE_EXCHANGE_KEY);
  EXPECT_TRUE(signature->m_oLastError.IsNothing());
  EXPECT_TRUE(exchange->m_oLastError.IsNothing());
}

TEST_F(CRSAKeyPairTest, APublicKeyHasAPublicViewButNoPrivateOne) {
  Ref<CRSAKeyPair> source = Generated(kExchange, 512);
  Ref<CRSAKeyPair> pair = PublicOnlyOf(source, kExchange);
  EXPECT_TRUE(pair->PublicKey() == pair);
  EXPECT_EQ(What(pair), PUBLIC_EXCHANGE_KEY);
  EXPECT_TRUE(pair->PrivateKey().IsNothing());
  EXPECT_TRUE(FailedWith(false, pair->m_oLastError,
                         KEY_ERROR_KEY_PAIR_FN_ATTEMPTED_WITH_PUBLIC_KEY_HANDLE,
                         "QUIV.CRSAKeyPair.PrivateKey Get"));
  EXPECT_TRUE(Shows(pair, "type of keypair:=1"));
  EXPECT_TRUE(Shows(pair, "contains only pub key:=True"));
  EXPECT_EQ(What(pair), PUBLIC_EXCHANGE_KEY);  // unchanged by the failure
}

// ---- Clear ----

TEST_F(CRSAKeyPairTest, ClearOfAnEmptyObjectDoesNotReachThePlatform) {
  Ref<CRSAKeyPair> pair = Pair(kSignature);
  CountingDestroy counter;
  platform::ScopedPlatformOverride use(counter);
  EXPECT_TRUE(pair->Clear());
  EXPECT_EQ(counter.calls, 0);
}

TEST_F(CRSAKeyPairTest, ClearDestroysTheKeyAndKeepsTheSettingsAndTheView) {
  Ref<CRSAKeyPair> pair = Pair(kSignature);
  ASSERT_TRUE(pair->SetModulus(512));
  ASSERT_TRUE(pair->SetUnloadable(false));
  ASSERT_TRUE(pair->GenerateKeyPair());
  ASSERT_FALSE(pair->PublicKey().IsNothing());
  HCRYPTKEY old = 0;
  ASSERT_TRUE(Internal(pair).GetKeyPairHandle(old));
  {
    CountingDestroy counter;
    platform::ScopedPlatformOverride use(counter);
    EXPECT_TRUE(pair->Clear());
    EXPECT_EQ(counter.calls, 1);
  }
  EXPECT_EQ(Contents(pair), NOKEYS);
  EXPECT_EQ(What(pair), PUBLIC_SIGNATURE_KEY);
  // The handle is gone from the provider.
  DWORD bits = 0, size = sizeof(bits);
  EXPECT_FALSE(platform::Platform().CryptGetKeyParam(old, static_cast<DWORD>(k.KP_KEYLEN()),
                                                     reinterpret_cast<BYTE*>(&bits), &size, 0));
  // Modulus and unloadable flag were kept: the next generation uses both.
  RecordingGenKey recorder;
  platform::ScopedPlatformOverride use(recorder);
  ASSERT_TRUE(pair->GenerateKeyPair());
  EXPECT_EQ(recorder.lastFlags, 512u << 16);
}

TEST_F(CRSAKeyPairTest, AFailedDestroyKeepsTheKey) {
  Ref<CRSAKeyPair> pair = Generated(kExchange, 512);
  {
    CountingDestroy failing(true);
    platform::ScopedPlatformOverride use(failing);
    EXPECT_TRUE(FailedWith(pair->Clear(), pair->m_oLastError, KEY_ERROR_UNABLE_TO_DESTROY_KEY,
                           "QUIV.CRSAKeyPair.Clear"));
  }
  EXPECT_EQ(Contents(pair), KEY_PAIR);
  EXPECT_TRUE(pair->Clear());
  EXPECT_EQ(Contents(pair), NOKEYS);
}

// ---- termination, page context, the published IHash slot ----

TEST_F(CRSAKeyPairTest, TerminationReleasesTheProviderAndLeavesTheKeyToClear) {
  const long before = s_provider.UseCount();
  CountingDestroy counter;
  platform::ScopedPlatformOverride use(counter);
  {
    Ref<CRSAKeyPair> pair = Generated(kSignature, 512);
    int32_t modulus = 0;
    ASSERT_TRUE(pair->GetModulus(modulus));               // makes the key tools
    ASSERT_FALSE(Internal(pair).SetExOrSigKeyObject(9));  // makes the record
    EXPECT_EQ(s_provider.UseCount(), before + 1);
    Internal(pair).Terminate();
    EXPECT_EQ(s_provider.UseCount(), before);
    EXPECT_TRUE(pair->m_oLastError.IsNothing());
    EXPECT_EQ(Contents(pair), KEY_PAIR);  // termination does not destroy the key
  }
  EXPECT_EQ(counter.calls, 0);  // nor does the destructor after termination
}

TEST_F(CRSAKeyPairTest, AnObjectDroppedWithoutTerminationGivesItsKeyBack) {
  CountingDestroy counter;
  platform::ScopedPlatformOverride use(counter);
  { Ref<CRSAKeyPair> pair = Generated(kExchange, 512); }
  EXPECT_EQ(counter.calls, 1);
  { Ref<CRSAKeyPair> empty = Pair(kExchange); }
  EXPECT_EQ(counter.calls, 1);
}

TEST_F(CRSAKeyPairTest, OnStartPageMakesTheRecordAndHandsItThePage) {
  Ref<CRSAKeyPair> pair = Pair(kSignature);
  auto page =
      MakeRef<MapPageContext>(std::map<String, String>{{u"PATH_INFO", u"/sign"}}, String(u"a=1"));
  EXPECT_TRUE(pair->OnStartPage(page));
  EXPECT_FALSE(pair->m_oLastError.IsNothing());
}

TEST_F(CRSAKeyPairTest, TheSessionKeySlotThrowsWithoutARecord) {
  Ref<CRSAKeyPair> pair = Generated(kSignature, 512);
  HCRYPTKEY key = 4;
  try {
    pair->GetSessionKeyHandle(key);
    ADD_FAILURE() << "no error reached the caller";
  } catch (const RuntimeError& error) {
    EXPECT_EQ(error.Number(),
              KEY_ERROR_THIS_METHOD_SHOULD_ONLY_BE_CALLED_FROM_A_SESSION_KEY_OBJECT);
  }
  EXPECT_EQ(key, 4u);
  EXPECT_TRUE(pair->m_oLastError.IsNothing());
}

TEST_F(CRSAKeyPairTest, WithoutAProviderEveryPlatformRoutineFailsCleanly) {
  Ref<CRSAKeyPair> pair = MakeRef<CRSAKeyPair>();
  ASSERT_TRUE(Internal(pair).SetExOrSigKeyObject(kSignature));
  ASSERT_TRUE(pair->SetModulus(512));
  EXPECT_TRUE(FailedWith(pair->GenerateKeyPair(), pair->m_oLastError, kErrObjectNotSet,
                         "QUIV.CRSAKeyPair.GenerateKeyPair"));
  EXPECT_EQ(Contents(pair), NOKEYS);
}

}  // namespace
}  // namespace quiv
