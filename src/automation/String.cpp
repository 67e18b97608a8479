#include "automation/String.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

#include "automation/RunTime.h"

namespace quiv {
namespace {

constexpr char16_t kReplacement = 0xFFFD;
constexpr char16_t kBlank = u' ';

bool IsHighSurrogate(char32_t unit) {
  return unit >= 0xD800 && unit <= 0xDBFF;
}
bool IsLowSurrogate(char32_t unit) {
  return unit >= 0xDC00 && unit <= 0xDFFF;
}

void AppendUtf16(std::u16string& out, char32_t code) {
  if (code < 0x10000) {
    out.push_back(static_cast<char16_t>(code));
    return;
  }
  code -= 0x10000;
  out.push_back(static_cast<char16_t>(0xD800 + (code >> 10)));
  out.push_back(static_cast<char16_t>(0xDC00 + (code & 0x3FF)));
}

void AppendUtf8(std::string& out, char32_t code) {
  if (code < 0x80) {
    out.push_back(static_cast<char>(code));
  } else if (code < 0x800) {
    out.push_back(static_cast<char>(0xC0 | (code >> 6)));
    out.push_back(static_cast<char>(0x80 | (code & 0x3F)));
  } else if (code < 0x10000) {
    out.push_back(static_cast<char>(0xE0 | (code >> 12)));
    out.push_back(static_cast<char>(0x80 | ((code >> 6) & 0x3F)));
    out.push_back(static_cast<char>(0x80 | (code & 0x3F)));
  } else {
    out.push_back(static_cast<char>(0xF0 | (code >> 18)));
    out.push_back(static_cast<char>(0x80 | ((code >> 12) & 0x3F)));
    out.push_back(static_cast<char>(0x80 | ((code >> 6) & 0x3F)));
    out.push_back(static_cast<char>(0x80 | (code & 0x3F)));
  }
}

// Decodes one UTF-8 sequence at `pos` (RFC 3629: no overlongs, no surrogates, max U+10FFFF);
// a malformed sequence yields U+FFFD and consumes one byte.
char32_t DecodeUtf8(std::string_view in, size_t& pos) {
  const auto lead = static_cast<uint8_t>(in[pos++]);
  if (lead < 0x80) return lead;
  size_t extra = 0;
  char32_t code = 0;
  char32_t minimum = 0;
  if ((lead & 0xE0) == 0xC0) {
    extra = 1, code = lead & 0x1F, minimum = 0x80;
  } else if ((lead & 0xF0) == 0xE0) {
    extra = 2, code = lead & 0x0F, minimum = 0x800;
  } else if ((lead & 0xF8) == 0xF0) {
    extra = 3, code = lead & 0x07, minimum = 0x10000;
  } else {
    return kReplacement;
  }
  if (pos + extra > in.size()) return kReplacement;
  for (size_t i = 0; i < extra; ++i) {
    const auto next = static_cast<uint8_t>(in[pos + i]);
    if ((next & 0xC0) != 0x80) return kReplacement;
    code = (code << 6) | (next & 0x3F);
  }
  if (code < minimum || code > 0x10FFFF || (code >= 0xD800 && code <= 0xDFFF)) {
    return kReplacement;
  }
  pos += extra;
  return code;
}

// Simple case mapping for the scripts the library's texts use: ASCII, Latin-1, Latin
// Extended-A, Greek and Cyrillic. Anything else is left as it is.
char16_t ToUpper(char16_t c) {
  if (c >= u'a' && c <= u'z') return static_cast<char16_t>(c - 0x20);
  if (c < 0x80) return c;
  if (c >= 0xE0 && c <= 0xFE && c != 0xF7) return static_cast<char16_t>(c - 0x20);
  if (c == 0xFF) return 0x178;
  if (c >= 0x100 && c <= 0x17F && c != 0x130 && c != 0x131 && c != 0x138 && c != 0x149 &&
      c != 0x17F) {
    const bool oddPairs = (c >= 0x139 && c <= 0x148) || (c >= 0x179 && c <= 0x17E);
    const bool isLower = oddPairs ? (c % 2 == 0) : (c % 2 == 1);
    return isLower ? static_cast<char16_t>(c - 1) : c;
  }
  if (c >= 0x3B1 && c <= 0x3C9 && c != 0x3C2) return static_cast<char16_t>(c - 0x20);
  if (c >= 0x430 && c <= 0x44F) return static_cast<char16_t>(c - 0x20);
  if (c >= 0x450 && c <= 0x45F) return static_cast<char16_t>(c - 0x50);
  return c;
}

char16_t ToLower(char16_t c) {
  if (c >= u'A' && c <= u'Z') return static_cast<char16_t>(c + 0x20);
  if (c < 0x80) return c;
  if (c >= 0xC0 && c <= 0xDE && c != 0xD7) return static_cast<char16_t>(c + 0x20);
  if (c == 0x178) return 0xFF;
  if (c >= 0x100 && c <= 0x17F && c != 0x130 && c != 0x131 && c != 0x138 && c != 0x149 &&
      c != 0x17F) {
    const bool oddPairs = (c >= 0x139 && c <= 0x148) || (c >= 0x179 && c <= 0x17E);
    const bool isUpper = oddPairs ? (c % 2 == 1) : (c % 2 == 0);
    return isUpper ? static_cast<char16_t>(c + 1) : c;
  }
  if (c >= 0x391 && c <= 0x3A9 && c != 0x3A2) return static_cast<char16_t>(c + 0x20);
  if (c >= 0x410 && c <= 0x42F) return static_cast<char16_t>(c + 0x20);
  if (c >= 0x400 && c <= 0x40F) return static_cast<char16_t>(c + 0x50);
  return c;
}

void CheckStart(size_t start) {
  if (start == 0) RaiseRuntime(kErrInvalidProcedureCall);
}

}  // namespace

String::String(const char16_t* text) : m_units(text == nullptr ? u"" : text) {}
String::String(std::u16string text) : m_units(std::move(text)) {}
String::String(std::u16string_view text) : m_units(text) {}

String String::FromUtf8(std::string_view utf8) {
  std::u16string units;
  units.reserve(utf8.size());
  for (size_t pos = 0; pos < utf8.size();) AppendUtf16(units, DecodeUtf8(utf8, pos));
  return String(std::move(units));
}

String String::FromBytes(std::span<const uint8_t> bytes) {
  String result;
  result.m_units.resize(bytes.size() / 2);
  for (size_t i = 0; i < result.m_units.size(); ++i) {
    result.m_units[i] = static_cast<char16_t>(bytes[2 * i] | (bytes[2 * i + 1] << 8));
  }
  if (bytes.size() % 2 != 0) {
    result.m_hasOddByte = true;
    result.m_oddByte = bytes.back();
  }
  return result;
}

String String::FromInt(int64_t value) {
  return FromUtf8(std::to_string(value));
}

// The run time prints a Double with up to 15 significant digits, switching to E notation with
// a signed, at least two-digit exponent below 1E-4 and from 1E15 on: exactly C's %.15G.
String String::FromDouble(double value) {
  if (value == 0) return String(u"0");  // also -0, which the run time never prints
  char text[40];
  std::snprintf(text, sizeof text, "%.15G", value);
  return FromUtf8(text);
}

std::string String::ToUtf8() const {
  std::string out;
  out.reserve(m_units.size());
  for (size_t i = 0; i < m_units.size(); ++i) {
    char32_t code = m_units[i];
    if (IsHighSurrogate(code) && i + 1 < m_units.size() && IsLowSurrogate(m_units[i + 1])) {
      code = 0x10000 + ((code - 0xD800) << 10) + (m_units[++i] - 0xDC00);
    } else if (IsHighSurrogate(code) || IsLowSurrogate(code)) {
      code = kReplacement;
    }
    AppendUtf8(out, code);
  }
  return out;
}

std::vector<uint8_t> String::Bytes() const {
  std::vector<uint8_t> bytes;
  bytes.reserve(ByteLength());
  for (const char16_t unit : m_units) {
    bytes.push_back(static_cast<uint8_t>(unit & 0xFF));
    bytes.push_back(static_cast<uint8_t>(unit >> 8));
  }
  if (m_hasOddByte) bytes.push_back(m_oddByte);
  return bytes;
}

// Concatenation keeps bytes, as the run time joins strings by their byte lengths: a string
// with a lone last byte followed by another shifts the other's bytes by one.
String& String::operator+=(const String& other) {
  if (!m_hasOddByte) {
    m_units += other.m_units;
    m_hasOddByte = other.m_hasOddByte;
    m_oddByte = other.m_oddByte;
    return *this;
  }
  std::vector<uint8_t> bytes = Bytes();
  const std::vector<uint8_t> tail = other.Bytes();
  bytes.insert(bytes.end(), tail.begin(), tail.end());
  return *this = FromBytes(bytes);
}

std::strong_ordering operator<=>(const String& lhs, const String& rhs) {
  if (const auto order = lhs.m_units <=> rhs.m_units; order != 0) return order;
  if (const auto order = lhs.m_hasOddByte <=> rhs.m_hasOddByte; order != 0) return order;
  return lhs.m_oddByte <=> rhs.m_oddByte;
}

int String::CompareText(const String& other) const {
  const size_t common = std::min(m_units.size(), other.m_units.size());
  for (size_t i = 0; i < common; ++i) {
    const char16_t a = ToLower(m_units[i]);
    const char16_t b = ToLower(other.m_units[i]);
    if (a != b) return a < b ? -1 : 1;
  }
  if (m_units.size() == other.m_units.size()) return 0;
  return m_units.size() < other.m_units.size() ? -1 : 1;
}

String String::Left(size_t count) const {
  return String(m_units.substr(0, count));
}

String String::Right(size_t count) const {
  const size_t length = m_units.size();
  return String(m_units.substr(length - std::min(count, length)));
}

String String::Mid(size_t start) const {
  return Mid(start, m_units.size());
}

String String::Mid(size_t start, size_t count) const {
  CheckStart(start);
  if (start > m_units.size()) return String();
  return String(m_units.substr(start - 1, count));
}

String String::Trim() const {
  return LTrim().RTrim();
}

String String::LTrim() const {
  const size_t first = m_units.find_first_not_of(kBlank);
  return first == std::u16string::npos ? String() : String(m_units.substr(first));
}

String String::RTrim() const {
  const size_t last = m_units.find_last_not_of(kBlank);
  return last == std::u16string::npos ? String() : String(m_units.substr(0, last + 1));
}

String String::UCase() const {
  std::u16string units = m_units;
  std::transform(units.begin(), units.end(), units.begin(), ToUpper);
  return String(std::move(units));
}

String String::LCase() const {
  std::u16string units = m_units;
  std::transform(units.begin(), units.end(), units.begin(), ToLower);
  return String(std::move(units));
}

size_t String::InStr(const String& find, size_t start) const {
  CheckStart(start);
  if (start > m_units.size() + 1) return 0;
  const size_t found = m_units.find(find.m_units, start - 1);
  return found == std::u16string::npos ? 0 : found + 1;
}

std::vector<String> String::Split(const String& delimiter) const {
  std::vector<String> parts;
  if (m_units.empty()) return parts;
  if (delimiter.m_units.empty()) return {String(m_units)};
  size_t from = 0;
  for (;;) {
    const size_t found = m_units.find(delimiter.m_units, from);
    if (found == std::u16string::npos) break;
    parts.emplace_back(m_units.substr(from, found - from));
    from = found + delimiter.m_units.size();
  }
  parts.emplace_back(m_units.substr(from));
  return parts;
}

String String::Replace(const String& find, const String& replacement) const {
  if (find.m_units.empty()) return String(m_units);
  std::u16string out;
  size_t from = 0;
  for (;;) {
    const size_t found = m_units.find(find.m_units, from);
    if (found == std::u16string::npos) break;
    out.append(m_units, from, found - from);
    out += replacement.m_units;
    from = found + find.m_units.size();
  }
  out.append(m_units, from);
  return String(std::move(out));
}

}  // namespace quiv
