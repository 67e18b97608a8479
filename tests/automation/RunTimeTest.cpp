#include "automation/RunTime.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>

#include "platform/wincrypt.h"

namespace quiv {
namespace {

using ::testing::AllOf;
using ::testing::Property;
using ::testing::Throws;

auto RaisesRuntime(int32_t number) {
  return Throws<RuntimeError>(Property(&RuntimeError::Number, number));
}

TEST(RunTime, DescriptionsAreTheRunTimesTexts) {
  EXPECT_EQ(RuntimeDescription(1), String(u"Application-defined or object-defined error"));
  EXPECT_EQ(RuntimeDescription(5), String(u"Invalid procedure call or argument"));
  EXPECT_EQ(RuntimeDescription(6), String(u"Overflow"));
  EXPECT_EQ(RuntimeDescription(9), String(u"Subscript out of range"));
  EXPECT_EQ(RuntimeDescription(13), String(u"Type mismatch"));
  EXPECT_EQ(RuntimeDescription(91), String(u"Object variable or With block variable not set"));
  EXPECT_EQ(RuntimeDescription(457),
            String(u"This key is already associated with an element of this collection"));
  EXPECT_EQ(RuntimeDescription(-2147220991), RuntimeDescription(1));
}

TEST(RunTime, RaiseRuntimeCarriesNumberSourceTextAndLastPlatformError) {
  ::SetLastError(0x57);
  EXPECT_THAT(
      [] { RaiseRuntime(13); },
      Throws<RuntimeError>(AllOf(Property(&RuntimeError::Number, 13),
                                 Property(&RuntimeError::Source, String(u"QUIV")),
                                 Property(&RuntimeError::Description, String(u"Type mismatch")),
                                 Property(&RuntimeError::LastDllError, 0x57u))));
  ::SetLastError(0);
}

TEST(RunTime, LastPlatformErrorIsThePlatformsPerThreadValue) {
  ::SetLastError(1234);
  EXPECT_EQ(LastPlatformError(), 1234u);
  ::SetLastError(0);
  EXPECT_EQ(LastPlatformError(), 0u);
}

TEST(RunTime, RoundsHalvesToEven) {
  EXPECT_EQ(RoundHalfEven(2.5), 2);
  EXPECT_EQ(RoundHalfEven(3.5), 4);
  EXPECT_EQ(RoundHalfEven(-2.5), -2);
  EXPECT_EQ(RoundHalfEven(-3.5), -4);
  EXPECT_EQ(RoundHalfEven(2.4999), 2);
  EXPECT_EQ(RoundHalfEven(2.5001), 3);
  EXPECT_EQ(CInt(0.5), 0);
  EXPECT_EQ(CInt(1.5), 2);
  EXPECT_EQ(CLng(-0.5), 0);
  EXPECT_EQ(CByte(254.5), 254);
}

TEST(RunTime, CIntOverflowsBeyondSixteenBits) {
  EXPECT_EQ(CInt(32767.0), 32767);
  EXPECT_EQ(CInt(32767.4), 32767);
  EXPECT_EQ(CInt(32766.5), 32766);
  EXPECT_THAT([] { CInt(32767.5); }, RaisesRuntime(6));  // rounds to 32768
  EXPECT_THAT([] { CInt(32768.0); }, RaisesRuntime(6));
  EXPECT_EQ(CInt(-32768.0), -32768);
  EXPECT_EQ(CInt(-32768.5), -32768);  // rounds to the even -32768
  EXPECT_THAT([] { CInt(-32769.0); }, RaisesRuntime(6));
  EXPECT_THAT([] { CInt(-32768.6); }, RaisesRuntime(6));
  EXPECT_EQ(CInt(int64_t{-32768}), -32768);
  EXPECT_THAT([] { CInt(int64_t{32768}); }, RaisesRuntime(6));
  EXPECT_EQ(CInt(7), 7);
  EXPECT_THAT([] { CInt(std::numeric_limits<double>::quiet_NaN()); }, RaisesRuntime(6));
}

TEST(RunTime, CLngOverflowsBeyondThirtyTwoBits) {
  EXPECT_EQ(CLng(2147483647.0), 2147483647);
  EXPECT_EQ(CLng(2147483646.5), 2147483646);
  EXPECT_THAT([] { CLng(2147483647.5); }, RaisesRuntime(6));
  EXPECT_EQ(CLng(-2147483648.0), INT32_MIN);
  EXPECT_EQ(CLng(-2147483648.5), INT32_MIN);
  EXPECT_THAT([] { CLng(-2147483649.0); }, RaisesRuntime(6));
  EXPECT_THAT([] { CLng(int64_t{2147483648}); }, RaisesRuntime(6));
  EXPECT_EQ(CLng(int64_t{-2147483648}), INT32_MIN);
  EXPECT_THAT([] { CLng(std::numeric_limits<uint64_t>::max()); }, RaisesRuntime(6));
  EXPECT_EQ(CLng(size_t{42}), 42);
}

TEST(RunTime, CByteOverflowsOutsideZeroTo255) {
  EXPECT_EQ(CByte(255.0), 255);
  EXPECT_EQ(CByte(-0.5), 0);
  EXPECT_THAT([] { CByte(255.5); }, RaisesRuntime(6));  // rounds to 256
  EXPECT_THAT([] { CByte(-1.0); }, RaisesRuntime(6));
  EXPECT_THAT([] { CByte(256); }, RaisesRuntime(6));
  EXPECT_EQ(CByte(int64_t{0}), 0);
}

TEST(RunTime, TextConvertsAsTheRunTimeReadsIt) {
  EXPECT_EQ(CInt(String(u"  42 ")), 42);
  EXPECT_EQ(CInt(String(u"-7")), -7);
  EXPECT_EQ(CInt(String(u"+2.5")), 2);
  EXPECT_EQ(CLng(String(u"1E3")), 1000);
  EXPECT_EQ(CLng(String(u"1.5D2")), 150);
  EXPECT_EQ(CLng(String(u".5")), 0);
  EXPECT_EQ(CInt(String(u"&HFF")), 255);
  EXPECT_EQ(CInt(String(u"&HFFFF")), -1);
  EXPECT_EQ(CLng(String(u"&H10000")), 65536);
  EXPECT_EQ(CLng(String(u"&HFFFFFFFF")), -1);
  EXPECT_EQ(CByte(String(u"&O17")), 15);
  EXPECT_DOUBLE_EQ(CDbl(String(u"3.25")), 3.25);
  EXPECT_THAT([] { CInt(String(u"32768")); }, RaisesRuntime(6));
  EXPECT_THAT([] { CLng(String(u"&H100000000")); }, RaisesRuntime(6));
  EXPECT_THAT([] { CDbl(String(u"1E999")); }, RaisesRuntime(6));
}

TEST(RunTime, NonNumericTextIsATypeMismatch) {
  for (const char16_t* text :
       {u"", u"   ", u"abc", u"12abc", u"1.2.3", u"1E", u"&H", u"&HZ", u"--1", u"True", u"1 2"}) {
    EXPECT_THAT([&] { CInt(String(text)); }, RaisesRuntime(13)) << String(text).ToUtf8();
  }
  EXPECT_THAT([] { CLng(String(u"x")); }, RaisesRuntime(13));
  EXPECT_THAT([] { CByte(String(u"x")); }, RaisesRuntime(13));
}

}  // namespace
}  // namespace quiv
