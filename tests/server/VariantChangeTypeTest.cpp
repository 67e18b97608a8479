// VariantChangeType against the automation run time's documented conversions (CInt, CLng, CDbl,
// CBool, CStr, CByte and the byte-array assignment of a string in the run time's language):
// rounding half to even, ranges, numeric strings, booleans, objects' default members.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <string>

#include "server/FakeDispatch.h"
#include "server/quiv_com.h"

namespace {

using quiv::test::FakeDispatch;
using quiv::test::FakeUnknown;

// A variant that clears itself.
struct Var {
  VARIANT v;
  Var() { VariantInit(&v); }
  ~Var() { VariantClear(&v); }
  Var(const Var&) = delete;
  Var& operator=(const Var&) = delete;
};

VARIANT R8(double d) {
  VARIANT v;
  v.vt = VT_R8;
  v.dblVal = d;
  return v;
}

VARIANT I4(LONG l) {
  VARIANT v;
  v.vt = VT_I4;
  v.lVal = l;
  return v;
}

VARIANT Bool(bool b) {
  VARIANT v;
  v.vt = VT_BOOL;
  v.boolVal = b ? VARIANT_TRUE : VARIANT_FALSE;
  return v;
}

// Converts and returns the HRESULT; the result is in `out`.
HRESULT Change(const VARIANT& from, VARTYPE vt, Var* out, USHORT flags = 0) {
  return VariantChangeType(&out->v, &from, flags, vt);
}

// Converts a string (the variant owns a fresh BSTR).
HRESULT ChangeText(const char16_t* text, VARTYPE vt, Var* out, USHORT flags = 0) {
  Var from;
  from.v.vt = VT_BSTR;
  from.v.bstrVal = SysAllocString(text);
  return Change(from.v, vt, out, flags);
}

std::u16string TextOf(const Var& v) {
  return std::u16string(v.v.bstrVal, SysStringLen(v.v.bstrVal));
}

TEST(VariantChangeTypeTest, DoublesRoundHalfToEvenToIntegers) {
  struct Case {
    double in;
    SHORT out;
  };
  for (const Case c : {Case{2.5, 2}, Case{3.5, 4}, Case{-2.5, -2}, Case{-3.5, -4}, Case{0.5, 0},
                       Case{1.5, 2}, Case{2.4999, 2}, Case{2.5001, 3}, Case{-0.5, 0}}) {
    Var out;
    ASSERT_EQ(Change(R8(c.in), VT_I2, &out), S_OK) << c.in;
    EXPECT_EQ(out.v.vt, VT_I2);
    EXPECT_EQ(out.v.iVal, c.out) << c.in;
  }
}

TEST(VariantChangeTypeTest, I2RangeEdgesAfterRounding) {
  Var out;
  EXPECT_EQ(Change(R8(32767.4), VT_I2, &out), S_OK);
  EXPECT_EQ(out.v.iVal, 32767);
  EXPECT_EQ(Change(R8(32767.5), VT_I2, &out), DISP_E_OVERFLOW);  // rounds to 32768
  EXPECT_EQ(Change(R8(-32768.5), VT_I2, &out), S_OK);            // rounds to -32768
  EXPECT_EQ(out.v.iVal, -32768);
  EXPECT_EQ(Change(R8(-32768.51), VT_I2, &out), DISP_E_OVERFLOW);
  EXPECT_EQ(Change(I4(32768), VT_I2, &out), DISP_E_OVERFLOW);
  EXPECT_EQ(Change(I4(-32769), VT_I2, &out), DISP_E_OVERFLOW);
  EXPECT_EQ(Change(I4(-32768), VT_I2, &out), S_OK);
  EXPECT_EQ(out.v.iVal, -32768);
}

TEST(VariantChangeTypeTest, I4RangeEdgesAfterRounding) {
  Var out;
  EXPECT_EQ(Change(R8(2147483647.0), VT_I4, &out), S_OK);
  EXPECT_EQ(out.v.lVal, 2147483647);
  EXPECT_EQ(Change(R8(2147483647.5), VT_I4, &out), DISP_E_OVERFLOW);
  EXPECT_EQ(Change(R8(-2147483648.5), VT_I4, &out), S_OK);
  EXPECT_EQ(out.v.lVal, std::numeric_limits<LONG>::min());
  EXPECT_EQ(Change(R8(-2147483649.0), VT_I4, &out), DISP_E_OVERFLOW);
  EXPECT_EQ(Change(R8(1e300), VT_I4, &out), DISP_E_OVERFLOW);
}

TEST(VariantChangeTypeTest, NotANumberAndInfinityOverflowAnInteger) {
  Var out;
  EXPECT_EQ(Change(R8(std::nan("")), VT_I4, &out), DISP_E_OVERFLOW);
  EXPECT_EQ(Change(R8(std::numeric_limits<double>::infinity()), VT_I2, &out), DISP_E_OVERFLOW);
}

TEST(VariantChangeTypeTest, NegativeZeroIsZero) {
  Var out;
  ASSERT_EQ(Change(R8(-0.0), VT_I4, &out), S_OK);
  EXPECT_EQ(out.v.lVal, 0);
  ASSERT_EQ(Change(R8(-0.0), VT_BOOL, &out), S_OK);
  EXPECT_EQ(out.v.boolVal, VARIANT_FALSE);
  ASSERT_EQ(Change(R8(-0.0), VT_BSTR, &out), S_OK);
  EXPECT_EQ(TextOf(out), u"0");
}

TEST(VariantChangeTypeTest, ByteRangeAndTrueAsAllOnes) {
  Var out;
  EXPECT_EQ(Change(I4(255), VT_UI1, &out), S_OK);
  EXPECT_EQ(out.v.bVal, 255);
  EXPECT_EQ(Change(I4(256), VT_UI1, &out), DISP_E_OVERFLOW);
  EXPECT_EQ(Change(I4(-1), VT_UI1, &out), DISP_E_OVERFLOW);
  EXPECT_EQ(Change(R8(254.5), VT_UI1, &out), S_OK);
  EXPECT_EQ(out.v.bVal, 254);
  EXPECT_EQ(Change(R8(255.5), VT_UI1, &out), DISP_E_OVERFLOW);
  EXPECT_EQ(Change(Bool(true), VT_UI1, &out), S_OK);
  EXPECT_EQ(out.v.bVal, 255);
}

TEST(VariantChangeTypeTest, BooleansAreMinusOneAndZero) {
  Var out;
  ASSERT_EQ(Change(Bool(true), VT_I2, &out), S_OK);
  EXPECT_EQ(out.v.iVal, -1);
  ASSERT_EQ(Change(Bool(true), VT_I4, &out), S_OK);
  EXPECT_EQ(out.v.lVal, -1);
  ASSERT_EQ(Change(Bool(true), VT_R8, &out), S_OK);
  EXPECT_EQ(out.v.dblVal, -1.0);
  ASSERT_EQ(Change(Bool(false), VT_I4, &out), S_OK);
  EXPECT_EQ(out.v.lVal, 0);
  ASSERT_EQ(Change(I4(5), VT_BOOL, &out), S_OK);
  EXPECT_EQ(out.v.boolVal, VARIANT_TRUE);
  ASSERT_EQ(Change(R8(0.25), VT_BOOL, &out), S_OK);
  EXPECT_EQ(out.v.boolVal, VARIANT_TRUE);
  ASSERT_EQ(Change(I4(0), VT_BOOL, &out), S_OK);
  EXPECT_EQ(out.v.boolVal, VARIANT_FALSE);
}

TEST(VariantChangeTypeTest, NumericStringsWithSurroundingBlanks) {
  Var out;
  ASSERT_EQ(ChangeText(u" 12 ", VT_I4, &out), S_OK);
  EXPECT_EQ(out.v.lVal, 12);
  ASSERT_EQ(ChangeText(u"\t-7\r\n", VT_I2, &out), S_OK);
  EXPECT_EQ(out.v.iVal, -7);
  ASSERT_EQ(ChangeText(u"+3", VT_I4, &out), S_OK);
  EXPECT_EQ(out.v.lVal, 3);
}

TEST(VariantChangeTypeTest, StringsWithFractionsExponentsAndSeparators) {
  Var out;
  ASSERT_EQ(ChangeText(u"1e3", VT_I4, &out), S_OK);
  EXPECT_EQ(out.v.lVal, 1000);
  ASSERT_EQ(ChangeText(u"2.5", VT_I4, &out), S_OK);
  EXPECT_EQ(out.v.lVal, 2);  // half to even
  ASSERT_EQ(ChangeText(u"3.5", VT_I4, &out), S_OK);
  EXPECT_EQ(out.v.lVal, 4);
  ASSERT_EQ(ChangeText(u"1,000,000", VT_I4, &out), S_OK);
  EXPECT_EQ(out.v.lVal, 1000000);
  ASSERT_EQ(ChangeText(u".5", VT_R8, &out), S_OK);
  EXPECT_EQ(out.v.dblVal, 0.5);
  ASSERT_EQ(ChangeText(u"5.", VT_R8, &out), S_OK);
  EXPECT_EQ(out.v.dblVal, 5.0);
  ASSERT_EQ(ChangeText(u"2.5E-2", VT_R8, &out), S_OK);
  EXPECT_EQ(out.v.dblVal, 0.025);
  ASSERT_EQ(ChangeText(u"(5)", VT_I4, &out), S_OK);
  EXPECT_EQ(out.v.lVal, -5);
  ASSERT_EQ(ChangeText(u"5-", VT_I4, &out), S_OK);
  EXPECT_EQ(out.v.lVal, -5);
}

TEST(VariantChangeTypeTest, HexAndOctalStringsFitTheTargetsWidth) {
  Var out;
  ASSERT_EQ(ChangeText(u"&H10", VT_I4, &out), S_OK);
  EXPECT_EQ(out.v.lVal, 16);
  ASSERT_EQ(ChangeText(u"&hff", VT_I2, &out), S_OK);
  EXPECT_EQ(out.v.iVal, 255);
  ASSERT_EQ(ChangeText(u"&HFFFF", VT_I2, &out), S_OK);
  EXPECT_EQ(out.v.iVal, -1);
  ASSERT_EQ(ChangeText(u"&HFFFF", VT_I4, &out), S_OK);
  EXPECT_EQ(out.v.lVal, 65535);
  ASSERT_EQ(ChangeText(u"&HFFFFFFFF", VT_I4, &out), S_OK);
  EXPECT_EQ(out.v.lVal, -1);
  EXPECT_EQ(ChangeText(u"&H10000", VT_I2, &out), DISP_E_OVERFLOW);
  EXPECT_EQ(ChangeText(u"&H100000000", VT_I4, &out), DISP_E_OVERFLOW);
  ASSERT_EQ(ChangeText(u"&O17", VT_I4, &out), S_OK);
  EXPECT_EQ(out.v.lVal, 15);
  EXPECT_EQ(ChangeText(u"&H", VT_I4, &out), DISP_E_TYPEMISMATCH);
  EXPECT_EQ(ChangeText(u"&HG", VT_I4, &out), DISP_E_TYPEMISMATCH);
  EXPECT_EQ(ChangeText(u"&O8", VT_I4, &out), DISP_E_TYPEMISMATCH);
}

TEST(VariantChangeTypeTest, StringsOutOfRangeOverflow) {
  Var out;
  EXPECT_EQ(ChangeText(u"40000", VT_I2, &out), DISP_E_OVERFLOW);
  EXPECT_EQ(ChangeText(u"32767.5", VT_I2, &out), DISP_E_OVERFLOW);
  EXPECT_EQ(ChangeText(u"2147483648", VT_I4, &out), DISP_E_OVERFLOW);
  EXPECT_EQ(ChangeText(u"1e400", VT_R8, &out), DISP_E_OVERFLOW);
  EXPECT_EQ(ChangeText(u"256", VT_UI1, &out), DISP_E_OVERFLOW);
}

TEST(VariantChangeTypeTest, NonNumericStringsAreATypeMismatch) {
  Var out;
  for (const char16_t* text : {u"", u"   ", u"abc", u"12abc", u"1 2", u"--1", u"1e", u"1e+", u".",
                               u",1", u"(1", u"-(1)", u"0x10", u"1.2.3", u"- 1"}) {
    EXPECT_EQ(ChangeText(text, VT_I4, &out), DISP_E_TYPEMISMATCH)
        << std::string(text, text + std::char_traits<char16_t>::length(text));
  }
}

TEST(VariantChangeTypeTest, ANullStringIsEmptyAndSoNotANumber) {
  Var from;
  from.v.vt = VT_BSTR;
  from.v.bstrVal = nullptr;
  Var out;
  EXPECT_EQ(Change(from.v, VT_I4, &out), DISP_E_TYPEMISMATCH);
  ASSERT_EQ(Change(from.v, VT_BSTR, &out), S_OK);
  EXPECT_EQ(SysStringLen(out.v.bstrVal), 0u);
}

TEST(VariantChangeTypeTest, AStringIsReadAsNumberUpToItsFirstNul) {
  Var from;
  from.v.vt = VT_BSTR;
  from.v.bstrVal = SysAllocStringLen(
      u"12\0"
      u"34",
      5);
  Var out;
  ASSERT_EQ(Change(from.v, VT_I4, &out), S_OK);
  EXPECT_EQ(out.v.lVal, 12);
  // As a string it keeps every unit.
  ASSERT_EQ(Change(from.v, VT_BSTR, &out), S_OK);
  EXPECT_EQ(SysStringLen(out.v.bstrVal), 5u);
}

TEST(VariantChangeTypeTest, TrueAndFalseStringsInAnyCase) {
  Var out;
  ASSERT_EQ(ChangeText(u"True", VT_BOOL, &out), S_OK);
  EXPECT_EQ(out.v.boolVal, VARIANT_TRUE);
  ASSERT_EQ(ChangeText(u"fALSE", VT_BOOL, &out), S_OK);
  EXPECT_EQ(out.v.boolVal, VARIANT_FALSE);
  ASSERT_EQ(ChangeText(u"0", VT_BOOL, &out), S_OK);
  EXPECT_EQ(out.v.boolVal, VARIANT_FALSE);
  ASSERT_EQ(ChangeText(u"-2", VT_BOOL, &out), S_OK);
  EXPECT_EQ(out.v.boolVal, VARIANT_TRUE);
  EXPECT_EQ(ChangeText(u"yes", VT_BOOL, &out), DISP_E_TYPEMISMATCH);
  EXPECT_EQ(ChangeText(u"", VT_BOOL, &out), DISP_E_TYPEMISMATCH);
  // "True" is a word for booleans only.
  EXPECT_EQ(ChangeText(u"True", VT_I4, &out), DISP_E_TYPEMISMATCH);
}

TEST(VariantChangeTypeTest, NumbersAsText) {
  Var out;
  ASSERT_EQ(Change(I4(-123), VT_BSTR, &out), S_OK);
  EXPECT_EQ(TextOf(out), u"-123");
  ASSERT_EQ(Change(R8(1.5), VT_BSTR, &out), S_OK);
  EXPECT_EQ(TextOf(out), u"1.5");
  ASSERT_EQ(Change(R8(0.1), VT_BSTR, &out), S_OK);
  EXPECT_EQ(TextOf(out), u"0.1");
  ASSERT_EQ(Change(R8(1.0 / 3.0), VT_BSTR, &out), S_OK);
  EXPECT_EQ(TextOf(out), u"0.333333333333333");
  ASSERT_EQ(Change(R8(1e20), VT_BSTR, &out), S_OK);
  EXPECT_EQ(TextOf(out), u"1E+20");
  ASSERT_EQ(Change(R8(1.5e-7), VT_BSTR, &out), S_OK);
  EXPECT_EQ(TextOf(out), u"1.5E-07");
  ASSERT_EQ(Change(R8(100), VT_BSTR, &out), S_OK);
  EXPECT_EQ(TextOf(out), u"100");
}

TEST(VariantChangeTypeTest, BooleansAsTextDependOnTheAlphaFlag) {
  Var out;
  ASSERT_EQ(Change(Bool(true), VT_BSTR, &out), S_OK);
  EXPECT_EQ(TextOf(out), u"-1");
  ASSERT_EQ(Change(Bool(false), VT_BSTR, &out), S_OK);
  EXPECT_EQ(TextOf(out), u"0");
  ASSERT_EQ(Change(Bool(true), VT_BSTR, &out, VARIANT_ALPHABOOL), S_OK);
  EXPECT_EQ(TextOf(out), u"True");
  ASSERT_EQ(Change(Bool(false), VT_BSTR, &out, VARIANT_ALPHABOOL), S_OK);
  EXPECT_EQ(TextOf(out), u"False");
}

TEST(VariantChangeTypeTest, EmptyIsZeroFalseAndTheEmptyString) {
  VARIANT empty;
  VariantInit(&empty);
  Var out;
  ASSERT_EQ(Change(empty, VT_I4, &out), S_OK);
  EXPECT_EQ(out.v.lVal, 0);
  ASSERT_EQ(Change(empty, VT_R8, &out), S_OK);
  EXPECT_EQ(out.v.dblVal, 0.0);
  ASSERT_EQ(Change(empty, VT_BOOL, &out), S_OK);
  EXPECT_EQ(out.v.boolVal, VARIANT_FALSE);
  ASSERT_EQ(Change(empty, VT_BSTR, &out), S_OK);
  ASSERT_NE(out.v.bstrVal, nullptr);
  EXPECT_EQ(SysStringLen(out.v.bstrVal), 0u);
  ASSERT_EQ(Change(empty, VT_DISPATCH, &out), S_OK);  // Nothing
  EXPECT_EQ(out.v.pdispVal, nullptr);
}

TEST(VariantChangeTypeTest, NullAndErrorConvertOnlyToThemselves) {
  VARIANT null;
  null.vt = VT_NULL;
  VARIANT error;
  error.vt = VT_ERROR;
  error.scode = DISP_E_PARAMNOTFOUND;
  Var out;
  EXPECT_EQ(Change(null, VT_I4, &out), DISP_E_TYPEMISMATCH);
  EXPECT_EQ(Change(null, VT_BSTR, &out), DISP_E_TYPEMISMATCH);
  EXPECT_EQ(Change(error, VT_I4, &out), DISP_E_TYPEMISMATCH);
  EXPECT_EQ(Change(I4(1), VT_ERROR, &out), DISP_E_TYPEMISMATCH);
  ASSERT_EQ(Change(error, VT_ERROR, &out), S_OK);
  EXPECT_EQ(out.v.scode, DISP_E_PARAMNOTFOUND);
  ASSERT_EQ(Change(null, VT_NULL, &out), S_OK);
  EXPECT_EQ(out.v.vt, VT_NULL);
}

TEST(VariantChangeTypeTest, AStringBecomesItsBytesAndBack) {
  Var bytes;
  ASSERT_EQ(ChangeText(u"ab", VT_ARRAY | VT_UI1, &bytes), S_OK);
  ASSERT_EQ(bytes.v.vt, VT_ARRAY | VT_UI1);
  LONG upper = 0;
  SafeArrayGetUBound(bytes.v.parray, 1, &upper);
  EXPECT_EQ(upper, 3);
  const auto* data = static_cast<const uint8_t*>(bytes.v.parray->pvData);
  EXPECT_EQ(data[0], 'a');
  EXPECT_EQ(data[1], 0);
  EXPECT_EQ(data[2], 'b');
  EXPECT_EQ(data[3], 0);

  Var text;
  ASSERT_EQ(Change(bytes.v, VT_BSTR, &text), S_OK);
  EXPECT_EQ(TextOf(text), u"ab");
}

TEST(VariantChangeTypeTest, AnOddNumberOfBytesKeepsItsLengthAsAString) {
  Var bytes;
  bytes.v.vt = VT_ARRAY | VT_UI1;
  bytes.v.parray = SafeArrayCreateVector(VT_UI1, 0, 3);
  std::memcpy(bytes.v.parray->pvData, "xyz", 3);
  Var text;
  ASSERT_EQ(Change(bytes.v, VT_BSTR, &text), S_OK);
  EXPECT_EQ(SysStringByteLen(text.v.bstrVal), 3u);
  EXPECT_EQ(std::memcmp(text.v.bstrVal, "xyz", 3), 0);
}

TEST(VariantChangeTypeTest, AnEmptyStringIsAnEmptyByteArray) {
  Var bytes;
  ASSERT_EQ(ChangeText(u"", VT_ARRAY | VT_UI1, &bytes), S_OK);
  EXPECT_EQ(bytes.v.parray->rgsabound[0].cElements, 0u);
}

TEST(VariantChangeTypeTest, ArraysDoNotBecomeNumbers) {
  Var bytes;
  bytes.v.vt = VT_ARRAY | VT_UI1;
  bytes.v.parray = SafeArrayCreateVector(VT_UI1, 0, 1);
  Var out;
  EXPECT_EQ(Change(bytes.v, VT_I4, &out), DISP_E_TYPEMISMATCH);
  EXPECT_EQ(Change(I4(1), VT_ARRAY | VT_UI1, &out), DISP_E_TYPEMISMATCH);
  EXPECT_EQ(Change(bytes.v, VT_ARRAY | VT_I2, &out), DISP_E_TYPEMISMATCH);
  ASSERT_EQ(Change(bytes.v, VT_ARRAY | VT_UI1, &out), S_OK);
  EXPECT_NE(out.v.parray, bytes.v.parray);
}

TEST(VariantChangeTypeTest, AReferenceIsReadThroughAndLeftAlone) {
  LONG value = 70000;
  VARIANT from;
  from.vt = VT_I4 | VT_BYREF;
  from.plVal = &value;
  Var out;
  EXPECT_EQ(Change(from, VT_I2, &out), DISP_E_OVERFLOW);
  value = 7;
  ASSERT_EQ(Change(from, VT_I2, &out), S_OK);
  EXPECT_EQ(out.v.vt, VT_I2);
  EXPECT_EQ(out.v.iVal, 7);
  EXPECT_EQ(from.vt, VT_I4 | VT_BYREF);

  BSTR text = SysAllocString(u" 42 ");
  from.vt = VT_BSTR | VT_BYREF;
  from.pbstrVal = &text;
  ASSERT_EQ(Change(from, VT_I4, &out), S_OK);
  EXPECT_EQ(out.v.lVal, 42);
  EXPECT_EQ(std::u16string(text), u" 42 ");
  SysFreeString(text);
}

TEST(VariantChangeTypeTest, InPlaceConversionReplacesTheValue) {
  VARIANT v;
  v.vt = VT_BSTR;
  v.bstrVal = SysAllocString(u"17");
  ASSERT_EQ(VariantChangeType(&v, &v, 0, VT_I4), S_OK);
  EXPECT_EQ(v.vt, VT_I4);
  EXPECT_EQ(v.lVal, 17);
}

TEST(VariantChangeTypeTest, AFailureLeavesTheDestinationAsItWas) {
  Var out;
  out.v.vt = VT_BSTR;
  out.v.bstrVal = SysAllocString(u"kept");
  EXPECT_EQ(ChangeText(u"x", VT_I4, &out), DISP_E_TYPEMISMATCH);
  EXPECT_EQ(out.v.vt, VT_BSTR);
  EXPECT_EQ(TextOf(out), u"kept");
}

TEST(VariantChangeTypeTest, InvalidTypesAndArguments) {
  Var out;
  VARIANT bad;
  bad.vt = 15;
  EXPECT_EQ(Change(bad, VT_I4, &out), DISP_E_BADVARTYPE);
  EXPECT_EQ(Change(I4(1), 15, &out), DISP_E_BADVARTYPE);
  EXPECT_EQ(Change(I4(1), VT_I4 | VT_VECTOR, &out), DISP_E_BADVARTYPE);
  EXPECT_EQ(Change(I4(1), VT_I4 | VT_BYREF, &out), DISP_E_TYPEMISMATCH);
  VARIANT one = I4(1);
  EXPECT_EQ(VariantChangeType(nullptr, &one, 0, VT_I2), E_INVALIDARG);
  EXPECT_EQ(VariantChangeType(&out.v, nullptr, 0, VT_I2), E_INVALIDARG);
}

TEST(VariantChangeTypeTest, AnObjectIsReadThroughItsDefaultMember) {
  FakeDispatch object;
  object.hasDefault = true;
  object.value.vt = VT_BSTR;
  object.value.bstrVal = SysAllocString(u"42");
  VARIANT from;
  from.vt = VT_DISPATCH;
  from.pdispVal = object.dispatch();
  Var out;
  ASSERT_EQ(Change(from, VT_I4, &out), S_OK);
  EXPECT_EQ(out.v.lVal, 42);
  EXPECT_EQ(object.lastFlags, DISPATCH_PROPERTYGET | DISPATCH_METHOD);
  ASSERT_EQ(Change(from, VT_BSTR, &out), S_OK);
  EXPECT_EQ(TextOf(out), u"42");
  EXPECT_EQ(object.refs, 1u);
  EXPECT_EQ(Change(from, VT_I4, &out, VARIANT_NOVALUEPROP), DISP_E_TYPEMISMATCH);
}

TEST(VariantChangeTypeTest, AnObjectWithoutDefaultMemberIsATypeMismatch) {
  FakeDispatch object;
  VARIANT from;
  from.vt = VT_DISPATCH;
  from.pdispVal = object.dispatch();
  Var out;
  EXPECT_EQ(Change(from, VT_BSTR, &out), DISP_E_TYPEMISMATCH);
  from.pdispVal = nullptr;  // Nothing
  EXPECT_EQ(Change(from, VT_I4, &out), DISP_E_TYPEMISMATCH);
  EXPECT_EQ(object.refs, 1u);
}

TEST(VariantChangeTypeTest, ObjectsBetweenDispatchAndUnknown) {
  FakeDispatch object;
  VARIANT from;
  from.vt = VT_UNKNOWN;
  from.punkVal = object.unknown();
  {
    Var out;
    ASSERT_EQ(Change(from, VT_DISPATCH, &out), S_OK);
    EXPECT_EQ(out.v.pdispVal, object.dispatch());
    EXPECT_EQ(object.refs, 2u);
  }
  EXPECT_EQ(object.refs, 1u);

  FakeUnknown plain;
  from.punkVal = plain.unknown();
  Var out;
  EXPECT_EQ(Change(from, VT_DISPATCH, &out), DISP_E_TYPEMISMATCH);
  ASSERT_EQ(Change(from, VT_UNKNOWN, &out), S_OK);
  EXPECT_EQ(plain.refs, 2u);
  VariantClear(&out.v);
  EXPECT_EQ(plain.refs, 1u);
  EXPECT_EQ(Change(I4(1), VT_DISPATCH, &out), DISP_E_TYPEMISMATCH);
}

TEST(VariantChangeTypeTest, WiderIntegersAndSinglePrecision) {
  Var out;
  ASSERT_EQ(Change(I4(-1), VT_I8, &out), S_OK);
  EXPECT_EQ(out.v.llVal, -1);
  EXPECT_EQ(Change(I4(-1), VT_UI4, &out), DISP_E_OVERFLOW);
  ASSERT_EQ(Change(R8(0.1), VT_R4, &out), S_OK);
  EXPECT_EQ(out.v.fltVal, 0.1f);
  EXPECT_EQ(Change(R8(1e39), VT_R4, &out), DISP_E_OVERFLOW);
  ASSERT_EQ(ChangeText(u"9223372036854775807", VT_R8, &out), S_OK);
  EXPECT_EQ(Change(R8(9223372036854775808.0), VT_I8, &out), DISP_E_OVERFLOW);
}

}  // namespace
