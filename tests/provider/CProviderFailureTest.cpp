// CProvider's acquisition and Clear when one platform call breaks: the default-container retry,
// what a failed acquisition does to the context flag, where Clear stops, and which provider name
// the readers report.
#include "ProviderSessionFixture.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "automation/MapPageContext.h"
#include "constants/CConstQUIV.h"
#include "data/CMessagetext.h"
#include "errors/QuivError.h"
#include "keys/CSessionKey.h"
#include "provider/CProvider.h"
#include "signing/CHashValue.h"
#include "signing/CRSAKeyPair.h"
#include "signing/SigningEnums.h"
#include "support/InternalAccess.h"
#include "support/RecordMatchers.h"

namespace quiv {
namespace {

using test::AcquireLog;
using test::FailedWith;
using test::FailingDestroy;
using What = test::FailingDestroy::What;

const CConstQUIV k;

class CProviderFailureTest : public test::ProviderSessionFixture {
 protected:
  const Ref<CErrHandler>& Record() const { return provider->m_oLastError; }

  bool Acquire(const String& container, int32_t flags) {
    HCRYPTPROV handle = 0;
    return Internal(provider).AcquireContext(container, String(), k.PROV_RSA_FULL(), flags, handle);
  }
  // A failed acquisition drops the flag but never the handle: release the context it still
  // names, which also shows the handle was left alone.
  void ReleaseStaleContext() {
    EXPECT_TRUE(platform::Platform().CryptReleaseContext(Internal(provider).ContextHandle(), 0));
  }

  // Fills the working objects that Clear empties: each Hold... leaves a live handle behind.
  void HoldExchangePair() {
    ASSERT_TRUE(provider->GetExchangeKeyPairObject(exchange));
    ASSERT_TRUE(exchange->SetModulus(512));
    ASSERT_TRUE(exchange->GenerateKeyPair());
  }
  void HoldSignaturePair() {
    ASSERT_TRUE(provider->GetSignatureKeyPairObject(signature));
    ASSERT_TRUE(signature->SetModulus(512));
    ASSERT_TRUE(signature->GenerateKeyPair());
  }
  void HoldMessageAndHash() {
    ASSERT_TRUE(provider->GetMessageTextObject(message));
    ASSERT_TRUE(message->LoadMessageText(u"0102", STRING_HEX));
    ASSERT_TRUE(provider->GetHashValueObject(hash));
    ASSERT_TRUE(hash->Hash(message));
  }
  void HoldSessionKey() {
    ASSERT_TRUE(provider->GetSessionKeyObject(sessionKey));
    ASSERT_TRUE(sessionKey->GenerateSessionKey());
  }

  // Clear while destroying keys (or hashes) fails: it must fail with `code`.
  ::testing::AssertionResult ClearFailsWith(What what, int32_t code) {
    FailingDestroy fake(what);
    platform::ScopedPlatformOverride use(fake);
    if (!provider->Clear().IsEmpty()) return ::testing::AssertionFailure() << "Clear succeeded";
    return FailedWith(false, Record(), code, "QUIV.CProvider.Clear");
  }

  bool HashHeld() {
    ByteArray value;
    return hash->GetHashValue(value);
  }
  int32_t MessageLength() {
    int32_t length = -1;
    EXPECT_TRUE(message->GetMessagetextLengthInBytes(length));
    return length;
  }
  bool SessionKeyHeld() {
    HCRYPTKEY handle = 0;
    return Internal(sessionKey).GetKeyHandle(handle);
  }
  static bool PairHeld(const Ref<CRSAKeyPair>& pair) {
    int16_t contents = NOKEYS;
    EXPECT_TRUE(Internal(pair).GetKeyPairContents(contents));
    return contents != NOKEYS;
  }

