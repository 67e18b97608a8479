// A late-bound session, as a script drives the library: create a CProvider by program id, find
// its members by name and call them through IDispatch::Invoke, read a constant from the global
// constants object without creating it, and print an error record's default member after a
// failure. Nothing here uses a C++ class of the library: only the C entry points.
#include <cstdio>
#include <string>
#include <vector>

#include "DemoParts.h"
#include "server/quiv_server.h"

namespace quiv::demo {

namespace {

std::string Narrow(const VARIANT& v) {
  std::string out;
  if (v.vt == VT_BSTR && v.bstrVal != nullptr) {
    for (UINT i = 0; i < SysStringLen(v.bstrVal); ++i) out += static_cast<char>(v.bstrVal[i]);
  }
  return out;
}

// Calls `name` on `object` (as method or property), arguments first to last.
HRESULT CallByName(IDispatch* object, const char16_t* name, WORD flags, std::vector<VARIANT> args,
                   VARIANT& result) {
  LPOLESTR names[1] = {const_cast<LPOLESTR>(name)};
  DISPID id = DISPID_UNKNOWN;
  HRESULT hr = object->lpVtbl->GetIDsOfNames(object, &IID_NULL, names, 1, 0, &id);
  if (FAILED(hr)) return hr;
  std::vector<VARIANT> reversed(args.rbegin(), args.rend());
  DISPPARAMS params{reversed.data(), nullptr, static_cast<UINT>(reversed.size()), 0};
  VariantInit(&result);
  hr = object->lpVtbl->Invoke(object, id, &IID_NULL, 0, flags, &params, &result, nullptr, nullptr);
  for (VARIANT& v : reversed) VariantClear(&v);
  return hr;
}

VARIANT Text(const char16_t* text) {
  VARIANT v;
  VariantInit(&v);
  v.vt = VT_BSTR;
  v.bstrVal = SysAllocString(text);
  return v;
}

VARIANT Long(LONG value) {
  VARIANT v;
  VariantInit(&v);
  v.vt = VT_I4;
  v.lVal = value;
  return v;
}

const char* YesNo(const VARIANT& v) {
  return v.vt == VT_BOOL && v.boolVal ? "True" : "False";
}

}  // namespace

void ShowLateBound() {
  std::printf("\nLate-bound, through IDispatch only\n");
  IDispatch* constants = nullptr;
  VARIANT value;
  if (QuivGetAppObject(&constants) == S_OK &&
      CallByName(constants, u"CRYPT_EXPORTABLE", DISPATCH_PROPERTYGET, {}, value) == S_OK) {
    std::printf("  global object: CRYPT_EXPORTABLE = %d\n", static_cast<int>(value.lVal));
  }
  IDispatch* provider = nullptr;
  if (QuivCreateObject(u"QUIV.CProvider", &provider) != S_OK) {
    std::printf("  QUIV.CProvider could not be created\n");
    if (constants != nullptr) constants->lpVtbl->Release(constants);
    return;
  }
  std::printf("  CreateObject(\"QUIV.CProvider\")\n");
  CallByName(provider, u"SetProviderTypeID", DISPATCH_METHOD, {Long(1)}, value);
  CallByName(provider, u"SetProviderName", DISPATCH_METHOD,
             {Text(u"Microsoft Enhanced Cryptographic Provider v1.0")}, value);
  CallByName(provider, u"LoadProvider", DISPATCH_METHOD, {}, value);
  std::printf("  provider.LoadProvider() = %s\n", YesNo(value));
  VARIANT name;
  VariantInit(&name);
  VARIANT byRef;
  VariantInit(&byRef);
  byRef.vt = VT_BYREF | VT_VARIANT;
  byRef.pvarVal = &name;
  CallByName(provider, u"GetProviderName", DISPATCH_METHOD, {byRef}, value);
  std::printf("  provider.GetProviderName(name) = %s, name = \"%s\"\n", YesNo(value),
              Narrow(name).c_str());
  VariantClear(&name);
  // A failure answers False and loads LastError; its default member is the message.
  CallByName(provider, u"SetProviderName", DISPATCH_METHOD, {Text(u"No Such Provider")}, value);
  std::printf("  provider.SetProviderName(\"No Such Provider\") = %s\n", YesNo(value));
  VARIANT record;
  if (CallByName(provider, u"LastError", DISPATCH_PROPERTYGET, {}, record) == S_OK &&
      record.vt == VT_DISPATCH) {
    VARIANT message;
    DISPPARAMS none{};
    VariantInit(&message);
    record.pdispVal->lpVtbl->Invoke(record.pdispVal, DISPID_VALUE, &IID_NULL, 0,
                                    DISPATCH_PROPERTYGET, &none, &message, nullptr, nullptr);
    std::printf("  provider.LastError = \"%s\"\n", Narrow(message).c_str());
    VariantClear(&message);
  }
  VariantClear(&record);
  CallByName(provider, u"TerminateAll", DISPATCH_METHOD, {}, value);
  std::printf("  provider.TerminateAll() = %s\n", YesNo(value));
  provider->lpVtbl->Release(provider);
  if (constants != nullptr) constants->lpVtbl->Release(constants);
  std::printf("  DllCanUnloadNow() = %s\n", DllCanUnloadNow() == S_OK ? "S_OK" : "S_FALSE");
}

}  // namespace quiv::demo
