#include "server/ClassResolver.h"

#include "automation/String.h"
#include "server/ClassTables.h"

namespace quiv::server {

namespace {

constexpr std::u16string_view kLibraryName = u"QUIV";

const ClassTable* BuiltInByClsid(const Guid& clsid) {
  for (const ClassTable* table : AllClassTables()) {
    if (table->clsid == clsid) return table;
  }
  return nullptr;
}

const ClassTable* BuiltInByProgId(std::u16string_view progId) {
  const String wanted{std::u16string(progId)};
  for (const ClassTable* table : AllClassTables()) {
    if (wanted.EqualsText(String(ProgIdOf(*table)))) return table;
  }
  return nullptr;
}

}  // namespace

std::u16string ProgIdOf(const ClassTable& table) {
  return std::u16string(kLibraryName) + u"." + std::u16string(table.className);
}

HRESULT ResolveClass(std::u16string_view progIdOrClsid, const ClassTable*& table) {
  table = nullptr;
  if (!progIdOrClsid.empty() && progIdOrClsid.front() == u'{') {
    const std::optional<Guid> clsid = Guid::Parse(progIdOrClsid);
    if (!clsid) return CO_E_CLASSSTRING;
    table = BuiltInByClsid(*clsid);
  } else {
    table = BuiltInByProgId(progIdOrClsid);
  }
  return table != nullptr ? S_OK : REGDB_E_CLASSNOTREG;
}

HRESULT RegisterServer() {
  return E_NOTIMPL;
}

HRESULT UnregisterServer() {
  return E_NOTIMPL;
}

}  // namespace quiv::server
