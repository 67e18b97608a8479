"""Finding and loading libquiv, and the C helpers it exports under the platform's names."""

import ctypes
import ctypes.util
import os
import pathlib
from ctypes import POINTER, c_int32, c_uint16, c_uint32, c_void_p

from . import _com

_HERE = pathlib.Path(__file__).resolve().parent
# bindings/python/quiv -> the repository's root, for a package used from a source checkout.
_SOURCE_ROOT = _HERE.parent.parent.parent
_BUILD_FOLDERS = ("build/release", "build/test", "build/bench")
_INSTALLED = ("/usr/local/lib", "/usr/lib", "/usr/lib/x86_64-linux-gnu")


class LibraryNotFound(ImportError):
    """libquiv could not be found or loaded; the message names every place that was tried."""


def registry_files():
    """The registry files the library's registration writes, most specific first."""
    files = []
    if os.environ.get("QUIV_REGISTRY"):
        files.append(pathlib.Path(os.environ["QUIV_REGISTRY"]))
    config = os.environ.get("XDG_CONFIG_HOME") or os.path.join(os.path.expanduser("~"), ".config")
    files.append(pathlib.Path(config) / "quiv" / "registry")
    files.append(pathlib.Path("/etc/quiv/registry"))
    return files


_MARKER = "quiv-registry 1"


def _registered_paths(registry):
    """The libraries a registry file names for the library's classes, QUIV.CProvider's first.
    The file: a "quiv-registry 1" line, then one [program id] section per class whose
    "library = /path" line names the in-process server."""
    try:
        lines = registry.read_text(encoding="utf-8").splitlines()
    except (OSError, UnicodeDecodeError):
        return []
    lines = [line.strip() for line in lines if line.strip() and not line.lstrip().startswith("#")]
    if not lines or lines[0] != _MARKER:
        return []
    paths, section = [], ""
    for line in lines[1:]:
        if line.startswith("[") and line.endswith("]"):
            section = line[1:-1].strip()
            continue
        key, _, value = line.partition("=")
        if key.strip() == "library" and section.upper().startswith("QUIV."):
            path = value.strip()
            if section.upper() == "QUIV.CPROVIDER":
                paths.insert(0, path)
            else:
                paths.append(path)
    return list(dict.fromkeys(paths))


def candidates():
    """(description, path) of each place libquiv is looked for, in order."""
    places = []
    if os.environ.get("QUIV_LIBRARY"):
        return [("QUIV_LIBRARY", os.environ["QUIV_LIBRARY"])]
    for registry in registry_files():
        for path in _registered_paths(registry):
            places.append((f"registry {registry}", path))
    for folder in _INSTALLED:
        places.append(("installed", os.path.join(folder, "libquiv.so.1")))
    found = ctypes.util.find_library("quiv")
    if found:
        places.append(("linker search path", found))
    for folder in _BUILD_FOLDERS:
        places.append(("build tree", str(_SOURCE_ROOT / folder / "src" / "libquiv.so")))
    return places


def _load():
    tried = []
    for origin, path in candidates():
        if origin != "linker search path" and not os.path.exists(path):
            tried.append(f"{path} ({origin}: no such file)")
            continue
        try:
            return ctypes.CDLL(path), path
        except OSError as error:
            hint = ""
            if "runtime does not come first" in str(error):
                hint = "; a sanitizer build needs LD_PRELOAD of its runtime"
            tried.append(f"{path} ({origin}: {error}{hint})")
    raise LibraryNotFound("libquiv not found; set QUIV_LIBRARY=/path/to/libquiv.so. Looked in:\n  "
                          + "\n  ".join(tried))


class Library:
    """libquiv with the prototypes of the helpers the client calls."""

    def __init__(self):
        self.dll, self.path = _load()
        self._declare("SysAllocStringLen", c_void_p, c_void_p, c_uint32)
        self._declare("SysFreeString", None, c_void_p)
        self._declare("SysStringLen", c_uint32, c_void_p)
        self._declare("SysStringByteLen", c_uint32, c_void_p)
        self._declare("VariantInit", None, POINTER(_com.VARIANT))
        self._declare("VariantClear", _com.HRESULT, POINTER(_com.VARIANT))
        self._declare("VariantCopy", _com.HRESULT, POINTER(_com.VARIANT), POINTER(_com.VARIANT))
        self._declare("VariantChangeType", _com.HRESULT, POINTER(_com.VARIANT),
                      POINTER(_com.VARIANT), c_uint16, c_uint16)
        self._declare("SafeArrayCreateVector", c_void_p, c_uint16, c_int32, c_uint32)
        self._declare("SafeArrayAccessData", _com.HRESULT, c_void_p, POINTER(c_void_p))
        self._declare("SafeArrayUnaccessData", _com.HRESULT, c_void_p)
        self._declare("SafeArrayGetLBound", _com.HRESULT, c_void_p, c_uint32, POINTER(c_int32))
        self._declare("SafeArrayGetUBound", _com.HRESULT, c_void_p, c_uint32, POINTER(c_int32))
        self._declare("SafeArrayDestroy", _com.HRESULT, c_void_p)

    def _declare(self, name, restype, *argtypes):
        try:
            function = getattr(self.dll, name)
        except AttributeError:
            raise LibraryNotFound(f"{self.path} does not export {name}: it is not a libquiv "
                                  "with the automation surface") from None
        function.restype = restype
        function.argtypes = argtypes
        setattr(self, name, function)

    def optional(self, name, restype, *argtypes):
        """The exported function `name` with its prototype, or None when the library lacks it."""
        function = getattr(self.dll, name, None)
        if function is not None:
            function.restype = restype
            function.argtypes = argtypes
        return function


_library = None


def library():
    """The process's one Library, loaded on first use."""
    global _library
    if _library is None:
        _library = Library()
    return _library


def loaded():
    return _library is not None


def utf16(text):
    """A NUL-terminated UTF-16 buffer of `text` (for LPOLESTR arguments)."""
    return ctypes.create_string_buffer(text.encode("utf-16-le", "surrogatepass") + b"\0\0")

