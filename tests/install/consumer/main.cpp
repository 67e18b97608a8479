// Uses the installed library through its C entry points: a verify context and random bytes.
#include <cstdio>

#include "platform/wincrypt.h"

int main() {
  HCRYPTPROV prov = 0;
  if (!CryptAcquireContextA(&prov, nullptr, MS_ENHANCED_PROV_A, PROV_RSA_FULL,
                            CRYPT_VERIFYCONTEXT)) {
    std::printf("acquire failed: 0x%08x\n", GetLastError());
    return 1;
  }
  BYTE buf[16] = {};
  const BOOL ok = CryptGenRandom(prov, sizeof buf, buf);
  CryptReleaseContext(prov, 0);
  std::printf("random: %s\n", ok ? "ok" : "failed");
  return ok ? 0 : 1;
}
