"""The component object model's binary layout as the library exports it (64-bit, System V).

Structures and constants the client needs to call IUnknown, IDispatch and ITypeInfo by slot,
and to build and read VARIANTs, DISPPARAMS and EXCEPINFO. Field orders and sizes are those of
the platform's own headers on 64-bit Windows, which the library reproduces.
"""

import ctypes
import uuid
from ctypes import (POINTER, Structure, Union, c_double, c_float, c_int16, c_int32, c_int64,
                    c_uint16, c_uint32, c_ubyte, c_void_p)

HRESULT = c_int32
DISPID = c_int32
LCID = c_uint32

# VARTYPE values.
VT_EMPTY = 0
VT_NULL = 1
VT_I2 = 2
VT_I4 = 3
VT_R4 = 4
VT_R8 = 5
VT_CY = 6
VT_DATE = 7
VT_BSTR = 8
VT_DISPATCH = 9
VT_ERROR = 10
VT_BOOL = 11
VT_VARIANT = 12
VT_UNKNOWN = 13
VT_I1 = 16
VT_UI1 = 17
VT_UI2 = 18
VT_UI4 = 19
VT_I8 = 20
VT_UI8 = 21
VT_INT = 22
VT_UINT = 23
VT_VOID = 24
VT_HRESULT = 25
VT_PTR = 26
VT_SAFEARRAY = 27
VT_USERDEFINED = 29
VT_ARRAY = 0x2000
VT_BYREF = 0x4000
VT_TYPEMASK = 0x0FFF

# IDispatch::Invoke flags and special dispatch ids.
DISPATCH_METHOD = 1
DISPATCH_PROPERTYGET = 2
DISPATCH_PROPERTYPUT = 4
DISPATCH_PROPERTYPUTREF = 8
DISPID_VALUE = 0
DISPID_PROPERTYPUT = -3
DISPID_UNKNOWN = -1

# ITypeInfo enumerations.
TKIND_ENUM = 0
TKIND_INTERFACE = 3
TKIND_DISPATCH = 4
TKIND_COCLASS = 5
TKIND_ALIAS = 6
INVOKE_FUNC = 1
INVOKE_PROPERTYGET = 2
INVOKE_PROPERTYPUT = 4
INVOKE_PROPERTYPUTREF = 8
PARAMFLAG_FIN = 0x1
PARAMFLAG_FOUT = 0x2
PARAMFLAG_FRETVAL = 0x8
PARAMFLAG_FOPT = 0x10
PARAMFLAG_FHASDEFAULT = 0x20
VAR_PERINSTANCE = 0
VAR_CONST = 2
VAR_DISPATCH = 3

LOCALE_USER_DEFAULT = 0x0400

# VARIANT_BOOL.
VARIANT_TRUE = -1
VARIANT_FALSE = 0


def _hr(value):
    """An HRESULT written as the unsigned hex the platform documents, as the signed 32-bit int."""
    return ctypes.c_int32(value).value


S_OK = 0
S_FALSE = 1
E_NOINTERFACE = _hr(0x80004002)
E_POINTER = _hr(0x80004003)
E_FAIL = _hr(0x80004005)
E_INVALIDARG = _hr(0x80070057)
E_OUTOFMEMORY = _hr(0x8007000E)
CLASS_E_CLASSNOTAVAILABLE = _hr(0x80040111)
REGDB_E_CLASSNOTREG = _hr(0x80040154)
CO_E_CLASSSTRING = _hr(0x800401F3)
DISP_E_UNKNOWNINTERFACE = _hr(0x80020001)
DISP_E_MEMBERNOTFOUND = _hr(0x80020003)
DISP_E_PARAMNOTFOUND = _hr(0x80020004)
DISP_E_TYPEMISMATCH = _hr(0x80020005)
DISP_E_UNKNOWNNAME = _hr(0x80020006)
DISP_E_NONAMEDARGS = _hr(0x80020007)
DISP_E_BADVARTYPE = _hr(0x80020008)
DISP_E_EXCEPTION = _hr(0x80020009)
DISP_E_OVERFLOW = _hr(0x8002000A)
DISP_E_BADINDEX = _hr(0x8002000B)
DISP_E_BADPARAMCOUNT = _hr(0x8002000E)
DISP_E_PARAMNOTOPTIONAL = _hr(0x8002000F)

