// Guid: a globally unique identifier in the platform's binary layout (Data1 32-bit, Data2 and
// Data3 16-bit, Data4 eight bytes), parsed from its registry text "{XXXXXXXX-XXXX-XXXX-XXXX-
// XXXXXXXXXXXX}" and written back in that form (upper-case hex, as the registry shows it).
#ifndef QUIV_SERVER_GUID_H
#define QUIV_SERVER_GUID_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace quiv::server {

struct Guid {
  uint32_t data1 = 0;
  uint16_t data2 = 0;
  uint16_t data3 = 0;
  uint8_t data4[8] = {};

  // nullopt unless `text` is exactly the braced form above (hex digits in either case).
  static std::optional<Guid> Parse(std::u16string_view text);
  // For the tables' literals: a malformed literal is a programming error and aborts.
  static Guid FromLiteral(const char* text);
  // "{...}" in upper case.
  std::u16string ToString() const;
  std::string ToUtf8() const;

  friend bool operator==(const Guid& lhs, const Guid& rhs);
};

}  // namespace quiv::server

#endif
