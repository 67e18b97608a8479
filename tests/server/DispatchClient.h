// DispatchClient: what a late-bound caller does, for the automation surface's tests: hold an
// IDispatch (Disp releases it), find a member by name, and Invoke it with arguments written in
// their natural order (Args reverses them as DISPPARAMS wants and clears them afterwards).
#ifndef QUIV_TESTS_SERVER_DISPATCHCLIENT_H
#define QUIV_TESTS_SERVER_DISPATCHCLIENT_H

#include <string>
#include <utility>
#include <vector>

#include "server/quiv_com.h"
#include "server/quiv_server.h"

namespace quiv::test {

inline VARIANT I2(int16_t v) {
  VARIANT out;
  VariantInit(&out);
  out.vt = VT_I2;
  out.iVal = v;
  return out;
}
inline VARIANT I4(int32_t v) {
  VARIANT out;
  VariantInit(&out);
  out.vt = VT_I4;
  out.lVal = v;
  return out;
}
inline VARIANT R8(double v) {
  VARIANT out;
  VariantInit(&out);
  out.vt = VT_R8;
  out.dblVal = v;
  return out;
}
inline VARIANT Bool(bool v) {
  VARIANT out;
  VariantInit(&out);
  out.vt = VT_BOOL;
  out.boolVal = v ? VARIANT_TRUE : VARIANT_FALSE;
  return out;
}
inline VARIANT Str(const std::u16string& text) {
  VARIANT out;
  VariantInit(&out);
  out.vt = VT_BSTR;
  out.bstrVal = SysAllocStringLen(text.data(), static_cast<UINT>(text.size()));
  return out;
}
inline VARIANT Empty() {
  VARIANT out;
  VariantInit(&out);
  return out;
}
inline VARIANT Missing() {
  VARIANT out;
  VariantInit(&out);
  out.vt = VT_ERROR;
  out.scode = DISP_E_PARAMNOTFOUND;
  return out;
}
// A counted reference to the object (the VARIANT owns it).
inline VARIANT Obj(IDispatch* object) {
  VARIANT out;
  VariantInit(&out);
  out.vt = VT_DISPATCH;
  out.pdispVal = object;
  if (object != nullptr) object->lpVtbl->AddRef(object);
  return out;
}
// A by-reference argument to the caller's variable (VT_BYREF | VT_VARIANT); owns nothing.
inline VARIANT Ref(VARIANT& target) {
  VARIANT out;
  VariantInit(&out);
  out.vt = VT_BYREF | VT_VARIANT;
  out.pvarVal = &target;
  return out;
}

inline std::u16string Text(const VARIANT& v) {
  if (v.vt != VT_BSTR || v.bstrVal == nullptr) return {};
  return std::u16string(v.bstrVal, SysStringLen(v.bstrVal));
}

// Owns a VARIANT and clears it.
struct Var {
  VARIANT v;
  Var() { VariantInit(&v); }
  explicit Var(VARIANT value) : v(value) {}
  Var(const Var&) = delete;
  Var& operator=(const Var&) = delete;
  ~Var() { VariantClear(&v); }
  VARIANT* operator&() { return &v; }
};

// Owns an interface pointer and releases it.
class Disp {
 public:
  Disp() = default;
  explicit Disp(IDispatch* object) : m_object(object) {}
  Disp(const Disp&) = delete;
  Disp& operator=(const Disp&) = delete;
  Disp(Disp&& other) noexcept : m_object(std::exchange(other.m_object, nullptr)) {}
  ~Disp() { Reset(); }
  void Reset() {
    if (m_object != nullptr) m_object->lpVtbl->Release(m_object);
    m_object = nullptr;
  }
  IDispatch* get() const { return m_object; }
  IDispatch** out() {
    Reset();
    return &m_object;
  }
  explicit operator bool() const { return m_object != nullptr; }

 private:
  IDispatch* m_object = nullptr;
};

// The result of one Invoke: HRESULT, result value, argument error and exception.
struct Outcome {
  HRESULT hr = S_OK;
  Var result;
  UINT argErr = ~0u;
  EXCEPINFO excep{};
  ~Outcome() {
    SysFreeString(excep.bstrSource);
    SysFreeString(excep.bstrDescription);
    SysFreeString(excep.bstrHelpFile);
  }
};

inline DISPID IdOf(IDispatch* object, const std::u16string& name) {
  LPOLESTR names[1] = {const_cast<LPOLESTR>(name.c_str())};
  DISPID id = DISPID_UNKNOWN;
  object->lpVtbl->GetIDsOfNames(object, &IID_NULL, names, 1, LOCALE_USER_DEFAULT, &id);
  return id;
}

// Invoke by dispatch id; `args` in their natural order (first parameter first), cleared after.
inline void InvokeId(Outcome& out, IDispatch* object, DISPID id, WORD flags,
                     std::vector<VARIANT> args, std::vector<DISPID> named = {}) {
  std::vector<VARIANT> reversed(args.rbegin(), args.rend());
  DISPPARAMS params{reversed.data(), named.empty() ? nullptr : named.data(),
                    static_cast<UINT>(reversed.size()), static_cast<UINT>(named.size())};
  out.hr = object->lpVtbl->Invoke(object, id, &IID_NULL, LOCALE_USER_DEFAULT, flags, &params,
                                  &out.result.v, &out.excep, &out.argErr);
  for (VARIANT& v : reversed) VariantClear(&v);
}

// Invoke by name as a method (DISPATCH_METHOD).
inline void Call(Outcome& out, IDispatch* object, const std::u16string& name,
                 std::vector<VARIANT> args = {}) {
  InvokeId(out, object, IdOf(object, name), DISPATCH_METHOD, std::move(args));
}

// Reads a property (or data member) by name.
inline void Get(Outcome& out, IDispatch* object, const std::u16string& name) {
  InvokeId(out, object, IdOf(object, name), DISPATCH_PROPERTYGET, {});
}

// Puts a value (let) or an object (set) into a property by name.
inline HRESULT Put(IDispatch* object, const std::u16string& name, VARIANT value, bool byRef) {
  DISPID named = DISPID_PROPERTYPUT;
  DISPPARAMS params{&value, &named, 1, 1};
  const HRESULT hr = object->lpVtbl->Invoke(
      object, IdOf(object, name), &IID_NULL, LOCALE_USER_DEFAULT,
      byRef ? DISPATCH_PROPERTYPUTREF : DISPATCH_PROPERTYPUT, &params, nullptr, nullptr, nullptr);
  VariantClear(&value);
  return hr;
}

inline bool IsTrue(const VARIANT& v) {
  return v.vt == VT_BOOL && v.boolVal == VARIANT_TRUE;
}

}  // namespace quiv::test

#endif
