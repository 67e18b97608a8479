// The registry file's text form: the documented example reads as written, the canonical form
// round-trips, and every deviation is refused with the line that has it.
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

#include "server/GuidText.h"
#include "server/RegistryText.h"

namespace {

using quiv::server::FormatGuid;
using quiv::server::RegistryEntry;
using quiv::server::RegistryText;

constexpr const char* kProvider = R"(# a comment
quiv-registry 1

[QUIV.CProvider]
clsid = {11005E58-1605-4823-A111-015C80BEF343}
class = CProvider
library = /usr/lib/x86_64-linux-gnu/libquiv.so.1
threading = Apartment
typelib = {FC37858F-3747-44D2-8A34-C6371C2CF212}
version = 1.0
)";

// The text of one section with `line` replacing the line that starts like it (or added).
std::string WithLine(const std::string& key, const std::string& line) {
  std::string text = kProvider;
  const size_t at = text.find("\n" + key + " ");
  if (at == std::string::npos) return text + line + "\n";
  const size_t end = text.find('\n', at + 1);
  return text.replace(at + 1, end - at - 1, line);
}

// The message of the parse failure, or "" when `text` parsed.
std::string Failure(const std::string& text) {
  try {
    RegistryText::Parse(text);
  } catch (const std::invalid_argument& error) {
    return error.what();
  }
  return "";
}

RegistryEntry Provider() {
  return RegistryText::Parse(kProvider).front();
}

TEST(RegistryTextTest, ReadsTheDocumentedExample) {
  const auto entries = RegistryText::Parse(kProvider);
  ASSERT_EQ(entries.size(), 1u);
  const RegistryEntry& e = entries[0];
  EXPECT_EQ(e.progId, "QUIV.CProvider");
  EXPECT_EQ(FormatGuid(e.classId), "{11005E58-1605-4823-A111-015C80BEF343}");
  EXPECT_EQ(e.className, "CProvider");
  EXPECT_EQ(e.library, "/usr/lib/x86_64-linux-gnu/libquiv.so.1");
  EXPECT_EQ(e.threadingModel, "Apartment");
  EXPECT_EQ(FormatGuid(e.typeLibId), "{FC37858F-3747-44D2-8A34-C6371C2CF212}");
  EXPECT_EQ(e.typeLibMajor, 1);
  EXPECT_EQ(e.typeLibMinor, 0);
}

TEST(RegistryTextTest, FormatWritesTheCanonicalForm) {
  const std::string text = RegistryText::Format({Provider()});
  const std::string section =
      "quiv-registry 1\n"
      "\n"
      "[QUIV.CProvider]\n"
      "clsid = {11005E58-1605-4823-A111-015C80BEF343}\n"
      "class = CProvider\n"
      "library = /usr/lib/x86_64-linux-gnu/libquiv.so.1\n"
      "threading = Apartment\n"
      "typelib = {FC37858F-3747-44D2-8A34-C6371C2CF212}\n"
      "version = 1.0\n";
  ASSERT_GE(text.size(), section.size());
  EXPECT_EQ(text.substr(text.size() - section.size()), section);
  EXPECT_EQ(text.front(), '#');
}

TEST(RegistryTextTest, RoundTripsSeveralEntriesInOrder) {
  RegistryEntry second = Provider();
  second.progId = "QUIV.CConstQUIV";
  second.className = "CConstQUIV";
  second.classId =
      *quiv::server::ParseGuid(std::string_view("{945EDD42-5E55-4416-A74A-C6643780569C}"));
  second.threadingModel = "Both";
  second.typeLibMajor = 65535;
  second.typeLibMinor = 7;
  const std::vector<RegistryEntry> entries = {Provider(), second};
  EXPECT_EQ(RegistryText::Parse(RegistryText::Format(entries)), entries);
}

