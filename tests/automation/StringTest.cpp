#include "automation/String.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <vector>

#include "automation/RuntimeError.h"

namespace quiv {
namespace {

using ::testing::ElementsAre;
using ::testing::Property;
using ::testing::Throws;

auto RaisesRuntime(int32_t number) {
  return Throws<RuntimeError>(Property(&RuntimeError::Number, number));
}

TEST(String, OddNumberOfBytesSurvivesTheRoundTrip) {
  const std::vector<uint8_t> bytes = {0x41, 0x00, 0x42, 0x00, 0x7F};
  const String text = String::FromBytes(bytes);
  EXPECT_EQ(text.Length(), 2u);
  EXPECT_EQ(text.ByteLength(), 5u);
  EXPECT_TRUE(text.HasOddByte());
  EXPECT_EQ(text.u16(), u"AB");
  EXPECT_EQ(text.Bytes(), bytes);
}

TEST(String, SingleByteIsEmptyTextButKeepsItsByte) {
  const std::vector<uint8_t> one = {0x07};
  const String text = String::FromBytes(one);
  EXPECT_EQ(text.Length(), 0u);
  EXPECT_EQ(text.ByteLength(), 1u);
  EXPECT_TRUE(text.IsEmpty());
  EXPECT_EQ(text.Bytes(), one);
  EXPECT_NE(text, String());
}

TEST(String, BytesAreLittleEndianUnits) {
  EXPECT_THAT(String(u"\u20AC!").Bytes(), ElementsAre(0xAC, 0x20, 0x21, 0x00));
}

TEST(String, Utf8RoundTripIncludingANonBmpCharacter) {
  const std::string utf8 = "A\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80";  // A é € U+1F600
  const String text = String::FromUtf8(utf8);
  EXPECT_EQ(text.u16(), u"A\u00E9\u20AC\U0001F600");
  EXPECT_EQ(text.Length(), 5u);  // the emoji is a surrogate pair
  EXPECT_EQ(text.ToUtf8(), utf8);
  EXPECT_EQ(text.ToNarrow(), utf8);
}

TEST(String, InvalidUtf8AndLoneSurrogatesBecomeReplacementCharacters) {
  EXPECT_EQ(String::FromUtf8("a\xFF"
                             "b")
                .u16(),
            u"a\uFFFDb");
  EXPECT_EQ(String::FromUtf8("\xC0\xAF").u16(), u"\uFFFD\uFFFD");  // overlong '/'
  EXPECT_EQ(String::FromUtf8("\xE2\x82").u16(), u"\uFFFD\uFFFD");  // truncated
  const char16_t lone[] = {0xD800, u'x', 0};
  EXPECT_EQ(String(lone).ToUtf8(), "\xEF\xBF\xBDx");
}

TEST(String, ConcatenationKeepsBytes) {
  EXPECT_EQ(String(u"ab") + String(u"cd"), String(u"abcd"));
  const std::vector<uint8_t> odd = {0x41, 0x00, 0x42};
  const std::vector<uint8_t> tail = {0x00, 0x43, 0x00};
  const String joined = String::FromBytes(odd) + String::FromBytes(tail);
  EXPECT_EQ(joined.Bytes(), (std::vector<uint8_t>{0x41, 0x00, 0x42, 0x00, 0x43, 0x00}));
  EXPECT_EQ(joined.u16(), u"ABC");
}

TEST(String, BinaryAndTextComparison) {
  EXPECT_LT(String(u"B"), String(u"a"));
  EXPECT_NE(String(u"abc"), String(u"ABC"));
  EXPECT_EQ(String(u"abc").CompareText(u"ABC"), 0);
  EXPECT_EQ(String(u"\u00E9t\u00E9").CompareText(u"\u00C9T\u00C9"), 0);
  EXPECT_EQ(String(u"abc").CompareText(u"abd"), -1);
  EXPECT_EQ(String(u"abcd").CompareText(u"ABC"), 1);
  EXPECT_TRUE(String(u"Content-Type").EqualsText(u"content-type"));
}

TEST(String, LeftMidRight) {
  const String text(u"Hello, world");
  EXPECT_EQ(text.Left(5), String(u"Hello"));
  EXPECT_EQ(text.Left(100), text);
  EXPECT_EQ(text.Right(5), String(u"world"));
  EXPECT_EQ(text.Right(100), text);
  EXPECT_EQ(text.Mid(8), String(u"world"));
  EXPECT_EQ(text.Mid(1, 4), String(u"Hell"));
  EXPECT_EQ(text.Mid(12, 5), String(u"d"));
  EXPECT_EQ(text.Mid(13), String());
  EXPECT_THAT([&] { (void)text.Mid(0); }, RaisesRuntime(5));
}

TEST(String, TrimRemovesBlanksOnly) {
  const String text(u"  \tab c \t ");
  EXPECT_EQ(text.Trim(), String(u"\tab c \t"));
  EXPECT_EQ(text.LTrim(), String(u"\tab c \t "));
  EXPECT_EQ(text.RTrim(), String(u"  \tab c \t"));
  EXPECT_EQ(String(u"   ").Trim(), String());
}

TEST(String, CaseConversion) {
  EXPECT_EQ(String(u"abc XYZ 123 \u00E9\u0101\u03B1\u0436").UCase(),
            String(u"ABC XYZ 123 \u00C9\u0100\u0391\u0416"));
  EXPECT_EQ(String(u"ABC xyz \u00C9\u0178\u0141").LCase(), String(u"abc xyz \u00E9\u00FF\u0142"));
  EXPECT_EQ(String(u"\u00F7\u00D7").UCase(), String(u"\u00F7\u00D7"));
}

TEST(String, InStr) {
  const String text(u"abcabc");
  EXPECT_EQ(text.InStr(u"bc"), 2u);
  EXPECT_EQ(text.InStr(u"bc", 3), 5u);
  EXPECT_EQ(text.InStr(u"x"), 0u);
  EXPECT_EQ(text.InStr(u"", 4), 4u);
  EXPECT_EQ(text.InStr(u"a", 7), 0u);
  EXPECT_EQ(text.InStr(u"", 8), 0u);
  EXPECT_THAT([&] { (void)text.InStr(u"a", 0); }, RaisesRuntime(5));
}

TEST(String, Split) {
  EXPECT_THAT(String(u"QUIV.CProvider.Get WinVer").Split(u"."),
              ElementsAre(String(u"QUIV"), String(u"CProvider"), String(u"Get WinVer")));
  EXPECT_THAT(String(u"a..b.").Split(u"."),
              ElementsAre(String(u"a"), String(), String(u"b"), String()));
  EXPECT_TRUE(String().Split(u".").empty());
  EXPECT_THAT(String(u"a.b").Split(u""), ElementsAre(String(u"a.b")));
  EXPECT_THAT(String(u"a<>b").Split(u"<>"), ElementsAre(String(u"a"), String(u"b")));
}

TEST(String, Replace) {
  EXPECT_EQ(String(u"aXbXXc").Replace(u"X", u"--"), String(u"a--b----c"));
  EXPECT_EQ(String(u"aaa").Replace(u"aa", u"b"), String(u"ba"));
  EXPECT_EQ(String(u"abc").Replace(u"", u"z"), String(u"abc"));
  EXPECT_EQ(String(u"abc").Replace(u"b", u""), String(u"ac"));
}

TEST(String, NumbersInTheRunTimesTextForm) {
  EXPECT_EQ(String::FromInt(0).ToUtf8(), "0");
  EXPECT_EQ(String::FromInt(-32768).ToUtf8(), "-32768");
  EXPECT_EQ(String::FromInt(INT64_MIN).ToUtf8(), "-9223372036854775808");
  EXPECT_EQ(String::FromDouble(0.5).ToUtf8(), "0.5");
  EXPECT_EQ(String::FromDouble(-2.25).ToUtf8(), "-2.25");
  EXPECT_EQ(String::FromDouble(100).ToUtf8(), "100");
  EXPECT_EQ(String::FromDouble(1.0 / 3).ToUtf8(), "0.333333333333333");
  EXPECT_EQ(String::FromDouble(123456789012345.0).ToUtf8(), "123456789012345");
  EXPECT_EQ(String::FromDouble(1e15).ToUtf8(), "1E+15");
  EXPECT_EQ(String::FromDouble(0.0001).ToUtf8(), "0.0001");
  EXPECT_EQ(String::FromDouble(0.000015).ToUtf8(), "1.5E-05");
  EXPECT_EQ(String::FromDouble(-0.0).ToUtf8(), "0");
}

}  // namespace
}  // namespace quiv
