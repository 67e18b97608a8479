#include "automation/MapPageContext.h"

#include <gtest/gtest.h>

#include "automation/Ref.h"

namespace quiv {
namespace {

TEST(MapPageContext, AnswersServerVariablesCaseInsensitively) {
  const MapPageContext page({{u"PATH_INFO", u"/pay.asp"}, {u"http_cookie", u"id=7"}}, u"a=1&b=2");
  EXPECT_EQ(page.ServerVariable(u"PATH_INFO"), String(u"/pay.asp"));
  EXPECT_EQ(page.ServerVariable(u"path_info"), String(u"/pay.asp"));
  EXPECT_EQ(page.ServerVariable(u"HTTP_COOKIE"), String(u"id=7"));
  EXPECT_EQ(page.ServerVariable(u"LOCAL_ADDR"), String());
  EXPECT_EQ(page.QueryString(), String(u"a=1&b=2"));
}

TEST(MapPageContext, IsAPageContextObject) {
  const Ref<Object> object = MakeRef<MapPageContext>(std::map<String, String>{}, String());
  const Ref<IPageContext> page = object.As<IPageContext>();
  ASSERT_FALSE(page.IsNothing());
  EXPECT_EQ(page->QueryString(), String());
  EXPECT_EQ(page->TypeName(), String(u"MapPageContext"));
}

}  // namespace
}  // namespace quiv
