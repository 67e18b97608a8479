"""Late-bound objects: a Python proxy over one IDispatch of the library.

Names are resolved through GetIDsOfNames once per class and cached; the class's type information
says whether a name is a method or a property and which parameters are by reference. A method
with by-reference parameters returns (result, final value of each by-reference parameter), one
without returns its result, as Python's COM clients on Windows do.
"""

import ctypes
import sys
import weakref
from ctypes import POINTER, byref, c_uint16, c_uint32, c_void_p

from . import _com, _convert, _typeinfo
from ._library import library, loaded, utf16
from ._typeinfo import MISSING
from .errors import ComError, UnknownNameError

# Invoke takes its pointers as plain addresses: ctypes converts an int fastest, and the blocks
# they point to live in a _Scratch for the whole call.
_invoke_proto = ctypes.CFUNCTYPE(_com.HRESULT, c_void_p, _com.DISPID, c_void_p, _com.LCID,
                                 c_uint16, c_void_p, c_void_p, c_void_p, c_void_p)
_ids_proto = ctypes.CFUNCTYPE(_com.HRESULT, c_void_p, POINTER(_com.GUID), POINTER(c_void_p),
                              c_uint32, _com.LCID, POINTER(_com.DISPID))
_typeinfo_proto = ctypes.CFUNCTYPE(_com.HRESULT, c_void_p, c_uint32, _com.LCID,
                                   POINTER(c_void_p))
_IID_NULL = _com.IID_NULL
_PUT_NAMED = (_com.DISPID * 1)(_com.DISPID_PROPERTYPUT)

# One Python object per library object: keyed by the object's IUnknown pointer.
_objects = weakref.WeakValueDictionary()


def wrap(pointer):
    """The Python object for the IDispatch at `pointer` (the same one for the same instance).
    Takes a reference of its own; the caller keeps (and releases) its reference."""
    unknown = _com.query_interface(pointer, _com.IID_IUnknown)
    key = unknown or pointer
    if unknown:
        _com.release(unknown)
    found = _objects.get(key)
    if found is not None:
        return found
    obj = DispatchObject._from_pointer(pointer)
    _objects[key] = obj
    return obj


def _excepinfo(info):
    """The EXCEPINFO tuple, freeing its strings."""
    if info.pfnDeferredFillIn:
        ctypes.CFUNCTYPE(_com.HRESULT, POINTER(_com.EXCEPINFO))(info.pfnDeferredFillIn)(
            byref(info))
    lib = library()
    fields = (info.wCode, _convert.text_of(info.bstrSource),
              _convert.text_of(info.bstrDescription), _convert.text_of(info.bstrHelpFile),
              info.dwHelpContext, info.scode)
    for bstr in (info.bstrSource, info.bstrDescription, info.bstrHelpFile):
        if bstr:
            lib.SysFreeString(bstr)
    return fields


class _Scratch:
    """The fixed blocks of one Invoke (DISPPARAMS, result, EXCEPINFO, argument error) with
    their pointers made once: reused call after call from a pool, which keeps each in use by
    one call at a time, nested calls and threads included."""
    __slots__ = ("params", "result", "info", "argerr", "params_ref", "result_ref", "info_ref",
                 "argerr_ref")

    def __init__(self):
        self.params = _com.DISPPARAMS()
        self.result = _com.VARIANT()
        self.info = _com.EXCEPINFO()
        self.argerr = c_uint32()
        self.params_ref = ctypes.addressof(self.params)
        self.result_ref = ctypes.addressof(self.result)
        self.info_ref = ctypes.addressof(self.info)
        self.argerr_ref = ctypes.addressof(self.argerr)


_scratch = []
_IID_NULL_REF = ctypes.addressof(_IID_NULL)


# What a VARIANT can own; a by-reference argument owns nothing (its holder does).
_OWNING = frozenset({_com.VT_BSTR, _com.VT_DISPATCH, _com.VT_UNKNOWN,
                     _com.VT_ARRAY | _com.VT_UI1})


