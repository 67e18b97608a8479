#include "HexText.h"

namespace quiv::cli {

namespace {

int DigitValue(uint8_t c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  return -1;
}

bool IsBlank(uint8_t c) {
  return c == ' ' || c == '\t' || c == '\n' || c == '\r';
}

}  // namespace

std::string HexText::Encode(std::span<const uint8_t> bytes) {
  static constexpr char kDigits[] = "0123456789ABCDEF";
  std::string text(bytes.size() * 2, '\0');
  for (size_t i = 0; i < bytes.size(); ++i) {
    text[2 * i] = kDigits[bytes[i] >> 4];
    text[2 * i + 1] = kDigits[bytes[i] & 0xF];
  }
  return text;
}

std::optional<std::vector<uint8_t>> HexText::Decode(std::string_view text) {
  HexText decoder;
  std::vector<uint8_t> out;
  const auto* data = reinterpret_cast<const uint8_t*>(text.data());
  if (!decoder.Feed(std::span(data, text.size()), out) || !decoder.Finish()) return std::nullopt;
  return out;
}

bool HexText::LooksLikeHex(std::span<const uint8_t> bytes) {
  bool digit = false;
  for (const uint8_t c : bytes) {
    if (DigitValue(c) >= 0) {
      digit = true;
    } else if (!IsBlank(c)) {
      return false;
    }
  }
  return digit;
}

bool HexText::Feed(std::span<const uint8_t> text, std::vector<uint8_t>& out) {
  for (const uint8_t c : text) {
    const int value = DigitValue(c);
    if (value < 0) {
      if (IsBlank(c)) continue;
      return false;
    }
    if (m_pending) {
      out.push_back(static_cast<uint8_t>(m_high << 4 | value));
    } else {
      m_high = value;
    }
    m_pending = !m_pending;
  }
  return true;
}

}  // namespace quiv::cli
