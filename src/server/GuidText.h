// GUIDs in their registry text form "{XXXXXXXX-XXXX-XXXX-XXXX-XXXXXXXXXXXX}": 38 characters,
// braces required, hex digits in either case when read, upper case when written. The last 8
// bytes are written in memory order (the platform's form, not a number).
#ifndef QUIV_SERVER_GUIDTEXT_H
#define QUIV_SERVER_GUIDTEXT_H

#include <optional>
#include <string>
#include <string_view>

#include "server/quiv_com.h"

namespace quiv::server {

constexpr size_t kGuidTextLength = 38;

// The GUID, or nullopt when `text` is not exactly the form above.
std::optional<GUID> ParseGuid(std::string_view text);
std::optional<GUID> ParseGuid(std::u16string_view text);

std::string FormatGuid(const GUID& guid);

}  // namespace quiv::server

#endif
