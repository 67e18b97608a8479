// CContainer when the provider breaks underneath it: unreadable container lists, a deletion
// that fails part way through DeleteAllContainers, a key that cannot be destroyed, and what an
// invalid access code leaves behind for the next deletion.
#include "ProviderSessionFixture.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <map>

#include "automation/Dictionary.h"
#include "automation/MapPageContext.h"
#include "constants/CConstQUIV.h"
#include "errors/QuivError.h"
#include "provider/CContainer.h"
#include "provider/CProvider.h"
#include "support/InternalAccess.h"
#include "support/RecordMatchers.h"

namespace quiv {
namespace {

using test::FailedWith;
using test::FakeProvParam;

const CConstQUIV k;
const auto kFail = static_cast<DWORD>(k.NTE_FAIL());

class CContainerFailureTest : public test::ProviderSessionFixture {
 protected:
  void SetUp() override {
    ProviderSessionFixture::SetUp();
    ASSERT_TRUE(provider->LoadProvider());
    ASSERT_TRUE(provider->GetContainerObject(container));
  }
  const Ref<CErrHandler>& Record() const { return container->m_oLastError; }

  bool Exists(const String& name) {
    bool exists = false;
    EXPECT_TRUE(container->CheckForContainer(name, exists));
    return exists;
  }

