// The provider's object factory: the same instances every time, the context rule of each
// hand-out, and what the provider's Clear and termination do to the objects handed out.
#include "support/QuietLog.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>

#include "constants/CConstQUIV.h"
#include "data/CMessagetext.h"
#include "errors/QuivError.h"
#include "keys/CSessionKey.h"
#include "provider/CContainer.h"
#include "provider/CProvider.h"
#include "signing/CHashValue.h"
#include "signing/CRSAKeyPair.h"
#include "signing/SigningEnums.h"
#include "support/InternalAccess.h"
#include "support/RecordMatchers.h"
#include "support/TempKeyStore.h"

namespace quiv {
namespace {

using test::FailedWith;

const CConstQUIV k;

class CProviderFactoryTest : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_TRUE(provider->SetProviderTypeID(k.PROV_RSA_FULL())); }
  void TearDown() override {
    if (provider) provider->TerminateAll();
  }
  const Ref<CErrHandler>& Record() const { return provider->m_oLastError; }

  test::QuietLog m_quiet;
  platform::ScopedPlatformOverride m_use{m_quiet};
  test::TempKeyStore store;
  Ref<CProvider> provider = CProvider::Create();
};

TEST_F(CProviderFactoryTest, WithoutAContextTheContextBoundHandOutsFail) {
  Ref<CContainer> container;
  EXPECT_TRUE(FailedWith(provider->GetContainerObject(container), Record(),
                         GENERAL_ERROR_NO_CONTEXT, "QUIV.CProvider.GetContainerObject"));
  EXPECT_TRUE(container.IsNothing());
  Ref<CMessagetext> message;
  EXPECT_TRUE(FailedWith(provider->GetMessageTextObject(message), Record(),
                         GENERAL_ERROR_NO_CONTEXT, "QUIV.CProvider.GetMessageTextObject"));
  EXPECT_TRUE(message.IsNothing());
  Ref<CSessionKey> key;
  EXPECT_TRUE(FailedWith(provider->GetSessionKeyObject(key), Record(), GENERAL_ERROR_NO_CONTEXT,
                         "QUIV.CContainer.GetSessionKeyObject"));
  EXPECT_TRUE(key.IsNothing());
  Ref<CRSAKeyPair> exchange;
  EXPECT_TRUE(FailedWith(provider->GetExchangeKeyPairObject(exchange), Record(),
                         GENERAL_ERROR_NO_CONTEXT, "QUIV.CContainer.GetExchangeKeyPairObject"));
  EXPECT_TRUE(exchange.IsNothing());
}

TEST_F(CProviderFactoryTest, TheHashAndTheSignaturePairNeedNoContext) {
  Ref<CHashValue> hash;
  EXPECT_TRUE(provider->GetHashValueObject(hash));
  EXPECT_FALSE(hash.IsNothing());
  Ref<CRSAKeyPair> signature;
  EXPECT_TRUE(provider->GetSignatureKeyPairObject(signature));
  ASSERT_FALSE(signature.IsNothing());
  int16_t contents = 0;
  ASSERT_TRUE(Internal(signature).GetKeyPairContents(contents));
  EXPECT_EQ(contents, NOKEYS);
}

TEST_F(CProviderFactoryTest, EachWorkingObjectIsOneInstance) {
  ASSERT_TRUE(provider->LoadProvider());
  Ref<CSessionKey> key1, key2;
  ASSERT_TRUE(provider->GetSessionKeyObject(key1));
  ASSERT_TRUE(provider->GetSessionKeyObject(key2));
  EXPECT_TRUE(key1 == key2);
  ASSERT_TRUE(key1->GenerateSessionKey());
  HCRYPTKEY handle = 0;
  EXPECT_TRUE(Internal(key2).GetKeyHandle(handle));
  EXPECT_NE(handle, 0u);
  Ref<CRSAKeyPair> ex1, ex2, sig;
  ASSERT_TRUE(provider->GetExchangeKeyPairObject(ex1));
  ASSERT_TRUE(provider->GetExchangeKeyPairObject(ex2));
  ASSERT_TRUE(provider->GetSignatureKeyPairObject(sig));
  EXPECT_TRUE(ex1 == ex2);
  EXPECT_FALSE(ex1 == sig);
  Ref<CHashValue> h1, h2;
  ASSERT_TRUE(provider->GetHashValueObject(h1));
  ASSERT_TRUE(provider->GetHashValueObject(h2));
  EXPECT_TRUE(h1 == h2);
}

