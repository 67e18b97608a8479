#include "server/EnumTables.h"

#include "data/DataFormat.h"
#include "data/IHash.h"
#include "errors/QuivError.h"
#include "keys/KeyEnums.h"
#include "provider/AlgInfoEnums.h"
#include "provider/ProviderEnums.h"
#include "signing/SigningEnums.h"

namespace quiv::server {

namespace {

// {u"NAME", NAME}: the name as written and the enumerator's value.
#define QUIV_ENUM_MEMBER(name)            \
  EnumMember {                            \
    u"" #name, static_cast<int32_t>(name) \
  }

std::vector<EnumMember> QuivErrorMembers() {
  return {
#define QUIV_ERROR_ROW(name, value, text) QUIV_ENUM_MEMBER(name),
#include "errors/QuivErrors.def"
#undef QUIV_ERROR_ROW
  };
}

std::vector<EnumTable> Build() {
  auto guid = Guid::FromLiteral;
  return {
      {u"QUIV_ERROR", guid("{B167A473-AC46-4A61-B0C5-149EECD2DFBA}"), QuivErrorMembers()},
      {u"CONTAINER_ACTION",
       guid("{22FC7D9D-486A-4A74-9CA5-F63441558F95}"),
       {QUIV_ENUM_MEMBER(OPEN_CONTAINER), QUIV_ENUM_MEMBER(CREATE_CONTAINER),
        QUIV_ENUM_MEMBER(DELETE_CONTAINER)}},
      {u"AMOUNT",
       guid("{E7F73F0A-E8DC-43C0-944F-0873633A4865}"),
       {QUIV_ENUM_MEMBER(ENTIRE), QUIV_ENUM_MEMBER(NOT_FINAL_SECTION),
        QUIV_ENUM_MEMBER(FINAL_SECTION)}},
      {u"DATA_FORMAT",
       guid("{D355439B-2788-4BA7-A197-8C7D3C09ADA5}"),
       {QUIV_ENUM_MEMBER(FILE_BINARY), QUIV_ENUM_MEMBER(FILE_HEX), QUIV_ENUM_MEMBER(STRING_HEX),
        QUIV_ENUM_MEMBER(STRING_VB), QUIV_ENUM_MEMBER(CURRENT_KEY_CONTAINER)}},
      {u"KEYPAIR_OBJECT_CONTAINS",
       guid("{25414DBE-924C-4950-A792-E2FD5C900EC4}"),
       {QUIV_ENUM_MEMBER(KEY_PAIR), QUIV_ENUM_MEMBER(PUBLIC_KEY), QUIV_ENUM_MEMBER(NOKEYS)}},
      {u"CONTAINER_ACCESS",
       guid("{B1EB7B0C-D2AB-4B62-AA48-7F8EAD4FE468}"),
       {QUIV_ENUM_MEMBER(SINGLE_USER), QUIV_ENUM_MEMBER(MULTI_USER)}},
      {u"CONTAINER_KEYS_ACCESS",
       guid("{B6B80E16-11D3-4E7D-A1D5-287BBFE351C6}"),
       {QUIV_ENUM_MEMBER(ALL_KEYS), QUIV_ENUM_MEMBER(PUBLIC_KEYS_ONLY)}},
      {u"FINGERPRINT_FORMAT",
       guid("{A774A35E-F1DE-4D9E-A989-C253AE53DA2A}"),
       {QUIV_ENUM_MEMBER(SPACES), QUIV_ENUM_MEMBER(HYPHENS), QUIV_ENUM_MEMBER(DOUBLE_HYPHENS),
        QUIV_ENUM_MEMBER(HYPHENS_SPACED), QUIV_ENUM_MEMBER(DOUBLE_HYPHENS_SPACED),
        QUIV_ENUM_MEMBER(NOFORMAT)}},
      {u"WHAT_TO_HASH",
       guid("{E5BFDE86-C338-43DB-8BC6-A6FC87CD9E5F}"),
       {QUIV_ENUM_MEMBER(UNSPECIFIED), QUIV_ENUM_MEMBER(SESSION_KEY),
        QUIV_ENUM_MEMBER(PRIVATE_EXCHANGE_KEY), QUIV_ENUM_MEMBER(PUBLIC_EXCHANGE_KEY),
        QUIV_ENUM_MEMBER(PRIVATE_SIGNATURE_KEY), QUIV_ENUM_MEMBER(PUBLIC_SIGNATURE_KEY),
        QUIV_ENUM_MEMBER(MESSAGETEXT)}},
      {u"CLASS_OF_ALGORITHMS_TO_SHOW",
       guid("{8E78BE02-65D6-4263-B690-5629A0135125}"),
       {QUIV_ENUM_MEMBER(SIGNATURE_CIPHERS), QUIV_ENUM_MEMBER(SYMMETRIC_CIPHERS),
        QUIV_ENUM_MEMBER(HASHES), QUIV_ENUM_MEMBER(KEY_EXCHANGE_CIPHERS),
        QUIV_ENUM_MEMBER(ALL_ALGORITHMS)}},
  };
}

}  // namespace

std::span<const EnumTable> AllEnumTables() {
  static const std::vector<EnumTable> tables = Build();
  return tables;
}

const EnumTable* FindEnum(std::u16string_view name) {
  for (const EnumTable& table : AllEnumTables()) {
    if (table.name == name) return &table;
  }
  return nullptr;
}

}  // namespace quiv::server
