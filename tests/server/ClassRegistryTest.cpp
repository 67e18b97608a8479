// The registry file on disk: where it lives, registration and unregistration by library,
// lookups, and clear errors for damaged files and failed writes.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>
#include <sstream>
#include <thread>

#include "server/ClassRegistry.h"
#include "server/GuidText.h"
#include "server/RegistryText.h"
#include "support/TempFolder.h"
#include "support/TempRegistry.h"

namespace {

using quiv::server::ClassRegistry;
using quiv::server::ParseGuid;
using quiv::server::RegistryEntry;
using quiv::server::RegistryError;
using quiv::test::MakeTempFolder;
using quiv::test::ScopedEnvironment;
using quiv::test::TempRegistry;

constexpr const char* kLibrary = "/usr/lib/x86_64-linux-gnu/libquiv.so.1";

RegistryEntry Entry(const std::string& className, const char* classId,
                    const std::string& library = kLibrary) {
  RegistryEntry e;
  e.progId = "QUIV." + className;
  e.classId = *ParseGuid(std::string_view(classId));
  e.className = className;
  e.library = library;
  e.threadingModel = "Apartment";
  e.typeLibId = *ParseGuid(std::string_view("{FC37858F-3747-44D2-8A34-C6371C2CF212}"));
  e.typeLibMajor = 1;
  e.typeLibMinor = 0;
  return e;
}

RegistryEntry Provider(const std::string& library = kLibrary) {
  return Entry("CProvider", "{11005E58-1605-4823-A111-015C80BEF343}", library);
}

RegistryEntry Constants(const std::string& library = kLibrary) {
  return Entry("CConstQUIV", "{945EDD42-5E55-4416-A74A-C6643780569C}", library);
}

std::string ReadFile(const std::filesystem::path& path) {
  std::ifstream in(path);
  std::stringstream text;
  text << in.rdbuf();
  return text.str();
}

void WriteFile(const std::filesystem::path& path, const std::string& text) {
  std::ofstream(path) << text;
}

// The HRESULT and message of the RegistryError `action` throws; S_OK when it throws nothing.
template <typename Action>
std::pair<HRESULT, std::string> ErrorOf(Action action) {
  try {
    action();
  } catch (const RegistryError& error) {
    return {error.hresult(), error.what()};
  }
  return {S_OK, ""};
}

TEST(ClassRegistryTest, AMissingFileIsAnEmptyRegistry) {
  TempRegistry temp;
  ClassRegistry registry(temp.file());
  EXPECT_TRUE(registry.Entries().empty());
  EXPECT_FALSE(registry.Find("QUIV.CProvider"));
  EXPECT_FALSE(ClassRegistry::Lookup("QUIV.CProvider"));
}

TEST(ClassRegistryTest, RegisterWritesTheTextFormReadableByAll) {
  TempRegistry temp;
  ClassRegistry registry(temp.file());
  registry.Register({Provider(), Constants()});
  EXPECT_EQ(registry.Entries(), (std::vector<RegistryEntry>{Provider(), Constants()}));
  const std::string text = ReadFile(temp.file());
  EXPECT_NE(text.find("[QUIV.CProvider]\nclsid = {11005E58-1605-4823-A111-015C80BEF343}\n"),
            std::string::npos);
  struct stat info {};
  ASSERT_EQ(::stat(temp.file().c_str(), &info), 0);
  EXPECT_EQ(info.st_mode & 0777, 0644u);
}

TEST(ClassRegistryTest, LookupByProgramIdIgnoresCase) {
  TempRegistry temp;
  ClassRegistry(temp.file()).Register({Provider(), Constants()});
  const auto found = ClassRegistry::Lookup("quiv.cprovider");
  ASSERT_TRUE(found);
  EXPECT_EQ(*found, Provider());
  EXPECT_FALSE(ClassRegistry::Lookup("QUIV.CProvider.1"));
  EXPECT_FALSE(ClassRegistry::Lookup(""));
}

TEST(ClassRegistryTest, LookupByClassIdInEitherCase) {
  TempRegistry temp;
  ClassRegistry(temp.file()).Register({Provider(), Constants()});
  const auto upper = ClassRegistry::Lookup("{945EDD42-5E55-4416-A74A-C6643780569C}");
  const auto lower = ClassRegistry::Lookup("{945edd42-5e55-4416-a74a-c6643780569c}");
  ASSERT_TRUE(upper && lower);
  EXPECT_EQ(upper->progId, "QUIV.CConstQUIV");
  EXPECT_EQ(*lower, *upper);
  EXPECT_FALSE(ClassRegistry::Lookup("{945EDD42-5E55-4416-A74A-C6643780569D}"));
  EXPECT_FALSE(ClassRegistry::Lookup("{945EDD42}"));
}

TEST(ClassRegistryTest, RegisteringAgainReplacesTheLibrarysOwnEntries) {
  TempRegistry temp;
  ClassRegistry registry(temp.file());
  registry.Register({Provider(), Constants()});
  RegistryEntry moved = Provider();
  moved.typeLibMinor = 1;
  registry.Register({moved});
  EXPECT_EQ(registry.Entries(), std::vector<RegistryEntry>{moved});
}

TEST(ClassRegistryTest, UnregisterRemovesExactlyThatLibrarysEntries) {
  TempRegistry temp;
  ClassRegistry registry(temp.file());
  const RegistryEntry other =
      Entry("Other", "{0F8070D5-C61E-425A-92B3-6D122D7E5306}", "/opt/other.so");
  registry.Register({other});
  registry.Register({Provider(), Constants()});
  EXPECT_EQ(registry.Unregister(kLibrary), 2u);
  EXPECT_EQ(registry.Entries(), std::vector<RegistryEntry>{other});
  EXPECT_EQ(registry.Unregister(kLibrary), 0u);
  EXPECT_EQ(registry.Entries(), std::vector<RegistryEntry>{other});
}

TEST(ClassRegistryTest, TheLastRegistrationOfAProgramIdWinsAndSurvivesTheLosersUnregistration) {
  TempRegistry temp;
  ClassRegistry registry(temp.file());
  registry.Register({Provider("/old/libquiv.so.1"), Constants("/old/libquiv.so.1")});
  registry.Register({Provider()});
  EXPECT_EQ(registry.Find("QUIV.CProvider")->library, kLibrary);
  EXPECT_EQ(registry.Unregister("/old/libquiv.so.1"), 1u);  // only its CConstQUIV was left
  EXPECT_EQ(registry.Entries(), std::vector<RegistryEntry>{Provider()});
}

TEST(ClassRegistryTest, AClassIdTakenByAnotherProgramIdMovesToTheNewOne) {
  TempRegistry temp;
  ClassRegistry registry(temp.file());
  registry.Register({Provider("/old/lib.so")});
  RegistryEntry renamed = Provider();
  renamed.progId = "QUIV.Provider2";
  registry.Register({renamed});
  EXPECT_EQ(registry.Entries(), std::vector<RegistryEntry>{renamed});
}

TEST(ClassRegistryTest, UnregisteringTheLastEntryRemovesTheFile) {
  TempRegistry temp;
  ClassRegistry registry(temp.file());
  registry.Register({Provider()});
  EXPECT_EQ(registry.Unregister(kLibrary), 1u);
  EXPECT_FALSE(std::filesystem::exists(temp.file()));
}

TEST(ClassRegistryTest, UnregisterWithoutAFolderCreatesNothing) {
  TempRegistry temp;
  ClassRegistry registry(temp.folder() / "missing" / "registry");
  EXPECT_EQ(registry.Unregister(kLibrary), 0u);
  EXPECT_FALSE(std::filesystem::exists(temp.folder() / "missing"));
}

TEST(ClassRegistryTest, RegisterMakesTheMissingFolders) {
  TempRegistry temp;
  ClassRegistry registry(temp.folder() / "a" / "b" / "registry");
  registry.Register({Provider()});
  EXPECT_EQ(registry.Entries().size(), 1u);
}

TEST(ClassRegistryTest, RegisteringNothingWritesNothing) {
  TempRegistry temp;
  ClassRegistry(temp.file()).Register({});
  EXPECT_FALSE(std::filesystem::exists(temp.file()));
}

TEST(ClassRegistryTest, BadEntriesAreRefusedBeforeAnythingIsWritten) {
  TempRegistry temp;
  ClassRegistry registry(temp.file());
  RegistryEntry relative = Provider();
  relative.library = "libquiv.so";
  RegistryEntry badName = Provider();
  badName.progId = "9QUIV";
  const auto [mixed, mixedMessage] = ErrorOf([&] {
    registry.Register({Provider(), Constants("/other/lib.so")});
  });
  EXPECT_EQ(mixed, E_INVALIDARG);
  EXPECT_EQ(mixedMessage, "cannot register: entries of more than one library");
  EXPECT_EQ(ErrorOf([&] { registry.Register({relative}); }).first, E_INVALIDARG);
  EXPECT_EQ(ErrorOf([&] { registry.Register({badName}); }).first, E_INVALIDARG);
  RegistryEntry twin = Constants();
  twin.progId = "quiv.CPROVIDER";
  const auto [twice, twiceMessage] = ErrorOf([&] { registry.Register({Provider(), twin}); });
  EXPECT_EQ(twice, E_INVALIDARG);
  EXPECT_NE(twiceMessage.find("given twice"), std::string::npos);
  EXPECT_FALSE(std::filesystem::exists(temp.file()));
}

TEST(ClassRegistryTest, ADamagedFileIsAClearErrorAndIsNotOverwritten) {
  TempRegistry temp;
  const std::string damaged = "quiv-registry 1\n[QUIV.CProvider]\nclsid = nonsense\n";
  WriteFile(temp.file(), damaged);
  ClassRegistry registry(temp.file());
  const auto [read, message] = ErrorOf([&] { registry.Entries(); });
  EXPECT_EQ(read, REGDB_E_READREGDB);
  EXPECT_EQ(message,
            "damaged registry " + temp.file().string() + ", line 3: not a braced GUID: 'nonsense'");
  EXPECT_EQ(ErrorOf([&] { ClassRegistry::Lookup("QUIV.CProvider"); }).first, REGDB_E_READREGDB);
  EXPECT_EQ(ErrorOf([&] { registry.Register({Provider()}); }).first, REGDB_E_READREGDB);
  EXPECT_EQ(ErrorOf([&] { registry.Unregister(kLibrary); }).first, REGDB_E_READREGDB);
  EXPECT_EQ(ReadFile(temp.file()), damaged);
}

TEST(ClassRegistryTest, AFileTooLargeOrNotAFileIsRefused) {
  TempRegistry temp;
  WriteFile(temp.file(), "quiv-registry 1\n" + std::string(ClassRegistry::kMaxFileBytes, '#'));
  EXPECT_EQ(
      ErrorOf([&] { ClassRegistry(temp.file()).Entries(); }).second,
      "cannot read the registry " + temp.file().string() + ": not a regular file or too large");
  std::filesystem::create_directory(temp.folder() / "folder");
  EXPECT_EQ(ErrorOf([&] { ClassRegistry(temp.folder() / "folder").Entries(); }).first,
            REGDB_E_READREGDB);
}

TEST(ClassRegistryTest, AFailedWriteIsAWriteErrorNamingTheFile) {
  TempRegistry temp;
  WriteFile(temp.folder() / "plain", "a file, not a folder");
  const auto file = temp.folder() / "plain" / "registry";
  const auto [code, message] = ErrorOf([&] { ClassRegistry(file).Register({Provider()}); });
  EXPECT_EQ(code, REGDB_E_WRITEREGDB);
  EXPECT_EQ(message.find("cannot write the registry " + file.string() + ": "), 0u) << message;
}

TEST(ClassRegistryTest, ConcurrentRegistrationsOfTwoLibrariesBothLand) {
  TempRegistry temp;
  constexpr int kRounds = 20;
  auto registerRepeatedly = [&](const RegistryEntry& entry) {
    for (int i = 0; i < kRounds; ++i) ClassRegistry(temp.file()).Register({entry});
  };
  std::thread first(registerRepeatedly, Provider("/one/lib.so"));
  std::thread second(registerRepeatedly, Constants("/two/lib.so"));
  first.join();
  second.join();
  EXPECT_EQ(ClassRegistry(temp.file()).Entries().size(), 2u);
}

TEST(ClassRegistryTest, TheEnvironmentVariableIsTheOnlyRegistry) {
  TempRegistry temp;
  EXPECT_EQ(ClassRegistry::SearchPath(), std::vector<std::filesystem::path>{temp.file()});
  EXPECT_EQ(ClassRegistry::DefaultWritePath(), temp.file());
}

TEST(ClassRegistryTest, WithoutItTheUsersFileComesBeforeTheMachines) {
  const ScopedEnvironment relocated("QUIV_REGISTRY", std::nullopt);
  const ScopedEnvironment config("XDG_CONFIG_HOME", "/tmp/config-home");
  EXPECT_EQ(
      ClassRegistry::SearchPath(),
      (std::vector<std::filesystem::path>{"/tmp/config-home/quiv/registry", "/etc/quiv/registry"}));
  const std::filesystem::path expected =
      ::geteuid() == 0 ? "/etc/quiv/registry" : "/tmp/config-home/quiv/registry";
  EXPECT_EQ(ClassRegistry::DefaultWritePath(), expected);
}

TEST(ClassRegistryTest, ARelativeConfigHomeIsIgnoredForHomeDotConfig) {
  const ScopedEnvironment relocated("QUIV_REGISTRY", std::nullopt);
  const ScopedEnvironment config("XDG_CONFIG_HOME", "relative/config");
  const ScopedEnvironment home("HOME", "/home/someone");
  EXPECT_EQ(ClassRegistry::SearchPath().front(), "/home/someone/.config/quiv/registry");
}

TEST(ClassRegistryTest, LookupFindsTheUsersRegistrationWithoutTheVariable) {
  const auto folder = MakeTempFolder("quiv-config-");
  {
    const ScopedEnvironment relocated("QUIV_REGISTRY", std::nullopt);
    const ScopedEnvironment config("XDG_CONFIG_HOME", folder.string());
    ClassRegistry(folder / "quiv" / "registry").Register({Provider()});
    const auto found = ClassRegistry::Lookup("QUIV.CProvider");
    ASSERT_TRUE(found);
    EXPECT_EQ(found->library, kLibrary);
  }
  std::filesystem::remove_all(folder);
}

}  // namespace
