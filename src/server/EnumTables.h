// EnumTables: the public enumerations as the type library describes them: name, identifier and
// members with their values. The values are the C++ enumerators themselves (and QUIV_ERROR comes
// from its own table), so nothing is written twice. Every member's help string is its name.
#ifndef QUIV_SERVER_ENUMTABLES_H
#define QUIV_SERVER_ENUMTABLES_H

#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

#include "server/Guid.h"

namespace quiv::server {

struct EnumMember {
  std::u16string_view name;
  int32_t value;
};

struct EnumTable {
  std::u16string_view name;
  Guid guid;
  std::vector<EnumMember> members;
};

// In the type library's order.
std::span<const EnumTable> AllEnumTables();
const EnumTable* FindEnum(std::u16string_view name);

}  // namespace quiv::server

#endif
