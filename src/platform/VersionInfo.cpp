#include "platform/VersionInfo.h"

#include <cstring>

namespace quiv::platform {

bool VersionInfo::Fill(OSVERSIONINFOA* info) {
  if (info == nullptr) return false;
  const DWORD size = info->dwOSVersionInfoSize;
  if (size != kBasicSize && size != kExtendedSize) return false;
  // The extended record's tail (two WORDs of service pack, a WORD suite mask, a product type
  // byte and a reserved byte) follows the basic record directly.
  std::memset(reinterpret_cast<unsigned char*>(info) + sizeof(DWORD), 0, size - sizeof(DWORD));
  info->dwMajorVersion = kMajor;
  info->dwMinorVersion = kMinor;
  info->dwBuildNumber = kBuild;
  info->dwPlatformId = VER_PLATFORM_WIN32_NT;
  return true;
}

}  // namespace quiv::platform
