"""Creating objects by program id or class id through the library's own creation function
(QuivCreateObject, the counterpart of the platform's create-by-program-id: it reads the registry
the library's registration writes and falls back to the library's own classes), and the
predeclared global object (QuivGetAppObject)."""

import ctypes
from ctypes import POINTER, c_void_p

from . import _com
from ._library import library, utf16
from .errors import ComError

_functions = {}


def _function(name, *argtypes):
    function = _functions.get(name)
    if function is None:
        function = library().optional(name, _com.HRESULT, *argtypes)
        if function is None:
            raise ComError(_com.E_FAIL, f"{library().path} exports no {name}")
        _functions[name] = function
    return function


def create_dispatch(progid):
    """A new IDispatch (a reference the caller releases) of the class `progid`
    ("QUIV.CProvider" or a class id in braces)."""
    if not isinstance(progid, str):
        raise TypeError("the program id is a str such as 'QUIV.CProvider'")
    out = c_void_p()
    name = utf16(progid)
    hr = _function("QuivCreateObject", c_void_p, POINTER(c_void_p))(
        ctypes.addressof(name), ctypes.byref(out))
    if _com.failed(hr) or not out.value:
        raise ComError(hr, f"creating {progid!r}")
    return out.value


def global_object():
    """The predeclared global instance of the application object (CConstQUIV)."""
    from ._dispatch import wrap
    out = c_void_p()
    hr = _function("QuivGetAppObject", POINTER(c_void_p))(ctypes.byref(out))
    if _com.failed(hr) or not out.value:
        raise ComError(hr, "the global CConstQUIV")
    try:
        return wrap(out.value)
    finally:
        _com.release(out.value)
