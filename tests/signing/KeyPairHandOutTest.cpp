// The provider's key pairs as its factory hands them out: the role (exchange or signature) is set
// again at every hand-out, whatever a holder of the same object set in between. Also: a new
// provider has its LastError record from the start.
#include "support/RsaKeyPairFixture.h"

#include <gtest/gtest.h>

#include "constants/CConstQUIV.h"
#include "errors/QuivError.h"
#include "provider/CProvider.h"
#include "signing/CRSAKeyPair.h"
#include "support/InternalAccess.h"

namespace quiv {
namespace {

// Every test of this file runs without writing the application log.
const auto* const kQuiet = ::testing::AddGlobalTestEnvironment(new test::QuietEnvironment);

class KeyPairHandOutTest : public test::RsaKeyPairFixture {
 protected:
  using HandOut = bool (CProvider::*)(Ref<CRSAKeyPair>&);

  // The role an empty pair names when asked for its key-pair handle.
  static int32_t RoleRefusal(const Ref<CRSAKeyPair>& pair) {
    HCRYPTKEY handle = 0;
    EXPECT_FALSE(Internal(pair).GetKeyPairHandle(handle));
    return pair->m_oLastError->m_lErrNumber;
  }
  // Gives the handed-out pair the other role, then asks the provider for it again.
  static void ExpectRoleSetAgain(HandOut handOut, int16_t otherRole, int32_t ownRefusal,
                                 int32_t otherRefusal) {
    Ref<CRSAKeyPair> pair;
    ASSERT_TRUE((*s_provider.*handOut)(pair));
    ASSERT_TRUE(Internal(pair).SetExOrSigKeyObject(otherRole));
    EXPECT_EQ(RoleRefusal(pair), otherRefusal);
    Ref<CRSAKeyPair> again;
    ASSERT_TRUE((*s_provider.*handOut)(again));
    EXPECT_TRUE(again == pair);  // the same object, its role set back
    EXPECT_EQ(RoleRefusal(pair), ownRefusal);
  }
};

TEST_F(KeyPairHandOutTest, TheExchangePairIsMadeAnExchangePairAgainAtEveryHandOut) {
  ExpectRoleSetAgain(&CProvider::GetExchangeKeyPairObject, kSignature,
                     KEY_ERROR_CONTAINER_DOES_NOT_CONTAIN_EXCHANGE_KEY_PAIR,
                     KEY_ERROR_CONTAINER_DOES_NOT_CONTAIN_SIGNATURE_KEY_PAIR);
}

TEST_F(KeyPairHandOutTest, TheSignaturePairIsMadeASignaturePairAgainAtEveryHandOut) {
  ExpectRoleSetAgain(&CProvider::GetSignatureKeyPairObject, kExchange,
                     KEY_ERROR_CONTAINER_DOES_NOT_CONTAIN_SIGNATURE_KEY_PAIR,
                     KEY_ERROR_CONTAINER_DOES_NOT_CONTAIN_EXCHANGE_KEY_PAIR);
}

TEST_F(KeyPairHandOutTest, ANewProviderHasItsLastErrorFromTheStart) {
  Ref<CProvider> provider = CProvider::Create();
  ASSERT_FALSE(provider->m_oLastError.IsNothing());
  EXPECT_EQ(provider->m_oLastError->m_lErrNumber, 0);
  provider->TerminateAll();
}

}  // namespace
}  // namespace quiv
