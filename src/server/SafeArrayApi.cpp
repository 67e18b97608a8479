// The platform's safe array functions for the arrays libquiv makes. One allocation holds, in
// order: 16 bytes of prefix whose last 4 hold the element VARTYPE (FADF_HAVEVARTYPE, read by
// SafeArrayGetVartype as the platform does, just before the descriptor), the descriptor with its
// bounds, and the elements. Bounds are stored last dimension first, as on the platform.
//
// The element data of one array is at most 4 GiB - 1 bytes, the most a 32-bit count reaches.
//
// Arrays flagged FADF_AUTO, FADF_STATIC or FADF_EMBEDDED live in their owner's memory: destroying
// one releases the strings and objects it holds and frees nothing else.
#include <cstdlib>
#include <cstring>
#include <limits>

#include "server/VariantTypes.h"
#include "server/quiv_com.h"

namespace {

constexpr size_t kPrefixBytes = 16;
constexpr size_t kDataAlignment = 16;
constexpr USHORT kForeignMemory = FADF_AUTO | FADF_STATIC | FADF_EMBEDDED;
constexpr ULONG kMaxLocks = 0xFFFF;

// The element size the platform uses for each VARTYPE an array may hold; 0 for the others.
ULONG ElementSize(VARTYPE vt) {
  switch (vt) {
    case VT_BSTR:
    case VT_DISPATCH:
    case VT_UNKNOWN:
      return sizeof(void*);
    case VT_DECIMAL:
      return sizeof(DECIMAL);
    case VT_VARIANT:
      return sizeof(VARIANT);
    default:
      return static_cast<ULONG>(quiv::server::PlainValueSize(vt));
  }
}

USHORT FeaturesFor(VARTYPE vt) {
  switch (vt) {
    case VT_BSTR:
      return FADF_HAVEVARTYPE | FADF_BSTR;
    case VT_DISPATCH:
      return FADF_HAVEVARTYPE | FADF_DISPATCH;
    case VT_UNKNOWN:
      return FADF_HAVEVARTYPE | FADF_UNKNOWN;
    case VT_VARIANT:
      return FADF_HAVEVARTYPE | FADF_VARIANT;
    default:
      return FADF_HAVEVARTYPE;
  }
}

size_t DescriptorBytes(USHORT dims) {
  return sizeof(SAFEARRAY) + (static_cast<size_t>(dims) - 1) * sizeof(SAFEARRAYBOUND);
}

size_t DataOffset(USHORT dims) {
  const size_t end = kPrefixBytes + DescriptorBytes(dims);
  return (end + kDataAlignment - 1) / kDataAlignment * kDataAlignment;
}

// The number of elements, or false when it overflows.
bool ElementCount(const SAFEARRAY* psa, size_t* count) {
  size_t n = 1;
  for (USHORT i = 0; i < psa->cDims; ++i) {
    const size_t c = psa->rgsabound[i].cElements;
    if (c != 0 && n > std::numeric_limits<size_t>::max() / c) return false;
    n *= c;
  }
  *count = n;
  return true;
}

// A zeroed array of `dims` dimensions whose bounds are `bounds` (stored order), or NULL.
SAFEARRAY* Allocate(VARTYPE vt, USHORT dims, const SAFEARRAYBOUND* bounds) {
  const ULONG size = ElementSize(vt);
  if (size == 0 || dims == 0) return nullptr;
  size_t elements = 1;
  for (USHORT i = 0; i < dims; ++i) {
    const size_t c = bounds[i].cElements;
    if (c != 0 && elements > std::numeric_limits<size_t>::max() / c) return nullptr;
    elements *= c;
  }
  // The element data is counted in 32 bits, as the bounds are.
  if (elements > std::numeric_limits<ULONG>::max() / size) return nullptr;
  const size_t total = DataOffset(dims) + elements * size;
  auto* block = static_cast<char*>(std::calloc(1, total));
  if (block == nullptr) return nullptr;
  const DWORD type = vt;
  std::memcpy(block + kPrefixBytes - sizeof(type), &type, sizeof(type));
  auto* psa = reinterpret_cast<SAFEARRAY*>(block + kPrefixBytes);
  psa->cDims = dims;
  psa->fFeatures = FeaturesFor(vt);
  psa->cbElements = size;
  psa->pvData = block + DataOffset(dims);
  std::memcpy(psa->rgsabound, bounds, dims * sizeof(SAFEARRAYBOUND));
  return psa;
}

// Releases what the elements own (strings, object references, variants' contents) and leaves
// the elements empty, which matters for an array in its owner's memory.
void ReleaseElements(SAFEARRAY* psa) {
  size_t count = 0;
  if (psa->pvData == nullptr || !ElementCount(psa, &count)) return;
  if (psa->fFeatures & FADF_BSTR) {
    auto* items = static_cast<BSTR*>(psa->pvData);
    for (size_t i = 0; i < count; ++i) {
      SysFreeString(items[i]);
      items[i] = nullptr;
    }
  } else if (psa->fFeatures & (FADF_UNKNOWN | FADF_DISPATCH)) {
    auto* items = static_cast<IUnknown**>(psa->pvData);
    for (size_t i = 0; i < count; ++i) {
      if (items[i] != nullptr) items[i]->lpVtbl->Release(items[i]);
      items[i] = nullptr;
    }
  } else if (psa->fFeatures & FADF_VARIANT) {
    auto* items = static_cast<VARIANT*>(psa->pvData);
    for (size_t i = 0; i < count; ++i) VariantClear(&items[i]);
  }
}

// Copies every element of `from` into the zeroed `to` of the same shape, taking its own copy of
// strings and references.
HRESULT CopyElements(const SAFEARRAY* from, SAFEARRAY* to, size_t count) {
  if (from->pvData == nullptr || count == 0) return S_OK;
  if (from->fFeatures & FADF_BSTR) {
    auto* in = static_cast<BSTR*>(from->pvData);
    auto* out = static_cast<BSTR*>(to->pvData);
    for (size_t i = 0; i < count; ++i) {
      if (in[i] == nullptr) continue;
      out[i] = SysAllocStringByteLen(reinterpret_cast<LPCSTR>(in[i]), SysStringByteLen(in[i]));
      if (out[i] == nullptr) return E_OUTOFMEMORY;
    }
    return S_OK;
  }
  if (from->fFeatures & FADF_VARIANT) {
    auto* in = static_cast<VARIANT*>(from->pvData);
    auto* out = static_cast<VARIANT*>(to->pvData);
    for (size_t i = 0; i < count; ++i) {
      if (const HRESULT hr = VariantCopy(&out[i], &in[i]); FAILED(hr)) return hr;
    }
    return S_OK;
  }
  std::memcpy(to->pvData, from->pvData, count * from->cbElements);
  if (from->fFeatures & (FADF_UNKNOWN | FADF_DISPATCH)) {
    auto* items = static_cast<IUnknown**>(to->pvData);
    for (size_t i = 0; i < count; ++i) {
      if (items[i] != nullptr) items[i]->lpVtbl->AddRef(items[i]);
    }
  }
  return S_OK;
}

const SAFEARRAYBOUND* BoundOf(const SAFEARRAY* psa, UINT nDim) {
  // Dimension 1 is the last bound stored.
  return &psa->rgsabound[psa->cDims - nDim];
}

}  // namespace

