// CConstQUIV: every property's name, position, kind and value against the reference table
// tests/constants/constants.txt (kept apart from CConstQUIV.def so that a slip in either shows
// up), through the getters, the name lookup and the dispatch-id lookup; the computed CALG_
// identifiers; the rows callers depend on; and the lookup's refusals.

// The C header comes first on purpose: CConstQUIV.h must turn the macros it defines under the
// same names into names that the getter calls below can still use.
#include "platform/wincrypt.h"

// clang-format off
#include "constants/CConstQUIV.h"
// clang-format on

#include <gtest/gtest.h>

#include <charconv>
#include <fstream>
#include <functional>
#include <set>
#include <sstream>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <vector>

namespace quiv {
namespace {

using Kind = CConstQUIV::Kind;

// One row of the reference table.
struct Row {
  std::string name;
  bool isString = false;
  int32_t integer = 0;
  std::u16string text;
};

std::u16string Widen(const std::string& ascii) {
  return std::u16string(ascii.begin(), ascii.end());
}

// Parses one "NAME int VALUE" or "NAME string "TEXT"" line; throws on anything else, so that a
// damaged table fails the tests instead of shrinking them.
Row ParseRow(const std::string& line, size_t lineNumber) {
  const auto fail = [&](const char* why) {
    throw std::runtime_error("constants.txt line " + std::to_string(lineNumber) + ": " + why);
  };
  std::istringstream in(line);
  Row row;
  std::string kind;
  if (!(in >> row.name >> kind)) fail("expected NAME KIND VALUE");
  in >> std::ws;
  std::string rest;
  std::getline(in, rest);
  if (kind == "int") {
    const char* end = rest.data() + rest.size();
    const auto [ptr, ec] = std::from_chars(rest.data(), end, row.integer);
    if (ec != std::errc() || ptr != end) fail("integer value expected");
  } else if (kind == "string") {
    if (rest.size() < 2 || rest.front() != '"' || rest.back() != '"') fail("quoted text expected");
    row.isString = true;
    row.text = Widen(rest.substr(1, rest.size() - 2));
  } else {
    fail("kind must be int or string");
  }
  return row;
}

const std::vector<Row>& Reference() {
  static const std::vector<Row> rows = [] {
    std::ifstream in(std::string(QUIV_TEST_DATA_DIR) + "/constants/constants.txt");
    if (!in) throw std::runtime_error("cannot open constants/constants.txt");
    std::vector<Row> result;
    std::string line;
    for (size_t number = 1; std::getline(in, line); ++number) {
      if (line.empty() || line[0] == '#') continue;
      result.push_back(ParseRow(line, number));
    }
    return result;
  }();
  return rows;
}

// The names listed in a source file of the catalogue, in file order: the first identifier after
// `marker` on each line that starts with it.
std::vector<std::string> NamesIn(const std::string& file, const std::string& marker) {
  std::ifstream in(std::string(QUIV_TEST_DATA_DIR) + "/../src/constants/" + file);
  if (!in) throw std::runtime_error("cannot open src/constants/" + file);
  std::vector<std::string> names;
  std::string line;
  while (std::getline(in, line)) {
    if (line.rfind(marker, 0) != 0) continue;
    const size_t begin = line.find_first_not_of("( ", marker.size());
    const size_t end = line.find_first_of(",) ", begin);
    names.push_back(line.substr(begin, end - begin));
  }
  return names;
}

// Each getter called by its own name, in .def order, with what it returned.
struct GetterCall {
  std::string name;
  Kind kind;
  int32_t integer;
  String text;
};

std::vector<GetterCall> CallEveryGetter(const CConstQUIV& c) {
  std::vector<GetterCall> calls;
#define QUIV_CONST_INT(name, value) calls.push_back({#name, Kind::Integer, c.name(), {}});
#define QUIV_CONST_CALG(name, algClass, algType, algSid) \
  calls.push_back({#name, Kind::Computed, c.name(), {}});
#define QUIV_CONST_STRING(name, text) calls.push_back({#name, Kind::String, 0, c.name()});
#include "constants/CConstQUIV.def"
  return calls;
}

// A computed identifier with the values of the three properties the table names for it.
struct Composition {
  std::string name;
  int32_t value;
  std::string classProperty;
  int32_t classValue;
  std::string typeProperty;
  int32_t typeValue;
  std::string sidProperty;
  int32_t sidValue;
};

std::vector<Composition> EveryComposition(const CConstQUIV& c) {
  std::vector<Composition> result;
#define QUIV_CONST_INT(name, value)
#define QUIV_CONST_CALG(name, algClass, algType, algSid) \
  result.push_back(                                      \
      {#name, c.name(), #algClass, c.algClass(), #algType, c.algType(), #algSid, c.algSid()});
#define QUIV_CONST_STRING(name, text)
#include "constants/CConstQUIV.def"
  return result;
}

int32_t IntegerByName(const std::string& name) {
  CConstQUIV::Value value;
  if (!CConstQUIV().Lookup(name, value)) throw std::runtime_error("no property " + name);
  return value.integer;
}

TEST(CConstQUIVTest, ReferenceTableHas342Rows330IntegersAnd12Strings) {
  size_t strings = 0;
  for (const Row& row : Reference()) strings += row.isString ? 1 : 0;
  EXPECT_EQ(Reference().size(), 342u);
  EXPECT_EQ(strings, 12u);
  EXPECT_EQ(Reference().size() - strings, 330u);
}

TEST(CConstQUIVTest, CountsAre342Properties330IntegersOf35Computed12Strings) {
  EXPECT_EQ(CConstQUIV::kPropertyCount, 342u);
  EXPECT_EQ(CConstQUIV::kIntegerCount, 330u);
  EXPECT_EQ(CConstQUIV::kComputedCount, 35u);
  EXPECT_EQ(CConstQUIV::kStringCount, 12u);
  EXPECT_EQ(CConstQUIV::Properties().size(), 342u);
}

TEST(CConstQUIVTest, PropertiesAreTheReferenceNamesInOrderWithDescendingDispIds) {
  const auto properties = CConstQUIV::Properties();
  ASSERT_EQ(properties.size(), Reference().size());
  for (size_t i = 0; i < properties.size(); ++i) {
    const Row& row = Reference()[i];
    SCOPED_TRACE(row.name);
    EXPECT_EQ(properties[i].name, row.name);
    EXPECT_EQ(properties[i].kind == Kind::String, row.isString);
    EXPECT_EQ(properties[i].dispId, static_cast<int32_t>(0x68030155 - i));
  }
  EXPECT_EQ(properties.front().dispId, 0x68030155);
  EXPECT_EQ(properties.back().dispId, 0x68030000);
}

TEST(CConstQUIVTest, EveryGetterReturnsTheReferenceValueInOrder) {
  const std::vector<GetterCall> calls = CallEveryGetter(CConstQUIV());
  ASSERT_EQ(calls.size(), Reference().size());
  for (size_t i = 0; i < calls.size(); ++i) {
    const Row& row = Reference()[i];
    SCOPED_TRACE(row.name);
    EXPECT_EQ(calls[i].name, row.name);
    ASSERT_EQ(calls[i].kind == Kind::String, row.isString);
    if (row.isString) {
      EXPECT_EQ(calls[i].text, String(row.text));
      EXPECT_FALSE(calls[i].text.HasOddByte());
    } else {
      EXPECT_EQ(calls[i].integer, row.integer);
    }
  }
}

TEST(CConstQUIVTest, LookupByNameReturnsTheReferenceValueOfEveryProperty) {
  const CConstQUIV constants;
  for (size_t i = 0; i < Reference().size(); ++i) {
    const Row& row = Reference()[i];
    SCOPED_TRACE(row.name);
    CConstQUIV::Value value;
    ASSERT_TRUE(constants.Lookup(row.name, value));
    EXPECT_EQ(CConstQUIV::IndexOf(row.name), i);
    ASSERT_EQ(value.kind == Kind::String, row.isString);
    if (row.isString) {
      EXPECT_EQ(value.text, row.text);
      EXPECT_EQ(value.integer, 0);
    } else {
      EXPECT_EQ(value.integer, row.integer);
      EXPECT_TRUE(value.text.empty());
    }
  }
}

TEST(CConstQUIVTest, LookupByDispIdReturnsTheReferenceValueOfEveryProperty) {
  const CConstQUIV constants;
  for (size_t i = 0; i < Reference().size(); ++i) {
    const Row& row = Reference()[i];
    SCOPED_TRACE(row.name);
    CConstQUIV::Value value;
    ASSERT_TRUE(constants.LookupDispId(static_cast<int32_t>(0x68030155 - i), value));
    if (row.isString) {
      EXPECT_EQ(value.text, row.text);
    } else {
      EXPECT_EQ(value.integer, row.integer);
    }
  }
}

TEST(CConstQUIVTest, ExactlyTheCalgPropertiesAreComputed) {
  size_t computed = 0;
  for (const CConstQUIV::Property& property : CConstQUIV::Properties()) {
    SCOPED_TRACE(std::string(property.name));
    EXPECT_EQ(property.kind == Kind::Computed, property.name.starts_with("CALG_"));
    computed += property.kind == Kind::Computed ? 1 : 0;
  }
  EXPECT_EQ(computed, 35u);
}

// An ALG_ID is class (bits 13-15) | type (bits 9-12) | sub-identifier (bits 0-8); each computed
// identifier must be built from properties of the right family whose values are exactly its
// own fields.
TEST(CConstQUIVTest, EveryCalgIsTheOrOfItsClassTypeAndSubIdentifier) {
  const std::vector<Composition> compositions = EveryComposition(CConstQUIV());
  ASSERT_EQ(compositions.size(), 35u);
  for (const Composition& c : compositions) {
    SCOPED_TRACE(c.name);
    EXPECT_TRUE(c.classProperty.starts_with("ALG_CLASS_"));
    EXPECT_TRUE(c.typeProperty.starts_with("ALG_TYPE_"));
    EXPECT_TRUE(c.sidProperty.starts_with("ALG_SID_"));
    EXPECT_EQ(c.classValue, c.value & 0xE000);
    EXPECT_EQ(c.typeValue, c.value & 0x1E00);
    EXPECT_EQ(c.sidValue, c.value & 0x01FF);
    EXPECT_EQ(c.value, c.classValue | c.typeValue | c.sidValue);
    EXPECT_EQ(c.value, IntegerByName(c.name));
  }
}

TEST(CConstQUIVTest, ShaAndSha1AreTheSameIdentifier) {
  const CConstQUIV c;
  EXPECT_EQ(c.CALG_SHA(), 32772);
  EXPECT_EQ(c.CALG_SHA1(), 32772);
  EXPECT_EQ(c.ALG_SID_SHA(), 4);
  EXPECT_EQ(c.ALG_SID_SHA1(), 4);
}

TEST(CConstQUIVTest, CryptSucceedIsAutomationTrueNotOne) {
  const CConstQUIV c;
  EXPECT_EQ(c.CRYPT_SUCCEED(), -1);
  EXPECT_EQ(c.CRYPT_FAILED(), 0);
  EXPECT_EQ(IntegerByName("CRYPT_SUCCEED"), -1);
}

TEST(CConstQUIVTest, EnhancedProviderNameIsExact) {
  const CConstQUIV c;
  const String name = c.MS_ENHANCED_PROV();
  EXPECT_EQ(name.u16(), u"Microsoft Enhanced Cryptographic Provider v1.0");
  EXPECT_EQ(name.Length(), 46u);
  EXPECT_EQ(name.ToUtf8(), "Microsoft Enhanced Cryptographic Provider v1.0");
  CConstQUIV::Value value;
  ASSERT_TRUE(c.Lookup("MS_ENHANCED_PROV", value));
  EXPECT_EQ(value.kind, Kind::String);
  EXPECT_EQ(value.text, u"Microsoft Enhanced Cryptographic Provider v1.0");
}

TEST(CConstQUIVTest, HighBitFlagsAndErrorsAreNegative) {
  const CConstQUIV c;
  EXPECT_EQ(c.CRYPT_VERIFYCONTEXT(), -268435456);
  EXPECT_EQ(c.KEY_LENGTH_MASK(), -65536);
  EXPECT_EQ(c.NTE_BAD_UID(), -2146893823);
  EXPECT_EQ(c.NTE_FIXEDPARAMETER(), -2146893787);
  EXPECT_EQ(c.SIGNATURE_RESOURCE_NUMBER(), 666);
  EXPECT_EQ(c.ALG_SID_EXAMPLE(), 80);
  EXPECT_EQ(c.PROV_ENUMALGS_EX_ITEMS(), 9);
}

TEST(CConstQUIVTest, ComputedExamplesMatchTheirParts) {
  const CConstQUIV c;
  EXPECT_EQ(c.CALG_RC2(), c.ALG_CLASS_DATA_ENCRYPT() | c.ALG_TYPE_BLOCK() | c.ALG_SID_RC2());
  EXPECT_EQ(c.CALG_RC2(), 26114);
  EXPECT_EQ(c.CALG_HUGHES_MD5(), 40963);
  EXPECT_EQ(c.CALG_HUGHES_MD5(), c.ALG_CLASS_KEY_EXCHANGE() | c.ALG_TYPE_ANY() | c.ALG_SID_MD5());
}

TEST(CConstQUIVTest, IntegerGettersAreUsableAtCompileTime) {
  constexpr CConstQUIV c;
  static_assert(c.CALG_RC4() == 26625);
  static_assert(c.CRYPT_EXPORTABLE() == 1);
  constexpr int32_t flags = c.CRYPT_EXPORTABLE() | c.CRYPT_CREATE_SALT();
  EXPECT_EQ(flags, 5);
}

TEST(CConstQUIVTest, LookupIgnoresCase) {
  CConstQUIV::Value value;
  ASSERT_TRUE(CConstQUIV().Lookup("calg_rc2", value));
  EXPECT_EQ(value.kind, Kind::Computed);
  EXPECT_EQ(value.integer, 26114);
  ASSERT_TRUE(CConstQUIV().Lookup("Ms_Def_Prov", value));
  EXPECT_EQ(value.text, u"Microsoft Base Cryptographic Provider v1.0");
}

TEST(CConstQUIVTest, LookupRejectsNamesThatAreNotProperties) {
  const CConstQUIV constants;
  for (const char* name : {"", "CALG_RC2 ", " CALG_RC2", "CALG_RC", "CALG_RC2X", "CALG_AES_128",
                           "CALG_SHA_256", "ALG_CLASS", "ZZZ"}) {
    SCOPED_TRACE(name);
    CConstQUIV::Value value{Kind::String, 12345, u"untouched"};
    EXPECT_FALSE(constants.Lookup(name, value));
    EXPECT_FALSE(CConstQUIV::IndexOf(name).has_value());
    EXPECT_EQ(value.kind, Kind::String);
    EXPECT_EQ(value.integer, 12345);
    EXPECT_EQ(value.text, u"untouched");
  }
}

TEST(CConstQUIVTest, LookupDispIdRejectsIdsOutsideTheRange) {
  const CConstQUIV constants;
  for (const int32_t id : {0x68030156, 0x67FFFFFF, 0, -1, INT32_MIN, INT32_MAX}) {
    SCOPED_TRACE(id);
    CConstQUIV::Value value{Kind::Integer, 12345, {}};
    EXPECT_FALSE(constants.LookupDispId(id, value));
    EXPECT_EQ(value.integer, 12345);
  }
}

TEST(CConstQUIVTest, ValueAtRejectsAnIndexPastTheEnd) {
  CConstQUIV::Value value{Kind::Integer, 12345, {}};
  EXPECT_FALSE(CConstQUIV().ValueAt(342, value));
  EXPECT_EQ(value.integer, 12345);
  EXPECT_TRUE(CConstQUIV().ValueAt(341, value));
  EXPECT_EQ(value.integer, -2146893787);
}

TEST(CConstQUIVTest, MacroListCoversEveryPropertyOnce) {
  std::vector<std::string> properties;
  for (const auto& property : CConstQUIV::Properties()) properties.emplace_back(property.name);
  // Each name's value is kept, then the macro becomes the global constant of that name.
  EXPECT_EQ(NamesIn("CConstQUIVMacros.def", "QUIV_WINCRYPT_KEEP("), properties);
  EXPECT_EQ(NamesIn("CConstQUIVMacros.def", "QUIV_WINCRYPT_GLOBAL("), properties);
  EXPECT_EQ(std::set<std::string>(properties.begin(), properties.end()).size(), 342u);
}

// The C header's macros of the same names still stand for the platform's values, with their own
// types, next to the getters.
TEST(CConstQUIVTest, TheCHeadersNamesKeepTheirValuesAndTypesBesideTheGetters) {
  constexpr CConstQUIV c;
#ifndef CALG_MD5
  FAIL() << "CALG_MD5 is no longer defined";
#endif
  static_assert(CALG_MD5 == 0x8003 && c.CALG_MD5() == 0x8003);
  static_assert(std::is_same_v<std::remove_cv_t<decltype(CRYPT_VERIFYCONTEXT)>, unsigned int>);
  static_assert(CRYPT_VERIFYCONTEXT == 0xF0000000u);
  static_assert(c.CRYPT_VERIFYCONTEXT() == static_cast<int32_t>(0xF0000000u));
  static_assert(NTE_BAD_KEY == static_cast<LONG>(0x80090003));
  // A string macro stays an array: sizeof counts its characters and the terminator.
  static_assert(sizeof MS_DEF_PROV == sizeof "Microsoft Base Cryptographic Provider v1.0");
  EXPECT_STREQ(MS_DEF_PROV, MS_DEF_PROV_A);
  EXPECT_EQ(c.MS_DEF_PROV(), String::FromUtf8(MS_DEF_PROV));
  EXPECT_EQ(static_cast<int32_t>(PROV_RSA_FULL), c.PROV_RSA_FULL());
}

}  // namespace
}  // namespace quiv
