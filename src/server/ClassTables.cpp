#include "server/ClassTables.h"

#include <array>
#include <typeindex>
#include <typeinfo>

#include "data/CMessagetext.h"
#include "keys/CSessionKey.h"
#include "provider/CAlgInfo.h"
#include "provider/CContainer.h"
#include "provider/CProvider.h"
#include "signing/CHashValue.h"
#include "signing/CRSAKeyPair.h"

namespace quiv::server {

const ClassTable& TolvaOpenSourceLicenseTable() {
  static const ClassTable table =
      TableBuilder(u"TolvaOpenSourceLicense", "{83D4A5A2-EE78-42A9-8341-EA1E4A333DA3}",
                   "{C4EF0133-A848-49EF-ADF6-CD9E0481D595}", 0)
          .Creatable()
          .Build();
  return table;
}

std::span<const ClassTable* const> AllClassTables() {
  static const std::array<const ClassTable*, 11> tables = {&TolvaOpenSourceLicenseTable(),
                                                           &CAlgInfoTable(),
                                                           &CContainerTable(),
                                                           &CErrHandlerTable(),
                                                           &CMessagetextTable(),
                                                           &CRSAKeyPairTable(),
                                                           &CSessionKeyTable(),
                                                           &IHashTable(),
                                                           &CHashValueTable(),
                                                           &CConstQUIVTable(),
                                                           &CProviderTable()};
  return tables;
}

const ClassTable* TableOf(const Object& object) {
  const std::type_info& type = typeid(object);
  if (type == typeid(CProvider)) return &CProviderTable();
  if (type == typeid(CMessagetext)) return &CMessagetextTable();
  if (type == typeid(CSessionKey)) return &CSessionKeyTable();
  if (type == typeid(CRSAKeyPair)) return &CRSAKeyPairTable();
  if (type == typeid(CHashValue)) return &CHashValueTable();
  if (type == typeid(CContainer)) return &CContainerTable();
  if (type == typeid(CAlgInfo)) return &CAlgInfoTable();
  if (type == typeid(CErrHandler)) return &CErrHandlerTable();
  if (type == typeid(ConstantsObject)) return &CConstQUIVTable();
  if (type == typeid(LicenseObject)) return &TolvaOpenSourceLicenseTable();
  return nullptr;
}

Ref<Object> CreateInstanceOf(const ClassTable& table) {
  if (!table.creatable) return Nothing;
  if (&table == &CProviderTable()) return CProvider::Create();
  if (&table == &CAlgInfoTable()) return MakeRef<CAlgInfo>();
  if (&table == &CErrHandlerTable()) return MakeRef<CErrHandler>();
  if (&table == &CConstQUIVTable()) return MakeRef<ConstantsObject>();
  if (&table == &TolvaOpenSourceLicenseTable()) return MakeRef<LicenseObject>();
  return Nothing;
}

}  // namespace quiv::server
