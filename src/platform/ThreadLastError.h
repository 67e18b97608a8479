// ThreadLastError: the calling thread's last error, the value GetLastError returns. Each thread
// has its own (a failing call on one thread never changes what another thread reads); a new
// thread starts at ERROR_SUCCESS. Only failing CryptoAPI calls and SetLastError change it:
// a successful call leaves it as it was, as on Windows.
#ifndef QUIV_PLATFORM_THREADLASTERROR_H
#define QUIV_PLATFORM_THREADLASTERROR_H

#include "platform/wincrypt.h"

namespace quiv::platform {

class ThreadLastError final {
 public:
  static DWORD Get();
  static void Set(DWORD code);
};

}  // namespace quiv::platform

#endif