TEST(RegistryTextTest, NoEntriesIsTheMarkerAlone) {
  EXPECT_TRUE(RegistryText::Parse(RegistryText::Format({})).empty());
  EXPECT_TRUE(RegistryText::Parse("quiv-registry 1").empty());
}

TEST(RegistryTextTest, BlanksCommentsCarriageReturnsAndKeyOrderDoNotMatter) {
  const std::string text =
      "\r\n  # heading\r\n  quiv-registry 1  \r\n\t[ QUIV.CProvider ]\r\n"
      "version=1.0\r\n  library\t=  /usr/lib/libquiv.so.1 \r\n# between\r\nthreading = "
      "Apartment\r\n"
      "class = CProvider\r\ntypelib = {fc37858f-3747-44d2-8a34-c6371c2cf212}\r\n"
      "clsid = {11005e58-1605-4823-a111-015c80bef343}";
  const auto entries = RegistryText::Parse(text);
  ASSERT_EQ(entries.size(), 1u);
  EXPECT_EQ(entries[0].progId, "QUIV.CProvider");
  EXPECT_EQ(entries[0].library, "/usr/lib/libquiv.so.1");
  const RegistryEntry expected = Provider();
  EXPECT_TRUE(IsEqualGUID(&entries[0].classId, &expected.classId));
}

TEST(RegistryTextTest, RefusesAFileWithoutTheMarker) {
  EXPECT_EQ(Failure(""), "line 0: not a registry file (no 'quiv-registry 1' line)");
  EXPECT_EQ(Failure("# only comments\n"),
            "line 0: not a registry file (no 'quiv-registry 1' line)");
  EXPECT_EQ(Failure("quiv-registry 2\n"), "line 1: expected 'quiv-registry 1'");
  EXPECT_EQ(Failure("[QUIV.CProvider]\n"), "line 1: expected 'quiv-registry 1'");
}

TEST(RegistryTextTest, RefusesAKeyOutsideASection) {
  EXPECT_EQ(Failure("quiv-registry 1\nclass = CProvider\n"),
            "line 2: a key outside any [program id] section");
}

TEST(RegistryTextTest, RefusesUnknownAndRepeatedKeys) {
  EXPECT_EQ(Failure(WithLine("colour", "colour = blue")), "line 11: unknown key 'colour'");
  EXPECT_EQ(Failure(std::string(kProvider) + "class = Other\n"), "line 11: 'class' given twice");
  EXPECT_EQ(Failure(std::string(kProvider) + "Class = CProvider\n"),
            "line 11: unknown key 'Class'");
}

TEST(RegistryTextTest, RefusesALineThatIsNotAKeyAndValue) {
  EXPECT_EQ(Failure(std::string(kProvider) + "just words\n"), "line 11: expected 'key = value'");
}

TEST(RegistryTextTest, RefusesASectionWithAMissingKey) {
  std::string text = kProvider;
  text.erase(text.find("threading"), std::string("threading = Apartment\n").size());
  EXPECT_EQ(Failure(text), "line 4: [QUIV.CProvider] has no 'threading'");
}

TEST(RegistryTextTest, RefusesBadGuids) {
  EXPECT_EQ(Failure(WithLine("clsid", "clsid = 11005E58-1605-4823-A111-015C80BEF343")),
            "line 5: not a braced GUID: '11005E58-1605-4823-A111-015C80BEF343'");
  EXPECT_EQ(Failure(WithLine("typelib", "typelib = {FC37858F-3747-44D2-8A34-C6371C2CF21}")),
            "line 9: not a braced GUID: '{FC37858F-3747-44D2-8A34-C6371C2CF21}'");
}

TEST(RegistryTextTest, RefusesBadVersions) {
  for (const char* version :
       {"1", "1.", ".0", "1.0.0", "65536.0", "1.65536", "-1.0", "1.x", "", "01.000000"}) {
    EXPECT_EQ(Failure(WithLine("version", std::string("version = ") + version)),
              std::string("line 10: not a major.minor version: '") + version + "'")
        << version;
  }
}

