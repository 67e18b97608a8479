// CContainer against the real software provider, with both key stores in a temporary folder.
#include "ProviderFakes.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <set>
#include <string>

#include "automation/Dictionary.h"
#include "constants/CConstQUIV.h"
#include "errors/QuivError.h"
#include "platform/PlatformSeam.h"
#include "provider/CContainer.h"
#include "provider/CProvider.h"
#include "support/InternalAccess.h"
#include "support/TempKeyStore.h"

namespace quiv {
namespace {

// Every test of this file runs without writing the application log.
const auto* const kQuiet = ::testing::AddGlobalTestEnvironment(new test::QuietEnvironment);

const CConstQUIV k;

std::string Source(const Ref<CErrHandler>& record) {
  if (record->m_sClassName.IsEmpty()) return record->m_sProjectName.ToUtf8();
  return (record->m_sProjectName + u"." + record->m_sClassName + u"." + record->m_sRoutineName)
      .ToUtf8();
}

std::set<std::string> Names(Dictionary& list) {
  std::set<std::string> names;
  for (size_t i = 0; i < list.Count(); ++i) {
    names.insert(list.Item(static_cast<int16_t>(i)).TextForm().LCase().ToUtf8());
  }
  return names;
}

class CContainerTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(provider->SetProviderTypeID(k.PROV_RSA_FULL()));
    ASSERT_TRUE(provider->LoadProvider());
    ASSERT_TRUE(provider->GetContainerObject(container));
  }
  void TearDown() override { provider->TerminateAll(); }
  const Ref<CErrHandler>& Record() const { return container->m_oLastError; }

  test::TempKeyStore store;
  Ref<CProvider> provider = CProvider::Create();
  Ref<CContainer> container;
};

TEST_F(CContainerTest, TheProviderHandsOutItsOneContainer) {
  Ref<CContainer> again;
  ASSERT_TRUE(provider->GetContainerObject(again));
  EXPECT_TRUE(again == container);
}

TEST_F(CContainerTest, CreateCheckListAndDeleteInBothStores) {
  String defaultName;
  ASSERT_TRUE(container->GetContainerName(defaultName));
  EXPECT_FALSE(defaultName.IsEmpty());

  ASSERT_TRUE(container->NewContainer(u"alpha", SINGLE_USER));
  String name;
  ASSERT_TRUE(container->GetContainerName(name));
  EXPECT_EQ(name.ToUtf8(), "alpha");
  bool exists = false;
  ASSERT_TRUE(container->CheckForContainer(u"ALPHA", exists));
  EXPECT_TRUE(exists);
  ASSERT_TRUE(container->CheckForContainer(u"beta", exists));
  EXPECT_FALSE(exists);

  Dictionary list;
  ASSERT_TRUE(container->GetListOfContainers(list));
  EXPECT_EQ(Names(list), (std::set<std::string>{defaultName.LCase().ToUtf8(), "alpha"}));
  EXPECT_TRUE(list.Exists(int16_t{0}));

  // The machine store is separate.
  ASSERT_TRUE(container->NewContainer(u"shared", MULTI_USER));
  ASSERT_TRUE(container->GetListOfContainers(list));
  EXPECT_EQ(Names(list), (std::set<std::string>{"shared"}));
  ASSERT_TRUE(container->CheckForContainer(u"alpha", exists));
  EXPECT_FALSE(exists);

  // Deletion uses the store of the last action and leaves no context.
  ASSERT_TRUE(container->DeleteContainer(u"shared"));
  EXPECT_FALSE(Internal(provider).HasContext());
  EXPECT_FALSE(container->GetContainerName(name));
  EXPECT_EQ(Record()->m_lErrNumber, GENERAL_ERROR_NO_CONTEXT);
  EXPECT_EQ(Source(Record()), "QUIV.CContainer.GetContainerName");
  EXPECT_FALSE(container->GetListOfContainers(list));
  EXPECT_EQ(Source(Record()), "QUIV.CProvider.GetListOfContainers");
  String text;
  EXPECT_FALSE(provider->GetProviderName(text));
  EXPECT_EQ(provider->m_oLastError->m_lErrNumber, GENERAL_ERROR_NO_CONTEXT);

  ASSERT_TRUE(container->LoadContainer(u"Alpha", SINGLE_USER));
  ASSERT_TRUE(container->DeleteContainer(u"alpha"));
  ASSERT_TRUE(provider->LoadProvider());
  ASSERT_TRUE(container->CheckForContainer(u"alpha", exists));
  EXPECT_FALSE(exists);
}

