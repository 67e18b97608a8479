// A counted IDispatch written against quiv_com.h for the variant tests: it counts AddRef and
// Release, answers QueryInterface for IUnknown and IDispatch, and returns `value` (a copy) from
// Invoke(DISPID_VALUE) when it has one; other members are not found.
#ifndef QUIV_TESTS_SERVER_FAKEDISPATCH_H
#define QUIV_TESTS_SERVER_FAKEDISPATCH_H

#include "server/quiv_com.h"

namespace quiv::test {

struct FakeDispatch {
  IDispatch base;
  ULONG refs = 1;
  bool hasDefault = false;
  VARIANT value{};
  WORD lastFlags = 0;

  FakeDispatch() : base{&kVtbl} { VariantInit(&value); }
  ~FakeDispatch() { VariantClear(&value); }
  FakeDispatch(const FakeDispatch&) = delete;
  FakeDispatch& operator=(const FakeDispatch&) = delete;

  IDispatch* dispatch() { return &base; }
  IUnknown* unknown() { return reinterpret_cast<IUnknown*>(&base); }

 private:
  static FakeDispatch* Self(IDispatch* d) { return reinterpret_cast<FakeDispatch*>(d); }

  static HRESULT QueryInterface(IDispatch* d, REFIID riid, void** ppv) {
    if (ppv == nullptr) return E_POINTER;
    *ppv = nullptr;
    if (!IsEqualIID(riid, &IID_IUnknown) && !IsEqualIID(riid, &IID_IDispatch)) {
      return E_NOINTERFACE;
    }
    *ppv = d;
    AddRef(d);
    return S_OK;
  }
  static ULONG AddRef(IDispatch* d) { return ++Self(d)->refs; }
  static ULONG Release(IDispatch* d) { return --Self(d)->refs; }
  static HRESULT GetTypeInfoCount(IDispatch*, UINT* count) {
    *count = 0;
    return S_OK;
  }
  static HRESULT GetTypeInfo(IDispatch*, UINT, LCID, ITypeInfo**) { return E_NOTIMPL; }
  static HRESULT GetIDsOfNames(IDispatch*, REFIID, LPOLESTR*, UINT, LCID, DISPID*) {
    return DISP_E_UNKNOWNNAME;
  }
  static HRESULT Invoke(IDispatch* d, DISPID id, REFIID, LCID, WORD flags, DISPPARAMS* params,
                        VARIANT* result, EXCEPINFO*, UINT*) {
    FakeDispatch* self = Self(d);
    self->lastFlags = flags;
    if (id != DISPID_VALUE || !self->hasDefault) return DISP_E_MEMBERNOTFOUND;
    if (params == nullptr || params->cArgs != 0) return DISP_E_BADPARAMCOUNT;
    return result == nullptr ? S_OK : VariantCopy(result, &self->value);
  }

  static constexpr IDispatchVtbl kVtbl = {QueryInterface, AddRef,        Release, GetTypeInfoCount,
                                          GetTypeInfo,    GetIDsOfNames, Invoke};
};

// An object with IUnknown only.
struct FakeUnknown {
  IUnknown base;
  ULONG refs = 1;

  FakeUnknown() : base{&kVtbl} {}
  IUnknown* unknown() { return &base; }

 private:
  static HRESULT QueryInterface(IUnknown* u, REFIID riid, void** ppv) {
    *ppv = nullptr;
    if (!IsEqualIID(riid, &IID_IUnknown)) return E_NOINTERFACE;
    *ppv = u;
    AddRef(u);
    return S_OK;
  }
  static ULONG AddRef(IUnknown* u) { return ++reinterpret_cast<FakeUnknown*>(u)->refs; }
  static ULONG Release(IUnknown* u) { return --reinterpret_cast<FakeUnknown*>(u)->refs; }

  static constexpr IUnknownVtbl kVtbl = {QueryInterface, AddRef, Release};
};

}  // namespace quiv::test

#endif
