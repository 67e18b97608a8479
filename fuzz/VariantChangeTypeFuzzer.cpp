// Fuzz target: VariantChangeType on arbitrary sources (every scalar type, strings, byte arrays,
// objects with a default member, by-reference variants) to every target type. Only the
// documented HRESULTs come back; a failure leaves the destination as it was; a success has the
// target type; nothing leaks and every object reference taken is given back. A string that is a
// decimal number agrees with itself: it converts to a 32-bit integer exactly when it converts to
// a double whose half-to-even rounding is in range, to the same value; and an integer converted
// to text reads back as the same integer.
//
// Input: [source kind][target index][flags][payload...]
// Run: build/fuzz/fuzz/fuzz_variant_change_type fuzz/corpus/variant_change_type -max_total_time=60
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>

#include "FuzzSupport.h"
#include "server/FakeDispatch.h"
#include "server/quiv_com.h"

namespace {

using quiv::test::FakeDispatch;

constexpr VARTYPE kTargets[] = {VT_EMPTY,
                                VT_NULL,
                                VT_I1,
                                VT_UI1,
                                VT_I2,
                                VT_UI2,
                                VT_I4,
                                VT_UI4,
                                VT_INT,
                                VT_UINT,
                                VT_I8,
                                VT_UI8,
                                VT_R4,
                                VT_R8,
                                VT_BOOL,
                                VT_BSTR,
                                VT_ERROR,
                                VT_DISPATCH,
                                VT_UNKNOWN,
                                VT_ARRAY | VT_UI1,
                                VT_ARRAY | VT_I2,
                                VT_CY,
                                VT_DATE,
                                VT_VARIANT,
                                VT_DECIMAL,
                                15,
                                VT_VOID,
                                VT_I4 | VT_BYREF,
                                VT_I4 | VT_VECTOR};

// The payload as text: one unit per byte, so digits, signs and blanks are common.
BSTR TextOf(const uint8_t* data, size_t size) {
  std::u16string text(data, data + size);
  return SysAllocStringLen(text.data(), static_cast<UINT>(text.size()));
}

// The payload's first bytes as a plain value of `size` bytes.
void PlainValue(VARIANT* v, const uint8_t* data, size_t size, size_t valueSize) {
  v->llVal = 0;
  std::memcpy(&v->llVal, data, size < valueSize ? size : valueSize);
}

// Builds the source; `object` backs VT_DISPATCH and VT_UNKNOWN sources.
void MakeSource(uint8_t kind, const uint8_t* data, size_t size, FakeDispatch* object, VARIANT* v) {
  static constexpr VARTYPE kPlain[] = {VT_I1,   VT_UI1, VT_I2,  VT_UI2, VT_I4, VT_UI4,  VT_INT,
                                       VT_UINT, VT_I8,  VT_UI8, VT_R4,  VT_R8, VT_BOOL, VT_ERROR};
  static constexpr size_t kSizes[] = {1, 1, 2, 2, 4, 4, 4, 4, 8, 8, 4, 8, 2, 4};
  const uint8_t choice = kind % 20;
  VariantInit(v);
  if (choice < 14) {
    v->vt = kPlain[choice];
    PlainValue(v, data, size, kSizes[choice]);
  } else if (choice == 14) {
    v->vt = VT_BSTR;
    v->bstrVal = TextOf(data, size);
  } else if (choice == 15) {
    v->vt = VT_ARRAY | VT_UI1;
    v->parray = SafeArrayCreateVector(VT_UI1, 0, static_cast<ULONG>(size));
    if (size != 0) std::memcpy(v->parray->pvData, data, size);
  } else if (choice == 16 || choice == 17) {
    object->hasDefault = choice == 16;
    object->value.vt = VT_BSTR;
    object->value.bstrVal = TextOf(data, size);
    object->dispatch()->lpVtbl->AddRef(object->dispatch());
    v->vt = VT_DISPATCH;
    v->pdispVal = object->dispatch();
  } else if (choice == 18) {
    v->vt = VT_NULL;
  }
}

bool IsDocumented(HRESULT hr) {
  return hr == S_OK || hr == DISP_E_TYPEMISMATCH || hr == DISP_E_OVERFLOW ||
         hr == DISP_E_BADVARTYPE || hr == E_OUTOFMEMORY;
}

HRESULT Change(const VARIANT& from, VARTYPE vt, USHORT flags, VARIANT* out) {
  VariantInit(out);
  return VariantChangeType(out, &from, flags, vt);
}

// A decimal string agrees with itself through the double and the 32-bit integer paths.
void CheckDecimalText(const VARIANT& text) {
  const std::u16string_view view(text.bstrVal, SysStringLen(text.bstrVal));
  if (view.find(u'&') != std::u16string_view::npos) return;  // hex patterns fit by width
  VARIANT real;
  VARIANT whole;
  const HRESULT realResult = Change(text, VT_R8, 0, &real);
  const HRESULT wholeResult = Change(text, VT_I4, 0, &whole);
  if (realResult == DISP_E_TYPEMISMATCH) fuzz::Require(wholeResult == DISP_E_TYPEMISMATCH);
  if (realResult == DISP_E_OVERFLOW) fuzz::Require(wholeResult == DISP_E_OVERFLOW);
  if (realResult != S_OK) return;
  const double rounded = std::nearbyint(real.dblVal);
  const bool fits = rounded >= -2147483648.0 && rounded <= 2147483647.0;
  fuzz::Require((wholeResult == S_OK) == fits);
  if (wholeResult == S_OK) fuzz::Require(static_cast<double>(whole.lVal) == rounded);
}

// An integer converted to text reads back as itself.
void CheckIntegerText(LONG value) {
  VARIANT number;
  number.vt = VT_I4;
  number.lVal = value;
  VARIANT text;
  VARIANT back;
  fuzz::Require(Change(number, VT_BSTR, 0, &text) == S_OK);
  fuzz::Require(Change(text, VT_I4, 0, &back) == S_OK && back.lVal == value);
  VariantClear(&text);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 3) return 0;
  const VARTYPE target = kTargets[data[1] % std::size(kTargets)];
  const USHORT flags = data[2] & (VARIANT_NOVALUEPROP | VARIANT_ALPHABOOL | VARIANT_LOCALBOOL);
  FakeDispatch object;
  VARIANT source;
  MakeSource(data[0], data + 3, size - 3, &object, &source);

  // By value, then through a reference when the top bit asks for one.
  VARIANT reference;
  reference.vt = VT_VARIANT | VT_BYREF;
  reference.pvarVal = &source;
  const VARIANT& from = (data[0] & 0x80) ? reference : source;

  VARIANT out;
  out.vt = VT_I4;
  out.lVal = 0x5EED;
  const HRESULT hr = VariantChangeType(&out, &from, flags, target);
  fuzz::Require(IsDocumented(hr));
  if (hr == S_OK) {
    fuzz::Require(out.vt == target);
    if (target == VT_I4) CheckIntegerText(out.lVal);
  } else {
    fuzz::Require(out.vt == VT_I4 && out.lVal == 0x5EED);
  }
  if (source.vt == VT_BSTR) CheckDecimalText(source);
  VariantClear(&out);
  VariantClear(&source);
  fuzz::Require(object.refs == 1);
  return 0;
}
