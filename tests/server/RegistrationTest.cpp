// Registration on Linux: DllRegisterServer writes every class of the library into the registry
// file (program id, class id, this library's path, the type library's identity and version),
// creation by program id goes through it, and DllUnregisterServer removes exactly its entries.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "server/ClassRegistry.h"
#include "server/ClassResolver.h"
#include "server/ClassTables.h"
#include "server/DispatchClient.h"
#include "server/quiv_server.h"
#include "support/TempRegistry.h"

namespace quiv::test {
namespace {

using server::ClassRegistry;
using server::RegistryEntry;

RegistryEntry Foreign(const char* progId, const char* clsid, const char* library) {
  RegistryEntry entry;
  entry.progId = progId;
  CLSIDFromString(std::u16string(clsid, clsid + 38).c_str(), &entry.classId);
  entry.className = "Thing";
  entry.library = library;
  entry.threadingModel = "Apartment";
  entry.typeLibId = entry.classId;
  entry.typeLibMajor = 1;
  return entry;
}

TEST(RegistrationTest, RegisterWritesEveryClassWithTheLibraryAndTypeLibrary) {
  TempRegistry registry;
  ASSERT_EQ(DllRegisterServer(), S_OK);
  ASSERT_TRUE(std::filesystem::exists(registry.file()));
  const std::vector<RegistryEntry> entries = ClassRegistry(registry.file()).Entries();
  ASSERT_EQ(entries.size(), server::AllClassTables().size());
  const std::string library = server::LibraryPath();
  EXPECT_FALSE(library.empty());
  for (const RegistryEntry& entry : entries) {
    EXPECT_EQ(entry.progId, "QUIV." + entry.className);
    EXPECT_EQ(entry.library, library);
    EXPECT_EQ(entry.threadingModel, "Apartment");
    OLECHAR text[39];
    StringFromGUID2(&entry.typeLibId, text, 39);
    EXPECT_EQ(std::u16string(text), u"{FC37858F-3747-44D2-8A34-C6371C2CF212}");
    EXPECT_EQ(entry.typeLibMajor, 1);
    EXPECT_EQ(entry.typeLibMinor, 0);
  }
  const std::optional<RegistryEntry> provider = ClassRegistry::Lookup("quiv.cprovider");
  ASSERT_TRUE(provider);
  OLECHAR text[39];
  StringFromGUID2(&provider->classId, text, 39);
  EXPECT_EQ(std::u16string(text), u"{11005E58-1605-4823-A111-015C80BEF343}");
  // Registering again replaces, never duplicates.
  ASSERT_EQ(DllRegisterServer(), S_OK);
  EXPECT_EQ(ClassRegistry(registry.file()).Entries().size(), entries.size());
}

TEST(RegistrationTest, CreationByNameGoesThroughTheRegistry) {
  TempRegistry registry;
  ASSERT_EQ(DllRegisterServer(), S_OK);
  Disp record;
  EXPECT_EQ(QuivCreateObject(u"QUIV.CErrHandler", record.out()), S_OK);
  EXPECT_TRUE(record);
  Disp byId;
  EXPECT_EQ(QuivCreateObject(u"{7AC637FB-A8E6-413B-AE3F-A0C0D17603C6}", byId.out()), S_OK);
  EXPECT_TRUE(byId);
  Disp container;
  EXPECT_EQ(QuivCreateObject(u"QUIV.CContainer", container.out()), CLASS_E_CLASSNOTAVAILABLE);
}

TEST(RegistrationTest, AClassOfALibraryThatCannotBeLoadedIsReported) {
  TempRegistry registry;
  ClassRegistry(registry.file())
      .Register({Foreign("Other.Thing", "{00000000-1111-2222-3333-444444444444}",
                         "/nonexistent/libother.so")});
  Disp thing;
  EXPECT_EQ(QuivCreateObject(u"Other.Thing", thing.out()), CO_E_DLLNOTFOUND);
  EXPECT_FALSE(thing);
  EXPECT_EQ(QuivCreateObject(u"Other.Nothing", thing.out()), REGDB_E_CLASSNOTREG);
}

TEST(RegistrationTest, UnregisterRemovesExactlyTheLibrarysOwnEntries) {
  TempRegistry registry;
  const RegistryEntry other =
      Foreign("Other.Thing", "{00000000-1111-2222-3333-444444444444}", "/usr/lib/libother.so");
  ClassRegistry(registry.file()).Register({other});
  ASSERT_EQ(DllRegisterServer(), S_OK);
  EXPECT_EQ(ClassRegistry(registry.file()).Entries().size(), server::AllClassTables().size() + 1);
  ASSERT_EQ(DllUnregisterServer(), S_OK);
  const std::vector<RegistryEntry> left = ClassRegistry(registry.file()).Entries();
  ASSERT_EQ(left.size(), 1u);
  EXPECT_EQ(left[0], other);
  // Nothing registered: the library's own classes still answer.
  Disp record;
  EXPECT_EQ(QuivCreateObject(u"QUIV.CErrHandler", record.out()), S_OK);
}

TEST(RegistrationTest, ADamagedRegistryIsAnErrorNotAGuess) {
  TempRegistry registry;
  {
    std::FILE* file = std::fopen(registry.file().c_str(), "w");
    ASSERT_NE(file, nullptr);
    std::fputs("this is not a registry\n", file);
    std::fclose(file);
  }
  Disp record;
  EXPECT_EQ(QuivCreateObject(u"QUIV.CErrHandler", record.out()), REGDB_E_READREGDB);
  EXPECT_EQ(DllRegisterServer(), REGDB_E_READREGDB);
}

}  // namespace
}  // namespace quiv::test
