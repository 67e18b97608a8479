// VariantInit, VariantClear, VariantCopy and VariantCopyInd with the platform's ownership rules:
// a VARIANT owns its BSTR, its array and one reference on its object, and nothing a by-reference
// variant points at.
#include <cstring>

#include "server/VariantTypes.h"
#include "server/quiv_com.h"

using quiv::server::IsValidVariantType;
using quiv::server::PlainValueSize;

namespace {

// Releases what `v` owns; `v` has a valid type.
HRESULT ReleaseContents(VARIANT* v) {
  if (v->vt & VT_BYREF) return S_OK;
  if (v->vt & VT_ARRAY) return SafeArrayDestroy(v->parray);
  switch (v->vt) {
    case VT_BSTR:
      SysFreeString(v->bstrVal);
      return S_OK;
    case VT_DISPATCH:
    case VT_UNKNOWN:
      if (v->punkVal != nullptr) v->punkVal->lpVtbl->Release(v->punkVal);
      return S_OK;
    default:
      return S_OK;
  }
}

HRESULT CopyBstr(BSTR from, BSTR* to) {
  *to = nullptr;
  if (from == nullptr) return S_OK;
  *to = SysAllocStringByteLen(reinterpret_cast<LPCSTR>(from), SysStringByteLen(from));
  return *to == nullptr ? E_OUTOFMEMORY : S_OK;
}

void AddRefIfAny(IUnknown* object) {
  if (object != nullptr) object->lpVtbl->AddRef(object);
}

// `out` becomes an owning copy of the by-value `in` (valid type, not by reference).
HRESULT CopyByValue(const VARIANT* in, VARIANT* out) {
  *out = *in;
  if (in->vt & VT_ARRAY) return SafeArrayCopy(in->parray, &out->parray);
  switch (in->vt) {
    case VT_BSTR:
      return CopyBstr(in->bstrVal, &out->bstrVal);
    case VT_DISPATCH:
    case VT_UNKNOWN:
      AddRefIfAny(in->punkVal);
      return S_OK;
    default:
      return S_OK;
  }
}

// `out` becomes an owning copy of what the by-reference `in` points at.
HRESULT CopyReferenced(const VARIANT* in, VARIANT* out) {
  const VARTYPE base = in->vt & ~VT_BYREF;
  VariantInit(out);
  if (in->byref == nullptr) return E_INVALIDARG;
  if (base == VT_VARIANT) {
    // One level of indirection only: a reference to a reference to a variant is refused.
    if (in->pvarVal->vt == (VT_VARIANT | VT_BYREF)) return E_INVALIDARG;
    return VariantCopyInd(out, in->pvarVal);
  }
  HRESULT hr = S_OK;
  if (base & VT_ARRAY) {
    hr = SafeArrayCopy(*in->pparray, &out->parray);
  } else if (base == VT_BSTR) {
    hr = CopyBstr(*in->pbstrVal, &out->bstrVal);
  } else if (base == VT_DISPATCH || base == VT_UNKNOWN) {
    out->punkVal = *in->ppunkVal;
    AddRefIfAny(out->punkVal);
  } else if (base == VT_DECIMAL) {
    out->decVal = *in->pdecVal;  // overlays vt, which is set below
  } else if (const size_t size = PlainValueSize(base); size != 0) {
    std::memcpy(&out->llVal, in->byref, size);
  } else {
    return DISP_E_BADVARTYPE;
  }
  if (FAILED(hr)) return hr;
  out->vt = base;
  return S_OK;
}

}  // namespace

extern "C" {

QUIV_API void VariantInit(VARIANTARG* pvarg) {
  if (pvarg != nullptr) pvarg->vt = VT_EMPTY;
}

QUIV_API HRESULT VariantClear(VARIANTARG* pvarg) {
  if (pvarg == nullptr) return E_INVALIDARG;
  if (!IsValidVariantType(pvarg->vt)) return DISP_E_BADVARTYPE;
  if (const HRESULT hr = ReleaseContents(pvarg); FAILED(hr)) return hr;
  pvarg->vt = VT_EMPTY;
  return S_OK;
}

QUIV_API HRESULT VariantCopy(VARIANTARG* pvargDest, const VARIANTARG* pvargSrc) {
  if (pvargDest == nullptr || pvargSrc == nullptr) return E_INVALIDARG;
  if (!IsValidVariantType(pvargSrc->vt)) return DISP_E_BADVARTYPE;
  if (pvargDest == pvargSrc) return S_OK;
  if (const HRESULT hr = VariantClear(pvargDest); FAILED(hr)) return hr;
  if (pvargSrc->vt & VT_BYREF) {
    *pvargDest = *pvargSrc;
    return S_OK;
  }
  VARIANT copy;
  if (const HRESULT hr = CopyByValue(pvargSrc, &copy); FAILED(hr)) return hr;
  *pvargDest = copy;
  return S_OK;
}

QUIV_API HRESULT VariantCopyInd(VARIANT* pvarDest, const VARIANTARG* pvargSrc) {
  if (pvarDest == nullptr || pvargSrc == nullptr) return E_INVALIDARG;
  if (!IsValidVariantType(pvargSrc->vt)) return DISP_E_BADVARTYPE;
  if (!(pvargSrc->vt & VT_BYREF)) return VariantCopy(pvarDest, pvargSrc);
  // Copied aside first: the destination may be the source.
  VARIANT copy;
  if (const HRESULT hr = CopyReferenced(pvargSrc, &copy); FAILED(hr)) {
    VariantClear(&copy);
    return hr;
  }
  if (const HRESULT hr = VariantClear(pvarDest); FAILED(hr)) {
    VariantClear(&copy);
    return hr;
  }
  *pvarDest = copy;
  return S_OK;
}

}  // extern "C"
