// CProvider: two first users of the default container at once. On an empty store LoadProvider
// opens the default container, finds none and creates it; when another thread or process
// creates it in between, the create fails with NTE_EXISTS and the provider opens it again
// instead of failing. Shown deterministically through the platform seam (the other creator wins
// the race inside the create call), then with real threads and real processes.
#include "ProviderFakes.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cstdint>
#include <thread>
#include <vector>

#include "constants/CConstQUIV.h"
#include "errors/QuivError.h"
#include "platform/ForwardingPlatform.h"
#include "platform/PlatformSeam.h"
#include "provider/CContainer.h"
#include "provider/CProvider.h"
#include "support/QuietLog.h"
#include "support/RecordMatchers.h"
#include "support/TempKeyStore.h"

namespace quiv {
namespace {

const CConstQUIV k;
const auto* const kQuiet = ::testing::AddGlobalTestEnvironment(new test::QuietEnvironment);

// Lets another creator make the container just before the provider's own create call, as a
// second thread or process does when it wins the race. It can also refuse the reopen.
class RaceWinner final : public platform::ForwardingPlatform {
 public:
  RaceWinner() : ForwardingPlatform(platform::Platform()) {}

  BOOL CryptAcquireContextW(HCRYPTPROV* p, LPCWSTR c, LPCWSTR n, DWORD t, DWORD f) override {
    flags.push_back(f);
    if ((f & static_cast<DWORD>(k.CRYPT_NEWKEYSET())) != 0 && !raced) {
      raced = true;
      HCRYPTPROV other = 0;
      if (ForwardingPlatform::CryptAcquireContextW(&other, c, n, t, f)) {
        ForwardingPlatform::CryptReleaseContext(other, 0);
      }
    } else if (raced && refuseReopen) {
      SetLastError(static_cast<DWORD>(k.NTE_BAD_KEYSET()));
      return FALSE;
    }
    return ForwardingPlatform::CryptAcquireContextW(p, c, n, t, f);
  }

  bool raced = false;
  bool refuseReopen = false;
  std::vector<DWORD> flags;
};

Ref<CProvider> NewProvider() {
  Ref<CProvider> provider = CProvider::Create();
  EXPECT_TRUE(provider->SetProviderTypeID(k.PROV_RSA_FULL()));
  EXPECT_TRUE(provider->SetProviderName(k.MS_ENHANCED_PROV()));
  return provider;
}

class CProviderFirstUseTest : public ::testing::Test {
 protected:
  test::TempKeyStore m_store;
};

TEST_F(CProviderFirstUseTest, ACreateBeatenByAnotherCreatorOpensTheContainer) {
  RaceWinner platform;
  platform::ScopedPlatformOverride use(platform);
  Ref<CProvider> provider = NewProvider();
  ASSERT_TRUE(provider->LoadProvider()) << provider->m_oLastError->LastError().ToUtf8();
  EXPECT_TRUE(platform.raced);
  // Open (none yet), create (beaten: NTE_EXISTS), open again.
  const auto newKeyset = static_cast<DWORD>(k.CRYPT_NEWKEYSET());
  ASSERT_EQ(platform.flags.size(), 3u);
  EXPECT_EQ(platform.flags[0] & newKeyset, 0u);
  EXPECT_NE(platform.flags[1] & newKeyset, 0u);
  EXPECT_EQ(platform.flags[2] & newKeyset, 0u);
  Ref<CContainer> container;
  ASSERT_TRUE(provider->GetContainerObject(container));
  String name;
  EXPECT_TRUE(container->GetContainerName(name));
  EXPECT_FALSE(name.IsEmpty());
  provider->TerminateAll();
}

TEST_F(CProviderFirstUseTest, AReopenThatFailsStillReportsTheCreate) {
  RaceWinner platform;
  platform.refuseReopen = true;
  platform::ScopedPlatformOverride use(platform);
  Ref<CProvider> provider = NewProvider();
  EXPECT_FALSE(provider->LoadProvider());
  Ref<CContainer> container;
  EXPECT_FALSE(provider->GetContainerObject(container));  // no context was kept
  provider->TerminateAll();
}

TEST_F(CProviderFirstUseTest, ACreateThatFailsForAnotherReasonIsNotRetried) {
  class RefusesCreate final : public platform::ForwardingPlatform {
   public:
    RefusesCreate() : ForwardingPlatform(platform::Platform()) {}
    BOOL CryptAcquireContextW(HCRYPTPROV* p, LPCWSTR c, LPCWSTR n, DWORD t, DWORD f) override {
      ++calls;
      if ((f & static_cast<DWORD>(k.CRYPT_NEWKEYSET())) != 0) {
        SetLastError(static_cast<DWORD>(k.NTE_FAIL()));
        return FALSE;
      }
      return ForwardingPlatform::CryptAcquireContextW(p, c, n, t, f);
    }
    int calls = 0;
  } platform;
  platform::ScopedPlatformOverride use(platform);
  Ref<CProvider> provider = NewProvider();
  EXPECT_FALSE(provider->LoadProvider());
  EXPECT_EQ(platform.calls, 2);  // open, create; no reopen
  provider->TerminateAll();
}

constexpr int kRounds = 20;
constexpr int kUsers = 4;

// Every user of the round waits at the gate, then loads the provider on the empty store.
TEST_F(CProviderFirstUseTest, ThreadsThatAllLoadTheDefaultContainerFirstAllSucceed) {
  for (int round = 0; round < kRounds; ++round) {
    test::TempKeyStore store;  // empty again
    std::atomic<int> waiting{kUsers};
    std::atomic<int> failures{0};
    std::vector<std::thread> users;
    for (int i = 0; i < kUsers; ++i) {
      users.emplace_back([&] {
        // Each thread has its own objects: they are single-threaded.
        Ref<CProvider> provider = NewProvider();
        waiting.fetch_sub(1);
        while (waiting.load() > 0) std::this_thread::yield();
        if (!provider->LoadProvider()) failures.fetch_add(1);
        provider->TerminateAll();
      });
    }
    for (std::thread& user : users) user.join();
    ASSERT_EQ(failures.load(), 0) << "round " << round;
  }
}

TEST_F(CProviderFirstUseTest, ProcessesThatAllLoadTheDefaultContainerFirstAllSucceed) {
  for (int round = 0; round < kRounds; ++round) {
    test::TempKeyStore store;
    int gate[2];
    ASSERT_EQ(pipe(gate), 0);
    std::vector<pid_t> users;
    for (int i = 0; i < kUsers; ++i) {
      const pid_t pid = fork();
      ASSERT_GE(pid, 0);
      if (pid == 0) {
        close(gate[1]);
        Ref<CProvider> provider = NewProvider();
        char go = 0;
        // The gate opens for everyone at once when the parent closes its end.
        const bool opened = read(gate[0], &go, 1) == 0;
        const bool ok = opened && provider->LoadProvider();
        provider->TerminateAll();
        _exit(ok ? 0 : 1);
      }
      users.push_back(pid);
    }
    close(gate[0]);
    close(gate[1]);
    int failures = 0;
    for (pid_t pid : users) {
      int status = 0;
      ASSERT_EQ(waitpid(pid, &status, 0), pid);
      if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) ++failures;
    }
    ASSERT_EQ(failures, 0) << "round " << round;
  }
}

}  // namespace
}  // namespace quiv
