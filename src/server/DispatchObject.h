// DispatchObject: a library object as automation callers hold it, one IDispatch (the class's
// default interface, dual, described by its table) plus, for the classes that implement the
// hashable contract, a second IDispatch for _IHash on the same object.
//
// Identity: there is at most one DispatchObject per C++ instance at a time, so handing out the
// same instance twice hands out the same IDispatch pointer (the provider's factory rule holds
// across the boundary). The DispatchObject keeps its instance alive (one counted Ref) while a
// caller holds any reference to it, and no longer: when its count drops to 0 it is destroyed,
// its Ref goes, and the next hand-out of the same instance makes a new one. So the wrappers add
// nothing to the provider family's own reference cycle, which TerminateAll breaks as ever; a
// caller that calls TerminateAll and releases what it holds leaves nothing allocated.
//
// Every entry of the vtable catches everything: no C++ exception crosses the boundary.
#ifndef QUIV_SERVER_DISPATCHOBJECT_H
#define QUIV_SERVER_DISPATCHOBJECT_H

#include <atomic>
#include <cstddef>

#include "automation/Object.h"
#include "automation/Ref.h"
#include "server/DispatchTable.h"
#include "server/quiv_com.h"

namespace quiv::server {

static_assert(sizeof(Guid) == sizeof(GUID), "Guid has the platform's GUID layout");
inline const GUID* AsGuid(const Guid& guid) {
  return reinterpret_cast<const GUID*>(&guid);
}

class DispatchObject {
 public:
  // The caller's reference (count + 1) to the object's default interface; nullptr for Nothing
  // or for an object that is not one of the library's public classes.
  static IDispatch* Wrap(const Ref<Object>& object);
  // The library object behind an interface pointer this library handed out, or nullptr for
  // anything else (a caller's own object). Takes no reference.
  static DispatchObject* FromInterface(const void* itf);
  // Wrappers alive now (DllCanUnloadNow).
  static size_t LiveCount();

  const Ref<Object>& Target() const { return m_target; }
  const ClassTable& Table() const { return *m_table; }
  IDispatch* Primary() { return &m_primary.itf; }

  // The interface slots: each starts with its IDispatch, so a pointer to one is a pointer to the
  // other, and the slot knows its object and which table its calls use.
  struct Slot {
    IDispatch itf;
    DispatchObject* owner;
    const ClassTable* table;
  };

  DispatchObject(Ref<Object> target, const ClassTable* table);
  DispatchObject(const DispatchObject&) = delete;
  DispatchObject& operator=(const DispatchObject&) = delete;

  HRESULT QueryInterface(REFIID riid, void** out);
  ULONG AddRef();
  ULONG Release();

 private:
  Slot m_primary;
  Slot m_hash;
  std::atomic<ULONG> m_refs{1};
  Ref<Object> m_target;
  const ClassTable* m_table;
};

// IDispatch::Invoke and GetIDsOfNames over a table, for the dispatch objects and for
// ITypeInfo::Invoke. Never throw.
HRESULT InvokeTable(const ClassTable& table, Object& target, DISPID dispId, WORD flags,
                    DISPPARAMS* params, VARIANT* result, EXCEPINFO* excepInfo, UINT* argErr);
HRESULT NamesToIds(const ClassTable& table, LPOLESTR* names, UINT count, DISPID* ids);

}  // namespace quiv::server

#endif
