// String: the automation world's text value, a sequence of UTF-16 code units as the original
// platform's strings are. It can also carry an odd number of bytes: a byte array loaded as a
// string and unloaded again gives back exactly the same bytes, including a lone trailing byte.
// Length() counts whole characters (bytes / 2 rounded down); ByteLength() counts bytes.
//
// A String owns its storage (value semantics, cheap moves). Conversions to UTF-8 and to the
// platform's narrow form happen only at the edges (FromUtf8/ToUtf8/ToNarrow); invalid input is
// replaced by U+FFFD there rather than failing.
//
// The VB-like operations take and return 1-based positions as the run time does (Mid, InStr).
// An argument the run time would reject (a start position of 0) raises run-time error 5.
// Operations that work on characters (Left, Mid, Trim, UCase, ...) drop a lone trailing byte;
// concatenation and comparison keep it.
#ifndef QUIV_AUTOMATION_STRING_H
#define QUIV_AUTOMATION_STRING_H

#include <compare>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "platform/QuivExport.h"

namespace quiv {

class QUIV_API String final {
 public:
  String() = default;
  String(const char16_t* text);      // NOLINT: implicit, so u"..." literals read naturally
  String(std::u16string text);       // NOLINT
  String(std::u16string_view text);  // NOLINT

  static String FromUtf8(std::string_view utf8);
  // The bytes as they stand: two bytes per code unit, little-endian, plus a lone last byte.
  static String FromBytes(std::span<const uint8_t> bytes);
  // The run time's CStr text of a number ("-12", "0.5", "1E+15", "1.5E-05").
  static String FromInt(int64_t value);
  static String FromDouble(double value);

  std::string ToUtf8() const;
  // The text for the platform's narrow ("A") calls: UTF-8 on this platform.
  std::string ToNarrow() const { return ToUtf8(); }
  std::vector<uint8_t> Bytes() const;
  // The whole code units; a lone trailing byte is not part of them.
  const std::u16string& u16() const { return m_units; }
  const char16_t* c_str() const { return m_units.c_str(); }

  size_t Length() const { return m_units.size(); }
  size_t ByteLength() const { return m_units.size() * 2 + (m_hasOddByte ? 1 : 0); }
  // No whole character, as the run time's `s = ""` and Len(s) = 0: a lone byte alone counts as
  // empty text (ByteLength() tells it apart).
  bool IsEmpty() const { return m_units.empty(); }
  bool HasOddByte() const { return m_hasOddByte; }
  char16_t operator[](size_t index) const { return m_units[index]; }

  String& operator+=(const String& other);
  friend String operator+(String lhs, const String& rhs) { return lhs += rhs; }
  // Binary comparison: code unit by code unit, a lone trailing byte after the last unit.
  friend bool operator==(const String& lhs, const String& rhs) = default;
  friend std::strong_ordering operator<=>(const String& lhs, const String& rhs);
  // Text comparison as the run time's vbTextCompare: -1, 0 or 1, letters compared case-blind.
  int CompareText(const String& other) const;
  bool EqualsText(const String& other) const { return CompareText(other) == 0; }

  String Left(size_t count) const;
  String Right(size_t count) const;
  // Characters from 1-based position `start` to the end, or `count` of them. start 0 raises 5;
  // a start past the end gives the empty string.
  String Mid(size_t start) const;
  String Mid(size_t start, size_t count) const;
  // Blanks (U+0020) only, as the run time's Trim functions.
  String Trim() const;
  String LTrim() const;
  String RTrim() const;
  String UCase() const;
  String LCase() const;
  // 1-based position of `find` at or after `start`, 0 if absent; an empty `find` gives `start`
  // (0 when start is past the end + 1). start 0 raises 5.
  size_t InStr(const String& find, size_t start = 1) const;
  // The run time's Split with a binary compare: "" gives no parts; an empty delimiter gives the
  // whole string as the only part.
  std::vector<String> Split(const String& delimiter) const;
  // Every non-overlapping `find`, left to right, replaced; an empty `find` changes nothing.
  String Replace(const String& find, const String& replacement) const;

 private:
  std::u16string m_units;
  bool m_hasOddByte = false;
  uint8_t m_oddByte = 0;
};

// The operators declared as friends above, exported from libquiv with the class.
QUIV_API std::strong_ordering operator<=>(const String& lhs, const String& rhs);

}  // namespace quiv

#endif
