// ProviderContext: one context handed out by CryptAcquireContext (an HCRYPTPROV). It knows its
// provider, the key container it was opened on (name as stored, user or machine store), whether
// it is a verify context, and keeps the state CryptGetProvParam needs between calls: one cursor
// shared by PP_ENUMALGS and PP_ENUMALGS_EX, and one for PP_ENUMCONTAINERS.
//
// Key pairs: the container's pairs are read from the store the first time this context needs
// them and kept (so a signature does not read the disk); the parsed key comes from the process's
// ContainerKeyCache when the container is unchanged since it was last read. Pairs generated or
// imported here are written to the container at once, except in a verify context, where they
// live in memory only and end with the context.
//
// Ownership: owns its stores (paths only), its cached key pairs and its cursors. Refers to a
// ProviderInfo, which lives for the whole process. Not thread-safe: the handle table serialises
// calls on one context.
#ifndef QUIV_PLATFORM_PROVIDERCONTEXT_H
#define QUIV_PLATFORM_PROVIDERCONTEXT_H

#include <array>
#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/ContainerStore.h"
#include "platform/wincrypt.h"

namespace quiv::platform {

class ProviderInfo;
class RsaKey;

class ProviderContext final {
 public:
  // PP_ENUMCONTAINERS reports this size for a NULL buffer and a short one: MAX_PATH + 1, the
  // longest legal name with its NUL, whatever the next name's length.
  static constexpr DWORD kEnumContainersSize = 261;

  // A context on an existing (or just created) container, or a verify context (`verify`, with
  // an empty container name). The stores are built now, so they follow QUIV_KEY_STORE as it is
  // at acquisition.
  ProviderContext(const ProviderInfo& provider, DWORD provType, StoreScope scope,
                  std::string container, bool verify);
  ~ProviderContext();
  ProviderContext(const ProviderContext&) = delete;
  ProviderContext& operator=(const ProviderContext&) = delete;

  const ProviderInfo& provider() const { return m_provider; }
  StoreScope scope() const { return m_scope; }
  bool verify() const { return m_verify; }
  const std::string& container() const { return m_container; }

  // False once CryptReleaseContext has started on this context: nothing may be created on it.
  bool alive() const { return m_alive; }
  void Kill() { m_alive = false; }

  // The store of `scope`. throws NTE_FAIL when its location could not be determined.
  ContainerStore& Store(StoreScope scope);

  // The pair in slot `keySpec` (AT_KEYEXCHANGE or AT_SIGNATURE), kept by this context.
  // throws NTE_BAD_KEY (other key slot; unconfirmed code, some releases say NTE_NO_KEY),
  // NTE_NO_KEY (empty slot), and the store's codes.
  const RsaKey& Pair(DWORD keySpec);
  // Keeps `pair` in the slot its algorithm names (CALG_RSA_SIGN: AT_SIGNATURE, else
  // AT_KEYEXCHANGE) and, unless this is a verify context, writes it to the container now.
  // throws the store's codes.
  void KeepPair(const RsaKey& pair);

  // CryptGetProvParam. throws CspError: ERROR_INVALID_PARAMETER (pdwDataLen NULL),
  // ERROR_MORE_DATA, ERROR_NO_MORE_ITEMS (end of an enumeration), NTE_BAD_TYPE (unknown
  // parameter, PP_USE_HARDWARE_RNG, PP_KEYSET_SEC_DESCR), NTE_BAD_FLAGS, the store's codes.
  void GetParam(DWORD param, BYTE* pbData, DWORD* pdwDataLen, DWORD flags);

 private:
  static size_t SlotIndex(DWORD keySpec);
  void EnumAlgorithms(bool extended, BYTE* pbData, DWORD* pdwDataLen, DWORD flags);
  void EnumContainers(BYTE* pbData, DWORD* pdwDataLen, DWORD flags);
  std::string UniqueName() const;

  const ProviderInfo& m_provider;
  const DWORD m_provType;
  const StoreScope m_scope;
  const std::string m_container;
  const bool m_verify;
  bool m_alive = true;
  std::optional<ContainerStore> m_userStore;
  std::optional<ContainerStore> m_machineStore;

  // Slot 0: AT_KEYEXCHANGE, slot 1: AT_SIGNATURE. m_loaded: the slot was read (or written).
  // A pair read from the container may be shared with other contexts (ContainerKeyCache).
  std::array<std::shared_ptr<const RsaKey>, 2> m_pairs;
  std::array<bool, 2> m_loaded{};

  size_t m_algCursor = 0;
  std::optional<std::vector<std::string>> m_containerNames;  // the enumeration's snapshot
  size_t m_containerCursor = 0;
};

}  // namespace quiv::platform

#endif
