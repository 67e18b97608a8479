// ClassFactory: the IClassFactory of each creatable class. The factories are static objects
// (one per table), so AddRef and Release only count; LockServer keeps the library loaded as far
// as DllCanUnloadNow is concerned.
#ifndef QUIV_SERVER_CLASSFACTORY_H
#define QUIV_SERVER_CLASSFACTORY_H

#include <cstddef>

#include "automation/Object.h"
#include "automation/Ref.h"
#include "server/DispatchTable.h"
#include "server/quiv_com.h"

namespace quiv::server {

// The factory of a creatable class, or nullptr for a class callers may not create.
IClassFactory* FactoryOf(const ClassTable& table);
// LockServer(TRUE) calls not yet undone.
size_t ServerLocks();

// A new instance of a creatable class, as the caller's reference to the interface `riid`.
HRESULT CreateObject(const ClassTable& table, REFIID riid, void** out);

// The predeclared constants catalogue: the same instance while any caller holds it.
Ref<Object> AppObject();

}  // namespace quiv::server

#endif
