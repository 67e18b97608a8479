// CErrAPI: names of platform error codes. The general names are checked against the platform
// SDK's winerror.h when it is installed (Debian mingw-w64-common); the spot checks always run.
#include "errors/CErrAPI.h"

#include "RecordingPlatform.h"
#include "platform/PlatformSeam.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <map>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <vector>

namespace quiv {
namespace {

constexpr const char* kWinErrorHeader = "/usr/share/mingw-w64/include/winerror.h";

std::u16string Text(const String& s) {
  return s.u16();
}

std::u16string Widen(const std::string& ascii) {
  return {ascii.begin(), ascii.end()};
}

std::u16string Lookup(double code) {
  return Text(CErrAPI().LastError(code));
}

// The general codes the library names, transcribed from its documentation of the table.
std::vector<int32_t> ListedGeneralCodes() {
  const char* const ranges =
      "0-34 36 38-39 50-72 80 82-89 100-114 117-162 164 167 170 173-174 180 182-183 186-203 "
      "205-210 212 214-216 230-234 240 254-255 259 266-267 275-278 282 288 298-301 317 487 "
      "534-536 994-999 1001-1022 1051-1083 1100-1132 1140-1142 1150-1181 1200-1253 1300-1338 "
      "1340-1398 1400-1461 1500-1503 1601-1641 1784-1790 1792-1805 1807-1816 1901-1909 "
      "1919-1921 2000-2005 2010-2022 2108 2202 2250 2401-2402 2404 3000-3012 4000-4006 4100 "
      "4200-4214 4300-4339 4350-4352 4390-4394 4500 5001-5054 5056-5089 6000-6011 6118";
  std::vector<int32_t> codes;
  std::istringstream in(ranges);
  std::string item;
  while (in >> item) {
    const auto dash = item.find('-');
    const int32_t low = std::stoi(item.substr(0, dash));
    const int32_t high = dash == std::string::npos ? low : std::stoi(item.substr(dash + 1));
    for (int32_t c = low; c <= high; ++c) codes.push_back(c);
  }
  return codes;
}

// The provider errors in the platform's order, from NTE_BAD_UID (0x80090001) upwards.
// clang-format off
const std::vector<std::string> kProviderErrors = {
    "NTE_BAD_UID", "NTE_BAD_HASH", "NTE_BAD_KEY",
    "NTE_BAD_LEN", "NTE_BAD_DATA", "NTE_BAD_SIGNATURE",
    "NTE_BAD_VER", "NTE_BAD_ALGID", "NTE_BAD_FLAGS",
    "NTE_BAD_TYPE", "NTE_BAD_KEY_STATE", "NTE_BAD_HASH_STATE",
    "NTE_NO_KEY", "NTE_NO_MEMORY", "NTE_EXISTS",
    "NTE_PERM", "NTE_NOT_FOUND", "NTE_DOUBLE_ENCRYPT",
    "NTE_BAD_PROVIDER", "NTE_BAD_PROV_TYPE", "NTE_BAD_PUBLIC_KEY",
    "NTE_BAD_KEYSET", "NTE_PROV_TYPE_NOT_DEF", "NTE_PROV_TYPE_ENTRY_BAD",
    "NTE_KEYSET_NOT_DEF", "NTE_KEYSET_ENTRY_BAD", "NTE_PROV_TYPE_NO_MATCH",
    "NTE_SIGNATURE_FILE_BAD", "NTE_PROVIDER_DLL_FAIL", "NTE_PROV_DLL_NOT_FOUND",
    "NTE_BAD_KEYSET_PARAM", "NTE_FAIL", "NTE_SYS_ERR",
    "NTE_SILENT_CONTEXT", "NTE_TOKEN_KEYSET_STORAGE_FULL", "NTE_TEMPORARY_PROFILE",
    "NTE_FIXEDPARAMETER",
};
// clang-format on

// The one listed code that the SDK header does not define (see gen_winerror_names.py).
const std::set<int32_t> kListedButUnnamedInSdk = {1174};

TEST(CErrAPITest, SpotChecksOfGeneralNames) {
  EXPECT_EQ(Lookup(0), u"ERROR_SUCCESS ");
  EXPECT_EQ(Lookup(2), u"ERROR_FILE_NOT_FOUND ");
  EXPECT_EQ(Lookup(5), u"ERROR_ACCESS_DENIED ");
  EXPECT_EQ(Lookup(38), u"ERROR_HANDLE_EOF ");
  EXPECT_EQ(Lookup(87), u"ERROR_INVALID_PARAMETER ");
  EXPECT_EQ(Lookup(234), u"ERROR_MORE_DATA ");
  EXPECT_EQ(Lookup(259), u"ERROR_NO_MORE_ITEMS ");
  EXPECT_EQ(Lookup(997), u"ERROR_IO_PENDING ");
  EXPECT_EQ(Lookup(1223), u"ERROR_CANCELLED ");
  EXPECT_EQ(Lookup(1326), u"ERROR_LOGON_FAILURE ");
  EXPECT_EQ(Lookup(6118), u"ERROR_NO_BROWSER_SERVERS_FOUND ");
}

TEST(CErrAPITest, UnlistedCodesShowInHex) {
  EXPECT_EQ(Lookup(35), u"&H23 (see WinErr.h for description.)");
  EXPECT_EQ(Lookup(6012), u"&H177C (see WinErr.h for description.)");
  EXPECT_EQ(Lookup(6119), u"&H17E7 (see WinErr.h for description.)");
  EXPECT_EQ(Lookup(1), u"ERROR_INVALID_FUNCTION ");
}

TEST(CErrAPITest, NegativeCodesShowAsTwosComplementHex) {
  EXPECT_EQ(Lookup(-2146893786), u"&H80090026 (see WinErr.h for description.)");
  EXPECT_EQ(Lookup(-1), u"&HFFFFFFFF (see WinErr.h for description.)");
  EXPECT_EQ(Lookup(-2147483648.0), u"&H80000000 (see WinErr.h for description.)");
  EXPECT_EQ(Lookup(-2147220992), u"&H80040200 (see WinErr.h for description.)");
}

TEST(CErrAPITest, ProviderErrorsByCode) {
  EXPECT_EQ(Lookup(-2146893811), u"NTE_NO_KEY ");
  EXPECT_EQ(Lookup(-2146893823), u"NTE_BAD_UID ");
  EXPECT_EQ(Lookup(-2146893787), u"NTE_FIXEDPARAMETER ");
  ASSERT_EQ(kProviderErrors.size(), 37u);
  for (size_t i = 0; i < kProviderErrors.size(); ++i) {
    EXPECT_EQ(Lookup(-2146893823.0 + static_cast<double>(i)), Widen(kProviderErrors[i] + " "));
  }
}

TEST(CErrAPITest, ProviderErrorNamesInThePlatformOrder) {
  const auto names = CErrAPI::ProviderErrorNames();
  ASSERT_EQ(names.size(), kProviderErrors.size());
  for (size_t i = 0; i < names.size(); ++i) EXPECT_EQ(names[i], kProviderErrors[i]);
}

TEST(CErrAPITest, ProviderCodesComeFromTheConstantsCatalogue) {
  const CConstQUIV constants;
  EXPECT_EQ(Lookup(constants.NTE_BAD_KEYSET()), u"NTE_BAD_KEYSET ");
  EXPECT_EQ(Lookup(constants.NTE_EXISTS()), u"NTE_EXISTS ");
}

TEST(CErrAPITest, GeneralRowsAreExactlyTheListedCodesTheSdkNames) {
  const std::vector<int32_t> listed = ListedGeneralCodes();
  ASSERT_EQ(listed.size(), 835u);
  std::vector<int32_t> expected;
  for (const int32_t code : listed) {
    if (!kListedButUnnamedInSdk.count(code)) expected.push_back(code);
  }
  std::vector<int32_t> rows;
  for (const auto& row : CErrAPI::GeneralNames()) rows.push_back(row.m_lCode);
  EXPECT_EQ(rows, expected);
}

TEST(CErrAPITest, RowCount) {
  // 835 general codes listed and 37 provider errors make 872 rows; the SDK names all general
  // codes but one, which has no row and is shown in hex like any unnamed code.
  EXPECT_EQ(ListedGeneralCodes().size() + kProviderErrors.size(), 872u);
  EXPECT_EQ(CErrAPI::RowCount(), 872u - kListedButUnnamedInSdk.size());
  EXPECT_EQ(Lookup(1174), u"&H496 (see WinErr.h for description.)");
}

TEST(CErrAPITest, EveryNameHasExactlyOneTrailingBlank) {
  for (const auto& row : CErrAPI::GeneralNames()) {
    const std::u16string name = Lookup(row.m_lCode);
    ASSERT_FALSE(name.empty());
    EXPECT_EQ(name.back(), u' ');
    EXPECT_EQ(name.find(u' '), name.size() - 1) << row.m_sName;
    EXPECT_EQ(name, Widen(std::string(row.m_sName) + " "));
  }
}

TEST(CErrAPITest, OnlyExactlyEqualCodesMatchARow) {
  // 36 has a row; 35.5 does not equal it, and its hex form is of the code rounded half to even.
  EXPECT_EQ(Lookup(35.5), u"&H24 (see WinErr.h for description.)");
  EXPECT_EQ(Lookup(34.5), u"&H22 (see WinErr.h for description.)");
  EXPECT_EQ(Lookup(2.25), u"&H2 (see WinErr.h for description.)");
}

// The catalogue writes its failures to the application log through the platform seam.
class CErrAPILogTest : public ::testing::Test {
 protected:
  std::vector<std::string> Entries() const {
    std::vector<std::string> texts;
    for (const auto& e : m_platform.m_entries) texts.push_back(e.m_sText);
    return texts;
  }
  quiv::testing::RecordingPlatform m_platform;
  quiv::platform::ScopedPlatformOverride m_use{m_platform};
};

TEST_F(CErrAPILogTest, LookupsWriteNothingToTheLog) {
  (void)Lookup(5);
  (void)Lookup(35);
  (void)Lookup(-2146893811);
  EXPECT_TRUE(Entries().empty());
}

TEST_F(CErrAPILogTest, CodeBeyondThirtyTwoBitsIsLoggedAndGivesTheEmptyText) {
  const std::u16string text = Lookup(4294967296.0);
  EXPECT_EQ(text, u"");
  ASSERT_EQ(m_platform.m_starts.size(), 1u);
  EXPECT_EQ(m_platform.m_starts[0].m_sPath, "c:\\cryptoerr.log");
  EXPECT_EQ(Entries(),
            std::vector<std::string>{"QUIV.CErrAPI.LastError, Overflow API error = 4294967296. "});
  EXPECT_EQ(m_platform.m_entries[0].m_type, quiv::platform::LogEventType::Error);
}

TEST_F(CErrAPILogTest, UnsignedFormOfANegativeCodeOverflows) {
  EXPECT_EQ(Lookup(2146893811.0 * 2), u"");
  EXPECT_EQ(Lookup(2147483648.0), u"");
  EXPECT_EQ(Entries(), (std::vector<std::string>{
                           "QUIV.CErrAPI.LastError, Overflow API error = 4293787622. ",
                           "QUIV.CErrAPI.LastError, Overflow API error = 2147483648. "}));
}

TEST(CErrAPITest, LookupLeavesTheCodeUnchanged) {
  double code = -2146893811;
  (void)CErrAPI().LastError(code);
  EXPECT_EQ(code, -2146893811);
}

// The SDK header's name for each general code, by the generator's rule: the first
// "#define NAME __MSABI_LONG(decimal)" of the value in header order.
std::map<int32_t, std::string> SdkGeneralNames(std::ifstream& header) {
  const std::regex define(R"(^\s*#\s*define\s+(\w+)\s+__MSABI_LONG\((\d+)\)\s*$)");
  std::map<int32_t, std::string> names;
  std::string line;
  std::smatch m;
  while (std::getline(header, line)) {
    if (std::regex_match(line, m, define)) names.emplace(std::stoi(m[2]), m[1]);
  }
  return names;
}

std::map<std::string, int32_t> SdkProviderCodes(std::ifstream& header) {
  const std::regex define(
      R"(^\s*#\s*define\s+(NTE_\w+)\s+_HRESULT_TYPEDEF_\(0x([0-9A-Fa-f]+)L?\)\s*$)");
  std::map<std::string, int32_t> codes;
  std::string line;
  std::smatch m;
  while (std::getline(header, line)) {
    if (std::regex_match(line, m, define)) {
      codes.emplace(m[1], static_cast<int32_t>(std::stoul(m[2], nullptr, 16)));
    }
  }
  return codes;
}

TEST(CErrAPITest, GeneralNamesAgreeWithTheSdkHeader) {
  std::ifstream header(kWinErrorHeader);
  if (!header) {
    GTEST_SKIP() << kWinErrorHeader
                 << " is not installed (Debian package mingw-w64-common): general error names "
                    "NOT checked against the SDK header";
  }
  const auto sdk = SdkGeneralNames(header);
  for (const int32_t code : ListedGeneralCodes()) {
    const auto it = sdk.find(code);
    if (it == sdk.end()) {
      EXPECT_TRUE(kListedButUnnamedInSdk.count(code)) << code << " has no name in the header";
      continue;
    }
    EXPECT_EQ(Lookup(code), Widen(it->second + " ")) << code;
  }
}

TEST(CErrAPITest, ProviderErrorCodesAgreeWithTheSdkHeader) {
  std::ifstream header(kWinErrorHeader);
  if (!header) {
    GTEST_SKIP() << kWinErrorHeader
                 << " is not installed (Debian package mingw-w64-common): provider error codes "
                    "NOT checked against the SDK header";
  }
  const auto sdk = SdkProviderCodes(header);
  for (const std::string& name : kProviderErrors) {
    const auto it = sdk.find(name);
    ASSERT_NE(it, sdk.end()) << name;
    EXPECT_EQ(Lookup(it->second), Widen(name + " ")) << name;
  }
}

}  // namespace
}  // namespace quiv
