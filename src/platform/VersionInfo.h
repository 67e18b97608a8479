// VersionInfo: the answer of GetVersionExA on this platform. Linux is reported as a member of the
// NT family (dwPlatformId VER_PLATFORM_WIN32_NT) at version 5.1, build 2600, so that callers which
// choose between the wide and the narrow CryptoAPI entry points by platform family take the wide
// ones, and callers that test "major version >= 5" see a system with the Strong provider and
// CryptDuplicateKey/CryptDuplicateHash. 5.1 rather than 5.0: the provider behaviour reproduced
// here is that of the later NT releases, and every "version >= 5" test gives the same answer.
#ifndef QUIV_PLATFORM_VERSIONINFO_H
#define QUIV_PLATFORM_VERSIONINFO_H

#include <cstddef>

#include "platform/wincrypt.h"

namespace quiv::platform {

class VersionInfo final {
 public:
  static constexpr DWORD kMajor = 5;
  static constexpr DWORD kMinor = 1;
  static constexpr DWORD kBuild = 2600;
  // sizeof(OSVERSIONINFOA), and the size of the extended record (OSVERSIONINFOEXA), whose extra
  // fields (service pack numbers, suite and product type) are reported as zero.
  static constexpr DWORD kBasicSize = sizeof(OSVERSIONINFOA);
  static constexpr DWORD kExtendedSize = kBasicSize + 8;

  // Fills the record the way GetVersionExA does. false when `info` is null or its
  // dwOSVersionInfoSize is neither of the two sizes (the caller reports ERROR_INVALID_PARAMETER).
  static bool Fill(OSVERSIONINFOA* info);
};

}  // namespace quiv::platform

#endif