TEST_F(CContainerTest, InvalidAccessCodeKeepsThePreviousContext) {
  const HCRYPTPROV before = Internal(provider).ContextHandle();
  EXPECT_FALSE(container->NewContainer(u"x", 1));
  EXPECT_EQ(Record()->m_lErrNumber, CONTAINER_ERROR_UNABLE_TO_CREATE_NEW_CONTAINER);
  EXPECT_EQ(Source(Record()), "QUIV.CContainer.NewContainer");
  const std::string message = Record()->LastError().ToUtf8();
  EXPECT_NE(message.find("i_sContainerName"), std::string::npos);
  EXPECT_NE(message.find("i_lContainerAccess"), std::string::npos);
  EXPECT_TRUE(Internal(provider).HasContext());
  EXPECT_EQ(Internal(provider).ContextHandle(), before);
  String name;
  EXPECT_TRUE(container->GetContainerName(name));

  Record()->Clear();
  EXPECT_FALSE(container->LoadContainer(String(), SINGLE_USER, 5));
  EXPECT_TRUE(Internal(provider).HasContext());
}

TEST_F(CContainerTest, NamedContainerWithPublicKeysOnlyFails) {
  EXPECT_FALSE(container->LoadContainer(u"named", SINGLE_USER, PUBLIC_KEYS_ONLY));
  EXPECT_EQ(Record()->m_lErrNumber, CONTAINER_ERROR_UNABLE_TO_LOAD_CONTAINER);
  EXPECT_EQ(Source(Record()), "QUIV.CContainer.LoadContainer");
  EXPECT_NE(Record()->LastError().ToUtf8().find("i_sContainerName"), std::string::npos);
  EXPECT_EQ(provider->m_oLastError->m_lErrNumber,
            CONTAINER_ERROR_MUST_HAVE_EMPTY_CONTAINER_NAME_IF_ONLY_PUBLIC_KEYS_ACCESS);
  EXPECT_FALSE(Internal(provider).HasContext());
}

TEST_F(CContainerTest, OpeningAMissingContainerFails) {
  EXPECT_FALSE(container->LoadContainer(u"missing", SINGLE_USER));
  EXPECT_EQ(Record()->m_lErrNumber, CONTAINER_ERROR_UNABLE_TO_LOAD_CONTAINER);
  EXPECT_FALSE(Internal(provider).HasContext());
  EXPECT_FALSE(container->DeleteContainer(u"missing"));
  EXPECT_EQ(Record()->m_lErrNumber, CONTAINER_ERROR_UNABLE_TO_DELETE_CONTAINER);
  EXPECT_EQ(Source(Record()), "QUIV.CContainer.DeleteContainer");
  EXPECT_NE(Record()->LastError().ToUtf8().find("Container Name"), std::string::npos);
}

TEST_F(CContainerTest, KeyPairChecks) {
  ASSERT_TRUE(container->NewContainer(u"keys", SINGLE_USER));
  bool exists = true;
  ASSERT_TRUE(container->CheckForExchangeKeyPair(exists));
  EXPECT_FALSE(exists);
  exists = true;
  ASSERT_TRUE(container->CheckForSignatureKeyPair(exists));
  EXPECT_FALSE(exists);

  HCRYPTKEY key = 0;
  ASSERT_TRUE(platform::Platform().CryptGenKey(Internal(provider).ContextHandle(),
                                               static_cast<ALG_ID>(k.AT_KEYEXCHANGE()), 0x02000000,
                                               &key));
  platform::Platform().CryptDestroyKey(key);
  ASSERT_TRUE(container->CheckForExchangeKeyPair(exists));
  EXPECT_TRUE(exists);
  ASSERT_TRUE(container->CheckForSignatureKeyPair(exists));
  EXPECT_FALSE(exists);
}

TEST_F(CContainerTest, KeyPairCheckWithoutContextFails) {
  ASSERT_TRUE(provider->Clear().ToBoolean());
  bool exists = true;
  EXPECT_FALSE(container->CheckForExchangeKeyPair(exists));
  EXPECT_FALSE(exists);
  EXPECT_EQ(Record()->m_lErrNumber, KEY_ERROR_UNABLE_TO_CHECK_WHETHER_RSA_KEY_PAIR_EXISTS);
  EXPECT_EQ(Source(Record()), "QUIV.CContainer.CheckForExchangeKeyPair");
}

