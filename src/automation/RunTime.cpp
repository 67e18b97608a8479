#include "automation/RunTime.h"

#include <cmath>
#include <cstdlib>
#include <limits>
#include <optional>
#include <string>

#include "platform/PlatformSeam.h"

namespace quiv {
namespace {

bool IsDigit(char16_t c) {
  return c >= u'0' && c <= u'9';
}

int HexDigit(char16_t c) {
  if (IsDigit(c)) return c - u'0';
  if (c >= u'a' && c <= u'f') return c - u'a' + 10;
  if (c >= u'A' && c <= u'F') return c - u'A' + 10;
  return -1;
}

// "&H" / "&O" text: as the run time's literals, up to 16 bits is an Integer and up to 32 bits a
// Long, so the top bit makes it negative (&HFFFF is -1, &H8000 is -32768).
std::optional<double> ParseRadix(const std::u16string& digits, int radix) {
  if (digits.empty()) return std::nullopt;
  uint64_t value = 0;
  for (const char16_t c : digits) {
    const int digit = HexDigit(c);
    if (digit < 0 || digit >= radix) return std::nullopt;
    value = value * static_cast<uint64_t>(radix) + static_cast<uint64_t>(digit);
    if (value > 0xFFFFFFFFu) RaiseRuntime(kErrOverflow);
  }
  if (value <= 0xFFFF) return static_cast<int16_t>(static_cast<uint16_t>(value));
  return static_cast<int32_t>(static_cast<uint32_t>(value));
}

// Sign, digits with at most one decimal point, then an optional exponent (E or D).
bool IsDecimalText(const std::u16string& text) {
  size_t i = 0;
  if (i < text.size() && (text[i] == u'+' || text[i] == u'-')) ++i;
  size_t digits = 0;
  bool point = false;
  for (; i < text.size(); ++i) {
    if (IsDigit(text[i])) {
      ++digits;
    } else if (text[i] == u'.' && !point) {
      point = true;
    } else {
      break;
    }
  }
  if (digits == 0) return false;
  if (i == text.size()) return true;
  if (text[i] != u'E' && text[i] != u'e' && text[i] != u'D' && text[i] != u'd') return false;
  ++i;
  if (i < text.size() && (text[i] == u'+' || text[i] == u'-')) ++i;
  const size_t exponentStart = i;
  while (i < text.size() && IsDigit(text[i])) ++i;
  return i == text.size() && i > exponentStart;
}

double ParseDecimal(const std::u16string& text) {
  std::string ascii;
  for (const char16_t c : text)
    ascii.push_back(c == u'D' || c == u'd' ? 'E' : static_cast<char>(c));
  const double value = std::strtod(ascii.c_str(), nullptr);
  if (std::isinf(value)) RaiseRuntime(kErrOverflow);
  return value;
}

template <class T>
T CheckedRound(double value) {
  const double rounded = RoundHalfEven(value);
  if (std::isnan(rounded) || rounded < static_cast<double>(std::numeric_limits<T>::min()) ||
      rounded > static_cast<double>(std::numeric_limits<T>::max())) {
    RaiseRuntime(kErrOverflow);
  }
  return static_cast<T>(rounded);
}

template <class T>
T CheckedInteger(int64_t value) {
  if (value < std::numeric_limits<T>::min() || value > std::numeric_limits<T>::max()) {
    RaiseRuntime(kErrOverflow);
  }
  return static_cast<T>(value);
}

}  // namespace

String RuntimeDescription(int32_t number) {
  switch (number) {
    case kErrInvalidProcedureCall:
      return u"Invalid procedure call or argument";
    case kErrOverflow:
      return u"Overflow";
    case kErrSubscriptOutOfRange:
      return u"Subscript out of range";
    case kErrTypeMismatch:
      return u"Type mismatch";
    case kErrObjectNotSet:
      return u"Object variable or With block variable not set";
    case kErrDuplicateKey:
      return u"This key is already associated with an element of this collection";
    default:
      return u"Application-defined or object-defined error";
  }
}

void RaiseRuntime(int32_t number) {
  throw RuntimeError(number, kRuntimeSource, RuntimeDescription(number), LastPlatformError());
}

// Through the seam, so that a test which injects a platform fault also controls what the raised
// error carries.
uint32_t LastPlatformError() {
  return platform::Platform().GetLastError();
}

double RoundHalfEven(double value) {
  const double floor = std::floor(value);
  const double fraction = value - floor;
  if (fraction < 0.5) return floor;
  if (fraction > 0.5) return floor + 1;
  return std::fmod(floor, 2.0) == 0 ? floor : floor + 1;
}

double CDbl(const String& text) {
  const std::u16string trimmed = text.Trim().u16();
  if (trimmed.size() > 2 && trimmed[0] == u'&') {
    const char16_t radix = trimmed[1];
    std::optional<double> value;
    if (radix == u'H' || radix == u'h') value = ParseRadix(trimmed.substr(2), 16);
    if (radix == u'O' || radix == u'o') value = ParseRadix(trimmed.substr(2), 8);
    if (value) return *value;
  }
  if (!IsDecimalText(trimmed)) RaiseRuntime(kErrTypeMismatch);
  return ParseDecimal(trimmed);
}

int16_t CInt(double value) {
  return CheckedRound<int16_t>(value);
}
int16_t CInt(int64_t value) {
  return CheckedInteger<int16_t>(value);
}
int16_t CInt(const String& text) {
  return CInt(CDbl(text));
}
int32_t CLng(double value) {
  return CheckedRound<int32_t>(value);
}
int32_t CLng(int64_t value) {
  return CheckedInteger<int32_t>(value);
}
int32_t CLng(const String& text) {
  return CLng(CDbl(text));
}
uint8_t CByte(double value) {
  return CheckedRound<uint8_t>(value);
}
uint8_t CByte(int64_t value) {
  return CheckedInteger<uint8_t>(value);
}
uint8_t CByte(const String& text) {
  return CByte(CDbl(text));
}

}  // namespace quiv
