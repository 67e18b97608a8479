// IDispatch::Invoke on every member of every class of a live provider session, with arbitrary
// argument lists: any count, any automation type (numbers, booleans, strings, numeric text,
// byte arrays, arrays of variants, Empty, Null, missing), by value or by reference (through a
// variant or typed), named arguments, the session's own objects and a caller's foreign object.
//
// Properties checked on every call: the answer is one of the HRESULTs Invoke documents; an
// exception comes with a filled EXCEPINFO; an argument error names an argument that exists; a
// successful call returns the type its table states; every reference the call took to the
// foreign object is given back, and no wrapper outlives the arguments and result that held it.
// The sanitizers and LeakSanitizer catch the rest; an escaping C++ exception aborts.
//
// The session runs in a private temporary folder with its own key store and registry, the
// error log silenced; file formats are turned into hex strings and key lengths kept small, so
// that a run neither touches the caller's files nor spends its time generating big keys.
//
// Input: [object][member lo][member hi][flags][count][named] then per argument [kind][payload].
#include <stdlib.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "FuzzSupport.h"
#include "platform/ForwardingPlatform.h"
#include "platform/PlatformSeam.h"
#include "server/ClassTables.h"
#include "server/DispatchObject.h"
#include "server/VariantBridge.h"
#include "server/quiv_server.h"

namespace {

using quiv::server::AutoType;
using quiv::server::ClassTable;
using quiv::server::Member;
using quiv::server::MemberKind;

class SilentLog final : public quiv::platform::ForwardingPlatform {
 public:
  SilentLog() : ForwardingPlatform(quiv::platform::DefaultPlatform()) {}
  bool StartLogging(std::string_view, quiv::platform::LogMode) override { return true; }
  bool LogEvent(std::string_view, quiv::platform::LogEventType) override { return true; }
};

// A caller's object: counts its references, knows no names, answers nothing.
struct Foreign {
  IDispatch itf;
  ULONG refs = 1;
  static Foreign* Self(IDispatch* d) { return reinterpret_cast<Foreign*>(d); }
  static HRESULT QueryInterface(IDispatch* d, REFIID riid, void** out) {
    *out = nullptr;
    if (!IsEqualIID(riid, &IID_IUnknown) && !IsEqualIID(riid, &IID_IDispatch)) {
      return E_NOINTERFACE;
    }
    *out = d;
    ++Self(d)->refs;
    return S_OK;
  }
  static ULONG AddRef(IDispatch* d) { return ++Self(d)->refs; }
  static ULONG Release(IDispatch* d) { return --Self(d)->refs; }
  static HRESULT Count(IDispatch*, UINT* n) {
    *n = 0;
    return S_OK;
  }
  static HRESULT Info(IDispatch*, UINT, LCID, ITypeInfo**) { return E_NOTIMPL; }
  static HRESULT Names(IDispatch*, REFIID, LPOLESTR*, UINT, LCID, DISPID*) {
    return DISP_E_UNKNOWNNAME;
  }
  static HRESULT Call(IDispatch*, DISPID, REFIID, LCID, WORD, DISPPARAMS*, VARIANT*, EXCEPINFO*,
                      UINT*) {
    return DISP_E_MEMBERNOTFOUND;
  }
  static constexpr IDispatchVtbl kVtbl = {QueryInterface, AddRef, Release, Count,
                                          Info,           Names,  Call};
  Foreign() : itf{&kVtbl} {}
};

bool WarmUpPlatform();

// The live session the calls go to, ended (TerminateAll) and released at exit.
struct Session {
  SilentLog log;
  quiv::platform::ScopedPlatformOverride use{log};
  std::vector<std::pair<const ClassTable*, IDispatch*>> objects;
  IDispatch* provider = nullptr;
  Foreign foreign;
  size_t baselineWrappers = 0;

