#include "server/VariantCoercion.h"

#include <cfloat>
#include <cmath>
#include <cstring>
#include <string>
#include <string_view>

#include "server/NumberText.h"
#include "server/VariantTypes.h"

namespace quiv::server {

namespace {

using Int = __int128;

// A numeric source value before it is fitted to its target.
struct Number {
  enum class Kind { Integer, Real, BitPattern };
  Kind kind = Kind::Integer;
  Int integer = 0;
  double real = 0;
  uint64_t bits = 0;
  bool negative = false;
  bool fromBool = false;
};

struct IntegerTarget {
  Int min;
  Int max;
  int width;
  bool isSigned;
};

bool IntegerTargetOf(VARTYPE vt, IntegerTarget* t) {
  switch (vt) {
    case VT_I1:
      *t = {INT8_MIN, INT8_MAX, 8, true};
      return true;
    case VT_UI1:
      *t = {0, UINT8_MAX, 8, false};
      return true;
    case VT_I2:
      *t = {INT16_MIN, INT16_MAX, 16, true};
      return true;
    case VT_UI2:
      *t = {0, UINT16_MAX, 16, false};
      return true;
    case VT_I4:
    case VT_INT:
      *t = {INT32_MIN, INT32_MAX, 32, true};
      return true;
    case VT_UI4:
    case VT_UINT:
      *t = {0, UINT32_MAX, 32, false};
      return true;
    case VT_I8:
      *t = {INT64_MIN, INT64_MAX, 64, true};
      return true;
    case VT_UI8:
      *t = {0, UINT64_MAX, 64, false};
      return true;
    default:
      return false;
  }
}

Int Mask(int width) {
  return (Int{1} << width) - 1;
}

// A hex or octal pattern read at the target's width: fits, then wraps to the signed value for a
// signed target.
HRESULT FitBitPattern(const Number& n, const IntegerTarget& t, Int* out) {
  if (static_cast<Int>(n.bits) > Mask(t.width)) return DISP_E_OVERFLOW;
  Int v = n.bits;
  if (t.isSigned && v > t.max) v -= Int{1} << t.width;
  *out = n.negative ? -v : v;
  return S_OK;
}

HRESULT FitInteger(const Number& n, const IntegerTarget& t, Int* out) {
  Int v = 0;
  switch (n.kind) {
    case Number::Kind::Integer:
      // The run time stores true into an unsigned target as its bit pattern (true -> 255).
      if (n.fromBool && !t.isSigned) {
        *out = n.integer & Mask(t.width);
        return S_OK;
      }
      v = n.integer;
      break;
    case Number::Kind::Real: {
      if (!std::isfinite(n.real)) return DISP_E_OVERFLOW;
      const double r = std::nearbyint(n.real);  // the default rounding: half to even
      if (r < static_cast<double>(t.min) || r >= static_cast<double>(t.max) + 1.0) {
        return DISP_E_OVERFLOW;
      }
      v = static_cast<Int>(r);
      break;
    }
    case Number::Kind::BitPattern:
      if (const HRESULT hr = FitBitPattern(n, t, &v); FAILED(hr)) return hr;
      break;
  }
  if (v < t.min || v > t.max) return DISP_E_OVERFLOW;
  *out = v;
  return S_OK;
}

// The value as a double; a hex pattern counts as a 32-bit signed integer.
HRESULT FitReal(const Number& n, double* out) {
  switch (n.kind) {
    case Number::Kind::Integer:
      *out = static_cast<double>(n.integer);
      return S_OK;
    case Number::Kind::Real:
      *out = n.real;
      return S_OK;
    case Number::Kind::BitPattern: {
      Int v = 0;
      if (const HRESULT hr = FitBitPattern(n, {INT32_MIN, INT32_MAX, 32, true}, &v); FAILED(hr)) {
        return hr;
      }
      *out = static_cast<double>(v);
      return S_OK;
    }
  }
  return E_UNEXPECTED;
}

bool IsZero(const Number& n) {
  switch (n.kind) {
    case Number::Kind::Integer:
      return n.integer == 0;
    case Number::Kind::Real:
      return n.real == 0;
    case Number::Kind::BitPattern:
      return n.bits == 0;
  }
  return false;
}

// The text a string holds for reading a number or a boolean: the run time's parsers take a
// NUL-terminated string, so the text ends at the first NUL.
std::u16string_view TextOf(BSTR s) {
  if (s == nullptr) return {};
  const std::u16string_view whole(s, SysStringLen(s));
  return whole.substr(0, whole.find(u'\0'));
}

bool EqualsIgnoringCase(std::u16string_view a, std::u16string_view b) {
  if (a.size() != b.size()) return false;
  for (size_t i = 0; i < a.size(); ++i) {
    const auto lower = [](char16_t c) { return c >= u'A' && c <= u'Z' ? c + (u'a' - u'A') : c; };
    if (lower(a[i]) != lower(b[i])) return false;
  }
  return true;
}

HRESULT NumberFromText(BSTR text, Number* n) {
  const ParsedNumber parsed = ParseNumberText(TextOf(text));
  if (parsed.status == ParsedNumber::Status::NotANumber) return DISP_E_TYPEMISMATCH;
  if (parsed.status == ParsedNumber::Status::Overflow) return DISP_E_OVERFLOW;
  if (parsed.isBitPattern) {
    n->kind = Number::Kind::BitPattern;
    n->bits = parsed.bits;
    n->negative = parsed.negative;
  } else {
    n->kind = Number::Kind::Real;
    n->real = parsed.value;
  }
  return S_OK;
}

// The numeric value of a scalar source; DISP_E_TYPEMISMATCH for anything else.
HRESULT NumberOf(const VARIANT& v, Number* n) {
  auto integer = [n](Int value) {
    n->kind = Number::Kind::Integer;
    n->integer = value;
    return S_OK;
  };
  auto real = [n](double value) {
    n->kind = Number::Kind::Real;
    n->real = value;
    return S_OK;
  };
  switch (v.vt) {
    case VT_EMPTY:
      return integer(0);
    case VT_I1:
      return integer(v.cVal);
    case VT_UI1:
      return integer(v.bVal);
    case VT_I2:
      return integer(v.iVal);
    case VT_UI2:
      return integer(v.uiVal);
    case VT_I4:
      return integer(v.lVal);
    case VT_UI4:
      return integer(v.ulVal);
    case VT_INT:
      return integer(v.intVal);
    case VT_UINT:
      return integer(v.uintVal);
    case VT_I8:
      return integer(v.llVal);
    case VT_UI8:
      return integer(v.ullVal);
    case VT_R4:
      return real(v.fltVal);
    case VT_R8:
      return real(v.dblVal);
    case VT_BOOL:
      n->fromBool = true;
      return integer(v.boolVal != VARIANT_FALSE ? -1 : 0);
    case VT_BSTR:
      return NumberFromText(v.bstrVal, n);
    default:
      return DISP_E_TYPEMISMATCH;
  }
}

void StoreInteger(VARTYPE vt, Int v, VARIANT* to) {
  to->vt = vt;
  switch (vt) {
    case VT_I1:
      to->cVal = static_cast<CHAR>(v);
      break;
    case VT_UI1:
      to->bVal = static_cast<BYTE>(v);
      break;
    case VT_I2:
      to->iVal = static_cast<SHORT>(v);
      break;
    case VT_UI2:
      to->uiVal = static_cast<USHORT>(v);
      break;
    case VT_I4:
    case VT_INT:
      to->lVal = static_cast<LONG>(v);
      break;
    case VT_UI4:
    case VT_UINT:
      to->ulVal = static_cast<ULONG>(v);
      break;
    case VT_I8:
      to->llVal = static_cast<LONGLONG>(v);
      break;
    default:
      to->ullVal = static_cast<ULONGLONG>(v);
      break;
  }
}

HRESULT ToNumeric(const Number& n, VARTYPE vt, VARIANT* to) {
  if (IntegerTarget t; IntegerTargetOf(vt, &t)) {
    Int v = 0;
    if (const HRESULT hr = FitInteger(n, t, &v); FAILED(hr)) return hr;
    StoreInteger(vt, v, to);
    return S_OK;
  }
  double d = 0;
  if (const HRESULT hr = FitReal(n, &d); FAILED(hr)) return hr;
  if (vt == VT_R4) {
    if (std::isinf(d) || std::fabs(d) > FLT_MAX) return DISP_E_OVERFLOW;
    to->vt = VT_R4;
    to->fltVal = static_cast<float>(d);
    return S_OK;
  }
  to->vt = VT_R8;
  to->dblVal = d;
  return S_OK;
}

HRESULT ToBool(const VARIANT& from, VARIANT* to) {
  to->vt = VT_BOOL;
  if (from.vt == VT_BSTR) {
    const std::u16string_view text = TextOf(from.bstrVal);
    if (EqualsIgnoringCase(text, u"True")) {
      to->boolVal = VARIANT_TRUE;
      return S_OK;
    }
    if (EqualsIgnoringCase(text, u"False")) {
      to->boolVal = VARIANT_FALSE;
      return S_OK;
    }
  }
  Number n;
  if (const HRESULT hr = NumberOf(from, &n); FAILED(hr)) return hr;
  to->boolVal = IsZero(n) ? VARIANT_FALSE : VARIANT_TRUE;
  return S_OK;
}

HRESULT StoreText(const std::string& ascii, VARIANT* to) {
  const std::u16string wide(ascii.begin(), ascii.end());
  BSTR s = SysAllocStringLen(wide.data(), static_cast<UINT>(wide.size()));
  if (s == nullptr) return E_OUTOFMEMORY;
  to->vt = VT_BSTR;
  to->bstrVal = s;
  return S_OK;
}

std::string IntegerText(Int v) {
  const bool negative = v < 0;
  unsigned __int128 magnitude = negative ? -static_cast<unsigned __int128>(v) : v;
  std::string digits;
  do {
    digits.insert(digits.begin(), static_cast<char>('0' + static_cast<int>(magnitude % 10)));
    magnitude /= 10;
  } while (magnitude != 0);
  return negative ? "-" + digits : digits;
}

HRESULT BytesToText(const SAFEARRAY* bytes, VARIANT* to) {
  if (bytes == nullptr || bytes->cDims != 1) return DISP_E_TYPEMISMATCH;
  BSTR s = SysAllocStringByteLen(static_cast<LPCSTR>(bytes->pvData), bytes->rgsabound[0].cElements);
  if (s == nullptr) return E_OUTOFMEMORY;
  to->vt = VT_BSTR;
  to->bstrVal = s;
  return S_OK;
}

HRESULT ToText(const VARIANT& from, USHORT flags, VARIANT* to) {
  switch (from.vt) {
    case VT_BSTR:
      to->vt = VT_BSTR;
      to->bstrVal = SysAllocStringByteLen(reinterpret_cast<LPCSTR>(from.bstrVal),
                                          SysStringByteLen(from.bstrVal));
      return to->bstrVal == nullptr ? E_OUTOFMEMORY : S_OK;
    case VT_R4:
      return StoreText(FormatFloat(from.fltVal), to);
    case VT_R8:
      return StoreText(FormatDouble(from.dblVal), to);
    case VT_BOOL:
      if (flags & (VARIANT_ALPHABOOL | VARIANT_LOCALBOOL)) {
        return StoreText(from.boolVal != VARIANT_FALSE ? "True" : "False", to);
      }
      return StoreText(from.boolVal != VARIANT_FALSE ? "-1" : "0", to);
    case VT_UI1 | VT_ARRAY:
      return BytesToText(from.parray, to);
    default: {
      Number n;
      if (const HRESULT hr = NumberOf(from, &n); FAILED(hr)) return hr;
      if (from.vt == VT_EMPTY) return StoreText("", to);
      return StoreText(IntegerText(n.integer), to);
    }
  }
}

HRESULT TextToBytes(BSTR text, VARIANT* to) {
  const UINT length = SysStringByteLen(text);
  SAFEARRAY* bytes = SafeArrayCreateVector(VT_UI1, 0, length);
  if (bytes == nullptr) return E_OUTOFMEMORY;
  if (length != 0) std::memcpy(bytes->pvData, text, length);
  to->vt = VT_UI1 | VT_ARRAY;
  to->parray = bytes;
  return S_OK;
}

HRESULT ToArray(const VARIANT& from, VARTYPE vt, VARIANT* to) {
  if (from.vt == vt) {
    SAFEARRAY* copy = nullptr;
    if (const HRESULT hr = SafeArrayCopy(from.parray, &copy); FAILED(hr)) return hr;
    to->vt = vt;
    to->parray = copy;
    return S_OK;
  }
  if (vt == (VT_UI1 | VT_ARRAY) && from.vt == VT_BSTR) return TextToBytes(from.bstrVal, to);
  return DISP_E_TYPEMISMATCH;
}

// VT_DISPATCH or VT_UNKNOWN from an object or from VT_EMPTY (Nothing).
HRESULT ToObject(const VARIANT& from, VARTYPE vt, VARIANT* to) {
  IUnknown* object = nullptr;
  if (from.vt == VT_DISPATCH || from.vt == VT_UNKNOWN) {
    object = from.punkVal;
  } else if (from.vt != VT_EMPTY) {
    return DISP_E_TYPEMISMATCH;
  }
  to->vt = vt;
  to->punkVal = nullptr;
  if (object == nullptr) return S_OK;
  if (from.vt == vt) {
    object->lpVtbl->AddRef(object);
    to->punkVal = object;
    return S_OK;
  }
  void* asked = nullptr;
  const IID* iid = vt == VT_DISPATCH ? &IID_IDispatch : &IID_IUnknown;
  if (FAILED(object->lpVtbl->QueryInterface(object, iid, &asked)) || asked == nullptr) {
    return DISP_E_TYPEMISMATCH;
  }
  to->punkVal = static_cast<IUnknown*>(asked);
  return S_OK;
}

// The value of an object's default member, as a variant the caller clears.
HRESULT DefaultValueOf(const VARIANT& from, LCID lcid, VARIANT* value) {
  IDispatch* dispatch = nullptr;
  VARIANT asDispatch;
  VariantInit(&asDispatch);
  if (FAILED(ToObject(from, VT_DISPATCH, &asDispatch))) return DISP_E_TYPEMISMATCH;
  dispatch = asDispatch.pdispVal;
  if (dispatch == nullptr) return DISP_E_TYPEMISMATCH;
  DISPPARAMS none = {nullptr, nullptr, 0, 0};
  VariantInit(value);
  const HRESULT hr = dispatch->lpVtbl->Invoke(dispatch, DISPID_VALUE, &IID_NULL, lcid,
                                              DISPATCH_PROPERTYGET | DISPATCH_METHOD, &none, value,
                                              nullptr, nullptr);
  VariantClear(&asDispatch);
  if (FAILED(hr)) {
    VariantClear(value);
    return DISP_E_TYPEMISMATCH;
  }
  return S_OK;
}

bool IsObject(VARTYPE vt) {
  return vt == VT_DISPATCH || vt == VT_UNKNOWN;
}

HRESULT CoerceValue(const VARIANT& from, VARTYPE vt, USHORT flags, VARIANT* to) {
  if ((vt & VT_ARRAY) || (from.vt & VT_ARRAY)) {
    if (vt == VT_BSTR) return ToText(from, flags, to);
    return ToArray(from, vt, to);
  }
  switch (vt) {
    case VT_EMPTY:
      to->vt = VT_EMPTY;
      return S_OK;
    case VT_NULL:
    case VT_ERROR:
      if (from.vt != vt && !(vt == VT_NULL && from.vt == VT_EMPTY)) return DISP_E_TYPEMISMATCH;
      *to = from;
      to->vt = vt;
      return S_OK;
    case VT_DISPATCH:
    case VT_UNKNOWN:
      return ToObject(from, vt, to);
    case VT_BOOL:
      return ToBool(from, to);
    case VT_BSTR:
      if (from.vt == VT_EMPTY) return StoreText("", to);
      return ToText(from, flags, to);
    default:
      break;
  }
  if (IntegerTarget t; IntegerTargetOf(vt, &t) || vt == VT_R4 || vt == VT_R8) {
    Number n;
    if (const HRESULT hr = NumberOf(from, &n); FAILED(hr)) return hr;
    return ToNumeric(n, vt, to);
  }
  return DISP_E_TYPEMISMATCH;
}

}  // namespace

HRESULT CoerceVariant(const VARIANT& from, VARTYPE vt, USHORT flags, LCID lcid, VARIANT* to) {
  VARIANT result;
  VariantInit(&result);
  if (IsObject(from.vt) && !IsObject(vt) && vt != VT_EMPTY && !(flags & VARIANT_NOVALUEPROP)) {
    VARIANT value;
    if (const HRESULT hr = DefaultValueOf(from, lcid, &value); FAILED(hr)) return hr;
    // One step only: a default member that returns an object is not asked again.
    const HRESULT hr = CoerceValue(value, vt, flags | VARIANT_NOVALUEPROP, &result);
    VariantClear(&value);
    if (FAILED(hr)) return hr;
  } else if (const HRESULT hr = CoerceValue(from, vt, flags, &result); FAILED(hr)) {
    VariantClear(&result);
    return hr;
  }
  *to = result;
  return S_OK;
}

}  // namespace quiv::server

