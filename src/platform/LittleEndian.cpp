#include "platform/LittleEndian.h"

#include <algorithm>

#include "platform/CspError.h"
#include "platform/wincrypt.h"

namespace quiv::platform {

uint32_t LittleEndian::ReadDword(std::span<const uint8_t> bytes, size_t offset) {
  return static_cast<uint32_t>(bytes[offset]) | (static_cast<uint32_t>(bytes[offset + 1]) << 8) |
         (static_cast<uint32_t>(bytes[offset + 2]) << 16) |
         (static_cast<uint32_t>(bytes[offset + 3]) << 24);
}

void LittleEndian::AppendDword(SecureBytes& out, uint32_t value) {
  for (int shift = 0; shift < 32; shift += 8) out.push_back(static_cast<uint8_t>(value >> shift));
}

OsslPtr<BIGNUM> LittleEndian::ToBignum(std::span<const uint8_t> bytes) {
  OsslPtr<BIGNUM> bn(BN_lebin2bn(bytes.data(), static_cast<int>(bytes.size()), nullptr));
  if (!bn) Ossl::Fail(static_cast<uint32_t>(NTE_NO_MEMORY));
  return bn;
}

SecureBytes LittleEndian::FromBignum(const BIGNUM& value, size_t width) {
  SecureBytes out(width);
  if (BN_bn2lebinpad(&value, out.data(), static_cast<int>(width)) < 0) {
    Ossl::Fail(static_cast<uint32_t>(NTE_BAD_LEN));
  }
  return out;
}

SecureBytes LittleEndian::Reversed(std::span<const uint8_t> bytes) {
  SecureBytes out(bytes.rbegin(), bytes.rend());
  return out;
}

}  // namespace quiv::platform
