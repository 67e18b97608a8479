// IDispatch::Invoke and GetIDsOfNames over a class table, as the automation run time does them:
// arguments arrive in reverse order, named ones first; each is coerced to its parameter's type;
// missing optional ones take the table's default; by-reference arguments receive what the member
// wrote back; errors are the run time's HRESULTs, and a run-time error that leaves a member
// without trap becomes DISP_E_EXCEPTION with the EXCEPINFO filled. Nothing here lets a C++
// exception through.
#include <new>
#include <string_view>

#include "automation/RuntimeError.h"
#include "server/CallFrame.h"
#include "server/DispatchObject.h"
#include "server/ForeignDispatch.h"
#include "server/VariantBridge.h"

namespace quiv::server {

namespace {

constexpr int kFacilityControl = 10;  // the run time's own error numbers: 0x800A0000 | number

// Where the caller's arguments sit in rgvarg for each parameter.
struct ArgumentMap {
  const VARIANT* args[CallFrame::kMaxParams] = {};
  UINT positions[CallFrame::kMaxParams] = {};
};

HRESULT MapArguments(const Member& member, const DISPPARAMS& params, ArgumentMap& map,
                     UINT* argErr) {
  if (params.cArgs > member.params.size() || params.cNamedArgs > params.cArgs) {
    return DISP_E_BADPARAMCOUNT;
  }
  const UINT positional = params.cArgs - params.cNamedArgs;
  for (UINT k = 0; k < positional; ++k) {
    map.positions[k] = params.cArgs - 1 - k;
    map.args[k] = &params.rgvarg[map.positions[k]];
  }
  for (UINT j = 0; j < params.cNamedArgs; ++j) {
    const DISPID index = params.rgdispidNamedArgs[j];
    if (index < static_cast<DISPID>(positional) ||
        index >= static_cast<DISPID>(member.params.size()) || map.args[index] != nullptr) {
      if (argErr != nullptr) *argErr = j;
      return DISP_E_PARAMNOTFOUND;
    }
    map.positions[index] = j;
    map.args[index] = &params.rgvarg[j];
  }
  return S_OK;
}

bool IsMissing(const VARIANT& value) {
  return value.vt == VT_ERROR && value.scode == DISP_E_PARAMNOTFOUND;
}

HRESULT CoerceAll(const Member& member, const ArgumentMap& map, CallFrame& frame, UINT* argErr) {
  for (size_t i = 0; i < member.params.size(); ++i) {
    const Param& param = member.params[i];
    const VARIANT value = map.args[i] != nullptr ? Dereferenced(*map.args[i]) : VARIANT{};
    if (map.args[i] == nullptr || IsMissing(value)) {
      if (!param.optional) {
        if (map.args[i] == nullptr) return DISP_E_BADPARAMCOUNT;
        if (argErr != nullptr) *argErr = map.positions[i];
        return DISP_E_PARAMNOTOPTIONAL;
      }
      DefaultArgument(param, frame.At(i));
      continue;
    }
    HRESULT hr = CoerceArgument(value, param, frame.At(i));
    if (FAILED(hr)) {
      if (hr != DISP_E_OVERFLOW && hr != E_OUTOFMEMORY) hr = DISP_E_TYPEMISMATCH;
      if (argErr != nullptr) *argErr = map.positions[i];
      return hr;
    }
  }
  return S_OK;
}

// After the call: by-reference arguments receive the slots, and the caller's own objects the
// library filled are brought up to date.
void WriteBackAll(const Member& member, const ArgumentMap& map, CallFrame& frame) {
  for (size_t i = 0; i < member.params.size(); ++i) {
    const VARIANT* arg = map.args[i];
    if (arg == nullptr) continue;
    const Param& param = member.params[i];
    if (param.object == ObjectKind::Dictionary || param.object == ObjectKind::ErrObject) {
      const VARIANT target = Dereferenced(*arg);
      const Ref<Object>& filled = frame.Obj(i);
      if (param.object == ObjectKind::Dictionary && !filled.IsNothing()) {
        MirrorDictionary(*filled.As<Dictionary>(), target.punkVal);
      } else if (!filled.IsNothing()) {
        filled.As<ErrObjectHolder>()->WriteBack();
      }
      continue;
    }
    if (param.byRef && (arg->vt & VT_BYREF) != 0) {
      WriteBack(frame.At(i), *const_cast<VARIANT*>(arg));
    }
  }
}

void FillException(EXCEPINFO* info, int32_t number, const String& source,
                   const String& description) {
  if (info == nullptr) return;
  *info = EXCEPINFO{};
  info->scode = (number > 0 && number <= 0xFFFF)
                    ? MAKE_HRESULT(SEVERITY_ERROR, kFacilityControl, number)
                    : number;
  info->bstrSource = ToBstr(source.IsEmpty() ? String(u"QUIV") : source);
  info->bstrDescription = ToBstr(description);
}

bool AcceptsFlags(const Member& member, WORD flags) {
  if (member.kind != MemberKind::Method) {
    return (flags & (DISPATCH_METHOD | DISPATCH_PROPERTYGET)) != 0;
  }
  // The default member is also read as a value (a script printing the object).
  if (member.dispId == DISPID_VALUE && member.params.empty()) {
    return (flags & (DISPATCH_METHOD | DISPATCH_PROPERTYGET)) != 0;
  }
  return (flags & DISPATCH_METHOD) != 0;
}

HRESULT Put(const Member& member, Object& target, WORD flags, const DISPPARAMS& params,
            UINT* argErr) {
  const bool object = member.result == AutoType::Object;
  const WORD needed = object ? DISPATCH_PROPERTYPUTREF : DISPATCH_PROPERTYPUT;
  if (member.kind != MemberKind::DataMember || (flags & needed) == 0) {
    return DISP_E_MEMBERNOTFOUND;
  }
  if (params.cNamedArgs != 1 || params.rgdispidNamedArgs[0] != DISPID_PROPERTYPUT) {
    return DISP_E_PARAMNOTOPTIONAL;
  }
  if (params.cArgs != 1) return DISP_E_BADPARAMCOUNT;
  Param value = In(member.name, member.result);
  value.object = member.resultObject;
  CallFrame frame;
  HRESULT hr = CoerceArgument(Dereferenced(params.rgvarg[0]), value, frame.At(0));
  if (FAILED(hr)) {
    if (argErr != nullptr) *argErr = 0;
    return hr == DISP_E_OVERFLOW ? hr : DISP_E_TYPEMISMATCH;
  }
  member.put(target, frame);
  return S_OK;
}

HRESULT Call(const Member& member, Object& target, WORD flags, const DISPPARAMS& params,
             VARIANT* result, UINT* argErr) {
  if (!AcceptsFlags(member, flags)) return DISP_E_MEMBERNOTFOUND;
  ArgumentMap map;
  HRESULT hr = MapArguments(member, params, map, argErr);
  if (FAILED(hr)) return hr;
  CallFrame frame;
  hr = CoerceAll(member, map, frame, argErr);
  if (FAILED(hr)) return hr;
  frame.SetDispId(member.dispId);
  member.call(target, frame);
  WriteBackAll(member, map, frame);
  if (result != nullptr && member.result != AutoType::None) {
    return SlotToVariant(frame.Result(), *result);
  }
  return S_OK;
}

}  // namespace

HRESULT InvokeTable(const ClassTable& table, Object& target, DISPID dispId, WORD flags,
                    DISPPARAMS* params, VARIANT* result, EXCEPINFO* excepInfo, UINT* argErr) {
  const Member* member = table.FindByDispId(dispId);
  if (member == nullptr) return DISP_E_MEMBERNOTFOUND;
  DISPPARAMS none{};
  const DISPPARAMS& args = params != nullptr ? *params : none;
  if ((args.cArgs > 0 && args.rgvarg == nullptr) ||
      (args.cNamedArgs > 0 && args.rgdispidNamedArgs == nullptr)) {
    return E_INVALIDARG;
  }
  if (result != nullptr) VariantInit(result);
  try {
    if ((flags & (DISPATCH_PROPERTYPUT | DISPATCH_PROPERTYPUTREF)) != 0) {
      return Put(*member, target, flags, args, argErr);
    }
    return Call(*member, target, flags, args, result, argErr);
  } catch (const RuntimeError& error) {
    FillException(excepInfo, error.Number(), error.Source(), error.Description());
    return DISP_E_EXCEPTION;
  } catch (const std::bad_alloc&) {
    return E_OUTOFMEMORY;
  } catch (...) {
    FillException(excepInfo, E_UNEXPECTED, String(u"QUIV"), String(u"Unexpected error"));
    return DISP_E_EXCEPTION;
  }
}

HRESULT NamesToIds(const ClassTable& table, LPOLESTR* names, UINT count, DISPID* ids) {
  if (count == 0) return S_OK;
  if (names == nullptr || ids == nullptr) return E_POINTER;
  try {
    for (UINT i = 0; i < count; ++i) ids[i] = DISPID_UNKNOWN;
    if (names[0] == nullptr) return DISP_E_UNKNOWNNAME;
    const Member* member = table.FindByName(std::u16string_view(names[0]));
    if (member == nullptr) return DISP_E_UNKNOWNNAME;
    ids[0] = member->dispId;
    HRESULT hr = S_OK;
    // Further names are the member's parameters; their ids are their positions.
    for (UINT i = 1; i < count; ++i) {
      const String wanted(names[i] != nullptr ? names[i] : u"");
      for (size_t p = 0; p < member->params.size(); ++p) {
        if (wanted.EqualsText(String(member->params[p].name))) ids[i] = static_cast<DISPID>(p);
      }
      if (ids[i] == DISPID_UNKNOWN) hr = DISP_E_UNKNOWNNAME;
    }
    return hr;
  } catch (...) {
    return E_OUTOFMEMORY;
  }
}

}  // namespace quiv::server
