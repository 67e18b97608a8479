/* The 64-bit Windows layout of the component object model's structures, as (type, member,
 * offset) and (type, size) lists. Included from a C and a C++ translation unit, so that both
 * languages check the same facts against quiv_com.h. */
#ifndef QUIV_TESTS_SERVER_COMLAYOUTFIELDS_H
#define QUIV_TESTS_SERVER_COMLAYOUTFIELDS_H

#define QUIV_COM_SIZES(X)  \
  X(GUID, 16)              \
  X(HRESULT, 4)            \
  X(VARTYPE, 2)            \
  X(VARIANT_BOOL, 2)       \
  X(OLECHAR, 2)            \
  X(DISPID, 4)             \
  X(LCID, 4)               \
  X(CY, 8)                 \
  X(DECIMAL, 16)           \
  X(VARIANT, 24)           \
  X(DISPPARAMS, 24)        \
  X(EXCEPINFO, 64)         \
  X(SAFEARRAYBOUND, 8)     \
  X(SAFEARRAY, 32)         \
  X(TYPEDESC, 16)          \
  X(ARRAYDESC, 32)         \
  X(IDLDESC, 16)           \
  X(PARAMDESC, 16)         \
  X(PARAMDESCEX, 32)       \
  X(ELEMDESC, 32)          \
  X(TYPEATTR, 96)          \
  X(FUNCDESC, 88)          \
  X(VARDESC, 64)           \
  X(TLIBATTR, 32)          \
  X(TYPEKIND, 4)           \
  X(INVOKEKIND, 4)         \
  X(BINDPTR, 8)            \
  X(IUnknown, 8)           \
  X(IUnknownVtbl, 24)      \
  X(IClassFactoryVtbl, 40) \
  X(IDispatchVtbl, 56)     \
  X(ITypeCompVtbl, 40)     \
  X(ITypeInfoVtbl, 176)    \
  X(ITypeLibVtbl, 104)

