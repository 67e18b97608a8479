#include "automation/Variant.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <type_traits>

#include "automation/Dictionary.h"

namespace quiv {
namespace {

using ::testing::Property;
using ::testing::Throws;
using Kind = Variant::Kind;

auto RaisesRuntime(int32_t number) {
  return Throws<RuntimeError>(Property(&RuntimeError::Number, number));
}

TEST(Variant, KindsOfEachConstructor) {
  EXPECT_EQ(Variant().GetKind(), Kind::Empty);
  EXPECT_EQ(Variant(Nothing).GetKind(), Kind::Nothing);
  EXPECT_EQ(Variant(int16_t{1}).GetKind(), Kind::Integer);
  EXPECT_EQ(Variant(1).GetKind(), Kind::Long);
  EXPECT_EQ(Variant(1.0).GetKind(), Kind::Double);
  EXPECT_EQ(Variant(true).GetKind(), Kind::Boolean);
  EXPECT_EQ(Variant(u"x").GetKind(), Kind::String);
  EXPECT_EQ(Variant(ByteArray{1}).GetKind(), Kind::ByteArray);
  EXPECT_EQ(Variant(MakeRef<Dictionary>()).GetKind(), Kind::Object);
  EXPECT_EQ(Variant(Ref<Dictionary>()).GetKind(), Kind::Nothing);
}

TEST(Variant, TextForms) {
  EXPECT_EQ(Variant().TextForm(), String());
  EXPECT_EQ(Variant(int16_t{-32768}).TextForm(), String(u"-32768"));
  EXPECT_EQ(Variant(2147483647).TextForm(), String(u"2147483647"));
  EXPECT_EQ(Variant(0.25).TextForm(), String(u"0.25"));
  EXPECT_EQ(Variant(true).TextForm(), String(u"True"));
  EXPECT_EQ(Variant(false).TextForm(), String(u"False"));
  EXPECT_EQ(Variant(u"as is ").TextForm(), String(u"as is "));
}

TEST(Variant, ByteArrayTextFormReadsBytesAsCharacters) {
  // One byte: no whole character, so the text form is empty, though it still holds the byte.
  const String oneByte = Variant(ByteArray{7}).TextForm();
  EXPECT_TRUE(oneByte.IsEmpty());
  EXPECT_EQ(oneByte.Length(), 0u);
  EXPECT_EQ(oneByte.Bytes(), std::vector<uint8_t>{7});
  EXPECT_EQ(Variant(ByteArray{0x30, 0x00}).TextForm(), String(u"0"));
  EXPECT_EQ(Variant(ByteArray{0x41, 0x00, 0x42, 0x00, 0x43}).TextForm().u16(), u"AB");
  EXPECT_EQ(Variant(ByteArray(std::vector<uint8_t>{})).TextForm(), String());
}

TEST(Variant, ObjectsHaveNoTextForm) {
  EXPECT_THAT([] { (void)Variant(Nothing).TextForm(); }, RaisesRuntime(13));
  EXPECT_THAT([] { (void)Variant(MakeRef<Dictionary>()).TextForm(); }, RaisesRuntime(13));
}

TEST(Variant, BooleanTrueIsMinusOne) {
  EXPECT_EQ(Variant(true).ToInteger(), -1);
  EXPECT_EQ(Variant(true).ToLong(), -1);
  EXPECT_EQ(Variant(false).ToDouble(), 0);
}

TEST(Variant, NumericConversionsCheckAndRound) {
  EXPECT_EQ(Variant().ToLong(), 0);
  EXPECT_EQ(Variant(2.5).ToInteger(), 2);
  EXPECT_EQ(Variant(u" 12 ").ToLong(), 12);
  EXPECT_THAT([] { (void)Variant(40000).ToInteger(); }, RaisesRuntime(6));
  EXPECT_THAT([] { (void)Variant(u"abc").ToLong(); }, RaisesRuntime(13));
  EXPECT_THAT([] { (void)Variant(ByteArray{1}).ToDouble(); }, RaisesRuntime(13));
  EXPECT_THAT([] { (void)Variant(Nothing).ToLong(); }, RaisesRuntime(13));
}

TEST(Variant, BooleanConversions) {
  EXPECT_TRUE(Variant(-1).ToBoolean());
  EXPECT_TRUE(Variant(0.5).ToBoolean());
  EXPECT_FALSE(Variant(int16_t{0}).ToBoolean());
  EXPECT_TRUE(Variant(u"true").ToBoolean());
  EXPECT_FALSE(Variant(u"FALSE").ToBoolean());
  EXPECT_TRUE(Variant(u"3").ToBoolean());
  EXPECT_THAT([] { (void)Variant(u"yes").ToBoolean(); }, RaisesRuntime(13));
}

TEST(Variant, ByteArrayAndObjectAccess) {
  EXPECT_EQ(Variant(ByteArray{1, 2}).ToByteArray(), (ByteArray{1, 2}));
  EXPECT_EQ(Variant(u"A").ToByteArray(), (ByteArray{0x41, 0x00}));
  EXPECT_THAT([] { (void)Variant(5).ToByteArray(); }, RaisesRuntime(13));
  const Ref<Dictionary> dictionary = MakeRef<Dictionary>();
  const Variant held(dictionary);
  EXPECT_TRUE(held.ToObject() == dictionary);
  EXPECT_EQ(dictionary.UseCount(), 2);
  EXPECT_TRUE(held.ToObject().As<Dictionary>() == dictionary);
  EXPECT_TRUE(Variant(Nothing).ToObject().IsNothing());
  EXPECT_THAT([] { (void)Variant(1).ToObject(); }, RaisesRuntime(13));
}

TEST(Variant, Equality) {
  EXPECT_EQ(Variant(int16_t{1}), Variant(1));
  EXPECT_EQ(Variant(1), Variant(1.0));
  EXPECT_NE(Variant(1), Variant(2));
  EXPECT_NE(Variant(1), Variant(u"1"));
  EXPECT_NE(Variant(true), Variant(-1));
  EXPECT_NE(Variant(u"a"), Variant(u"A"));
  EXPECT_EQ(Variant(), Variant());
  EXPECT_NE(Variant(), Variant(Nothing));
  EXPECT_EQ(Variant(Nothing), Variant(Nothing));
  const Ref<Dictionary> one = MakeRef<Dictionary>();
  EXPECT_EQ(Variant(one), Variant(one));
  EXPECT_NE(Variant(one), Variant(MakeRef<Dictionary>()));
}

}  // namespace
}  // namespace quiv

// Narrow text must not silently become a Boolean through pointer decay.
static_assert(!std::is_constructible_v<quiv::Variant, const char*>);
static_assert(std::is_constructible_v<quiv::Variant, const char16_t*>);
