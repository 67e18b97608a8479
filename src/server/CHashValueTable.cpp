// The dispatch table of CHashValue. Fields: LastError, the hash handle, the algorithm, the
// has-hash flag, the provider, converter, key tools and constants catalogue (8); internal
// routines: GetHashParam, GetHashHandle, Set Provider (3). Its public routines start at 11.
// UnloadHashValue has no trap: its failure reaches the caller (DISP_E_EXCEPTION).
#include "signing/CHashValue.h"

#include "keys/CSessionKey.h"
#include "server/ClassTables.h"

namespace quiv::server {

namespace {

constexpr uint16_t kFirstRoutine = 8 + 3;

CHashValue& Value(Object& o) {
  return Self<CHashValue>(o);
}

void AddLoadAndUnload(TableBuilder& b) {
  b.Method(u"LoadHashValue",
           {In(u"i_sHash", AutoType::String), In(u"i_nLoadFormat", AutoType::Long, u"DATA_FORMAT"),
            In(u"i_lHashAlgID", AutoType::Long)},
           AutoType::Boolean, [](Object& o, CallFrame& f) {
             f.Return(Value(o).LoadHashValue(f.Str(0), FormatArg(f, 1), f.Long(2)));
           });
  b.Method(
      u"UnloadFingerprint",
      {In(u"io_sFPrint", AutoType::String), In(u"i_nUnloadFormat", AutoType::Long, u"DATA_FORMAT"),
       OptNumber(u"i_nFPrintFormatting", AutoType::Long, 1, u"FINGERPRINT_FORMAT")},
      AutoType::Boolean, [](Object& o, CallFrame& f) {
        f.Return(Value(o).UnloadFingerprint(f.Str(0), FormatArg(f, 1),
                                            static_cast<FINGERPRINT_FORMAT>(f.Long(2))));
      });
  b.Method(
      u"UnloadHashValue",
      {In(u"io_sHash", AutoType::String), In(u"i_nUnloadFormat", AutoType::Long, u"DATA_FORMAT")},
      AutoType::Boolean, [](Object& o, CallFrame& f) {
        f.Return(Value(o).UnloadHashValue(f.Str(0), FormatArg(f, 1)));
      });
}

void AddAlgorithmMembers(TableBuilder& b) {
  b.Method(u"GetHashAlgorithmID", {In(u"o_lHashAlgorithmID", AutoType::Long)}, AutoType::Boolean,
           [](Object& o, CallFrame& f) { f.Return(Value(o).GetHashAlgorithmID(f.Long(0))); });
  b.Method(u"SetHashAlgorithmID", {In(u"i_lHashAlgorithmID", AutoType::Long)}, AutoType::Boolean,
           [](Object& o, CallFrame& f) { f.Return(Value(o).SetHashAlgorithmID(f.Long(0))); });
  b.Method(u"GetHashValueLengthInBytes", {In(u"o_nHashSize", AutoType::Integer)}, AutoType::Boolean,
           [](Object& o, CallFrame& f) { f.Return(Value(o).GetHashValueLengthInBytes(f.Int(0))); });
  b.Method(u"GetHashAlgorithmCode", {In(u"o_sHashAlgorithmCode", AutoType::String)},
           AutoType::Boolean,
           [](Object& o, CallFrame& f) { f.Return(Value(o).GetHashAlgorithmCode(f.Str(0))); });
  b.Method(u"SetHashAlgorithmCode", {In(u"o_sHashAlgorithmCode", AutoType::String)},
           AutoType::Boolean,
           [](Object& o, CallFrame& f) { f.Return(Value(o).SetHashAlgorithmCode(f.Str(0))); });
}

ClassTable Build() {
  TableBuilder b(u"CHashValue", "{4D8FC3D3-7676-4768-9BC9-AAC02755CBF3}",
                 "{C8578F4A-6AE9-4529-BB73-4D03F9F976DA}", kFirstRoutine);
  b.Method(u"Clear", {}, AutoType::Boolean,
           [](Object& o, CallFrame& f) { f.Return(Value(o).Clear()); });
  AddLoadAndUnload(b);
  b.Method(
      u"Hash",
      {Obj(u"i_oHashee", ObjectKind::IHash), OptObj(u"i_oSessionKey", ObjectKind::CSessionKey)},
      AutoType::Boolean, [](Object& o, CallFrame& f) {
        f.Return(Value(o).Hash(f.ObjAs<IHash>(0), f.ObjAs<CSessionKey>(1)));
      });
  b.Method(u"GetHashValue", {In(u"o_abHashValue", AutoType::Bytes)}, AutoType::Boolean,
           [](Object& o, CallFrame& f) { f.Return(Value(o).GetHashValue(f.Bytes(0))); });
  AddAlgorithmMembers(b);
  AddOnStartPage<CHashValue>(b);
  AddLastError<CHashValue>(b, 0);
  return b.Build();
}

}  // namespace

const ClassTable& CHashValueTable() {
  static const ClassTable table = Build();
  return table;
}

}  // namespace quiv::server
