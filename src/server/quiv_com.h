/*
 * The binary layout of the component object model and of automation, as on 64-bit Windows, with
 * the platform's own C names, so that C and C++ code written against the Windows C headers
 * (IUnknown, IDispatch, VARIANT, BSTR, SAFEARRAY, the type information interfaces) reads the same
 * against libquiv.
 *
 * One header serves both languages, so C++ gets the C forms:
 *  - REFIID, REFCLSID and REFGUID are `const GUID*` (pass `&IID_IDispatch`), not references.
 *  - Interfaces are `struct X { const struct XVtbl* lpVtbl; }`; call them as
 *    `p->lpVtbl->Release(p)`.
 *  - STDMETHODCALLTYPE is empty: every method uses the System V calling convention of x86-64
 *    Linux, which is the platform's C convention here.
 *  - OLECHAR is a UTF-16 code unit (`char16_t`), not `wchar_t`.
 *
 * Memory rules are the platform's: a BSTR belongs to whoever receives it and is freed with
 * SysFreeString; VariantClear frees what a VARIANT owns (a BSTR, an array) and releases an object
 * it holds; the caller of ITypeInfo::GetTypeAttr and friends gives the block back with the
 * matching Release... call.
 */
#ifndef QUIV_SERVER_QUIV_COM_H
#define QUIV_SERVER_QUIV_COM_H

#include <stddef.h>
#include <stdint.h>
#include <string.h>
#ifndef __cplusplus
#include <uchar.h>
#endif

#include "platform/QuivExport.h"

