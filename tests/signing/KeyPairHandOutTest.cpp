// The provider's key pairs as its factory hands them out: the role (exchange or signature) is set
// again at every hand-out, whatever a holder of the same object set in between. Also: a new
// provider has its LastError record from the start.
#include "support/RsaKeyPairFixture.h"  // wincrypt macros must come before the constants catalogue

#include <gtest/gtest.h>

#include "constants/CConstQUIV.h"
#include "errors/QuivError.h"
#include "provider/CProvider.h"
#include "signing/CRSAKeyPair.h"

namespace quiv {
namespace {

// Every test of this file runs without writing the application log.
const auto* const kQuiet = ::testing::AddGlobalTestEnvironment(new test::QuietEnvironment);

class KeyPairHandOutTest : public test::RsaKeyPairFixture {
 protected:
  // The role an empty pair names when asked for its key-pair handle.
  static int32_t RoleRefusal(const Ref<CRSAKeyPair>& pair) {
    HCRYPTKEY handle = 0;
    EXPECT_FALSE(pair->GetKeyPairHandle(handle));
    return pair->m_oLastError->m_lErrNumber;
  }
};

TEST_F(KeyPairHandOutTest, TheExchangePairIsMadeAnExchangePairAgainAtEveryHandOut) {
  Ref<CRSAKeyPair> pair;
  ASSERT_TRUE(s_provider->GetExchangeKeyPairObject(pair));
  ASSERT_TRUE(pair->SetExOrSigKeyObject(kSignature));
  EXPECT_EQ(RoleRefusal(pair), KEY_ERROR_CONTAINER_DOES_NOT_CONTAIN_SIGNATURE_KEY_PAIR);
  Ref<CRSAKeyPair> again;
  ASSERT_TRUE(s_provider->GetExchangeKeyPairObject(again));
  EXPECT_TRUE(again == pair);
  EXPECT_EQ(RoleRefusal(pair), KEY_ERROR_CONTAINER_DOES_NOT_CONTAIN_EXCHANGE_KEY_PAIR);
}

TEST_F(KeyPairHandOutTest, TheSignaturePairIsMadeASignaturePairAgainAtEveryHandOut) {
  Ref<CRSAKeyPair> pair;
  ASSERT_TRUE(s_provider->GetSignatureKeyPairObject(pair));
  ASSERT_TRUE(pair->SetExOrSigKeyObject(kExchange));
  EXPECT_EQ(RoleRefusal(pair), KEY_ERROR_CONTAINER_DOES_NOT_CONTAIN_EXCHANGE_KEY_PAIR);
  Ref<CRSAKeyPair> again;
  ASSERT_TRUE(s_provider->GetSignatureKeyPairObject(again));
  EXPECT_TRUE(again == pair);
  EXPECT_EQ(RoleRefusal(pair), KEY_ERROR_CONTAINER_DOES_NOT_CONTAIN_SIGNATURE_KEY_PAIR);
}

TEST_F(KeyPairHandOutTest, ANewProviderHasItsLastErrorFromTheStart) {
  Ref<CProvider> provider = CProvider::Create();
  ASSERT_FALSE(provider->m_oLastError.IsNothing());
  EXPECT_EQ(provider->m_oLastError->m_lErrNumber, 0);
  provider->TerminateAll();
}

}  // namespace
}  // namespace quiv