class _Call:
    """The argument list of one Invoke: VARIANTs in reverse order, holders of by-reference
    arguments, everything freed by clear()."""
    __slots__ = ("args", "holders", "count")

    def __init__(self, count):
        self.count = count
        self.args = (_com.VARIANT * count)() if count else None
        self.holders = {}  # parameter index -> holder VARIANT

    def slot(self, index):
        return self.args[self.count - 1 - index]

    def put(self, index, value, vt):
        _convert.store(self.slot(index), value, vt)

    def put_missing(self, index):
        variant = self.slot(index)
        variant.vt = _com.VT_ERROR
        variant.v.scode = _com.DISP_E_PARAMNOTFOUND

    def put_byref(self, index, value, vt):
        holder = _com.VARIANT()
        if value is None and vt not in (_com.VT_DISPATCH, _com.VT_VARIANT, _com.VT_UNKNOWN):
            value = _convert.empty_of(vt)
        _convert.store(holder, value, vt)
        self.holders[index] = holder
        variant = self.slot(index)
        if vt == _com.VT_VARIANT:
            variant.vt = _com.VT_BYREF | _com.VT_VARIANT
            variant.v.byref = ctypes.addressof(holder)
        else:
            variant.vt = _com.VT_BYREF | holder.vt
            variant.v.byref = ctypes.addressof(holder.v)

    def final(self, index):
        return _convert.load(self.holders[index], wrap)

    def clear(self):
        """Frees what the arguments own (strings, arrays, object references)."""
        clear = None
        for variant in list(self.args or ()) + list(self.holders.values()):
            if variant.vt in _OWNING:
                clear = clear or library().VariantClear
                clear(byref(variant))


