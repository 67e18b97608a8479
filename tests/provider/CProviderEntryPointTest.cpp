// What CProvider hands the version query and the two acquisition entry points: the record size,
// the 9x rule for a major version other than 4, and the container and provider names as
// zero-terminated strings (empty ones never as null pointers).
#include "ProviderFakes.h"

#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <string>

#include "constants/CConstQUIV.h"
#include "provider/CProvider.h"
#include "support/InternalAccess.h"
#include "support/TempKeyStore.h"

namespace quiv {
namespace {

using test::FakeVersion;

const CConstQUIV k;

class CProviderEntryPointTest : public ::testing::Test {
 protected:
  // A provider made while the fake answers the version query (the code is read at creation).
  void Start(DWORD platformId, DWORD major, DWORD minor) {
    fake.emplace(platformId, major, minor);
    m_use = std::make_unique<platform::ScopedPlatformOverride>(*fake);
    provider = CProvider::Create();
    ASSERT_TRUE(provider->SetProviderTypeID(k.PROV_RSA_FULL()));
  }
  void TearDown() override {
    if (provider) provider->TerminateAll();
    m_use.reset();
  }

  test::QuietLog m_quiet;
  platform::ScopedPlatformOverride m_quietUse{m_quiet};
  test::TempKeyStore store;
  std::optional<FakeVersion> fake;
  std::unique_ptr<platform::ScopedPlatformOverride> m_use;
  Ref<CProvider> provider;
};

TEST_F(CProviderEntryPointTest, TheVersionQueryGetsARecordOfSize148) {
  Start(2, 5, 0);
  EXPECT_EQ(fake->versionInfoSize, 148u);
}

TEST_F(CProviderEntryPointTest, TheNineXRulesNeedNoMajorVersionFour) {
  const struct {
    DWORD major, minor;
    const char* code;
  } cases[] = {{5, 0, "95"}, {3, 0, "95"}, {5, 10, ""}, {3, 95, ""}};
  for (const auto& c : cases) {
    FakeVersion version(1, c.major, c.minor);
    platform::ScopedPlatformOverride use(version);
    EXPECT_EQ(InternalAccess::SystemVersionCode<CProvider>().ToUtf8(), c.code)
        << c.major << "." << c.minor;
  }
}

TEST_F(CProviderEntryPointTest, NineFiveWithMajorFiveUsesTheNarrowEntryPoint) {
  Start(1, 5, 0);
  EXPECT_EQ(Internal(provider).WinVer().ToUtf8(), "95");
  ASSERT_TRUE(provider->LoadProvider());
  EXPECT_GT(fake->narrowCalls, 0);
  EXPECT_EQ(fake->wideCalls, 0);
}

TEST_F(CProviderEntryPointTest, TheWideEntryPointGetsEmptyStringsNotNullPointers) {
  Start(2, 5, 0);
  ASSERT_TRUE(provider->LoadProvider());
  ASSERT_GT(fake->wideCalls, 0);
  EXPECT_EQ(fake->lastWideContainer, u"");
  EXPECT_EQ(fake->lastWideProvider, u"");
}

TEST_F(CProviderEntryPointTest, TheWideEntryPointGetsTheNamesAsUtf16) {
  Start(2, 5, 0);
  ASSERT_TRUE(provider->SetProviderName(k.MS_ENHANCED_PROV()));
  EXPECT_FALSE(provider->LoadProvider(u"named-\u00e9"));  // no such container yet
  EXPECT_EQ(fake->lastWideContainer, u"named-\u00e9");
  EXPECT_EQ(fake->lastWideProvider, k.MS_ENHANCED_PROV().u16());
}

TEST_F(CProviderEntryPointTest, TheNarrowEntryPointGetsEmptyStringsNotNullPointers) {
  Start(1, 4, 10);
  ASSERT_TRUE(provider->LoadProvider());
  ASSERT_GT(fake->narrowCalls, 0);
  EXPECT_EQ(fake->lastNarrowContainer, "");
  EXPECT_EQ(fake->lastNarrowProvider, "");
}

TEST_F(CProviderEntryPointTest, TheNarrowEntryPointGetsTheNamesInTheAnsiCodePage) {
  Start(1, 4, 10);
  ASSERT_TRUE(provider->SetProviderName(k.MS_DEF_PROV()));
  EXPECT_FALSE(provider->LoadProvider(u"named-\u00e9"));
  // The system code page here is UTF-8.
  EXPECT_EQ(fake->lastNarrowContainer, "named-\xC3\xA9");
  EXPECT_EQ(fake->lastNarrowProvider, k.MS_DEF_PROV().ToUtf8());
}

}  // namespace
}  // namespace quiv
