#include "server/DispatchTable.h"

#include <utility>

namespace quiv::server {

namespace {

// Names are ASCII; the run time matches them without regard to case.
std::u16string Folded(std::u16string_view name) {
  std::u16string out(name);
  for (char16_t& c : out) {
    if (c >= u'A' && c <= u'Z') c = static_cast<char16_t>(c - u'A' + u'a');
  }
  return out;
}

}  // namespace

size_t Member::RequiredCount() const {
  size_t count = 0;
  for (const Param& p : params) {
    if (!p.optional) ++count;
  }
  return count;
}

const Member* ClassTable::FindByName(std::u16string_view name) const {
  const auto it = byName.find(Folded(name));
  return it == byName.end() ? nullptr : &members[it->second];
}

const Member* ClassTable::FindByDispId(int32_t dispId) const {
  const auto it = byDispId.find(dispId);
  return it == byDispId.end() ? nullptr : &members[it->second];
}

TableBuilder::TableBuilder(std::u16string_view className, const char* clsid, const char* iid,
                           uint16_t firstRoutineNumber)
    : m_next(firstRoutineNumber) {
  m_table.className = className;
  m_table.clsid = Guid::FromLiteral(clsid);
  m_table.iid = Guid::FromLiteral(iid);
}

TableBuilder& TableBuilder::Creatable() {
  m_table.creatable = true;
  return *this;
}

TableBuilder& TableBuilder::AppObject() {
  m_table.appObject = true;
  return *this;
}

TableBuilder& TableBuilder::ImplementsIHash() {
  m_table.implementsIHash = true;
  return *this;
}

TableBuilder& TableBuilder::CountDown() {
  m_countDown = true;
  return *this;
}

uint16_t TableBuilder::NextNumber() {
  const uint16_t number = m_next;
  m_next = static_cast<uint16_t>(m_countDown ? m_next - 1 : m_next + 1);
  return number;
}

TableBuilder& TableBuilder::Method(std::u16string_view name, std::initializer_list<Param> params,
                                   AutoType result, Invoker call, std::u16string_view help) {
  Member m;
  m.name = name;
  m.kind = MemberKind::Method;
  m.number = NextNumber();
  m.dispId = kMethodIdBase | m.number;
  m.params = params;
  m.result = result;
  m.help = help;
  m.call = call;
  m_table.members.push_back(std::move(m));
  return *this;
}

TableBuilder& TableBuilder::ObjectMethod(std::u16string_view name,
                                         std::initializer_list<Param> params, ObjectKind result,
                                         Invoker call) {
  Method(name, params, AutoType::Object, call);
  m_table.members.back().resultObject = result;
  return *this;
}

TableBuilder& TableBuilder::Property(std::u16string_view name, AutoType result, Invoker get,
                                     ObjectKind resultObject) {
  Member m;
  m.name = name;
  m.kind = MemberKind::PropertyGet;
  m.number = NextNumber();
  m.dispId = kPropertyIdBase | m.number;
  m.result = result;
  m.resultObject = resultObject;
  m.call = get;
  m_table.members.push_back(std::move(m));
  return *this;
}

TableBuilder& TableBuilder::DataMember(std::u16string_view name, uint16_t fieldNumber,
                                       AutoType type, Invoker get, Invoker put, ObjectKind object) {
  Member m;
  m.name = name;
  m.kind = MemberKind::DataMember;
  m.number = fieldNumber;
  m.dispId = kDataMemberIdBase | fieldNumber;
  m.result = type;
  m.resultObject = object;
  m.call = get;
  m.put = put;
  m_table.members.push_back(std::move(m));
  return *this;
}

TableBuilder& TableBuilder::WithDispId(int32_t dispId) {
  m_table.members.back().dispId = dispId;
  return *this;
}

TableBuilder& TableBuilder::WithHelp(std::u16string_view help) {
  m_table.members.back().help = help;
  return *this;
}

TableBuilder& TableBuilder::WithResultEnum(std::u16string_view enumName) {
  m_table.members.back().resultEnum = enumName;
  return *this;
}

ClassTable TableBuilder::Build() {
  m_table.interfaceName = u"_" + std::u16string(m_table.className);
  for (size_t i = 0; i < m_table.members.size(); ++i) {
    m_table.byName.emplace(Folded(m_table.members[i].name), i);
    m_table.byDispId.emplace(m_table.members[i].dispId, i);
  }
  return std::move(m_table);
}

Param In(std::u16string_view name, AutoType type, std::u16string_view enumName) {
  Param p;
  p.name = name;
  p.type = type;
  p.enumName = enumName;
  return p;
}

Param ByVal(std::u16string_view name, AutoType type, std::u16string_view enumName) {
  Param p = In(name, type, enumName);
  p.byRef = false;
  return p;
}

Param Obj(std::u16string_view name, ObjectKind kind) {
  Param p = In(name, AutoType::Object);
  p.object = kind;
  return p;
}

Param OptNumber(std::u16string_view name, AutoType type, int32_t value,
                std::u16string_view enumName) {
  Param p = In(name, type, enumName);
  p.optional = true;
  p.defaultValue.kind = DefaultValue::Kind::Number;
  p.defaultValue.number = value;
  return p;
}

Param OptText(std::u16string_view name, std::u16string_view value) {
  Param p = In(name, AutoType::String);
  p.optional = true;
  p.defaultValue.kind = DefaultValue::Kind::Text;
  p.defaultValue.text = value;
  return p;
}

Param OptObj(std::u16string_view name, ObjectKind kind) {
  Param p = Obj(name, kind);
  p.optional = true;
  p.defaultValue.kind = DefaultValue::Kind::Nothing;
  return p;
}

std::u16string_view ObjectKindInterface(ObjectKind kind) {
  switch (kind) {
    case ObjectKind::CAlgInfo:
      return u"_CAlgInfo";
    case ObjectKind::CContainer:
      return u"_CContainer";
    case ObjectKind::CErrHandler:
      return u"_CErrHandler";
    case ObjectKind::CHashValue:
      return u"_CHashValue";
    case ObjectKind::CMessagetext:
      return u"_CMessagetext";
    case ObjectKind::CRSAKeyPair:
      return u"_CRSAKeyPair";
    case ObjectKind::CSessionKey:
      return u"_CSessionKey";
    case ObjectKind::IHash:
      return u"_IHash";
    default:
      return u"IDispatch";
  }
}

}  // namespace quiv::server
