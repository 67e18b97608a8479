#include "server/DispatchObject.h"

#include <memory>
#include <mutex>
#include <new>
#include <unordered_map>
#include <utility>

#include "automation/RuntimeError.h"
#include "server/ClassTables.h"
#include "server/TypeLibrary.h"
#include "server/VariantBridge.h"

namespace quiv::server {

namespace {

// The wrapper of each library object a caller holds now: the key is the object, so the same
// instance always gives the same IDispatch. Guarded by the mutex; the objects themselves are
// single-threaded, but callers may hold wrappers of different sessions on different threads.
struct WrapperCache {
  std::mutex mutex;
  std::unordered_map<const Object*, std::unique_ptr<DispatchObject>> wrappers;
};

WrapperCache& Cache() {
  static WrapperCache* cache = new WrapperCache();  // lives until exit, after every wrapper
  return *cache;
}

DispatchObject::Slot* SlotOf(const void* itf) {
  return static_cast<DispatchObject::Slot*>(const_cast<void*>(itf));
}

HRESULT STDMETHODCALLTYPE QueryInterfaceEntry(IDispatch* self, REFIID riid, void** out) {
  return SlotOf(self)->owner->QueryInterface(riid, out);
}

ULONG STDMETHODCALLTYPE AddRefEntry(IDispatch* self) {
  return SlotOf(self)->owner->AddRef();
}

ULONG STDMETHODCALLTYPE ReleaseEntry(IDispatch* self) {
  return SlotOf(self)->owner->Release();
}

HRESULT STDMETHODCALLTYPE GetTypeInfoCountEntry(IDispatch* /*self*/, UINT* count) {
  if (count == nullptr) return E_POINTER;
  *count = 1;
  return S_OK;
}

HRESULT STDMETHODCALLTYPE GetTypeInfoEntry(IDispatch* self, UINT index, LCID /*lcid*/,
                                           ITypeInfo** out) {
  if (out == nullptr) return E_POINTER;
  *out = nullptr;
  if (index != 0) return DISP_E_BADINDEX;
  return InterfaceTypeInfo(*SlotOf(self)->table, out);
}

HRESULT STDMETHODCALLTYPE GetIDsOfNamesEntry(IDispatch* self, REFIID /*riid*/, LPOLESTR* names,
                                             UINT count, LCID /*lcid*/, DISPID* ids) {
  return NamesToIds(*SlotOf(self)->table, names, count, ids);
}

HRESULT STDMETHODCALLTYPE InvokeEntry(IDispatch* self, DISPID dispId, REFIID riid, LCID /*lcid*/,
                                      WORD flags, DISPPARAMS* params, VARIANT* result,
                                      EXCEPINFO* excepInfo, UINT* argErr) {
  if (riid != nullptr && !IsEqualIID(riid, &IID_NULL)) return DISP_E_UNKNOWNINTERFACE;
  const DispatchObject::Slot* slot = SlotOf(self);
  return InvokeTable(*slot->table, *slot->owner->Target(), dispId, flags, params, result, excepInfo,
                     argErr);
}

constexpr IDispatchVtbl kPrimaryVtbl = {
    QueryInterfaceEntry, AddRefEntry,        ReleaseEntry, GetTypeInfoCountEntry,
    GetTypeInfoEntry,    GetIDsOfNamesEntry, InvokeEntry};
// A second vtable with the same entries, so that a pointer tells which interface it is.
constexpr IDispatchVtbl kHashVtbl = kPrimaryVtbl;

}  // namespace

DispatchObject::DispatchObject(Ref<Object> target, const ClassTable* table)
    : m_primary{{&kPrimaryVtbl}, this, table},
      m_hash{{&kHashVtbl}, this, &IHashTable()},
      m_target(std::move(target)),
      m_table(table) {}

IDispatch* DispatchObject::Wrap(const Ref<Object>& object) {
  if (object.IsNothing()) return nullptr;
  const ClassTable* table = TableOf(*object);
  if (table == nullptr) return nullptr;
  WrapperCache& cache = Cache();
  std::lock_guard lock(cache.mutex);
  auto found = cache.wrappers.find(object.get());
  if (found != cache.wrappers.end()) {
    found->second->m_refs.fetch_add(1);
    return found->second->Primary();
  }
  auto wrapper = std::make_unique<DispatchObject>(object, table);
  IDispatch* itf = wrapper->Primary();
  cache.wrappers.emplace(object.get(), std::move(wrapper));
  return itf;
}

DispatchObject* DispatchObject::FromInterface(const void* itf) {
  if (itf == nullptr) return nullptr;
  const IDispatchVtbl* vtbl = static_cast<const IDispatch*>(itf)->lpVtbl;
  if (vtbl != &kPrimaryVtbl && vtbl != &kHashVtbl) return nullptr;
  return SlotOf(itf)->owner;
}

size_t DispatchObject::LiveCount() {
  WrapperCache& cache = Cache();
  std::lock_guard lock(cache.mutex);
  return cache.wrappers.size();
}

HRESULT DispatchObject::QueryInterface(REFIID riid, void** out) {
  if (out == nullptr) return E_POINTER;
  *out = nullptr;
  if (riid == nullptr) return E_INVALIDARG;
  void* itf = nullptr;
  if (IsEqualIID(riid, &IID_IUnknown) || IsEqualIID(riid, &IID_IDispatch)) {
    itf = &m_primary;
  } else if (IsEqualIID(riid, AsGuid(m_table->iid))) {
    itf = &m_primary;
  } else if (m_table->implementsIHash && IsEqualIID(riid, AsGuid(IHashTable().iid))) {
    itf = &m_hash;
  }
  if (itf == nullptr) return E_NOINTERFACE;
  AddRef();
  *out = itf;
  return S_OK;
}

ULONG DispatchObject::AddRef() {
  return m_refs.fetch_add(1) + 1;
}

ULONG DispatchObject::Release() {
  const ULONG left = m_refs.fetch_sub(1) - 1;
  if (left != 0) return left;
  std::unique_ptr<DispatchObject> doomed;
  {
    WrapperCache& cache = Cache();
    std::lock_guard lock(cache.mutex);
    // Wrap may have handed this wrapper out again in between; then it lives on.
    if (m_refs.load() != 0) return 0;
    auto found = cache.wrappers.find(m_target.get());
    if (found == cache.wrappers.end() || found->second.get() != this) return 0;
    doomed = std::move(found->second);
    cache.wrappers.erase(found);
  }
  // The object goes outside the lock: its destruction may release other wrappers' objects.
  return 0;
}

}  // namespace quiv::server
