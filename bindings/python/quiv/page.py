"""The page context of a WSGI request, as the library's error records read it.

A web server hands each object a page creates its page context through OnStartPage; an error
record made during the request then shows the page's URL ("Pg:"), the server's own address
("WSrvr:") and the request's cookies ("Cookies:"). PageContext(environ) is that page context for
a WSGI request: an IDispatch implemented here, in Python, that answers the library's late-bound
calls ServerVariable(name) and QueryString.
"""

import ctypes
import threading
import weakref
from ctypes import POINTER, c_uint16, c_uint32, c_void_p

from . import _com, _convert

_S_OK = _com.S_OK
_E_NOTIMPL = _com._hr(0x80004001)

# Dispatch ids of the members the page answers; names are matched case-insensitively.
_DISPID_SERVERVARIABLE = 1
_DISPID_QUERYSTRING = 2
_NAMES = {"servervariable": _DISPID_SERVERVARIABLE, "servervariables": _DISPID_SERVERVARIABLE,
          "querystring": _DISPID_QUERYSTRING}


def _text(value):
    """A WSGI environ string (bytes carried as latin-1) as the text it stands for."""
    try:
        return value.encode("latin-1").decode("utf-8")
    except (UnicodeEncodeError, UnicodeDecodeError):
        return value


def _local_address(environ):
    """The server's own address for this request: the socket's local end where the server
    gives it (gunicorn), else what the server says."""
    for key in ("LOCAL_ADDR", "SERVER_ADDR"):
        if environ.get(key):
            return environ[key]
    sock = environ.get("gunicorn.socket")
    if sock is not None:
        try:
            return sock.getsockname()[0]
        except OSError:
            pass
    return environ.get("SERVER_NAME", "")


def server_variables(environ):
    """The request's server variables as a web server on the old platform names them: the CGI
    variables of the environ, PATH_INFO as the full path of the page, LOCAL_ADDR the server's
    own address."""
    variables = {key: _text(value) for key, value in environ.items()
                 if isinstance(value, str) and key.isupper()}
    variables["PATH_INFO"] = _text(environ.get("SCRIPT_NAME", "") + environ.get("PATH_INFO", ""))
    variables["LOCAL_ADDR"] = _local_address(environ)
    variables["HTTP_COOKIE"] = _text(environ.get("HTTP_COOKIE", ""))
    variables.setdefault("QUERY_STRING", "")
    return variables


_Proto = ctypes.CFUNCTYPE
_QueryInterface = _Proto(_com.HRESULT, c_void_p, POINTER(_com.GUID), POINTER(c_void_p))
_AddRef = _Proto(c_uint32, c_void_p)
_Release = _Proto(c_uint32, c_void_p)
_GetTypeInfoCount = _Proto(_com.HRESULT, c_void_p, POINTER(c_uint32))
_GetTypeInfo = _Proto(_com.HRESULT, c_void_p, c_uint32, _com.LCID, POINTER(c_void_p))
_GetIDsOfNames = _Proto(_com.HRESULT, c_void_p, POINTER(_com.GUID), POINTER(c_void_p), c_uint32,
                        _com.LCID, POINTER(_com.DISPID))
_Invoke = _Proto(_com.HRESULT, c_void_p, _com.DISPID, POINTER(_com.GUID), _com.LCID, c_uint16,
                 POINTER(_com.DISPPARAMS), POINTER(_com.VARIANT), POINTER(_com.EXCEPINFO),
                 POINTER(c_uint32))

# Every page by the address the library sees. The library's references keep a page alive (in
# _held) even after Python dropped its own.
_pages = weakref.WeakValueDictionary()
_held = {}
_lock = threading.Lock()


def _page(this):
    return _pages.get(this)


def _query_interface(this, iid, out):
    try:
        wanted = bytes(iid.contents)
        if wanted in (bytes(_com.IID_IUnknown), bytes(_com.IID_IDispatch)):
            out[0] = this
            _add_ref(this)
            return _S_OK
        out[0] = None
        return _com.E_NOINTERFACE
    except Exception:  # nothing may unwind into the library
        return _com.E_FAIL