  Session() {
    char folder[] = "/tmp/quiv-invoke-fuzz-XXXXXX";
    fuzz::Require(mkdtemp(folder) != nullptr);
    fuzz::Require(chdir(folder) == 0);
    setenv("QUIV_KEY_STORE", (std::string(folder) + "/keys").c_str(), 1);
    setenv("QUIV_REGISTRY", (std::string(folder) + "/registry").c_str(), 1);
    fuzz::Require(QuivCreateObject(u"QUIV.CProvider", &provider) == S_OK);
    CallSimple(provider, u"SetProviderTypeID", 1);
    CallSimple(provider, u"LoadProvider", -1);
    WarmUpPlatform();
    Add(quiv::server::CProviderTable(), provider);
    provider->lpVtbl->AddRef(provider);
    Add(quiv::server::CContainerTable(), Fetch(u"GetContainerObject"));
    Add(quiv::server::CMessagetextTable(), Fetch(u"GetMessageTextObject"));
    Add(quiv::server::CSessionKeyTable(), Fetch(u"GetSessionKeyObject"));
    Add(quiv::server::CRSAKeyPairTable(), Fetch(u"GetExchangeKeyPairObject"));
    Add(quiv::server::CRSAKeyPairTable(), Fetch(u"GetSignatureKeyPairObject"));
    Add(quiv::server::CHashValueTable(), Fetch(u"GetHashValueObject"));
    IDispatch* made = nullptr;
    QuivCreateObject(u"QUIV.CAlgInfo", &made);
    Add(quiv::server::CAlgInfoTable(), made);
    QuivCreateObject(u"QUIV.CErrHandler", &made);
    Add(quiv::server::CErrHandlerTable(), made);
    QuivCreateObject(u"QUIV.TolvaOpenSourceLicense", &made);
    Add(quiv::server::TolvaOpenSourceLicenseTable(), made);
    QuivGetAppObject(&made);
    Add(quiv::server::CConstQUIVTable(), made);
    void* hashee = nullptr;
    objects[2].second->lpVtbl->QueryInterface(
        objects[2].second, quiv::server::AsGuid(quiv::server::IHashTable().iid), &hashee);
    Add(quiv::server::IHashTable(), static_cast<IDispatch*>(hashee));
    baselineWrappers = quiv::server::DispatchObject::LiveCount();
  }

  ~Session() {
    CallSimple(provider, u"TerminateAll", -1);
    for (auto& [table, object] : objects) object->lpVtbl->Release(object);
    provider->lpVtbl->Release(provider);
    // Every reference the library took to the caller's object went with the objects.
    fuzz::Require(foreign.refs == 1);
    fuzz::Require(quiv::server::DispatchObject::LiveCount() == 0);
  }

  void Add(const ClassTable& table, IDispatch* object) {
    fuzz::Require(object != nullptr);
    objects.emplace_back(&table, object);
  }

  // A method with one Long argument (none when `value` is -1), result dropped.
  static void CallSimple(IDispatch* object, const char16_t* name, int32_t value) {
    LPOLESTR names[1] = {const_cast<LPOLESTR>(name)};
    DISPID id = 0;
    object->lpVtbl->GetIDsOfNames(object, &IID_NULL, names, 1, 0, &id);
    VARIANT arg;
    VariantInit(&arg);
    arg.vt = VT_I4;
    arg.lVal = value;
    DISPPARAMS params{&arg, nullptr, value == -1 ? 0u : 1u, 0};
    VARIANT result;
    VariantInit(&result);
    object->lpVtbl->Invoke(object, id, &IID_NULL, 0, DISPATCH_METHOD, &params, &result, nullptr,
                           nullptr);
    VariantClear(&result);
  }

  IDispatch* Fetch(const char16_t* method) { return FetchFrom(provider, method); }

  static IDispatch* FetchFrom(IDispatch* provider, const char16_t* method) {
    VARIANT slot;
    VariantInit(&slot);
    VARIANT arg;
    VariantInit(&arg);
    arg.vt = VT_BYREF | VT_VARIANT;
    arg.pvarVal = &slot;
    LPOLESTR names[1] = {const_cast<LPOLESTR>(method)};
    DISPID id = 0;
    provider->lpVtbl->GetIDsOfNames(provider, &IID_NULL, names, 1, 0, &id);
    DISPPARAMS params{&arg, nullptr, 1, 0};
    VARIANT result;
    VariantInit(&result);
    provider->lpVtbl->Invoke(provider, id, &IID_NULL, 0, DISPATCH_METHOD, &params, &result, nullptr,
                             nullptr);
    fuzz::Require(slot.vt == VT_DISPATCH && slot.pdispVal != nullptr);
    return slot.pdispVal;
  }
};

// The platform keeps its handle tables in statics made on first use. They must outlive the
// session, which ends at exit: statics made while the session is being made are destroyed after
// it, so its constructor runs one short session that touches every table (contexts, keys,
// hashes).
bool WarmUpPlatform() {
  IDispatch* provider = nullptr;
  fuzz::Require(QuivCreateObject(u"QUIV.CProvider", &provider) == S_OK);
  Session::CallSimple(provider, u"SetProviderTypeID", 1);
  Session::CallSimple(provider, u"LoadProvider", -1);
  IDispatch* key = Session::FetchFrom(provider, u"GetSessionKeyObject");
  IDispatch* hash = Session::FetchFrom(provider, u"GetHashValueObject");
  Session::CallSimple(key, u"GenerateSessionKey", -1);
  Session::CallSimple(hash, u"SetHashAlgorithmID", 32771);
  Session::CallSimple(hash, u"GetHashAlgorithmID", -1);
  Session::CallSimple(provider, u"TerminateAll", -1);
  key->lpVtbl->Release(key);
  hash->lpVtbl->Release(hash);
  provider->lpVtbl->Release(provider);
  return true;
}

Session& TheSession() {
  static Session session;
  return session;
}

class Reader {
 public:
  Reader(const uint8_t* data, size_t size) : m_data(data), m_size(size) {}
  uint8_t Byte() { return m_pos < m_size ? m_data[m_pos++] : 0; }
  void Bytes(void* out, size_t n) {
    auto* p = static_cast<uint8_t*>(out);
    for (size_t i = 0; i < n; ++i) p[i] = Byte();
  }

