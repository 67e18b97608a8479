// ClassTables: the dispatch table of every public class (DispatchTable.h says what a table holds
// and how members are numbered), the list of them in type-library order, and the objects that
// stand behind the two classes that have no C++ class of their own with state: the constants
// catalogue (CConstQUIV is a stateless value type) and TolvaOpenSourceLicense (no members).
#ifndef QUIV_SERVER_CLASSTABLES_H
#define QUIV_SERVER_CLASSTABLES_H

#include <span>

#include "automation/IPageContext.h"
#include "automation/Object.h"
#include "automation/Ref.h"
#include "constants/CConstQUIV.h"
#include "data/DataFormat.h"
#include "errors/CErrHandler.h"
#include "server/CallFrame.h"
#include "server/DispatchTable.h"

namespace quiv::server {

const ClassTable& TolvaOpenSourceLicenseTable();
const ClassTable& CAlgInfoTable();
const ClassTable& CContainerTable();
const ClassTable& CErrHandlerTable();
const ClassTable& CMessagetextTable();
const ClassTable& CRSAKeyPairTable();
const ClassTable& CSessionKeyTable();
const ClassTable& IHashTable();
const ClassTable& CHashValueTable();
const ClassTable& CConstQUIVTable();
const ClassTable& CProviderTable();

// Every class, in the type library's order.
std::span<const ClassTable* const> AllClassTables();

// The class table of an object of the library, by its C++ class; nullptr for any other object.
const ClassTable* TableOf(const Object& object);

// A creatable instance of the class, or Nothing for a class callers may not create.
Ref<Object> CreateInstanceOf(const ClassTable& table);

// The automation object behind CConstQUIV: the catalogue itself holds nothing.
class ConstantsObject final : public Object {
 public:
  const CConstQUIV& Constants() const { return m_oConst; }
  String TypeName() const override { return u"CConstQUIV"; }

 private:
  const CConstQUIV m_oConst{};
};

// The object behind TolvaOpenSourceLicense: creatable, no members, no behaviour.
class LicenseObject final : public Object {
 public:
  String TypeName() const override { return u"TolvaOpenSourceLicense"; }
};

// A DATA_FORMAT argument (a 32-bit slot; the member checks the value).
inline DATA_FORMAT FormatArg(CallFrame& frame, size_t index) {
  return static_cast<DATA_FORMAT>(frame.Long(index));
}

// The LastError property every class except CErrHandler and CConstQUIV has: a data member with
// get and set (it takes an object).
template <class T>
void AddLastError(TableBuilder& builder, uint16_t fieldNumber) {
  builder.DataMember(
      u"LastError", fieldNumber, AutoType::Object,
      [](Object& o, CallFrame& f) { f.Return(Self<T>(o).m_oLastError); },
      [](Object& o, CallFrame& f) { Self<T>(o).m_oLastError = f.ObjAs<CErrHandler>(0); },
      ObjectKind::CErrHandler);
}

// OnStartPage(i_oScript): the page hook of every class; it returns nothing to callers.
template <class T>
void AddOnStartPage(TableBuilder& builder, std::u16string_view paramName = u"i_oScript") {
  Param script = Obj(paramName, ObjectKind::PageContext);
  builder.Method(u"OnStartPage", {script}, AutoType::None,
                 [](Object& o, CallFrame& f) { Self<T>(o).OnStartPage(f.ObjAs<IPageContext>(0)); });
}

}  // namespace quiv::server

#endif