#define QUIV_COM_OFFSETS(X)                   \
  X(GUID, Data1, 0)                           \
  X(GUID, Data2, 4)                           \
  X(GUID, Data3, 6)                           \
  X(GUID, Data4, 8)                           \
  X(DECIMAL, wReserved, 0)                    \
  X(DECIMAL, scale, 2)                        \
  X(DECIMAL, sign, 3)                         \
  X(DECIMAL, Hi32, 4)                         \
  X(DECIMAL, Lo32, 8)                         \
  X(DECIMAL, Mid32, 12)                       \
  X(DECIMAL, Lo64, 8)                         \
  X(VARIANT, vt, 0)                           \
  X(VARIANT, wReserved1, 2)                   \
  X(VARIANT, wReserved2, 4)                   \
  X(VARIANT, wReserved3, 6)                   \
  X(VARIANT, decVal, 0)                       \
  X(VARIANT, llVal, 8)                        \
  X(VARIANT, lVal, 8)                         \
  X(VARIANT, iVal, 8)                         \
  X(VARIANT, bVal, 8)                         \
  X(VARIANT, dblVal, 8)                       \
  X(VARIANT, boolVal, 8)                      \
  X(VARIANT, scode, 8)                        \
  X(VARIANT, bstrVal, 8)                      \
  X(VARIANT, pdispVal, 8)                     \
  X(VARIANT, punkVal, 8)                      \
  X(VARIANT, parray, 8)                       \
  X(VARIANT, byref, 8)                        \
  X(VARIANT, plVal, 8)                        \
  X(VARIANT, piVal, 8)                        \
  X(VARIANT, pdblVal, 8)                      \
  X(VARIANT, pboolVal, 8)                     \
  X(VARIANT, pbstrVal, 8)                     \
  X(VARIANT, ppdispVal, 8)                    \
  X(VARIANT, pvarVal, 8)                      \
  X(VARIANT, pparray, 8)                      \
  X(VARIANT, pvRecord, 8)                     \
  X(VARIANT, pRecInfo, 16)                    \
  X(DISPPARAMS, rgvarg, 0)                    \
  X(DISPPARAMS, rgdispidNamedArgs, 8)         \
  X(DISPPARAMS, cArgs, 16)                    \
  X(DISPPARAMS, cNamedArgs, 20)               \
  X(EXCEPINFO, wCode, 0)                      \
  X(EXCEPINFO, wReserved, 2)                  \
  X(EXCEPINFO, bstrSource, 8)                 \
  X(EXCEPINFO, bstrDescription, 16)           \
  X(EXCEPINFO, bstrHelpFile, 24)              \
  X(EXCEPINFO, dwHelpContext, 32)             \
  X(EXCEPINFO, pvReserved, 40)                \
  X(EXCEPINFO, pfnDeferredFillIn, 48)         \
  X(EXCEPINFO, scode, 56)                     \
  X(SAFEARRAY, cDims, 0)                      \
  X(SAFEARRAY, fFeatures, 2)                  \
  X(SAFEARRAY, cbElements, 4)                 \
  X(SAFEARRAY, cLocks, 8)                     \
  X(SAFEARRAY, pvData, 16)                    \
  X(SAFEARRAY, rgsabound, 24)                 \
  X(SAFEARRAYBOUND, cElements, 0)             \
  X(SAFEARRAYBOUND, lLbound, 4)               \
  X(TYPEDESC, lptdesc, 0)                     \
  X(TYPEDESC, hreftype, 0)                    \
  X(TYPEDESC, vt, 8)                          \
  X(ARRAYDESC, cDims, 16)                     \
  X(ARRAYDESC, rgbounds, 20)                  \
  X(IDLDESC, wIDLFlags, 8)                    \
  X(PARAMDESC, wParamFlags, 8)                \
  X(PARAMDESCEX, varDefaultValue, 8)          \
  X(ELEMDESC, tdesc, 0)                       \
  X(ELEMDESC, idldesc, 16)                    \
  X(ELEMDESC, paramdesc, 16)                  \
  X(TYPEATTR, guid, 0)                        \
  X(TYPEATTR, lcid, 16)                       \
  X(TYPEATTR, dwReserved, 20)                 \
  X(TYPEATTR, memidConstructor, 24)           \
  X(TYPEATTR, memidDestructor, 28)            \
  X(TYPEATTR, lpstrSchema, 32)                \
  X(TYPEATTR, cbSizeInstance, 40)             \
  X(TYPEATTR, typekind, 44)                   \
  X(TYPEATTR, cFuncs, 48)                     \
  X(TYPEATTR, cVars, 50)                      \
  X(TYPEATTR, cImplTypes, 52)                 \
  X(TYPEATTR, cbSizeVft, 54)                  \
  X(TYPEATTR, cbAlignment, 56)                \
  X(TYPEATTR, wTypeFlags, 58)                 \
  X(TYPEATTR, wMajorVerNum, 60)               \
  X(TYPEATTR, wMinorVerNum, 62)               \
  X(TYPEATTR, tdescAlias, 64)                 \
  X(TYPEATTR, idldescType, 80)                \
  X(FUNCDESC, memid, 0)                       \
  X(FUNCDESC, lprgscode, 8)                   \
  X(FUNCDESC, lprgelemdescParam, 16)          \
  X(FUNCDESC, funckind, 24)                   \
  X(FUNCDESC, invkind, 28)                    \
  X(FUNCDESC, callconv, 32)                   \
  X(FUNCDESC, cParams, 36)                    \
  X(FUNCDESC, cParamsOpt, 38)                 \
  X(FUNCDESC, oVft, 40)                       \
  X(FUNCDESC, cScodes, 42)                    \
  X(FUNCDESC, elemdescFunc, 48)               \
  X(FUNCDESC, wFuncFlags, 80)                 \
  X(VARDESC, memid, 0)                        \
  X(VARDESC, lpstrSchema, 8)                  \
  X(VARDESC, oInst, 16)                       \
  X(VARDESC, lpvarValue, 16)                  \
  X(VARDESC, elemdescVar, 24)                 \
  X(VARDESC, wVarFlags, 56)                   \
  X(VARDESC, varkind, 60)                     \
  X(TLIBATTR, guid, 0)                        \
  X(TLIBATTR, lcid, 16)                       \
  X(TLIBATTR, syskind, 20)                    \
  X(TLIBATTR, wMajorVerNum, 24)               \
  X(TLIBATTR, wMinorVerNum, 26)               \
  X(TLIBATTR, wLibFlags, 28)                  \
  X(IUnknownVtbl, QueryInterface, 0)          \
  X(IUnknownVtbl, AddRef, 8)                  \
  X(IUnknownVtbl, Release, 16)                \
  X(IClassFactoryVtbl, CreateInstance, 24)    \
  X(IClassFactoryVtbl, LockServer, 32)        \
  X(IDispatchVtbl, GetTypeInfoCount, 24)      \
  X(IDispatchVtbl, GetTypeInfo, 32)           \
  X(IDispatchVtbl, GetIDsOfNames, 40)         \
  X(IDispatchVtbl, Invoke, 48)                \
  X(ITypeCompVtbl, Bind, 24)                  \
  X(ITypeCompVtbl, BindType, 32)              \
  X(ITypeInfoVtbl, GetTypeAttr, 24)           \
  X(ITypeInfoVtbl, GetTypeComp, 32)           \
  X(ITypeInfoVtbl, GetFuncDesc, 40)           \
  X(ITypeInfoVtbl, GetVarDesc, 48)            \
  X(ITypeInfoVtbl, GetNames, 56)              \
  X(ITypeInfoVtbl, GetRefTypeOfImplType, 64)  \
  X(ITypeInfoVtbl, GetImplTypeFlags, 72)      \
  X(ITypeInfoVtbl, GetIDsOfNames, 80)         \
  X(ITypeInfoVtbl, Invoke, 88)                \
  X(ITypeInfoVtbl, GetDocumentation, 96)      \
  X(ITypeInfoVtbl, GetDllEntry, 104)          \
  X(ITypeInfoVtbl, GetRefTypeInfo, 112)       \
  X(ITypeInfoVtbl, AddressOfMember, 120)      \
  X(ITypeInfoVtbl, CreateInstance, 128)       \
  X(ITypeInfoVtbl, GetMops, 136)              \
  X(ITypeInfoVtbl, GetContainingTypeLib, 144) \
  X(ITypeInfoVtbl, ReleaseTypeAttr, 152)      \
  X(ITypeInfoVtbl, ReleaseFuncDesc, 160)      \
  X(ITypeInfoVtbl, ReleaseVarDesc, 168)       \
  X(ITypeLibVtbl, GetTypeInfoCount, 24)       \
  X(ITypeLibVtbl, GetTypeInfo, 32)            \
  X(ITypeLibVtbl, GetTypeInfoType, 40)        \
  X(ITypeLibVtbl, GetTypeInfoOfGuid, 48)      \
  X(ITypeLibVtbl, GetLibAttr, 56)             \
  X(ITypeLibVtbl, GetTypeComp, 64)            \
  X(ITypeLibVtbl, GetDocumentation, 72)       \
  X(ITypeLibVtbl, IsName, 80)                 \
  X(ITypeLibVtbl, FindName, 88)               \
  X(ITypeLibVtbl, ReleaseTLibAttr, 96)

