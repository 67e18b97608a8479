#include "platform/PlatformSeam.h"

#include <gtest/gtest.h>

#include <vector>

#include "platform/ForwardingPlatform.h"
#include "platform/RealPlatform.h"
#include "platform/wincrypt.h"

namespace quiv::platform {
namespace {

// Fails CryptGenRandom with NTE_FAIL and counts the calls; everything else forwards.
class FailingRandom final : public ForwardingPlatform {
 public:
  using ForwardingPlatform::ForwardingPlatform;
  BOOL CryptGenRandom(HCRYPTPROV, DWORD, BYTE*) override {
    ++calls;
    SetLastError(static_cast<DWORD>(NTE_FAIL));
    return FALSE;
  }
  int calls = 0;
};

// Refuses every acquisition with NTE_BAD_KEYSET.
class NoContexts final : public ForwardingPlatform {
 public:
  using ForwardingPlatform::ForwardingPlatform;
  BOOL CryptAcquireContextW(HCRYPTPROV*, LPCWSTR, LPCWSTR, DWORD, DWORD) override {
    SetLastError(static_cast<DWORD>(NTE_BAD_KEYSET));
    return FALSE;
  }
};

TEST(PlatformSeamTest, DefaultIsTheRealProvider) {
  EXPECT_EQ(&Platform(), &DefaultPlatform());
  EXPECT_NE(dynamic_cast<RealPlatform*>(&Platform()), nullptr);
}

TEST(PlatformSeamTest, RealPlatformReachesTheCFunctions) {
  IPlatform& platform = Platform();
  HCRYPTPROV prov = 0;
  ASSERT_TRUE(
      platform.CryptAcquireContextA(&prov, nullptr, nullptr, PROV_RSA_FULL, CRYPT_VERIFYCONTEXT));
  std::vector<BYTE> random(32, 0);
  EXPECT_TRUE(platform.CryptGenRandom(prov, 32, random.data()));
  EXPECT_NE(random, std::vector<BYTE>(32, 0));
  EXPECT_TRUE(platform.CryptReleaseContext(prov, 0));
  // The same table as the C functions: the handle is gone for both.
  EXPECT_FALSE(::CryptReleaseContext(prov, 0));
  EXPECT_EQ(platform.GetLastError(), static_cast<DWORD>(ERROR_INVALID_PARAMETER));
  platform.SetLastError(1234);
  EXPECT_EQ(::GetLastError(), 1234u);
}

TEST(PlatformSeamTest, OverrideInjectsOneFaultAndForwardsTheRest) {
  FailingRandom fake(DefaultPlatform());
  {
    const ScopedPlatformOverride use(fake);
    IPlatform& platform = Platform();
    EXPECT_EQ(&platform, &fake);
    HCRYPTPROV prov = 0;
    ASSERT_TRUE(
        platform.CryptAcquireContextW(&prov, nullptr, nullptr, PROV_RSA_FULL, CRYPT_VERIFYCONTEXT));
    BYTE buffer[8] = {};
    EXPECT_FALSE(platform.CryptGenRandom(prov, sizeof buffer, buffer));
    EXPECT_EQ(platform.GetLastError(), static_cast<DWORD>(NTE_FAIL));
    EXPECT_EQ(fake.calls, 1);
    DWORD type = 0;
    DWORD length = sizeof type;
    EXPECT_TRUE(
        platform.CryptGetProvParam(prov, PP_PROVTYPE, reinterpret_cast<BYTE*>(&type), &length, 0));
    EXPECT_EQ(type, static_cast<DWORD>(PROV_RSA_FULL));
    EXPECT_TRUE(platform.CryptReleaseContext(prov, 0));
  }
  EXPECT_EQ(&Platform(), &DefaultPlatform());
}

TEST(PlatformSeamTest, OverridesNestAndRestoreInReverseOrder) {
  FailingRandom outer(DefaultPlatform());
  NoContexts inner(outer);  // stacks: acquisition fails here, random fails in `outer`
  {
    const ScopedPlatformOverride useOuter(outer);
    {
      const ScopedPlatformOverride useInner(inner);
      EXPECT_EQ(&Platform(), &inner);
      HCRYPTPROV prov = 0;
      EXPECT_FALSE(Platform().CryptAcquireContextW(&prov, nullptr, nullptr, PROV_RSA_FULL,
                                                   CRYPT_VERIFYCONTEXT));
      EXPECT_EQ(Platform().GetLastError(), static_cast<DWORD>(NTE_BAD_KEYSET));
      BYTE b = 0;
      EXPECT_FALSE(Platform().CryptGenRandom(1, 1, &b));
      EXPECT_EQ(outer.calls, 1);
    }
    EXPECT_EQ(&Platform(), &outer);
  }
  EXPECT_EQ(&Platform(), &DefaultPlatform());
}

TEST(PlatformSeamTest, VersionQueryThroughTheSeam) {
  OSVERSIONINFOA info{};
  info.dwOSVersionInfoSize = sizeof info;
  ASSERT_TRUE(Platform().GetVersionExA(&info));
  EXPECT_EQ(info.dwPlatformId, static_cast<DWORD>(VER_PLATFORM_WIN32_NT));
  EXPECT_GE(info.dwMajorVersion, 5u);
}

}  // namespace
}  // namespace quiv::platform
