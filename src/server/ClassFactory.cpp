#include "server/ClassFactory.h"

#include <atomic>
#include <memory>
#include <mutex>
#include <vector>

#include "server/ClassTables.h"
#include "server/DispatchObject.h"

namespace quiv::server {

namespace {

struct Factory {
  IClassFactory itf;
  const ClassTable* table;
};

std::atomic<size_t> g_locks{0};

Factory* FactoryFrom(IClassFactory* itf) {
  return reinterpret_cast<Factory*>(itf);
}

HRESULT STDMETHODCALLTYPE FactoryQueryInterface(IClassFactory* self, REFIID riid, void** out) {
  if (out == nullptr) return E_POINTER;
  *out = nullptr;
  if (riid == nullptr) return E_INVALIDARG;
  if (!IsEqualIID(riid, &IID_IUnknown) && !IsEqualIID(riid, &IID_IClassFactory)) {
    return E_NOINTERFACE;
  }
  *out = self;
  return S_OK;
}

// Static objects: the counts are nominal.
ULONG STDMETHODCALLTYPE FactoryAddRef(IClassFactory* /*self*/) {
  return 2;
}

ULONG STDMETHODCALLTYPE FactoryRelease(IClassFactory* /*self*/) {
  return 1;
}

HRESULT STDMETHODCALLTYPE FactoryCreateInstance(IClassFactory* self, IUnknown* outer, REFIID riid,
                                                void** out) {
  if (out == nullptr) return E_POINTER;
  *out = nullptr;
  if (outer != nullptr) return CLASS_E_NOAGGREGATION;
  return CreateObject(*FactoryFrom(self)->table, riid, out);
}

HRESULT STDMETHODCALLTYPE FactoryLockServer(IClassFactory* /*self*/, BOOL lock) {
  if (lock) {
    g_locks.fetch_add(1);
  } else if (g_locks.load() > 0) {
    g_locks.fetch_sub(1);
  }
  return S_OK;
}

constexpr IClassFactoryVtbl kFactoryVtbl = {FactoryQueryInterface, FactoryAddRef, FactoryRelease,
                                            FactoryCreateInstance, FactoryLockServer};

}  // namespace

IClassFactory* FactoryOf(const ClassTable& table) {
  static std::vector<Factory>* factories = [] {
    auto* all = new std::vector<Factory>();  // static for the process, as the factories are
    for (const ClassTable* t : AllClassTables()) all->push_back(Factory{{&kFactoryVtbl}, t});
    return all;
  }();
  if (!table.creatable) return nullptr;
  for (Factory& factory : *factories) {
    if (factory.table == &table) return &factory.itf;
  }
  return nullptr;
}

size_t ServerLocks() {
  return g_locks.load();
}

HRESULT CreateObject(const ClassTable& table, REFIID riid, void** out) {
  if (out == nullptr) return E_POINTER;
  *out = nullptr;
  if (!table.creatable) return CLASS_E_CLASSNOTAVAILABLE;
  try {
    const Ref<Object> object = CreateInstanceOf(table);
    IDispatch* itf = DispatchObject::Wrap(object);
    if (itf == nullptr) return E_OUTOFMEMORY;
    const HRESULT hr = itf->lpVtbl->QueryInterface(itf, riid, out);
    itf->lpVtbl->Release(itf);
    return hr;
  } catch (...) {
    return E_OUTOFMEMORY;
  }
}

Ref<Object> AppObject() {
  static std::mutex mutex;
  static std::weak_ptr<Object> current;
  std::lock_guard lock(mutex);
  std::shared_ptr<Object> alive = current.lock();
  if (!alive) {
    alive = CreateInstanceOf(CConstQUIVTable()).shared();
    current = alive;
  }
  return Ref<Object>(alive);
}

}  // namespace quiv::server
