"""Creating objects by program id or class id, through the library's own creation function
(the counterpart of the platform's create-by-program-id), which reads the registry that the
library's registration writes and falls back to the library's own classes."""

import ctypes
from ctypes import POINTER, c_void_p

from . import _com
from ._library import library, utf16
from .errors import ComError

_creator = None


def _create_function():
    global _creator
    if _creator is None:
        function = library().optional("QuivCreateObject", _com.HRESULT, c_void_p,
                                      POINTER(_com.GUID), POINTER(c_void_p))
        if function is None:
            raise ComError(_com.REGDB_E_CLASSNOTREG,
                           f"{library().path} exports no QuivCreateObject")
        _creator = function
    return _creator


def create_dispatch(progid):
    """A new IDispatch (a reference the caller releases) of the class `progid`."""
    if not isinstance(progid, str):
        raise TypeError("the program id is a str such as 'QUIV.CProvider'")
    out = c_void_p()
    name = utf16(progid)
    hr = _create_function()(ctypes.addressof(name), ctypes.byref(_com.IID_IDispatch),
                            ctypes.byref(out))
    if _com.failed(hr) or not out.value:
        raise ComError(hr, f"creating {progid!r}")
    return out.value


def global_object(class_name):
    """The predeclared global instance of an application-object class (CConstQUIV)."""
    from ._dispatch import wrap
    pointer = create_dispatch(f"QUIV.{class_name}")
    try:
        return wrap(pointer)
    finally:
        _com.release(pointer)
