/*
 * The in-process server entry points of libquiv, with C linkage, for any language with a C FFI
 * (C, C++, Python's ctypes). Types and memory rules are those of quiv_com.h.
 *
 * The four standard entry points:
 *   DllGetClassObject(&clsid, &IID_IClassFactory, &factory)
 *       The class factory of a creatable class (CProvider, CAlgInfo, CErrHandler, CConstQUIV,
 *       TolvaOpenSourceLicense). The classes a caller may not create (CContainer, CMessagetext,
 *       CSessionKey, CRSAKeyPair, CHashValue, IHash) answer CLASS_E_CLASSNOTAVAILABLE, as does an
 *       unknown class id. The factories are static: AddRef and Release do not free them.
 *   DllCanUnloadNow()
 *       S_OK when no object of the library is held by a caller and no factory is locked.
 *   DllRegisterServer() / DllUnregisterServer()
 *       Write / remove the library's entries in the registry file: every class's program id
 *       ("QUIV.CProvider", ...) and class id, mapped to this library's path, with the type
 *       library's identity and version. Unregistering removes exactly these entries. Where the
 *       file lives: see server/ClassRegistry.h (per user under the XDG config folder, machine-wide
 *       /etc/quiv/registry when run as root, or the one file QUIV_REGISTRY names). S_OK, or
 *       REGDB_E_READREGDB / REGDB_E_WRITEREGDB when the file cannot be read or written.
 *
 * Creation by name, the counterpart of the platform's create-by-program-id:
 *   QuivCreateObject(u"QUIV.CProvider", &object)        a program id (case-insensitive), or
 *   QuivCreateObject(u"{11005E58-...}", &object)        a class id in braces.
 *       The name is looked up in the registry file (a class another library registered is made
 *       by that library's DllGetClassObject); when nothing is registered under the name the
 *       library's own classes answer. On success *object is the new object's IDispatch (the
 *       caller releases it). CO_E_CLASSSTRING for a malformed class id, REGDB_E_CLASSNOTREG for
 *       an unknown class, CLASS_E_CLASSNOTAVAILABLE for a class callers may not create,
 *       REGDB_E_READREGDB for a damaged registry file, CO_E_DLLNOTFOUND for a registered library
 *       that cannot be loaded.
 *
 * The predeclared global object:
 *   QuivGetAppObject(&constants)
 *       The constants catalogue (CConstQUIV) as the global application object, so a script reads
 *       CRYPT_EXPORTABLE without creating anything. The same instance while any caller holds it.
 *
 * The type library:
 *   QuivGetTypeLib(&typeLib)
 *       The ITypeLib of the library ("QUIV" 1.0), built from the dispatch tables.
 */
#ifndef QUIV_SERVER_QUIV_SERVER_H
#define QUIV_SERVER_QUIV_SERVER_H

#include "server/quiv_com.h"

#ifdef __cplusplus
extern "C" {
#endif

QUIV_API HRESULT DllGetClassObject(REFCLSID rclsid, REFIID riid, LPVOID* ppv);
QUIV_API HRESULT DllCanUnloadNow(void);
QUIV_API HRESULT DllRegisterServer(void);
QUIV_API HRESULT DllUnregisterServer(void);

QUIV_API HRESULT QuivCreateObject(LPCOLESTR progIdOrClsid, IDispatch** object);
QUIV_API HRESULT QuivGetAppObject(IDispatch** constants);
QUIV_API HRESULT QuivGetTypeLib(ITypeLib** typeLib);

#ifdef __cplusplus
}
#endif

#endif
