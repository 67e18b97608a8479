// The dispatch table of CProvider. Fields of its data model: LastError, the context handle, the
// has-context flag, provider name and type, the terminated flag, the six working objects, the
// constants catalogue and the version code (14); internal routines: AcquireContext, Get
// ContextHandle, Get/Let HasContext, Get ProviderName, Get ProviderType, Get WinVer (6). So
// LoadProvider, the first public routine, is number 20.
#include "provider/CProvider.h"

#include "data/CMessagetext.h"
#include "keys/CSessionKey.h"
#include "provider/CAlgInfo.h"
#include "provider/CContainer.h"
#include "server/ClassTables.h"
#include "signing/CHashValue.h"
#include "signing/CRSAKeyPair.h"

namespace quiv::server {

namespace {

constexpr uint16_t kFirstRoutine = 14 + 6;

// A factory method: hands out one of the provider's objects through its by-reference output.
template <class T, bool (CProvider::*Get)(Ref<T>&)>
void HandOut(Object& o, CallFrame& f) {
  Ref<T> out = f.ObjAs<T>(0);
  f.Return((Self<CProvider>(o).*Get)(out));
  f.SetObj(0, out);
}

ClassTable Build() {
  TableBuilder b(u"CProvider", "{11005E58-1605-4823-A111-015C80BEF343}",
                 "{A2E82B9C-EF25-45C8-85C1-A73B02160661}", kFirstRoutine);
  b.Creatable();
  b.Method(u"LoadProvider",
           {OptText(u"i_sContainer", u""),
            OptNumber(u"i_lContainerAccess", AutoType::Long, 0, u"CONTAINER_ACCESS"),
            OptNumber(u"i_lContainerKeysAccess", AutoType::Long, 0, u"CONTAINER_KEYS_ACCESS")},
           AutoType::Boolean, [](Object& o, CallFrame& f) {
             f.Return(Self<CProvider>(o).LoadProvider(f.Str(0), f.Long(1), f.Long(2)));
           });
  b.Method(u"SetProviderName", {In(u"i_sProviderName", AutoType::String)}, AutoType::Boolean,
           [](Object& o, CallFrame& f) { f.Return(Self<CProvider>(o).SetProviderName(f.Str(0))); });
  b.Method(
      u"SetProviderTypeID", {In(u"i_lProviderTypeID", AutoType::Long)}, AutoType::Boolean,
      [](Object& o, CallFrame& f) { f.Return(Self<CProvider>(o).SetProviderTypeID(f.Long(0))); });
  b.Method(
      u"SetProviderTypeCode", {In(u"i_sProvTypeCode", AutoType::String)}, AutoType::Boolean,
      [](Object& o, CallFrame& f) { f.Return(Self<CProvider>(o).SetProviderTypeCode(f.Str(0))); });
  b.Method(u"GetProviderName", {In(u"o_sProvName", AutoType::String)}, AutoType::Boolean,
           [](Object& o, CallFrame& f) { f.Return(Self<CProvider>(o).GetProviderName(f.Str(0))); });
  b.Method(
      u"GetProviderTypeID", {In(u"o_lType", AutoType::Long)}, AutoType::Boolean,
      [](Object& o, CallFrame& f) { f.Return(Self<CProvider>(o).GetProviderTypeID(f.Long(0))); });
  b.Method(
      u"GetProviderTypeCode", {In(u"o_sTypeName", AutoType::String)}, AutoType::Boolean,
      [](Object& o, CallFrame& f) { f.Return(Self<CProvider>(o).GetProviderTypeCode(f.Str(0))); });
  b.Method(u"Clear", {}, AutoType::Variant,
           [](Object& o, CallFrame& f) { f.Return(Self<CProvider>(o).Clear()); });
  b.Method(u"TerminateAll", {}, AutoType::Boolean,
           [](Object& o, CallFrame& f) { f.Return(Self<CProvider>(o).TerminateAll()); });
  AddOnStartPage<CProvider>(b);
  b.Method(u"GetContainerObject", {Obj(u"o_oContainer", ObjectKind::CContainer)}, AutoType::Boolean,
           HandOut<CContainer, &CProvider::GetContainerObject>);
  b.Method(u"GetExchangeKeyPairObject", {Obj(u"o_oExKeyPair", ObjectKind::CRSAKeyPair)},
           AutoType::Boolean, HandOut<CRSAKeyPair, &CProvider::GetExchangeKeyPairObject>);
  b.Method(u"GetSignatureKeyPairObject", {Obj(u"o_oSigKeyPair", ObjectKind::CRSAKeyPair)},
           AutoType::Boolean, HandOut<CRSAKeyPair, &CProvider::GetSignatureKeyPairObject>);
  b.Method(u"GetSessionKeyObject", {Obj(u"o_oSessionKey", ObjectKind::CSessionKey)},
           AutoType::Boolean, HandOut<CSessionKey, &CProvider::GetSessionKeyObject>);
  b.Method(u"GetMessageTextObject", {Obj(u"o_oMessageText", ObjectKind::CMessagetext)},
           AutoType::Boolean, HandOut<CMessagetext, &CProvider::GetMessageTextObject>);
  b.Method(u"GetHashValueObject", {Obj(u"o_oHash", ObjectKind::CHashValue)}, AutoType::Boolean,
           HandOut<CHashValue, &CProvider::GetHashValueObject>);
  b.Method(u"GetListOfAlgorithms", {Obj(u"o_oAlgInfo", ObjectKind::CAlgInfo)}, AutoType::Boolean,
           HandOut<CAlgInfo, &CProvider::GetListOfAlgorithms>);
  b.Method(
      u"GetProviderVersion", {In(u"o_sVersion", AutoType::String)}, AutoType::Boolean,
      [](Object& o, CallFrame& f) { f.Return(Self<CProvider>(o).GetProviderVersion(f.Str(0))); });
  b.Method(u"GetProviderImplementation", {In(u"o_lImpType", AutoType::String)}, AutoType::Boolean,
           [](Object& o, CallFrame& f) {
             f.Return(Self<CProvider>(o).GetProviderImplementation(f.Str(0)));
           });
  AddLastError<CProvider>(b, 0);
  return b.Build();
}

}  // namespace

const ClassTable& CProviderTable() {
  static const ClassTable table = Build();
  return table;
}

}  // namespace quiv::server