class DispatchObject:
    """A late-bound object of the library. Attribute access calls the member of that name."""

    __slots__ = ("_quiv_pointer", "_quiv_class", "_quiv_invoke", "_quiv_ids", "__weakref__")

    @classmethod
    def _from_pointer(cls, pointer):
        self = object.__new__(cls)
        _com.add_ref(pointer)
        object.__setattr__(self, "_quiv_pointer", pointer)
        vtable = ctypes.cast(pointer, POINTER(POINTER(c_void_p)))[0]
        object.__setattr__(self, "_quiv_invoke", _invoke_proto(vtable[_com.SLOT_INVOKE]))
        object.__setattr__(self, "_quiv_ids", _ids_proto(vtable[_com.SLOT_GETIDSOFNAMES]))
        object.__setattr__(self, "_quiv_class", self._quiv_read_class(vtable))
        return self

    def _quiv_read_class(self, vtable):
        info = ctypes.c_void_p()
        hr = _typeinfo_proto(vtable[_com.SLOT_GETTYPEINFO])(
            self._quiv_pointer, 0, _com.LOCALE_USER_DEFAULT, byref(info))
        if _com.failed(hr) or not info.value:
            # No type information: names are resolved for this object alone.
            return _typeinfo.ClassInfo("IDispatch", None, {})
        try:
            return _typeinfo.class_info(info.value)
        finally:
            _com.release(info.value)

    def _quiv_dispatch_pointer(self):
        return self._quiv_pointer

    def __del__(self):
        pointer = getattr(self, "_quiv_pointer", None)
        if pointer and loaded() and not sys.is_finalizing():
            _com.release(pointer)
            object.__setattr__(self, "_quiv_pointer", None)

    # -- names -------------------------------------------------------------------------------

    def _quiv_id(self, name):
        """The dispatch id of `name`, asked of the object once per class."""
        cls = self._quiv_class
        key = name.lower()
        memid = cls.ids.get(key)
        if memid is None:
            text = utf16(name)
            names = (c_void_p * 1)(ctypes.addressof(text))
            out = _com.DISPID(_com.DISPID_UNKNOWN)
            hr = self._quiv_ids(self._quiv_pointer, byref(_IID_NULL), names, 1,
                                _com.LOCALE_USER_DEFAULT, byref(out))
            if _com.failed(hr):
                raise UnknownNameError(hr, f"{cls.name} has no member {name!r}", name)
            memid = cls.ids[key] = out.value
        return memid

    def _quiv_member(self, name):
        cls = self._quiv_class
        member = cls.members.get(name)
        if member is None:
            memid = self._quiv_id(name)
            member = cls.by_id.get(memid)
            if member is None:  # no type information: the run time decides
                member = _typeinfo.Member(name, memid)
            cls.members[name] = member
        return member

    def __getattr__(self, name):
        if name.startswith("__") or name.startswith("_quiv"):
            raise AttributeError(name)
        member = self._quiv_member(name)
        if member.reads_at_once:
            return self._quiv_call(member, _com.DISPATCH_PROPERTYGET, (), {})
        if not member.kinds:
            return self._quiv_untyped(member)
        return _BoundMethod(self, member)

    def _quiv_untyped(self, member):
        """A member the object describes no type for: its value when it reads as a property
        without arguments, else the member to call."""
        try:
            return self._quiv_call(member, _com.DISPATCH_PROPERTYGET, (), {})
        except ComError as error:
            if error.hresult not in (_com.DISP_E_BADPARAMCOUNT, _com.DISP_E_MEMBERNOTFOUND,
                                     _com.DISP_E_PARAMNOTOPTIONAL):
                raise
        return _BoundMethod(self, member)

    def __setattr__(self, name, value):
        if name.startswith("_quiv"):
            raise AttributeError(f"{name} is read-only")
        member = self._quiv_member(name)
        is_object = value is None or isinstance(value, DispatchObject)
        if is_object and (_com.INVOKE_PROPERTYPUTREF in member.kinds or not member.kinds):
            flags = _com.DISPATCH_PROPERTYPUTREF
        else:
            flags = _com.DISPATCH_PROPERTYPUT
        self._quiv_call(member, flags, (value,), {})

    # -- calls -------------------------------------------------------------------------------

    def _quiv_call(self, member, flags, args, kwargs):
        signature = None
        for kind in _KINDS[flags]:
            signature = member.kinds.get(kind)
            if signature is not None:
                break
        if not args and not kwargs and (signature is None or not signature.params):
            return self._quiv_invoke_raw(member, flags, None, signature)
        values = _arrange(member, signature, args, kwargs)
        call = _Call(len(values))
        try:
            for i, value in enumerate(values):
                param = signature.params[i] if signature and i < len(signature.params) else None
                vt = param.vt if param else _com.VT_VARIANT
                if param is not None and param.byref:
                    call.put_byref(i, None if value is MISSING else value, vt)
                elif value is MISSING:
                    call.put_missing(i)
                else:
                    call.put(i, value, vt)
            result = self._quiv_invoke_raw(member, flags, call, signature)
            if signature and signature.byref_indexes and flags == _com.DISPATCH_METHOD:
                return Outputs((result,) + tuple(call.final(i) for i in signature.byref_indexes
                                                 if i < call.count), signature.output_names)
            return result
        finally:
            call.clear()

    def _quiv_invoke_raw(self, member, flags, call, signature):
        scratch = _scratch.pop() if _scratch else _Scratch()
        try:
            params = scratch.params
            if call is None:
                params.rgvarg = None
                params.cArgs = 0
            else:
                params.rgvarg = call.args
                params.cArgs = call.count
            if flags & (_com.DISPATCH_PROPERTYPUT | _com.DISPATCH_PROPERTYPUTREF):
                params.rgdispidNamedArgs = _PUT_NAMED
                params.cNamedArgs = 1
            else:
                params.rgdispidNamedArgs = None
                params.cNamedArgs = 0
            result = scratch.result
            result.vt = _com.VT_EMPTY
            scratch.argerr.value = 0xFFFFFFFF
            hr = self._quiv_invoke(self._quiv_pointer, member.memid, _IID_NULL_REF,
                                   _com.LOCALE_USER_DEFAULT, flags, scratch.params_ref,
                                   scratch.result_ref, scratch.info_ref, scratch.argerr_ref)
            if hr < 0:
                error = _invoke_error(hr, self, member, scratch.info, scratch.argerr.value,
                                      call.count if call else 0, signature)
                ctypes.memset(scratch.info_ref, 0, ctypes.sizeof(_com.EXCEPINFO))
                raise error
            return _convert.load_result(result, wrap)
        finally:
            _scratch.append(scratch)

    # -- the default member, identity, introspection ----------------------------------------

    def __call__(self, *args, **kwargs):
        member = self._quiv_class.by_id.get(_com.DISPID_VALUE) or _typeinfo.Member("", 0)
        return self._quiv_call(member, _com.DISPATCH_METHOD | _com.DISPATCH_PROPERTYGET,
                               args, kwargs)

    def __str__(self):
        cls = self._quiv_class
        if _com.DISPID_VALUE in cls.by_id:
            return str(self())
        if not cls.by_id:  # no type information: ask for the default member
            try:
                return str(self())
            except ComError:
                pass
        return repr(self)

    def __repr__(self):
        return f"<quiv.{self._quiv_class.name} object at 0x{self._quiv_pointer or 0:x}>"

    def __bool__(self):
        return True

    def __dir__(self):
        return sorted({m.name for m in self._quiv_class.by_id.values()})

    @property
    def _quiv_classname(self):
        return self._quiv_class.name