TEST_F(CProviderFactoryTest, ClearEmptiesTheKeysButKeepsTheObjects) {
  ASSERT_TRUE(provider->LoadProvider());
  Ref<CSessionKey> key;
  ASSERT_TRUE(provider->GetSessionKeyObject(key));
  ASSERT_TRUE(key->GenerateSessionKey());
  Ref<CMessagetext> message;
  ASSERT_TRUE(provider->GetMessageTextObject(message));
  ASSERT_TRUE(message->LoadMessageText(u"0102", STRING_HEX));
  Ref<CHashValue> hash;
  ASSERT_TRUE(provider->GetHashValueObject(hash));
  ASSERT_TRUE(hash->Hash(message));
  ASSERT_TRUE(provider->Clear().ToBoolean());
  HCRYPTKEY handle = 0;
  EXPECT_FALSE(Internal(key).GetKeyHandle(handle));
  ByteArray value;
  EXPECT_FALSE(hash->GetHashValue(value));
  // Usable again once a context is back.
  ASSERT_TRUE(provider->LoadProvider());
  EXPECT_TRUE(key->GenerateSessionKey());
}

TEST_F(CProviderFactoryTest, TheMessageTextIsOneInstanceSharedByEveryHandOut) {
  ASSERT_TRUE(provider->LoadProvider());
  Ref<CMessagetext> first;
  Ref<CMessagetext> second;
  ASSERT_TRUE(provider->GetMessageTextObject(first));
  ASSERT_TRUE(provider->GetMessageTextObject(second));
  EXPECT_TRUE(first == second);
  ASSERT_TRUE(first->LoadMessageText(u"A1B2", STRING_HEX));
  int32_t length = 0;
  ASSERT_TRUE(second->GetMessagetextLengthInBytes(length));
  EXPECT_EQ(length, 2);
}

TEST_F(CProviderFactoryTest, AfterClearAnObjectHandedOutEarlierIsUsableButEmpty) {
  ASSERT_TRUE(provider->LoadProvider());
  Ref<CMessagetext> message;
  ASSERT_TRUE(provider->GetMessageTextObject(message));
  ASSERT_TRUE(message->LoadMessageText(u"00112233", STRING_HEX));
  ASSERT_TRUE(provider->Clear().ToBoolean());
  int32_t length = -1;
  ASSERT_TRUE(message->GetMessagetextLengthInBytes(length));
  EXPECT_EQ(length, 0);
  ASSERT_TRUE(message->LoadMessageText(u"44", STRING_HEX));
  ASSERT_TRUE(message->GetMessagetextLengthInBytes(length));
  EXPECT_EQ(length, 1);
  ASSERT_TRUE(provider->LoadProvider());
  Ref<CMessagetext> again;
  ASSERT_TRUE(provider->GetMessageTextObject(again));
  EXPECT_TRUE(again == message);
  // Loading goes through the container, which clears the provider (and so the message) first.
  ASSERT_TRUE(again->GetMessagetextLengthInBytes(length));
  EXPECT_EQ(length, 0);
}

TEST_F(CProviderFactoryTest, EveryContainerActionEmptiesTheMessage) {
  ASSERT_TRUE(provider->LoadProvider());
  Ref<CMessagetext> message;
  Ref<CContainer> container;
  ASSERT_TRUE(provider->GetMessageTextObject(message));
  ASSERT_TRUE(provider->GetContainerObject(container));
  ASSERT_TRUE(message->LoadMessageText(u"ABCD", STRING_HEX));
  ASSERT_TRUE(container->NewContainer(u"factory-test", SINGLE_USER));
  int32_t length = -1;
  ASSERT_TRUE(message->GetMessagetextLengthInBytes(length));
  EXPECT_EQ(length, 0);
}

TEST_F(CProviderFactoryTest, TerminationReleasesEveryChildsHoldOnTheProvider) {
  ASSERT_TRUE(provider->LoadProvider());
  Ref<CMessagetext> message;
  Ref<CContainer> container;
  ASSERT_TRUE(provider->GetMessageTextObject(message));
  ASSERT_TRUE(provider->GetContainerObject(container));
  Ref<CSessionKey> key;
  Ref<CRSAKeyPair> exchange, signature;
  Ref<CHashValue> hash;
  ASSERT_TRUE(provider->GetSessionKeyObject(key));
  ASSERT_TRUE(provider->GetExchangeKeyPairObject(exchange));
  ASSERT_TRUE(provider->GetSignatureKeyPairObject(signature));
  ASSERT_TRUE(provider->GetHashValueObject(hash));
  ASSERT_TRUE(key->GenerateSessionKey());
  EXPECT_GT(provider.UseCount(), 1);
  EXPECT_TRUE(provider->TerminateAll());
  EXPECT_FALSE(Internal(provider).HasContext());
  EXPECT_EQ(provider.UseCount(), 1);
  // What the caller still holds stays a working object of its own.
  EXPECT_TRUE(message->LoadMessageText(u"01", STRING_HEX));
}

}  // namespace
}  // namespace quiv