extern "C" {

QUIV_API HRESULT VariantChangeTypeEx(VARIANTARG* pvargDest, const VARIANTARG* pvarSrc, LCID lcid,
                                     USHORT wFlags, VARTYPE vt) {
  if (pvargDest == nullptr || pvarSrc == nullptr) return E_INVALIDARG;
  if (!quiv::server::IsValidVariantType(pvarSrc->vt)) return DISP_E_BADVARTYPE;
  if (!quiv::server::IsValidVariantType(vt)) return DISP_E_BADVARTYPE;
  if (vt & VT_BYREF) return DISP_E_TYPEMISMATCH;
  // A by-reference source is read through its reference; a copy keeps the source intact when
  // it is also the destination.
  VARIANT source;
  VariantInit(&source);
  if (const HRESULT hr = VariantCopyInd(&source, pvarSrc); FAILED(hr)) return hr;
  VARIANT result;
  const HRESULT hr = quiv::server::CoerceVariant(source, vt, wFlags, lcid, &result);
  VariantClear(&source);
  if (FAILED(hr)) return hr;
  if (const HRESULT cleared = VariantClear(pvargDest); FAILED(cleared)) {
    VariantClear(&result);
    return cleared;
  }
  *pvargDest = result;
  return S_OK;
}

QUIV_API HRESULT VariantChangeType(VARIANTARG* pvargDest, const VARIANTARG* pvarSrc, USHORT wFlags,
                                   VARTYPE vt) {
  return VariantChangeTypeEx(pvargDest, pvarSrc, LOCALE_USER_DEFAULT, wFlags, vt);
}

}  // extern "C"
