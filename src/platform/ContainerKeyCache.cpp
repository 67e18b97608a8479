#include "platform/ContainerKeyCache.h"

#include <openssl/crypto.h>
#include <unistd.h>

#include <algorithm>
#include <optional>

#include "platform/ContainerStore.h"
#include "platform/CspError.h"
#include "platform/RsaKey.h"

namespace quiv::platform {

ContainerKeyCache& ContainerKeyCache::Instance() {
  // Deliberately never destroyed: see the header.
  static ContainerKeyCache* const cache = new ContainerKeyCache();
  return *cache;
}

std::shared_ptr<const RsaKey> ContainerKeyCache::Load(const ContainerStore& store,
                                                      std::string_view name, DWORD keySpec,
                                                      const ProviderInfo& provider) {
  const std::filesystem::path file = store.PathOf(name);
  std::optional<SecureBytes> stored;
  try {
    stored = store.LoadPair(name, keySpec);
  } catch (const CspError&) {
    Forget(file);
    throw;
  }
  if (!stored) return nullptr;
  {
    const std::lock_guard lock(m_mutex);
    if (auto key = FindLocked(file, keySpec, *stored)) return key;
  }
  // Parsing and checking a key takes milliseconds; other threads go on meanwhile.
  std::shared_ptr<const RsaKey> key;
  try {
    key = RsaKey::FromStoredForm(provider, *stored);
  } catch (const CspError&) {
    Forget(file);  // what was kept came from bytes the container no longer holds
    throw;
  }
  const std::lock_guard lock(m_mutex);
  KeepLocked(file, keySpec, *stored, key);
  return key;
}

void ContainerKeyCache::Forget(const std::filesystem::path& file) {
  const std::lock_guard lock(m_mutex);
  ForgetLocked(file);
}

size_t ContainerKeyCache::size() {
  const std::lock_guard lock(m_mutex);
  ResetAfterForkLocked();
  return m_entries.size();
}

std::shared_ptr<const RsaKey> ContainerKeyCache::FindLocked(const std::filesystem::path& file,
                                                            DWORD slot,
                                                            std::span<const uint8_t> stored) {
  ResetAfterForkLocked();
  for (Entry& entry : m_entries) {
    if (entry.slot != slot || entry.file != file) continue;
    if (entry.stored.size() == stored.size() &&
        CRYPTO_memcmp(entry.stored.data(), stored.data(), stored.size()) == 0) {
      entry.lastUse = ++m_clock;
      return entry.key;
    }
    return nullptr;  // the container changed since: KeepLocked replaces the entry
  }
  return nullptr;
}

void ContainerKeyCache::KeepLocked(const std::filesystem::path& file, DWORD slot,
                                   std::span<const uint8_t> stored,
                                   std::shared_ptr<const RsaKey> key) {
  ResetAfterForkLocked();
  std::erase_if(m_entries,
                [&](const Entry& entry) { return entry.slot == slot && entry.file == file; });
  if (m_entries.size() >= kCapacity) {
    const auto oldest =
        std::min_element(m_entries.begin(), m_entries.end(),
                         [](const Entry& a, const Entry& b) { return a.lastUse < b.lastUse; });
    m_entries.erase(oldest);
  }
  m_entries.push_back(
      {file, slot, SecureBytes(stored.begin(), stored.end()), std::move(key), ++m_clock});
}

void ContainerKeyCache::ForgetLocked(const std::filesystem::path& file) {
  ResetAfterForkLocked();
  std::erase_if(m_entries, [&](const Entry& entry) { return entry.file == file; });
}

void ContainerKeyCache::ResetAfterForkLocked() {
  const pid_t pid = ::getpid();
  if (pid == m_pid) return;
  m_entries.clear();
  m_pid = pid;
}

}  // namespace quiv::platform
