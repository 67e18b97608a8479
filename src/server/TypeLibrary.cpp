#include "server/TypeLibrary.h"

#include <cstring>
#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>
#include <vector>

#include "automation/String.h"
#include "server/ClassFactory.h"
#include "server/ClassTables.h"
#include "server/DispatchObject.h"
#include "server/EnumTables.h"
#include "server/IdlWriter.h"
#include "server/VariantBridge.h"

namespace quiv::server {

namespace {

// Enumeration members are numbered from here, as type libraries number constants.
constexpr MEMBERID kEnumMemberBase = 0x40000000;
// The one type an interface derives from; the library does not carry stdole's description.
constexpr HREFTYPE kIDispatchRef = 0xFFFFFFFE;

// One function of an interface's description: a member, and for a data member which half.
struct Function {
  const Member* member;
  INVOKEKIND kind;
};

std::vector<Function> FunctionsOf(const ClassTable& table) {
  std::vector<Function> out;
  for (const Member& m : table.members) {
    if (m.kind == MemberKind::Method) {
      out.push_back({&m, INVOKE_FUNC});
    } else {
      out.push_back({&m, INVOKE_PROPERTYGET});
      if (m.kind == MemberKind::DataMember) {
        out.push_back(
            {&m, m.result == AutoType::Object ? INVOKE_PROPERTYPUTREF : INVOKE_PROPERTYPUT});
      }
    }
  }
  return out;
}

struct TypeInfoObject {
  ITypeInfo itf;
  TYPEKIND kind;
  const ClassTable* cls;  // interface and coclass
  const EnumTable* enumeration;
  UINT index;  // in the library
  std::vector<Function> functions;

  std::u16string_view Name() const {
    if (kind == TKIND_ENUM) return enumeration->name;
    if (kind == TKIND_DISPATCH) return cls->interfaceName;
    return cls->className;
  }
  const Guid& Identity() const {
    if (kind == TKIND_ENUM) return enumeration->guid;
    return kind == TKIND_DISPATCH ? cls->iid : cls->clsid;
  }
};

struct TypeLibObject {
  ITypeLib itf;
  std::vector<std::unique_ptr<TypeInfoObject>> infos;
  TypeInfoObject* InterfaceOf(const ClassTable& table) const {
    for (const auto& info : infos) {
      if (info->kind == TKIND_DISPATCH && info->cls == &table) return info.get();
    }
    return nullptr;
  }
};

TypeLibObject& Library();

TypeInfoObject* InfoOf(ITypeInfo* itf) {
  return reinterpret_cast<TypeInfoObject*>(itf);
}

// The blocks handed to callers (FUNCDESC, VARDESC, TYPEATTR, TLIBATTR), owned here until the
// caller gives them back.
struct Block {
  virtual ~Block() = default;
};
std::mutex g_blockMutex;
std::unordered_map<const void*, std::unique_ptr<Block>>& Blocks() {
  static auto* blocks = new std::unordered_map<const void*, std::unique_ptr<Block>>();
  return *blocks;
}
// Keeps the block under the address of what the caller receives (`part`, inside the block).
template <class T, class Part>
Part* Keep(std::unique_ptr<T> block, Part T::*part) {
  Part* handedOut = &((*block).*part);
  std::lock_guard lock(g_blockMutex);
  Blocks()[handedOut] = std::move(block);
  return handedOut;
}
void Drop(const void* key) {
  std::unique_ptr<Block> doomed;
  std::lock_guard lock(g_blockMutex);
  auto found = Blocks().find(key);
  if (found == Blocks().end()) return;
  doomed = std::move(found->second);
  Blocks().erase(found);
}

template <class T>
struct Plain final : Block {
  T value{};
};

// A type description names an array by VT_SAFEARRAY and its element apart, and no value by
// VT_VOID; otherwise the VARIANT's type.
VARTYPE BaseVarType(AutoType type) {
  if (type == AutoType::Bytes) return VT_SAFEARRAY;
  if (type == AutoType::None) return VT_VOID;
  return VarTypeOf(type);
}

// A FUNCDESC with its parameter descriptions, defaults and pointed-to types.
struct FuncBlock final : Block {
  FUNCDESC desc{};
  std::vector<ELEMDESC> params;
  std::vector<PARAMDESCEX> defaults;
  std::vector<TYPEDESC> inner;  // the byte of a byte array, the target of a pointer
  ~FuncBlock() override {
    for (PARAMDESCEX& d : defaults) VariantClear(&d.varDefaultValue);
  }

