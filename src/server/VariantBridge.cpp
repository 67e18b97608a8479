#include "server/VariantBridge.h"

#include <cstring>
#include <span>
#include <string>
#include <type_traits>
#include <variant>

#include "server/ClassTables.h"
#include "server/DispatchObject.h"
#include "server/ForeignDispatch.h"

namespace quiv::server {

namespace {

constexpr VARTYPE kByteArray = VT_ARRAY | VT_UI1;

// A scalar argument converted with the run time's coercion (no conversion when it already has
// the type).
HRESULT CoerceScalar(const VARIANT& arg, AutoType type, CallFrame::Slot& slot) {
  const VARTYPE vt = VarTypeOf(type);
  VARIANT converted;
  VariantInit(&converted);
  const VARIANT* value = &arg;
  if (arg.vt != vt) {
    const HRESULT hr = VariantChangeType(&converted, &arg, 0, vt);
    if (FAILED(hr)) return hr;
    value = &converted;
  }
  switch (type) {
    case AutoType::Integer:
      slot = static_cast<int16_t>(value->iVal);
      break;
    case AutoType::Long:
      slot = static_cast<int32_t>(value->lVal);
      break;
    case AutoType::Double:
      slot = value->dblVal;
      break;
    case AutoType::Boolean:
      slot = value->boolVal != VARIANT_FALSE;
      break;
    default:
      slot = FromBstr(value->bstrVal);
      break;
  }
  VariantClear(&converted);
  return S_OK;
}

const ClassTable* KindTable(ObjectKind kind) {
  switch (kind) {
    case ObjectKind::CAlgInfo:
      return &CAlgInfoTable();
    case ObjectKind::CContainer:
      return &CContainerTable();
    case ObjectKind::CErrHandler:
      return &CErrHandlerTable();
    case ObjectKind::CHashValue:
      return &CHashValueTable();
    case ObjectKind::CMessagetext:
      return &CMessagetextTable();
    case ObjectKind::CRSAKeyPair:
      return &CRSAKeyPairTable();
    case ObjectKind::CSessionKey:
      return &CSessionKeyTable();
    default:
      return nullptr;
  }
}

// An _IHash argument: whatever the caller passes must answer QueryInterface for _IHash with an
// interface of this library.
HRESULT CoerceHashee(IUnknown* unknown, CallFrame::Slot& slot) {
  void* itf = nullptr;
  if (FAILED(unknown->lpVtbl->QueryInterface(unknown, AsGuid(IHashTable().iid), &itf)) ||
      itf == nullptr) {
    return DISP_E_TYPEMISMATCH;
  }
  const DispatchObject* ours = DispatchObject::FromInterface(itf);
  if (ours != nullptr) slot = ours->Target();
  static_cast<IUnknown*>(itf)->lpVtbl->Release(static_cast<IUnknown*>(itf));
  return ours != nullptr ? S_OK : DISP_E_TYPEMISMATCH;
}

// The caller's own object (a page, a dictionary, an error object) as its IDispatch, counted.
IDispatch* ForeignDispatch(IUnknown* unknown) {
  if (DispatchObject::FromInterface(unknown) != nullptr) return nullptr;
  void* itf = nullptr;
  if (FAILED(unknown->lpVtbl->QueryInterface(unknown, &IID_IDispatch, &itf))) return nullptr;
  return static_cast<IDispatch*>(itf);
}

HRESULT CoerceForeign(IUnknown* unknown, ObjectKind kind, CallFrame::Slot& slot) {
  IDispatch* foreign = ForeignDispatch(unknown);
  if (foreign == nullptr) return DISP_E_TYPEMISMATCH;
  // The adapters take over the reference.
  if (kind == ObjectKind::PageContext) {
    slot = Ref<Object>(MakeRef<ForeignPageContext>(foreign));
  } else if (kind == ObjectKind::ErrObject) {
    slot = Ref<Object>(MakeRef<ErrObjectHolder>(foreign));
  } else {
    foreign->lpVtbl->Release(foreign);
    slot = Ref<Object>(MakeRef<Dictionary>());  // filled by the member, then mirrored
  }
  return S_OK;
}

HRESULT CoerceObject(const VARIANT& arg, ObjectKind kind, CallFrame::Slot& slot) {
  if (arg.vt == VT_EMPTY ||
      ((arg.vt == VT_DISPATCH || arg.vt == VT_UNKNOWN) && arg.punkVal == nullptr)) {
    slot = Ref<Object>();
    return S_OK;
  }
  if (arg.vt != VT_DISPATCH && arg.vt != VT_UNKNOWN) return DISP_E_TYPEMISMATCH;
  if (kind == ObjectKind::IHash) return CoerceHashee(arg.punkVal, slot);
  if (kind == ObjectKind::PageContext || kind == ObjectKind::Dictionary ||
      kind == ObjectKind::ErrObject) {
    return CoerceForeign(arg.punkVal, kind, slot);
  }
  const DispatchObject* ours = DispatchObject::FromInterface(arg.punkVal);
  if (ours == nullptr || &ours->Table() != KindTable(kind)) return DISP_E_TYPEMISMATCH;
  slot = ours->Target();
  return S_OK;
}

HRESULT ObjectToVariant(const Ref<Object>& object, VARIANT& out) {
  out.vt = VT_DISPATCH;
  out.pdispVal = DispatchObject::Wrap(object);
  return S_OK;
}

// A numeric VARIANT the library has no type for, as Long when it fits, else Double.
HRESULT WidenNumber(const VARIANT& in, Variant& out) {
  VARIANT converted;
  VariantInit(&converted);
  if (SUCCEEDED(VariantChangeType(&converted, &in, 0, VT_I4))) {
    out = static_cast<int32_t>(converted.lVal);
    return S_OK;
  }
  const HRESULT hr = VariantChangeType(&converted, &in, 0, VT_R8);
  if (FAILED(hr)) return DISP_E_TYPEMISMATCH;
  out = converted.dblVal;
  return S_OK;
}

}  // namespace

VARTYPE VarTypeOf(AutoType type) {
  switch (type) {
    case AutoType::Integer:
      return VT_I2;
    case AutoType::Long:
      return VT_I4;
    case AutoType::Double:
      return VT_R8;
    case AutoType::Boolean:
      return VT_BOOL;
    case AutoType::String:
      return VT_BSTR;
    case AutoType::Bytes:
      return kByteArray;
    case AutoType::Variant:
      return VT_VARIANT;
    case AutoType::Object:
      return VT_DISPATCH;
    default:
      return VT_EMPTY;
  }
}

String FromBstr(BSTR text) {
  if (text == nullptr) return String();
  const UINT bytes = SysStringByteLen(text);
  if (bytes % 2 == 0) return String(std::u16string_view(text, bytes / 2));
  return String::FromBytes(std::span<const uint8_t>(reinterpret_cast<const uint8_t*>(text), bytes));
}

BSTR ToBstr(const String& text) {
  if (!text.HasOddByte()) {
    return SysAllocStringLen(text.c_str(), static_cast<UINT>(text.Length()));
  }
  const std::vector<uint8_t> bytes = text.Bytes();
  return SysAllocStringByteLen(reinterpret_cast<LPCSTR>(bytes.data()),
                               static_cast<UINT>(bytes.size()));
}

ByteArray FromSafeArray(SAFEARRAY* array) {
  if (array == nullptr) return ByteArray();
  LONG lower = 0;
  LONG upper = -1;
  void* data = nullptr;
  if (FAILED(SafeArrayGetLBound(array, 1, &lower)) ||
      FAILED(SafeArrayGetUBound(array, 1, &upper)) || FAILED(SafeArrayAccessData(array, &data))) {
    return ByteArray();
  }
  const size_t count = upper >= lower ? static_cast<size_t>(upper - lower) + 1 : 0;
  const auto* bytes = static_cast<const uint8_t*>(data);
  ByteArray out(std::vector<uint8_t>(bytes, bytes + count));
  SafeArrayUnaccessData(array);
  return out;
}

SAFEARRAY* ToSafeArray(const ByteArray& bytes) {
  SAFEARRAY* array = SafeArrayCreateVector(VT_UI1, 0, static_cast<ULONG>(bytes.size()));
  if (array == nullptr || bytes.size() == 0) return array;
  void* data = nullptr;
  if (FAILED(SafeArrayAccessData(array, &data))) {
    SafeArrayDestroy(array);
    return nullptr;
  }
  std::memcpy(data, bytes.data(), bytes.size());
  SafeArrayUnaccessData(array);
  return array;
}

HRESULT ValueToVariant(const Variant& value, VARIANT& out) {
  VariantInit(&out);
  switch (value.GetKind()) {
    case Variant::Kind::Empty:
      return S_OK;
    case Variant::Kind::Nothing:
    case Variant::Kind::Object:
      return ObjectToVariant(value.ToObject(), out);
    case Variant::Kind::Integer:
      out.vt = VT_I2;
      out.iVal = value.ToInteger();
      return S_OK;
    case Variant::Kind::Long:
      out.vt = VT_I4;
      out.lVal = value.ToLong();
      return S_OK;
    case Variant::Kind::Double:
      out.vt = VT_R8;
      out.dblVal = value.ToDouble();
      return S_OK;
    case Variant::Kind::Boolean:
      out.vt = VT_BOOL;
      out.boolVal = value.ToBoolean() ? VARIANT_TRUE : VARIANT_FALSE;
      return S_OK;
    case Variant::Kind::String:
      out.vt = VT_BSTR;
      out.bstrVal = ToBstr(value.TextForm());
      return out.bstrVal != nullptr ? S_OK : E_OUTOFMEMORY;
    case Variant::Kind::ByteArray:
      out.vt = kByteArray;
      out.parray = ToSafeArray(value.ToByteArray());
      return out.parray != nullptr ? S_OK : E_OUTOFMEMORY;
  }
  return S_OK;
}

HRESULT SlotToVariant(const CallFrame::Slot& slot, VARIANT& out) {
  VariantInit(&out);
  return std::visit(
      [&out](const auto& value) -> HRESULT {
        using T = std::decay_t<decltype(value)>;
        if constexpr (std::is_same_v<T, std::monostate>) {
          return S_OK;
        } else if constexpr (std::is_same_v<T, Ref<Object>>) {
          return ObjectToVariant(value, out);
        } else if constexpr (std::is_same_v<T, ByteArray>) {
          out.vt = kByteArray;
          out.parray = ToSafeArray(value);
          return out.parray != nullptr ? S_OK : E_OUTOFMEMORY;
        } else if constexpr (std::is_same_v<T, String>) {
          out.vt = VT_BSTR;
          out.bstrVal = ToBstr(value);
          return out.bstrVal != nullptr ? S_OK : E_OUTOFMEMORY;
        } else {
          // int16_t, int32_t, double, bool and Variant share the library value's mapping.
          return ValueToVariant(Variant(value), out);
        }
      },
      slot);
}

HRESULT VariantToValue(const VARIANT& in, Variant& out) {
  const VARIANT value = Dereferenced(in);
  switch (value.vt) {
    case VT_EMPTY:
      out = Variant();
      return S_OK;
    case VT_I2:
      out = static_cast<int16_t>(value.iVal);
      return S_OK;
    case VT_UI1:
      out = static_cast<int16_t>(value.bVal);
      return S_OK;
    case VT_I4:
      out = static_cast<int32_t>(value.lVal);
      return S_OK;
    case VT_R8:
      out = value.dblVal;
      return S_OK;
    case VT_R4:
      out = static_cast<double>(value.fltVal);
      return S_OK;
    case VT_BOOL:
      out = value.boolVal != VARIANT_FALSE;
      return S_OK;
    case VT_BSTR:
      out = FromBstr(value.bstrVal);
      return S_OK;
    case kByteArray:
      out = FromSafeArray(value.parray);
      return S_OK;
    case VT_DISPATCH:
    case VT_UNKNOWN: {
      if (value.punkVal == nullptr) {
        out = Variant(Nothing);
        return S_OK;
      }
      const DispatchObject* ours = DispatchObject::FromInterface(value.punkVal);
      if (ours == nullptr) return DISP_E_TYPEMISMATCH;
      out = Variant(ours->Target());
      return S_OK;
    }
    case VT_I1:
    case VT_UI2:
    case VT_UI4:
    case VT_I8:
    case VT_UI8:
    case VT_INT:
    case VT_UINT:
    case VT_CY:
    case VT_DATE:
    case VT_DECIMAL:
      return WidenNumber(value, out);
    default:
      return DISP_E_TYPEMISMATCH;
  }
}

HRESULT CoerceArgument(const VARIANT& arg, const Param& param, CallFrame::Slot& slot) {
  switch (param.type) {
    case AutoType::Bytes:
      if (arg.vt == kByteArray) {
        slot = FromSafeArray(arg.parray);
      } else if (arg.vt == VT_EMPTY) {
        slot = ByteArray();
      } else {
        return DISP_E_TYPEMISMATCH;
      }
      return S_OK;
    case AutoType::Variant: {
      Variant value;
      const HRESULT hr = VariantToValue(arg, value);
      if (SUCCEEDED(hr)) slot = std::move(value);
      return hr;
    }
    case AutoType::Object:
      return CoerceObject(arg, param.object, slot);
    case AutoType::None:
      return DISP_E_TYPEMISMATCH;
    default:
      return CoerceScalar(arg, param.type, slot);
  }
}

void DefaultArgument(const Param& param, CallFrame::Slot& slot) {
  switch (param.type) {
    case AutoType::Integer:
      slot = static_cast<int16_t>(param.defaultValue.number);
      break;
    case AutoType::Long:
      slot = param.defaultValue.number;
      break;
    case AutoType::Double:
      slot = static_cast<double>(param.defaultValue.number);
      break;
    case AutoType::Boolean:
      slot = param.defaultValue.number != 0;
      break;
    case AutoType::String:
      slot = String(param.defaultValue.text);
      break;
    case AutoType::Bytes:
      slot = ByteArray();
      break;
    case AutoType::Variant:
      slot = Variant();
      break;
    default:
      slot = Ref<Object>();
      break;
  }
}

VARIANT Dereferenced(const VARIANT& arg) {
  if ((arg.vt & VT_BYREF) == 0) return arg;
  VARIANT out;
  VariantInit(&out);
  if (arg.byref == nullptr) {
    out.vt = VT_ILLEGAL;
    return out;
  }
  const VARTYPE base = static_cast<VARTYPE>(arg.vt & ~VT_BYREF);
  out.vt = base;
  switch (base) {
    case VT_VARIANT:
      return (arg.pvarVal->vt & VT_BYREF) != 0 ? Dereferenced(*arg.pvarVal) : *arg.pvarVal;
    case VT_I2:
      out.iVal = *arg.piVal;
      break;
    case VT_UI1:
      out.bVal = *arg.pbVal;
      break;
    case VT_I4:
    case VT_ERROR:
      out.lVal = *arg.plVal;
      break;
    case VT_R4:
      out.fltVal = *arg.pfltVal;
      break;
    case VT_R8:
    case VT_DATE:
      out.dblVal = *arg.pdblVal;
      break;
    case VT_BOOL:
      out.boolVal = *arg.pboolVal;
      break;
    case VT_BSTR:
      out.bstrVal = *arg.pbstrVal;
      break;
    case VT_DISPATCH:
    case VT_UNKNOWN:
      out.punkVal = *arg.ppunkVal;
      break;
    case kByteArray:
      out.parray = *arg.pparray;
      break;
    default:
      out.vt = VT_ILLEGAL;
      break;
  }
  return out;
}

namespace {

// Moves `value` into the typed variable a VT_BYREF argument points at, freeing its old value.
void StoreTyped(VARIANT& value, VARIANT& arg) {
  switch (value.vt) {
    case VT_I2:
      *arg.piVal = value.iVal;
      break;
    case VT_UI1:
      *arg.pbVal = value.bVal;
      break;
    case VT_I4:
      *arg.plVal = value.lVal;
      break;
    case VT_R4:
      *arg.pfltVal = value.fltVal;
      break;
    case VT_R8:
    case VT_DATE:
      *arg.pdblVal = value.dblVal;
      break;
    case VT_BOOL:
      *arg.pboolVal = value.boolVal;
      break;
    case VT_BSTR:
      SysFreeString(*arg.pbstrVal);
      *arg.pbstrVal = value.bstrVal;
      return;
    case VT_DISPATCH:
    case VT_UNKNOWN:
      if (*arg.ppunkVal != nullptr) (*arg.ppunkVal)->lpVtbl->Release(*arg.ppunkVal);
      *arg.ppunkVal = value.punkVal;
      return;
    case kByteArray:
      SafeArrayDestroy(*arg.pparray);
      *arg.pparray = value.parray;
      return;
    default:
      VariantClear(&value);
      return;
  }
}

}  // namespace

HRESULT WriteBack(const CallFrame::Slot& slot, VARIANT& arg) {
  if ((arg.vt & VT_BYREF) == 0 || arg.byref == nullptr) return S_OK;
  VARIANT value;
  HRESULT hr = SlotToVariant(slot, value);
  if (FAILED(hr)) return hr;
  if (arg.vt == (VT_BYREF | VT_VARIANT)) {
    VARIANT* target = arg.pvarVal;
    if ((target->vt & VT_BYREF) != 0) {
      hr = WriteBack(slot, *target);
      VariantClear(&value);
      return hr;
    }
    VariantClear(target);
    *target = value;
    return S_OK;
  }
  const VARTYPE base = static_cast<VARTYPE>(arg.vt & ~VT_BYREF);
  if (value.vt != base) {
    VARIANT converted;
    VariantInit(&converted);
    hr = VariantChangeType(&converted, &value, 0, base);
    VariantClear(&value);
    if (FAILED(hr)) return hr;
    value = converted;
  }
  StoreTyped(value, arg);
  return S_OK;
}

}  // namespace quiv::server
