// The strict vector reader itself: it must notice unread fields, apply per-provider refinements,
// resolve shared inputs and refuse inconsistent records. A reader that cannot fail would make
// every vector test unable to fail, so it is tested on a small file written here.
#include <gtest/gtest.h>

#include <stdlib.h>
#include <algorithm>
#include <fstream>
#include <stdexcept>

#include "support/TempKeyStore.h"
#include "support/VectorCase.h"
#include "support/VectorFile.h"

namespace quiv::test {
namespace {

constexpr const char* kFile = R"json({
  "format": "windows-csp-vectors/1",
  "container_name_used": "box",
  "constants": {"CALG": {"CALG_MD5": 32771}},
  "errors": {"NTE_BAD_FLAGS": {"code": 2148073481, "hex": "0x80090009"},
             "NTE_BAD_KEYSET": {"code": 2148073494, "hex": "0x80090016"},
             "ERROR_INVALID_PARAMETER": {"code": 87, "hex": "0x00000057"}},
  "shared_inputs": {"abc": {"length": 3, "hex": "616263"}},
  "vectors": [
    {"id": "one", "category": "c", "providers": ["Base", "Strong"], "procedure": "words",
     "notes": "words", "tags": ["t"],
     "inputs": {"data": {"ref": "abc"}, "alg": {"name": "CALG_MD5", "value": 32771},
                "cases": [{"a": 1, "b": "00"}], "list": [1, 2]},
     "expected": {"value": "ff", "err": {"name": "NTE_BAD_FLAGS", "code": 2148073481,
                  "hex": "0x80090009"}, "outcome": "fails (code not asserted)",
                  "alts": "ERROR_INVALID_PARAMETER (87) or NTE_BAD_KEYSET (0x80090016)"},
     "expected_by_provider": {"Strong": {"value": "ee"}}},
    {"id": "bad", "category": "c", "providers": ["Base"], "procedure": "words",
     "inputs": {"alg": {"name": "CALG_MD5", "value": 1},
                "err": {"name": "NTE_BAD_FLAGS", "code": 1, "hex": "0x80090009"},
                "junk_hex": {"name": "NTE_BAD_FLAGS", "code": 2148073481, "hex": "0x80090009 x"},
                "wrong_alt": "NTE_BAD_KEYSET (87)", "loose_alt": "NTE_BAD_KEYSET (0x80090016) x",
                "loose_outcome": "fails (not asserted) x", "prose": "sometimes"},
     "expected": {}},
    {"id": "odd", "category": "c", "providers": ["Base"], "procedure": "words", "surprise": 1,
     "inputs": {}, "expected": {}}
  ]
})json";

class VectorsReader : public ::testing::Test {
 protected:
  void SetUp() override {
    m_path = m_folder.folder() / "vectors.json";
    std::ofstream(m_path) << kFile;
    m_file = std::make_unique<VectorFile>(m_path);
  }
  const VectorFile& File() const { return *m_file; }

 private:
  TempKeyStore m_folder;  // a private temporary folder for the file
  std::filesystem::path m_path;
  std::unique_ptr<VectorFile> m_file;
};

bool Lists(const std::vector<std::string>& unread, const std::string& path) {
  return std::find(unread.begin(), unread.end(), path) != unread.end();
}

TEST_F(VectorsReader, ReportsEveryFieldNotRead) {
  VectorCase v(File(), "one", "Base");
  const auto unread = v.Unread();
  for (const char* path :
       {"inputs.data.ref", "inputs.alg.name", "inputs.alg.value", "inputs.cases[0].a",
        "inputs.cases[0].b", "inputs.list[0]", "inputs.list[1]", "expected.value",
        "expected.err.code", "expected.outcome", "expected.alts"}) {
    EXPECT_TRUE(Lists(unread, path)) << path;
  }
  EXPECT_FALSE(Lists(unread, "procedure"));
  EXPECT_FALSE(Lists(unread, "expected_by_provider.Strong.value")) << "another provider's value";
}

