// ProviderInfo: the static description of the providers this library implements: the three
// PROV_RSA_FULL providers (Base, Enhanced, Strong) and the PROV_RSA_AES provider (Enhanced RSA
// and AES, also registered under its older "(Prototype)" name): their registered names and types,
// the algorithm records reported by PP_ENUMALGS / PP_ENUMALGS_EX (with default, minimum and
// maximum key lengths), and lookup by name and by type.
//
// Ownership: the instances are immutable, built once and live for the whole process; code keeps
// plain references or pointers to them.
#ifndef QUIV_PLATFORM_PROVIDERINFO_H
#define QUIV_PLATFORM_PROVIDERINFO_H

#include <array>
#include <cstdint>
#include <span>
#include <string_view>

#include "platform/QuivExport.h"
#include "platform/wincrypt.h"

namespace quiv::platform {

enum class ProviderKind { Base, Enhanced, Strong, Aes };

// One algorithm as the provider advertises it. Lengths are in bits; `protocols` is the
// dwProtocols mask of PROV_ENUMALGS_EX.
struct AlgRecord {
  ALG_ID algid;
  DWORD defaultBits;
  DWORD minBits;
  DWORD maxBits;
  DWORD protocols;
  std::string_view name;      // szName, at most 19 characters
  std::string_view longName;  // szLongName, at most 39 characters
};

class QUIV_API ProviderInfo final {
 public:
  static constexpr size_t kEnumAlgsSize = 32;    // sizeof(PROV_ENUMALGS)
  static constexpr size_t kEnumAlgsExSize = 88;  // sizeof(PROV_ENUMALGS_EX)

  // The provider registered under `name` (compared case-insensitively, as the registry does);
  // nullptr when no provider has that name. Throws nothing.
  static const ProviderInfo* FindByName(std::string_view name);
  // The provider used when no name is given: the Strong provider, the default type-1 provider
  // of current Windows. Throws nothing.
  static const ProviderInfo& Default();
  // The default provider of `provType`: Strong for PROV_RSA_FULL, the AES provider for
  // PROV_RSA_AES; nullptr for any other type. Throws nothing.
  static const ProviderInfo* DefaultFor(DWORD provType);
  // The instance of the given kind (for Aes, the one under its current name). Throws nothing.
  static const ProviderInfo& Of(ProviderKind kind);

  ProviderKind kind() const { return m_kind; }
  // The provider type it is registered with (PP_PROVTYPE of its contexts).
  DWORD type() const { return m_type; }
  // True for the providers whose salt rules are the Enhanced provider's: CRYPT_CREATE_SALT makes
  // no salt and KP_SALT leaves none (Enhanced, and the AES provider built on it).
  bool HasEnhancedSaltRules() const {
    return m_kind == ProviderKind::Enhanced || m_kind == ProviderKind::Aes;
  }
  // The exact registered name (PP_NAME without its NUL).
  std::string_view name() const { return m_name; }
  // Every algorithm record, in enumeration order.
  std::span<const AlgRecord> Algorithms() const { return m_algorithms; }
  // The record of `algid`, or nullptr when this provider does not offer it. CALG_SHA1 and
  // CALG_SHA are the same id. Throws nothing.
  const AlgRecord* Find(ALG_ID algid) const;

  // The little-endian PROV_ENUMALGS record (32 bytes) of `record`; unused name bytes are zero.
  static std::array<uint8_t, kEnumAlgsSize> EnumAlgsRecord(const AlgRecord& record);
  // The little-endian PROV_ENUMALGS_EX record (88 bytes) of `record`.
  static std::array<uint8_t, kEnumAlgsExSize> EnumAlgsExRecord(const AlgRecord& record);

  ProviderInfo(ProviderKind kind, DWORD type, std::string_view name,
               std::span<const AlgRecord> algorithms)
      : m_kind(kind), m_type(type), m_name(name), m_algorithms(algorithms) {}
  ProviderInfo(const ProviderInfo&) = delete;
  ProviderInfo& operator=(const ProviderInfo&) = delete;

 private:
  ProviderKind m_kind;
  DWORD m_type;
  std::string_view m_name;
  std::span<const AlgRecord> m_algorithms;
};

}  // namespace quiv::platform

#endif
