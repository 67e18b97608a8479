#include "server/Guid.h"

#include <cstdlib>
#include <cstring>

namespace quiv::server {

namespace {

int HexDigit(char16_t c) {
  if (c >= u'0' && c <= u'9') return c - u'0';
  if (c >= u'a' && c <= u'f') return c - u'a' + 10;
  if (c >= u'A' && c <= u'F') return c - u'A' + 10;
  return -1;
}

// Reads `digits` hex digits at `pos`; false on a non-digit.
bool ReadHex(std::u16string_view text, size_t pos, size_t digits, uint64_t& out) {
  out = 0;
  for (size_t i = 0; i < digits; ++i) {
    const int d = HexDigit(text[pos + i]);
    if (d < 0) return false;
    out = (out << 4) | static_cast<uint64_t>(d);
  }
  return true;
}

}  // namespace

std::optional<Guid> Guid::Parse(std::u16string_view text) {
  // {8-4-4-4-12}: 38 characters.
  if (text.size() != 38 || text[0] != u'{' || text[37] != u'}') return std::nullopt;
  for (size_t dash : {9, 14, 19, 24}) {
    if (text[dash] != u'-') return std::nullopt;
  }
  Guid g;
  uint64_t v = 0;
  if (!ReadHex(text, 1, 8, v)) return std::nullopt;
  g.data1 = static_cast<uint32_t>(v);
  if (!ReadHex(text, 10, 4, v)) return std::nullopt;
  g.data2 = static_cast<uint16_t>(v);
  if (!ReadHex(text, 15, 4, v)) return std::nullopt;
  g.data3 = static_cast<uint16_t>(v);
  const size_t bytePos[8] = {20, 22, 25, 27, 29, 31, 33, 35};
  for (size_t i = 0; i < 8; ++i) {
    if (!ReadHex(text, bytePos[i], 2, v)) return std::nullopt;
    g.data4[i] = static_cast<uint8_t>(v);
  }
  return g;
}

Guid Guid::FromLiteral(const char* text) {
  std::u16string wide;
  for (const char* p = text; *p != '\0'; ++p) wide.push_back(static_cast<char16_t>(*p));
  const std::optional<Guid> g = Parse(wide);
  if (!g) std::abort();
  return *g;
}

std::u16string Guid::ToString() const {
  const std::string narrow = ToUtf8();
  return std::u16string(narrow.begin(), narrow.end());
}

std::string Guid::ToUtf8() const {
  static constexpr char kHex[] = "0123456789ABCDEF";
  std::string out = "{";
  auto put = [&](uint64_t value, int digits) {
    for (int i = digits - 1; i >= 0; --i) out.push_back(kHex[(value >> (4 * i)) & 0xF]);
  };
  put(data1, 8);
  out.push_back('-');
  put(data2, 4);
  out.push_back('-');
  put(data3, 4);
  out.push_back('-');
  put(data4[0], 2);
  put(data4[1], 2);
  out.push_back('-');
  for (int i = 2; i < 8; ++i) put(data4[i], 2);
  out.push_back('}');
  return out;
}

bool operator==(const Guid& lhs, const Guid& rhs) {
  return std::memcmp(&lhs, &rhs, sizeof(Guid)) == 0;
}

}  // namespace quiv::server
