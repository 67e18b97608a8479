"""QUIV from Python: the library's automation objects, created by name and called late-bound.

    import quiv
    provider = quiv.Dispatch("QUIV.CProvider")
    ok, = provider.SetProviderTypeID(quiv.constants.PROV_RSA_FULL)[:1]

Methods return their boolean result; a method with by-reference parameters returns the tuple
(result, final value of each by-reference parameter in order). A failing method returns False
and its LastError record says why (str(obj.LastError) is the assembled message). What the
automation run time itself refuses raises quiv.ComError.

The library is found through QUIV_LIBRARY=/path/to/libquiv.so when set, else the registry the
library's registration writes, the installed location and a build tree of this checkout.
"""

from . import _com
from ._dispatch import DispatchObject, wrap
from ._library import LibraryNotFound
from .enums import (AMOUNT, CLASS_OF_ALGORITHMS_TO_SHOW, CONTAINER_ACCESS, CONTAINER_ACTION,
                    CONTAINER_KEYS_ACCESS, DATA_FORMAT, ENUMERATIONS, FINGERPRINT_FORMAT,
                    KEYPAIR_OBJECT_CONTAINS, QUIV_ERROR, WHAT_TO_HASH)
from .errors import ComError, UnknownNameError, hresult_name
from .page import PageContext
from ._create import create_dispatch, global_object

__all__ = ["Dispatch", "CreateObject", "constants", "PageContext", "ComError", "DispatchObject",
           "LibraryNotFound", "UnknownNameError", "hresult_name", "AMOUNT", "CLASS_OF_ALGORITHMS_TO_SHOW",
           "CONTAINER_ACCESS", "CONTAINER_ACTION", "CONTAINER_KEYS_ACCESS", "DATA_FORMAT",
           "FINGERPRINT_FORMAT", "KEYPAIR_OBJECT_CONTAINS", "QUIV_ERROR", "WHAT_TO_HASH",
           "ENUMERATIONS"]


def Dispatch(progid, page=None):
    """A new object of the class `progid` ("QUIV.CProvider", or a class id in braces).

    With `page` (a WSGI environ or a PageContext), the object's OnStartPage receives the
    request's page context, as a web server does for the objects a page creates: error records
    then carry the page's URL, the server's address and the cookies.
    """
    pointer = create_dispatch(progid)
    try:
        obj = wrap(pointer)
    finally:
        _com.release(pointer)
    if page is not None:
        context = page if isinstance(page, PageContext) else PageContext(page)
        obj.OnStartPage(context)
    return obj


# The scripting name of the same thing.
CreateObject = Dispatch


def __getattr__(name):
    # quiv.constants: the predeclared global CConstQUIV, made on first use.
    if name == "constants":
        value = globals()["constants"] = global_object()
        return value
    raise AttributeError(f"module 'quiv' has no attribute {name!r}")
