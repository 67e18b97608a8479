#include "platform/ProviderInfo.h"

#include <algorithm>
#include <cstring>

namespace quiv::platform {
namespace {

// dwProtocols bits (CRYPT_FLAG_IPSEC 0x10, CRYPT_FLAG_SIGNING 0x20) the providers report:
// hashes are usable for signing, RSA for IPsec and signing.
constexpr DWORD kFlagIpsec = 0x10;
constexpr DWORD kFlagSigning = 0x20;
constexpr DWORD kHashProtocols = kFlagSigning;
constexpr DWORD kRsaProtocols = kFlagIpsec | kFlagSigning;

constexpr AlgRecord kBaseAlgorithms[] = {
    {CALG_RC2, 40, 40, 56, 0, "RC2", "RSA Data Security's RC2"},
    {CALG_RC4, 40, 40, 56, 0, "RC4", "RSA Data Security's RC4"},
    {CALG_DES, 56, 56, 56, 0, "DES", "Data Encryption Standard (DES)"},
    {CALG_SHA1, 160, 160, 160, kHashProtocols, "SHA-1", "Secure Hash Algorithm (SHA-1)"},
    {CALG_MD2, 128, 128, 128, kHashProtocols, "MD2", "Message Digest 2 (MD2)"},
    {CALG_MD4, 128, 128, 128, kHashProtocols, "MD4", "Message Digest 4 (MD4)"},
    {CALG_MD5, 128, 128, 128, kHashProtocols, "MD5", "Message Digest 5 (MD5)"},
    {CALG_SSL3_SHAMD5, 288, 288, 288, 0, "SSL3 SHAMD5", "SSL3 SHAMD5"},
    {CALG_MAC, 0, 0, 0, 0, "MAC", "Message Authentication Code"},
    {CALG_RSA_SIGN, 512, 384, 16384, kRsaProtocols, "RSA_SIGN", "RSA Signature"},
    {CALG_RSA_KEYX, 512, 384, 1024, kRsaProtocols, "RSA_KEYX", "RSA Key Exchange"},
    {CALG_HMAC, 0, 0, 0, 0, "HMAC", "Hugo's MAC (HMAC)"},
};

// Enhanced and Strong report the same list.
constexpr AlgRecord kEnhancedAlgorithms[] = {
    {CALG_RC2, 128, 40, 128, 0, "RC2", "RSA Data Security's RC2"},
    {CALG_RC4, 128, 40, 128, 0, "RC4", "RSA Data Security's RC4"},
    {CALG_DES, 56, 56, 56, 0, "DES", "Data Encryption Standard (DES)"},
    {CALG_3DES_112, 112, 112, 112, 0, "3DES TWO KEY", "Two Key Triple DES"},
    {CALG_3DES, 168, 168, 168, 0, "3DES", "Three Key Triple DES"},
    {CALG_SHA1, 160, 160, 160, kHashProtocols, "SHA-1", "Secure Hash Algorithm (SHA-1)"},
    {CALG_MD2, 128, 128, 128, kHashProtocols, "MD2", "Message Digest 2 (MD2)"},
    {CALG_MD4, 128, 128, 128, kHashProtocols, "MD4", "Message Digest 4 (MD4)"},
    {CALG_MD5, 128, 128, 128, kHashProtocols, "MD5", "Message Digest 5 (MD5)"},
    {CALG_SSL3_SHAMD5, 288, 288, 288, 0, "SSL3 SHAMD5", "SSL3 SHAMD5"},
    {CALG_MAC, 0, 0, 0, 0, "MAC", "Message Authentication Code"},
    {CALG_RSA_SIGN, 1024, 384, 16384, kRsaProtocols, "RSA_SIGN", "RSA Signature"},
    {CALG_RSA_KEYX, 1024, 384, 16384, kRsaProtocols, "RSA_KEYX", "RSA Key Exchange"},
    {CALG_HMAC, 0, 0, 0, 0, "HMAC", "Hugo's MAC (HMAC)"},
};

// The AES provider reports the Enhanced list followed by the AES ciphers and the SHA-2 hashes.
// No recorded observation pins this order, the names or the protocol masks; they are the values
// the provider is known to report, in the layout of the other lists (the AES ciphers, like the
// other ciphers, advertise no protocol; the SHA-2 hashes, like the other hashes, signing).
constexpr AlgRecord kAesAdditions[] = {
    {CALG_AES_128, 128, 128, 128, 0, "AES 128", "Advanced Encryption Standard (AES-128)"},
    {CALG_AES_192, 192, 192, 192, 0, "AES 192", "Advanced Encryption Standard (AES-192)"},
    {CALG_AES_256, 256, 256, 256, 0, "AES 256", "Advanced Encryption Standard (AES-256)"},
    {CALG_SHA_256, 256, 256, 256, kHashProtocols, "SHA-256", "Secure Hash Algorithm (SHA-256)"},
    {CALG_SHA_384, 384, 384, 384, kHashProtocols, "SHA-384", "Secure Hash Algorithm (SHA-384)"},
    {CALG_SHA_512, 512, 512, 512, kHashProtocols, "SHA-512", "Secure Hash Algorithm (SHA-512)"},
};

template <size_t N, size_t M>
constexpr std::array<AlgRecord, N + M> Joined(const AlgRecord (&first)[N],
                                              const AlgRecord (&second)[M]) {
  std::array<AlgRecord, N + M> out{};
  for (size_t i = 0; i < N; ++i) out[i] = first[i];
  for (size_t i = 0; i < M; ++i) out[N + i] = second[i];
  return out;
}

constexpr auto kAesAlgorithms = Joined(kEnhancedAlgorithms, kAesAdditions);

const ProviderInfo kBase(ProviderKind::Base, PROV_RSA_FULL, MS_DEF_PROV_A, kBaseAlgorithms);
const ProviderInfo kEnhanced(ProviderKind::Enhanced, PROV_RSA_FULL, MS_ENHANCED_PROV_A,
                             kEnhancedAlgorithms);
const ProviderInfo kStrong(ProviderKind::Strong, PROV_RSA_FULL, MS_STRONG_PROV_A,
                           kEnhancedAlgorithms);
const ProviderInfo kAes(ProviderKind::Aes, PROV_RSA_AES, MS_ENH_RSA_AES_PROV_A, kAesAlgorithms);
// Windows XP registered the same provider as "... (Prototype)"; later releases keep that name
// registered. A context opened under it reports that name as PP_NAME (our choice: nothing
// recorded says which of the two spellings such a context reports).
const ProviderInfo kAesPrototype(ProviderKind::Aes, PROV_RSA_AES, MS_ENH_RSA_AES_PROV_XP_A,
                                 kAesAlgorithms);

// Registry lookups ignore ASCII case.
bool SameNameIgnoringCase(std::string_view a, std::string_view b) {
  const auto lower = [](char c) { return (c >= 'A' && c <= 'Z') ? static_cast<char>(c + 32) : c; };
  return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(),
                                            [&](char x, char y) { return lower(x) == lower(y); });
}

void PutDword(uint8_t* at, DWORD value) {
  for (size_t i = 0; i < 4; ++i) at[i] = static_cast<uint8_t>(value >> (8 * i));
}

// A NUL-terminated name in a fixed field; the rest of the field stays zero.
void PutName(uint8_t* at, size_t field, std::string_view name) {
  std::memcpy(at, name.data(), std::min(name.size(), field - 1));
}

DWORD WithNul(std::string_view name) {
  return static_cast<DWORD>(name.size() + 1);
}

}  // namespace

