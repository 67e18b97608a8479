// QUIV_ERROR: the library's own error codes, which every class raises and every error record
// names (CErrQUIV turns a code into its text). The members, their values and their texts live in
// QuivErrors.def; this header only declares the enumeration.
//
// The enumeration is unscoped so that its members convert to the signed 32-bit error numbers
// that error objects carry, as the automation interface publishes them.
#ifndef QUIV_ERRORS_QUIVERROR_H
#define QUIV_ERRORS_QUIVERROR_H

#include <cstddef>
#include <cstdint>

namespace quiv {

enum QUIV_ERROR : int32_t {
#define QUIV_ERROR_ROW(name, value, text) name = (value),
#include "errors/QuivErrors.def"
#undef QUIV_ERROR_ROW
};

// The first code and the number of codes: the codes are consecutive, first to first + count - 1.
inline constexpr int32_t kQuivErrorFirst = UNDEFINED_ERROR;
inline constexpr size_t kQuivErrorCount = 156;

}  // namespace quiv

#endif
