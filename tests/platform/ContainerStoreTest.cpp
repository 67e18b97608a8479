// The key container store: the container rows of the behaviour reference (open, create, delete,
// machine and user stores, default container), names, persistence and sharing across processes,
// crash safety, damaged files and permissions. Every test gets an empty store of its own.
#include "platform/ContainerStore.h"

#include <gtest/gtest.h>
#include <pwd.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <optional>
#include <random>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "platform/AtomicFile.h"
#include "platform/CspError.h"
#include "support/ChildProcess.h"
#include "support/PlatformTestHelpers.h"
#include "support/StoreLogRecorder.h"
#include "support/TempKeyStore.h"

namespace quiv::platform {
namespace {

namespace fs = std::filesystem;
using Bytes = std::vector<uint8_t>;

constexpr uint32_t Code(LONG value) {
  return static_cast<uint32_t>(value);
}

using test::ErrorOf;

Bytes PairFor(std::string_view name, DWORD slot, uint32_t version = 0) {
  Bytes pair(40 + name.size());
  for (size_t i = 0; i < pair.size(); ++i) {
    pair[i] = static_cast<uint8_t>(i * 31 + slot * 7 + version + (i < name.size() ? name[i] : 0));
  }
  return pair;
}

Bytes ReadFile(const fs::path& path) {
  std::ifstream in(path, std::ios::binary);
  return Bytes(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

void WriteFile(const fs::path& path, const Bytes& bytes) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out.write(reinterpret_cast<const char*>(bytes.data()),
            static_cast<std::streamsize>(bytes.size()));
}

std::vector<fs::path> ContainerFiles(const fs::path& folder) {
  std::vector<fs::path> files;
  for (const auto& entry : fs::directory_iterator(folder)) {
    if (entry.path().extension() == ".key") files.push_back(entry.path());
  }
  return files;
}

mode_t ModeOf(const fs::path& path) {
  struct stat info {};
  EXPECT_EQ(0, ::lstat(path.c_str(), &info)) << path;
  return info.st_mode & 07777;
}

using test::ExitStatusOf;
using test::Spawn;

class ContainerStoreTest : public ::testing::Test {
 protected:
  test::TempKeyStore m_temp;
  ContainerStore m_user{StoreScope::User};
  ContainerStore m_machine{StoreScope::Machine};
};

// ---- Locations ----------------------------------------------------------------------------

TEST_F(ContainerStoreTest, EnvironmentRelocatesBothStores) {
  EXPECT_EQ(m_user.folder(), m_temp.folder() / "user");
  EXPECT_EQ(m_machine.folder(), m_temp.folder() / "machine");
  EXPECT_EQ(m_user.scope(), StoreScope::User);
  EXPECT_EQ(m_machine.scope(), StoreScope::Machine);
}

// Saves and restores the variables the default locations depend on.
class EnvironmentGuard final {
 public:
  EnvironmentGuard() {
    for (const char* name : kNames) {
      const char* value = std::getenv(name);
      m_saved.emplace_back(name, value ? std::optional<std::string>(value) : std::nullopt);
    }
  }
  ~EnvironmentGuard() {
    for (const auto& [name, value] : m_saved) {
      if (value) {
        ::setenv(name, value->c_str(), 1);
      } else {
        ::unsetenv(name);
      }
    }
  }

 private:
  static constexpr const char* kNames[] = {"QUIV_KEY_STORE", "XDG_DATA_HOME", "HOME"};
  std::vector<std::pair<const char*, std::optional<std::string>>> m_saved;
};

TEST_F(ContainerStoreTest, DefaultLocationsFollowXdgAndHome) {
  const EnvironmentGuard guard;
  ::unsetenv("QUIV_KEY_STORE");
  ::setenv("XDG_DATA_HOME", "/data/xdg", 1);
  ::setenv("HOME", "/home/someone", 1);
  EXPECT_EQ(ContainerStore(StoreScope::User).folder(), fs::path("/data/xdg/quiv/keys"));
  EXPECT_EQ(ContainerStore(StoreScope::Machine).folder(), fs::path("/var/lib/quiv/keys"));
  ::setenv("XDG_DATA_HOME", "relative/ignored", 1);
  EXPECT_EQ(ContainerStore::DefaultFolder(StoreScope::User),
            fs::path("/home/someone/.local/share/quiv/keys"));
  ::unsetenv("XDG_DATA_HOME");
  EXPECT_EQ(ContainerStore::DefaultFolder(StoreScope::User),
            fs::path("/home/someone/.local/share/quiv/keys"));
  ::setenv("QUIV_KEY_STORE", "/srv/keys", 1);
  EXPECT_EQ(ContainerStore::DefaultFolder(StoreScope::User), fs::path("/srv/keys/user"));
  EXPECT_EQ(ContainerStore::DefaultFolder(StoreScope::Machine), fs::path("/srv/keys/machine"));
}

TEST_F(ContainerStoreTest, NothingIsWrittenUntilTheFirstChange) {
  EXPECT_FALSE(m_user.Exists("a"));
  EXPECT_TRUE(m_user.List().empty());
  EXPECT_EQ(ErrorOf([&] { m_user.Open("a"); }), Code(NTE_BAD_KEYSET));
  EXPECT_FALSE(fs::exists(m_user.folder()));
}

// ---- The container rows ---------------------------------------------------------------------

TEST_F(ContainerStoreTest, OpeningAMissingContainerIsBadKeyset) {
  m_user.Create("other");  // the folder exists, the container does not
  for (ContainerStore* store : {&m_user, &m_machine}) {
    EXPECT_EQ(ErrorOf([&] { store->Open("missing"); }), Code(NTE_BAD_KEYSET));
    EXPECT_EQ(ErrorOf([&] { store->LoadPair("missing", AT_SIGNATURE); }), Code(NTE_BAD_KEYSET));
    EXPECT_EQ(ErrorOf([&] { store->StorePair("missing", AT_SIGNATURE, Bytes{1}); }),
              Code(NTE_BAD_KEYSET));
    EXPECT_FALSE(store->Exists("missing"));
  }
}

TEST_F(ContainerStoreTest, NewContainerIsEmptyAndListedAtOnce) {
  for (ContainerStore* store : {&m_user, &m_machine}) {
    EXPECT_EQ(store->Create("Fresh"), "Fresh");
    EXPECT_TRUE(store->Exists("Fresh"));
    EXPECT_EQ(store->List(), std::vector<std::string>{"Fresh"});
    const ContainerFile opened = store->Open("Fresh");
    EXPECT_EQ(opened.name(), "Fresh");
    EXPECT_FALSE(opened.Pair(AT_KEYEXCHANGE).has_value());
    EXPECT_FALSE(store->LoadPair("Fresh", AT_SIGNATURE).has_value());
  }
}

TEST_F(ContainerStoreTest, CreatingAnExistingContainerIsExists) {
  const Bytes pair = PairFor("twice", AT_SIGNATURE);
  m_user.Create("twice");
  m_user.StorePair("twice", AT_SIGNATURE, pair);
  EXPECT_EQ(ErrorOf([&] { m_user.Create("twice"); }), Code(NTE_EXISTS));
  // The existing container is untouched.
  EXPECT_EQ(*m_user.LoadPair("twice", AT_SIGNATURE), SecureBytes(pair.begin(), pair.end()));
}

TEST_F(ContainerStoreTest, DeletingAMissingContainerIsBadKeyset) {
  EXPECT_EQ(ErrorOf([&] { m_user.Delete("nothing"); }), Code(NTE_BAD_KEYSET));  // no folder
  m_user.Create("something");
  EXPECT_EQ(ErrorOf([&] { m_user.Delete("nothing"); }), Code(NTE_BAD_KEYSET));
  EXPECT_TRUE(m_user.Exists("something"));
}

TEST_F(ContainerStoreTest, DeleteThenReopenFailsAndRecreateIsEmpty) {
  m_user.Create("gone");
  m_user.StorePair("gone", AT_KEYEXCHANGE, PairFor("gone", AT_KEYEXCHANGE));
  m_user.Delete("gone");
  EXPECT_EQ(ErrorOf([&] { m_user.Open("gone"); }), Code(NTE_BAD_KEYSET));
  EXPECT_EQ(ErrorOf([&] { m_user.Delete("gone"); }), Code(NTE_BAD_KEYSET));
  EXPECT_TRUE(m_user.List().empty());
  EXPECT_TRUE(ContainerFiles(m_user.folder()).empty());
  m_user.Create("gone");
  EXPECT_FALSE(m_user.LoadPair("gone", AT_KEYEXCHANGE).has_value());
}

TEST_F(ContainerStoreTest, MachineAndUserStoresAreSeparate) {
  m_machine.Create("shared-name");
  EXPECT_FALSE(m_user.Exists("shared-name"));
  EXPECT_EQ(ErrorOf([&] { m_user.Open("shared-name"); }), Code(NTE_BAD_KEYSET));
  EXPECT_TRUE(m_user.List().empty());
  EXPECT_NO_THROW(m_machine.Open("shared-name"));
  // A reopened store object sees the same machine container.
  EXPECT_TRUE(ContainerStore(StoreScope::Machine).Exists("shared-name"));

  m_user.Create("shared-name");
  m_user.StorePair("shared-name", AT_SIGNATURE, Bytes{1, 2, 3});
  EXPECT_FALSE(m_machine.LoadPair("shared-name", AT_SIGNATURE).has_value());
  m_machine.Delete("shared-name");
  EXPECT_EQ(ErrorOf([&] { m_machine.Open("shared-name"); }), Code(NTE_BAD_KEYSET));
  EXPECT_TRUE(m_user.LoadPair("shared-name", AT_SIGNATURE).has_value());
}

std::string LoginNameFromId() {
  FILE* pipe = ::popen("id -un 2>/dev/null", "r");
  if (pipe == nullptr) return {};
  std::array<char, 512> line{};
  std::string name = std::fgets(line.data(), line.size(), pipe) ? line.data() : "";
  ::pclose(pipe);
  while (!name.empty() && (name.back() == '\n' || name.back() == '\r')) name.pop_back();
  return name;
}

TEST_F(ContainerStoreTest, DefaultContainerIsNamedAfterTheUserAndBehavesNormally) {
  const std::string name = ContainerStore::DefaultContainerName();
  const std::string expected = LoginNameFromId();
  ASSERT_FALSE(expected.empty());
  EXPECT_EQ(name, expected);

  m_user.Create(name);
  m_user.Delete(name);
  EXPECT_EQ(ErrorOf([&] { m_user.Open(name); }), Code(NTE_BAD_KEYSET));
  m_user.Create(name);
  EXPECT_EQ(m_user.List(), std::vector<std::string>{name});
}

// ---- Names ----------------------------------------------------------------------------------

TEST_F(ContainerStoreTest, NamesAreCaseInsensitiveAndKeepTheirSpelling) {
  m_user.Create("MyKeys");
  EXPECT_TRUE(m_user.Exists("MYKEYS"));
  EXPECT_EQ(ErrorOf([&] { m_user.Create("mykeys"); }), Code(NTE_EXISTS));
  EXPECT_EQ(m_user.Open("mYkEyS").name(), "MyKeys");
  m_user.StorePair("mykeys", AT_KEYEXCHANGE, Bytes{4, 5});
  EXPECT_EQ(*m_user.LoadPair("MYKEYS", AT_KEYEXCHANGE), (SecureBytes{4, 5}));
  EXPECT_EQ(m_user.List(), std::vector<std::string>{"MyKeys"});
  EXPECT_EQ(ContainerFiles(m_user.folder()).size(), 1u);
  m_user.Delete("MYKEYS");
  EXPECT_FALSE(m_user.Exists("MyKeys"));
}

TEST_F(ContainerStoreTest, OnlyAsciiLettersAreFolded) {
  m_user.Create("\xC3\x84rger");  // "Ärger" in UTF-8
  m_user.Create("\xC3\xA4rger");  // "ärger": another byte, another name
  EXPECT_EQ(m_user.List().size(), 2u);
  EXPECT_TRUE(m_user.Exists("\xC3\x84RGER"));
}

TEST_F(ContainerStoreTest, AnyBytesUpTo260AreAName) {
  std::string longest;
  for (int i = 0; i < 260; ++i) longest.push_back(static_cast<char>(1 + (i * 7) % 255));
  const std::vector<std::string> names = {longest, "/",    "..",       "../../escape", "a/b\\c",
                                          " ",     "\n\t", "\xFF\xFE", ".lock",        ".tmp-x"};
  for (const auto& name : names) EXPECT_EQ(m_user.Create(name), name) << name;
  auto listed = m_user.List();
  std::sort(listed.begin(), listed.end());
  auto expected = names;
  std::sort(expected.begin(), expected.end());
  EXPECT_EQ(listed, expected);
  // Every container is a file directly inside the store folder, whatever its name.
  EXPECT_EQ(ContainerFiles(m_user.folder()).size(), names.size());
  EXPECT_FALSE(fs::exists(m_temp.folder() / "escape"));
  for (const auto& name : names) EXPECT_EQ(m_user.Open(name).name(), name);
}

TEST_F(ContainerStoreTest, BadNamesAreBadKeyset) {
  const std::string tooLong(261, 'x');
  const std::string withNul("a\0b", 3);
  for (const std::string& name : {std::string(), tooLong, withNul}) {
    EXPECT_EQ(ErrorOf([&] { m_user.Create(name); }), Code(NTE_BAD_KEYSET));
    EXPECT_EQ(ErrorOf([&] { m_user.Open(name); }), Code(NTE_BAD_KEYSET));
    EXPECT_EQ(ErrorOf([&] { m_user.Exists(name); }), Code(NTE_BAD_KEYSET));
    EXPECT_EQ(ErrorOf([&] { m_user.Delete(name); }), Code(NTE_BAD_KEYSET));
  }
}

TEST_F(ContainerStoreTest, ListOrderIsStableWhateverTheCreationOrder) {
  std::vector<std::string> names = {"delta", "Alpha", "charlie", "Bravo", "echo", "_x", "0"};
  std::mt19937 random(7);
  std::optional<std::vector<std::string>> first;
  for (int round = 0; round < 3; ++round) {
    std::shuffle(names.begin(), names.end(), random);
    for (const auto& n : names) m_user.Create(n);
    const auto listed = m_user.List();
    if (first) {
      EXPECT_EQ(listed, *first);
    }
    first = listed;
    for (const auto& n : names) m_user.Delete(n);
  }
  EXPECT_EQ(*first,
            (std::vector<std::string>{"0", "_x", "Alpha", "Bravo", "charlie", "delta", "echo"}));
}

// ---- Key pairs ------------------------------------------------------------------------------

TEST_F(ContainerStoreTest, PairsFillTheirSlotAndKeepTheOther) {
  m_user.Create("pairs");
  const Bytes exchange = PairFor("pairs", AT_KEYEXCHANGE);
  const Bytes signature = PairFor("pairs", AT_SIGNATURE);
  m_user.StorePair("pairs", AT_KEYEXCHANGE, exchange);
  EXPECT_FALSE(m_user.LoadPair("pairs", AT_SIGNATURE).has_value());
  m_user.StorePair("pairs", AT_SIGNATURE, signature);
  EXPECT_EQ(*m_user.LoadPair("pairs", AT_KEYEXCHANGE),
            SecureBytes(exchange.begin(), exchange.end()));
  const Bytes replaced = PairFor("pairs", AT_KEYEXCHANGE, 1);
  m_user.StorePair("pairs", AT_KEYEXCHANGE, replaced);
  EXPECT_EQ(*m_user.LoadPair("pairs", AT_KEYEXCHANGE),
            SecureBytes(replaced.begin(), replaced.end()));
  EXPECT_EQ(*m_user.LoadPair("pairs", AT_SIGNATURE),
            SecureBytes(signature.begin(), signature.end()));
}

TEST_F(ContainerStoreTest, BadSlotOrOversizedPairIsRejectedBeforeTheDisk) {
  m_user.Create("slots");
  EXPECT_EQ(ErrorOf([&] { m_user.StorePair("slots", 0, Bytes{1}); }), Code(NTE_BAD_KEY));
  EXPECT_EQ(ErrorOf([&] { m_user.StorePair("slots", 3, Bytes{1}); }), Code(NTE_BAD_KEY));
  EXPECT_EQ(ErrorOf([&] { m_user.LoadPair("slots", 3); }), Code(NTE_BAD_KEY));
  const Bytes huge(ContainerFile::kMaxPairBytes + 1);
  EXPECT_EQ(ErrorOf([&] { m_user.StorePair("slots", AT_SIGNATURE, huge); }), Code(NTE_BAD_LEN));
  EXPECT_FALSE(m_user.LoadPair("slots", AT_SIGNATURE).has_value());
}

// ---- Unique container name --------------------------------------------------------------------

TEST_F(ContainerStoreTest, UniqueContainerNameIsDigestWordsAndMachineGuid) {
  const std::string unique = ContainerStore::UniqueContainerName("example");
  EXPECT_EQ(unique.substr(0, 33), "059e0890f9d1bebb853da53fcacb895f_");
  EXPECT_EQ(unique.size(), 69u);  // 70 with the NUL
  const std::string guid = ContainerStore::MachineGuid();
  EXPECT_EQ(unique.substr(33), guid);
  ASSERT_EQ(guid.size(), 36u);
  for (size_t i : {8u, 13u, 18u, 23u}) EXPECT_EQ(guid[i], '-');
  std::ifstream id("/etc/machine-id");
  std::string line;
  if (id && std::getline(id, line) && line.size() == 32) {
    std::string plain = guid;
    std::erase(plain, '-');
    EXPECT_EQ(plain, line);
  }
}

// ---- Permissions ----------------------------------------------------------------------------

TEST_F(ContainerStoreTest, FilesAre0600AndFoldersAre0700WhateverTheUmask) {
  for (const mode_t mask : {mode_t{0}, mode_t{077}, mode_t{0277}}) {
    const mode_t previous = ::umask(mask);
    const fs::path root = m_temp.folder() / ("umask" + std::to_string(mask));
    ContainerStore store(StoreScope::User, root / "a" / "b");
    store.Create("perm");
    store.StorePair("perm", AT_SIGNATURE, Bytes{1, 2});
    ::umask(previous);
    EXPECT_EQ(ModeOf(root), 0700u);
    EXPECT_EQ(ModeOf(root / "a"), 0700u);
    EXPECT_EQ(ModeOf(root / "a" / "b"), 0700u);
    EXPECT_EQ(ModeOf(root / "a" / "b" / ".lock"), 0600u);
    const auto files = ContainerFiles(root / "a" / "b");
    ASSERT_EQ(files.size(), 1u);
    EXPECT_EQ(ModeOf(files[0]), 0600u);
  }
}

TEST_F(ContainerStoreTest, AStoreTheUserCannotWriteIsPerm) {
  m_user.Create("root-only");
  ASSERT_EQ(0, ::chmod(m_temp.folder().c_str(), 0711));
  ASSERT_EQ(0, ::chmod(m_user.folder().c_str(), 0500));
  // As root, permission checks do not apply: drop to another user in a child to see them.
  const pid_t child = Spawn([&]() -> int {
    if (::geteuid() == 0 && ::setresuid(65534, 65534, 65534) != 0) return 10;
    ContainerStore store(StoreScope::User, m_user.folder());
    if (ErrorOf([&] { store.Create("new"); }) != Code(NTE_PERM)) return 1;
    if (ErrorOf([&] { store.Delete("root-only"); }) != Code(NTE_PERM)) return 2;
    if (ErrorOf([&] { store.StorePair("root-only", 1, Bytes{1}); }) != Code(NTE_PERM)) return 3;
    return 0;
  });
  EXPECT_EQ(ExitStatusOf(child), 0);
  ::chmod(m_user.folder().c_str(), 0700);
  EXPECT_TRUE(m_user.Exists("root-only"));
}

// ---- The store folder -----------------------------------------------------------------------

// Every operation on `store` fails with `code` (Exists, Open, List, Create, StorePair, Delete).
void ExpectEveryOperationFails(ContainerStore& store, uint32_t code) {
  EXPECT_EQ(ErrorOf([&] { store.Exists("c"); }), code);
  EXPECT_EQ(ErrorOf([&] { store.Open("c"); }), code);
  EXPECT_EQ(ErrorOf([&] { store.List(); }), code);
  EXPECT_EQ(ErrorOf([&] { store.Create("new"); }), code);
  EXPECT_EQ(ErrorOf([&] { store.StorePair("c", AT_SIGNATURE, Bytes{1}); }), code);
  EXPECT_EQ(ErrorOf([&] { store.LoadPair("c", AT_SIGNATURE); }), code);
  EXPECT_EQ(ErrorOf([&] { store.Delete("c"); }), code);
}

TEST_F(ContainerStoreTest, AStoreFolderThatIsASymbolicLinkIsRefused) {
  const test::StoreLogRecorder log;
  const fs::path elsewhere = m_temp.folder() / "elsewhere";
  ContainerStore real(StoreScope::User, elsewhere);
  real.Create("c");
  fs::create_directory_symlink(elsewhere, m_user.folder());
  ExpectEveryOperationFails(m_user, Code(NTE_PERM));
  EXPECT_NE(log.Text().find(m_user.folder().string() + ": it is a symbolic link"),
            std::string::npos)
      << log.Text();
  EXPECT_EQ(real.List(), std::vector<std::string>{"c"});  // nothing was done through the link
  EXPECT_EQ(ContainerFiles(elsewhere).size(), 1u);
}

TEST_F(ContainerStoreTest, AStoreFolderOthersMayWriteToIsRefusedAndLeftAsItIs) {
  for (const mode_t mode : {mode_t{0777}, mode_t{0720}, mode_t{0702}}) {
    const test::StoreLogRecorder log;
    fs::create_directories(m_user.folder());
    ASSERT_EQ(0, ::chmod(m_user.folder().c_str(), mode));
    ExpectEveryOperationFails(m_user, Code(NTE_PERM));
    EXPECT_EQ(ModeOf(m_user.folder()), mode);
    char octal[8];
    std::snprintf(octal, sizeof octal, "%04o", static_cast<unsigned>(mode));
    EXPECT_NE(log.Text().find("group or others may write to it (mode " + std::string(octal)),
              std::string::npos)
        << log.Text();
    fs::remove(m_user.folder());
  }
}

TEST_F(ContainerStoreTest, AStoreFolderOwnedByAnotherUserIsRefused) {
  if (::geteuid() != 0) GTEST_SKIP() << "giving a folder to another user needs root";
  const test::StoreLogRecorder log;
  fs::create_directories(m_user.folder());
  ASSERT_EQ(0, ::chmod(m_user.folder().c_str(), 0755));
  ASSERT_EQ(0, ::chown(m_user.folder().c_str(), 65534, 65534));
  ExpectEveryOperationFails(m_user, Code(NTE_PERM));
  EXPECT_NE(log.Text().find("it belongs to uid 65534, not to this user (uid 0)"), std::string::npos)
      << log.Text();
  EXPECT_EQ(ModeOf(m_user.folder()), 0755u);  // not ours to repair
}

TEST_F(ContainerStoreTest, AStoreFolderOthersMayOnlyReadIsMadePrivate) {
  const test::StoreLogRecorder log;
  m_user.Create("kept");
  ASSERT_EQ(0, ::chmod(m_user.folder().c_str(), 0755));
  EXPECT_EQ(m_user.List(), std::vector<std::string>{"kept"});
  EXPECT_EQ(ModeOf(m_user.folder()), 0700u);
  EXPECT_NE(log.Text().find(m_user.folder().string() + " had mode 0755; set to 0700"),
            std::string::npos)
      << log.Text();
  // A folder that exists before the first container is checked by Create the same way.
  fs::create_directories(m_machine.folder());
  ASSERT_EQ(0, ::chmod(m_machine.folder().c_str(), 0750));
  m_machine.Create("first");
  EXPECT_EQ(ModeOf(m_machine.folder()), 0700u);
}

TEST_F(ContainerStoreTest, AFileInPlaceOfTheStoreFolderIsFail) {
  const test::StoreLogRecorder log;
  fs::create_directories(m_user.folder().parent_path());
  WriteFile(m_user.folder(), Bytes{1});
  ExpectEveryOperationFails(m_user, Code(NTE_FAIL));
  EXPECT_NE(log.Text().find("it is not a folder"), std::string::npos) << log.Text();
}

// ---- Deleting whatever is at a container's path ---------------------------------------------

TEST_F(ContainerStoreTest, DeletingAContainerReplacedByAFolderRemovesTheFolder) {
  m_user.Create("Folded");
  const auto files = ContainerFiles(m_user.folder());
  ASSERT_EQ(files.size(), 1u);
  const fs::path outside = m_temp.folder() / "outside";
  WriteFile(outside, Bytes{9});
  fs::remove(files[0]);
  fs::create_directories(files[0] / "sub");
  WriteFile(files[0] / "sub" / "file", Bytes{1});
  fs::create_symlink(outside, files[0] / "link");
  m_user.Delete("folded");
  EXPECT_FALSE(fs::exists(fs::symlink_status(files[0])));
  EXPECT_EQ(ReadFile(outside), Bytes{9});
  EXPECT_EQ(ErrorOf([&] { m_user.Delete("folded"); }), Code(NTE_BAD_KEYSET));
  m_user.Create("folded");  // the name is usable again
  EXPECT_EQ(m_user.List(), std::vector<std::string>{"folded"});
}

TEST_F(ContainerStoreTest, DeletingAContainerReplacedByASymbolicLinkRemovesOnlyTheLink) {
  m_user.Create("linked");
  const auto files = ContainerFiles(m_user.folder());
  ASSERT_EQ(files.size(), 1u);
  const fs::path target = m_temp.folder() / "target";
  fs::rename(files[0], target);
  fs::create_symlink(target, files[0]);
  m_user.Delete("linked");
  EXPECT_FALSE(fs::exists(fs::symlink_status(files[0])));
  EXPECT_TRUE(fs::exists(target));
}

TEST_F(ContainerStoreTest, ADeleteThatCannotRemoveThePathSaysWhy) {
  if (::geteuid() != 0) GTEST_SKIP() << "needs root to build a folder the user cannot empty";
  // The user's own store holds, at the container's path, a folder of root's it cannot empty.
  m_user.Create("stuck");
  const auto files = ContainerFiles(m_user.folder());
  ASSERT_EQ(files.size(), 1u);
  fs::remove(files[0]);
  fs::create_directories(files[0] / "roots");
  WriteFile(files[0] / "roots" / "file", Bytes{1});
  ASSERT_EQ(0, ::chmod(m_temp.folder().c_str(), 0711));
  ASSERT_EQ(0, ::chown(m_user.folder().c_str(), 65534, 65534));
  ASSERT_EQ(0, ::chown(files[0].c_str(), 65534, 65534));
  ASSERT_EQ(0, ::chown((m_user.folder() / ".lock").c_str(), 65534, 65534));
  const pid_t child = Spawn([&]() -> int {
    const test::StoreLogRecorder log;
    if (::setresuid(65534, 65534, 65534) != 0) return 10;
    ContainerStore store(StoreScope::User, m_user.folder());
    if (ErrorOf([&] { store.Delete("stuck"); }) != Code(NTE_PERM)) return 1;
    const std::string text = log.Text();
    if (text.find("cannot remove " + files[0].string()) == std::string::npos) return 2;
    if (text.find(std::strerror(EACCES)) == std::string::npos) return 3;
    return 0;
  });
  EXPECT_EQ(ExitStatusOf(child), 0);
  EXPECT_TRUE(fs::exists(files[0] / "roots" / "file"));
  ::chown(m_user.folder().c_str(), 0, 0);
}

// ---- Stale temporary files ------------------------------------------------------------------

TEST_F(ContainerStoreTest, CreatingAContainerRemovesStaleTemporaries) {
  m_user.Create("first");
  const fs::path stale = m_user.folder() / (std::string(AtomicFile::kTempPrefix) + "x-1-0");
  WriteFile(stale, Bytes{1, 2, 3});
  m_user.Create("second");
  EXPECT_FALSE(fs::exists(stale));
  EXPECT_EQ(m_user.List(), (std::vector<std::string>{"first", "second"}));
}

// ---- Damaged files --------------------------------------------------------------------------

class DamagedContainerTest : public ContainerStoreTest,
                             public ::testing::WithParamInterface<const char*> {};

Bytes Damage(const std::string& kind, Bytes file) {
  if (kind == "flipped") file[file.size() / 2] ^= 0x40;
  if (kind == "truncated") file.resize(file.size() - 1);
  if (kind == "header-only") file.resize(24);
  if (kind == "empty") file.clear();
  if (kind == "garbage") {
    std::mt19937 random(99);
    for (auto& b : file) b = static_cast<uint8_t>(random());
  }
  if (kind == "extended") file.push_back(0);
  return file;
}

TEST_P(DamagedContainerTest, IsKeysetEntryBadAndLeftInPlace) {
  m_user.Create("healthy");
  m_user.Create("Damaged");
  m_user.StorePair("Damaged", AT_SIGNATURE, PairFor("Damaged", AT_SIGNATURE));
  const fs::path path = [&] {
    for (const auto& f : ContainerFiles(m_user.folder())) {
      if (ReadFile(f).size() > 100) return f;
    }
    return fs::path();
  }();
  ASSERT_FALSE(path.empty());
  const Bytes damaged = Damage(GetParam(), ReadFile(path));
  WriteFile(path, damaged);

  const uint32_t bad = Code(NTE_KEYSET_ENTRY_BAD);
  EXPECT_EQ(ErrorOf([&] { m_user.Open("damaged"); }), bad);
  EXPECT_EQ(ErrorOf([&] { m_user.LoadPair("damaged", AT_SIGNATURE); }), bad);
  EXPECT_EQ(ErrorOf([&] { m_user.StorePair("damaged", AT_KEYEXCHANGE, Bytes{1}); }), bad);
  EXPECT_EQ(ErrorOf([&] { m_user.Create("damaged"); }), Code(NTE_EXISTS));
  EXPECT_TRUE(m_user.Exists("damaged"));
  EXPECT_EQ(m_user.List(), std::vector<std::string>{"healthy"});
  EXPECT_EQ(ReadFile(path), damaged);                     // nothing above replaced it
  m_user.StorePair("healthy", AT_KEYEXCHANGE, Bytes{7});  // other writes leave it too
  EXPECT_EQ(ReadFile(path), damaged);

  // Deleting it by name is how a user gets the name back.
  m_user.Delete("damaged");
  EXPECT_FALSE(fs::exists(path));
  m_user.Create("damaged");
  EXPECT_FALSE(m_user.LoadPair("damaged", AT_SIGNATURE).has_value());
}

INSTANTIATE_TEST_SUITE_P(Kinds, DamagedContainerTest,
                         ::testing::Values("flipped", "truncated", "header-only", "empty",
                                           "garbage", "extended"));

TEST_F(ContainerStoreTest, AFileUnderAnotherContainersNameIsNotThatContainer) {
  m_user.Create("first");
  m_user.Create("second");
  m_user.StorePair("first", AT_SIGNATURE, Bytes{1});
  auto files = ContainerFiles(m_user.folder());
  ASSERT_EQ(files.size(), 2u);
  const Bytes a = ReadFile(files[0]);
  WriteFile(files[1], a);  // both files now hold the same container
  const uint32_t results =
      ErrorOf([&] { m_user.Open("first"); }) | ErrorOf([&] { m_user.Open("second"); });
  EXPECT_EQ(results, Code(NTE_KEYSET_ENTRY_BAD));
  EXPECT_EQ(m_user.List().size(), 1u);
}

TEST_F(ContainerStoreTest, ASymbolicLinkOrFolderInPlaceOfAFileIsKeysetEntryBad) {
  m_user.Create("linked");
  const auto files = ContainerFiles(m_user.folder());
  ASSERT_EQ(files.size(), 1u);
  const fs::path target = m_temp.folder() / "elsewhere";
  fs::rename(files[0], target);
  fs::create_symlink(target, files[0]);
  EXPECT_EQ(ErrorOf([&] { m_user.Open("linked"); }), Code(NTE_KEYSET_ENTRY_BAD));
  EXPECT_EQ(ErrorOf([&] { m_user.StorePair("linked", 1, Bytes{1}); }), Code(NTE_KEYSET_ENTRY_BAD));
  EXPECT_TRUE(fs::is_symlink(files[0]));
  fs::remove(files[0]);
  fs::create_directory(files[0]);
  EXPECT_EQ(ErrorOf([&] { m_user.Open("linked"); }), Code(NTE_KEYSET_ENTRY_BAD));
  EXPECT_TRUE(m_user.List().empty());
}

// ---- Processes ------------------------------------------------------------------------------

TEST_F(ContainerStoreTest, ContainersPersistAcrossProcesses) {
  const pid_t writer = Spawn([] {
    ContainerStore user(StoreScope::User);
    ContainerStore machine(StoreScope::Machine);
    user.Create("From Child");
    user.StorePair("from child", AT_SIGNATURE, PairFor("From Child", AT_SIGNATURE));
    machine.Create("machine child");
    return 0;
  });
  ASSERT_EQ(ExitStatusOf(writer), 0);
  EXPECT_EQ(m_user.List(), std::vector<std::string>{"From Child"});
  const Bytes expected = PairFor("From Child", AT_SIGNATURE);
  EXPECT_EQ(*m_user.LoadPair("FROM CHILD", AT_SIGNATURE),
            SecureBytes(expected.begin(), expected.end()));
  EXPECT_TRUE(m_machine.Exists("machine child"));

  m_user.StorePair("From Child", AT_KEYEXCHANGE, Bytes{42});
  const pid_t reader = Spawn([] {
    ContainerStore user(StoreScope::User);
    const auto pair = user.LoadPair("from child", AT_KEYEXCHANGE);
    if (!pair || *pair != SecureBytes{42}) return 1;
    user.Delete("From Child");
    return 0;
  });
  ASSERT_EQ(ExitStatusOf(reader), 0);
  EXPECT_FALSE(m_user.Exists("From Child"));
}

// ASCII case folding, as the store compares names.
std::string Folded(std::string name) {
  for (char& c : name) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return name;
}

// One worker of the concurrency tests: `operations` random operations on shared names (any of
// create / delete / store / open may meet the other worker's changes), its own private names
// (created, filled, never deleted: none may be lost) and one slot of a shared container that the
// other worker updates in the other slot (a lost read-modify-write would drop one of them).
// Returns 0, or the step that failed.
int Worker(int id, int operations) {
  ContainerStore store(StoreScope::User);
  std::mt19937 random(static_cast<uint32_t>(1000 + id));
  const DWORD mySlot = id == 0 ? AT_KEYEXCHANGE : AT_SIGNATURE;
  auto allowed = [](const std::function<void()>& action, std::initializer_list<LONG> codes) {
    const uint32_t code = ErrorOf(action);
    if (code == 0) return true;
    return std::any_of(codes.begin(), codes.end(), [&](LONG c) { return Code(c) == code; });
  };
  for (int i = 0; i < operations; ++i) {
    const std::string shared =
        (random() % 2 ? "Shared-" : "shared-") + std::to_string(random() % 6);
    const std::string mine = "private-" + std::to_string(id) + "-" + std::to_string(i);
    bool ok = true;
    switch (i % 5) {
      case 0:
        ok = allowed([&] { store.Create(shared); }, {NTE_EXISTS});
        break;
      case 1:
        ok = allowed([&] { store.Delete(shared); }, {NTE_BAD_KEYSET});
        break;
      case 2:
        ok = allowed([&] { store.StorePair(shared, mySlot, PairFor(Folded(shared), mySlot)); },
                     {NTE_BAD_KEYSET});
        break;
      case 3: {
        bool same = true;
        ok = allowed(
            [&] {
              const auto pair = store.LoadPair(shared, mySlot);
              const Bytes expected = PairFor(Folded(shared), mySlot);
              same = !pair || *pair == SecureBytes(expected.begin(), expected.end());
            },
            {NTE_BAD_KEYSET});
        ok = ok && same;
        break;
      }
      case 4:
        ok = allowed(
            [&] {
              store.Create(mine);
              store.StorePair(mine, mySlot, PairFor(mine, mySlot));
              store.StorePair("both", mySlot, PairFor("both", mySlot, static_cast<uint32_t>(i)));
            },
            {});
        break;
    }
    if (!ok) return 1 + i;
  }
  return 0;
}

void CheckAfterWorkers(const ContainerStore& store, int workers, int operations) {
  const int last = (operations - 5) / 5 * 5 + 4;  // the last step i with i % 5 == 4
  for (int id = 0; id < workers; ++id) {
    const DWORD slot = id == 0 ? AT_KEYEXCHANGE : AT_SIGNATURE;
    for (int i = 4; i < operations; i += 5) {
      const std::string mine = "private-" + std::to_string(id) + "-" + std::to_string(i);
      const Bytes expected = PairFor(mine, slot);
      const auto pair = store.LoadPair(mine, slot);
      ASSERT_TRUE(pair.has_value()) << mine;
      EXPECT_EQ(*pair, SecureBytes(expected.begin(), expected.end())) << mine;
    }
    // Both workers' last writes to their own slot of "both" survive.
    const Bytes expected = PairFor("both", slot, static_cast<uint32_t>(last));
    const auto both = store.LoadPair("both", slot);
    ASSERT_TRUE(both.has_value());
    EXPECT_EQ(*both, SecureBytes(expected.begin(), expected.end())) << "slot " << slot;
  }
  // Every file left parses, and holds what its writers wrote.
  size_t parsed = 0;
  for (const auto& name : store.List()) {
    const ContainerFile file = store.Open(name);
    ++parsed;
    if (name.starts_with("private") || name == "both") continue;
    for (DWORD slot : {DWORD{AT_KEYEXCHANGE}, DWORD{AT_SIGNATURE}}) {
      const auto& pair = file.Pair(slot);
      const Bytes expected = PairFor(Folded(name), slot);
      if (pair) {
        EXPECT_EQ(*pair, SecureBytes(expected.begin(), expected.end())) << name;
      }
    }
  }
  EXPECT_EQ(parsed, ContainerFiles(store.folder()).size());
  for (const auto& entry : fs::directory_iterator(store.folder())) {
    const std::string file = entry.path().filename().string();
    EXPECT_TRUE(file == ".lock" || entry.path().extension() == ".key") << file;
  }
}

TEST_F(ContainerStoreTest, TwoProcessesChangingTheStoreAtOnceLoseNothing) {
  constexpr int kOperations = 200;
  m_user.Create("both");
  const pid_t a = Spawn([] { return Worker(0, kOperations); });
  const pid_t b = Spawn([] { return Worker(1, kOperations); });
  EXPECT_EQ(ExitStatusOf(a), 0);
  EXPECT_EQ(ExitStatusOf(b), 0);
  CheckAfterWorkers(m_user, 2, kOperations);
}

TEST_F(ContainerStoreTest, TwoThreadsChangingTheStoreAtOnceLoseNothing) {
  constexpr int kOperations = 100;
  m_user.Create("both");
  int resultA = -1;
  int resultB = -1;
  std::thread a([&] { resultA = Worker(0, kOperations); });
  std::thread b([&] { resultB = Worker(1, kOperations); });
  a.join();
  b.join();
  EXPECT_EQ(resultA, 0);
  EXPECT_EQ(resultB, 0);
  CheckAfterWorkers(m_user, 2, kOperations);
}

// ---- Killed writers -------------------------------------------------------------------------

int g_hookPipe = -1;

// Tells the parent the temporary file is complete, then waits to be killed.
void StopBeforeRename(const fs::path&) {
  const char ready = 'r';
  (void)!::write(g_hookPipe, &ready, 1);
  for (;;) ::pause();
}

TEST_F(ContainerStoreTest, AWriterKilledBeforeRenameLeavesTheOldContainerWhole) {
  m_user.Create("Survivor");
  const Bytes old = PairFor("Survivor", AT_SIGNATURE, 1);
  m_user.StorePair("Survivor", AT_SIGNATURE, old);

  int fds[2];
  ASSERT_EQ(0, ::pipe(fds));
  const pid_t child = Spawn([&] {
    g_hookPipe = fds[1];
    AtomicFile::SetBeforeRenameHook(&StopBeforeRename);
    ContainerStore(StoreScope::User)
        .StorePair("survivor", AT_SIGNATURE, PairFor("Survivor", AT_SIGNATURE, 2));
    return 3;  // the hook never returns
  });
  ::close(fds[1]);  // so the read ends if the child exits without reaching the hook
  char ready = 0;
  const ssize_t got = ::read(fds[0], &ready, 1);
  ::close(fds[0]);
  ::kill(child, SIGKILL);
  ASSERT_EQ(got, 1) << "the writer never reached the point before the rename";
  EXPECT_EQ(ExitStatusOf(child), 128 + SIGKILL);

  // The child stopped with a complete new file beside the old one.
  std::vector<fs::path> temporaries;
  for (const auto& entry : fs::directory_iterator(m_user.folder())) {
    if (entry.path().filename().string().starts_with(AtomicFile::kTempPrefix)) {
      temporaries.push_back(entry.path());
    }
  }
  ASSERT_EQ(temporaries.size(), 1u);
  const Bytes written = ReadFile(temporaries[0]);
  const Bytes newer = PairFor("Survivor", AT_SIGNATURE, 2);
  EXPECT_EQ(*ContainerFile::Decode(written).Pair(AT_SIGNATURE),
            SecureBytes(newer.begin(), newer.end()));

  EXPECT_EQ(*m_user.LoadPair("Survivor", AT_SIGNATURE), SecureBytes(old.begin(), old.end()));
  EXPECT_EQ(m_user.List(), std::vector<std::string>{"Survivor"});
  // The next writer clears the leftover temporary file.
  m_user.StorePair("Survivor", AT_KEYEXCHANGE, Bytes{1});
  EXPECT_FALSE(fs::exists(temporaries[0]));
}

TEST_F(ContainerStoreTest, WritersKilledAtRandomMomentsLeaveAWholeContainer) {
  constexpr uint32_t kVersions = 2000;
  m_user.Create("Busy");
  m_user.StorePair("Busy", AT_SIGNATURE, PairFor("Busy", AT_SIGNATURE, 0));
  std::set<SecureBytes> possible;
  for (uint32_t v = 0; v <= kVersions; ++v) {
    const Bytes pair = PairFor("Busy", AT_SIGNATURE, v);
    possible.emplace(pair.begin(), pair.end());
  }
  std::mt19937 random(5);
  for (int round = 0; round < 15; ++round) {
    int fds[2];
    ASSERT_EQ(0, ::pipe(fds));
    const pid_t child = Spawn([&] {
      ContainerStore store(StoreScope::User);
      for (uint32_t v = 1; v <= kVersions; ++v) {
        store.StorePair("Busy", AT_SIGNATURE, PairFor("Busy", AT_SIGNATURE, v));
        if (v == 1) {
          const char started = 's';
          (void)!::write(fds[1], &started, 1);
        }
      }
      return 0;
    });
    ::close(fds[1]);
    char started = 0;
    const ssize_t got = ::read(fds[0], &started, 1);
    ::close(fds[0]);
    // Killed somewhere in the middle of the writing loop, at a different moment each round.
    ::usleep(random() % 3000);
    ::kill(child, SIGKILL);
    EXPECT_EQ(ExitStatusOf(child), 128 + SIGKILL) << "the writer finished before the kill";
    ASSERT_EQ(got, 1);
    const auto pair = m_user.LoadPair("Busy", AT_SIGNATURE);
    ASSERT_TRUE(pair.has_value());
    EXPECT_TRUE(possible.contains(*pair)) << "round " << round;
  }
}

}  // namespace
}  // namespace quiv::platform
