// SizedOutput: the provider side of the two-call size pattern shared by CryptGetProvParam,
// CryptGetKeyParam, CryptGetHashParam, CryptExportKey and CryptSignHash:
//   pdwDataLen NULL                -> ERROR_INVALID_PARAMETER
//   pbData NULL                    -> success, *pdwDataLen = size needed
//   *pdwDataLen < size needed      -> ERROR_MORE_DATA, *pdwDataLen = size needed, buffer untouched
//   otherwise                      -> value copied, *pdwDataLen = bytes written
#ifndef QUIV_PLATFORM_SIZEDOUTPUT_H
#define QUIV_PLATFORM_SIZEDOUTPUT_H

#include <cstdint>
#include <cstring>
#include <span>

#include "platform/CspError.h"
#include "platform/wincrypt.h"

namespace quiv::platform {

class SizedOutput final {
 public:
  // Copies `value` out under the rules above; throws CspError on the failing rows.
  static void Write(std::span<const uint8_t> value, BYTE* pbData, DWORD* pdwDataLen) {
    if (pdwDataLen == nullptr) throw CspError(static_cast<uint32_t>(ERROR_INVALID_PARAMETER));
    const auto needed = static_cast<DWORD>(value.size());
    if (pbData == nullptr) {
      *pdwDataLen = needed;
      return;
    }
    if (*pdwDataLen < needed) {
      *pdwDataLen = needed;
      throw CspError(static_cast<uint32_t>(ERROR_MORE_DATA));
    }
    if (needed != 0) std::memcpy(pbData, value.data(), needed);
    *pdwDataLen = needed;
  }

  static void WriteDword(DWORD value, BYTE* pbData, DWORD* pdwDataLen) {
    uint8_t bytes[4];
    std::memcpy(bytes, &value, 4);  // the platform is little-endian, as the blobs are
    Write(bytes, pbData, pdwDataLen);
  }
};

}  // namespace quiv::platform

#endif
