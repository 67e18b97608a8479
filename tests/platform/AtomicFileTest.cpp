// AtomicFile: replacement, modes, failure clean-up, what Read accepts, stale temporaries, the
// order of the system calls that make a write durable, and removal of whatever is at a path.
#include "platform/AtomicFile.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <fstream>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

#include "platform/AtomicFileCalls.h"
#include "platform/CspError.h"
#include "platform/wincrypt.h"
#include "support/ChildProcess.h"
#include "support/PlatformTestHelpers.h"
#include "support/StoreLogRecorder.h"
#include "support/TempKeyStore.h"

namespace quiv::platform {
namespace {

namespace fs = std::filesystem;
using Bytes = std::vector<uint8_t>;

using test::ErrorOf;

mode_t ModeOf(const fs::path& path) {
  struct stat info {};
  EXPECT_EQ(0, ::lstat(path.c_str(), &info));
  return info.st_mode & 07777;
}

size_t EntriesIn(const fs::path& folder) {
  return static_cast<size_t>(
      std::distance(fs::directory_iterator(folder), fs::directory_iterator()));
}

class AtomicFileTest : public ::testing::Test {
 protected:
  void TearDown() override { AtomicFile::SetBeforeRenameHook(nullptr); }
  test::TempKeyStore m_temp;
  fs::path m_file = m_temp.folder() / "file";
};

TEST_F(AtomicFileTest, WriteCreatesAndReplacesWithMode0600) {
  const mode_t previous = ::umask(0);
  AtomicFile::Write(m_file, Bytes{1, 2, 3});
  ::umask(0377);
  AtomicFile::Write(m_file, Bytes{4, 5});
  ::umask(previous);
  EXPECT_EQ(ModeOf(m_file), 0600u);
  EXPECT_EQ(*AtomicFile::Read(m_file, 100), (SecureBytes{4, 5}));
  EXPECT_EQ(EntriesIn(m_temp.folder()), 1u);  // no temporary left behind
}

TEST_F(AtomicFileTest, WriteWithAnotherModeSetsThatModeWhateverTheUmask) {
  const mode_t previous = ::umask(0077);
  AtomicFile::Write(m_file, Bytes{1}, 0644);
  ::umask(previous);
  EXPECT_EQ(ModeOf(m_file), 0644u);
}

void FailingHook(const fs::path&) {
  throw CspError(NTE_FAIL);
}

TEST_F(AtomicFileTest, AFailedWriteLeavesTheTargetAndNoTemporary) {
  AtomicFile::Write(m_file, Bytes{1});
  AtomicFile::SetBeforeRenameHook(&FailingHook);
  EXPECT_EQ(ErrorOf([&] { AtomicFile::Write(m_file, Bytes{2}); }), static_cast<uint32_t>(NTE_FAIL));
  EXPECT_EQ(*AtomicFile::Read(m_file, 100), (SecureBytes{1}));
  EXPECT_EQ(EntriesIn(m_temp.folder()), 1u);
}

TEST_F(AtomicFileTest, WriteIntoAMissingFolderFailsCleanly) {
  EXPECT_EQ(ErrorOf([&] { AtomicFile::Write(m_temp.folder() / "no" / "file", Bytes{1}); }),
            static_cast<uint32_t>(NTE_FAIL));
  EXPECT_EQ(EntriesIn(m_temp.folder()), 0u);
}

TEST_F(AtomicFileTest, ReadRejectsWhatIsNotOneOfOurFiles) {
  EXPECT_FALSE(AtomicFile::Read(m_file, 100).has_value());
  AtomicFile::Write(m_file, Bytes(101, 7));
  const uint32_t bad = static_cast<uint32_t>(NTE_KEYSET_ENTRY_BAD);
  EXPECT_EQ(ErrorOf([&] { AtomicFile::Read(m_file, 100); }), bad);
  EXPECT_EQ(AtomicFile::Read(m_file, 101)->size(), 101u);
  const fs::path link = m_temp.folder() / "link";
  fs::create_symlink(m_file, link);
  EXPECT_EQ(ErrorOf([&] { AtomicFile::Read(link, 1000); }), bad);
  const fs::path folder = m_temp.folder() / "folder";
  fs::create_directory(folder);
  EXPECT_EQ(ErrorOf([&] { AtomicFile::Read(folder, 1000); }), bad);
  const fs::path fifo = m_temp.folder() / "fifo";
  ASSERT_EQ(0, ::mkfifo(fifo.c_str(), 0600));
  EXPECT_EQ(ErrorOf([&] { AtomicFile::Read(fifo, 1000); }), bad);  // and does not block
}

TEST_F(AtomicFileTest, RemoveReportsWhetherTheFileExisted) {
  AtomicFile::Write(m_file, Bytes{1});
  EXPECT_TRUE(AtomicFile::Remove(m_file));
  EXPECT_FALSE(AtomicFile::Remove(m_file));
  EXPECT_FALSE(fs::exists(m_file));
}

TEST_F(AtomicFileTest, MakePrivateFolderCreatesEveryLevel0700) {
  const mode_t previous = ::umask(0);
  const fs::path deep = m_temp.folder() / "a" / "b" / "c";
  AtomicFile::MakePrivateFolder(deep);
  AtomicFile::MakePrivateFolder(deep);  // existing: fine
  ::umask(previous);
  EXPECT_EQ(ModeOf(m_temp.folder() / "a"), 0700u);
  EXPECT_EQ(ModeOf(deep), 0700u);
  AtomicFile::Write(m_file, Bytes{1});
  EXPECT_EQ(ErrorOf([&] { AtomicFile::MakePrivateFolder(m_file); }),
            static_cast<uint32_t>(NTE_FAIL));
  EXPECT_EQ(ErrorOf([&] { AtomicFile::MakePrivateFolder(m_file / "below"); }),
            static_cast<uint32_t>(NTE_FAIL));
}

TEST_F(AtomicFileTest, MakeFolderGivesNewFoldersTheModeAskedFor) {
  const mode_t previous = ::umask(0077);
  AtomicFile::MakeFolder(m_temp.folder() / "shared" / "quiv", 0755);
  ::umask(previous);
  EXPECT_EQ(ModeOf(m_temp.folder() / "shared"), 0755u);
  EXPECT_EQ(ModeOf(m_temp.folder() / "shared" / "quiv"), 0755u);
  EXPECT_EQ(ModeOf(m_temp.folder()), 0700u);  // existing folders are left as they are
}

TEST_F(AtomicFileTest, StaleTemporariesAreRemovedAndNothingElse) {
  AtomicFile::Write(m_file, Bytes{1});
  std::ofstream(m_temp.folder() / (std::string(AtomicFile::kTempPrefix) + "file-1-0")) << "x";
  std::ofstream(m_temp.folder() / "tmp-not-ours") << "x";
  AtomicFile::RemoveStaleTemporaries(m_temp.folder());
  EXPECT_EQ(EntriesIn(m_temp.folder()), 2u);
  EXPECT_TRUE(fs::exists(m_file));
  EXPECT_TRUE(fs::exists(m_temp.folder() / "tmp-not-ours"));
}

TEST_F(AtomicFileTest, RemoveTakesAwayAFolderInPlaceOfAFileWithoutFollowingLinks) {
  const fs::path outside = m_temp.folder() / "outside";
  std::ofstream(outside) << "keep";
  fs::create_directories(m_file / "inner");
  std::ofstream(m_file / "inner" / "data") << "x";
  fs::create_symlink(outside, m_file / "link");
  fs::create_directory_symlink(m_temp.folder(), m_file / "inner" / "up");
  EXPECT_TRUE(AtomicFile::Remove(m_file));
  EXPECT_FALSE(fs::exists(fs::symlink_status(m_file)));
  EXPECT_TRUE(fs::exists(outside));
  EXPECT_EQ(EntriesIn(m_temp.folder()), 1u);
  // A symbolic link in place of a file: the link goes, its target stays.
  fs::create_symlink(outside, m_file);
  EXPECT_TRUE(AtomicFile::Remove(m_file));
  EXPECT_FALSE(fs::exists(fs::symlink_status(m_file)));
  EXPECT_TRUE(fs::exists(outside));
}

TEST_F(AtomicFileTest, RemoveThatCannotSaysWhyInTheLog) {
  // As root no permission applies, so the removal is refused in a child that drops it.
  fs::create_directories(m_file / "inner");
  std::ofstream(m_file / "inner" / "data") << "x";
  ASSERT_EQ(0, ::chmod(m_temp.folder().c_str(), 0777));
  const int status = test::ExitStatusOf(test::Spawn([&] {
    const test::StoreLogRecorder log;
    if (::geteuid() == 0 && ::setresuid(65534, 65534, 65534) != 0) return 10;
    if (ErrorOf([&] { AtomicFile::Remove(m_file); }) != static_cast<uint32_t>(NTE_PERM)) return 1;
    const std::string text = log.Text();
    if (text.find("cannot remove " + m_file.string()) == std::string::npos) return 2;
    if (text.find(std::strerror(EACCES)) == std::string::npos) return 3;
    return 0;
  }));
  ::chmod(m_temp.folder().c_str(), 0700);
  EXPECT_EQ(status, 0);
  EXPECT_TRUE(fs::exists(m_file / "inner" / "data"));
}

// Records, in order, the durability-relevant calls a write makes ("fsync <path>",
// "rename <from> <to>", "unlink <path>"), naming descriptors by the path they were opened on,
// and makes the calls for real.
class RecordingCalls final : public AtomicFileCalls {
 public:
  int Open(const fs::path& path, int flags, mode_t mode) override {
    const int fd = AtomicFileCalls::Open(path, flags, mode);
    if (fd >= 0) m_paths[fd] = path;
    return fd;
  }
  int Fsync(int fd) override {
    m_calls.push_back("fsync " + m_paths[fd].string());
    return AtomicFileCalls::Fsync(fd);
  }
  int Rename(const fs::path& from, const fs::path& to) override {
    m_calls.push_back("rename " + from.string() + " " + to.string());
    return AtomicFileCalls::Rename(from, to);
  }
  int Unlink(const fs::path& path) override {
    m_calls.push_back("unlink " + path.string());
    return AtomicFileCalls::Unlink(path);
  }
  const std::vector<std::string>& calls() const { return m_calls; }