  Ref<CRSAKeyPair> exchange;
  Ref<CRSAKeyPair> signature;
  Ref<CMessagetext> message;
  Ref<CHashValue> hash;
  Ref<CSessionKey> sessionKey;
};

// --- The default container ------------------------------------------------------------------

TEST_F(CProviderFailureTest, ADefaultContainerThatCannotBeCreatedFailsTheLoad) {
  // The store is empty: the open finds no key set, and the create is refused.
  AcquireLog log({2}, static_cast<DWORD>(k.NTE_FAIL()));
  platform::ScopedPlatformOverride use(log);
  EXPECT_TRUE(FailedWith(provider->LoadProvider(), Record(), PROVIDER_ERROR_UNABLE_TO_LOAD_PROVIDER,
                         "QUIV.CProvider.LoadProvider"));
  EXPECT_FALSE(Internal(provider).HasContext());
  EXPECT_EQ(log.flags, (std::vector<DWORD>{0, static_cast<DWORD>(k.CRYPT_NEWKEYSET())}));
}

TEST_F(CProviderFailureTest, AFailedRetryForTheDefaultContainerDropsAHeldContext) {
  ASSERT_TRUE(provider->LoadProvider());
  const HCRYPTPROV before = Internal(provider).ContextHandle();
  {
    AcquireLog log({1, 2}, static_cast<DWORD>(k.NTE_BAD_KEYSET()));
    platform::ScopedPlatformOverride use(log);
    EXPECT_TRUE(FailedWith(Acquire(String(), 0), Record(),
                           CONTAINER_ERROR_UNABLE_TO_CREATE_DEFAULT_CONTAINER,
                           "QUIV.CProvider.AcquireContext"));
    EXPECT_EQ(log.flags.size(), 2u);
  }
  EXPECT_FALSE(Internal(provider).HasContext());
  EXPECT_EQ(Internal(provider).ContextHandle(), before);
  ReleaseStaleContext();
}

TEST_F(CProviderFailureTest, TheRetryAddsNewKeySetWhateverTheFlagsHold) {
  // The test meant to skip the retry for these flags never does: both answers retry.
  for (const int32_t error : {k.NTE_BAD_KEYSET(), k.NTE_KEYSET_NOT_DEF()}) {
    for (const int32_t flag : {k.CRYPT_DELETEKEYSET(), k.CRYPT_NEWKEYSET()}) {
      AcquireLog log({1, 2}, static_cast<DWORD>(error));
      platform::ScopedPlatformOverride use(log);
      EXPECT_TRUE(FailedWith(Acquire(String(), flag), Record(),
                             CONTAINER_ERROR_UNABLE_TO_CREATE_DEFAULT_CONTAINER,
                             "QUIV.CProvider.AcquireContext"));
      const auto first = static_cast<DWORD>(flag);
      EXPECT_EQ(log.flags, (std::vector<DWORD>{first, first | k.CRYPT_NEWKEYSET()}))
          << error << " " << flag;
    }
  }
}

TEST_F(CProviderFailureTest, ARetryThatSucceedsHoldsTheNewContext) {
  AcquireLog log({1}, static_cast<DWORD>(k.NTE_KEYSET_NOT_DEF()));
  platform::ScopedPlatformOverride use(log);
  HCRYPTPROV handle = 0;
  ASSERT_TRUE(Internal(provider).AcquireContext(String(), String(), k.PROV_RSA_FULL(), 0, handle));
  EXPECT_TRUE(Internal(provider).HasContext());
  EXPECT_EQ(Internal(provider).ContextHandle(), handle);
  EXPECT_EQ(log.flags.size(), 2u);
}

// --- What a failed acquisition does to the flag ---------------------------------------------

TEST_F(CProviderFailureTest, AFailedNamedAcquisitionDropsAHeldContext) {
  ASSERT_TRUE(provider->LoadProvider());
  const HCRYPTPROV before = Internal(provider).ContextHandle();
  EXPECT_TRUE(FailedWith(Acquire(u"missing", 0), Record(), PROVIDER_ERROR_UNABLE_TO_ACQUIRE_CONTEXT,
                         "QUIV.CProvider.AcquireContext"));
  EXPECT_FALSE(Internal(provider).HasContext());
  EXPECT_EQ(Internal(provider).ContextHandle(), before);
  ReleaseStaleContext();
}

TEST_F(CProviderFailureTest, ANamedVerifyContextIsRefusedBeforeThePlatformAndKeepsTheFlag) {
  ASSERT_TRUE(provider->LoadProvider());
  AcquireLog log;
  platform::ScopedPlatformOverride use(log);
  EXPECT_TRUE(FailedWith(Acquire(u"named", k.CRYPT_VERIFYCONTEXT()), Record(),
                         CONTAINER_ERROR_MUST_HAVE_EMPTY_CONTAINER_NAME_IF_ONLY_PUBLIC_KEYS_ACCESS,
                         "QUIV.CProvider.AcquireContext"));
  EXPECT_TRUE(log.flags.empty());
  EXPECT_TRUE(Internal(provider).HasContext());
}

TEST_F(CProviderFailureTest, AnotherErrorForTheDefaultContainerIsNotRetriedAndKeepsTheFlag) {
  ASSERT_TRUE(provider->LoadProvider());
  AcquireLog log({1}, static_cast<DWORD>(k.NTE_FAIL()));
  platform::ScopedPlatformOverride use(log);
  EXPECT_TRUE(FailedWith(Acquire(String(), 0), Record(), PROVIDER_ERROR_UNABLE_TO_ACQUIRE_CONTEXT,
                         "QUIV.CProvider.AcquireContext"));
  EXPECT_EQ(log.flags.size(), 1u);
  EXPECT_TRUE(Internal(provider).HasContext());
}

// --- Clear, step by step --------------------------------------------------------------------

TEST_F(CProviderFailureTest, ClearStopsAtAnExchangePairThatCannotBeDestroyed) {
  ASSERT_TRUE(provider->LoadProvider());
  HoldExchangePair();
  HoldMessageAndHash();
  EXPECT_TRUE(ClearFailsWith(What::Keys, KEY_ERROR_UNABLE_TO_CLEAR_OBJECT_OF_KEY_HANDLES));
  EXPECT_TRUE(FailedWith(false, exchange->m_oLastError, KEY_ERROR_UNABLE_TO_DESTROY_KEY,
                         "QUIV.CRSAKeyPair.Clear"));
  EXPECT_TRUE(Internal(provider).HasContext());
  EXPECT_TRUE(HashHeld());  // the later steps did not run
  EXPECT_EQ(MessageLength(), 2);
  EXPECT_TRUE(provider->Clear().ToBoolean());
  EXPECT_FALSE(PairHeld(exchange));
}

TEST_F(CProviderFailureTest, ClearStopsAtAHashThatCannotBeDestroyed) {
  ASSERT_TRUE(provider->LoadProvider());
  HoldMessageAndHash();
  HoldSessionKey();
  EXPECT_TRUE(ClearFailsWith(What::Hashes, HASH_ERROR_UNABLE_TO_CLEAR_HASH_OBJECT));
  EXPECT_TRUE(FailedWith(false, hash->m_oLastError, HASH_ERROR_UNABLE_TO_DESTROY_HASH,
                         "QUIV.CHashValue.Clear"));
  EXPECT_TRUE(Internal(provider).HasContext());
  EXPECT_EQ(MessageLength(), 2);
  EXPECT_TRUE(SessionKeyHeld());
  EXPECT_TRUE(provider->Clear().ToBoolean());
}

TEST_F(CProviderFailureTest, ClearStopsAtASessionKeyAfterTheHashAndTheMessage) {
  ASSERT_TRUE(provider->LoadProvider());
  HoldMessageAndHash();
  HoldSessionKey();
  HoldSignaturePair();
  EXPECT_TRUE(ClearFailsWith(What::Keys, KEY_ERROR_UNABLE_TO_CLEAR_OBJECT_OF_KEY_HANDLES));
  EXPECT_TRUE(FailedWith(false, sessionKey->m_oLastError, KEY_ERROR_UNABLE_TO_DESTROY_KEY,
                         "QUIV.CSessionKey.Clear"));
  EXPECT_FALSE(HashHeld());  // steps 2 and 3 ran
  EXPECT_EQ(MessageLength(), 0);
  EXPECT_TRUE(PairHeld(signature));  // step 5 did not
  EXPECT_TRUE(Internal(provider).HasContext());
  EXPECT_TRUE(provider->Clear().ToBoolean());
}

TEST_F(CProviderFailureTest, ClearStopsAtASignaturePairBeforeTheRelease) {
  ASSERT_TRUE(provider->LoadProvider());
  HoldSignaturePair();
  EXPECT_TRUE(ClearFailsWith(What::Keys, KEY_ERROR_UNABLE_TO_CLEAR_OBJECT_OF_KEY_HANDLES));
  EXPECT_TRUE(FailedWith(false, signature->m_oLastError, KEY_ERROR_UNABLE_TO_DESTROY_KEY,
                         "QUIV.CRSAKeyPair.Clear"));
  EXPECT_TRUE(Internal(provider).HasContext());  // a release, failed or not, would have dropped it
  EXPECT_TRUE(provider->Clear().ToBoolean());
}

TEST_F(CProviderFailureTest, ClearTwiceReleasesTheContextOnce) {
  ASSERT_TRUE(provider->LoadProvider());
  AcquireLog log;
  platform::ScopedPlatformOverride use(log);
  EXPECT_TRUE(provider->Clear().ToBoolean());
  EXPECT_TRUE(provider->Clear().ToBoolean());
  EXPECT_EQ(log.releases, 1);
}

// --- The provider name ----------------------------------------------------------------------

TEST_F(CProviderFailureTest, TheNameIsReadFromTheContext) {
  ASSERT_TRUE(provider->LoadProvider());
  EXPECT_TRUE(Internal(provider).ProviderName().IsEmpty());
  String name;
  ASSERT_TRUE(provider->GetProviderName(name));
  EXPECT_FALSE(name.IsEmpty());  // the name of the provider the empty name chose

  const std::string answer = "A context's own name";
  const std::vector<BYTE> bytes(answer.c_str(), answer.c_str() + answer.size() + 1);
  test::FakeProvParam fake(static_cast<DWORD>(k.PP_NAME()), test::FixedBytes(bytes));
  platform::ScopedPlatformOverride use(fake);
  ASSERT_TRUE(provider->GetProviderName(name));
  EXPECT_EQ(name.ToUtf8(), answer);
}

TEST_F(CProviderFailureTest, ANewNameTakesEffectAtTheNextLoad) {
  ASSERT_TRUE(provider->SetProviderName(k.MS_ENHANCED_PROV()));
  ASSERT_TRUE(provider->LoadProvider());
  ASSERT_TRUE(provider->SetProviderName(k.MS_DEF_PROV()));
  EXPECT_EQ(Internal(provider).ProviderName(), k.MS_DEF_PROV());
  String name;
  ASSERT_TRUE(provider->GetProviderName(name));
  EXPECT_EQ(name, k.MS_ENHANCED_PROV());
  ASSERT_TRUE(provider->LoadProvider());
  ASSERT_TRUE(provider->GetProviderName(name));
  EXPECT_EQ(name, k.MS_DEF_PROV());
}

TEST_F(CProviderFailureTest, OnStartPageMakesTheRecordAndHandsItThePage) {
  provider->m_oLastError = Nothing;
  const std::map<String, String> variables{{u"PATH_INFO", u"/keys.asp"}};
  ASSERT_TRUE(provider->OnStartPage(MakeRef<MapPageContext>(variables, String(u"step=2"))));
  ASSERT_FALSE(Record().IsNothing());
  String name;
  EXPECT_FALSE(provider->GetProviderName(name));  // no context yet
  EXPECT_EQ(Record()->m_sWebPageURL.ToUtf8(), "/keys.asp?step=2");
}

}  // namespace
}  // namespace quiv