HRESULT_NAMES = {
    S_OK: "S_OK", S_FALSE: "S_FALSE", E_NOINTERFACE: "E_NOINTERFACE", E_POINTER: "E_POINTER",
    E_FAIL: "E_FAIL", E_INVALIDARG: "E_INVALIDARG", E_OUTOFMEMORY: "E_OUTOFMEMORY",
    CLASS_E_CLASSNOTAVAILABLE: "CLASS_E_CLASSNOTAVAILABLE",
    REGDB_E_CLASSNOTREG: "REGDB_E_CLASSNOTREG", CO_E_CLASSSTRING: "CO_E_CLASSSTRING",
    DISP_E_UNKNOWNINTERFACE: "DISP_E_UNKNOWNINTERFACE",
    DISP_E_MEMBERNOTFOUND: "DISP_E_MEMBERNOTFOUND",
    DISP_E_PARAMNOTFOUND: "DISP_E_PARAMNOTFOUND", DISP_E_TYPEMISMATCH: "DISP_E_TYPEMISMATCH",
    DISP_E_UNKNOWNNAME: "DISP_E_UNKNOWNNAME", DISP_E_NONAMEDARGS: "DISP_E_NONAMEDARGS",
    DISP_E_BADVARTYPE: "DISP_E_BADVARTYPE", DISP_E_EXCEPTION: "DISP_E_EXCEPTION",
    DISP_E_OVERFLOW: "DISP_E_OVERFLOW", DISP_E_BADINDEX: "DISP_E_BADINDEX",
    DISP_E_BADPARAMCOUNT: "DISP_E_BADPARAMCOUNT",
    DISP_E_PARAMNOTOPTIONAL: "DISP_E_PARAMNOTOPTIONAL",
}


def failed(hr):
    return hr < 0


class GUID(Structure):
    _fields_ = [("Data1", c_uint32), ("Data2", c_uint16), ("Data3", c_uint16),
                ("Data4", c_ubyte * 8)]

    @classmethod
    def parse(cls, text):
        """A GUID from its registry form, with or without braces."""
        return cls.from_buffer_copy(uuid.UUID(text.strip("{}")).bytes_le)

    def __str__(self):
        return "{" + str(uuid.UUID(bytes_le=bytes(self))).upper() + "}"

    def __eq__(self, other):
        return isinstance(other, GUID) and bytes(self) == bytes(other)

    def __hash__(self):
        return hash(bytes(self))


IID_NULL = GUID()
IID_IUnknown = GUID.parse("{00000000-0000-0000-C000-000000000046}")
IID_IDispatch = GUID.parse("{00020400-0000-0000-C000-000000000046}")


class _VariantValue(Union):
    _fields_ = [("llVal", c_int64), ("lVal", c_int32), ("iVal", c_int16), ("bVal", c_ubyte),
                ("fltVal", c_float), ("dblVal", c_double), ("boolVal", c_int16),
                ("scode", c_int32), ("bstrVal", c_void_p), ("pdispVal", c_void_p),
                ("punkVal", c_void_p), ("parray", c_void_p), ("byref", c_void_p),
                ("record", c_void_p * 2)]


class VARIANT(Structure):
    _fields_ = [("vt", c_uint16), ("wReserved1", c_uint16), ("wReserved2", c_uint16),
                ("wReserved3", c_uint16), ("v", _VariantValue)]


assert ctypes.sizeof(VARIANT) == 24


class DISPPARAMS(Structure):
    _fields_ = [("rgvarg", POINTER(VARIANT)), ("rgdispidNamedArgs", POINTER(DISPID)),
                ("cArgs", c_uint32), ("cNamedArgs", c_uint32)]


class EXCEPINFO(Structure):
    pass


EXCEPINFO._fields_ = [("wCode", c_uint16), ("wReserved", c_uint16), ("bstrSource", c_void_p),
                      ("bstrDescription", c_void_p), ("bstrHelpFile", c_void_p),
                      ("dwHelpContext", c_uint32), ("pvReserved", c_void_p),
                      ("pfnDeferredFillIn", c_void_p), ("scode", c_int32)]


class SAFEARRAYBOUND(Structure):
    _fields_ = [("cElements", c_uint32), ("lLbound", c_int32)]


class TYPEDESC(Structure):
    pass


TYPEDESC._fields_ = [("u", c_void_p), ("vt", c_uint16)]  # u: TYPEDESC* for VT_PTR, else HREFTYPE


class PARAMDESCEX(Structure):
    _fields_ = [("cBytes", c_uint32), ("varDefaultValue", VARIANT)]


class PARAMDESC(Structure):
    _fields_ = [("pparamdescex", POINTER(PARAMDESCEX)), ("wParamFlags", c_uint16)]


class ELEMDESC(Structure):
    # The second member is a union of IDLDESC and PARAMDESC, which share this layout.
    _fields_ = [("tdesc", TYPEDESC), ("paramdesc", PARAMDESC)]


