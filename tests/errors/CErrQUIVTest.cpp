// CErrQUIV: the library error catalogue and the QUIV_ERROR enumeration, checked against a list
// of names and values transcribed separately into quiv_error_list.txt.
#include "errors/CErrQUIV.h"

#include "RecordingPlatform.h"
#include "platform/PlatformSeam.h"

#include <gtest/gtest.h>

#include <atomic>
#include <climits>
#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <new>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "errors/QuivError.h"

// Allocation failure injection for the lookup's trap: when armed, the next allocation made
// through operator new throws std::bad_alloc. Replacing the global operators affects this test
// program only.
namespace {
std::atomic<bool> g_failNextAllocation{false};
}  // namespace

void* operator new(std::size_t size) {
  if (g_failNextAllocation.exchange(false)) throw std::bad_alloc();
  if (void* p = std::malloc(size == 0 ? 1 : size)) return p;
  throw std::bad_alloc();
}
void operator delete(void* p) noexcept {
  std::free(p);
}
void operator delete(void* p, std::size_t) noexcept {
  std::free(p);
}

namespace quiv {
namespace {

std::u16string Text(const String& s) {
  return s.u16();
}

std::u16string Widen(const std::string& ascii) {
  return {ascii.begin(), ascii.end()};
}

std::vector<std::pair<std::string, int32_t>> ReadTranscribedList() {
  std::ifstream in(std::string(QUIV_TEST_DATA_DIR) + "/errors/quiv_error_list.txt");
  EXPECT_TRUE(in) << "cannot open quiv_error_list.txt";
  std::vector<std::pair<std::string, int32_t>> rows;
  std::string line;
  while (std::getline(in, line)) {
    if (line.empty() || line[0] == '#') continue;
    std::istringstream fields(line);
    std::string name;
    int64_t value = 0;
    fields >> name >> value;
    EXPECT_FALSE(fields.fail()) << line;
    rows.emplace_back(name, static_cast<int32_t>(value));
  }
  return rows;
}

std::u16string Lookup(int32_t code) {
  return Text(CErrQUIV().LastError(code));
}

TEST(CErrQUIVTest, MembersMatchTheTranscribedListInOrder) {
  const auto expected = ReadTranscribedList();
  const auto members = CErrQUIV::Members();
  ASSERT_EQ(expected.size(), 156u);
  ASSERT_EQ(members.size(), expected.size());
  for (size_t i = 0; i < expected.size(); ++i) {
    EXPECT_EQ(members[i].m_sName, expected[i].first) << "position " << i;
    EXPECT_EQ(members[i].m_lValue, expected[i].second) << expected[i].first;
  }
}

TEST(CErrQUIVTest, EnumeratorsCarryTheTableValues) {
  // The enumeration and the member list are both generated from QuivErrors.def; this ties each
  // enumerator, by its C++ name, to the published name and value.
  const std::vector<std::pair<std::string, int32_t>> enumerators = {
#define QUIV_ERROR_ROW(name, value, text) {#name, name},
#include "errors/QuivErrors.def"
#undef QUIV_ERROR_ROW
  };
  EXPECT_EQ(enumerators, ReadTranscribedList());
}

TEST(CErrQUIVTest, CodesAreConsecutiveFromTheFirstFreeInterfaceCode) {
  EXPECT_EQ(UNDEFINED_ERROR, -2147220992);
  EXPECT_EQ(static_cast<uint32_t>(UNDEFINED_ERROR), 0x80040200u);
  EXPECT_EQ(CERRHANDLER_ERROR, -2147220991);
  EXPECT_EQ(GENERAL_ERROR_UNABLE_TO_RELASE_CONTEXT, -2147220945);
  EXPECT_EQ(SIGNATURE_ERROR_WHAT_TO_SIGN_NOT_SPECIFIED, -2147220837);
  EXPECT_EQ(static_cast<uint32_t>(SIGNATURE_ERROR_WHAT_TO_SIGN_NOT_SPECIFIED), 0x8004029Bu);
  const auto members = CErrQUIV::Members();
  for (size_t i = 0; i < members.size(); ++i) {
    EXPECT_EQ(members[i].m_lValue, -2147220992 + static_cast<int32_t>(i));
  }
}

TEST(CErrQUIVTest, NamesAfterTheFirstTwoAreSortedAlphabetically) {
  const auto members = CErrQUIV::Members();
  ASSERT_GT(members.size(), 3u);
  EXPECT_EQ(members[0].m_sName, "UNDEFINED_ERROR");
  EXPECT_EQ(members[1].m_sName, "CERRHANDLER_ERROR");
  for (size_t i = 3; i < members.size(); ++i) {
    EXPECT_LT(members[i - 1].m_sName, members[i].m_sName);
  }
}

TEST(CErrQUIVTest, UndefinedErrorGivesTheDebuggingSentenceNotItsName) {
  EXPECT_EQ(Lookup(-2147220992), u"(Undefined error, used in debugging.)");
}

TEST(CErrQUIVTest, EveryOtherMemberGivesItsOwnName) {
  const auto expected = ReadTranscribedList();
  for (size_t i = 1; i < expected.size(); ++i) {
    EXPECT_EQ(Lookup(expected[i].second), Widen(expected[i].first));
  }
}

TEST(CErrQUIVTest, NamedExamples) {
  EXPECT_EQ(Lookup(-2147220991), u"CERRHANDLER_ERROR");
  EXPECT_EQ(Lookup(-2147220945), u"GENERAL_ERROR_UNABLE_TO_RELASE_CONTEXT");
  EXPECT_EQ(Lookup(-2147220837), u"SIGNATURE_ERROR_WHAT_TO_SIGN_NOT_SPECIFIED");
  EXPECT_EQ(Lookup(DATA_FORMAT_ERROR_INVALID_HEX_VALUE), u"DATA_FORMAT_ERROR_INVALID_HEX_VALUE");
}

TEST(CErrQUIVTest, CodeJustAfterTheLastHasNoDescription) {
  EXPECT_EQ(Lookup(-2147220836), u"(No error description for this code=-2147220836)");
}

TEST(CErrQUIVTest, TopOfTheLibraryRangeHasNoDescription) {
  EXPECT_EQ(Lookup(-2147155969), u"(No error description for this code=-2147155969)");
}

TEST(CErrQUIVTest, CodesOutsideTheLibraryRangeHaveNoDescription) {
  EXPECT_EQ(Lookup(-2147220993), u"(No error description for this code=-2147220993)");
  EXPECT_EQ(Lookup(0), u"(No error description for this code=0)");
  EXPECT_EQ(Lookup(5), u"(No error description for this code=5)");
  EXPECT_EQ(Lookup(INT32_MIN), u"(No error description for this code=-2147483648)");
  EXPECT_EQ(Lookup(INT32_MAX), u"(No error description for this code=2147483647)");
}

TEST(CErrQUIVTest, LookupLeavesTheCodeUnchanged) {
  int32_t code = -2147220945;
  (void)CErrQUIV().LastError(code);
  EXPECT_EQ(code, -2147220945);
}

TEST(CErrQUIVTest, LookupsWriteNothingToTheLog) {
  quiv::testing::RecordingPlatform platform;
  quiv::platform::ScopedPlatformOverride use{platform};
  (void)Lookup(-2147220992);
  (void)Lookup(-2147220836);
  EXPECT_TRUE(platform.m_entries.empty());
}

TEST(CErrQUIVTest, FailureInsideTheLookupIsLoggedAndGivesTheEmptyText) {
  const CErrQUIV catalogue;
  const int32_t code = -2147220836;
  quiv::testing::RecordingPlatform platform;
  quiv::platform::ScopedPlatformOverride use{platform};
  g_failNextAllocation = true;
  const String text = catalogue.LastError(code);
  const bool injected = !g_failNextAllocation.exchange(false);
  ASSERT_TRUE(injected) << "the lookup made no allocation to fail";
  EXPECT_EQ(Text(text), u"");
  ASSERT_EQ(platform.m_entries.size(), 1u);
  EXPECT_EQ(platform.m_entries[0].m_sText,
            "QUIV.CErrQUIV.LastError, Out of memory QUIV error was: -2147220836");
}

TEST(CErrQUIVTest, NameOfACode) {
  EXPECT_EQ(CErrQUIV::Name(-2147220945), "GENERAL_ERROR_UNABLE_TO_RELASE_CONTEXT");
  EXPECT_EQ(CErrQUIV::Name(-2147220992), "UNDEFINED_ERROR");
  EXPECT_EQ(CErrQUIV::Name(-2147220837), "SIGNATURE_ERROR_WHAT_TO_SIGN_NOT_SPECIFIED");
  EXPECT_EQ(CErrQUIV::Name(-2147220836), "");
  EXPECT_EQ(CErrQUIV::Name(-2147220993), "");
}

TEST(CErrQUIVTest, CodeOfAName) {
  EXPECT_EQ(CErrQUIV::Value("GENERAL_ERROR_UNABLE_TO_RELASE_CONTEXT"), -2147220945);
  EXPECT_EQ(CErrQUIV::Value("UNDEFINED_ERROR"), -2147220992);
  EXPECT_EQ(CErrQUIV::Value("GENERAL_ERROR_UNABLE_TO_RELEASE_CONTEXT"), std::nullopt);
  EXPECT_EQ(CErrQUIV::Value("undefined_error"), -2147220992);
  EXPECT_EQ(CErrQUIV::Value("UNDEFINED_ERRO"), std::nullopt);
  EXPECT_EQ(CErrQUIV::Value(""), std::nullopt);
}

}  // namespace
}  // namespace quiv
