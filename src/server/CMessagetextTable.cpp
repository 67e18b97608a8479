// The dispatch table of CMessagetext. Fields: LastError, the provider reference, the message
// buffer, the constants catalogue (4); internal routines: Set Provider and the three IHash
// routines it implements (4). Its public routines start at number 8. The class also implements
// _IHash (IHashTable).
#include "data/CMessagetext.h"

#include "server/ClassTables.h"

namespace quiv::server {

namespace {

constexpr uint16_t kFirstRoutine = 4 + 4;

ClassTable Build() {
  TableBuilder b(u"CMessagetext", "{AF133EF1-DF21-47C3-8A60-A6456E18CB2E}",
                 "{DE0116A1-52E5-467A-8BAA-DC65981DD793}", kFirstRoutine);
  b.ImplementsIHash();
  b.Method(u"Clear", {}, AutoType::Boolean,
           [](Object& o, CallFrame& f) { f.Return(Self<CMessagetext>(o).Clear()); });
  b.Method(u"GetMessagetextLengthInBytes", {In(u"o_lByteLen", AutoType::Long)}, AutoType::Boolean,
           [](Object& o, CallFrame& f) {
             f.Return(Self<CMessagetext>(o).GetMessagetextLengthInBytes(f.Long(0)));
           });
  b.Method(u"GetMessagetextLengthInChars", {In(u"o_lCharLen", AutoType::Long)}, AutoType::Boolean,
           [](Object& o, CallFrame& f) {
             f.Return(Self<CMessagetext>(o).GetMessagetextLengthInChars(f.Long(0)));
           });
  b.Method(
      u"GetMessageText", {In(u"o_abMsgTxt", AutoType::Bytes)}, AutoType::Boolean,
      [](Object& o, CallFrame& f) { f.Return(Self<CMessagetext>(o).GetMessageText(f.Bytes(0))); });
  b.Method(u"SetMessageText", {In(u"i_abMsgTxt", AutoType::Bytes)}, AutoType::Boolean,
           [](Object& o, CallFrame& f) {
             const ByteArray& bytes = f.Bytes(0);
             f.Return(Self<CMessagetext>(o).SetMessageText(bytes));
           });
  b.Method(u"LoadMessageText",
           {In(u"i_sMessageText", AutoType::String),
            In(u"i_nLoadFormat", AutoType::Long, u"DATA_FORMAT")},
           AutoType::Boolean, [](Object& o, CallFrame& f) {
             f.Return(Self<CMessagetext>(o).LoadMessageText(f.Str(0),
                                                            static_cast<DATA_FORMAT>(f.Long(1))));
           });
  b.Method(u"UnloadMessageText",
           {In(u"i_sMessageText", AutoType::String),
            In(u"i_nUnloadFormat", AutoType::Long, u"DATA_FORMAT")},
           AutoType::Boolean, [](Object& o, CallFrame& f) {
             f.Return(Self<CMessagetext>(o).UnloadMessageText(f.Str(0),
                                                              static_cast<DATA_FORMAT>(f.Long(1))));
           });
  AddOnStartPage<CMessagetext>(b);
  AddLastError<CMessagetext>(b, 0);
  return b.Build();
}

}  // namespace

const ClassTable& CMessagetextTable() {
  static const ClassTable table = Build();
  return table;
}

}  // namespace quiv::server