class TYPEATTR(Structure):
    _fields_ = [("guid", GUID), ("lcid", LCID), ("dwReserved", c_uint32),
                ("memidConstructor", DISPID), ("memidDestructor", DISPID),
                ("lpstrSchema", c_void_p), ("cbSizeInstance", c_uint32), ("typekind", c_int32),
                ("cFuncs", c_uint16), ("cVars", c_uint16), ("cImplTypes", c_uint16),
                ("cbSizeVft", c_uint16), ("cbAlignment", c_uint16), ("wTypeFlags", c_uint16),
                ("wMajorVerNum", c_uint16), ("wMinorVerNum", c_uint16),
                ("tdescAlias", TYPEDESC), ("idldescType", PARAMDESC)]


class FUNCDESC(Structure):
    _fields_ = [("memid", DISPID), ("lprgscode", c_void_p),
                ("lprgelemdescParam", POINTER(ELEMDESC)), ("funckind", c_int32),
                ("invkind", c_int32), ("callconv", c_int32), ("cParams", c_int16),
                ("cParamsOpt", c_int16), ("oVft", c_int16), ("cScodes", c_int16),
                ("elemdescFunc", ELEMDESC), ("wFuncFlags", c_uint16)]


class VARDESC(Structure):
    _fields_ = [("memid", DISPID), ("lpstrSchema", c_void_p), ("u", c_void_p),
                ("elemdescVar", ELEMDESC), ("wVarFlags", c_uint16), ("varkind", c_int32)]


assert ctypes.sizeof(TYPEATTR) == 96 and ctypes.sizeof(FUNCDESC) == 88
assert ctypes.sizeof(ELEMDESC) == 32 and ctypes.sizeof(VARDESC) == 64
assert ctypes.sizeof(EXCEPINFO) == 64 and ctypes.sizeof(DISPPARAMS) == 24

# Vtable slots: IUnknown, then IDispatch, ITypeInfo, ITypeLib and IClassFactory after it.
SLOT_QUERYINTERFACE, SLOT_ADDREF, SLOT_RELEASE = 0, 1, 2
SLOT_GETTYPEINFOCOUNT, SLOT_GETTYPEINFO, SLOT_GETIDSOFNAMES, SLOT_INVOKE = 3, 4, 5, 6
TI_GETTYPEATTR, TI_GETFUNCDESC, TI_GETVARDESC, TI_GETNAMES = 3, 5, 6, 7
TI_GETREFTYPEOFIMPLTYPE, TI_GETIDSOFNAMES, TI_GETDOCUMENTATION = 8, 10, 12
TI_GETREFTYPEINFO, TI_GETCONTAININGTYPELIB = 14, 18
TI_RELEASETYPEATTR, TI_RELEASEFUNCDESC, TI_RELEASEVARDESC = 19, 20, 21
TL_GETTYPEINFOCOUNT, TL_GETTYPEINFO, TL_GETTYPEINFOTYPE, TL_GETTYPEINFOOFGUID = 3, 4, 5, 6
TL_GETLIBATTR, TL_GETDOCUMENTATION, TL_RELEASETLIBATTR = 7, 9, 12
CF_CREATEINSTANCE = 3

_prototypes = {}
_functions = {}


def method(pointer, slot, restype, *argtypes):
    """The function in vtable slot `slot` of the interface at `pointer`, as a ctypes callable
    that takes the interface pointer as its first argument. Callables are kept by address and
    signature: every object of a class shares its vtable."""
    address = ctypes.cast(pointer, POINTER(POINTER(c_void_p)))[0][slot]
    key = (address, restype, argtypes)
    function = _functions.get(key)
    if function is None:
        proto = _prototypes.get((restype, argtypes))
        if proto is None:
            proto = _prototypes[(restype, argtypes)] = ctypes.CFUNCTYPE(restype, c_void_p,
                                                                         *argtypes)
        function = _functions[key] = proto(address)
    return function


def add_ref(pointer):
    return method(pointer, SLOT_ADDREF, c_uint32)(pointer)


def release(pointer):
    return method(pointer, SLOT_RELEASE, c_uint32)(pointer)


def query_interface(pointer, iid):
    """The interface `iid` of the object at `pointer` (a new reference), or None."""
    out = c_void_p()
    hr = method(pointer, SLOT_QUERYINTERFACE, HRESULT, POINTER(GUID), POINTER(c_void_p))(
        pointer, ctypes.byref(iid), ctypes.byref(out))
    return out.value if hr == S_OK and out.value else None