#ifdef __cplusplus
extern "C" {
#endif

#define STDMETHODCALLTYPE
#define STDAPICALLTYPE

/* ---- Base types (the same spellings as the CryptoAPI header, so both may be included) ---- */

typedef int BOOL;
typedef unsigned char BYTE;
typedef uint16_t WORD;
typedef uint32_t DWORD;
typedef int16_t SHORT;
typedef uint16_t USHORT;
typedef int32_t LONG;
typedef uint32_t ULONG;
typedef int64_t LONGLONG;
typedef uint64_t ULONGLONG;
typedef int INT;
typedef unsigned int UINT;
typedef char CHAR;
typedef float FLOAT;
typedef double DOUBLE;
typedef uintptr_t ULONG_PTR;
typedef void* PVOID;
typedef void* LPVOID;
typedef const CHAR* LPCSTR;
typedef char16_t WCHAR;

#ifndef TRUE
#define TRUE 1
#endif
#ifndef FALSE
#define FALSE 0
#endif

typedef LONG HRESULT;
typedef LONG SCODE;
typedef DWORD LCID;
typedef LONG DISPID;
typedef DISPID MEMBERID;
typedef DWORD HREFTYPE;
typedef double DATE;
typedef WCHAR OLECHAR;
typedef OLECHAR* LPOLESTR;
typedef const OLECHAR* LPCOLESTR;
typedef OLECHAR* BSTR;
typedef BSTR* LPBSTR;
typedef short VARIANT_BOOL;
typedef unsigned short VARTYPE;

#define VARIANT_TRUE ((VARIANT_BOOL)-1)
#define VARIANT_FALSE ((VARIANT_BOOL)0)

#define LOCALE_NEUTRAL 0x0000
#define LOCALE_USER_DEFAULT 0x0400
#define LOCALE_SYSTEM_DEFAULT 0x0800

/* ---- HRESULT ---- */

#define SUCCEEDED(hr) (((HRESULT)(hr)) >= 0)
#define FAILED(hr) (((HRESULT)(hr)) < 0)
#define HRESULT_CODE(hr) ((hr)&0xFFFF)
#define HRESULT_FACILITY(hr) (((hr) >> 16) & 0x1FFF)
#define HRESULT_SEVERITY(hr) (((hr) >> 31) & 0x1)
#define MAKE_HRESULT(sev, fac, code) \
  ((HRESULT)(((unsigned long)(sev) << 31) | ((unsigned long)(fac) << 16) | ((unsigned long)(code))))
#define FACILITY_NULL 0
#define FACILITY_DISPATCH 2
#define FACILITY_ITF 4
#define FACILITY_WIN32 7
#define SEVERITY_SUCCESS 0
#define SEVERITY_ERROR 1

#define S_OK ((HRESULT)0x00000000L)
#define S_FALSE ((HRESULT)0x00000001L)
#define E_NOTIMPL ((HRESULT)0x80004001L)
#define E_NOINTERFACE ((HRESULT)0x80004002L)
#define E_POINTER ((HRESULT)0x80004003L)
#define E_ABORT ((HRESULT)0x80004004L)
#define E_FAIL ((HRESULT)0x80004005L)
#define E_UNEXPECTED ((HRESULT)0x8000FFFFL)
#define E_ACCESSDENIED ((HRESULT)0x80070005L)
#define E_HANDLE ((HRESULT)0x80070006L)
#define E_OUTOFMEMORY ((HRESULT)0x8007000EL)
#define E_INVALIDARG ((HRESULT)0x80070057L)

#define CLASS_E_NOAGGREGATION ((HRESULT)0x80040110L)
#define CLASS_E_CLASSNOTAVAILABLE ((HRESULT)0x80040111L)
#define CLASS_E_NOTLICENSED ((HRESULT)0x80040112L)
#define REGDB_E_READREGDB ((HRESULT)0x80040150L)
#define REGDB_E_WRITEREGDB ((HRESULT)0x80040151L)
#define REGDB_E_CLASSNOTREG ((HRESULT)0x80040154L)
#define SELFREG_E_TYPELIB ((HRESULT)0x80040200L)
#define SELFREG_E_CLASS ((HRESULT)0x80040201L)
#define CO_E_CLASSSTRING ((HRESULT)0x800401F3L)
#define CO_E_IIDSTRING ((HRESULT)0x800401F4L)
#define CO_E_DLLNOTFOUND ((HRESULT)0x800401F8L)

#define DISP_E_UNKNOWNINTERFACE ((HRESULT)0x80020001L)
#define DISP_E_MEMBERNOTFOUND ((HRESULT)0x80020003L)
#define DISP_E_PARAMNOTFOUND ((HRESULT)0x80020004L)
#define DISP_E_TYPEMISMATCH ((HRESULT)0x80020005L)
#define DISP_E_UNKNOWNNAME ((HRESULT)0x80020006L)
#define DISP_E_NONAMEDARGS ((HRESULT)0x80020007L)
#define DISP_E_BADVARTYPE ((HRESULT)0x80020008L)
#define DISP_E_EXCEPTION ((HRESULT)0x80020009L)
#define DISP_E_OVERFLOW ((HRESULT)0x8002000AL)
#define DISP_E_BADINDEX ((HRESULT)0x8002000BL)
#define DISP_E_UNKNOWNLCID ((HRESULT)0x8002000CL)
#define DISP_E_ARRAYISLOCKED ((HRESULT)0x8002000DL)
#define DISP_E_BADPARAMCOUNT ((HRESULT)0x8002000EL)
#define DISP_E_PARAMNOTOPTIONAL ((HRESULT)0x8002000FL)
#define DISP_E_BADCALLEE ((HRESULT)0x80020010L)
#define DISP_E_NOTACOLLECTION ((HRESULT)0x80020011L)
#define DISP_E_DIVBYZERO ((HRESULT)0x80020012L)
#define DISP_E_BUFFERTOOSMALL ((HRESULT)0x80020013L)

#define TYPE_E_INVDATAREAD ((HRESULT)0x80028018L)
#define TYPE_E_UNSUPFORMAT ((HRESULT)0x80028019L)
#define TYPE_E_REGISTRYACCESS ((HRESULT)0x8002801CL)
#define TYPE_E_LIBNOTREGISTERED ((HRESULT)0x8002801DL)
#define TYPE_E_UNDEFINEDTYPE ((HRESULT)0x80028027L)
#define TYPE_E_INVALIDSTATE ((HRESULT)0x80028029L)
#define TYPE_E_ELEMENTNOTFOUND ((HRESULT)0x8002802BL)
#define TYPE_E_AMBIGUOUSNAME ((HRESULT)0x8002802CL)
#define TYPE_E_BADMODULEKIND ((HRESULT)0x800288BDL)
#define TYPE_E_TYPEMISMATCH ((HRESULT)0x80028CA0L)
#define TYPE_E_OUTOFBOUNDS ((HRESULT)0x80028CA1L)
#define TYPE_E_IOERROR ((HRESULT)0x80028CA2L)
#define TYPE_E_CANTLOADLIBRARY ((HRESULT)0x80029C4AL)

/* ---- GUIDs ---- */

typedef struct _GUID {
  DWORD Data1;
  WORD Data2;
  WORD Data3;
  BYTE Data4[8];
} GUID;
typedef GUID IID;
typedef GUID CLSID;
typedef GUID* LPGUID;
typedef IID* LPIID;
typedef CLSID* LPCLSID;
typedef const GUID* REFGUID;
typedef const IID* REFIID;
typedef const CLSID* REFCLSID;

static inline BOOL IsEqualGUID(REFGUID rguid1, REFGUID rguid2) {
  return memcmp(rguid1, rguid2, sizeof(GUID)) == 0;
}
#define IsEqualIID(riid1, riid2) IsEqualGUID(riid1, riid2)
#define IsEqualCLSID(rclsid1, rclsid2) IsEqualGUID(rclsid1, rclsid2)

/* The standard interface identifiers, with their published values. */
QUIV_API extern const IID GUID_NULL;
QUIV_API extern const IID IID_NULL;
QUIV_API extern const IID IID_IUnknown;
QUIV_API extern const IID IID_IClassFactory;
QUIV_API extern const IID IID_IDispatch;
QUIV_API extern const IID IID_ITypeInfo;
QUIV_API extern const IID IID_ITypeLib;
QUIV_API extern const IID IID_ITypeComp;

/* ---- Automation types ---- */

enum VARENUM {
  VT_EMPTY = 0,
  VT_NULL = 1,
  VT_I2 = 2,
  VT_I4 = 3,
  VT_R4 = 4,
  VT_R8 = 5,
  VT_CY = 6,
  VT_DATE = 7,
  VT_BSTR = 8,
  VT_DISPATCH = 9,
  VT_ERROR = 10,
  VT_BOOL = 11,
  VT_VARIANT = 12,
  VT_UNKNOWN = 13,
  VT_DECIMAL = 14,
  VT_I1 = 16,
  VT_UI1 = 17,
  VT_UI2 = 18,
  VT_UI4 = 19,
  VT_I8 = 20,
  VT_UI8 = 21,
  VT_INT = 22,
  VT_UINT = 23,
  VT_VOID = 24,
  VT_HRESULT = 25,
  VT_PTR = 26,
  VT_SAFEARRAY = 27,
  VT_CARRAY = 28,
  VT_USERDEFINED = 29,
  VT_LPSTR = 30,
  VT_LPWSTR = 31,
  VT_RECORD = 36,
  VT_INT_PTR = 37,
  VT_UINT_PTR = 38,
  VT_FILETIME = 64,
  VT_BLOB = 65,
  VT_STREAM = 66,
  VT_STORAGE = 67,
  VT_STREAMED_OBJECT = 68,
  VT_STORED_OBJECT = 69,
  VT_BLOB_OBJECT = 70,
  VT_CF = 71,
  VT_CLSID = 72,
  VT_VERSIONED_STREAM = 73,
  VT_BSTR_BLOB = 0xfff,
  VT_VECTOR = 0x1000,
  VT_ARRAY = 0x2000,
  VT_BYREF = 0x4000,
  VT_RESERVED = 0x8000,
  VT_ILLEGAL = 0xffff,
  VT_ILLEGALMASKED = 0xfff,
  VT_TYPEMASK = 0xfff
};

typedef union tagCY {
  struct {
    ULONG Lo;
    LONG Hi;
  };
  LONGLONG int64;
} CY;

typedef struct tagDEC {
  USHORT wReserved;
  union {
    struct {
      BYTE scale;
      BYTE sign;
    };
    USHORT signscale;
  };
  ULONG Hi32;
  union {
    struct {
      ULONG Lo32;
      ULONG Mid32;
    };
    ULONGLONG Lo64;
  };
} DECIMAL;

typedef struct tagSAFEARRAYBOUND {
  ULONG cElements;
  LONG lLbound;
} SAFEARRAYBOUND;
typedef SAFEARRAYBOUND* LPSAFEARRAYBOUND;

/* A safe array: the header below is followed by cDims-1 further bounds. */
typedef struct tagSAFEARRAY {
  USHORT cDims;
  USHORT fFeatures;
  ULONG cbElements;
  ULONG cLocks;
  PVOID pvData;
  SAFEARRAYBOUND rgsabound[1];
} SAFEARRAY;
typedef SAFEARRAY* LPSAFEARRAY;

#define FADF_AUTO 0x0001
#define FADF_STATIC 0x0002
#define FADF_EMBEDDED 0x0004
#define FADF_FIXEDSIZE 0x0010
#define FADF_RECORD 0x0020
#define FADF_HAVEIID 0x0040
#define FADF_HAVEVARTYPE 0x0080
#define FADF_BSTR 0x0100
#define FADF_UNKNOWN 0x0200
#define FADF_DISPATCH 0x0400
#define FADF_VARIANT 0x0800
#define FADF_RESERVED 0xF008

struct IUnknown;
struct IDispatch;
struct IRecordInfo;
struct ITypeInfo;
struct ITypeLib;
struct ITypeComp;

/* VARIANT: 24 bytes; vt at offset 0, the value at offset 8 (a DECIMAL overlays all 16 bytes). */
typedef struct tagVARIANT VARIANT;
typedef VARIANT VARIANTARG;
typedef VARIANT* LPVARIANT;
typedef VARIANT* LPVARIANTARG;

struct tagVARIANT {
  union {
    struct {
      VARTYPE vt;
      WORD wReserved1;
      WORD wReserved2;
      WORD wReserved3;
      union {
        LONGLONG llVal;
        LONG lVal;
        BYTE bVal;
        SHORT iVal;
        FLOAT fltVal;
        DOUBLE dblVal;
        VARIANT_BOOL boolVal;
        SCODE scode;
        CY cyVal;
        DATE date;
        BSTR bstrVal;
        struct IUnknown* punkVal;
        struct IDispatch* pdispVal;
        SAFEARRAY* parray;
        BYTE* pbVal;
        SHORT* piVal;
        LONG* plVal;
        LONGLONG* pllVal;
        FLOAT* pfltVal;
        DOUBLE* pdblVal;
        VARIANT_BOOL* pboolVal;
        SCODE* pscode;
        CY* pcyVal;
        DATE* pdate;
        BSTR* pbstrVal;
        struct IUnknown** ppunkVal;
        struct IDispatch** ppdispVal;
        SAFEARRAY** pparray;
        VARIANT* pvarVal;
        PVOID byref;
        CHAR cVal;
        USHORT uiVal;
        ULONG ulVal;
        ULONGLONG ullVal;
        INT intVal;
        UINT uintVal;
        DECIMAL* pdecVal;
        CHAR* pcVal;
        USHORT* puiVal;
        ULONG* pulVal;
        ULONGLONG* pullVal;
        INT* pintVal;
        UINT* puintVal;
        struct {
          PVOID pvRecord;
          struct IRecordInfo* pRecInfo;
        };
      };
    };
    DECIMAL decVal;
  };
};

/* The platform's accessors: V_VT(&v), V_BSTR(&v), V_I4REF(&v), ... */
#define V_UNION(X, Y) ((X)->Y)
#define V_VT(X) ((X)->vt)
#define V_ISBYREF(X) (V_VT(X) & VT_BYREF)
#define V_ISARRAY(X) (V_VT(X) & VT_ARRAY)
#define V_I1(X) V_UNION(X, cVal)
#define V_UI1(X) V_UNION(X, bVal)
#define V_I2(X) V_UNION(X, iVal)
#define V_UI2(X) V_UNION(X, uiVal)
#define V_I4(X) V_UNION(X, lVal)
#define V_UI4(X) V_UNION(X, ulVal)
#define V_I8(X) V_UNION(X, llVal)
#define V_UI8(X) V_UNION(X, ullVal)
#define V_INT(X) V_UNION(X, intVal)
#define V_UINT(X) V_UNION(X, uintVal)
#define V_R4(X) V_UNION(X, fltVal)
#define V_R8(X) V_UNION(X, dblVal)
#define V_CY(X) V_UNION(X, cyVal)
#define V_DATE(X) V_UNION(X, date)
#define V_BOOL(X) V_UNION(X, boolVal)
#define V_ERROR(X) V_UNION(X, scode)
#define V_BSTR(X) V_UNION(X, bstrVal)
#define V_DISPATCH(X) V_UNION(X, pdispVal)
#define V_UNKNOWN(X) V_UNION(X, punkVal)
#define V_ARRAY(X) V_UNION(X, parray)
#define V_BYREF(X) V_UNION(X, byref)
#define V_DECIMAL(X) ((X)->decVal)
#define V_UI1REF(X) V_UNION(X, pbVal)
#define V_I2REF(X) V_UNION(X, piVal)
#define V_I4REF(X) V_UNION(X, plVal)
#define V_R8REF(X) V_UNION(X, pdblVal)
#define V_BOOLREF(X) V_UNION(X, pboolVal)
#define V_ERRORREF(X) V_UNION(X, pscode)
#define V_BSTRREF(X) V_UNION(X, pbstrVal)
#define V_DISPATCHREF(X) V_UNION(X, ppdispVal)
#define V_UNKNOWNREF(X) V_UNION(X, ppunkVal)
#define V_ARRAYREF(X) V_UNION(X, pparray)
#define V_VARIANTREF(X) V_UNION(X, pvarVal)
#define V_DECIMALREF(X) V_UNION(X, pdecVal)

/* VariantChangeType flags. */
#define VARIANT_NOVALUEPROP 0x01
#define VARIANT_ALPHABOOL 0x02
#define VARIANT_NOUSEROVERRIDE 0x04
#define VARIANT_CALENDAR_HIJRI 0x08
#define VARIANT_LOCALBOOL 0x10

/* ---- Dispatch ---- */

#define DISPID_UNKNOWN (-1)
#define DISPID_VALUE (0)
#define DISPID_PROPERTYPUT (-3)
#define DISPID_NEWENUM (-4)
#define DISPID_EVALUATE (-5)
#define DISPID_CONSTRUCTOR (-6)
#define DISPID_DESTRUCTOR (-7)
#define DISPID_COLLECT (-8)
#define MEMBERID_NIL DISPID_UNKNOWN

#define DISPATCH_METHOD 0x1
#define DISPATCH_PROPERTYGET 0x2
#define DISPATCH_PROPERTYPUT 0x4
#define DISPATCH_PROPERTYPUTREF 0x8

/* Arguments in reverse order: rgvarg[cArgs-1] is the first; named ones come first. */
typedef struct tagDISPPARAMS {
  VARIANTARG* rgvarg;
  DISPID* rgdispidNamedArgs;
  UINT cArgs;
  UINT cNamedArgs;
} DISPPARAMS;

typedef struct tagEXCEPINFO {
  WORD wCode;
  WORD wReserved;
  BSTR bstrSource;
  BSTR bstrDescription;
  BSTR bstrHelpFile;
  DWORD dwHelpContext;
  PVOID pvReserved;
  HRESULT(STDMETHODCALLTYPE* pfnDeferredFillIn)(struct tagEXCEPINFO*);
  SCODE scode;
} EXCEPINFO;
typedef EXCEPINFO* LPEXCEPINFO;

/* ---- Type descriptions ---- */

typedef enum tagTYPEKIND {
  TKIND_ENUM = 0,
  TKIND_RECORD,
  TKIND_MODULE,
  TKIND_INTERFACE,
  TKIND_DISPATCH,
  TKIND_COCLASS,
  TKIND_ALIAS,
  TKIND_UNION,
  TKIND_MAX
} TYPEKIND;

typedef struct tagTYPEDESC {
  union {
    struct tagTYPEDESC* lptdesc;
    struct tagARRAYDESC* lpadesc;
    HREFTYPE hreftype;
  };
  VARTYPE vt;
} TYPEDESC;

typedef struct tagARRAYDESC {
  TYPEDESC tdescElem;
  USHORT cDims;
  SAFEARRAYBOUND rgbounds[1];
} ARRAYDESC;

typedef struct tagPARAMDESCEX {
  ULONG cBytes;
  VARIANTARG varDefaultValue;
} PARAMDESCEX;
typedef PARAMDESCEX* LPPARAMDESCEX;

typedef struct tagPARAMDESC {
  LPPARAMDESCEX pparamdescex;
  USHORT wParamFlags;
} PARAMDESC;
typedef PARAMDESC* LPPARAMDESC;

#define PARAMFLAG_NONE 0x00
#define PARAMFLAG_FIN 0x01
#define PARAMFLAG_FOUT 0x02
#define PARAMFLAG_FLCID 0x04
#define PARAMFLAG_FRETVAL 0x08
#define PARAMFLAG_FOPT 0x10
#define PARAMFLAG_FHASDEFAULT 0x20
#define PARAMFLAG_FHASCUSTDATA 0x40

typedef struct tagIDLDESC {
  ULONG_PTR dwReserved;
  USHORT wIDLFlags;
} IDLDESC;
typedef IDLDESC* LPIDLDESC;

#define IDLFLAG_NONE PARAMFLAG_NONE
#define IDLFLAG_FIN PARAMFLAG_FIN
#define IDLFLAG_FOUT PARAMFLAG_FOUT
#define IDLFLAG_FLCID PARAMFLAG_FLCID
#define IDLFLAG_FRETVAL PARAMFLAG_FRETVAL

typedef struct tagELEMDESC {
  TYPEDESC tdesc;
  union {
    IDLDESC idldesc;
    PARAMDESC paramdesc;
  };
} ELEMDESC;
typedef ELEMDESC* LPELEMDESC;

typedef struct tagTYPEATTR {
  GUID guid;
  LCID lcid;
  DWORD dwReserved;
  MEMBERID memidConstructor;
  MEMBERID memidDestructor;
  LPOLESTR lpstrSchema;
  ULONG cbSizeInstance;
  TYPEKIND typekind;
  WORD cFuncs;
  WORD cVars;
  WORD cImplTypes;
  WORD cbSizeVft;
  WORD cbAlignment;
  WORD wTypeFlags;
  WORD wMajorVerNum;
  WORD wMinorVerNum;
  TYPEDESC tdescAlias;
  IDLDESC idldescType;
} TYPEATTR;
typedef TYPEATTR* LPTYPEATTR;

typedef enum tagTYPEFLAGS {
  TYPEFLAG_FAPPOBJECT = 0x1,
  TYPEFLAG_FCANCREATE = 0x2,
  TYPEFLAG_FLICENSED = 0x4,
  TYPEFLAG_FPREDECLID = 0x8,
  TYPEFLAG_FHIDDEN = 0x10,
  TYPEFLAG_FCONTROL = 0x20,
  TYPEFLAG_FDUAL = 0x40,
  TYPEFLAG_FNONEXTENSIBLE = 0x80,
  TYPEFLAG_FOLEAUTOMATION = 0x100,
  TYPEFLAG_FRESTRICTED = 0x200,
  TYPEFLAG_FAGGREGATABLE = 0x400,
  TYPEFLAG_FREPLACEABLE = 0x800,
  TYPEFLAG_FDISPATCHABLE = 0x1000,
  TYPEFLAG_FREVERSEBIND = 0x2000,
  TYPEFLAG_FPROXY = 0x4000
} TYPEFLAGS;

typedef enum tagFUNCKIND {
  FUNC_VIRTUAL = 0,
  FUNC_PUREVIRTUAL,
  FUNC_NONVIRTUAL,
  FUNC_STATIC,
  FUNC_DISPATCH
} FUNCKIND;

typedef enum tagINVOKEKIND {
  INVOKE_FUNC = 1,
  INVOKE_PROPERTYGET = 2,
  INVOKE_PROPERTYPUT = 4,
  INVOKE_PROPERTYPUTREF = 8
} INVOKEKIND;

typedef enum tagCALLCONV {
  CC_FASTCALL = 0,
  CC_CDECL = 1,
  CC_MSCPASCAL = 2,
  CC_PASCAL = CC_MSCPASCAL,
  CC_MACPASCAL = 3,
  CC_STDCALL = 4,
  CC_FPFASTCALL = 5,
  CC_SYSCALL = 6,
  CC_MPWCDECL = 7,
  CC_MPWPASCAL = 8,
  CC_MAX = 9
} CALLCONV;

typedef enum tagFUNCFLAGS {
  FUNCFLAG_FRESTRICTED = 0x1,
  FUNCFLAG_FSOURCE = 0x2,
  FUNCFLAG_FBINDABLE = 0x4,
  FUNCFLAG_FREQUESTEDIT = 0x8,
  FUNCFLAG_FDISPLAYBIND = 0x10,
  FUNCFLAG_FDEFAULTBIND = 0x20,
  FUNCFLAG_FHIDDEN = 0x40,
  FUNCFLAG_FUSESGETLASTERROR = 0x80,
  FUNCFLAG_FDEFAULTCOLLELEM = 0x100,
  FUNCFLAG_FUIDEFAULT = 0x200,
  FUNCFLAG_FNONBROWSABLE = 0x400,
  FUNCFLAG_FREPLACEABLE = 0x800,
  FUNCFLAG_FIMMEDIATEBIND = 0x1000
} FUNCFLAGS;

typedef struct tagFUNCDESC {
  MEMBERID memid;
  SCODE* lprgscode;
  ELEMDESC* lprgelemdescParam;
  FUNCKIND funckind;
  INVOKEKIND invkind;
  CALLCONV callconv;
  SHORT cParams;
  SHORT cParamsOpt;
  SHORT oVft;
  SHORT cScodes;
  ELEMDESC elemdescFunc;
  WORD wFuncFlags;
} FUNCDESC;
typedef FUNCDESC* LPFUNCDESC;

typedef enum tagVARKIND { VAR_PERINSTANCE = 0, VAR_STATIC, VAR_CONST, VAR_DISPATCH } VARKIND;

typedef enum tagVARFLAGS {
  VARFLAG_FREADONLY = 0x1,
  VARFLAG_FSOURCE = 0x2,
  VARFLAG_FBINDABLE = 0x4,
  VARFLAG_FREQUESTEDIT = 0x8,
  VARFLAG_FDISPLAYBIND = 0x10,
  VARFLAG_FDEFAULTBIND = 0x20,
  VARFLAG_FHIDDEN = 0x40,
  VARFLAG_FRESTRICTED = 0x80,
  VARFLAG_FDEFAULTCOLLELEM = 0x100,
  VARFLAG_FUIDEFAULT = 0x200,
  VARFLAG_FNONBROWSABLE = 0x400,
  VARFLAG_FREPLACEABLE = 0x800,
  VARFLAG_FIMMEDIATEBIND = 0x1000
} VARFLAGS;

typedef struct tagVARDESC {
  MEMBERID memid;
  LPOLESTR lpstrSchema;
  union {
    ULONG oInst;
    VARIANT* lpvarValue;
  };
  ELEMDESC elemdescVar;
  WORD wVarFlags;
  VARKIND varkind;
} VARDESC;
typedef VARDESC* LPVARDESC;

typedef enum tagSYSKIND { SYS_WIN16 = 0, SYS_WIN32, SYS_MAC, SYS_WIN64 } SYSKIND;

typedef enum tagLIBFLAGS {
  LIBFLAG_FRESTRICTED = 0x1,
  LIBFLAG_FCONTROL = 0x2,
  LIBFLAG_FHIDDEN = 0x4,
  LIBFLAG_FHASDISKIMAGE = 0x8
} LIBFLAGS;

typedef struct tagTLIBATTR {
  GUID guid;
  LCID lcid;
  SYSKIND syskind;
  WORD wMajorVerNum;
  WORD wMinorVerNum;
  WORD wLibFlags;
} TLIBATTR;
typedef TLIBATTR* LPTLIBATTR;

typedef enum tagDESCKIND {
  DESCKIND_NONE = 0,
  DESCKIND_FUNCDESC,
  DESCKIND_VARDESC,
  DESCKIND_TYPECOMP,
  DESCKIND_IMPLICITAPPOBJ,
  DESCKIND_MAX
} DESCKIND;

typedef union tagBINDPTR {
  FUNCDESC* lpfuncdesc;
  VARDESC* lpvardesc;
  struct ITypeComp* lptcomp;
} BINDPTR;

#define IMPLTYPEFLAG_FDEFAULT 0x1
#define IMPLTYPEFLAG_FSOURCE 0x2
#define IMPLTYPEFLAG_FRESTRICTED 0x4
#define IMPLTYPEFLAG_FDEFAULTVTABLE 0x8

/* ---- Interfaces: vtables in the platform's slot order ---- */

typedef struct IUnknown IUnknown;
typedef IUnknown* LPUNKNOWN;
typedef struct IUnknownVtbl {
  HRESULT(STDMETHODCALLTYPE* QueryInterface)(IUnknown* This, REFIID riid, void** ppvObject);
  ULONG(STDMETHODCALLTYPE* AddRef)(IUnknown* This);
  ULONG(STDMETHODCALLTYPE* Release)(IUnknown* This);
} IUnknownVtbl;
struct IUnknown {
  const struct IUnknownVtbl* lpVtbl;
};

typedef struct IClassFactory IClassFactory;
typedef IClassFactory* LPCLASSFACTORY;
typedef struct IClassFactoryVtbl {
  HRESULT(STDMETHODCALLTYPE* QueryInterface)(IClassFactory* This, REFIID riid, void** ppvObject);
  ULONG(STDMETHODCALLTYPE* AddRef)(IClassFactory* This);
  ULONG(STDMETHODCALLTYPE* Release)(IClassFactory* This);
  HRESULT(STDMETHODCALLTYPE* CreateInstance)
  (IClassFactory* This, IUnknown* pUnkOuter, REFIID riid, void** ppvObject);
  HRESULT(STDMETHODCALLTYPE* LockServer)(IClassFactory* This, BOOL fLock);
} IClassFactoryVtbl;
struct IClassFactory {
  const struct IClassFactoryVtbl* lpVtbl;
};

typedef struct ITypeInfo ITypeInfo;
typedef ITypeInfo* LPTYPEINFO;
typedef struct ITypeLib ITypeLib;
typedef ITypeLib* LPTYPELIB;
typedef struct ITypeComp ITypeComp;
typedef ITypeComp* LPTYPECOMP;

typedef struct IDispatch IDispatch;
typedef IDispatch* LPDISPATCH;
typedef struct IDispatchVtbl {
  HRESULT(STDMETHODCALLTYPE* QueryInterface)(IDispatch* This, REFIID riid, void** ppvObject);
  ULONG(STDMETHODCALLTYPE* AddRef)(IDispatch* This);
  ULONG(STDMETHODCALLTYPE* Release)(IDispatch* This);
  HRESULT(STDMETHODCALLTYPE* GetTypeInfoCount)(IDispatch* This, UINT* pctinfo);
  HRESULT(STDMETHODCALLTYPE* GetTypeInfo)
  (IDispatch* This, UINT iTInfo, LCID lcid, ITypeInfo** ppTInfo);
  HRESULT(STDMETHODCALLTYPE* GetIDsOfNames)
  (IDispatch* This, REFIID riid, LPOLESTR* rgszNames, UINT cNames, LCID lcid, DISPID* rgDispId);
  HRESULT(STDMETHODCALLTYPE* Invoke)
  (IDispatch* This, DISPID dispIdMember, REFIID riid, LCID lcid, WORD wFlags,
   DISPPARAMS* pDispParams, VARIANT* pVarResult, EXCEPINFO* pExcepInfo, UINT* puArgErr);
} IDispatchVtbl;
struct IDispatch {
  const struct IDispatchVtbl* lpVtbl;
};

typedef struct ITypeCompVtbl {
  HRESULT(STDMETHODCALLTYPE* QueryInterface)(ITypeComp* This, REFIID riid, void** ppvObject);
  ULONG(STDMETHODCALLTYPE* AddRef)(ITypeComp* This);
  ULONG(STDMETHODCALLTYPE* Release)(ITypeComp* This);
  HRESULT(STDMETHODCALLTYPE* Bind)
  (ITypeComp* This, LPOLESTR szName, ULONG lHashVal, WORD wFlags, ITypeInfo** ppTInfo,
   DESCKIND* pDescKind, BINDPTR* pBindPtr);
  HRESULT(STDMETHODCALLTYPE* BindType)
  (ITypeComp* This, LPOLESTR szName, ULONG lHashVal, ITypeInfo** ppTInfo, ITypeComp** ppTComp);
} ITypeCompVtbl;
struct ITypeComp {
  const struct ITypeCompVtbl* lpVtbl;
};

typedef struct ITypeInfoVtbl {
  HRESULT(STDMETHODCALLTYPE* QueryInterface)(ITypeInfo* This, REFIID riid, void** ppvObject);
  ULONG(STDMETHODCALLTYPE* AddRef)(ITypeInfo* This);
  ULONG(STDMETHODCALLTYPE* Release)(ITypeInfo* This);
  HRESULT(STDMETHODCALLTYPE* GetTypeAttr)(ITypeInfo* This, TYPEATTR** ppTypeAttr);
  HRESULT(STDMETHODCALLTYPE* GetTypeComp)(ITypeInfo* This, ITypeComp** ppTComp);
  HRESULT(STDMETHODCALLTYPE* GetFuncDesc)(ITypeInfo* This, UINT index, FUNCDESC** ppFuncDesc);
  HRESULT(STDMETHODCALLTYPE* GetVarDesc)(ITypeInfo* This, UINT index, VARDESC** ppVarDesc);
  HRESULT(STDMETHODCALLTYPE* GetNames)
  (ITypeInfo* This, MEMBERID memid, BSTR* rgBstrNames, UINT cMaxNames, UINT* pcNames);
  HRESULT(STDMETHODCALLTYPE* GetRefTypeOfImplType)(ITypeInfo* This, UINT index, HREFTYPE* pRefType);
  HRESULT(STDMETHODCALLTYPE* GetImplTypeFlags)(ITypeInfo* This, UINT index, INT* pImplTypeFlags);
  HRESULT(STDMETHODCALLTYPE* GetIDsOfNames)
  (ITypeInfo* This, LPOLESTR* rgszNames, UINT cNames, MEMBERID* pMemId);
  HRESULT(STDMETHODCALLTYPE* Invoke)
  (ITypeInfo* This, PVOID pvInstance, MEMBERID memid, WORD wFlags, DISPPARAMS* pDispParams,
   VARIANT* pVarResult, EXCEPINFO* pExcepInfo, UINT* puArgErr);
  HRESULT(STDMETHODCALLTYPE* GetDocumentation)
  (ITypeInfo* This, MEMBERID memid, BSTR* pBstrName, BSTR* pBstrDocString, DWORD* pdwHelpContext,
   BSTR* pBstrHelpFile);
  HRESULT(STDMETHODCALLTYPE* GetDllEntry)
  (ITypeInfo* This, MEMBERID memid, INVOKEKIND invKind, BSTR* pBstrDllName, BSTR* pBstrName,
   WORD* pwOrdinal);
  HRESULT(STDMETHODCALLTYPE* GetRefTypeInfo)
  (ITypeInfo* This, HREFTYPE hRefType, ITypeInfo** ppTInfo);
  HRESULT(STDMETHODCALLTYPE* AddressOfMember)
  (ITypeInfo* This, MEMBERID memid, INVOKEKIND invKind, PVOID* ppv);
  HRESULT(STDMETHODCALLTYPE* CreateInstance)
  (ITypeInfo* This, IUnknown* pUnkOuter, REFIID riid, PVOID* ppvObj);
  HRESULT(STDMETHODCALLTYPE* GetMops)(ITypeInfo* This, MEMBERID memid, BSTR* pBstrMops);
  HRESULT(STDMETHODCALLTYPE* GetContainingTypeLib)
  (ITypeInfo* This, ITypeLib** ppTLib, UINT* pIndex);
  void(STDMETHODCALLTYPE* ReleaseTypeAttr)(ITypeInfo* This, TYPEATTR* pTypeAttr);
  void(STDMETHODCALLTYPE* ReleaseFuncDesc)(ITypeInfo* This, FUNCDESC* pFuncDesc);
  void(STDMETHODCALLTYPE* ReleaseVarDesc)(ITypeInfo* This, VARDESC* pVarDesc);
} ITypeInfoVtbl;
struct ITypeInfo {
  const struct ITypeInfoVtbl* lpVtbl;
};

typedef struct ITypeLibVtbl {
  HRESULT(STDMETHODCALLTYPE* QueryInterface)(ITypeLib* This, REFIID riid, void** ppvObject);
  ULONG(STDMETHODCALLTYPE* AddRef)(ITypeLib* This);
  ULONG(STDMETHODCALLTYPE* Release)(ITypeLib* This);
  UINT(STDMETHODCALLTYPE* GetTypeInfoCount)(ITypeLib* This);
  HRESULT(STDMETHODCALLTYPE* GetTypeInfo)(ITypeLib* This, UINT index, ITypeInfo** ppTInfo);
  HRESULT(STDMETHODCALLTYPE* GetTypeInfoType)(ITypeLib* This, UINT index, TYPEKIND* pTKind);
  HRESULT(STDMETHODCALLTYPE* GetTypeInfoOfGuid)(ITypeLib* This, REFGUID guid, ITypeInfo** ppTinfo);
  HRESULT(STDMETHODCALLTYPE* GetLibAttr)(ITypeLib* This, TLIBATTR** ppTLibAttr);
  HRESULT(STDMETHODCALLTYPE* GetTypeComp)(ITypeLib* This, ITypeComp** ppTComp);
  HRESULT(STDMETHODCALLTYPE* GetDocumentation)
  (ITypeLib* This, INT index, BSTR* pBstrName, BSTR* pBstrDocString, DWORD* pdwHelpContext,
   BSTR* pBstrHelpFile);
  HRESULT(STDMETHODCALLTYPE* IsName)
  (ITypeLib* This, LPOLESTR szNameBuf, ULONG lHashVal, BOOL* pfName);
  HRESULT(STDMETHODCALLTYPE* FindName)
  (ITypeLib* This, LPOLESTR szNameBuf, ULONG lHashVal, ITypeInfo** ppTInfo, MEMBERID* rgMemId,
   USHORT* pcFound);
  void(STDMETHODCALLTYPE* ReleaseTLibAttr)(ITypeLib* This, TLIBATTR* pTLibAttr);
} ITypeLibVtbl;
struct ITypeLib {
  const struct ITypeLibVtbl* lpVtbl;
};

/* ---- Strings ----
 * A BSTR points at its first UTF-16 unit; the 4 bytes before it hold the length in bytes and two
 * zero bytes follow it. A NULL BSTR is the empty string to every function below. */
QUIV_API BSTR SysAllocString(const OLECHAR* psz);
QUIV_API BSTR SysAllocStringLen(const OLECHAR* strIn, UINT ui);
QUIV_API BSTR SysAllocStringByteLen(LPCSTR psz, UINT len);
QUIV_API INT SysReAllocString(BSTR* pbstr, const OLECHAR* psz);
QUIV_API INT SysReAllocStringLen(BSTR* pbstr, const OLECHAR* psz, UINT len);
QUIV_API void SysFreeString(BSTR bstrString);
QUIV_API UINT SysStringLen(BSTR pbstr);
QUIV_API UINT SysStringByteLen(BSTR bstr);

/* ---- Variants ---- */
QUIV_API void VariantInit(VARIANTARG* pvarg);
QUIV_API HRESULT VariantClear(VARIANTARG* pvarg);
QUIV_API HRESULT VariantCopy(VARIANTARG* pvargDest, const VARIANTARG* pvargSrc);
QUIV_API HRESULT VariantCopyInd(VARIANT* pvarDest, const VARIANTARG* pvargSrc);
QUIV_API HRESULT VariantChangeType(VARIANTARG* pvargDest, const VARIANTARG* pvarSrc, USHORT wFlags,
                                   VARTYPE vt);
QUIV_API HRESULT VariantChangeTypeEx(VARIANTARG* pvargDest, const VARIANTARG* pvarSrc, LCID lcid,
                                     USHORT wFlags, VARTYPE vt);

/* ---- Safe arrays ---- */
QUIV_API SAFEARRAY* SafeArrayCreateVector(VARTYPE vt, LONG lLbound, ULONG cElements);
QUIV_API HRESULT SafeArrayDestroy(SAFEARRAY* psa);
QUIV_API HRESULT SafeArrayCopy(SAFEARRAY* psa, SAFEARRAY** ppsaOut);
QUIV_API HRESULT SafeArrayLock(SAFEARRAY* psa);
QUIV_API HRESULT SafeArrayUnlock(SAFEARRAY* psa);
QUIV_API HRESULT SafeArrayAccessData(SAFEARRAY* psa, void** ppvData);
QUIV_API HRESULT SafeArrayUnaccessData(SAFEARRAY* psa);
QUIV_API HRESULT SafeArrayGetUBound(SAFEARRAY* psa, UINT nDim, LONG* plUbound);
QUIV_API HRESULT SafeArrayGetLBound(SAFEARRAY* psa, UINT nDim, LONG* plLbound);
QUIV_API UINT SafeArrayGetDim(SAFEARRAY* psa);
QUIV_API UINT SafeArrayGetElemsize(SAFEARRAY* psa);
QUIV_API HRESULT SafeArrayGetVartype(SAFEARRAY* psa, VARTYPE* pvt);

/* ---- GUID text: "{XXXXXXXX-XXXX-XXXX-XXXX-XXXXXXXXXXXX}" ---- */
QUIV_API HRESULT CLSIDFromString(LPCOLESTR lpsz, LPCLSID pclsid);
QUIV_API HRESULT IIDFromString(LPCOLESTR lpsz, LPIID lpiid);
QUIV_API int StringFromGUID2(REFGUID rguid, LPOLESTR lpsz, int cchMax);

#ifdef __cplusplus
}
#endif

#endif
