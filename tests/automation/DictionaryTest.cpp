#include "automation/Dictionary.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

namespace quiv {
namespace {

using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::Property;
using ::testing::Throws;

TEST(Dictionary, KeepsInsertionOrder) {
  Dictionary map;
  map.Add(u"zeta", 1);
  map.Add(u"alpha", 2);
  map.Add(3, u"three");
  EXPECT_EQ(map.Count(), 3u);
  EXPECT_THAT(map.Keys(), ElementsAre(Variant(u"zeta"), Variant(u"alpha"), Variant(3)));
  EXPECT_THAT(map.Items(), ElementsAre(Variant(1), Variant(2), Variant(u"three")));
}

TEST(Dictionary, DuplicateKeyRaises457WithTheRunTimesText) {
  Dictionary map;
  map.Add(u"i_sHex", u"0G");
  EXPECT_THAT(
      [&] { map.Add(u"i_sHex", u"other"); },
      Throws<RuntimeError>(AllOf(
          Property(&RuntimeError::Number, 457),
          Property(&RuntimeError::Description,
                   String(u"This key is already associated with an element of this collection")))));
  EXPECT_EQ(map.Count(), 1u);
  EXPECT_EQ(map.Item(u"i_sHex"), Variant(u"0G"));
}

TEST(Dictionary, KeysCompareBinary) {
  Dictionary map;
  map.Add(u"Key", 1);
  map.Add(u"KEY", 2);  // a different key under binary comparison
  EXPECT_EQ(map.Count(), 2u);
  EXPECT_FALSE(map.Exists(u"key"));
  map.Add(u"1", 3);  // text "1" is not the number 1
  map.Add(1, 4);
  EXPECT_THROW(map.Add(int16_t{1}, 5), RuntimeError);  // Integer 1 is Long 1
  EXPECT_THROW(map.Add(1.0, 5), RuntimeError);
  map.Add(true, 6);  // a Boolean is not the number -1
  map.Add(-1, 7);
  EXPECT_EQ(map.Count(), 6u);
}

TEST(Dictionary, ItemSetsAndReadingAMissingKeyAddsIt) {
  Dictionary map;
  map.SetItem(u"a", 1);
  map.SetItem(u"b", 2);
  map.SetItem(u"a", 10);
  EXPECT_THAT(map.Items(), ElementsAre(Variant(10), Variant(2)));
  EXPECT_EQ(map.Item(u"missing"), Variant());
  EXPECT_EQ(map.Count(), 3u);
  EXPECT_TRUE(map.Exists(u"missing"));
  EXPECT_EQ(map.Find(u"absent"), nullptr);
  EXPECT_EQ(map.Count(), 3u);
}

TEST(Dictionary, RemoveAndRemoveAll) {
  Dictionary map;
  map.Add(u"a", 1);
  map.Add(u"b", 2);
  map.Add(u"c", 3);
  map.Remove(u"b");
  EXPECT_THAT(map.Keys(), ElementsAre(Variant(u"a"), Variant(u"c")));
  EXPECT_FALSE(map.Exists(u"b"));
  map.Add(u"b", 4);  // a removed key can be added again, at the end
  EXPECT_THAT(map.Keys(), ElementsAre(Variant(u"a"), Variant(u"c"), Variant(u"b")));
  EXPECT_THAT([&] { map.Remove(u"zz"); },
              Throws<RuntimeError>(Property(&RuntimeError::Number, 32811)));
  map.RemoveAll();
  EXPECT_EQ(map.Count(), 0u);
  EXPECT_TRUE(map.Keys().empty());
  map.Add(u"a", 5);
  EXPECT_EQ(map.Count(), 1u);
}

TEST(Dictionary, ByteArrayAndObjectKeysAndValues) {
  Dictionary map;
  const Ref<Dictionary> inner = MakeRef<Dictionary>();
  map.Add(ByteArray{1, 2}, u"bytes");
  map.Add(inner, u"object");
  map.Add(u"value", inner);
  EXPECT_TRUE(map.Exists(ByteArray{1, 2}));
  EXPECT_FALSE(map.Exists(ByteArray{1, 2, 3}));
  EXPECT_TRUE(map.Exists(inner));
  EXPECT_FALSE(map.Exists(MakeRef<Dictionary>()));
  EXPECT_TRUE(map.Item(u"value").ToObject() == inner);
}

TEST(Dictionary, ManyKeysStayFindable) {
  Dictionary map;
  for (int32_t i = 0; i < 2000; ++i) map.Add(i, String::FromInt(i));
  for (int32_t i = 0; i < 2000; i += 7) map.Remove(static_cast<double>(i));
  for (int32_t i = 0; i < 2000; ++i) EXPECT_EQ(map.Exists(i), i % 7 != 0) << i;
  EXPECT_EQ(map.Item(1999), Variant(u"1999"));
}

}  // namespace
}  // namespace quiv
