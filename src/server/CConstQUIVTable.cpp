// The dispatch table of CConstQUIV, generated from the catalogue's own table (CConstQUIV.def):
// 342 read-only properties in slot order, numbered downward from 341 (PROV_ENUMALGS_EX_ITEMS is
// 0x68030155). The class has no fields and no routines besides them. It is creatable and is
// also the predeclared global application object.
#include <string>
#include <vector>

#include "server/ClassTables.h"

namespace quiv::server {

namespace {

// Every property shares this getter; the dispatch id says which one is read.
void GetConstant(Object& o, CallFrame& f) {
  CConstQUIV::Value value;
  Self<ConstantsObject>(o).Constants().LookupDispId(f.DispId(), value);
  if (value.kind == CConstQUIV::Kind::String) {
    f.Return(String(value.text));
  } else {
    f.Return(value.integer);
  }
}

ClassTable Build() {
  const auto properties = CConstQUIV::Properties();
  // The names as UTF-16, kept for the life of the process (the table refers to them).
  static const std::vector<std::u16string> names = [&] {
    std::vector<std::u16string> out;
    for (const CConstQUIV::Property& p : properties) out.emplace_back(p.name.begin(), p.name.end());
    return out;
  }();
  TableBuilder b(u"CConstQUIV", "{945EDD42-5E55-4416-A74A-C6643780569C}",
                 "{01C1A574-B897-43ED-8A1B-DE9E169E6E66}",
                 static_cast<uint16_t>(properties.size() - 1));
  b.Creatable().AppObject().CountDown();
  for (size_t i = 0; i < properties.size(); ++i) {
    const bool text = properties[i].kind == CConstQUIV::Kind::String;
    b.Property(names[i], text ? AutoType::String : AutoType::Long, GetConstant);
  }
  return b.Build();
}

}  // namespace

const ClassTable& CConstQUIVTable() {
  static const ClassTable table = Build();
  return table;
}

}  // namespace quiv::server