extern "C" {

QUIV_API SAFEARRAY* SafeArrayCreateVector(VARTYPE vt, LONG lLbound, ULONG cElements) {
  const SAFEARRAYBOUND bound = {cElements, lLbound};
  return Allocate(vt, 1, &bound);
}

QUIV_API HRESULT SafeArrayDestroy(SAFEARRAY* psa) {
  if (psa == nullptr) return S_OK;
  if (psa->cLocks > 0) return DISP_E_ARRAYISLOCKED;
  ReleaseElements(psa);
  if (psa->fFeatures & kForeignMemory) return S_OK;
  std::free(reinterpret_cast<char*>(psa) - kPrefixBytes);
  return S_OK;
}

QUIV_API HRESULT SafeArrayGetVartype(SAFEARRAY* psa, VARTYPE* pvt) {
  if (psa == nullptr || pvt == nullptr) return E_INVALIDARG;
  if (psa->fFeatures & FADF_HAVEVARTYPE) {
    DWORD type = 0;
    std::memcpy(&type, reinterpret_cast<const char*>(psa) - sizeof(type), sizeof(type));
    *pvt = static_cast<VARTYPE>(type);
  } else if (psa->fFeatures & FADF_BSTR) {
    *pvt = VT_BSTR;
  } else if (psa->fFeatures & FADF_UNKNOWN) {
    *pvt = VT_UNKNOWN;
  } else if (psa->fFeatures & FADF_DISPATCH) {
    *pvt = VT_DISPATCH;
  } else if (psa->fFeatures & FADF_VARIANT) {
    *pvt = VT_VARIANT;
  } else {
    return E_INVALIDARG;
  }
  return S_OK;
}

QUIV_API HRESULT SafeArrayCopy(SAFEARRAY* psa, SAFEARRAY** ppsaOut) {
  if (ppsaOut == nullptr) return E_INVALIDARG;
  *ppsaOut = nullptr;
  if (psa == nullptr) return S_OK;
  VARTYPE vt = VT_EMPTY;
  size_t count = 0;
  if (FAILED(SafeArrayGetVartype(psa, &vt)) || psa->cDims == 0 || !ElementCount(psa, &count)) {
    return E_INVALIDARG;
  }
  SAFEARRAY* copy = Allocate(vt, psa->cDims, psa->rgsabound);
  if (copy == nullptr) return E_OUTOFMEMORY;
  if (copy->cbElements != psa->cbElements) {
    SafeArrayDestroy(copy);
    return E_INVALIDARG;
  }
  if (const HRESULT hr = CopyElements(psa, copy, count); FAILED(hr)) {
    SafeArrayDestroy(copy);
    return hr;
  }
  *ppsaOut = copy;
  return S_OK;
}

QUIV_API HRESULT SafeArrayLock(SAFEARRAY* psa) {
  if (psa == nullptr) return E_INVALIDARG;
  if (psa->cLocks >= kMaxLocks) return E_UNEXPECTED;
  ++psa->cLocks;
  return S_OK;
}

QUIV_API HRESULT SafeArrayUnlock(SAFEARRAY* psa) {
  if (psa == nullptr) return E_INVALIDARG;
  if (psa->cLocks == 0) return E_UNEXPECTED;
  --psa->cLocks;
  return S_OK;
}

QUIV_API HRESULT SafeArrayAccessData(SAFEARRAY* psa, void** ppvData) {
  if (psa == nullptr || ppvData == nullptr) return E_INVALIDARG;
  if (const HRESULT hr = SafeArrayLock(psa); FAILED(hr)) {
    *ppvData = nullptr;
    return hr;
  }
  *ppvData = psa->pvData;
  return S_OK;
}

QUIV_API HRESULT SafeArrayUnaccessData(SAFEARRAY* psa) {
  return SafeArrayUnlock(psa);
}

QUIV_API HRESULT SafeArrayGetUBound(SAFEARRAY* psa, UINT nDim, LONG* plUbound) {
  if (psa == nullptr || plUbound == nullptr) return E_INVALIDARG;
  if (nDim == 0 || nDim > psa->cDims) return DISP_E_BADINDEX;
  const SAFEARRAYBOUND* bound = BoundOf(psa, nDim);
  // Wraps like the platform's 32-bit sum: an empty vector based at 0 has upper bound -1.
  *plUbound = static_cast<LONG>(static_cast<ULONG>(bound->lLbound) + bound->cElements - 1u);
  return S_OK;
}

QUIV_API HRESULT SafeArrayGetLBound(SAFEARRAY* psa, UINT nDim, LONG* plLbound) {
  if (psa == nullptr || plLbound == nullptr) return E_INVALIDARG;
  if (nDim == 0 || nDim > psa->cDims) return DISP_E_BADINDEX;
  *plLbound = BoundOf(psa, nDim)->lLbound;
  return S_OK;
}

QUIV_API UINT SafeArrayGetDim(SAFEARRAY* psa) {
  return psa == nullptr ? 0 : psa->cDims;
}

QUIV_API UINT SafeArrayGetElemsize(SAFEARRAY* psa) {
  return psa == nullptr ? 0 : psa->cbElements;
}

}  // extern "C"
