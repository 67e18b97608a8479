// CProvider against the real software provider, with the key stores in a temporary folder, and
// its platform-failure paths through forwarding fakes.
#include "ProviderFakes.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <memory>
#include <string>

#include "automation/Dictionary.h"
#include "constants/CConstQUIV.h"
#include "errors/QuivError.h"
#include "provider/CContainer.h"
#include "provider/CProvider.h"
#include "support/InternalAccess.h"
#include "support/TempKeyStore.h"

namespace quiv {
namespace {

// Every test of this file runs without writing the application log.
const auto* const kQuiet = ::testing::AddGlobalTestEnvironment(new test::QuietEnvironment);

using test::FakeProvParam;
using test::FakeVersion;
using test::FixedBytes;

const CConstQUIV k;

int32_t Number(const Ref<CErrHandler>& record) {
  return record->m_lErrNumber;
}
// The routine's source as the record split it ("Project.Class.Routine", or whole otherwise).
std::string Source(const Ref<CErrHandler>& record) {
  if (record->m_sClassName.IsEmpty()) return record->m_sProjectName.ToUtf8();
  return (record->m_sProjectName + u"." + record->m_sClassName + u"." + record->m_sRoutineName)
      .ToUtf8();
}

class CProviderTest : public ::testing::Test {
 protected:
  // The type starts at 0, which the provider refuses: every session sets it first.
  void SetUp() override { ASSERT_TRUE(provider->SetProviderTypeID(k.PROV_RSA_FULL())); }
  void TearDown() override {
    if (provider) provider->TerminateAll();
  }
  test::TempKeyStore store;
  Ref<CProvider> provider = CProvider::Create();
};

TEST_F(CProviderTest, TypicalSessionCreatesTheDefaultContainerAndReadsTheContext) {
  String code = u"PROV_RSA_FULL";
  ASSERT_TRUE(provider->SetProviderTypeCode(code));
  ASSERT_TRUE(provider->SetProviderName(k.MS_ENHANCED_PROV()));
  ASSERT_TRUE(provider->LoadProvider());
  EXPECT_TRUE(Internal(provider).HasContext());

  String name;
  ASSERT_TRUE(provider->GetProviderName(name));
  EXPECT_EQ(name, k.MS_ENHANCED_PROV());
  int32_t type = 0;
  ASSERT_TRUE(provider->GetProviderTypeID(type));
  EXPECT_EQ(type, k.PROV_RSA_FULL());
  String typeCode;
  ASSERT_TRUE(provider->GetProviderTypeCode(typeCode));
  EXPECT_EQ(typeCode, String(u"PROV_RSA_FULL"));
  String version;
  ASSERT_TRUE(provider->GetProviderVersion(version));
  EXPECT_EQ(version.ToUtf8(), "0.0.2.0");  // the providers report version 2.0 (0x00000200)
  String implementation;
  ASSERT_TRUE(provider->GetProviderImplementation(implementation));
  EXPECT_EQ(implementation.ToUtf8(), std::to_string(k.CRYPT_IMPL_SOFTWARE()));

  // The default container now exists and is the only one of the user store.
  Ref<CContainer> container;
  ASSERT_TRUE(provider->GetContainerObject(container));
  Dictionary list;
  ASSERT_TRUE(container->GetListOfContainers(list));
  ASSERT_EQ(list.Count(), 1u);
  String open;
  ASSERT_TRUE(container->GetContainerName(open));
  EXPECT_TRUE(list.Item(int16_t{0}).TextForm().EqualsText(open));
  // A second load opens it without creating another.
  ASSERT_TRUE(provider->LoadProvider());
  ASSERT_TRUE(container->GetListOfContainers(list));
  EXPECT_EQ(list.Count(), 1u);
}

TEST(CProviderTypeTest, WithoutATypeNoProviderLoads) {
  test::TempKeyStore store;
  Ref<CProvider> provider = CProvider::Create();
  EXPECT_EQ(Internal(provider).ProviderType(), 0);
  EXPECT_FALSE(provider->LoadProvider());
  EXPECT_EQ(provider->m_oLastError->m_lErrNumber, PROVIDER_ERROR_UNABLE_TO_LOAD_PROVIDER);
  EXPECT_FALSE(Internal(provider).HasContext());
  EXPECT_TRUE(provider->TerminateAll());
}

TEST_F(CProviderTest, ReadersNeedAContext) {
  String text;
  int32_t type = 0;
  EXPECT_FALSE(provider->GetProviderTypeCode(text));
  EXPECT_EQ(Number(provider->m_oLastError), GENERAL_ERROR_NO_CONTEXT);
  EXPECT_EQ(Source(provider->m_oLastError), "QUIV.CProvider.GetProviderTypeCode");
  EXPECT_FALSE(provider->GetProviderName(text));
  EXPECT_EQ(Source(provider->m_oLastError), "QUIV.CProvider.GetProviderName");
  EXPECT_FALSE(provider->GetProviderTypeID(type));
  EXPECT_EQ(Number(provider->m_oLastError), GENERAL_ERROR_NO_CONTEXT);
  EXPECT_FALSE(provider->GetProviderVersion(text));
  EXPECT_EQ(Number(provider->m_oLastError), GENERAL_ERROR_NO_CONTEXT);
  EXPECT_EQ(Source(provider->m_oLastError), "CProvider.GetProviderVersion");
  EXPECT_FALSE(provider->GetProviderImplementation(text));
  EXPECT_EQ(Source(provider->m_oLastError), "QUIV.CProvider.Get ImplementationType");
  Ref<CContainer> container;
  EXPECT_FALSE(provider->GetContainerObject(container));
  EXPECT_TRUE(container.IsNothing());
  EXPECT_EQ(Source(provider->m_oLastError), "QUIV.CProvider.GetContainerObject");
}

TEST_F(CProviderTest, OnlyTheTwoProviderNamesAreAccepted) {
  EXPECT_TRUE(provider->SetProviderName(k.MS_DEF_PROV()));
  EXPECT_EQ(Internal(provider).ProviderName(), k.MS_DEF_PROV());
  for (const String& bad :
       {k.MS_DEF_PROV().UCase(), k.MS_ENHANCED_PROV() + u" ", k.MS_STRONG_PROV(), String()}) {
    EXPECT_FALSE(provider->SetProviderName(bad));
    EXPECT_EQ(Number(provider->m_oLastError),
              PROVIDER_ERROR_PROVIDER_UNSUPPORTED_IN_THIS_QUIV_VERSION);
    EXPECT_EQ(Source(provider->m_oLastError), "QUIV.CProvider.SetProviderName");
  }
  EXPECT_EQ(Internal(provider).ProviderName(), k.MS_DEF_PROV());
}

TEST_F(CProviderTest, TypeCodeIsTrimmedInPlaceAndCaseSensitive) {
  String code = u"  PROV_RSA_FULL  ";
  EXPECT_TRUE(provider->SetProviderTypeCode(code));
  EXPECT_EQ(code, String(u"PROV_RSA_FULL"));
  EXPECT_EQ(Internal(provider).ProviderType(), k.PROV_RSA_FULL());

  Ref<CProvider> other = CProvider::Create();
  String lower = u" prov_rsa_full";
  EXPECT_FALSE(other->SetProviderTypeCode(lower));
  EXPECT_EQ(lower, String(u"prov_rsa_full"));
  EXPECT_EQ(Number(other->m_oLastError),
            PROVIDER_ERROR_PROVIDER_TYPE_UNSUPPORTED_IN_THIS_QUIV_VERSION);
  EXPECT_EQ(Source(other->m_oLastError), "QUIV.CProvder.SetProviderTypeCode");
  EXPECT_NE(other->m_oLastError->LastError().ToUtf8().find("i_sProvTypeCode"), std::string::npos);
  EXPECT_EQ(Internal(other).ProviderType(), 0);
  other->TerminateAll();
}

TEST_F(CProviderTest, OnlyRsaFullTypeId) {
  EXPECT_FALSE(provider->SetProviderTypeID(k.PROV_RSA_SIG()));
  EXPECT_EQ(Number(provider->m_oLastError),
            PROVIDER_ERROR_PROVIDER_TYPE_UNSUPPORTED_IN_THIS_QUIV_VERSION);
  EXPECT_EQ(Source(provider->m_oLastError), "QUIV.CProvider.SetProviderTypeID");
  EXPECT_NE(provider->m_oLastError->LastError().ToUtf8().find("i_lProviderTypeID"),
            std::string::npos);
  EXPECT_EQ(Internal(provider).ProviderType(), k.PROV_RSA_FULL());  // unchanged
}

TEST_F(CProviderTest, NamedContainerWithPublicKeysOnlyFails) {
  EXPECT_FALSE(provider->LoadProvider(u"named", SINGLE_USER, PUBLIC_KEYS_ONLY));
  EXPECT_EQ(Number(provider->m_oLastError), PROVIDER_ERROR_UNABLE_TO_LOAD_PROVIDER);
  EXPECT_EQ(Source(provider->m_oLastError), "QUIV.CProvider.LoadProvider");
  EXPECT_FALSE(Internal(provider).HasContext());
  // The verify-only context takes the empty name.
  EXPECT_TRUE(provider->LoadProvider(String(), SINGLE_USER, PUBLIC_KEYS_ONLY));
  EXPECT_TRUE(Internal(provider).HasContext());
}

TEST_F(CProviderTest, AcquireContextRecordsItsArguments) {
  HCRYPTPROV handle = 0;
  EXPECT_FALSE(
      Internal(provider).AcquireContext(u"x", String(), 1, k.CRYPT_VERIFYCONTEXT(), handle));
  const Ref<CErrHandler>& e = provider->m_oLastError;
  EXPECT_EQ(Number(e), CONTAINER_ERROR_MUST_HAVE_EMPTY_CONTAINER_NAME_IF_ONLY_PUBLIC_KEYS_ACCESS);
  EXPECT_EQ(Source(e), "QUIV.CProvider.AcquireContext");
  const std::string message = e->LastError().ToUtf8();
  for (const char* name : {"i_sContainerName", "i_sProviderName", "i_lProviderType", "i_lFlags"}) {
    EXPECT_NE(message.find(name), std::string::npos) << name;
  }
  e->Clear();
  // A missing named container: open fails without creating it.
  EXPECT_FALSE(Internal(provider).AcquireContext(u"missing", String(), 1, 0, handle));
  EXPECT_EQ(Number(e), PROVIDER_ERROR_UNABLE_TO_ACQUIRE_CONTEXT);
  e->Clear();
  EXPECT_FALSE(
      Internal(provider).AcquireContext(u"missing", String(), 1, k.CRYPT_DELETEKEYSET(), handle));
  EXPECT_EQ(Number(e), CONTAINER_ERROR_UNABLE_TO_DELETE_CONTAINER);
  e->Clear();
  EXPECT_TRUE(Internal(provider).AcquireContext(u"made", String(), 1, k.CRYPT_NEWKEYSET(), handle));
  EXPECT_EQ(Internal(provider).ContextHandle(), handle);
  EXPECT_TRUE(provider->Clear().ToBoolean());
  EXPECT_FALSE(
      Internal(provider).AcquireContext(u"made", String(), 1, k.CRYPT_NEWKEYSET(), handle));
  EXPECT_EQ(Number(e), CONTAINER_ERROR_UNABLE_TO_CREATE_NEW_CONTAINER);
  EXPECT_FALSE(Internal(provider).HasContext());
}

TEST_F(CProviderTest, ClearTwiceSucceedsAndReleasesOnce) {
  ASSERT_TRUE(provider->LoadProvider());
  const Variant first = provider->Clear();
  EXPECT_EQ(first.GetKind(), Variant::Kind::Boolean);
  EXPECT_TRUE(first.ToBoolean());
  EXPECT_FALSE(Internal(provider).HasContext());
  EXPECT_TRUE(provider->Clear().ToBoolean());
}

TEST_F(CProviderTest, TerminateAllLeavesNoContextAndNoChildren) {
  ASSERT_TRUE(provider->LoadProvider());
  Ref<CContainer> container;
  ASSERT_TRUE(provider->GetContainerObject(container));
  EXPECT_TRUE(provider->TerminateAll());
  EXPECT_FALSE(Internal(provider).HasContext());
  EXPECT_TRUE(provider->m_oLastError.IsNothing());
  // The container no longer refers to the provider: only this test holds it.
  EXPECT_EQ(provider.UseCount(), 1);
  provider.SetNothing();
}

TEST_F(CProviderTest, ProvParamDecodesAndRefusesEnumerations) {
  ASSERT_TRUE(provider->LoadProvider());
  Variant value;
  EXPECT_FALSE(Internal(provider).GetProvParam(k.PP_ENUMALGS(), value));
  EXPECT_EQ(Number(provider->m_oLastError), PROVIDER_ERROR_USE_CPROVIDER_GETPROVPARAMLIST_INSTEAD);
  EXPECT_EQ(Source(provider->m_oLastError), "QUIV.CProvider.GetProvParam");
  EXPECT_FALSE(Internal(provider).GetProvParam(k.PP_ENUMCONTAINERS(), value));
  EXPECT_EQ(Number(provider->m_oLastError), PROVIDER_ERROR_USE_CPROVIDER_GETPROVPARAMLIST_INSTEAD);
  ASSERT_TRUE(Internal(provider).GetProvParam(k.PP_PROVTYPE(), value));
  EXPECT_EQ(value.GetKind(), Variant::Kind::Long);
  EXPECT_EQ(value.ToLong(), k.PROV_RSA_FULL());
  ASSERT_TRUE(Internal(provider).GetProvParam(k.PP_CONTAINER(), value));
  EXPECT_EQ(value.GetKind(), Variant::Kind::String);
}

TEST_F(CProviderTest, ProvParamRefusesAnIdOutsideItsLists) {
  ASSERT_TRUE(provider->LoadProvider());
  FakeProvParam fake(static_cast<DWORD>(k.PP_KEYSPEC()), FixedBytes({1, 0, 0, 0}));
  platform::ScopedPlatformOverride use(fake);
  Variant value;
  EXPECT_FALSE(Internal(provider).GetProvParam(k.PP_KEYSPEC(), value));
  EXPECT_EQ(Number(provider->m_oLastError), PROVIDER_ERROR_UNSUPPORTED_PARAMETER);
}

TEST_F(CProviderTest, VersionBytesAreWrittenMostSignificantFirst) {
  ASSERT_TRUE(provider->LoadProvider());
  FakeProvParam fake(static_cast<DWORD>(k.PP_VERSION()), FixedBytes({0x04, 0x03, 0x02, 0xFF}));
  platform::ScopedPlatformOverride use(fake);
  String version;
  ASSERT_TRUE(provider->GetProviderVersion(version));
  EXPECT_EQ(version.ToUtf8(), "255.2.3.4");
}

TEST_F(CProviderTest, NumberWithTopBitSetOverflows) {
  ASSERT_TRUE(provider->LoadProvider());
  FakeProvParam fake(static_cast<DWORD>(k.PP_IMPTYPE()), FixedBytes({0, 0, 0, 0x80}));
  platform::ScopedPlatformOverride use(fake);
  String imp = u"before";
  EXPECT_FALSE(provider->GetProviderImplementation(imp));
  EXPECT_EQ(Number(provider->m_oLastError), PROVIDER_ERROR_UNABLE_TO_GET_PROVIDER_PARAMETER);
  EXPECT_NE(provider->m_oLastError->LastError().ToUtf8().find("o_lImpType"), std::string::npos);
  Variant value;
  EXPECT_FALSE(Internal(provider).GetProvParam(k.PP_IMPTYPE(), value));
  EXPECT_EQ(Number(provider->m_oLastError), kErrOverflow);
}

TEST_F(CProviderTest, NameWithoutTerminatorFails) {
  ASSERT_TRUE(provider->LoadProvider());
  FakeProvParam fake(static_cast<DWORD>(k.PP_NAME()), FixedBytes({'a', 'b', 'c'}));
  platform::ScopedPlatformOverride use(fake);
  Variant value;
  EXPECT_FALSE(Internal(provider).GetProvParam(k.PP_NAME(), value));
  EXPECT_EQ(Number(provider->m_oLastError), kErrInvalidProcedureCall);
}

TEST_F(CProviderTest, SizeQueryThatSucceedsIsUnexpected) {
  ASSERT_TRUE(provider->LoadProvider());
  FakeProvParam fake(static_cast<DWORD>(k.PP_ENUMALGS_EX()),
                     [](BYTE*, DWORD*, DWORD) -> BOOL { return TRUE; });
  platform::ScopedPlatformOverride use(fake);
  Dictionary list;
  EXPECT_FALSE(Internal(provider).GetProvParamList(k.PP_ENUMALGS_EX(), list));
  EXPECT_EQ(Number(provider->m_oLastError), GENERAL_ERROR_UNEXPECTED_ERROR);
  EXPECT_EQ(Source(provider->m_oLastError), "QUIV.CProvider.GetProvParamList");
}

TEST_F(CProviderTest, SizeQueryFailingOtherwiseIsAMemoryError) {
  ASSERT_TRUE(provider->LoadProvider());
  FakeProvParam fake(static_cast<DWORD>(k.PP_NAME()), [](BYTE*, DWORD*, DWORD) -> BOOL {
    platform::Platform().SetLastError(static_cast<DWORD>(k.NTE_BAD_UID()));
    return FALSE;
  });
  platform::ScopedPlatformOverride use(fake);
  Variant value;
  EXPECT_FALSE(Internal(provider).GetProvParam(k.PP_NAME(), value));
  EXPECT_EQ(Number(provider->m_oLastError), GENERAL_ERROR_UNABLE_TO_GET_AVAILABLE_MEMORY);
}

TEST_F(CProviderTest, AlgorithmListHasConsecutiveKeys) {
  ASSERT_TRUE(provider->LoadProvider());
  Dictionary list;
  ASSERT_TRUE(Internal(provider).GetProvParamList(k.PP_ENUMALGS_EX(), list));
  ASSERT_GT(list.Count(), 5u);
  for (size_t i = 0; i < list.Count(); ++i) {
    EXPECT_TRUE(list.Exists(static_cast<int32_t>(i))) << i;
  }
  // Every item is a whole PROV_ENUMALGS_EX record of the same size.
  const size_t size = list.Item(int32_t{0}).ToByteArray().size();
  EXPECT_GT(size, 20u);
  EXPECT_EQ(list.Item(static_cast<int32_t>(list.Count() - 1)).ToByteArray().size(), size);
}

TEST_F(CProviderTest, EnumerationItemThatGrowsFails) {
  ASSERT_TRUE(provider->LoadProvider());
  // Two items, the second longer than the first: the length offered for it is the first's.
  int item = 0;
  FakeProvParam fake(
      static_cast<DWORD>(k.PP_ENUMCONTAINERS()), [&](BYTE* data, DWORD* len, DWORD) -> BOOL {
        const std::string names[] = {"ab", "longer-name"};
        if (*len == 0) {
          *len = 32;
          platform::Platform().SetLastError(static_cast<DWORD>(k.ERROR_MORE_DATA()));
          return FALSE;
        }
        if (item == 2) {
          platform::Platform().SetLastError(static_cast<DWORD>(k.ERROR_NO_MORE_ITEMS()));
          return FALSE;
        }
        const std::string& name = names[item];
        if (*len < name.size() + 1) {
          *len = static_cast<DWORD>(name.size() + 1);
          platform::Platform().SetLastError(static_cast<DWORD>(k.ERROR_MORE_DATA()));
          return FALSE;
        }
        std::memcpy(data, name.c_str(), name.size() + 1);
        *len = static_cast<DWORD>(name.size() + 1);
        ++item;
        return TRUE;
      });
  platform::ScopedPlatformOverride use(fake);
  Dictionary list;
  EXPECT_FALSE(Internal(provider).GetProvParamList(k.PP_ENUMCONTAINERS(), list));
  EXPECT_EQ(Number(provider->m_oLastError),
            GENERAL_ERROR_CAPI_FUNCTION_UNEXPECTEDLY_NEEDED_MORE_MEMORY);
  EXPECT_EQ(list.Count(), 1u);
}

TEST_F(CProviderTest, ReleaseThatFailsStillDropsTheContext) {
  ASSERT_TRUE(provider->LoadProvider());
  test::FailingRelease fake;
  platform::ScopedPlatformOverride use(fake);
  const Variant result = provider->Clear();
  EXPECT_TRUE(result.IsEmpty());
  EXPECT_EQ(Number(provider->m_oLastError), PROVIDER_ERROR_UNABLE_TO_RELEASE_CONTEXT);
  EXPECT_EQ(Source(provider->m_oLastError), "QUIV.CProvider.Clear");
  EXPECT_FALSE(Internal(provider).HasContext());
}

TEST_F(CProviderTest, UnknownProviderTypeHasNoName) {
  ASSERT_TRUE(provider->LoadProvider());
  FakeProvParam fake(static_cast<DWORD>(k.PP_PROVTYPE()), FixedBytes({99, 0, 0, 0}));
  platform::ScopedPlatformOverride use(fake);
  String name = u"before";
  EXPECT_FALSE(provider->GetProviderTypeCode(name));
  EXPECT_EQ(name, String());
  EXPECT_EQ(Number(provider->m_oLastError), PROVIDER_ERROR_UNKNOWN_PROVIDER_TYPE);
  int32_t type = 0;
  EXPECT_TRUE(provider->GetProviderTypeID(type));
  EXPECT_EQ(type, 99);
}

TEST_F(CProviderTest, TerminationWhoseReleaseFailsIsReported) {
  ASSERT_TRUE(provider->LoadProvider());
  test::FailingRelease fake;
  platform::ScopedPlatformOverride use(fake);
  EXPECT_FALSE(provider->TerminateAll());
  EXPECT_EQ(Number(provider->m_oLastError), PROVIDER_ERROR_CLASS_TERMINATE_FAILED);
  EXPECT_EQ(Source(provider->m_oLastError), "QUIV.CProvider.TerminateAll");
  // The fake did release the real context: nothing is left for the destructor to release.
  Internal(provider).SetHasContext(false);
  provider.SetNothing();  // the destructor's second termination has nothing left to release
}

TEST(CProviderVersionTest, VersionCodeRules) {
  struct Case {
    DWORD id, major, minor;
    const char* code;
  };
  const Case cases[] = {{2, 5, 0, "2K"},  {2, 10, 0, "2K"}, {2, 4, 0, "NT"},
                        {2, 3, 51, "NT"}, {1, 4, 10, "98"}, {1, 4, 90, "98"},
                        {1, 4, 0, "95"},  {0, 4, 0, ""},    {1, 5, 1, ""}};
  for (const Case& c : cases) {
    FakeVersion fake(c.id, c.major, c.minor);
    platform::ScopedPlatformOverride use(fake);
    EXPECT_EQ(InternalAccess::SystemVersionCode<CProvider>().ToUtf8(), c.code)
        << c.id << " " << c.major << "." << c.minor;
  }
  FakeVersion failing(2, 5, 0, true);
  platform::ScopedPlatformOverride use(failing);
  EXPECT_EQ(InternalAccess::SystemVersionCode<CProvider>().ToUtf8(), "");
}

TEST(CProviderVersionTest, UnknownSystemNeverCallsThePlatform) {
  test::TempKeyStore store;
  FakeVersion fake(0, 4, 0);
  platform::ScopedPlatformOverride use(fake);
  Ref<CProvider> provider = CProvider::Create();
  ASSERT_TRUE(provider->SetProviderTypeID(k.PROV_RSA_FULL()));
  EXPECT_EQ(Internal(provider).WinVer().ToUtf8(), "");
  EXPECT_FALSE(provider->LoadProvider());
  EXPECT_EQ(fake.narrowCalls + fake.wideCalls, 0);
  EXPECT_FALSE(Internal(provider).HasContext());
  provider->TerminateAll();
}

TEST(CProviderVersionTest, NineXFamilyUsesTheNarrowEntryPointWithAnEmptyName) {
  for (const DWORD minor : {DWORD{0}, DWORD{10}}) {
    test::TempKeyStore store;
    FakeVersion fake(1, 4, minor);
    platform::ScopedPlatformOverride use(fake);
    Ref<CProvider> provider = CProvider::Create();
    ASSERT_TRUE(provider->SetProviderTypeID(k.PROV_RSA_FULL()));
    EXPECT_EQ(Internal(provider).WinVer().ToUtf8(), minor == 0 ? "95" : "98");
    ASSERT_TRUE(provider->LoadProvider());
    // The default container: a failed open, then the create.
    EXPECT_EQ(fake.narrowCalls, 2);
    EXPECT_EQ(fake.wideCalls, 0);
    EXPECT_EQ(fake.lastNarrowContainer, "");
    String name;
    EXPECT_TRUE(provider->GetProviderName(name));
    provider->TerminateAll();
  }
}

TEST(CProviderVersionTest, NtFamilyUsesTheWideEntryPoint) {
  test::TempKeyStore store;
  FakeVersion fake(2, 4, 0);
  platform::ScopedPlatformOverride use(fake);
  Ref<CProvider> provider = CProvider::Create();
  ASSERT_TRUE(provider->SetProviderTypeID(k.PROV_RSA_FULL()));
  EXPECT_EQ(Internal(provider).WinVer().ToUtf8(), "NT");
  ASSERT_TRUE(provider->LoadProvider(u"named-é", SINGLE_USER, ALL_KEYS) == false);
  EXPECT_EQ(fake.wideCalls, 1);
  EXPECT_EQ(fake.narrowCalls, 0);
  provider->TerminateAll();
}

}  // namespace
}  // namespace quiv
