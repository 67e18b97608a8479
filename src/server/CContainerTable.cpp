// The dispatch table of CContainer. Fields: LastError, the provider reference, the last
// container access, the constants catalogue (4); internal routines: DoContainer,
// CheckForKeyPair, Set Provider (3). Its public routines start at number 7.
#include "provider/CContainer.h"

#include "server/ClassTables.h"

namespace quiv::server {

namespace {

constexpr uint16_t kFirstRoutine = 4 + 3;

bool Open(bool (CContainer::*action)(const String&, int32_t, int32_t), Object& o, CallFrame& f) {
  return (Self<CContainer>(o).*action)(f.Str(0), f.Long(1), f.Long(2));
}

ClassTable Build() {
  TableBuilder b(u"CContainer", "{0F8070D5-C61E-425A-92B3-6D122D7E5306}",
                 "{07AD9C85-7EEA-4BA7-B384-C4D3481E9145}", kFirstRoutine);
  b.Method(
      u"CheckForContainer",
      {In(u"i_sContainerName", AutoType::String), In(u"o_fContainerExists", AutoType::Boolean)},
      AutoType::Boolean, [](Object& o, CallFrame& f) {
        f.Return(Self<CContainer>(o).CheckForContainer(f.Str(0), f.Bool(1)));
      });
  b.Method(u"CheckForExchangeKeyPair", {In(u"o_fKeyPairExists", AutoType::Boolean)},
           AutoType::Boolean, [](Object& o, CallFrame& f) {
             f.Return(Self<CContainer>(o).CheckForExchangeKeyPair(f.Bool(0)));
           });
  b.Method(u"CheckForSignatureKeyPair", {In(u"o_fKeyPairExists", AutoType::Boolean)},
           AutoType::Boolean, [](Object& o, CallFrame& f) {
             f.Return(Self<CContainer>(o).CheckForSignatureKeyPair(f.Bool(0)));
           });
  b.Method(u"DeleteAllContainers", {}, AutoType::Boolean,
           [](Object& o, CallFrame& f) { f.Return(Self<CContainer>(o).DeleteAllContainers()); });
  b.Method(
      u"DeleteContainer", {In(u"i_sContainerName", AutoType::String)}, AutoType::Boolean,
      [](Object& o, CallFrame& f) { f.Return(Self<CContainer>(o).DeleteContainer(f.Str(0))); });
  b.Method(
      u"GetContainerName", {In(u"o_sContainerName", AutoType::String)}, AutoType::Boolean,
      [](Object& o, CallFrame& f) { f.Return(Self<CContainer>(o).GetContainerName(f.Str(0))); });
  b.Method(u"GetListOfContainers", {Obj(u"o_dContainer", ObjectKind::Dictionary)},
           AutoType::Boolean, [](Object& o, CallFrame& f) {
             f.Return(Self<CContainer>(o).GetListOfContainers(*f.ObjAs<Dictionary>(0)));
           });
  b.Method(u"LoadContainer",
           {In(u"i_sContainerName", AutoType::String),
            In(u"i_lContainerAccess", AutoType::Long, u"CONTAINER_ACCESS"),
            OptNumber(u"i_lContainerKeysAccess", AutoType::Long, 0, u"CONTAINER_KEYS_ACCESS")},
           AutoType::Boolean,
           [](Object& o, CallFrame& f) { f.Return(Open(&CContainer::LoadContainer, o, f)); });
  b.Method(u"NewContainer",
           {In(u"i_sContainerName", AutoType::String),
            In(u"i_lContainerAccess", AutoType::Long, u"CONTAINER_ACCESS"),
            OptNumber(u"i_lContainerKeysAccess", AutoType::Long, 0, u"CONTAINER_KEYS_ACCESS")},
           AutoType::Boolean,
           [](Object& o, CallFrame& f) { f.Return(Open(&CContainer::NewContainer, o, f)); });
  AddOnStartPage<CContainer>(b);
  AddLastError<CContainer>(b, 0);
  return b.Build();
}

}  // namespace

const ClassTable& CContainerTable() {
  static const ClassTable table = Build();
  return table;
}

}  // namespace quiv::server