  // Room is reserved up front: descriptions point into these vectors.
  explicit FuncBlock(size_t count) {
    params.reserve(count);
    defaults.reserve(count);
    inner.reserve(2 * count + 1);
  }

  TYPEDESC Describe(AutoType type, bool byRef) {
    TYPEDESC base{};
    base.vt = BaseVarType(type);
    if (type == AutoType::Bytes) {
      inner.push_back(TYPEDESC{});
      inner.back().vt = VT_UI1;
      base.lptdesc = &inner.back();
    }
    if (!byRef) return base;
    inner.push_back(base);
    TYPEDESC pointer{};
    pointer.vt = VT_PTR;
    pointer.lptdesc = &inner.back();
    return pointer;
  }

  void AddParam(const Param& p) {
    ELEMDESC e{};
    e.tdesc = Describe(p.type, p.byRef);
    e.paramdesc.wParamFlags = PARAMFLAG_FIN | (p.byRef ? PARAMFLAG_FOUT : 0);
    if (p.optional) {
      e.paramdesc.wParamFlags |= PARAMFLAG_FOPT;
      PARAMDESCEX d{};
      d.cBytes = sizeof(PARAMDESCEX);
      VariantInit(&d.varDefaultValue);
      if (p.defaultValue.kind == DefaultValue::Kind::Number) {
        d.varDefaultValue.vt = VT_I4;
        d.varDefaultValue.lVal = p.defaultValue.number;
      } else if (p.defaultValue.kind == DefaultValue::Kind::Text) {
        d.varDefaultValue.vt = VT_BSTR;
        d.varDefaultValue.bstrVal = ToBstr(String(p.defaultValue.text));
      } else {
        d.varDefaultValue.vt = VT_DISPATCH;  // Nothing
      }
      defaults.push_back(d);
      e.paramdesc.wParamFlags |= PARAMFLAG_FHASDEFAULT;
      e.paramdesc.pparamdescex = &defaults.back();
    }
    params.push_back(e);
  }
};

FUNCDESC* MakeFuncDesc(const Function& f, UINT index) {
  const Member& m = *f.member;
  const bool put = f.kind == INVOKE_PROPERTYPUT || f.kind == INVOKE_PROPERTYPUTREF;
  auto block = std::make_unique<FuncBlock>(m.params.size() + 1);
  if (put) {
    Param value = ByVal(m.name, m.result);
    block->AddParam(value);
  } else {
    for (const Param& p : m.params) block->AddParam(p);
  }
  FUNCDESC& d = block->desc;
  d.memid = m.dispId;
  d.lprgelemdescParam = block->params.empty() ? nullptr : block->params.data();
  d.funckind = FUNC_DISPATCH;
  d.invkind = f.kind;
  d.callconv = CC_STDCALL;
  d.cParams = static_cast<SHORT>(block->params.size());
  d.cParamsOpt = 0;  // optional parameters are flagged one by one
  d.oVft = static_cast<SHORT>((7 + index) * sizeof(void*));
  d.elemdescFunc.tdesc = block->Describe(put ? AutoType::None : m.result, false);
  return Keep(std::move(block), &FuncBlock::desc);
}

// ---- ITypeInfo ----

HRESULT STDMETHODCALLTYPE InfoQueryInterface(ITypeInfo* self, REFIID riid, void** out) {
  if (out == nullptr) return E_POINTER;
  *out = nullptr;
  if (riid == nullptr) return E_INVALIDARG;
  if (!IsEqualIID(riid, &IID_IUnknown) && !IsEqualIID(riid, &IID_ITypeInfo)) return E_NOINTERFACE;
  *out = self;
  return S_OK;
}

// The library and its descriptions live as long as the process: the counts are nominal.
ULONG STDMETHODCALLTYPE InfoAddRef(ITypeInfo*) {
  return 2;
}
ULONG STDMETHODCALLTYPE InfoRelease(ITypeInfo*) {
  return 1;
}

HRESULT STDMETHODCALLTYPE GetTypeAttr(ITypeInfo* self, TYPEATTR** out) {
  if (out == nullptr) return E_POINTER;
  const TypeInfoObject& info = *InfoOf(self);
  auto block = std::make_unique<Plain<TYPEATTR>>();
  TYPEATTR& a = block->value;
  std::memcpy(&a.guid, &info.Identity(), sizeof a.guid);
  a.memidConstructor = MEMBERID_NIL;
  a.memidDestructor = MEMBERID_NIL;
  a.typekind = info.kind;
  a.wMajorVerNum = LibraryIdentity::kMajor;
  a.wMinorVerNum = LibraryIdentity::kMinor;
  if (info.kind == TKIND_ENUM) {
    a.cVars = static_cast<WORD>(info.enumeration->members.size());
    a.cbSizeInstance = 4;
    a.cbAlignment = 4;
  } else if (info.kind == TKIND_DISPATCH) {
    a.cFuncs = static_cast<WORD>(info.functions.size());
    a.cImplTypes = 1;
    a.cbSizeVft = 7 * sizeof(void*);
    a.cbSizeInstance = sizeof(void*);
    a.cbAlignment = sizeof(void*);
    a.wTypeFlags = TYPEFLAG_FHIDDEN | TYPEFLAG_FDUAL | TYPEFLAG_FNONEXTENSIBLE |
                   TYPEFLAG_FOLEAUTOMATION | TYPEFLAG_FDISPATCHABLE;
  } else {
    a.cImplTypes = info.cls->implementsIHash ? 2 : 1;
    a.cbSizeInstance = sizeof(void*);
    a.cbAlignment = sizeof(void*);
    if (info.cls->creatable) a.wTypeFlags |= TYPEFLAG_FCANCREATE;
    if (info.cls->appObject) a.wTypeFlags |= TYPEFLAG_FAPPOBJECT | TYPEFLAG_FPREDECLID;
  }
  *out = Keep(std::move(block), &Plain<TYPEATTR>::value);
  return S_OK;
}

HRESULT STDMETHODCALLTYPE GetTypeComp(ITypeInfo*, ITypeComp** out) {
  if (out != nullptr) *out = nullptr;
  return E_NOTIMPL;
}

HRESULT STDMETHODCALLTYPE GetFuncDesc(ITypeInfo* self, UINT index, FUNCDESC** out) {
  if (out == nullptr) return E_POINTER;
  *out = nullptr;
  const TypeInfoObject& info = *InfoOf(self);
  if (index >= info.functions.size()) return TYPE_E_ELEMENTNOTFOUND;
  try {
    *out = MakeFuncDesc(info.functions[index], index);
    return S_OK;
  } catch (...) {
    return E_OUTOFMEMORY;
  }
}

struct VarBlock final : Block {
  VARDESC desc{};
  VARIANT value{};
};

HRESULT STDMETHODCALLTYPE GetVarDesc(ITypeInfo* self, UINT index, VARDESC** out) {
  if (out == nullptr) return E_POINTER;
  *out = nullptr;
  const TypeInfoObject& info = *InfoOf(self);
  if (info.kind != TKIND_ENUM || index >= info.enumeration->members.size()) {
    return TYPE_E_ELEMENTNOTFOUND;
  }
  auto block = std::make_unique<VarBlock>();
  VariantInit(&block->value);
  block->value.vt = VT_I4;
  block->value.lVal = info.enumeration->members[index].value;
  block->desc.memid = kEnumMemberBase + static_cast<MEMBERID>(index);
  block->desc.lpvarValue = &block->value;
  block->desc.elemdescVar.tdesc.vt = VT_I4;
  block->desc.varkind = VAR_CONST;
  *out = Keep(std::move(block), &VarBlock::desc);
  return S_OK;
}

const Member* MemberOf(const TypeInfoObject& info, MEMBERID memid) {
  return info.kind == TKIND_DISPATCH ? info.cls->FindByDispId(memid) : nullptr;
}

const EnumMember* ConstantOf(const TypeInfoObject& info, MEMBERID memid) {
  if (info.kind != TKIND_ENUM) return nullptr;
  const MEMBERID index = memid - kEnumMemberBase;
  if (index < 0 || static_cast<size_t>(index) >= info.enumeration->members.size()) return nullptr;
  return &info.enumeration->members[static_cast<size_t>(index)];
}

HRESULT STDMETHODCALLTYPE GetNames(ITypeInfo* self, MEMBERID memid, BSTR* names, UINT max,
                                   UINT* count) {
  if (names == nullptr || count == nullptr) return E_POINTER;
  *count = 0;
  const TypeInfoObject& info = *InfoOf(self);
  std::vector<std::u16string_view> all;
  if (const Member* m = MemberOf(info, memid)) {
    all.push_back(m->name);
    for (const Param& p : m->params) all.push_back(p.name);
  } else if (const EnumMember* c = ConstantOf(info, memid)) {
    all.push_back(c->name);
  } else {
    return TYPE_E_ELEMENTNOTFOUND;
  }
  for (size_t i = 0; i < all.size() && i < max; ++i) {
    names[i] = ToBstr(String(all[i]));
    ++*count;
  }
  return S_OK;
}

HRESULT STDMETHODCALLTYPE GetRefTypeOfImplType(ITypeInfo* self, UINT index, HREFTYPE* out) {
  if (out == nullptr) return E_POINTER;
  const TypeInfoObject& info = *InfoOf(self);
  if (info.kind == TKIND_DISPATCH && index == 0) {
    *out = kIDispatchRef;
    return S_OK;
  }
  if (info.kind != TKIND_COCLASS || index >= (info.cls->implementsIHash ? 2u : 1u)) {
    return TYPE_E_ELEMENTNOTFOUND;
  }
  const TypeInfoObject* itf = Library().InterfaceOf(index == 0 ? *info.cls : IHashTable());
  *out = itf->index;
  return S_OK;
}

HRESULT STDMETHODCALLTYPE GetImplTypeFlags(ITypeInfo* self, UINT index, INT* out) {
  if (out == nullptr) return E_POINTER;
  HREFTYPE ref = 0;
  const HRESULT hr = GetRefTypeOfImplType(self, index, &ref);
  if (FAILED(hr)) return hr;
  *out = InfoOf(self)->kind == TKIND_COCLASS && index == 0 ? IMPLTYPEFLAG_FDEFAULT : 0;
  return S_OK;
}

HRESULT STDMETHODCALLTYPE InfoGetIDsOfNames(ITypeInfo* self, LPOLESTR* names, UINT count,
                                            MEMBERID* ids) {
  const TypeInfoObject& info = *InfoOf(self);
  if (info.kind == TKIND_DISPATCH) return NamesToIds(*info.cls, names, count, ids);
  if (names == nullptr || ids == nullptr) return E_POINTER;
  if (info.kind != TKIND_ENUM || count != 1) return DISP_E_UNKNOWNNAME;
  const String wanted(names[0] != nullptr ? names[0] : u"");
  for (size_t i = 0; i < info.enumeration->members.size(); ++i) {
    if (wanted.EqualsText(String(info.enumeration->members[i].name))) {
      ids[0] = kEnumMemberBase + static_cast<MEMBERID>(i);
      return S_OK;
    }
  }
  ids[0] = MEMBERID_NIL;
  return DISP_E_UNKNOWNNAME;
}

HRESULT STDMETHODCALLTYPE InfoInvoke(ITypeInfo* self, PVOID instance, MEMBERID memid, WORD flags,
                                     DISPPARAMS* params, VARIANT* result, EXCEPINFO* excepInfo,
                                     UINT* argErr) {
  const TypeInfoObject& info = *InfoOf(self);
  DispatchObject* object = DispatchObject::FromInterface(instance);
  if (info.kind != TKIND_DISPATCH || object == nullptr) return E_INVALIDARG;
  // The instance must have the interface this description is of.
  const bool hashable = info.cls == &IHashTable() && object->Table().implementsIHash;
  if (&object->Table() != info.cls && !hashable) return E_INVALIDARG;
  return InvokeTable(*info.cls, *object->Target(), memid, flags, params, result, excepInfo, argErr);
}

HRESULT STDMETHODCALLTYPE InfoGetDocumentation(ITypeInfo* self, MEMBERID memid, BSTR* name,
                                               BSTR* doc, DWORD* context, BSTR* helpFile) {
  const TypeInfoObject& info = *InfoOf(self);
  std::u16string_view itsName;
  std::u16string_view itsDoc;
  if (memid == MEMBERID_NIL) {
    itsName = info.Name();
  } else if (const Member* m = MemberOf(info, memid)) {
    itsName = m->name;
    itsDoc = m->help;
  } else if (const EnumMember* c = ConstantOf(info, memid)) {
    itsName = c->name;
    itsDoc = c->name;  // every enumeration member's help string is its name
  } else {
    return TYPE_E_ELEMENTNOTFOUND;
  }
  if (name != nullptr) *name = ToBstr(String(itsName));
  if (doc != nullptr) *doc = itsDoc.empty() ? nullptr : ToBstr(String(itsDoc));
  if (context != nullptr) *context = 0;
  if (helpFile != nullptr) *helpFile = nullptr;
  return S_OK;
}

HRESULT STDMETHODCALLTYPE GetDllEntry(ITypeInfo*, MEMBERID, INVOKEKIND, BSTR*, BSTR*, WORD*) {
  return TYPE_E_BADMODULEKIND;
}

HRESULT STDMETHODCALLTYPE GetRefTypeInfo(ITypeInfo*, HREFTYPE ref, ITypeInfo** out) {
  if (out == nullptr) return E_POINTER;
  *out = nullptr;
  const TypeLibObject& library = Library();
  if (ref >= library.infos.size()) return TYPE_E_ELEMENTNOTFOUND;
  *out = &library.infos[ref]->itf;
  return S_OK;
}

HRESULT STDMETHODCALLTYPE AddressOfMember(ITypeInfo*, MEMBERID, INVOKEKIND, PVOID* out) {
  if (out != nullptr) *out = nullptr;
  return TYPE_E_BADMODULEKIND;
}

HRESULT STDMETHODCALLTYPE InfoCreateInstance(ITypeInfo* self, IUnknown* outer, REFIID riid,
                                             PVOID* out) {
  if (out == nullptr) return E_POINTER;
  *out = nullptr;
  const TypeInfoObject& info = *InfoOf(self);
  if (info.kind != TKIND_COCLASS) return TYPE_E_BADMODULEKIND;
  if (outer != nullptr) return CLASS_E_NOAGGREGATION;
  return CreateObject(*info.cls, riid, out);
}

HRESULT STDMETHODCALLTYPE GetMops(ITypeInfo*, MEMBERID, BSTR* out) {
  if (out != nullptr) *out = nullptr;
  return S_OK;
}

HRESULT STDMETHODCALLTYPE GetContainingTypeLib(ITypeInfo* self, ITypeLib** lib, UINT* index) {
  if (lib != nullptr) *lib = &Library().itf;
  if (index != nullptr) *index = InfoOf(self)->index;
  return S_OK;
}

void STDMETHODCALLTYPE ReleaseTypeAttr(ITypeInfo*, TYPEATTR* attr) {
  Drop(attr);
}
void STDMETHODCALLTYPE ReleaseFuncDesc(ITypeInfo*, FUNCDESC* desc) {
  Drop(desc);
}
void STDMETHODCALLTYPE ReleaseVarDesc(ITypeInfo*, VARDESC* desc) {
  Drop(desc);
}

constexpr ITypeInfoVtbl kInfoVtbl = {
    InfoQueryInterface,   InfoAddRef,       InfoRelease,          GetTypeAttr,
    GetTypeComp,          GetFuncDesc,      GetVarDesc,           GetNames,
    GetRefTypeOfImplType, GetImplTypeFlags, InfoGetIDsOfNames,    InfoInvoke,
    InfoGetDocumentation, GetDllEntry,      GetRefTypeInfo,       AddressOfMember,
    InfoCreateInstance,   GetMops,          GetContainingTypeLib, ReleaseTypeAttr,
    ReleaseFuncDesc,      ReleaseVarDesc};

// ---- ITypeLib ----

HRESULT STDMETHODCALLTYPE LibQueryInterface(ITypeLib* self, REFIID riid, void** out) {
  if (out == nullptr) return E_POINTER;
  *out = nullptr;
  if (riid == nullptr) return E_INVALIDARG;
  if (!IsEqualIID(riid, &IID_IUnknown) && !IsEqualIID(riid, &IID_ITypeLib)) return E_NOINTERFACE;
  *out = self;
  return S_OK;
}
ULONG STDMETHODCALLTYPE LibAddRef(ITypeLib*) {
  return 2;
}
ULONG STDMETHODCALLTYPE LibRelease(ITypeLib*) {
  return 1;
}

UINT STDMETHODCALLTYPE LibGetTypeInfoCount(ITypeLib*) {
  return static_cast<UINT>(Library().infos.size());
}

HRESULT STDMETHODCALLTYPE LibGetTypeInfo(ITypeLib*, UINT index, ITypeInfo** out) {
  return GetRefTypeInfo(nullptr, index, out);
}

HRESULT STDMETHODCALLTYPE LibGetTypeInfoType(ITypeLib*, UINT index, TYPEKIND* out) {
  if (out == nullptr) return E_POINTER;
  if (index >= Library().infos.size()) return TYPE_E_ELEMENTNOTFOUND;
  *out = Library().infos[index]->kind;
  return S_OK;
}

HRESULT STDMETHODCALLTYPE LibGetTypeInfoOfGuid(ITypeLib*, REFGUID guid, ITypeInfo** out) {
  if (out == nullptr) return E_POINTER;
  *out = nullptr;
  if (guid == nullptr) return E_INVALIDARG;
  for (const auto& info : Library().infos) {
    if (IsEqualGUID(guid, AsGuid(info->Identity()))) {
      *out = &info->itf;
      return S_OK;
    }
  }
  return TYPE_E_ELEMENTNOTFOUND;
}

HRESULT STDMETHODCALLTYPE GetLibAttr(ITypeLib*, TLIBATTR** out) {
  if (out == nullptr) return E_POINTER;
  auto block = std::make_unique<Plain<TLIBATTR>>();
  TLIBATTR& a = block->value;
  const Guid id = Guid::FromLiteral(LibraryIdentity::kGuid);
  std::memcpy(&a.guid, &id, sizeof a.guid);
  a.lcid = LibraryIdentity::kLcid;
  a.syskind = SYS_WIN64;
  a.wMajorVerNum = LibraryIdentity::kMajor;
  a.wMinorVerNum = LibraryIdentity::kMinor;
  *out = Keep(std::move(block), &Plain<TLIBATTR>::value);
  return S_OK;
}

HRESULT STDMETHODCALLTYPE LibGetTypeComp(ITypeLib*, ITypeComp** out) {
  if (out != nullptr) *out = nullptr;
  return E_NOTIMPL;
}

HRESULT STDMETHODCALLTYPE LibGetDocumentation(ITypeLib*, INT index, BSTR* name, BSTR* doc,
                                              DWORD* context, BSTR* helpFile) {
  if (index == -1) {
    if (name != nullptr) *name = ToBstr(String::FromUtf8(LibraryIdentity::kName));
    if (doc != nullptr) *doc = ToBstr(String::FromUtf8(LibraryIdentity::kHelp));
    if (context != nullptr) *context = 0;
    if (helpFile != nullptr) *helpFile = nullptr;
    return S_OK;
  }
  ITypeInfo* info = nullptr;
  const HRESULT hr = GetRefTypeInfo(nullptr, static_cast<HREFTYPE>(index), &info);
  if (FAILED(hr) || index < 0) return TYPE_E_ELEMENTNOTFOUND;
  return InfoGetDocumentation(info, MEMBERID_NIL, name, doc, context, helpFile);
}

// Every type that has a type or member called `name` (case-insensitive), with the member id.
std::vector<std::pair<TypeInfoObject*, MEMBERID>> Named(const String& name) {
  std::vector<std::pair<TypeInfoObject*, MEMBERID>> found;
  for (const auto& info : Library().infos) {
    if (name.EqualsText(String(info->Name()))) found.emplace_back(info.get(), MEMBERID_NIL);
    if (info->kind == TKIND_DISPATCH) {
      if (const Member* m = info->cls->FindByName(name.u16())) {
        found.emplace_back(info.get(), m->dispId);
      }
    } else if (info->kind == TKIND_ENUM) {
      for (size_t i = 0; i < info->enumeration->members.size(); ++i) {
        if (name.EqualsText(String(info->enumeration->members[i].name))) {
          found.emplace_back(info.get(), kEnumMemberBase + static_cast<MEMBERID>(i));
        }
      }
    }
  }
  return found;
}

HRESULT STDMETHODCALLTYPE IsName(ITypeLib*, LPOLESTR name, ULONG, BOOL* out) {
  if (name == nullptr || out == nullptr) return E_POINTER;
  *out = Named(String(name)).empty() ? FALSE : TRUE;
  return S_OK;
}

HRESULT STDMETHODCALLTYPE FindName(ITypeLib*, LPOLESTR name, ULONG, ITypeInfo** infos,
                                   MEMBERID* ids, USHORT* found) {
  if (name == nullptr || infos == nullptr || ids == nullptr || found == nullptr) return E_POINTER;
  const auto all = Named(String(name));
  USHORT n = 0;
  for (const auto& [info, id] : all) {
    if (n >= *found) break;
    infos[n] = &info->itf;
    ids[n] = id;
    ++n;
  }
  *found = n;
  return S_OK;
}

void STDMETHODCALLTYPE ReleaseTLibAttr(ITypeLib*, TLIBATTR* attr) {
  Drop(attr);
}

constexpr ITypeLibVtbl kLibVtbl = {LibQueryInterface,    LibAddRef,      LibRelease,
                                   LibGetTypeInfoCount,  LibGetTypeInfo, LibGetTypeInfoType,
                                   LibGetTypeInfoOfGuid, GetLibAttr,     LibGetTypeComp,
                                   LibGetDocumentation,  IsName,         FindName,
                                   ReleaseTLibAttr};

std::unique_ptr<TypeInfoObject> MakeInfo(TYPEKIND kind, const ClassTable* cls,
                                         const EnumTable* enumeration, UINT index) {
  auto info = std::make_unique<TypeInfoObject>();
  info->itf.lpVtbl = &kInfoVtbl;
  info->kind = kind;
  info->cls = cls;
  info->enumeration = enumeration;
  info->index = index;
  if (kind == TKIND_DISPATCH) info->functions = FunctionsOf(*cls);
  return info;
}

// Enumerations first, then each class's interface and coclass, as the IDL text orders them.
TypeLibObject& Library() {
  static TypeLibObject* library = [] {
    auto* lib = new TypeLibObject();  // for the life of the process, as a loaded type library
    lib->itf.lpVtbl = &kLibVtbl;
    for (const EnumTable& e : AllEnumTables()) {
      lib->infos.push_back(MakeInfo(TKIND_ENUM, nullptr, &e, static_cast<UINT>(lib->infos.size())));
    }
    for (const ClassTable* t : AllClassTables()) {
      lib->infos.push_back(
          MakeInfo(TKIND_DISPATCH, t, nullptr, static_cast<UINT>(lib->infos.size())));
      lib->infos.push_back(
          MakeInfo(TKIND_COCLASS, t, nullptr, static_cast<UINT>(lib->infos.size())));
    }
    return lib;
  }();
  return *library;
}

}  // namespace

HRESULT InterfaceTypeInfo(const ClassTable& table, ITypeInfo** out) {
  *out = nullptr;
  TypeInfoObject* info = Library().InterfaceOf(table);
  if (info == nullptr) return TYPE_E_ELEMENTNOTFOUND;
  *out = &info->itf;
  return S_OK;
}

HRESULT LibraryTypeLib(ITypeLib** out) {
  *out = &Library().itf;
  return S_OK;
}

}  // namespace quiv::server
