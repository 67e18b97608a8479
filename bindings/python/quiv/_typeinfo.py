"""What a class's type information says about its members, read once per class.

For each member: its dispatch id, whether it is a method or a property (get, let, set), and per
parameter its name, automation type, whether it is by reference, optional, and its default.
"""

import ctypes
from ctypes import POINTER, byref, c_int32, c_uint32, c_void_p

from . import _com
from ._convert import load, text_of
from ._library import library

MISSING = object()


class Param:
    __slots__ = ("name", "vt", "byref", "optional", "default")

    def __init__(self, name, vt, is_byref, optional, default):
        self.name, self.vt, self.byref = name, vt, is_byref
        self.optional, self.default = optional, default

    def __repr__(self):
        return (f"Param({self.name!r}, vt={self.vt:#x}, byref={self.byref}, "
                f"optional={self.optional}, default={self.default!r})")


class Signature:
    """One way of invoking a member (method, property get, let or set)."""
    __slots__ = ("params", "result_vt", "byref_indexes", "names", "output_names")

    def __init__(self, params, result_vt):
        self.params = params
        self.result_vt = result_vt
        self.finish()

    def finish(self):
        """Derives the lookups from the parameters (again, after a change to them)."""
        params = self.params
        self.byref_indexes = [i for i, p in enumerate(params) if p.byref]
        self.names = {p.name.lower(): i for i, p in enumerate(params)}
        # Position in the (result, by-reference values...) tuple, by parameter name.
        self.output_names = {params[i].name.lower(): n + 1
                             for n, i in enumerate(self.byref_indexes)}


class Member:
    __slots__ = ("name", "memid", "kinds", "doc", "is_property", "reads_at_once")

    def __init__(self, name, memid):
        self.name, self.memid = name, memid
        self.kinds = {}  # INVOKE_* -> Signature
        self.doc = ""
        self.finish()

    def finish(self):
        """Derives from the kinds: a property (no method of the name), and whether reading the
        attribute gets its value at once (a property getter without required parameters)."""
        self.is_property = _com.INVOKE_FUNC not in self.kinds and (
            _com.INVOKE_PROPERTYGET in self.kinds or not self.kinds)
        getter = self.kinds.get(_com.INVOKE_PROPERTYGET)
        self.reads_at_once = bool(self.kinds) and self.is_property and (
            getter is None or not any(not p.optional and not p.byref for p in getter.params))

    def __repr__(self):
        return f"Member({self.name!r}, {self.memid:#010x}, kinds={sorted(self.kinds)})"


class ClassInfo:
    """A class as its type information describes it; shared by all its instances."""

    def __init__(self, name, guid, members):
        self.name = name
        self.guid = guid
        self.by_id = members
        self.by_name = {m.name.lower(): m for m in members.values()}
        self.ids = {}  # lower-case name -> dispatch id, as GetIDsOfNames answered
        self.members = {}  # the name as written -> Member, for the next access


def _call(pointer, slot, *args):
    """Calls the ITypeInfo method in `slot`; its arguments are all pointer-sized or 32-bit."""
    argtypes = tuple(type(a) if isinstance(a, ctypes._SimpleCData) else c_void_p for a in args)
    return _com.method(pointer, slot, _com.HRESULT, *argtypes)(pointer, *args)


def _check(hr, what):
    if _com.failed(hr):
        from .errors import ComError
        raise ComError(hr, f"ITypeInfo::{what}")


def type_attr(typeinfo):
    """(guid, typekind, cFuncs, cVars, tdescAlias vt) of a type, read and released."""
    attr = POINTER(_com.TYPEATTR)()
    _check(_call(typeinfo, _com.TI_GETTYPEATTR, byref(attr)), "GetTypeAttr")
    a = attr.contents
    result = (_com.GUID.from_buffer_copy(a.guid), a.typekind, a.cFuncs, a.cVars,
              _com.TYPEDESC.from_buffer_copy(a.tdescAlias))
    _com.method(typeinfo, _com.TI_RELEASETYPEATTR, None, c_void_p)(typeinfo, attr)
    return result


def documentation(typeinfo, memid):
    """(name, help string) of a member, or of the type itself for memid -1."""
    name, doc = c_void_p(), c_void_p()
    hr = _call(typeinfo, _com.TI_GETDOCUMENTATION, c_int32(memid), byref(name), byref(doc),
               None, None)
    if _com.failed(hr):
        return "", ""
    try:
        return text_of(name.value), text_of(doc.value)
    finally:
        library().SysFreeString(name.value)
        library().SysFreeString(doc.value)


def names(typeinfo, memid, count):
    """The member's name followed by its parameters' names."""
    buffer = (c_void_p * (count + 1))()
    got = c_uint32()
    _check(_call(typeinfo, _com.TI_GETNAMES, c_int32(memid), buffer, c_uint32(count + 1),
                 byref(got)), "GetNames")
    result = []
    for i in range(got.value):
        result.append(text_of(buffer[i]))
        library().SysFreeString(buffer[i])
    return result


