// AtomicFile: replacement, modes, failure clean-up, what Read accepts, stale temporaries.
#include "platform/AtomicFile.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>
#include <stdexcept>
#include <vector>

#include "platform/CspError.h"
#include "platform/wincrypt.h"
#include "support/PlatformTestHelpers.h"
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
