#include "automation/RuntimeError.h"

#include <gtest/gtest.h>

#include <string>

namespace quiv {
namespace {

TEST(RuntimeError, CarriesItsFourValues) {
  const RuntimeError error(-2147220991, u"QUIV.CErrHandler", u"It failed", 0x80090008u);
  EXPECT_EQ(error.Number(), -2147220991);
  EXPECT_EQ(error.Source(), String(u"QUIV.CErrHandler"));
  EXPECT_EQ(error.Description(), String(u"It failed"));
  EXPECT_EQ(error.LastDllError(), 0x80090008u);
  EXPECT_EQ(std::string(error.what()), "-2147220991: It failed (QUIV.CErrHandler)");
}

TEST(RuntimeError, IsAStandardException) {
  try {
    throw RuntimeError(5, u"src", u"d\u00E9j\u00E0", 0);
  } catch (const std::exception& caught) {
    EXPECT_EQ(std::string(caught.what()), "5: d\xC3\xA9j\xC3\xA0 (src)");
    return;
  }
  FAIL() << "not caught as std::exception";
}

}  // namespace
}  // namespace quiv