# The descriptions an Invoke with these flags follows, in order of preference (the invoke kinds
# and the DISPATCH_ flags have the same values).
_KINDS = {
    _com.DISPATCH_METHOD: (_com.INVOKE_FUNC, _com.INVOKE_PROPERTYGET),
    _com.DISPATCH_PROPERTYGET: (_com.INVOKE_PROPERTYGET, _com.INVOKE_FUNC),
    _com.DISPATCH_METHOD | _com.DISPATCH_PROPERTYGET: (_com.INVOKE_FUNC, _com.INVOKE_PROPERTYGET),
    _com.DISPATCH_PROPERTYPUT: (_com.INVOKE_PROPERTYPUT, _com.INVOKE_PROPERTYPUTREF),
    _com.DISPATCH_PROPERTYPUTREF: (_com.INVOKE_PROPERTYPUTREF, _com.INVOKE_PROPERTYPUT),
}


def _arrange(member, signature, args, kwargs):
    """The argument values in parameter order, MISSING where the caller gave none; trailing
    missing by-value arguments are left out, as a caller that omits them does."""
    if signature is None:
        if kwargs:
            raise TypeError(f"{member.name}: no type information for keyword arguments")
        return list(args)
    count = max(len(signature.params), len(args))
    values = list(args) + [MISSING] * (count - len(args))
    for key, value in kwargs.items():
        index = signature.names.get(key.lower())
        if index is None:
            raise TypeError(f"{member.name}() has no parameter {key!r}")
        if values[index] is not MISSING:
            raise TypeError(f"{member.name}() got {key!r} twice")
        values[index] = value
    for i, param in enumerate(signature.params):
        if values[i] is MISSING and param.byref and param.default is not MISSING:
            values[i] = param.default
    while values and values[-1] is MISSING and not signature.params[len(values) - 1].byref:
        values.pop()
    return values


def _invoke_error(hr, obj, member, info, argerr, count, signature):
    excepinfo = _excepinfo(info) if hr == _com.DISP_E_EXCEPTION else None
    index = None
    argument = None
    if hr in (_com.DISP_E_TYPEMISMATCH, _com.DISP_E_OVERFLOW, _com.DISP_E_PARAMNOTFOUND,
              _com.DISP_E_PARAMNOTOPTIONAL) \
            and argerr < count:
        index = argerr
        position = count - 1 - argerr
        if signature and position < len(signature.params):
            argument = signature.params[position].name
    name = f"{obj._quiv_class.name}.{member.name or '<default>'}"
    return ComError(hr, name, excepinfo, index, argument)


class Outputs(tuple):
    """What a method with by-reference parameters returns: the tuple (result, final value of
    each by-reference parameter in order). The values are also readable by parameter name
    (case-insensitive), and the result as `.result`:
        out = signature.Sign(message, None, quiv.DATA_FORMAT.STRING_HEX)
        out.result, out.o_sSignatureBlock
    Its truth value is the method's result, so `if not obj.Method(...):` tests for failure as
    it does for a method without by-reference parameters.
    """

    def __new__(cls, values, names):
        self = super().__new__(cls, values)
        self._names = names  # lower-case parameter name -> index
        return self

    @property
    def result(self):
        return self[0]

    def __bool__(self):
        return bool(self[0])

    def __getattr__(self, name):
        index = self.__dict__.get("_names", {}).get(name.lower())
        if index is None:
            raise AttributeError(name)
        return self[index]


class _BoundMethod:
    __slots__ = ("_object", "_member")

    def __init__(self, obj, member):
        self._object, self._member = obj, member

    def __call__(self, *args, **kwargs):
        flags = _com.DISPATCH_METHOD
        if _com.INVOKE_FUNC not in self._member.kinds and self._member.kinds:
            flags = _com.DISPATCH_PROPERTYGET
        elif not self._member.kinds:
            flags = _com.DISPATCH_METHOD | _com.DISPATCH_PROPERTYGET
        return self._object._quiv_call(self._member, flags, args, kwargs)

    def __repr__(self):
        return f"<method {self._member.name} of {self._object!r}>"

    @property
    def __doc__(self):
        return self._member.doc
