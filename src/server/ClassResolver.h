// ClassResolver: creation by program id or class id, and the registration of the library's
// classes in the registry file (ClassRegistry.h). A name is looked up in the registry first:
// one of this library's classes is created here; a class another library registered is created
// through that library's own DllGetClassObject. When the registry knows nothing of the name, the
// library's own classes answer, so an unregistered library still creates its classes by their
// standard names.
//
// Program ids are those the platform's registration service derives from the type library and
// class names: "QUIV.<Class>" ("QUIV.CProvider"), compared without regard to case. Every public
// class is registered (class id, program id, this library's path, apartment threading, the type
// library's identity and version); whether a caller may create it is the factory's decision.
#ifndef QUIV_SERVER_CLASSRESOLVER_H
#define QUIV_SERVER_CLASSRESOLVER_H

#include <string>
#include <string_view>
#include <vector>

#include "server/DispatchTable.h"
#include "server/RegistryEntry.h"
#include "server/quiv_com.h"

namespace quiv::server {

// The program id of a class: "QUIV.CProvider".
std::u16string ProgIdOf(const ClassTable& table);

// The library's own class a name stands for, without the registry: S_OK and `table`;
// CO_E_CLASSSTRING for a malformed class id, REGDB_E_CLASSNOTREG for a name no class has.
HRESULT ResolveBuiltIn(std::u16string_view progIdOrClsid, const ClassTable*& table);

// QuivCreateObject: S_OK and the new object's IDispatch; CO_E_CLASSSTRING, REGDB_E_CLASSNOTREG,
// CLASS_E_CLASSNOTAVAILABLE, REGDB_E_READREGDB (a damaged registry file), CO_E_DLLNOTFOUND (a
// registered library that cannot be loaded).
HRESULT CreateByName(std::u16string_view progIdOrClsid, IDispatch** out);

// What DllRegisterServer writes: one entry per public class, naming this library.
std::vector<RegistryEntry> RegistrationEntries();
// The absolute path of the loaded libquiv (or of the program it is linked into).
std::string LibraryPath();

// DllRegisterServer / DllUnregisterServer: S_OK, or the registry's error code.
HRESULT RegisterServer();
HRESULT UnregisterServer();

}  // namespace quiv::server

#endif