def _add_ref(this):
    with _lock:
        page = _pages.get(this)
        if page is None:
            return 0
        page._count += 1
        _held[this] = page
        return page._count + 1  # the library's references and Python's


def _release(this):
    with _lock:
        page = _pages.get(this)
        if page is None or page._count == 0:
            return 0
        page._count -= 1
        if page._count == 0:
            _held.pop(this, None)
        return page._count + 1


def _get_type_info_count(this, count):
    count[0] = 0
    return _S_OK


def _get_type_info(this, index, lcid, out):
    out[0] = None
    return _E_NOTIMPL


def _get_ids_of_names(this, iid, names, count, lcid, ids):
    result = _S_OK
    for i in range(count):
        name = _utf16z(names[i])
        ids[i] = _NAMES.get(name.lower(), _com.DISPID_UNKNOWN)
        if ids[i] == _com.DISPID_UNKNOWN:
            result = _com.DISP_E_UNKNOWNNAME
    return result


def _utf16z(address):
    """The NUL-terminated UTF-16 string at `address`."""
    units = ctypes.cast(address, POINTER(c_uint16))
    n = 0
    while units[n]:
        n += 1
    return ctypes.string_at(address, 2 * n).decode("utf-16-le", "surrogatepass")


def _invoke(this, dispid, iid, lcid, flags, params, result, excepinfo, argerr):
    try:
        page = _page(this)
        if page is None:
            return _com.E_FAIL
        args = params.contents if params else None
        count = args.cArgs if args else 0
        if dispid in (_DISPID_SERVERVARIABLE, _com.DISPID_VALUE):
            if count != 1:
                return _com.DISP_E_BADPARAMCOUNT
            name = _convert.load(args.rgvarg[0], lambda p: None)
            if not isinstance(name, str):
                if argerr:
                    argerr[0] = 0
                return _com.DISP_E_TYPEMISMATCH
            value = page.server_variable(name)
        elif dispid == _DISPID_QUERYSTRING:
            if count != 0:
                return _com.DISP_E_BADPARAMCOUNT
            value = page.query_string
        else:
            return _com.DISP_E_MEMBERNOTFOUND
        if result:
            _convert.store(result.contents, value, _com.VT_BSTR)
        return _S_OK
    except Exception:
        return _com.E_FAIL


class _Vtbl(ctypes.Structure):
    _fields_ = [("QueryInterface", _QueryInterface), ("AddRef", _AddRef), ("Release", _Release),
                ("GetTypeInfoCount", _GetTypeInfoCount), ("GetTypeInfo", _GetTypeInfo),
                ("GetIDsOfNames", _GetIDsOfNames), ("Invoke", _Invoke)]


_VTBL = _Vtbl(_QueryInterface(_query_interface), _AddRef(_add_ref), _Release(_release),
              _GetTypeInfoCount(_get_type_info_count), _GetTypeInfo(_get_type_info),
              _GetIDsOfNames(_get_ids_of_names), _Invoke(_invoke))


class PageContext:
    """The page context of one WSGI request (or of explicit server variables and a query
    string). Pass it to an object's OnStartPage, or give the environ to
    quiv.Dispatch(progid, page=environ), which does that for you."""

    def __init__(self, environ=None, *, variables=None, query_string=None):
        environ = environ or {}
        self.variables = server_variables(environ) if environ else {}
        if variables:
            self.variables.update({k.upper(): v for k, v in variables.items()})
        if query_string is None:
            query_string = _text(environ.get("QUERY_STRING", ""))
        self.query_string = query_string
        self._object = c_void_p(ctypes.addressof(_VTBL))  # the interface: a vtable pointer
        self._count = 0  # references the library holds
        with _lock:
            _pages[ctypes.addressof(self._object)] = self

    def server_variable(self, name):
        """The server variable `name` (case-insensitive); "" when the request has none."""
        return self.variables.get(name.upper(), "")

    @property
    def url(self):
        """The page's URL as the error record shows it: PATH_INFO "?" query string."""
        return f"{self.server_variable('PATH_INFO')}?{self.query_string}"

    def _quiv_dispatch_pointer(self):
        return ctypes.addressof(self._object)

    def __repr__(self):
        return f"<quiv.PageContext {self.url!r}>"
