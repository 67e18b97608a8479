// TypeLibrary: the type library "QUIV" 1.0 as ITypeLib and ITypeInfo, generated from the class
// and enumeration tables: for every class its default interface (a dual dispatch interface,
// hidden, non-extensible, automation-compatible) and its coclass, and every enumeration with its
// members. A late-bound client reads member names, dispatch ids, parameter names and flags,
// optional defaults and help strings from it, and may call ITypeInfo::Invoke on an object of
// the library.
//
// The library and its type infos are static objects made on first use: AddRef and Release only
// count. The blocks GetTypeAttr, GetFuncDesc, GetVarDesc and GetLibAttr hand out are the caller's
// until it gives them back with the matching Release... call.
#ifndef QUIV_SERVER_TYPELIBRARY_H
#define QUIV_SERVER_TYPELIBRARY_H

#include "server/DispatchTable.h"
#include "server/quiv_com.h"

namespace quiv::server {

// The type info of a class's default interface (IDispatch::GetTypeInfo).
HRESULT InterfaceTypeInfo(const ClassTable& table, ITypeInfo** out);
// The library (QuivGetTypeLib).
HRESULT LibraryTypeLib(ITypeLib** out);

}  // namespace quiv::server

#endif
