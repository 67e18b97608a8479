#include "platform/ThreadLastError.h"

namespace quiv::platform {

namespace {
thread_local DWORD t_lastError = ERROR_SUCCESS;
}

DWORD ThreadLastError::Get() {
  return t_lastError;
}

void ThreadLastError::Set(DWORD code) {
  t_lastError = code;
}

}  // namespace quiv::platform
