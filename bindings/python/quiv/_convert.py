"""Python values to and from VARIANTs, by the type of the parameter they are for.

str <-> BSTR, int <-> I2/I4, bool <-> BOOL, float <-> R8, bytes/bytearray <-> arrays of bytes,
the library's objects <-> IDispatch, None <-> Nothing (a null IDispatch).
"""

import ctypes
import enum
from ctypes import c_void_p

from . import _com
from ._library import library

_I2 = (-0x8000, 0x7FFF)
_I4 = (-0x80000000, 0x7FFFFFFF)


class ConversionError(TypeError):
    """A Python value that has no automation form."""


def bstr_from(text):
    """A new BSTR holding `text` (the caller frees it or hands it to a VARIANT)."""
    data = text.encode("utf-16-le", "surrogatepass")
    return library().SysAllocStringLen(data, len(data) // 2) if data else \
        library().SysAllocStringLen(None, 0)


def text_of(bstr):
    """The text of a BSTR; a null BSTR is the empty string, as the platform treats it."""
    if not bstr:
        return ""
    size = library().SysStringByteLen(bstr)
    data = ctypes.string_at(bstr, size)
    if size % 2:
        data += b"\0"  # a string of raw bytes may hold an odd count; keep the last byte
    return data.decode("utf-16-le", "surrogatepass")


def safearray_from(data):
    lib = library()
    data = bytes(data)
    array = lib.SafeArrayCreateVector(_com.VT_UI1, 0, len(data))
    if not array:
        raise MemoryError("SafeArrayCreateVector failed")
    if data:
        pointer = c_void_p()
        lib.SafeArrayAccessData(array, ctypes.byref(pointer))
        ctypes.memmove(pointer, data, len(data))
        lib.SafeArrayUnaccessData(array)
    return array


def bytes_of(array):
    """The bytes of a one-dimensional SAFEARRAY of bytes (b"" for a null array)."""
    if not array:
        return b""
    lib = library()
    low, high = ctypes.c_int32(), ctypes.c_int32()
    lib.SafeArrayGetLBound(array, 1, ctypes.byref(low))
    lib.SafeArrayGetUBound(array, 1, ctypes.byref(high))
    count = high.value - low.value + 1
    if count <= 0:
        return b""
    pointer = c_void_p()
    lib.SafeArrayAccessData(array, ctypes.byref(pointer))
    try:
        return ctypes.string_at(pointer, count)
    finally:
        lib.SafeArrayUnaccessData(array)


def _int_vt(value, vt):
    """The VARTYPE a Python int travels as for a parameter of type `vt`."""
    if vt == _com.VT_I2 and _I2[0] <= value <= _I2[1]:
        return _com.VT_I2
    if _I4[0] <= value <= _I4[1]:
        return _com.VT_I4
    # Too large for either: a double keeps the value, and the library's coercion answers an
    # integer parameter with its overflow error.
    return _com.VT_R8


def store(variant, value, vt=_com.VT_VARIANT):
    """Writes `value` into the empty `variant`, as the type `vt` of the parameter it is for
    (VT_VARIANT when any type is accepted). Objects get a reference of their own."""
    if isinstance(value, enum.Enum):
        value = value.value
    if value is None:
        if vt in (_com.VT_DISPATCH, _com.VT_UNKNOWN, _com.VT_VARIANT):
            variant.vt = _com.VT_DISPATCH
            variant.v.pdispVal = None
        else:
            variant.vt = _com.VT_EMPTY
    elif isinstance(value, bool):
        variant.vt = _com.VT_BOOL
        variant.v.boolVal = _com.VARIANT_TRUE if value else _com.VARIANT_FALSE
    elif isinstance(value, int):
        if vt == _com.VT_BOOL:
            variant.vt = _com.VT_BOOL
            variant.v.boolVal = _com.VARIANT_TRUE if value else _com.VARIANT_FALSE
            return
        if vt == _com.VT_R8:
            variant.vt = _com.VT_R8
            variant.v.dblVal = float(value)
            return
        variant.vt = _int_vt(value, vt)
        if variant.vt == _com.VT_I2:
            variant.v.iVal = value
        elif variant.vt == _com.VT_I4:
            variant.v.lVal = value
        else:
            variant.v.dblVal = float(value)
    elif isinstance(value, float):
        variant.vt = _com.VT_R8
        variant.v.dblVal = value
    elif isinstance(value, str):
        variant.vt = _com.VT_BSTR
        variant.v.bstrVal = bstr_from(value)
    elif isinstance(value, (bytes, bytearray, memoryview)):
        variant.vt = _com.VT_ARRAY | _com.VT_UI1
        variant.v.parray = safearray_from(value)
    elif hasattr(value, "_quiv_dispatch_pointer"):
        pointer = value._quiv_dispatch_pointer()
        _com.add_ref(pointer)
        variant.vt = _com.VT_DISPATCH
        variant.v.pdispVal = pointer
    else:
        raise ConversionError(f"{type(value).__name__} has no automation form")


_PLAIN = {_com.VT_EMPTY: lambda v: None, _com.VT_I2: lambda v: v.iVal,
          _com.VT_I4: lambda v: v.lVal, _com.VT_R8: lambda v: v.dblVal,
          _com.VT_BOOL: lambda v: v.boolVal != 0}


def load_result(variant, wrap):
    """The Python value of an Invoke result, which is then cleared (its string, array or
    object given back)."""
    plain = _PLAIN.get(variant.vt)
    if plain is not None:
        return plain(variant.v)
    try:
        return load(variant, wrap)
    finally:
        library().VariantClear(ctypes.byref(variant))


def load(variant, wrap):
    """The Python value of `variant`; `wrap(pointer)` makes the Python object for an IDispatch
    (taking its own reference)."""
    vt = variant.vt
    if vt & _com.VT_BYREF:
        return load_at(vt & ~_com.VT_BYREF, variant.v.byref, wrap)
    return _load_value(vt, variant.v, wrap)


def _load_value(vt, v, wrap):
    if vt in (_com.VT_EMPTY, _com.VT_NULL):
        return None
    if vt == _com.VT_I2:
        return v.iVal
    if vt in (_com.VT_I4, _com.VT_INT, _com.VT_ERROR):
        return v.lVal
    if vt == _com.VT_UI1:
        return v.bVal
    if vt in (_com.VT_UI4, _com.VT_UINT):
        return v.lVal & 0xFFFFFFFF
    if vt in (_com.VT_I8,):
        return v.llVal
    if vt == _com.VT_R8 or vt == _com.VT_DATE:
        return v.dblVal
    if vt == _com.VT_R4:
        return v.fltVal
    if vt == _com.VT_BOOL:
        return v.boolVal != 0
    if vt == _com.VT_BSTR:
        return text_of(v.bstrVal)
    if vt in (_com.VT_DISPATCH, _com.VT_UNKNOWN):
        return wrap(v.pdispVal) if v.pdispVal else None
    if vt == (_com.VT_ARRAY | _com.VT_UI1):
        return bytes_of(v.parray)
    raise ConversionError(f"VARTYPE 0x{vt:04X} has no Python form")


def load_at(vt, address, wrap):
    """The Python value stored at `address` as the type `vt` (the target of a VT_BYREF)."""
    if vt == _com.VT_VARIANT:
        return load(_com.VARIANT.from_address(address), wrap)
    holder = _com.VARIANT()
    ctypes.memmove(ctypes.byref(holder.v), address, _size_of(vt))
    return _load_value(vt, holder.v, wrap)


def _size_of(vt):
    if vt in (_com.VT_I2, _com.VT_BOOL, _com.VT_UI2):
        return 2
    if vt == _com.VT_UI1:
        return 1
    if vt in (_com.VT_I4, _com.VT_UI4, _com.VT_INT, _com.VT_UINT, _com.VT_ERROR, _com.VT_R4):
        return 4
    return 8


def empty_of(vt):
    """The value a by-reference output starts from when the caller gives none."""
    return {_com.VT_BSTR: "", _com.VT_I2: 0, _com.VT_I4: 0, _com.VT_R8: 0.0,
            _com.VT_BOOL: False, _com.VT_ARRAY | _com.VT_UI1: b""}.get(vt)
