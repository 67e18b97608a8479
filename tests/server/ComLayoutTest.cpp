// quiv_com.h has the 64-bit Windows layout in C++ as in C: sizes, offsets, vtable slots and the
// numeric constants are checked at compile time in both languages (ComLayoutC.c is the C side),
// and objects cross between the two.
#include <gtest/gtest.h>

#include <cstddef>
#include <iterator>

#include "server/ComLayoutFields.h"
#include "server/quiv_com.h"

QUIV_COM_CHECK_ALL()

extern "C" {
extern const size_t quiv_com_c_offsets[];
extern const size_t quiv_com_c_sizes[];
IUnknown* quiv_com_c_counter(void);
LONG quiv_com_c_read_i4(const VARIANT* v);
}

namespace {

#define QUIV_RECORD_OFFSET(type, member, offset) offsetof(type, member),
constexpr size_t kCxxOffsets[] = {QUIV_COM_OFFSETS(QUIV_RECORD_OFFSET)};
#define QUIV_RECORD_SIZE(type, size) sizeof(type),
constexpr size_t kCxxSizes[] = {QUIV_COM_SIZES(QUIV_RECORD_SIZE)};

TEST(ComLayoutTest, CAndCxxAgreeOnEveryOffset) {
  for (size_t i = 0; i < std::size(kCxxOffsets); ++i) {
    EXPECT_EQ(quiv_com_c_offsets[i], kCxxOffsets[i]) << "entry " << i;
  }
}

TEST(ComLayoutTest, CAndCxxAgreeOnEverySize) {
  for (size_t i = 0; i < std::size(kCxxSizes); ++i) {
    EXPECT_EQ(quiv_com_c_sizes[i], kCxxSizes[i]) << "entry " << i;
  }
}

TEST(ComLayoutTest, CxxCallsAnObjectWrittenInCThroughItsVtable) {
  IUnknown* unknown = quiv_com_c_counter();
  EXPECT_EQ(unknown->lpVtbl->AddRef(unknown), 2u);
  void* same = nullptr;
  ASSERT_EQ(unknown->lpVtbl->QueryInterface(unknown, &IID_IUnknown, &same), S_OK);
  EXPECT_EQ(same, unknown);
  void* none = &none;
  EXPECT_EQ(unknown->lpVtbl->QueryInterface(unknown, &IID_IDispatch, &none), E_NOINTERFACE);
  EXPECT_EQ(none, nullptr);
  EXPECT_EQ(unknown->lpVtbl->Release(unknown), 2u);
  EXPECT_EQ(unknown->lpVtbl->Release(unknown), 1u);
}

TEST(ComLayoutTest, CReadsAVariantCxxFilled) {
  VARIANT v{};
  v.vt = VT_I4;
  v.lVal = -123456;
  EXPECT_EQ(quiv_com_c_read_i4(&v), -123456);
}

TEST(ComLayoutTest, TheAccessorsNameTheFields) {
  VARIANT v{};
  LONG value = 5;
  V_VT(&v) = VT_I4 | VT_BYREF;
  V_I4REF(&v) = &value;
  EXPECT_EQ(v.vt, VT_I4 | VT_BYREF);
  EXPECT_EQ(v.plVal, &value);
  EXPECT_TRUE(V_ISBYREF(&v));
  EXPECT_FALSE(V_ISARRAY(&v));
  V_VT(&v) = VT_BOOL;
  V_BOOL(&v) = VARIANT_TRUE;
  EXPECT_EQ(v.boolVal, VARIANT_TRUE);
  EXPECT_EQ(V_I2(&v), -1);  // the same bytes
  V_R8(&v) = 0.5;
  EXPECT_EQ(v.dblVal, 0.5);
}

TEST(ComLayoutTest, SucceededAndFailedSplitOnTheSeverityBit) {
  EXPECT_TRUE(SUCCEEDED(S_OK));
  EXPECT_TRUE(SUCCEEDED(S_FALSE));
  EXPECT_FALSE(FAILED(S_FALSE));
  EXPECT_TRUE(FAILED(E_FAIL));
  EXPECT_TRUE(FAILED(DISP_E_EXCEPTION));
  EXPECT_EQ(HRESULT_CODE(DISP_E_OVERFLOW), 0x000A);
  EXPECT_EQ(HRESULT_FACILITY(DISP_E_OVERFLOW), FACILITY_DISPATCH);
  EXPECT_EQ(MAKE_HRESULT(SEVERITY_ERROR, FACILITY_ITF, 0x0111), CLASS_E_CLASSNOTAVAILABLE);
}

// The standard identifiers, as the platform publishes them.
TEST(ComLayoutTest, StandardInterfaceIdentifiersHaveTheirPublishedValues) {
  const IID dispatch = {0x00020400, 0, 0, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};
  const IID unknown = {0x00000000, 0, 0, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};
  const IID factory = {0x00000001, 0, 0, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};
  const IID typeinfo = {0x00020401, 0, 0, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};
  const IID typelib = {0x00020402, 0, 0, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};
  EXPECT_TRUE(IsEqualIID(&IID_IDispatch, &dispatch));
  EXPECT_TRUE(IsEqualIID(&IID_IUnknown, &unknown));
  EXPECT_TRUE(IsEqualIID(&IID_IClassFactory, &factory));
  EXPECT_TRUE(IsEqualIID(&IID_ITypeInfo, &typeinfo));
  EXPECT_TRUE(IsEqualIID(&IID_ITypeLib, &typelib));
  EXPECT_FALSE(IsEqualIID(&IID_IDispatch, &IID_IUnknown));
  const IID zero{};
  EXPECT_TRUE(IsEqualGUID(&GUID_NULL, &zero));
  EXPECT_TRUE(IsEqualGUID(&IID_NULL, &zero));
}

}  // namespace
