// FileLock: exclusive excludes everything, shared admits shared, across threads and processes.
#include "platform/FileLock.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <thread>

#include "support/TempKeyStore.h"

namespace quiv::platform {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;

class FileLockTest : public ::testing::Test {
 protected:
  test::TempKeyStore m_temp;
  fs::path m_lock = m_temp.folder() / ".lock";

  // Whether a lock of `mode` taken by another thread is granted while the caller holds its lock,
  // and (when it was not) that it is granted once `release` runs.
  bool GrantedWhileHeld(FileLock::Mode mode, const std::function<void()>& release) {
    std::atomic<bool> granted{false};
    std::thread other([&] {
      FileLock lock(m_lock, mode);
      granted = true;
    });
    std::this_thread::sleep_for(150ms);
    const bool early = granted;
    release();
    other.join();
    EXPECT_TRUE(granted);
    return early;
  }
};

TEST_F(FileLockTest, ExclusiveExcludesBothKindsInOtherThreads) {
  for (const auto mode : {FileLock::Mode::Exclusive, FileLock::Mode::Shared}) {
    auto held = std::make_unique<FileLock>(m_lock, FileLock::Mode::Exclusive);
    EXPECT_FALSE(GrantedWhileHeld(mode, [&] { held.reset(); }));
  }
}

TEST_F(FileLockTest, SharedAdmitsSharedButNotExclusive) {
  auto held = std::make_unique<FileLock>(m_lock, FileLock::Mode::Shared);
  EXPECT_TRUE(GrantedWhileHeld(FileLock::Mode::Shared, [] {}));
  EXPECT_FALSE(GrantedWhileHeld(FileLock::Mode::Exclusive, [&] { held.reset(); }));
}

TEST_F(FileLockTest, ExclusiveExcludesAnotherProcess) {
  int go[2];
  int done[2];
  ASSERT_EQ(0, ::pipe(go));
  ASSERT_EQ(0, ::pipe(done));
  // Forked before the parent locks: a child that inherited the locked descriptor would hold
  // the lock itself (flock belongs to the open file description).
  const pid_t child = ::fork();
  if (child == 0) {
    char byte = 0;
    if (::read(go[0], &byte, 1) != 1) ::_exit(2);
    FileLock lock(m_lock, FileLock::Mode::Exclusive);
    ::_exit(::write(done[1], &byte, 1) == 1 ? 0 : 1);
  }
  ::close(go[0]);
  ::close(done[1]);
  auto held = std::make_unique<FileLock>(m_lock, FileLock::Mode::Exclusive);
  const char byte = 'g';
  ASSERT_EQ(::write(go[1], &byte, 1), 1);
  std::this_thread::sleep_for(150ms);
  ASSERT_EQ(::fcntl(done[0], F_SETFL, O_NONBLOCK), 0);
  char got = 0;
  EXPECT_EQ(::read(done[0], &got, 1), -1);  // nothing yet: the child is waiting
  held.reset();
  int status = 0;
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
  EXPECT_EQ(::read(done[0], &got, 1), 1);
  ::close(go[1]);
  ::close(done[0]);
}

TEST_F(FileLockTest, LockFileIsCreated0600AndNeverRemoved) {
  const mode_t previous = ::umask(0);
  { FileLock lock(m_lock, FileLock::Mode::Exclusive); }
  ::umask(previous);
  struct stat info {};
  ASSERT_EQ(0, ::stat(m_lock.c_str(), &info));
  EXPECT_EQ(info.st_mode & 07777, 0600u);
}

}  // namespace
}  // namespace quiv::platform
