#include "automation/ByteArray.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "automation/RuntimeError.h"
#include "automation/String.h"

namespace quiv {
namespace {

using ::testing::ElementsAre;
using ::testing::Property;
using ::testing::Throws;

auto RaisesRuntime(int32_t number) {
  return Throws<RuntimeError>(Property(&RuntimeError::Number, number));
}

TEST(ByteArray, FreshArrayIsOneZeroElementAndEmpty) {
  const ByteArray bytes;
  EXPECT_EQ(bytes.size(), 1u);
  EXPECT_EQ(bytes.UBound(), 0);
  EXPECT_EQ(bytes[0], 0);
  EXPECT_TRUE(bytes.IsEmpty());
}

TEST(ByteArray, ClearReturnsToTheEmptyForm) {
  ByteArray bytes{1, 2, 3};
  EXPECT_FALSE(bytes.IsEmpty());
  bytes.Clear();
  EXPECT_EQ(bytes.UBound(), 0);
  EXPECT_EQ(bytes[0], 0);
  EXPECT_TRUE(bytes.IsEmpty());
}

TEST(ByteArray, OneNonZeroByteOrTwoZeroBytesAreNotEmpty) {
  EXPECT_FALSE(ByteArray{7}.IsEmpty());
  EXPECT_FALSE((ByteArray{0, 0}).IsEmpty());
}

TEST(ByteArray, NoElementsHasUpperBoundMinusOne) {
  const ByteArray none(std::vector<uint8_t>{});
  EXPECT_EQ(none.UBound(), -1);
  EXPECT_EQ(none.size(), 0u);
  EXPECT_TRUE(none.IsEmpty());
  EXPECT_EQ(ByteArray::FromString(String()).UBound(), -1);
}

TEST(ByteArray, ReDimPreserveKeepsLeadingBytesAndZeroFills) {
  ByteArray bytes{1, 2, 3};
  bytes.ReDimPreserve(4);
  EXPECT_EQ(bytes.UBound(), 4);
  EXPECT_THAT(bytes.ToVector(), ElementsAre(1, 2, 3, 0, 0));
  bytes.ReDimPreserve(1);
  EXPECT_THAT(bytes.ToVector(), ElementsAre(1, 2));
  bytes.ReDimPreserve(0);
  EXPECT_THAT(bytes.ToVector(), ElementsAre(1));
  EXPECT_THAT([&] { bytes.ReDimPreserve(-1); }, RaisesRuntime(9));
}

TEST(ByteArray, ReserveKeepsTheContentAndLetsReDimPreserveStayInPlace) {
  ByteArray bytes{1, 2, 3};
  bytes.Reserve(64);
  EXPECT_THAT(bytes.ToVector(), ElementsAre(1, 2, 3));
  const uint8_t* const before = bytes.data();
  bytes.ReDimPreserve(63);
  EXPECT_EQ(bytes.data(), before);
  EXPECT_EQ(bytes.UBound(), 63);
  EXPECT_EQ(bytes[2], 3);
  EXPECT_EQ(bytes[63], 0);
}

TEST(ByteArray, CapacityShowsWhatFitsBeforeTheBufferMoves) {
  ByteArray bytes{1, 2, 3};
  EXPECT_GE(bytes.Capacity(), 3u);
  bytes.Reserve(40);
  EXPECT_GE(bytes.Capacity(), 40u);
  EXPECT_EQ(bytes.UBound(), 2);
}

TEST(ByteArray, WipeZeroesEveryElementAndKeepsTheSize) {
  ByteArray bytes{7, 8, 9, 10};
  bytes.Wipe();
  EXPECT_THAT(bytes.ToVector(), ElementsAre(0, 0, 0, 0));
  ByteArray none(std::vector<uint8_t>{});
  none.Wipe();
  EXPECT_EQ(none.UBound(), -1);
}

TEST(ByteArray, CheckedIndexRaisesSubscriptOutOfRange) {
  ByteArray bytes{10, 20};
  EXPECT_EQ(bytes.At(1), 20);
  bytes.At(0) = 11;
  EXPECT_EQ(bytes[0], 11);
  EXPECT_THAT([&] { (void)bytes.At(2); }, RaisesRuntime(9));
  EXPECT_THAT([&] { (void)bytes.At(-1); }, RaisesRuntime(9));
}

TEST(ByteArray, ConstructionFromVectorAndSpan) {
  const std::vector<uint8_t> source = {5, 6, 7};
  const ByteArray fromVector(source);
  const ByteArray fromSpan(std::span<const uint8_t>(source).subspan(1));
  EXPECT_EQ(fromVector.ToVector(), source);
  EXPECT_THAT(fromSpan.ToVector(), ElementsAre(6, 7));
  EXPECT_EQ(fromSpan.data()[0], 6);
  EXPECT_NE(fromVector, fromSpan);
}

TEST(ByteArray, StringRoundTripKeepsAnOddByte) {
  const ByteArray bytes{0x48, 0x00, 0x69, 0x00, 0x21};
  const String text = bytes.ToString();
  EXPECT_EQ(text.u16(), u"Hi");
  EXPECT_EQ(ByteArray::FromString(text), bytes);
}

}  // namespace
}  // namespace quiv