TEST_F(CContainerTest, ListEmptiesTheCallersDictionaryFirst) {
  Dictionary list;
  list.Add(u"stale", u"entry");
  list.Add(int16_t{7}, u"other");
  ASSERT_TRUE(container->GetListOfContainers(list));
  EXPECT_EQ(list.Count(), 1u);
  EXPECT_FALSE(list.Exists(u"stale"));
  EXPECT_EQ(list.Item(int16_t{0}).GetKind(), Variant::Kind::String);
}

TEST_F(CContainerTest, CheckNeedsAContext) {
  ASSERT_TRUE(provider->Clear().ToBoolean());
  bool exists = false;
  EXPECT_FALSE(container->CheckForContainer(u"x", exists));
  EXPECT_EQ(Record()->m_lErrNumber, GENERAL_ERROR_NO_CONTEXT);
  EXPECT_EQ(Source(Record()), "QUIV.CContainer.CheckForContainer");
  EXPECT_NE(Record()->LastError().ToUtf8().find("Container name"), std::string::npos);
  EXPECT_FALSE(container->DeleteAllContainers());
  EXPECT_EQ(Record()->m_lErrNumber, GENERAL_ERROR_NO_CONTEXT);
  Ref<CContainer> again;
  EXPECT_FALSE(provider->GetContainerObject(again));
}

TEST_F(CContainerTest, DeleteAllContainersEmptiesTheStore) {
  ASSERT_TRUE(container->NewContainer(u"one", SINGLE_USER));
  ASSERT_TRUE(container->NewContainer(u"two", SINGLE_USER));
  ASSERT_TRUE(container->DeleteAllContainers());
  EXPECT_FALSE(Internal(provider).HasContext());
  // The store is empty now: only a new default container is there after the next load.
  ASSERT_TRUE(provider->LoadProvider());
  Dictionary list;
  ASSERT_TRUE(container->GetListOfContainers(list));
  EXPECT_EQ(list.Count(), 1u);
  EXPECT_EQ(Names(list).count("one"), 0u);
}

TEST_F(CContainerTest, ContainerNameSizeQueryThatSucceedsIsUnexpected) {
  test::FakeProvParam fake(static_cast<DWORD>(k.PP_CONTAINER()),
                           [](BYTE*, DWORD*, DWORD) -> BOOL { return TRUE; });
  platform::ScopedPlatformOverride use(fake);
  String name;
  EXPECT_FALSE(container->GetContainerName(name));
  EXPECT_EQ(Record()->m_lErrNumber, GENERAL_ERROR_UNEXPECTED_ERROR);
}

TEST_F(CContainerTest, ContainerNameDataCallFailure) {
  int calls = 0;
  test::FakeProvParam fake(
      static_cast<DWORD>(k.PP_CONTAINER()), [&](BYTE*, DWORD* len, DWORD) -> BOOL {
        if (calls++ == 0) {
          *len = 8;
          platform::Platform().SetLastError(static_cast<DWORD>(k.ERROR_MORE_DATA()));
        } else {
          platform::Platform().SetLastError(static_cast<DWORD>(k.NTE_BAD_UID()));
        }
        return FALSE;
      });
  platform::ScopedPlatformOverride use(fake);
  String name;
  EXPECT_FALSE(container->GetContainerName(name));
  EXPECT_EQ(Record()->m_lErrNumber, CONTAINER_ERROR_UNABLE_TO_GET_NAME);
}

TEST_F(CContainerTest, ReleaseFailureStopsTheContainerAction) {
  test::FailingRelease fake;
  platform::ScopedPlatformOverride use(fake);
  EXPECT_FALSE(container->NewContainer(u"never", SINGLE_USER));
  EXPECT_EQ(Record()->m_lErrNumber, CONTAINER_ERROR_UNABLE_TO_CREATE_NEW_CONTAINER);
  EXPECT_EQ(provider->m_oLastError->m_lErrNumber, PROVIDER_ERROR_UNABLE_TO_RELEASE_CONTEXT);
  EXPECT_FALSE(Internal(provider).HasContext());
}

}  // namespace
}  // namespace quiv
