// LittleEndian: byte-order helpers for CryptoAPI blobs, whose integers (header fields and RSA
// numbers alike) are stored least significant byte first, and the conversions between such
// fixed-width little-endian numbers and OpenSSL BIGNUMs. Stateless; callers own all buffers.
#ifndef QUIV_PLATFORM_LITTLEENDIAN_H
#define QUIV_PLATFORM_LITTLEENDIAN_H

#include <cstddef>
#include <cstdint>
#include <span>

#include "platform/Ossl.h"
#include "platform/SecureBytes.h"

namespace quiv::platform {

class LittleEndian final {
 public:
  // Reads the 32-bit value at `offset`; the caller has checked the length.
  static uint32_t ReadDword(std::span<const uint8_t> bytes, size_t offset);
  // Appends `value`, least significant byte first.
  static void AppendDword(SecureBytes& out, uint32_t value);

  // The number held by `bytes` read least significant byte first. throws CspError(NTE_NO_MEMORY).
  static OsslPtr<BIGNUM> ToBignum(std::span<const uint8_t> bytes);
  // `value` as exactly `width` little-endian bytes, zero-filled at the high end.
  // throws CspError(NTE_BAD_LEN) when it does not fit.
  static SecureBytes FromBignum(const BIGNUM& value, size_t width);

  // A byte-reversed copy (big-endian <-> little-endian).
  static SecureBytes Reversed(std::span<const uint8_t> bytes);
};

}  // namespace quiv::platform

#endif
