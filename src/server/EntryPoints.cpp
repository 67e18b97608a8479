// The C entry points of the in-process server (quiv_server.h). Each catches everything: no C++
// exception leaves the library.
#include <string_view>

#include "server/ClassFactory.h"
#include "server/ClassResolver.h"
#include "server/ClassTables.h"
#include "server/DispatchObject.h"
#include "server/TypeLibrary.h"
#include "server/quiv_server.h"

using quiv::server::AllClassTables;
using quiv::server::ClassTable;

namespace {

const ClassTable* TableOfClsid(REFCLSID clsid) {
  for (const ClassTable* table : AllClassTables()) {
    if (IsEqualCLSID(clsid, quiv::server::AsGuid(table->clsid))) return table;
  }
  return nullptr;
}

}  // namespace

extern "C" {

HRESULT DllGetClassObject(REFCLSID rclsid, REFIID riid, LPVOID* ppv) {
  if (ppv == nullptr) return E_POINTER;
  *ppv = nullptr;
  if (rclsid == nullptr || riid == nullptr) return E_INVALIDARG;
  try {
    const ClassTable* table = TableOfClsid(rclsid);
    IClassFactory* factory = table != nullptr ? quiv::server::FactoryOf(*table) : nullptr;
    if (factory == nullptr) return CLASS_E_CLASSNOTAVAILABLE;
    return factory->lpVtbl->QueryInterface(factory, riid, ppv);
  } catch (...) {
    return E_OUTOFMEMORY;
  }
}

HRESULT DllCanUnloadNow(void) {
  try {
    return quiv::server::DispatchObject::LiveCount() == 0 && quiv::server::ServerLocks() == 0
               ? S_OK
               : S_FALSE;
  } catch (...) {
    return S_FALSE;
  }
}

HRESULT DllRegisterServer(void) {
  return quiv::server::RegisterServer();
}

HRESULT DllUnregisterServer(void) {
  return quiv::server::UnregisterServer();
}

HRESULT QuivCreateObject(LPCOLESTR progIdOrClsid, IDispatch** object) {
  if (object == nullptr) return E_POINTER;
  *object = nullptr;
  if (progIdOrClsid == nullptr) return CO_E_CLASSSTRING;
  try {
    return quiv::server::CreateByName(std::u16string_view(progIdOrClsid), object);
  } catch (...) {
    return E_OUTOFMEMORY;
  }
}

HRESULT QuivGetAppObject(IDispatch** constants) {
  if (constants == nullptr) return E_POINTER;
  *constants = nullptr;
  try {
    *constants = quiv::server::DispatchObject::Wrap(quiv::server::AppObject());
    return *constants != nullptr ? S_OK : E_OUTOFMEMORY;
  } catch (...) {
    return E_OUTOFMEMORY;
  }
}

HRESULT QuivGetTypeLib(ITypeLib** typeLib) {
  if (typeLib == nullptr) return E_POINTER;
  *typeLib = nullptr;
  try {
    return quiv::server::LibraryTypeLib(typeLib);
  } catch (...) {
    return E_OUTOFMEMORY;
  }
}

}  // extern "C"