 private:
  std::map<int, fs::path> m_paths;
  std::vector<std::string> m_calls;
};

class AtomicFileCallOrderTest : public AtomicFileTest {
 protected:
  void SetUp() override { AtomicFile::SetCalls(&m_recorder); }
  void TearDown() override {
    AtomicFile::SetCalls(nullptr);
    AtomicFileTest::TearDown();
  }
  RecordingCalls m_recorder;
};

// A crash may come between any two calls; only this order leaves the old or the new file whole
// and, once Write returns, the new one on disk: the temporary's data is synced before the rename
// can make it the target, and the folder is synced after the rename so that the new name lasts.
TEST_F(AtomicFileCallOrderTest, WriteSyncsTheTemporaryThenRenamesThenSyncsTheFolder) {
  AtomicFile::Write(m_file, Bytes{1, 2, 3});
  const std::vector<std::string>& calls = m_recorder.calls();
  ASSERT_EQ(calls.size(), 3u) << ::testing::PrintToString(calls);
  const std::string prefix = "fsync " + (m_temp.folder() / AtomicFile::kTempPrefix).string();
  EXPECT_TRUE(calls[0].starts_with(prefix)) << calls[0];
  const std::string temporary = calls[0].substr(6);
  EXPECT_EQ(calls[1], "rename " + temporary + " " + m_file.string());
  EXPECT_EQ(calls[2], "fsync " + m_temp.folder().string());
  EXPECT_EQ(*AtomicFile::Read(m_file, 100), (SecureBytes{1, 2, 3}));
}

TEST_F(AtomicFileCallOrderTest, RemoveUnlinksThenSyncsTheFolder) {
  std::ofstream(m_file) << "x";
  EXPECT_TRUE(AtomicFile::Remove(m_file));
  EXPECT_EQ(m_recorder.calls(), (std::vector<std::string>{"unlink " + m_file.string(),
                                                          "fsync " + m_temp.folder().string()}));
}

TEST(AtomicFileErrors, ErrnoMapsToProviderCodes) {
  EXPECT_EQ(AtomicFile::ErrorCode(EACCES), static_cast<uint32_t>(NTE_PERM));
  EXPECT_EQ(AtomicFile::ErrorCode(EPERM), static_cast<uint32_t>(NTE_PERM));
  EXPECT_EQ(AtomicFile::ErrorCode(EROFS), static_cast<uint32_t>(NTE_PERM));
  EXPECT_EQ(AtomicFile::ErrorCode(ENOMEM), static_cast<uint32_t>(NTE_NO_MEMORY));
  EXPECT_EQ(AtomicFile::ErrorCode(ENOSPC), static_cast<uint32_t>(NTE_FAIL));
  EXPECT_EQ(AtomicFile::ErrorCode(EIO), static_cast<uint32_t>(NTE_FAIL));
}

}  // namespace
}  // namespace quiv::platform