TEST(RegistryTextTest, RefusesBadThreadingModelsLibrariesAndClassNames) {
  EXPECT_EQ(Failure(WithLine("threading", "threading = apartment")),
            "line 8: threading model not Apartment, Free, Both or Neutral: 'apartment'");
  EXPECT_EQ(Failure(WithLine("library", "library = libquiv.so")),
            "line 7: not an absolute path: 'libquiv.so'");
  EXPECT_EQ(Failure(WithLine("library", "library =")), "line 7: not an absolute path: ''");
  EXPECT_EQ(Failure(WithLine("class", "class = C Provider")),
            "line 6: not a class name: 'C Provider'");
  EXPECT_EQ(Failure(WithLine("class", "class = 1Provider")),
            "line 6: not a class name: '1Provider'");
}

TEST(RegistryTextTest, RefusesBadProgramIds) {
  for (const char* progId : {"", "1QUIV.CProvider", "QUIV-CProvider", "QUIV CProvider", ".QUIV",
                             "QUIV.CProviderWithAVeryLongNameIndeed400"}) {
    std::string text = kProvider;
    text.replace(text.find("QUIV.CProvider"), std::string("QUIV.CProvider").size(), progId);
    EXPECT_EQ(Failure(text), std::string("line 4: not a program id: '") + progId + "'") << progId;
  }
  std::string open = kProvider;
  open.replace(open.find("[QUIV.CProvider]"), 16, "[QUIV.CProvider");
  EXPECT_EQ(Failure(open), "line 4: expected '[program id]'");
}

TEST(RegistryTextTest, ThirtyNineCharactersIsTheLongestProgramId) {
  RegistryEntry e = Provider();
  e.progId = "Q" + std::string(38, 'x');
  EXPECT_EQ(RegistryText::Parse(RegistryText::Format({e})).front().progId, e.progId);
}

TEST(RegistryTextTest, RefusesDuplicateProgramIdsIgnoringCase) {
  RegistryEntry other = Provider();
  other.progId = "quiv.cprovider";
  other.classId.Data1 ^= 1;
  EXPECT_EQ(Failure(RegistryText::Format({Provider(), other})),
            "line 13: program id 'quiv.cprovider' registered twice");
}

TEST(RegistryTextTest, RefusesDuplicateClassIds) {
  RegistryEntry other = Provider();
  other.progId = "QUIV.Other";
  EXPECT_EQ(Failure(RegistryText::Format({Provider(), other})),
            "line 13: class id {11005E58-1605-4823-A111-015C80BEF343} registered twice");
}

TEST(RegistryTextTest, RefusesANulByte) {
  EXPECT_EQ(Failure(std::string("quiv-registry 1\n\0", 17)), "line 0: contains a NUL byte");
}

TEST(RegistryTextTest, ProgramIdsCompareIgnoringAsciiCaseOnly) {
  EXPECT_TRUE(RegistryText::SameProgId("QUIV.CProvider", "quiv.cprovider"));
  EXPECT_FALSE(RegistryText::SameProgId("QUIV.CProvider", "QUIV.CProvider1"));
  EXPECT_FALSE(RegistryText::SameProgId("QUIV.A", "QUIV.B"));
}

TEST(RegistryTextTest, CheckNamesTheBadField) {
  RegistryEntry e = Provider();
  e.library = "relative/libquiv.so";
  EXPECT_THROW(RegistryText::Check(e), std::invalid_argument);
  e = Provider();
  e.threadingModel = "";
  EXPECT_THROW(RegistryText::Check(e), std::invalid_argument);
  e = Provider();
  e.library = "/path/with\nnewline";
  EXPECT_THROW(RegistryText::Check(e), std::invalid_argument);
  EXPECT_NO_THROW(RegistryText::Check(Provider()));
}

}  // namespace