  Ref<CContainer> container;
};

TEST_F(CContainerFailureTest, AnUnreadableListFailsEveryMethodThatNeedsIt) {
  FakeProvParam fake(static_cast<DWORD>(k.PP_ENUMCONTAINERS()), test::Refused(kFail));
  platform::ScopedPlatformOverride use(fake);
  Dictionary list;
  list.Add(int16_t{0}, u"stale");
  EXPECT_TRUE(FailedWith(container->GetListOfContainers(list), Record(),
                         PROVIDER_ERROR_UNABLE_TO_GET_LIST_OF_PROVIDER_PARAMS,
                         "QUIV.CProvider.GetListOfContainers"));
  EXPECT_EQ(list.Count(), 0u);  // emptied before the provider was asked
  bool exists = true;
  EXPECT_TRUE(FailedWith(container->CheckForContainer(u"any", exists), Record(),
                         CONTAINER_ERROR_UNABLE_TO_GET_LIST_OF_CONTAINERS,
                         "QUIV.CContainer.CheckForContainer"));
  EXPECT_TRUE(FailedWith(container->DeleteAllContainers(), Record(),
                         CONTAINER_ERROR_UNABLE_TO_GET_LIST_OF_CONTAINERS,
                         "QUIV.CContainer.DeleteAllContainers"));
  EXPECT_TRUE(Internal(provider).HasContext());
}

TEST_F(CContainerFailureTest, DeleteAllContainersStopsAtTheFirstFailedDeletion) {
  ASSERT_TRUE(container->NewContainer(u"one", SINGLE_USER));
  ASSERT_TRUE(container->NewContainer(u"two", SINGLE_USER));
  {
    test::AcquireLog log({1}, kFail);
    platform::ScopedPlatformOverride use(log);
    EXPECT_TRUE(FailedWith(container->DeleteAllContainers(), Record(),
                           CONTAINER_ERROR_UNABLE_TO_DELETE_CONTAINER,
                           "QUIV.CContainer.DeleteAllContainers"));
    ASSERT_EQ(log.flags.size(), 1u);
    EXPECT_EQ(log.flags[0], static_cast<DWORD>(k.CRYPT_DELETEKEYSET()));
  }
  EXPECT_FALSE(Internal(provider).HasContext());
  ASSERT_TRUE(provider->LoadProvider());
  Dictionary list;
  ASSERT_TRUE(container->GetListOfContainers(list));
  EXPECT_EQ(list.Count(), 3u);  // the default container, one and two
}

TEST_F(CContainerFailureTest, AKeyThatCannotBeDestroyedFailsTheCheck) {
  ASSERT_TRUE(container->NewContainer(u"keys", SINGLE_USER));
  HCRYPTKEY key = 0;
  ASSERT_TRUE(platform::Platform().CryptGenKey(Internal(provider).ContextHandle(),
                                               static_cast<ALG_ID>(k.AT_KEYEXCHANGE()), 0x02000000,
                                               &key));
  ASSERT_TRUE(platform::Platform().CryptDestroyKey(key));
  test::FailingDestroy fake(test::FailingDestroy::What::Keys);
  platform::ScopedPlatformOverride use(fake);
  bool exists = true;
  EXPECT_TRUE(FailedWith(container->CheckForExchangeKeyPair(exists), Record(),
                         KEY_ERROR_UNABLE_TO_CHECK_WHETHER_RSA_KEY_PAIR_EXISTS,
                         "QUIV.CContainer.CheckForExchangeKeyPair"));
  EXPECT_FALSE(exists);
  // The key was found: what failed is its destruction.
  EXPECT_EQ(Record()->m_dblErrLastDLLError, static_cast<int32_t>(test::FailingDestroy::kError));
}

TEST_F(CContainerFailureTest, AContainerNameSizeQueryFailingOtherwiseIsAMemoryError) {
  String name;
  const auto read = [&] { return container->GetContainerName(name); };
  EXPECT_TRUE(FailedWith(test::WithProvParam(k.PP_CONTAINER(), test::Refused(kFail), read),
                         Record(), GENERAL_ERROR_UNABLE_TO_GET_AVAILABLE_MEMORY,
                         "QUIV.CContainer.GetContainerName"));
}

TEST_F(CContainerFailureTest, CreatingAnExistingContainerFailsAndLeavesNoContext) {
  ASSERT_TRUE(container->NewContainer(u"twice", SINGLE_USER));
  EXPECT_TRUE(FailedWith(container->NewContainer(u"twice", SINGLE_USER), Record(),
                         CONTAINER_ERROR_UNABLE_TO_CREATE_NEW_CONTAINER,
                         "QUIV.CContainer.NewContainer"));
  EXPECT_TRUE(FailedWith(false, provider->m_oLastError,
                         CONTAINER_ERROR_UNABLE_TO_CREATE_NEW_CONTAINER,
                         "QUIV.CProvider.AcquireContext"));
  EXPECT_FALSE(Internal(provider).HasContext());
  EXPECT_TRUE(container->LoadContainer(u"twice", SINGLE_USER));
}

TEST_F(CContainerFailureTest, AnInvalidAccessCodeIsKeptForTheNextDeletion) {
  ASSERT_TRUE(container->NewContainer(u"kept", SINGLE_USER));
  EXPECT_FALSE(container->NewContainer(u"other", 1));
  // The deletion takes the stored code and is refused before the context is touched.
  const HCRYPTPROV before = Internal(provider).ContextHandle();
  EXPECT_TRUE(FailedWith(container->DeleteContainer(u"kept"), Record(),
                         CONTAINER_ERROR_UNABLE_TO_DELETE_CONTAINER,
                         "QUIV.CContainer.DeleteContainer"));
  EXPECT_TRUE(Internal(provider).HasContext());
  EXPECT_EQ(Internal(provider).ContextHandle(), before);
  EXPECT_TRUE(Exists(u"kept"));
  // A valid action stores a valid code again.
  ASSERT_TRUE(container->LoadContainer(u"kept", SINGLE_USER));
  EXPECT_TRUE(container->DeleteContainer(u"kept"));
}

TEST_F(CContainerFailureTest, OnStartPageMakesTheRecordAndHandsItThePage) {
  container->m_oLastError = Nothing;
  const std::map<String, String> variables{{u"PATH_INFO", u"/store.asp"}};
  ASSERT_TRUE(container->OnStartPage(MakeRef<MapPageContext>(variables, String(u"n=1"))));
  ASSERT_FALSE(Record().IsNothing());
  ASSERT_TRUE(provider->Clear().ToBoolean());
  String name;
  EXPECT_FALSE(container->GetContainerName(name));
  EXPECT_EQ(Record()->m_sWebPageURL.ToUtf8(), "/store.asp?n=1");
}

}  // namespace
}  // namespace quiv