def _userdefined_vt(typeinfo, href):
    """The automation type a reference to a user-defined type travels as."""
    ref = c_void_p()
    _check(_call(typeinfo, _com.TI_GETREFTYPEINFO, c_uint32(href), byref(ref)), "GetRefTypeInfo")
    try:
        _, kind, _, _, alias = type_attr(ref.value)
        if kind == _com.TKIND_ENUM:
            return _com.VT_I4, False
        if kind == _com.TKIND_ALIAS:
            return _type_of(ref.value, alias)
        return _com.VT_DISPATCH, True
    finally:
        _com.release(ref.value)


def _type_of(typeinfo, tdesc):
    """(vt, pointer levels) of a TYPEDESC: the base automation type and how many pointers lead
    to it beyond the interface pointer an object type carries anyway."""
    levels = 0
    while tdesc.vt == _com.VT_PTR:
        tdesc = _com.TYPEDESC.from_address(tdesc.u)
        levels += 1
    vt = tdesc.vt
    if vt & _com.VT_BYREF:
        levels += 1
        vt &= ~_com.VT_BYREF
    if vt == _com.VT_USERDEFINED:
        # The union holds a 32-bit HREFTYPE here.
        vt, is_interface = _userdefined_vt(typeinfo, (tdesc.u or 0) & 0xFFFFFFFF)
        if is_interface:
            levels -= 1
    elif vt == _com.VT_SAFEARRAY:
        inner = _com.TYPEDESC.from_address(tdesc.u)
        vt = _com.VT_ARRAY | (_type_of(typeinfo, inner)[0])
    return vt, max(levels, 0)


def _param(typeinfo, elem, name):
    flags = elem.paramdesc.wParamFlags
    vt, levels = _type_of(typeinfo, elem.tdesc)
    is_byref = bool(flags & _com.PARAMFLAG_FOUT) or levels > 0
    default = MISSING
    if flags & _com.PARAMFLAG_FHASDEFAULT and elem.paramdesc.pparamdescex:
        default = load(elem.paramdesc.pparamdescex.contents.varDefaultValue, lambda p: None)
    optional = bool(flags & (_com.PARAMFLAG_FOPT | _com.PARAMFLAG_FHASDEFAULT))
    return Param(name, vt, is_byref, optional, default), bool(flags & _com.PARAMFLAG_FRETVAL)


def _add_function(typeinfo, index, members):
    desc = POINTER(_com.FUNCDESC)()
    _check(_call(typeinfo, _com.TI_GETFUNCDESC, c_uint32(index), byref(desc)), "GetFuncDesc")
    try:
        f = desc.contents
        if _is_inherited(f.memid):
            return
        all_names = names(typeinfo, f.memid, f.cParams)
        params, result_vt = [], _type_of(typeinfo, f.elemdescFunc.tdesc)[0]
        for i in range(f.cParams):
            name = all_names[i + 1] if i + 1 < len(all_names) else f"arg{i}"
            param, is_retval = _param(typeinfo, f.lprgelemdescParam[i], name)
            if is_retval:
                result_vt = param.vt
            else:
                params.append(param)
        if f.invkind in (_com.INVOKE_PROPERTYPUT, _com.INVOKE_PROPERTYPUTREF) and params:
            params[-1].byref = False  # the assigned value travels as a named argument
        member = members.get(f.memid) or members.setdefault(f.memid, Member(all_names[0], f.memid))
        member.kinds[f.invkind] = Signature(params, result_vt)
        member.finish()
    finally:
        _com.method(typeinfo, _com.TI_RELEASEFUNCDESC, None, c_void_p)(typeinfo, desc)


def _add_variable(typeinfo, index, members):
    desc = POINTER(_com.VARDESC)()
    _check(_call(typeinfo, _com.TI_GETVARDESC, c_uint32(index), byref(desc)), "GetVarDesc")
    try:
        v = desc.contents
        name = names(typeinfo, v.memid, 0)[0]
        vt = _type_of(typeinfo, v.elemdescVar.tdesc)[0]
        member = members.setdefault(v.memid, Member(name, v.memid))
        member.kinds[_com.INVOKE_PROPERTYGET] = Signature([], vt)
        put = _com.INVOKE_PROPERTYPUTREF if vt == _com.VT_DISPATCH else _com.INVOKE_PROPERTYPUT
        member.kinds[put] = Signature([Param("value", vt, False, False, MISSING)], _com.VT_EMPTY)
        member.finish()
    finally:
        _com.method(typeinfo, _com.TI_RELEASEVARDESC, None, c_void_p)(typeinfo, desc)


def _is_inherited(memid):
    # IUnknown's and IDispatch's own members, which a dual interface's description repeats.
    return 0x60000000 <= (memid & 0xFFFFFFFF) <= 0x60010003


_classes = {}


def class_info(typeinfo):
    """The ClassInfo of the type `typeinfo` describes, read on first sight of the class."""
    guid, _, cfuncs, cvars, _ = type_attr(typeinfo)
    info = _classes.get(guid)
    if info is None:
        members = {}
        for i in range(cfuncs):
            _add_function(typeinfo, i, members)
        for i in range(cvars):
            _add_variable(typeinfo, i, members)
        for member in members.values():
            member.doc = documentation(typeinfo, member.memid)[1]
        name = documentation(typeinfo, -1)[0]
        info = _classes[guid] = ClassInfo(name.lstrip("_") or str(guid), guid, members)
    return info
