// The dispatch table of CErrHandler. Its 18 public fields are its first fields (numbers 0 to
// 17); then come its private fields (the full source, the message, the parameter map, the page
// context, the constants catalogue, the CErrQUIV, CErrAPI and CProvider references: 8) and its
// private routines (ParseInformation, AssembleErrorMessage, LogHandlerError: 3), so its public
// routines start at number 29. LastError() is the default member (dispatch id 0).
#include "errors/CErrHandler.h"

#include <variant>

#include "server/ClassTables.h"
#include "server/ForeignDispatch.h"

namespace quiv::server {

namespace {

constexpr uint16_t kPublicFields = 18;
constexpr uint16_t kFirstRoutine = kPublicFields + 8 + 3;

// A public field: get returns it, let stores the coerced value; no logic runs.
template <auto Field>
void GetField(Object& o, CallFrame& f) {
  f.Return(Self<CErrHandler>(o).*Field);
}

template <auto Field>
void LetField(Object& o, CallFrame& f) {
  auto& field = Self<CErrHandler>(o).*Field;
  field = std::get<std::remove_reference_t<decltype(field)>>(f.At(0));
}

template <auto Field>
void AddField(TableBuilder& b, std::u16string_view name, uint16_t number, AutoType type) {
  b.DataMember(name, number, type, GetField<Field>, LetField<Field>);
}

void AddFields(TableBuilder& b) {
  using E = CErrHandler;
  AddField<&E::m_sProjectName>(b, u"ProjectName", 0, AutoType::String);
  AddField<&E::m_sClassName>(b, u"ClassName", 1, AutoType::String);
  AddField<&E::m_sRoutineName>(b, u"RoutineName", 2, AutoType::String);
  AddField<&E::m_sDBConnectStr>(b, u"DBConnectStr", 3, AutoType::String);
  AddField<&E::m_sDBLogin>(b, u"DBLogin", 4, AutoType::String);
  AddField<&E::m_sDBPwd>(b, u"DBPwd", 5, AutoType::String);
  AddField<&E::m_sComments>(b, u"Comments", 6, AutoType::String);
  AddField<&E::m_fWebRedirectFlag>(b, u"WebRedirectFlag", 7, AutoType::Boolean);
  AddField<&E::m_sWebRedirectURL>(b, u"WebRedirectURL", 8, AutoType::String);
  AddField<&E::m_sWebPageURL>(b, u"WebPageURL", 9, AutoType::String);
  AddField<&E::m_sWebCookies>(b, u"WebCookies", 10, AutoType::String);
  AddField<&E::m_sWebIP>(b, u"WebIP", 11, AutoType::String);
  AddField<&E::m_lErrNumber>(b, u"ErrNumber", 12, AutoType::Long);
  AddField<&E::m_sErrSource>(b, u"ErrSource", 13, AutoType::String);
  AddField<&E::m_sErrDescription>(b, u"ErrDescription", 14, AutoType::String);
  AddField<&E::m_dblErrLastDLLError>(b, u"ErrLastDLLError", 15, AutoType::Double);
  AddField<&E::m_sAPIError>(b, u"APIError", 16, AutoType::String);
  AddField<&E::m_sQUIVError>(b, u"QUIVError", 17, AutoType::String);
}

ClassTable Build() {
  TableBuilder b(u"CErrHandler", "{7AC637FB-A8E6-413B-AE3F-A0C0D17603C6}",
                 "{A44DD1DF-3FA9-43B6-A9A6-2DB75D964E87}", kFirstRoutine);
  b.Creatable();
  AddFields(b);
  b.Method(u"Clear", {}, AutoType::None,
           [](Object& o, CallFrame&) { Self<CErrHandler>(o).Clear(); });
  // No trap: a duplicate name reaches the caller as run-time error 457.
  b.Method(u"AddParam", {In(u"iName", AutoType::Variant), In(u"iValue", AutoType::Variant)},
           AutoType::None,
           [](Object& o, CallFrame& f) { Self<CErrHandler>(o).AddParam(f.Var(0), f.Var(1)); });
  b.Method(u"LastError", {}, AutoType::String,
           [](Object& o, CallFrame& f) { f.Return(Self<CErrHandler>(o).LastError()); })
      .WithDispId(kDefaultMemberId)
      .WithHelp(u"Returns a string describing the last error that occurred.");
  b.Method(u"LoadError",
           {Obj(u"i_oErr", ObjectKind::ErrObject), In(u"i_sFullSource", AutoType::String),
            OptObj(u"i_oScript", ObjectKind::PageContext), OptText(u"i_sComment", u"")},
           AutoType::None, [](Object& o, CallFrame& f) {
             Ref<ErrObjectHolder> err = f.ObjAs<ErrObjectHolder>(0);
             Self<CErrHandler>(o).LoadError(err->Err(), f.Str(1), f.Obj(2), f.Str(3));
           });
  b.Method(u"ReportErrorMessage", {}, AutoType::Boolean,
           [](Object& o, CallFrame& f) { f.Return(Self<CErrHandler>(o).ReportErrorMessage()); });
  b.Method(
      u"OnStartPage", {Obj(u"iScript", ObjectKind::PageContext)}, AutoType::None,
      [](Object& o, CallFrame& f) { Self<CErrHandler>(o).OnStartPage(f.ObjAs<IPageContext>(0)); });
  b.Method(u"OnEndPage", {}, AutoType::None,
           [](Object& o, CallFrame&) { Self<CErrHandler>(o).OnEndPage(); });
  return b.Build();
}

}  // namespace

const ClassTable& CErrHandlerTable() {
  static const ClassTable table = Build();
  return table;
}

}  // namespace quiv::server
