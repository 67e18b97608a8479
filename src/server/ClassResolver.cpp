#include "server/ClassResolver.h"

#include <dlfcn.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <optional>

#include "automation/String.h"
#include "server/ClassFactory.h"
#include "server/ClassRegistry.h"
#include "server/ClassTables.h"
#include "server/DispatchObject.h"
#include "server/IdlWriter.h"

namespace quiv::server {

namespace {

const ClassTable* BuiltInByClsid(const Guid& clsid) {
  for (const ClassTable* table : AllClassTables()) {
    if (table->clsid == clsid) return table;
  }
  return nullptr;
}

const ClassTable* BuiltInByProgId(std::u16string_view progId) {
  const String wanted{std::u16string(progId)};
  for (const ClassTable* table : AllClassTables()) {
    if (wanted.EqualsText(String(ProgIdOf(*table)))) return table;
  }
  return nullptr;
}

Guid FromPlatform(const GUID& guid) {
  Guid out;
  out.data1 = guid.Data1;
  out.data2 = guid.Data2;
  out.data3 = guid.Data3;
  std::memcpy(out.data4, guid.Data4, sizeof out.data4);
  return out;
}

// A class another library serves: loaded as the platform loads an in-process server, and asked
// through its own DllGetClassObject. The library stays loaded, as it would on the platform
// until CoFreeUnusedLibraries.
HRESULT CreateElsewhere(const RegistryEntry& entry, IDispatch** out) {
  void* library = dlopen(entry.library.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (library == nullptr) return CO_E_DLLNOTFOUND;
  using GetClassObject = HRESULT (*)(REFCLSID, REFIID, LPVOID*);
  auto get = reinterpret_cast<GetClassObject>(dlsym(library, "DllGetClassObject"));
  if (get == nullptr) return CO_E_DLLNOTFOUND;
  void* itf = nullptr;
  HRESULT hr = get(&entry.classId, &IID_IClassFactory, &itf);
  if (FAILED(hr)) return hr;
  auto* factory = static_cast<IClassFactory*>(itf);
  hr = factory->lpVtbl->CreateInstance(factory, nullptr, &IID_IDispatch,
                                       reinterpret_cast<void**>(out));
  factory->lpVtbl->Release(factory);
  return hr;
}

bool IsThisLibrary(const std::string& path) {
  std::error_code error;
  return std::filesystem::equivalent(path, LibraryPath(), error);
}

}  // namespace

std::u16string ProgIdOf(const ClassTable& table) {
  return std::u16string(u"QUIV.") + std::u16string(table.className);
}

HRESULT ResolveBuiltIn(std::u16string_view progIdOrClsid, const ClassTable*& table) {
  table = nullptr;
  if (!progIdOrClsid.empty() && progIdOrClsid.front() == u'{') {
    const std::optional<Guid> clsid = Guid::Parse(progIdOrClsid);
    if (!clsid) return CO_E_CLASSSTRING;
    table = BuiltInByClsid(*clsid);
  } else {
    table = BuiltInByProgId(progIdOrClsid);
  }
  return table != nullptr ? S_OK : REGDB_E_CLASSNOTREG;
}

HRESULT CreateByName(std::u16string_view progIdOrClsid, IDispatch** out) {
  *out = nullptr;
  const ClassTable* table = nullptr;
  const HRESULT builtIn = ResolveBuiltIn(progIdOrClsid, table);
  if (builtIn == CO_E_CLASSSTRING) return builtIn;
  std::optional<RegistryEntry> entry;
  try {
    entry = ClassRegistry::Lookup(String(std::u16string(progIdOrClsid)).ToUtf8());
  } catch (const RegistryError& error) {
    return error.hresult();
  }
  if (entry) {
    const ClassTable* registered = BuiltInByClsid(FromPlatform(entry->classId));
    if (registered == nullptr || !IsThisLibrary(entry->library)) {
      return CreateElsewhere(*entry, out);
    }
    table = registered;
  }
  if (table == nullptr) return REGDB_E_CLASSNOTREG;
  return CreateObject(*table, &IID_IDispatch, reinterpret_cast<void**>(out));
}

std::string LibraryPath() {
  Dl_info info{};
  if (dladdr(reinterpret_cast<void*>(&LibraryPath), &info) == 0 || info.dli_fname == nullptr) {
    return {};
  }
  std::error_code error;
  const std::filesystem::path path = std::filesystem::canonical(info.dli_fname, error);
  return error ? std::string(info.dli_fname) : path.string();
}

std::vector<RegistryEntry> RegistrationEntries() {
  const std::string library = LibraryPath();
  const Guid typeLib = Guid::FromLiteral(LibraryIdentity::kGuid);
  std::vector<RegistryEntry> entries;
  for (const ClassTable* table : AllClassTables()) {
    RegistryEntry entry;
    entry.progId = String(ProgIdOf(*table)).ToUtf8();
    std::memcpy(&entry.classId, &table->clsid, sizeof entry.classId);
    entry.className = String(std::u16string(table->className)).ToUtf8();
    entry.library = library;
    entry.threadingModel = "Apartment";  // single-threaded, apartment-bound objects
    std::memcpy(&entry.typeLibId, &typeLib, sizeof entry.typeLibId);
    entry.typeLibMajor = LibraryIdentity::kMajor;
    entry.typeLibMinor = LibraryIdentity::kMinor;
    entries.push_back(std::move(entry));
  }
  return entries;
}

namespace {

// Runs a change of the registry file that registration writes; its errors become HRESULTs.
template <class Change>
HRESULT ChangeRegistry(Change change) {
  try {
    ClassRegistry registry(ClassRegistry::DefaultWritePath());
    change(registry);
    return S_OK;
  } catch (const RegistryError& error) {
    return error.hresult();
  } catch (...) {
    return SELFREG_E_CLASS;
  }
}

}  // namespace

HRESULT RegisterServer() {
  return ChangeRegistry([](ClassRegistry& r) { r.Register(RegistrationEntries()); });
}

HRESULT UnregisterServer() {
  return ChangeRegistry([](ClassRegistry& r) { r.Unregister(LibraryPath()); });
}

}  // namespace quiv::server
