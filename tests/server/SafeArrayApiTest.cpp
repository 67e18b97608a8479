// The safe array functions on the arrays libquiv makes: vectors of bytes above all, their
// bounds, locks, element types and destruction with what the elements own.
#include <gtest/gtest.h>

#include <cstring>
#include <initializer_list>

#include "server/FakeDispatch.h"
#include "server/quiv_com.h"

namespace {

using quiv::test::FakeDispatch;

TEST(SafeArrayApiTest, ByteVectorHasTheLayoutCallersRead) {
  SAFEARRAY* psa = SafeArrayCreateVector(VT_UI1, 0, 5);
  ASSERT_NE(psa, nullptr);
  EXPECT_EQ(psa->cDims, 1);
  EXPECT_EQ(psa->cbElements, 1u);
  EXPECT_EQ(psa->cLocks, 0u);
  EXPECT_EQ(psa->rgsabound[0].cElements, 5u);
  EXPECT_EQ(psa->rgsabound[0].lLbound, 0);
  EXPECT_TRUE(psa->fFeatures & FADF_HAVEVARTYPE);
  ASSERT_NE(psa->pvData, nullptr);
  const auto* bytes = static_cast<const uint8_t*>(psa->pvData);
  for (int i = 0; i < 5; ++i) EXPECT_EQ(bytes[i], 0);  // zeroed
  EXPECT_EQ(SafeArrayDestroy(psa), S_OK);
}

TEST(SafeArrayApiTest, BoundsOfAZeroBasedVector) {
  SAFEARRAY* psa = SafeArrayCreateVector(VT_UI1, 0, 16);
  LONG lower = -7, upper = -7;
  EXPECT_EQ(SafeArrayGetLBound(psa, 1, &lower), S_OK);
  EXPECT_EQ(SafeArrayGetUBound(psa, 1, &upper), S_OK);
  EXPECT_EQ(lower, 0);
  EXPECT_EQ(upper, 15);
  SafeArrayDestroy(psa);
}

TEST(SafeArrayApiTest, BoundsOfAVectorWithAnotherBase) {
  SAFEARRAY* psa = SafeArrayCreateVector(VT_UI1, -3, 4);
  LONG lower = 0, upper = 0;
  SafeArrayGetLBound(psa, 1, &lower);
  SafeArrayGetUBound(psa, 1, &upper);
  EXPECT_EQ(lower, -3);
  EXPECT_EQ(upper, 0);
  SafeArrayDestroy(psa);
}

TEST(SafeArrayApiTest, AnEmptyVectorHasUpperBoundBelowItsLowerBound) {
  SAFEARRAY* psa = SafeArrayCreateVector(VT_UI1, 0, 0);
  ASSERT_NE(psa, nullptr);
  LONG upper = 0;
  EXPECT_EQ(SafeArrayGetUBound(psa, 1, &upper), S_OK);
  EXPECT_EQ(upper, -1);
  EXPECT_EQ(SafeArrayDestroy(psa), S_OK);
}

TEST(SafeArrayApiTest, DimensionOutOfRangeIsBadIndex) {
  SAFEARRAY* psa = SafeArrayCreateVector(VT_UI1, 0, 1);
  LONG bound = 0;
  EXPECT_EQ(SafeArrayGetUBound(psa, 0, &bound), DISP_E_BADINDEX);
  EXPECT_EQ(SafeArrayGetUBound(psa, 2, &bound), DISP_E_BADINDEX);
  EXPECT_EQ(SafeArrayGetLBound(psa, 2, &bound), DISP_E_BADINDEX);
  SafeArrayDestroy(psa);
}

TEST(SafeArrayApiTest, NullArgumentsAreInvalid) {
  LONG bound = 0;
  void* data = nullptr;
  SAFEARRAY* psa = SafeArrayCreateVector(VT_UI1, 0, 1);
  EXPECT_EQ(SafeArrayGetUBound(nullptr, 1, &bound), E_INVALIDARG);
  EXPECT_EQ(SafeArrayGetLBound(psa, 1, nullptr), E_INVALIDARG);
  EXPECT_EQ(SafeArrayAccessData(nullptr, &data), E_INVALIDARG);
  EXPECT_EQ(SafeArrayAccessData(psa, nullptr), E_INVALIDARG);
  EXPECT_EQ(SafeArrayUnaccessData(nullptr), E_INVALIDARG);
  EXPECT_EQ(SafeArrayGetDim(nullptr), 0u);
  EXPECT_EQ(SafeArrayGetElemsize(nullptr), 0u);
  VARTYPE vt = 0;
  EXPECT_EQ(SafeArrayGetVartype(nullptr, &vt), E_INVALIDARG);
  EXPECT_EQ(SafeArrayDestroy(nullptr), S_OK);
  SafeArrayDestroy(psa);
}

TEST(SafeArrayApiTest, AccessLocksAndALockedArrayIsNotDestroyed) {
  SAFEARRAY* psa = SafeArrayCreateVector(VT_UI1, 0, 3);
  void* data = nullptr;
  ASSERT_EQ(SafeArrayAccessData(psa, &data), S_OK);
  EXPECT_EQ(data, psa->pvData);
  EXPECT_EQ(psa->cLocks, 1u);
  std::memcpy(data, "abc", 3);
  EXPECT_EQ(SafeArrayDestroy(psa), DISP_E_ARRAYISLOCKED);
  EXPECT_EQ(SafeArrayUnaccessData(psa), S_OK);
  EXPECT_EQ(psa->cLocks, 0u);
  EXPECT_EQ(SafeArrayUnaccessData(psa), E_UNEXPECTED);  // not locked
  EXPECT_EQ(SafeArrayDestroy(psa), S_OK);
}

TEST(SafeArrayApiTest, ElementTypeSizeAndDimensionsAreReported) {
  struct Case {
    VARTYPE vt;
    UINT size;
  };
  for (const Case c : {Case{VT_UI1, 1}, Case{VT_I2, 2}, Case{VT_BOOL, 2}, Case{VT_I4, 4},
                       Case{VT_R4, 4}, Case{VT_R8, 8}, Case{VT_BSTR, 8}, Case{VT_DISPATCH, 8},
                       Case{VT_VARIANT, 24}, Case{VT_DECIMAL, 16}}) {
    SAFEARRAY* psa = SafeArrayCreateVector(c.vt, 0, 2);
    ASSERT_NE(psa, nullptr) << c.vt;
    VARTYPE vt = 0;
    EXPECT_EQ(SafeArrayGetVartype(psa, &vt), S_OK);
    EXPECT_EQ(vt, c.vt);
    EXPECT_EQ(SafeArrayGetElemsize(psa), c.size) << c.vt;
    EXPECT_EQ(SafeArrayGetDim(psa), 1u);
    SafeArrayDestroy(psa);
  }
}

TEST(SafeArrayApiTest, TypesAnArrayCannotHoldAreRefused) {
  for (const VARTYPE vt : std::initializer_list<VARTYPE>{
           VT_EMPTY, VT_NULL, VT_VOID, VT_HRESULT, VT_LPSTR, VT_RECORD,
           static_cast<VARTYPE>(VT_UI1 | VT_BYREF), static_cast<VARTYPE>(15)}) {
    EXPECT_EQ(SafeArrayCreateVector(vt, 0, 1), nullptr) << vt;
  }
}

TEST(SafeArrayApiTest, SizesThatOverflowAreRefused) {
  EXPECT_EQ(SafeArrayCreateVector(VT_VARIANT, 0, 0xFFFFFFFFu), nullptr);
  EXPECT_EQ(SafeArrayCreateVector(VT_I2, 0, 0x80000000u), nullptr);
}

TEST(SafeArrayApiTest, DestroyFreesTheStringsAndReleasesTheObjectsItHolds) {
  SAFEARRAY* strings = SafeArrayCreateVector(VT_BSTR, 0, 2);
  static_cast<BSTR*>(strings->pvData)[0] = SysAllocString(u"one");
  EXPECT_EQ(SafeArrayDestroy(strings), S_OK);  // LeakSanitizer checks the string went too

  FakeDispatch object;
  SAFEARRAY* objects = SafeArrayCreateVector(VT_DISPATCH, 0, 2);
  object.dispatch()->lpVtbl->AddRef(object.dispatch());
  static_cast<IDispatch**>(objects->pvData)[1] = object.dispatch();
  EXPECT_EQ(object.refs, 2u);
  EXPECT_EQ(SafeArrayDestroy(objects), S_OK);
  EXPECT_EQ(object.refs, 1u);
}

TEST(SafeArrayApiTest, CopyIsDeep) {
  SAFEARRAY* bytes = SafeArrayCreateVector(VT_UI1, 1, 3);
  std::memcpy(bytes->pvData, "xyz", 3);
  SAFEARRAY* copy = nullptr;
  ASSERT_EQ(SafeArrayCopy(bytes, &copy), S_OK);
  ASSERT_NE(copy, bytes);
  EXPECT_EQ(std::memcmp(copy->pvData, "xyz", 3), 0);
  EXPECT_NE(copy->pvData, bytes->pvData);
  LONG lower = 0;
  SafeArrayGetLBound(copy, 1, &lower);
  EXPECT_EQ(lower, 1);
  SafeArrayDestroy(bytes);
  SafeArrayDestroy(copy);

  SAFEARRAY* strings = SafeArrayCreateVector(VT_BSTR, 0, 1);
  static_cast<BSTR*>(strings->pvData)[0] = SysAllocString(u"text");
  ASSERT_EQ(SafeArrayCopy(strings, &copy), S_OK);
  const BSTR copied = static_cast<BSTR*>(copy->pvData)[0];
  EXPECT_NE(copied, static_cast<BSTR*>(strings->pvData)[0]);
  EXPECT_EQ(std::u16string(copied), u"text");
  SafeArrayDestroy(strings);
  SafeArrayDestroy(copy);
}

TEST(SafeArrayApiTest, CopyOfNullIsNull) {
  SAFEARRAY* copy = SafeArrayCreateVector(VT_UI1, 0, 1);
  SAFEARRAY* keep = copy;
  EXPECT_EQ(SafeArrayCopy(nullptr, &copy), S_OK);
  EXPECT_EQ(copy, nullptr);
  EXPECT_EQ(SafeArrayCopy(keep, nullptr), E_INVALIDARG);
  SafeArrayDestroy(keep);
}

TEST(SafeArrayApiTest, AnArrayInItsOwnersMemoryIsEmptiedButNotFreed) {
  // A caller-built static array of one string: destroying it frees the string only.
  BSTR strings[1] = {SysAllocString(u"owned")};
  SAFEARRAY psa{};
  psa.cDims = 1;
  psa.fFeatures = FADF_STATIC | FADF_BSTR;
  psa.cbElements = sizeof(BSTR);
  psa.pvData = strings;
  psa.rgsabound[0] = {1, 0};
  VARTYPE vt = 0;
  EXPECT_EQ(SafeArrayGetVartype(&psa, &vt), S_OK);
  EXPECT_EQ(vt, VT_BSTR);
  EXPECT_EQ(SafeArrayDestroy(&psa), S_OK);
}

}  // namespace
