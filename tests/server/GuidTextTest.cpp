// GUID text: the registry form of the library's own identifiers and the standard ones, and the
// exported CLSIDFromString / IIDFromString / StringFromGUID2 with the platform's answers.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "server/GuidText.h"
#include "server/quiv_com.h"

namespace {

using quiv::server::FormatGuid;
using quiv::server::ParseGuid;

// The type library's identifier, field by field as the text reads.
TEST(GuidTextTest, ParsesTheFieldsInTheirTextOrder) {
  const auto guid = ParseGuid(std::string_view("{FC37858F-3747-44D2-8A34-C6371C2CF212}"));
  ASSERT_TRUE(guid);
  EXPECT_EQ(guid->Data1, 0xFC37858Fu);
  EXPECT_EQ(guid->Data2, 0x3747);
  EXPECT_EQ(guid->Data3, 0x44D2);
  const uint8_t tail[8] = {0x8A, 0x34, 0xC6, 0x37, 0x1C, 0x2C, 0xF2, 0x12};
  EXPECT_EQ(std::memcmp(guid->Data4, tail, 8), 0);
}

TEST(GuidTextTest, FormatsUpperCaseWithBraces) {
  EXPECT_EQ(FormatGuid(IID_IDispatch), "{00020400-0000-0000-C000-000000000046}");
  EXPECT_EQ(FormatGuid(GUID_NULL), "{00000000-0000-0000-0000-000000000000}");
}

TEST(GuidTextTest, LowerCaseReadsTheSame) {
  const auto upper = ParseGuid(std::string_view("{11005E58-1605-4823-A111-015C80BEF343}"));
  const auto lower = ParseGuid(std::string_view("{11005e58-1605-4823-a111-015c80bef343}"));
  ASSERT_TRUE(upper && lower);
  EXPECT_TRUE(IsEqualGUID(&*upper, &*lower));
  EXPECT_EQ(FormatGuid(*lower), "{11005E58-1605-4823-A111-015C80BEF343}");
}

TEST(GuidTextTest, MalformedTextIsRefused) {
  for (const char* text :
       {"", "{}", "11005E58-1605-4823-A111-015C80BEF343", "{11005E58-1605-4823-A111-015C80BEF343",
        "{11005E58-1605-4823-A111-015C80BEF3430}", "{11005E58-1605-4823-A111-015C80BEF34G}",
        "{11005E58+1605-4823-A111-015C80BEF343}", "{11005E5-81605-4823-A111-015C80BEF343}",
        "(11005E58-1605-4823-A111-015C80BEF343)", " {11005E58-1605-4823-A111-015C80BEF343}"}) {
    EXPECT_FALSE(ParseGuid(std::string_view(text))) << text;
  }
}

TEST(GuidTextTest, ClsidFromStringReadsTheBracedForm) {
  CLSID clsid{};
  ASSERT_EQ(CLSIDFromString(u"{00020400-0000-0000-C000-000000000046}", &clsid), S_OK);
  EXPECT_TRUE(IsEqualCLSID(&clsid, &IID_IDispatch));
}

TEST(GuidTextTest, ClsidFromStringOfNullIsTheNullGuid) {
  CLSID clsid = IID_IDispatch;
  ASSERT_EQ(CLSIDFromString(nullptr, &clsid), S_OK);
  EXPECT_TRUE(IsEqualCLSID(&clsid, &GUID_NULL));
}

TEST(GuidTextTest, MalformedClassAndInterfaceStrings) {
  CLSID clsid = IID_IDispatch;
  EXPECT_EQ(CLSIDFromString(u"not a guid", &clsid), CO_E_CLASSSTRING);
  EXPECT_TRUE(IsEqualCLSID(&clsid, &GUID_NULL));
  IID iid{};
  EXPECT_EQ(IIDFromString(u"{0002040-0000-0000-C000-000000000046}", &iid), CO_E_IIDSTRING);
  EXPECT_EQ(CLSIDFromString(u"{00020400-0000-0000-C000-000000000046}", nullptr), E_INVALIDARG);
}

TEST(GuidTextTest, StringFromGuid2WritesThirtyNineUnits) {
  OLECHAR buffer[39];
  ASSERT_EQ(StringFromGUID2(&IID_IUnknown, buffer, 39), 39);
  EXPECT_EQ(std::u16string(buffer), u"{00000000-0000-0000-C000-000000000046}");
  EXPECT_EQ(StringFromGUID2(&IID_IUnknown, buffer, 38), 0);  // no room for the terminator
}

TEST(GuidTextTest, RoundTripThroughTheExportedFunctions) {
  const auto original = ParseGuid(std::string_view("{945EDD42-5E55-4416-A74A-C6643780569C}"));
  OLECHAR buffer[40];
  ASSERT_EQ(StringFromGUID2(&*original, buffer, 40), 39);
  CLSID back{};
  ASSERT_EQ(CLSIDFromString(buffer, &back), S_OK);
  EXPECT_TRUE(IsEqualCLSID(&back, &*original));
}

}  // namespace