TEST_F(VectorsReader, ReadingMarksWholeSubtrees) {
  VectorCase v(File(), "one", "Base");
  EXPECT_EQ(v.Input("data").Hex(), (std::vector<uint8_t>{'a', 'b', 'c'}));
  EXPECT_EQ(v.Input("alg").Alg(), 32771u);
  EXPECT_EQ(v.Input("cases").At(0)["a"].Dword(), 1u);
  EXPECT_EQ(v.Input("list").DwordList(), (std::vector<uint32_t>{1, 2}));
  EXPECT_EQ(v.Expected("err").Error(), 0x80090009u);
  EXPECT_EQ(v.Expected("outcome").Outcome(), VectorOutcome::Fails);
  EXPECT_EQ(v.Expected("alts").ErrorAlternatives(), (std::vector<uint32_t>{87, 0x80090016u}));
  const auto unread = v.Unread();
  EXPECT_EQ(unread, (std::vector<std::string>{"inputs.cases[0].b", "expected.value"}));
}

TEST_F(VectorsReader, ProviderRefinementOverridesTheCommonValue) {
  VectorCase strong(File(), "one", "Strong");
  EXPECT_EQ(strong.Expected("value").Hex(), (std::vector<uint8_t>{0xee}));
  EXPECT_FALSE(Lists(strong.Unread(), "expected.value")) << "overridden, so not applicable";
  VectorCase base(File(), "one", "Base");
  EXPECT_EQ(base.Expected("value").Hex(), (std::vector<uint8_t>{0xff}));
}

TEST_F(VectorsReader, RefusesInconsistentRecords) {
  VectorCase v(File(), "bad", "Base");
  EXPECT_THROW(v.Input("alg").Alg(), std::runtime_error) << "value disagrees with the table";
  EXPECT_THROW(v.Input("err").Error(), std::runtime_error) << "code disagrees with hex and name";
  EXPECT_THROW(v.Input("junk_hex").Error(), std::runtime_error) << "hex with trailing text";
  EXPECT_THROW(v.Input("wrong_alt").ErrorAlternatives(), std::runtime_error) << "name vs code";
  EXPECT_THROW(v.Input("loose_alt").ErrorAlternatives(), std::runtime_error) << "trailing text";
  EXPECT_THROW(v.Input("loose_outcome").Outcome(), std::runtime_error) << "trailing text";
  EXPECT_THROW(v.Input("prose").Outcome(), std::runtime_error) << "not an outcome";
  EXPECT_THROW(v.Input("missing"), std::runtime_error);
  EXPECT_THROW(VectorCase(File(), "odd", "Base"), std::runtime_error) << "unknown field";
  EXPECT_THROW(VectorCase(File(), "one", "Enhanced"), std::runtime_error) << "provider not listed";
  EXPECT_THROW(VectorFile::DecodeHex("abc"), std::runtime_error);
  EXPECT_THROW(VectorFile::DecodeHex("zz"), std::runtime_error);
}

TEST_F(VectorsReader, ParamsListEachProviderOfEachVector) {
  const std::string_view categories[] = {"c"};
  const auto params = File().Params(categories);
  ASSERT_EQ(params.size(), 4u);
  EXPECT_EQ(params[0].id, "one");
  EXPECT_EQ(params[0].provider, "Base");
  EXPECT_EQ(params[1].provider, "Strong");
  EXPECT_EQ(params[0].file, &File());
}

TEST(VectorsTempKeyStore, PointsTheStoreAtAFreshFolderAndCleansUp) {
  setenv("QUIV_KEY_STORE", "/previous/value", 1);
  std::filesystem::path folder;
  {
    const TempKeyStore store;
    folder = store.folder();
    EXPECT_TRUE(std::filesystem::is_directory(folder));
    EXPECT_TRUE(std::filesystem::is_empty(folder));
    EXPECT_EQ(std::string(getenv("QUIV_KEY_STORE")), folder.string());
    std::ofstream(folder / "leftover") << "x";
  }
  EXPECT_FALSE(std::filesystem::exists(folder));
  EXPECT_EQ(std::string(getenv("QUIV_KEY_STORE")), "/previous/value");
  unsetenv("QUIV_KEY_STORE");
}

}  // namespace
}  // namespace quiv::test