/* HRESULT codes, as 32-bit patterns. */
#define QUIV_COM_HRESULTS(X)               \
  X(S_OK, 0x00000000)                      \
  X(S_FALSE, 0x00000001)                   \
  X(E_NOTIMPL, 0x80004001)                 \
  X(E_NOINTERFACE, 0x80004002)             \
  X(E_POINTER, 0x80004003)                 \
  X(E_ABORT, 0x80004004)                   \
  X(E_FAIL, 0x80004005)                    \
  X(E_UNEXPECTED, 0x8000FFFF)              \
  X(E_ACCESSDENIED, 0x80070005)            \
  X(E_HANDLE, 0x80070006)                  \
  X(E_OUTOFMEMORY, 0x8007000E)             \
  X(E_INVALIDARG, 0x80070057)              \
  X(CLASS_E_NOAGGREGATION, 0x80040110)     \
  X(CLASS_E_CLASSNOTAVAILABLE, 0x80040111) \
  X(CLASS_E_NOTLICENSED, 0x80040112)       \
  X(REGDB_E_READREGDB, 0x80040150)         \
  X(REGDB_E_WRITEREGDB, 0x80040151)        \
  X(REGDB_E_CLASSNOTREG, 0x80040154)       \
  X(SELFREG_E_TYPELIB, 0x80040200)         \
  X(SELFREG_E_CLASS, 0x80040201)           \
  X(CO_E_CLASSSTRING, 0x800401F3)          \
  X(CO_E_IIDSTRING, 0x800401F4)            \
  X(CO_E_DLLNOTFOUND, 0x800401F8)          \
  X(DISP_E_UNKNOWNINTERFACE, 0x80020001)   \
  X(DISP_E_MEMBERNOTFOUND, 0x80020003)     \
  X(DISP_E_PARAMNOTFOUND, 0x80020004)      \
  X(DISP_E_TYPEMISMATCH, 0x80020005)       \
  X(DISP_E_UNKNOWNNAME, 0x80020006)        \
  X(DISP_E_NONAMEDARGS, 0x80020007)        \
  X(DISP_E_BADVARTYPE, 0x80020008)         \
  X(DISP_E_EXCEPTION, 0x80020009)          \
  X(DISP_E_OVERFLOW, 0x8002000A)           \
  X(DISP_E_BADINDEX, 0x8002000B)           \
  X(DISP_E_UNKNOWNLCID, 0x8002000C)        \
  X(DISP_E_ARRAYISLOCKED, 0x8002000D)      \
  X(DISP_E_BADPARAMCOUNT, 0x8002000E)      \
  X(DISP_E_PARAMNOTOPTIONAL, 0x8002000F)   \
  X(DISP_E_BADCALLEE, 0x80020010)          \
  X(DISP_E_NOTACOLLECTION, 0x80020011)     \
  X(DISP_E_DIVBYZERO, 0x80020012)          \
  X(DISP_E_BUFFERTOOSMALL, 0x80020013)     \
  X(TYPE_E_INVDATAREAD, 0x80028018)        \
  X(TYPE_E_UNSUPFORMAT, 0x80028019)        \
  X(TYPE_E_REGISTRYACCESS, 0x8002801C)     \
  X(TYPE_E_LIBNOTREGISTERED, 0x8002801D)   \
  X(TYPE_E_UNDEFINEDTYPE, 0x80028027)      \
  X(TYPE_E_INVALIDSTATE, 0x80028029)       \
  X(TYPE_E_ELEMENTNOTFOUND, 0x8002802B)    \
  X(TYPE_E_AMBIGUOUSNAME, 0x8002802C)      \
  X(TYPE_E_BADMODULEKIND, 0x800288BD)      \
  X(TYPE_E_TYPEMISMATCH, 0x80028CA0)       \
  X(TYPE_E_OUTOFBOUNDS, 0x80028CA1)        \
  X(TYPE_E_IOERROR, 0x80028CA2)            \
  X(TYPE_E_CANTLOADLIBRARY, 0x80029C4A)

