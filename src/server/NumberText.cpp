#include "server/NumberText.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>

namespace quiv::server {

namespace {

bool IsBlank(char16_t c) {
  return c == u' ' || c == u'\t' || c == u'\r' || c == u'\n' || c == u'\v' || c == u'\f';
}

bool IsDigit(char16_t c) {
  return c >= u'0' && c <= u'9';
}

std::u16string_view Trim(std::u16string_view s) {
  while (!s.empty() && IsBlank(s.front())) s.remove_prefix(1);
  while (!s.empty() && IsBlank(s.back())) s.remove_suffix(1);
  return s;
}

// Strips one leading or trailing sign or one pair of parentheses; true when it made the number
// negative. A second sign stays in place and fails the digits that follow ("--1", "-(1)").
bool TakeSign(std::u16string_view* s) {
  if (s->size() >= 2 && s->front() == u'(' && s->back() == u')') {
    *s = Trim(s->substr(1, s->size() - 2));
    return true;
  }
  if (!s->empty() && (s->front() == u'-' || s->front() == u'+')) {
    const bool negative = s->front() == u'-';
    s->remove_prefix(1);
    return negative;
  }
  if (!s->empty() && (s->back() == u'-' || s->back() == u'+')) {
    const bool negative = s->back() == u'-';
    s->remove_suffix(1);
    return negative;
  }
  return false;
}

int DigitValue(char16_t c) {
  if (c >= u'0' && c <= u'9') return c - u'0';
  if (c >= u'a' && c <= u'f') return c - u'a' + 10;
  if (c >= u'A' && c <= u'F') return c - u'A' + 10;
  return 99;
}

// "&H..." or "&O..." after the sign. Anything wider than 64 bits is an overflow; the coercion
// decides what fits its target.
ParsedNumber ParseBitPattern(std::u16string_view digits, int base, bool negative) {
  ParsedNumber out;
  if (digits.empty()) return out;
  uint64_t bits = 0;
  for (const char16_t c : digits) {
    const int d = DigitValue(c);
    if (d >= base) return out;
    if (bits > (UINT64_MAX - static_cast<uint64_t>(d)) / static_cast<uint64_t>(base)) {
      out.status = ParsedNumber::Status::Overflow;
      return out;
    }
    bits = bits * static_cast<uint64_t>(base) + static_cast<uint64_t>(d);
  }
  out.status = ParsedNumber::Status::Ok;
  out.isBitPattern = true;
  out.bits = bits;
  out.negative = negative;
  return out;
}

// Digits with ',' separators after the first digit, then an optional fraction and exponent,
// copied without separators into `ascii` for strtod. False when the text is not of that form.
bool NormaliseDecimal(std::u16string_view s, std::string* ascii) {
  size_t i = 0;
  size_t digits = 0;
  for (; i < s.size() && (IsDigit(s[i]) || (s[i] == u',' && digits > 0)); ++i) {
    if (s[i] == u',') continue;
    ascii->push_back(static_cast<char>(s[i]));
    ++digits;
  }
  if (i < s.size() && s[i] == u'.') {
    ascii->push_back('.');
    for (++i; i < s.size() && IsDigit(s[i]); ++i, ++digits) {
      ascii->push_back(static_cast<char>(s[i]));
    }
  }
  if (digits == 0) return false;
  if (i < s.size() && (s[i] == u'e' || s[i] == u'E')) {
    ascii->push_back('e');
    ++i;
    if (i < s.size() && (s[i] == u'+' || s[i] == u'-')) ascii->push_back(static_cast<char>(s[i++]));
    size_t exponentDigits = 0;
    for (; i < s.size() && IsDigit(s[i]); ++i, ++exponentDigits) {
      ascii->push_back(static_cast<char>(s[i]));
    }
    if (exponentDigits == 0) return false;
  }
  return i == s.size();
}

ParsedNumber ParseDecimal(std::u16string_view s, bool negative) {
  ParsedNumber out;
  std::string ascii = negative ? "-" : "";
  if (!NormaliseDecimal(s, &ascii)) return out;
  const double value = std::strtod(ascii.c_str(), nullptr);
  out.status = std::isinf(value) ? ParsedNumber::Status::Overflow : ParsedNumber::Status::Ok;
  out.value = value;
  out.negative = negative;
  return out;
}

// %G writes the exponent as the run time does: a sign and at least two digits.
std::string Format(double value, int precision) {
  if (value == 0) return "0";  // also negative zero
  char buffer[64];
  std::snprintf(buffer, sizeof(buffer), "%.*G", precision, value);
  return buffer;
}

}  // namespace

ParsedNumber ParseNumberText(std::u16string_view text) {
  std::u16string_view s = Trim(text);
  const bool negative = TakeSign(&s);
  if (s.empty()) return ParsedNumber{};
  if (s.size() > 2 && s[0] == u'&' && (s[1] == u'H' || s[1] == u'h')) {
    return ParseBitPattern(s.substr(2), 16, negative);
  }
  if (s.size() > 2 && s[0] == u'&' && (s[1] == u'O' || s[1] == u'o')) {
    return ParseBitPattern(s.substr(2), 8, negative);
  }
  return ParseDecimal(s, negative);
}

std::string FormatDouble(double value) {
  return Format(value, 15);
}

std::string FormatFloat(float value) {
  return Format(value, 7);
}

}  // namespace quiv::server
