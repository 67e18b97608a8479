#include "automation/ErrObject.h"

#include <gtest/gtest.h>

#include "automation/RunTime.h"
#include "platform/wincrypt.h"

namespace quiv {
namespace {

TEST(ErrObject, StartsCleared) {
  const ErrObject err;
  EXPECT_EQ(err.Number(), 0);
  EXPECT_TRUE(err.Source().IsEmpty());
  EXPECT_TRUE(err.Description().IsEmpty());
  EXPECT_EQ(err.LastDllError(), 0u);
}

TEST(ErrObject, RaiseThrowsAndKeepsTheValues) {
  ::SetLastError(87);
  ErrObject err;
  try {
    err.Raise(-2147220990, u"QUIV.CConvert.DeHex", u"bad hex");
    FAIL() << "Raise returned";
  } catch (const RuntimeError& error) {
    EXPECT_EQ(error.Number(), -2147220990);
    EXPECT_EQ(error.Source(), String(u"QUIV.CConvert.DeHex"));
    EXPECT_EQ(error.Description(), String(u"bad hex"));
    EXPECT_EQ(error.LastDllError(), 87u);
  }
  EXPECT_EQ(err.Number(), -2147220990);
  EXPECT_EQ(err.LastDllError(), 87u);
  ::SetLastError(0);
}

TEST(ErrObject, RaiseFillsTheRunTimesSourceAndText) {
  ErrObject err;
  EXPECT_THROW(err.Raise(6), RuntimeError);
  EXPECT_EQ(err.Source(), String(u"QUIV"));
  EXPECT_EQ(err.Description(), String(u"Overflow"));
  EXPECT_THROW(err.Raise(1234), RuntimeError);
  EXPECT_EQ(err.Description(), String(u"Application-defined or object-defined error"));
}

TEST(ErrObject, LoadAndFromExceptionTakeAllFour) {
  const RuntimeError error(13, u"QUIV", u"Type mismatch", 5);
  const ErrObject loaded = ErrObject::FromException(error);
  EXPECT_EQ(loaded.Number(), 13);
  EXPECT_EQ(loaded.Source(), String(u"QUIV"));
  EXPECT_EQ(loaded.Description(), String(u"Type mismatch"));
  EXPECT_EQ(loaded.LastDllError(), 5u);
  const RuntimeError again = loaded.ToException();
  EXPECT_EQ(again.Number(), 13);
  EXPECT_EQ(again.LastDllError(), 5u);
}

TEST(ErrObject, ClearResetsEverything) {
  ErrObject err = ErrObject::FromException(RuntimeError(9, u"s", u"d", 2));
  err.Clear();
  EXPECT_EQ(err.Number(), 0);
  EXPECT_TRUE(err.Source().IsEmpty());
  EXPECT_TRUE(err.Description().IsEmpty());
  EXPECT_EQ(err.LastDllError(), 0u);
}

TEST(ErrObject, PropertiesAreWritable) {
  ErrObject err;
  err.SetNumber(91);
  err.SetSource(u"here");
  err.SetDescription(u"text");
  err.SetLastDllError(3);
  EXPECT_EQ(err.ToException().Number(), 91);
  EXPECT_EQ(err.ToException().Source(), String(u"here"));
  EXPECT_EQ(err.ToException().Description(), String(u"text"));
  EXPECT_EQ(err.ToException().LastDllError(), 3u);
}

}  // namespace
}  // namespace quiv