const ProviderInfo* ProviderInfo::FindByName(std::string_view name) {
  for (const ProviderInfo* p : {&kBase, &kEnhanced, &kStrong, &kAes, &kAesPrototype}) {
    if (SameNameIgnoringCase(p->name(), name)) return p;
  }
  return nullptr;
}

const ProviderInfo& ProviderInfo::Default() {
  return kStrong;
}

const ProviderInfo* ProviderInfo::DefaultFor(DWORD provType) {
  if (provType == PROV_RSA_FULL) return &kStrong;
  if (provType == PROV_RSA_AES) return &kAes;
  return nullptr;
}

const ProviderInfo& ProviderInfo::Of(ProviderKind kind) {
  switch (kind) {
    case ProviderKind::Aes:
      return kAes;
    case ProviderKind::Base:
      return kBase;
    case ProviderKind::Enhanced:
      return kEnhanced;
    case ProviderKind::Strong:
      break;
  }
  return kStrong;
}

const AlgRecord* ProviderInfo::Find(ALG_ID algid) const {
  for (const AlgRecord& r : m_algorithms) {
    if (r.algid == algid) return &r;
  }
  return nullptr;
}

std::array<uint8_t, ProviderInfo::kEnumAlgsSize> ProviderInfo::EnumAlgsRecord(
    const AlgRecord& record) {
  std::array<uint8_t, kEnumAlgsSize> out{};
  PutDword(&out[0], record.algid);
  PutDword(&out[4], record.defaultBits);
  PutDword(&out[8], WithNul(record.name));
  PutName(&out[12], 20, record.name);
  return out;
}

std::array<uint8_t, ProviderInfo::kEnumAlgsExSize> ProviderInfo::EnumAlgsExRecord(
    const AlgRecord& record) {
  std::array<uint8_t, kEnumAlgsExSize> out{};
  PutDword(&out[0], record.algid);
  PutDword(&out[4], record.defaultBits);
  PutDword(&out[8], record.minBits);
  PutDword(&out[12], record.maxBits);
  PutDword(&out[16], record.protocols);
  PutDword(&out[20], WithNul(record.name));
  PutName(&out[24], 20, record.name);
  PutDword(&out[44], WithNul(record.longName));
  PutName(&out[48], 40, record.longName);
  return out;
}

}  // namespace quiv::platform
