#include "server/GuidText.h"

#include <cstdio>

namespace quiv::server {

namespace {

// Character positions of the 16 bytes in the text form, in GUID field order.
constexpr size_t kBytePositions[16] = {1, 3, 5, 7, 10, 12, 15, 17, 20, 22, 25, 27, 29, 31, 33, 35};
constexpr size_t kDashPositions[4] = {9, 14, 19, 24};

int HexValue(char16_t c) {
  if (c >= u'0' && c <= u'9') return c - u'0';
  if (c >= u'a' && c <= u'f') return c - u'a' + 10;
  if (c >= u'A' && c <= u'F') return c - u'A' + 10;
  return -1;
}

template <typename Char>
std::optional<GUID> Parse(std::basic_string_view<Char> text) {
  if (text.size() != kGuidTextLength || text.front() != '{' || text.back() != '}') {
    return std::nullopt;
  }
  for (const size_t dash : kDashPositions) {
    if (text[dash] != '-') return std::nullopt;
  }
  uint8_t bytes[16];
  for (size_t i = 0; i < 16; ++i) {
    const int high = HexValue(static_cast<char16_t>(text[kBytePositions[i]]));
    const int low = HexValue(static_cast<char16_t>(text[kBytePositions[i] + 1]));
    if (high < 0 || low < 0) return std::nullopt;
    bytes[i] = static_cast<uint8_t>(high << 4 | low);
  }
  GUID guid{};
  guid.Data1 = static_cast<DWORD>(bytes[0]) << 24 | static_cast<DWORD>(bytes[1]) << 16 |
               static_cast<DWORD>(bytes[2]) << 8 | bytes[3];
  guid.Data2 = static_cast<WORD>(bytes[4] << 8 | bytes[5]);
  guid.Data3 = static_cast<WORD>(bytes[6] << 8 | bytes[7]);
  for (size_t i = 0; i < 8; ++i) guid.Data4[i] = bytes[8 + i];
  return guid;
}

}  // namespace

std::optional<GUID> ParseGuid(std::string_view text) {
  return Parse(text);
}

std::optional<GUID> ParseGuid(std::u16string_view text) {
  return Parse(text);
}

std::string FormatGuid(const GUID& g) {
  char buffer[kGuidTextLength + 1];
  std::snprintf(buffer, sizeof(buffer), "{%08X-%04X-%04X-%02X%02X-%02X%02X%02X%02X%02X%02X}",
                g.Data1, g.Data2, g.Data3, g.Data4[0], g.Data4[1], g.Data4[2], g.Data4[3],
                g.Data4[4], g.Data4[5], g.Data4[6], g.Data4[7]);
  return buffer;
}

}  // namespace quiv::server

namespace {

size_t UnitCount(LPCOLESTR s) {
  size_t n = 0;
  while (s[n] != 0) ++n;
  return n;
}

// The platform reads a NULL string as GUID_NULL; a malformed one leaves the GUID zeroed.
HRESULT ParseInto(LPCOLESTR text, GUID* guid, HRESULT malformed) {
  if (guid == nullptr) return E_INVALIDARG;
  *guid = GUID{};
  if (text == nullptr) return S_OK;
  const auto parsed = quiv::server::ParseGuid(std::u16string_view(text, UnitCount(text)));
  if (!parsed) return malformed;
  *guid = *parsed;
  return S_OK;
}

}  // namespace

extern "C" {

QUIV_API HRESULT CLSIDFromString(LPCOLESTR lpsz, LPCLSID pclsid) {
  return ParseInto(lpsz, pclsid, CO_E_CLASSSTRING);
}

QUIV_API HRESULT IIDFromString(LPCOLESTR lpsz, LPIID lpiid) {
  return ParseInto(lpsz, lpiid, CO_E_IIDSTRING);
}

QUIV_API int StringFromGUID2(REFGUID rguid, LPOLESTR lpsz, int cchMax) {
  constexpr int kUnits = static_cast<int>(quiv::server::kGuidTextLength) + 1;
  if (rguid == nullptr || lpsz == nullptr || cchMax < kUnits) return 0;
  const std::string text = quiv::server::FormatGuid(*rguid);
  for (size_t i = 0; i < text.size(); ++i) lpsz[i] = static_cast<OLECHAR>(text[i]);
  lpsz[text.size()] = 0;
  return kUnits;
}

}  // extern "C"