 private:
  const uint8_t* m_data;
  size_t m_size;
  size_t m_pos = 0;
};

// One argument's value (the kind byte's low four bits say which).
VARIANT Value(Reader& in, uint8_t kind, Session& session) {
  VARIANT v;
  std::memset(&v, 0, sizeof v);  // VariantInit sets only the type; a null object needs zeros
  switch (kind & 0x0F) {
    case 1:
      v.vt = VT_I2;
      in.Bytes(&v.iVal, 2);
      break;
    case 2:
      v.vt = VT_I4;
      in.Bytes(&v.lVal, 4);
      break;
    case 3:
      v.vt = VT_R8;
      in.Bytes(&v.dblVal, 8);
      break;
    case 4:
      v.vt = VT_BOOL;
      v.boolVal = (in.Byte() & 1) ? VARIANT_TRUE : VARIANT_FALSE;
      break;
    case 5:
    case 6: {  // UTF-16 units, or bytes as characters (numeric text and names)
      std::u16string text(in.Byte() % 48, u'\0');
      for (char16_t& c : text) {
        c = (kind & 0x0F) == 5 ? static_cast<char16_t>(in.Byte() | in.Byte() << 8)
                               : static_cast<char16_t>(in.Byte());
      }
      v.vt = VT_BSTR;
      v.bstrVal = SysAllocStringLen(text.data(), static_cast<UINT>(text.size()));
      break;
    }
    case 7:
      v.vt = VT_ERROR;
      v.scode = DISP_E_PARAMNOTFOUND;
      break;
    case 8:
      v.vt = VT_NULL;
      break;
    case 9: {
      const ULONG n = in.Byte() % 64;
      v.vt = VT_ARRAY | VT_UI1;
      v.parray = SafeArrayCreateVector(VT_UI1, 0, n);
      void* data = nullptr;
      if (n > 0 && SafeArrayAccessData(v.parray, &data) == S_OK) {
        in.Bytes(data, n);
        SafeArrayUnaccessData(v.parray);
      }
      break;
    }
    case 10: {  // an array of variants, nested one level
      const ULONG n = in.Byte() % 4;
      v.vt = VT_ARRAY | VT_VARIANT;
      v.parray = SafeArrayCreateVector(VT_VARIANT, 0, n);
      void* data = nullptr;
      if (n > 0 && SafeArrayAccessData(v.parray, &data) == S_OK) {
        auto* items = static_cast<VARIANT*>(data);
        for (ULONG i = 0; i < n; ++i)
          items[i] = Value(in, static_cast<uint8_t>(in.Byte() % 10), session);
        SafeArrayUnaccessData(v.parray);
      }
      break;
    }
    case 11:
      v.vt = VT_DISPATCH;
      v.pdispVal = &session.foreign.itf;
      session.foreign.refs++;
      break;
    case 12: {
      IDispatch* object = session.objects[in.Byte() % session.objects.size()].second;
      object->lpVtbl->AddRef(object);
      v.vt = VT_DISPATCH;
      v.pdispVal = object;
      break;
    }
    case 13:
      v.vt = VT_UNKNOWN;
      break;
    case 14:
      v.vt = VT_DATE;
      in.Bytes(&v.date, 8);
      break;
    case 15:
      v.vt = VT_I8;
      in.Bytes(&v.llVal, 8);
      break;
    default:
      break;
  }
  return v;
}

// Keeps a run inside its folder and quick: outside forms that are files become hex strings,
// key lengths stay small.
void Tame(const Member& member, size_t index, VARIANT& arg) {
  const quiv::server::Param& param = member.params[index];
  VARIANT probe;
  VariantInit(&probe);
  if (param.enumName == u"DATA_FORMAT" && VariantChangeType(&probe, &arg, 0, VT_I4) == S_OK &&
      (probe.lVal == 0 || probe.lVal == 1)) {
    VariantClear(&arg);
    arg.vt = VT_I4;
    arg.lVal = 2;
  }
  if (member.name == u"SetModulus") {
    VariantClear(&arg);
    arg.vt = VT_I4;
    arg.lVal = 512;
  }
}

bool Documented(HRESULT hr) {
  switch (hr) {
    case S_OK:
    case DISP_E_MEMBERNOTFOUND:
    case DISP_E_PARAMNOTFOUND:
    case DISP_E_TYPEMISMATCH:
    case DISP_E_EXCEPTION:
    case DISP_E_OVERFLOW:
    case DISP_E_BADPARAMCOUNT:
    case DISP_E_PARAMNOTOPTIONAL:
    case E_OUTOFMEMORY:
    case E_INVALIDARG:
      return true;
    default:
      return false;
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Session& session = TheSession();
  Reader in(data, size);
  const auto& [table, object] = session.objects[in.Byte() % session.objects.size()];
  if (table->members.empty()) return 0;
  const size_t which = static_cast<size_t>(in.Byte() | in.Byte() << 8) % table->members.size();
  const Member& member = table->members[which];
  static constexpr WORD kFlags[] = {DISPATCH_METHOD, DISPATCH_PROPERTYGET, DISPATCH_PROPERTYPUT,
                                    DISPATCH_PROPERTYPUTREF,
                                    DISPATCH_METHOD | DISPATCH_PROPERTYGET};
  const WORD flags = kFlags[in.Byte() % 5];
  const size_t count = in.Byte() % 10;
  const uint8_t named = in.Byte();
  const ULONG foreignRefs = session.foreign.refs;

  // The caller's variables for by-reference arguments, and the arguments in reverse order.
  std::vector<VARIANT> holders(count);
  std::vector<VARIANT> args(count);
  for (size_t k = 0; k < count; ++k) {
    const uint8_t kind = in.Byte();
    holders[k] = Value(in, kind, session);
    const size_t param = count - 1 - k;  // rgvarg[k] is parameter count-1-k
    if (param < member.params.size()) Tame(member, param, holders[k]);
    VariantInit(&args[k]);
    if (kind & 0x10) {
      args[k].vt = VT_BYREF | VT_VARIANT;
      args[k].pvarVal = &holders[k];
    } else if ((kind & 0x20) && holders[k].vt != VT_EMPTY && holders[k].vt != VT_NULL) {
      args[k].vt = static_cast<VARTYPE>(VT_BYREF | holders[k].vt);
      args[k].byref = &holders[k].iVal;  // the value's storage inside the holder
    } else {
      args[k] = holders[k];
      VariantInit(&holders[k]);
    }
  }
  DISPID namedIds[1] = {(named & 1) ? DISPID_PROPERTYPUT : static_cast<DISPID>(named >> 1)};
  const UINT namedCount = count > 0 && (named & 3) != 0 ? 1 : 0;
  DISPPARAMS params{args.data(), namedCount ? namedIds : nullptr, static_cast<UINT>(count),
                    namedCount};
  VARIANT result;
  VariantInit(&result);
  EXCEPINFO excep{};
  UINT argErr = ~0u;
  const HRESULT hr = object->lpVtbl->Invoke(object, member.dispId, &IID_NULL, 0, flags, &params,
                                            &result, &excep, &argErr);

  fuzz::Require(Documented(hr));
  if (hr == DISP_E_EXCEPTION) {
    fuzz::Require(excep.bstrDescription != nullptr && excep.bstrSource != nullptr);
    fuzz::Require(excep.scode < 0);
  }
  if (hr == DISP_E_TYPEMISMATCH || hr == DISP_E_OVERFLOW) fuzz::Require(argErr < count);
  const bool read = (flags & (DISPATCH_METHOD | DISPATCH_PROPERTYGET)) != 0 &&
                    (flags & (DISPATCH_PROPERTYPUT | DISPATCH_PROPERTYPUTREF)) == 0;
  if (hr == S_OK && read && member.result != AutoType::Variant) {
    fuzz::Require(result.vt == quiv::server::VarTypeOf(member.result));
  }
  VariantClear(&result);
  SysFreeString(excep.bstrSource);
  SysFreeString(excep.bstrDescription);
  SysFreeString(excep.bstrHelpFile);
  for (size_t k = 0; k < count; ++k) {
    if ((args[k].vt & VT_BYREF) == 0) VariantClear(&args[k]);
    VariantClear(&holders[k]);
  }
  // Only a page context handed to a record (or taken from it) keeps a reference, and
  // TerminateAll lets go of the one the provider's records hold.
  const bool keepsPage = member.name == u"OnStartPage" || member.name == u"OnEndPage" ||
                         member.name == u"LoadError" || member.name == u"LastError" ||
                         member.name == u"TerminateAll";
  if (!keepsPage) fuzz::Require(session.foreign.refs == foreignRefs);
  fuzz::Require(quiv::server::DispatchObject::LiveCount() == session.baselineWrappers);
  return 0;
}
