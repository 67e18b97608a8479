// ClassResolver: which class a program id or class id names, and the registration of the
// library's classes. A name is looked up in the registry file (Registry.h) first; when the
// registry does not know it, the library's own classes answer, so an unregistered library still
// creates its classes by their standard names.
//
// Program ids are those the platform's registration service derives from the type library and
// class names: "QUIV.<Class>" ("QUIV.CProvider"), compared without regard to case.
#ifndef QUIV_SERVER_CLASSRESOLVER_H
#define QUIV_SERVER_CLASSRESOLVER_H

#include <string>
#include <string_view>

#include "server/DispatchTable.h"
#include "server/quiv_com.h"

namespace quiv::server {

// The program id of a class: "QUIV.CProvider".
std::u16string ProgIdOf(const ClassTable& table);

// S_OK and `table` for a known class; CO_E_CLASSSTRING for a malformed class id,
// REGDB_E_CLASSNOTREG for a name no class has.
HRESULT ResolveClass(std::u16string_view progIdOrClsid, const ClassTable*& table);

// DllRegisterServer / DllUnregisterServer.
HRESULT RegisterServer();
HRESULT UnregisterServer();

}  // namespace quiv::server

#endif
