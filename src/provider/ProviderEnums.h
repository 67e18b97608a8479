// ProviderEnums: the codes callers pass to choose a key container and what to do with it. Their
// values are the platform acquisition flags they stand for, so the container object can OR them
// straight into the flags word of CryptAcquireContext.
#ifndef QUIV_PROVIDER_PROVIDERENUMS_H
#define QUIV_PROVIDER_PROVIDERENUMS_H

#include <cstdint>

namespace quiv {

// Which key store: the caller's own (no flag) or the machine's (CRYPT_MACHINE_KEYSET).
enum CONTAINER_ACCESS : int32_t {
  SINGLE_USER = 0,
  MULTI_USER = 32,
};

// Whether private keys are reachable: all keys (no flag) or a verify-only context
// (CRYPT_VERIFYCONTEXT), which takes no container name.
enum CONTAINER_KEYS_ACCESS : int32_t {
  ALL_KEYS = 0,
  PUBLIC_KEYS_ONLY = static_cast<int32_t>(0xF0000000u),
};

// What to do with the named container: open (no flag), create (CRYPT_NEWKEYSET) or delete
// (CRYPT_DELETEKEYSET).
enum CONTAINER_ACTION : int32_t {
  OPEN_CONTAINER = 0,
  CREATE_CONTAINER = 8,
  DELETE_CONTAINER = 16,
};

}  // namespace quiv

#endif
