// The BSTR functions: the layout callers read directly (length prefix in bytes, terminator), and
// the platform's answers for NULL, odd byte lengths and embedded NULs.
#include <gtest/gtest.h>

#include <cstring>
#include <limits>
#include <string>

#include "server/quiv_com.h"

namespace {

uint32_t Prefix(BSTR s) {
  uint32_t length = 0;
  std::memcpy(&length, reinterpret_cast<const char*>(s) - 4, 4);
  return length;
}

TEST(BstrApiTest, SysAllocStringCopiesUpToTheTerminatorAndPrefixesTheByteLength) {
  BSTR s = SysAllocString(u"Hello");
  ASSERT_NE(s, nullptr);
  EXPECT_EQ(std::u16string(s), u"Hello");
  EXPECT_EQ(SysStringLen(s), 5u);
  EXPECT_EQ(SysStringByteLen(s), 10u);
  EXPECT_EQ(Prefix(s), 10u);
  EXPECT_EQ(s[5], 0);
  SysFreeString(s);
}

TEST(BstrApiTest, SysAllocStringOfNullIsNull) {
  EXPECT_EQ(SysAllocString(nullptr), nullptr);
}

TEST(BstrApiTest, SysAllocStringOfEmptyIsAnEmptyStringNotNull) {
  BSTR s = SysAllocString(u"");
  ASSERT_NE(s, nullptr);
  EXPECT_EQ(SysStringLen(s), 0u);
  EXPECT_EQ(s[0], 0);
  SysFreeString(s);
}

TEST(BstrApiTest, NullBstrIsTheEmptyString) {
  EXPECT_EQ(SysStringLen(nullptr), 0u);
  EXPECT_EQ(SysStringByteLen(nullptr), 0u);
  SysFreeString(nullptr);  // no effect
}

TEST(BstrApiTest, SysAllocStringLenKeepsEmbeddedNuls) {
  const char16_t text[] = {u'a', 0, u'b', 0, u'c'};
  BSTR s = SysAllocStringLen(text, 5);
  ASSERT_NE(s, nullptr);
  EXPECT_EQ(SysStringLen(s), 5u);
  EXPECT_EQ(std::u16string(s, SysStringLen(s)), std::u16string(text, 5));
  EXPECT_EQ(s[5], 0);
  SysFreeString(s);
}

TEST(BstrApiTest, SysAllocStringLenOfNullGivesZeroedRoomOfThatLength) {
  BSTR s = SysAllocStringLen(nullptr, 3);
  ASSERT_NE(s, nullptr);
  EXPECT_EQ(SysStringLen(s), 3u);
  for (int i = 0; i <= 3; ++i) EXPECT_EQ(s[i], 0);
  SysFreeString(s);
}

TEST(BstrApiTest, SysAllocStringLenCopiesOnlyTheCountGiven) {
  BSTR s = SysAllocStringLen(u"abcdef", 2);
  EXPECT_EQ(std::u16string(s), u"ab");
  SysFreeString(s);
}

TEST(BstrApiTest, ByteLenStringOfOddLengthKeepsItsByteCount) {
  BSTR s = SysAllocStringByteLen("abc", 3);
  ASSERT_NE(s, nullptr);
  EXPECT_EQ(SysStringByteLen(s), 3u);
  EXPECT_EQ(SysStringLen(s), 1u);  // whole units only
  EXPECT_EQ(std::memcmp(s, "abc", 3), 0);
  // A zero byte right after the data, and a whole zero unit after that.
  EXPECT_EQ(reinterpret_cast<const char*>(s)[3], 0);
  EXPECT_EQ(s[2], 0);
  SysFreeString(s);
}

TEST(BstrApiTest, ByteLenStringKeepsBinaryBytes) {
  const char bytes[] = {'\0', '\xff', '\x80', '\0'};
  BSTR s = SysAllocStringByteLen(bytes, 4);
  EXPECT_EQ(SysStringByteLen(s), 4u);
  EXPECT_EQ(std::memcmp(s, bytes, 4), 0);
  SysFreeString(s);
}

TEST(BstrApiTest, ByteLenStringOfNullIsZeroedRoom) {
  BSTR s = SysAllocStringByteLen(nullptr, 5);
  ASSERT_NE(s, nullptr);
  EXPECT_EQ(SysStringByteLen(s), 5u);
  for (int i = 0; i < 5; ++i) EXPECT_EQ(reinterpret_cast<const char*>(s)[i], 0);
  SysFreeString(s);
}

TEST(BstrApiTest, ZeroByteLenStringIsEmptyNotNull) {
  BSTR s = SysAllocStringByteLen("x", 0);
  ASSERT_NE(s, nullptr);
  EXPECT_EQ(SysStringByteLen(s), 0u);
  EXPECT_EQ(s[0], 0);
  SysFreeString(s);
}

TEST(BstrApiTest, LengthsBeyondTheByteCountPrefixAreRefused) {
  EXPECT_EQ(SysAllocStringLen(nullptr, 0x80000000u), nullptr);
  EXPECT_EQ(SysAllocStringLen(nullptr, std::numeric_limits<UINT>::max()), nullptr);
  EXPECT_EQ(SysAllocStringByteLen(nullptr, std::numeric_limits<UINT>::max()), nullptr);
}

TEST(BstrApiTest, TheCharactersAreEightByteAligned) {
  BSTR s = SysAllocString(u"x");
  EXPECT_EQ(reinterpret_cast<uintptr_t>(s) % 8, 0u);
  SysFreeString(s);
}

TEST(BstrApiTest, ReAllocReplacesTheStringEvenFromItsOwnCharacters) {
  BSTR s = SysAllocString(u"Hello world");
  ASSERT_TRUE(SysReAllocString(&s, s + 6));
  EXPECT_EQ(std::u16string(s), u"world");
  ASSERT_TRUE(SysReAllocStringLen(&s, s, 3));
  EXPECT_EQ(std::u16string(s), u"wor");
  EXPECT_EQ(SysStringLen(s), 3u);
  SysFreeString(s);
}

TEST(BstrApiTest, ReAllocOfNullStringPointerFails) {
  EXPECT_FALSE(SysReAllocString(nullptr, u"x"));
  EXPECT_FALSE(SysReAllocStringLen(nullptr, u"x", 1));
}

TEST(BstrApiTest, ReAllocToNullLeavesNull) {
  BSTR s = SysAllocString(u"abc");
  EXPECT_TRUE(SysReAllocString(&s, nullptr));
  EXPECT_EQ(s, nullptr);
}

}  // namespace
