// VariantInit, VariantClear, VariantCopy and VariantCopyInd: who owns what, and the platform's
// answers for invalid types and references.
#include <gtest/gtest.h>

#include <string>

#include "server/FakeDispatch.h"
#include "server/quiv_com.h"

namespace {

using quiv::test::FakeDispatch;

VARIANT Text(const char16_t* s) {
  VARIANT v;
  v.vt = VT_BSTR;
  v.bstrVal = SysAllocString(s);
  return v;
}

TEST(VariantApiTest, InitMakesEmpty) {
  VARIANT v;
  v.vt = VT_I4;
  VariantInit(&v);
  EXPECT_EQ(v.vt, VT_EMPTY);
}

TEST(VariantApiTest, ClearFreesTheStringAndEmpties) {
  VARIANT v = Text(u"gone");
  EXPECT_EQ(VariantClear(&v), S_OK);
  EXPECT_EQ(v.vt, VT_EMPTY);  // LeakSanitizer checks the string was freed
}

TEST(VariantApiTest, ClearReleasesTheObject) {
  FakeDispatch object;
  VARIANT v;
  v.vt = VT_DISPATCH;
  v.pdispVal = object.dispatch();
  object.refs = 2;
  EXPECT_EQ(VariantClear(&v), S_OK);
  EXPECT_EQ(object.refs, 1u);
  v.vt = VT_UNKNOWN;
  v.punkVal = object.unknown();
  EXPECT_EQ(VariantClear(&v), S_OK);
  EXPECT_EQ(object.refs, 0u);
}

TEST(VariantApiTest, ClearOfANullObjectOrStringIsFine) {
  VARIANT v;
  v.vt = VT_DISPATCH;
  v.pdispVal = nullptr;
  EXPECT_EQ(VariantClear(&v), S_OK);
  v.vt = VT_BSTR;
  v.bstrVal = nullptr;
  EXPECT_EQ(VariantClear(&v), S_OK);
}

TEST(VariantApiTest, ClearDestroysTheArray) {
  VARIANT v;
  v.vt = VT_ARRAY | VT_UI1;
  v.parray = SafeArrayCreateVector(VT_UI1, 0, 10);
  EXPECT_EQ(VariantClear(&v), S_OK);
  EXPECT_EQ(v.vt, VT_EMPTY);
}

TEST(VariantApiTest, ClearOfALockedArrayFailsAndKeepsIt) {
  VARIANT v;
  v.vt = VT_ARRAY | VT_UI1;
  v.parray = SafeArrayCreateVector(VT_UI1, 0, 1);
  void* data = nullptr;
  SafeArrayAccessData(v.parray, &data);
  EXPECT_EQ(VariantClear(&v), DISP_E_ARRAYISLOCKED);
  EXPECT_EQ(v.vt, VT_ARRAY | VT_UI1);
  SafeArrayUnaccessData(v.parray);
  EXPECT_EQ(VariantClear(&v), S_OK);
}

TEST(VariantApiTest, ClearOfAReferenceLeavesWhatItPointsAt) {
  BSTR s = SysAllocString(u"still mine");
  VARIANT v;
  v.vt = VT_BSTR | VT_BYREF;
  v.pbstrVal = &s;
  EXPECT_EQ(VariantClear(&v), S_OK);
  EXPECT_EQ(v.vt, VT_EMPTY);
  EXPECT_EQ(std::u16string(s), u"still mine");
  SysFreeString(s);
}

TEST(VariantApiTest, InvalidTypesAreBadVarType) {
  VARIANT v;
  for (const VARTYPE vt :
       {static_cast<VARTYPE>(15), static_cast<VARTYPE>(VT_VOID),
        static_cast<VARTYPE>(VT_I4 | VT_VECTOR), static_cast<VARTYPE>(VT_I4 | VT_RESERVED),
        static_cast<VARTYPE>(VT_EMPTY | VT_BYREF), static_cast<VARTYPE>(VT_NULL | VT_ARRAY),
        static_cast<VARTYPE>(0xfff)}) {
    v.vt = vt;
    EXPECT_EQ(VariantClear(&v), DISP_E_BADVARTYPE) << vt;
    EXPECT_EQ(v.vt, vt);
  }
  EXPECT_EQ(VariantClear(nullptr), E_INVALIDARG);
}

TEST(VariantApiTest, CopyOfAStringIsItsOwnString) {
  VARIANT from = Text(u"copy me");
  VARIANT to;
  VariantInit(&to);
  ASSERT_EQ(VariantCopy(&to, &from), S_OK);
  EXPECT_EQ(to.vt, VT_BSTR);
  EXPECT_NE(to.bstrVal, from.bstrVal);
  EXPECT_EQ(std::u16string(to.bstrVal), u"copy me");
  VariantClear(&from);
  VariantClear(&to);
}

TEST(VariantApiTest, CopyKeepsOddByteLengthsAndEmbeddedNuls) {
  VARIANT from;
  from.vt = VT_BSTR;
  from.bstrVal = SysAllocStringByteLen("a\0b", 3);
  VARIANT to;
  VariantInit(&to);
  ASSERT_EQ(VariantCopy(&to, &from), S_OK);
  EXPECT_EQ(SysStringByteLen(to.bstrVal), 3u);
  EXPECT_EQ(std::string(reinterpret_cast<const char*>(to.bstrVal), 3), std::string("a\0b", 3));
  VariantClear(&from);
  VariantClear(&to);
}

TEST(VariantApiTest, CopyOfANullStringIsANullString) {
  VARIANT from;
  from.vt = VT_BSTR;
  from.bstrVal = nullptr;
  VARIANT to;
  VariantInit(&to);
  ASSERT_EQ(VariantCopy(&to, &from), S_OK);
  EXPECT_EQ(to.vt, VT_BSTR);
  EXPECT_EQ(to.bstrVal, nullptr);
}

TEST(VariantApiTest, CopyAddsAReferenceToTheObject) {
  FakeDispatch object;
  VARIANT from;
  from.vt = VT_DISPATCH;
  from.pdispVal = object.dispatch();
  VARIANT to;
  VariantInit(&to);
  ASSERT_EQ(VariantCopy(&to, &from), S_OK);
  EXPECT_EQ(to.pdispVal, object.dispatch());
  EXPECT_EQ(object.refs, 2u);
  VariantClear(&to);
  EXPECT_EQ(object.refs, 1u);
}

TEST(VariantApiTest, CopyFreesWhatTheDestinationHeld) {
  VARIANT from;
  from.vt = VT_I4;
  from.lVal = 7;
  VARIANT to = Text(u"replaced");
  ASSERT_EQ(VariantCopy(&to, &from), S_OK);  // LeakSanitizer checks the old string went
  EXPECT_EQ(to.vt, VT_I4);
  EXPECT_EQ(to.lVal, 7);
}

TEST(VariantApiTest, CopyOfAnArrayIsDeep) {
  VARIANT from;
  from.vt = VT_ARRAY | VT_UI1;
  from.parray = SafeArrayCreateVector(VT_UI1, 0, 2);
  static_cast<uint8_t*>(from.parray->pvData)[1] = 0x42;
  VARIANT to;
  VariantInit(&to);
  ASSERT_EQ(VariantCopy(&to, &from), S_OK);
  EXPECT_NE(to.parray, from.parray);
  EXPECT_EQ(static_cast<uint8_t*>(to.parray->pvData)[1], 0x42);
  VariantClear(&from);
  VariantClear(&to);
}

TEST(VariantApiTest, CopyOfAReferenceCopiesTheReference) {
  LONG value = 5;
  VARIANT from;
  from.vt = VT_I4 | VT_BYREF;
  from.plVal = &value;
  VARIANT to;
  VariantInit(&to);
  ASSERT_EQ(VariantCopy(&to, &from), S_OK);
  EXPECT_EQ(to.vt, VT_I4 | VT_BYREF);
  EXPECT_EQ(to.plVal, &value);
}

TEST(VariantApiTest, CopyOntoItselfChangesNothing) {
  VARIANT v = Text(u"same");
  const BSTR before = v.bstrVal;
  EXPECT_EQ(VariantCopy(&v, &v), S_OK);
  EXPECT_EQ(v.bstrVal, before);
  VariantClear(&v);
}

TEST(VariantApiTest, CopyOfAnInvalidTypeIsRefusedAndTheDestinationKept) {
  VARIANT from;
  from.vt = 15;
  VARIANT to;
  to.vt = VT_I2;
  to.iVal = 3;
  EXPECT_EQ(VariantCopy(&to, &from), DISP_E_BADVARTYPE);
  EXPECT_EQ(to.vt, VT_I2);
  EXPECT_EQ(VariantCopy(nullptr, &from), E_INVALIDARG);
}

TEST(VariantApiTest, CopyIndReadsThroughTheReference) {
  SHORT i2 = -4;
  double r8 = 2.5;
  VARIANT_BOOL b = VARIANT_TRUE;
  BSTR s = SysAllocString(u"by reference");
  VARIANT from;
  VARIANT to;
  VariantInit(&to);

  from.vt = VT_I2 | VT_BYREF;
  from.piVal = &i2;
  ASSERT_EQ(VariantCopyInd(&to, &from), S_OK);
  EXPECT_EQ(to.vt, VT_I2);
  EXPECT_EQ(to.iVal, -4);

  from.vt = VT_R8 | VT_BYREF;
  from.pdblVal = &r8;
  ASSERT_EQ(VariantCopyInd(&to, &from), S_OK);
  EXPECT_EQ(to.vt, VT_R8);
  EXPECT_EQ(to.dblVal, 2.5);

  from.vt = VT_BOOL | VT_BYREF;
  from.pboolVal = &b;
  ASSERT_EQ(VariantCopyInd(&to, &from), S_OK);
  EXPECT_EQ(to.boolVal, VARIANT_TRUE);

  from.vt = VT_BSTR | VT_BYREF;
  from.pbstrVal = &s;
  ASSERT_EQ(VariantCopyInd(&to, &from), S_OK);
  EXPECT_EQ(to.vt, VT_BSTR);
  EXPECT_NE(to.bstrVal, s);
  EXPECT_EQ(std::u16string(to.bstrVal), u"by reference");
  VariantClear(&to);
  SysFreeString(s);
}

TEST(VariantApiTest, CopyIndReadsAVariantReferenceOneLevelDeep) {
  VARIANT inner;
  inner.vt = VT_I4;
  inner.lVal = 99;
  VARIANT from;
  from.vt = VT_VARIANT | VT_BYREF;
  from.pvarVal = &inner;
  VARIANT to;
  VariantInit(&to);
  ASSERT_EQ(VariantCopyInd(&to, &from), S_OK);
  EXPECT_EQ(to.vt, VT_I4);
  EXPECT_EQ(to.lVal, 99);

  VARIANT outer;
  outer.vt = VT_VARIANT | VT_BYREF;
  outer.pvarVal = &from;
  EXPECT_EQ(VariantCopyInd(&to, &outer), E_INVALIDARG);
}

TEST(VariantApiTest, CopyIndInPlaceReplacesTheReferenceByTheValue) {
  LONG value = 12;
  VARIANT v;
  v.vt = VT_I4 | VT_BYREF;
  v.plVal = &value;
  ASSERT_EQ(VariantCopyInd(&v, &v), S_OK);
  EXPECT_EQ(v.vt, VT_I4);
  EXPECT_EQ(v.lVal, 12);
}

TEST(VariantApiTest, CopyIndOfAnObjectReferenceAddsAReference) {
  FakeDispatch object;
  IDispatch* held = object.dispatch();
  VARIANT from;
  from.vt = VT_DISPATCH | VT_BYREF;
  from.ppdispVal = &held;
  VARIANT to;
  VariantInit(&to);
  ASSERT_EQ(VariantCopyInd(&to, &from), S_OK);
  EXPECT_EQ(to.vt, VT_DISPATCH);
  EXPECT_EQ(object.refs, 2u);
  VariantClear(&to);
  EXPECT_EQ(object.refs, 1u);
}

TEST(VariantApiTest, CopyIndOfANullReferenceIsInvalid) {
  VARIANT from;
  from.vt = VT_I4 | VT_BYREF;
  from.plVal = nullptr;
  VARIANT to;
  VariantInit(&to);
  EXPECT_EQ(VariantCopyInd(&to, &from), E_INVALIDARG);
}

TEST(VariantApiTest, CopyIndOfAnArrayReferenceCopiesTheArray) {
  SAFEARRAY* bytes = SafeArrayCreateVector(VT_UI1, 0, 1);
  static_cast<uint8_t*>(bytes->pvData)[0] = 9;
  VARIANT from;
  from.vt = VT_ARRAY | VT_UI1 | VT_BYREF;
  from.pparray = &bytes;
  VARIANT to;
  VariantInit(&to);
  ASSERT_EQ(VariantCopyInd(&to, &from), S_OK);
  EXPECT_EQ(to.vt, VT_ARRAY | VT_UI1);
  EXPECT_NE(to.parray, bytes);
  EXPECT_EQ(static_cast<uint8_t*>(to.parray->pvData)[0], 9);
  VariantClear(&to);
  SafeArrayDestroy(bytes);
}

}  // namespace
