// Numbers as the automation run time reads them from strings and writes them into strings
// (the US English locale: '.' decimal point, ',' thousands separator).
//
// Accepted text: blanks (space, tab, CR, LF, VT, FF) around the number; a leading or trailing
// sign, or parentheses for a negative number; decimal digits with ',' separators in the integer
// part, an optional '.' fraction and an optional exponent ("1e3", "2.5E-2"); or "&H" hex and
// "&O" octal digits.
#ifndef QUIV_SERVER_NUMBERTEXT_H
#define QUIV_SERVER_NUMBERTEXT_H

#include <cstdint>
#include <string>
#include <string_view>

namespace quiv::server {

struct ParsedNumber {
  enum class Status { Ok, NotANumber, Overflow };
  Status status = Status::NotANumber;
  bool negative = false;
  // Hex and octal text is a bit pattern: `bits` holds it, and a coercion fits it to the target's
  // width (the run time reads "&HFFFF" as -1 for a 16-bit integer, 65535 for a 32-bit one).
  bool isBitPattern = false;
  uint64_t bits = 0;
  // Decimal text: the value, sign included.
  double value = 0;
};

ParsedNumber ParseNumberText(std::u16string_view text);

// A double in the run time's general format: up to 15 significant digits, an exponent only for
// very large or small values ("1E+20", "1.5E-07"), negative zero as "0".
std::string FormatDouble(double value);
// A float likewise, with up to 7 significant digits.
std::string FormatFloat(float value);

}  // namespace quiv::server

#endif
