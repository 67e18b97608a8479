// The dispatch table of CAlgInfo. Fields: LastError, the full list, the view, the cursor, the EOF
// and BOF flags, the key tools, the constants catalogue (8); internal routines: SetAlgorithms
// and the valid-position test (2). Its public routines start at number 10. The getters and the
// cursor moves have no trap: their run-time errors reach the caller (DISP_E_EXCEPTION).
#include "provider/CAlgInfo.h"

#include "server/ClassTables.h"

namespace quiv::server {

namespace {

constexpr uint16_t kFirstRoutine = 8 + 2;

ClassTable Build() {
  TableBuilder b(u"CAlgInfo", "{BAC46608-50E1-4EE5-81B2-B0F5560AA604}",
                 "{FE32EE8F-CDB9-4E6A-BED1-7E74B4AF4258}", kFirstRoutine);
  b.Creatable();
  b.Property(u"AlgorithmID", AutoType::Long,
             [](Object& o, CallFrame& f) { f.Return(Self<CAlgInfo>(o).AlgorithmID()); });
  b.Property(u"AlgorithmCode", AutoType::String,
             [](Object& o, CallFrame& f) { f.Return(Self<CAlgInfo>(o).AlgorithmCode()); });
  b.Property(u"DefaultLength", AutoType::Long,
             [](Object& o, CallFrame& f) { f.Return(Self<CAlgInfo>(o).DefaultLength()); });
  b.Property(u"MinLength", AutoType::Long,
             [](Object& o, CallFrame& f) { f.Return(Self<CAlgInfo>(o).MinLength()); });
  b.Property(u"MaxLength", AutoType::Double,
             [](Object& o, CallFrame& f) { f.Return(Self<CAlgInfo>(o).MaxLength()); });
  b.Property(u"NumProtocols", AutoType::Long,
             [](Object& o, CallFrame& f) { f.Return(Self<CAlgInfo>(o).NumProtocols()); });
  b.Property(u"ShortAlgorithmName", AutoType::String,
             [](Object& o, CallFrame& f) { f.Return(Self<CAlgInfo>(o).ShortAlgorithmName()); });
  b.Property(u"LongAlgorithmName", AutoType::String,
             [](Object& o, CallFrame& f) { f.Return(Self<CAlgInfo>(o).LongAlgorithmName()); });
  b.Method(u"MoveNext", {}, AutoType::None,
           [](Object& o, CallFrame&) { Self<CAlgInfo>(o).MoveNext(); });
  b.Method(u"MovePrevious", {}, AutoType::None,
           [](Object& o, CallFrame&) { Self<CAlgInfo>(o).MovePrevious(); });
  b.Method(u"MoveFirst", {}, AutoType::None,
           [](Object& o, CallFrame&) { Self<CAlgInfo>(o).MoveFirst(); });
  b.Method(u"MoveLast", {}, AutoType::None,
           [](Object& o, CallFrame&) { Self<CAlgInfo>(o).MoveLast(); });
  b.Property(u"EOF", AutoType::Boolean,
             [](Object& o, CallFrame& f) { f.Return(Self<CAlgInfo>(o).Eof()); });
  b.Property(u"BOF", AutoType::Boolean,
             [](Object& o, CallFrame& f) { f.Return(Self<CAlgInfo>(o).Bof()); });
  b.Property(u"AlgCount", AutoType::Long,
             [](Object& o, CallFrame& f) { f.Return(Self<CAlgInfo>(o).AlgCount()); });
  b.Method(
      u"FilterAlgorithms", {In(u"i_lAlgorithms", AutoType::Long, u"CLASS_OF_ALGORITHMS_TO_SHOW")},
      AutoType::Boolean,
      [](Object& o, CallFrame& f) { f.Return(Self<CAlgInfo>(o).FilterAlgorithms(f.Long(0))); });
  AddOnStartPage<CAlgInfo>(b);
  AddLastError<CAlgInfo>(b, 0);
  return b.Build();
}

}  // namespace

const ClassTable& CAlgInfoTable() {
  static const ClassTable table = Build();
  return table;
}

}  // namespace quiv::server
