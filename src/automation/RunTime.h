// RunTime: the helpers that stand in for the run time's own behaviour: raising its numbered
// errors with its texts, and its checked numeric conversions (CInt, CLng, CByte, CDbl).
//
// Conversions round halves to even as the run time does (2.5 -> 2, 3.5 -> 4, 32767.5 -> 32768,
// which then overflows), raise run-time error 6 ("Overflow") when the rounded value does not
// fit, and 13 ("Type mismatch") for text that is not a number. Text is read as the run time
// reads it: surrounding blanks allowed, optional sign, decimals, exponent, &H hex and &O octal.
#ifndef QUIV_AUTOMATION_RUNTIME_H
#define QUIV_AUTOMATION_RUNTIME_H

#include <concepts>
#include <cstdint>
#include <type_traits>

#include "automation/RuntimeError.h"
#include "automation/String.h"
#include "platform/QuivExport.h"

namespace quiv {

// The run time's error numbers the library relies on.
inline constexpr int32_t kErrApplicationDefined = 1;
inline constexpr int32_t kErrInvalidProcedureCall = 5;
inline constexpr int32_t kErrOverflow = 6;
inline constexpr int32_t kErrSubscriptOutOfRange = 9;
inline constexpr int32_t kErrTypeMismatch = 13;
inline constexpr int32_t kErrObjectNotSet = 91;
inline constexpr int32_t kErrDuplicateKey = 457;
// The source a run-time error raised by the library carries.
inline constexpr char16_t kRuntimeSource[] = u"QUIV";

// The run time's text for `number`; "Application-defined or object-defined error" for any
// number it has no text of its own for.
QUIV_API String RuntimeDescription(int32_t number);
// Throws RuntimeError(number, "QUIV", RuntimeDescription(number), LastPlatformError()).
[[noreturn]] QUIV_API void RaiseRuntime(int32_t number);

// The calling thread's last platform error (the platform layer's GetLastError()).
QUIV_API uint32_t LastPlatformError();

// Round half to even, as the run time's integer conversions do.
QUIV_API double RoundHalfEven(double value);

QUIV_API double CDbl(const String& text);

// An integer of any type as int64_t; an unsigned value beyond its range raises 6.
template <std::integral I>
int64_t IntegerArgument(I value) {
  if constexpr (std::is_unsigned_v<I> && sizeof(I) >= sizeof(int64_t)) {
    if (value > static_cast<I>(INT64_MAX)) RaiseRuntime(kErrOverflow);
  }
  return static_cast<int64_t>(value);
}

QUIV_API int16_t CInt(double value);
QUIV_API int16_t CInt(int64_t value);
QUIV_API int16_t CInt(const String& text);
QUIV_API int32_t CLng(double value);
QUIV_API int32_t CLng(int64_t value);
QUIV_API int32_t CLng(const String& text);
QUIV_API uint8_t CByte(double value);
QUIV_API uint8_t CByte(int64_t value);
QUIV_API uint8_t CByte(const String& text);

// Any other integer type (int, unsigned, size_t, ...) goes through the 64-bit check, so that
// CInt(1) or CLng(someSize) is not ambiguous.
template <std::integral I>
requires(!std::same_as<I, bool>) int16_t CInt(I value) {
  return CInt(IntegerArgument(value));
}
template <std::integral I>
requires(!std::same_as<I, bool>) int32_t CLng(I value) {
  return CLng(IntegerArgument(value));
}
template <std::integral I>
requires(!std::same_as<I, bool>) uint8_t CByte(I value) {
  return CByte(IntegerArgument(value));
}

}  // namespace quiv

#endif
