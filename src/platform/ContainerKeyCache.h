// ContainerKeyCache: the key pairs this process has read from container files, kept parsed, so
// that opening the same container again (a server page does on every request) does not rebuild
// and re-check the RSA key and OpenSSL's state for it (Montgomery contexts, blinding) each time.
//
// What it keeps: per container file and slot, the stored bytes a key was parsed from and the
// key (checked by RsaKey::FromStoredForm, shared read-only). What it never does: hand out a key
// without its container being opened. Load opens and reads the container under the store's
// lock exactly as an uncached load does, and returns the kept key only when the bytes just read
// are the bytes it was parsed from; the kept bytes are the identity, so a container rewritten by
// another process (even into a file of the same size, inode and time) is parsed again, and one
// deleted or damaged fails as it would without the cache.
//
// Dropped: the entries of a container this process deletes or writes (ContainerStore), of a
// container that fails to open, the least recently used beyond kCapacity entries, and all of
// them in a child process after fork (the child starts with its own blinding state).
//
// Ownership and threads: one process-wide instance, never destroyed (its keys hold OpenSSL
// objects, which must not be freed after OpenSSL's own clean-up at exit). A mutex guards the
// entries; parsing runs outside it.
#ifndef QUIV_PLATFORM_CONTAINERKEYCACHE_H
#define QUIV_PLATFORM_CONTAINERKEYCACHE_H

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <mutex>
#include <span>
#include <string_view>
#include <vector>

#include "platform/SecureBytes.h"
#include "platform/wincrypt.h"

namespace quiv::platform {

class ContainerStore;
class ProviderInfo;
class RsaKey;

class ContainerKeyCache final {
 public:
  static constexpr size_t kCapacity = 64;

  static ContainerKeyCache& Instance();

  // The pair in slot `keySpec` (AT_KEYEXCHANGE or AT_SIGNATURE) of container `name`, read from
  // `store` now; null when the slot is empty.
  // throws what ContainerStore::LoadPair throws, and NTE_KEYSET_ENTRY_BAD for a pair that is not
  // a consistent RSA key.
  std::shared_ptr<const RsaKey> Load(const ContainerStore& store, std::string_view name,
                                     DWORD keySpec, const ProviderInfo& provider);

  // Drops both slots of the container file `file`. Does not throw.
  void Forget(const std::filesystem::path& file);

  // The number of keys kept (tests).
  size_t size();

 private:
  struct Entry {
    std::filesystem::path file;
    DWORD slot = 0;
    SecureBytes stored;
    std::shared_ptr<const RsaKey> key;
    uint64_t lastUse = 0;
  };

  ContainerKeyCache() = default;

  // The kept key for these exact bytes, or null. Caller holds m_mutex.
  std::shared_ptr<const RsaKey> FindLocked(const std::filesystem::path& file, DWORD slot,
                                           std::span<const uint8_t> stored);
  void KeepLocked(const std::filesystem::path& file, DWORD slot, std::span<const uint8_t> stored,
                  std::shared_ptr<const RsaKey> key);
  void ForgetLocked(const std::filesystem::path& file);
  // Empties the cache in a child process after fork. Caller holds m_mutex.
  void ResetAfterForkLocked();

  std::mutex m_mutex;
  std::vector<Entry> m_entries;
  uint64_t m_clock = 0;
  pid_t m_pid = 0;
};

}  // namespace quiv::platform

#endif