/* Type codes, flags and other numeric constants. */
#define QUIV_COM_CONSTANTS(X)        \
  X(VT_EMPTY, 0)                     \
  X(VT_NULL, 1)                      \
  X(VT_I2, 2)                        \
  X(VT_I4, 3)                        \
  X(VT_R4, 4)                        \
  X(VT_R8, 5)                        \
  X(VT_CY, 6)                        \
  X(VT_DATE, 7)                      \
  X(VT_BSTR, 8)                      \
  X(VT_DISPATCH, 9)                  \
  X(VT_ERROR, 10)                    \
  X(VT_BOOL, 11)                     \
  X(VT_VARIANT, 12)                  \
  X(VT_UNKNOWN, 13)                  \
  X(VT_DECIMAL, 14)                  \
  X(VT_I1, 16)                       \
  X(VT_UI1, 17)                      \
  X(VT_UI2, 18)                      \
  X(VT_UI4, 19)                      \
  X(VT_I8, 20)                       \
  X(VT_UI8, 21)                      \
  X(VT_INT, 22)                      \
  X(VT_UINT, 23)                     \
  X(VT_VOID, 24)                     \
  X(VT_HRESULT, 25)                  \
  X(VT_PTR, 26)                      \
  X(VT_SAFEARRAY, 27)                \
  X(VT_CARRAY, 28)                   \
  X(VT_USERDEFINED, 29)              \
  X(VT_LPSTR, 30)                    \
  X(VT_LPWSTR, 31)                   \
  X(VT_RECORD, 36)                   \
  X(VT_INT_PTR, 37)                  \
  X(VT_UINT_PTR, 38)                 \
  X(VT_VECTOR, 0x1000)               \
  X(VT_ARRAY, 0x2000)                \
  X(VT_BYREF, 0x4000)                \
  X(VT_TYPEMASK, 0xfff)              \
  X(VARIANT_TRUE, (-1))              \
  X(VARIANT_FALSE, 0)                \
  X(DISPID_UNKNOWN, (-1))            \
  X(DISPID_VALUE, 0)                 \
  X(DISPID_PROPERTYPUT, (-3))        \
  X(DISPID_NEWENUM, (-4))            \
  X(DISPATCH_METHOD, 1)              \
  X(DISPATCH_PROPERTYGET, 2)         \
  X(DISPATCH_PROPERTYPUT, 4)         \
  X(DISPATCH_PROPERTYPUTREF, 8)      \
  X(TKIND_ENUM, 0)                   \
  X(TKIND_INTERFACE, 3)              \
  X(TKIND_DISPATCH, 4)               \
  X(TKIND_COCLASS, 5)                \
  X(TKIND_MAX, 8)                    \
  X(FUNC_PUREVIRTUAL, 1)             \
  X(FUNC_DISPATCH, 4)                \
  X(INVOKE_FUNC, 1)                  \
  X(INVOKE_PROPERTYGET, 2)           \
  X(INVOKE_PROPERTYPUT, 4)           \
  X(INVOKE_PROPERTYPUTREF, 8)        \
  X(CC_CDECL, 1)                     \
  X(CC_STDCALL, 4)                   \
  X(CC_SYSCALL, 6)                   \
  X(CC_MAX, 9)                       \
  X(VAR_PERINSTANCE, 0)              \
  X(VAR_CONST, 2)                    \
  X(VAR_DISPATCH, 3)                 \
  X(SYS_WIN64, 3)                    \
  X(DESCKIND_IMPLICITAPPOBJ, 4)      \
  X(PARAMFLAG_FIN, 0x01)             \
  X(PARAMFLAG_FOUT, 0x02)            \
  X(PARAMFLAG_FLCID, 0x04)           \
  X(PARAMFLAG_FRETVAL, 0x08)         \
  X(PARAMFLAG_FOPT, 0x10)            \
  X(PARAMFLAG_FHASDEFAULT, 0x20)     \
  X(IDLFLAG_FRETVAL, 0x08)           \
  X(TYPEFLAG_FAPPOBJECT, 0x1)        \
  X(TYPEFLAG_FCANCREATE, 0x2)        \
  X(TYPEFLAG_FPREDECLID, 0x8)        \
  X(TYPEFLAG_FHIDDEN, 0x10)          \
  X(TYPEFLAG_FDUAL, 0x40)            \
  X(TYPEFLAG_FNONEXTENSIBLE, 0x80)   \
  X(TYPEFLAG_FOLEAUTOMATION, 0x100)  \
  X(TYPEFLAG_FDISPATCHABLE, 0x1000)  \
  X(FUNCFLAG_FRESTRICTED, 0x1)       \
  X(FUNCFLAG_FHIDDEN, 0x40)          \
  X(FUNCFLAG_FIMMEDIATEBIND, 0x1000) \
  X(VARFLAG_FREADONLY, 0x1)          \
  X(VARFLAG_FHIDDEN, 0x40)           \
  X(IMPLTYPEFLAG_FDEFAULT, 0x1)      \
  X(IMPLTYPEFLAG_FSOURCE, 0x2)       \
  X(LIBFLAG_FHASDISKIMAGE, 0x8)      \
  X(FADF_AUTO, 0x0001)               \
  X(FADF_STATIC, 0x0002)             \
  X(FADF_EMBEDDED, 0x0004)           \
  X(FADF_FIXEDSIZE, 0x0010)          \
  X(FADF_HAVEIID, 0x0040)            \
  X(FADF_HAVEVARTYPE, 0x0080)        \
  X(FADF_BSTR, 0x0100)               \
  X(FADF_UNKNOWN, 0x0200)            \
  X(FADF_DISPATCH, 0x0400)           \
  X(FADF_VARIANT, 0x0800)            \
  X(VARIANT_NOVALUEPROP, 0x01)       \
  X(VARIANT_ALPHABOOL, 0x02)         \
  X(VARIANT_LOCALBOOL, 0x10)         \
  X(LOCALE_USER_DEFAULT, 0x0400)     \
  X(LOCALE_SYSTEM_DEFAULT, 0x0800)

/* Every fact above as a static assertion (static_assert: <assert.h> in C, built in in C++). */
#define QUIV_COM_CHECK_SIZE(type, size) static_assert(sizeof(type) == (size), "sizeof " #type);
#define QUIV_COM_CHECK_OFFSET(type, member, offset) \
  static_assert(offsetof(type, member) == (offset), #type "." #member);
#define QUIV_COM_CHECK_HRESULT(name, value) static_assert((name) == (HRESULT)(value), #name);
#define QUIV_COM_CHECK_CONSTANT(name, value) static_assert((name) == (value), #name);
#define QUIV_COM_CHECK_ALL()                \
  QUIV_COM_SIZES(QUIV_COM_CHECK_SIZE)       \
  QUIV_COM_OFFSETS(QUIV_COM_CHECK_OFFSET)   \
  QUIV_COM_HRESULTS(QUIV_COM_CHECK_HRESULT) \
  QUIV_COM_CONSTANTS(QUIV_COM_CHECK_CONSTANT)

#endif
