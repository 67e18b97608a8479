// The dispatch table of IHash, the hashable contract: the class of that name (which callers
// cannot create) and the _IHash interface that CMessagetext, CSessionKey and CRSAKeyPair also
// implement. It has no fields and no internal routines, so its three routines are 0, 1 and 2.
// The invokers work on the object's IHash part, whichever class it is.
#include "data/IHash.h"

#include "server/ClassTables.h"

namespace quiv::server {

namespace {

IHash& Hashee(Object& o) {
  return dynamic_cast<IHash&>(o);
}

ClassTable Build() {
  TableBuilder b(u"IHash", "{DC7A915B-19C3-485A-9F9D-0771CF447D61}",
                 "{0CD8C491-3895-4A9F-8508-6CF05841D09F}", 0);
  b.Method(u"WhatToHash", {In(u"o_nWhat", AutoType::Integer, u"WHAT_TO_HASH")}, AutoType::Boolean,
           [](Object& o, CallFrame& f) { f.Return(Hashee(o).WhatToHash(f.Int(0))); });
  b.Method(u"GetDataAsByteArray", {In(u"o_abData", AutoType::Bytes)}, AutoType::Boolean,
           [](Object& o, CallFrame& f) { f.Return(Hashee(o).GetDataAsByteArray(f.Bytes(0))); });
  b.Method(u"GetSessionKeyHandle", {In(u"o_lSessionKeyHandle", AutoType::Long)}, AutoType::Boolean,
           [](Object& o, CallFrame& f) {
             HCRYPTKEY handle = static_cast<HCRYPTKEY>(f.Long(0));
             f.Return(Hashee(o).GetSessionKeyHandle(handle));
             f.Long(0) = static_cast<int32_t>(handle);
           });
  return b.Build();
}

}  // namespace

const ClassTable& IHashTable() {
  static const ClassTable table = Build();
  return table;
}

}  // namespace quiv::server
