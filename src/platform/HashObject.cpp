#include "platform/HashObject.h"

#include <algorithm>
#include <cstring>

#include "platform/CipherEngine.h"
#include "platform/CspError.h"
#include "platform/Digest.h"
#include "platform/ProviderInfo.h"
#include "platform/SizedOutput.h"
#include "platform/SymmetricKey.h"

namespace quiv::platform {
namespace {

constexpr size_t kSsl3ShaMd5Size = 36;  // MD5 digest then SHA-1 digest
constexpr uint8_t kInnerPad = 0x36;
constexpr uint8_t kOuterPad = 0x5C;

[[noreturn]] void Fail(LONG code) {
  throw CspError(code);
}

bool IsHashAlgid(ALG_ID algid) {
  return Digest::Supports(algid) || algid == CALG_MAC || algid == CALG_HMAC ||
         algid == CALG_SSL3_SHAMD5;
}

// An HMAC pad string: the caller's bytes (or `block` bytes of `pad` when the caller gives none)
// with the key XORed into its first min(key length, string length) bytes.
SecureBytes KeyedPad(std::span<const uint8_t> key, const BYTE* caller, DWORD callerLength,
                     uint8_t pad, size_t block) {
  SecureBytes out;
  if (callerLength == 0) {
    out.assign(block, pad);
  } else {
    if (caller == nullptr) Fail(ERROR_INVALID_PARAMETER);
    out.assign(caller, caller + callerLength);
  }
  for (size_t i = 0; i < key.size() && i < out.size(); ++i) out[i] ^= key[i];
  return out;
}

}  // namespace

HashObject::HashObject(const ProviderInfo& provider, ALG_ID algid)
    : m_provider(&provider), m_algid(algid) {}

HashObject::~HashObject() = default;

std::unique_ptr<HashObject> HashObject::Create(const ProviderInfo& provider, ALG_ID algid,
                                               const SymmetricKey* key, DWORD flags) {
  if (flags != 0) Fail(NTE_BAD_FLAGS);
  if (!IsHashAlgid(algid) || provider.Find(algid) == nullptr) Fail(NTE_BAD_ALGID);
  std::unique_ptr<HashObject> hash(new HashObject(provider, algid));
  if (algid == CALG_MAC) {
    if (key == nullptr) Fail(NTE_BAD_KEY);
    // A private copy: later use of the key does not disturb the MAC.
    hash->m_mac = key->NewMacEngine();
  } else if (algid == CALG_HMAC) {
    if (key == nullptr) Fail(NTE_BAD_KEY);
    const std::span<const uint8_t> bytes = key->KeyBytes();
    hash->m_hmacKey.assign(bytes.begin(), bytes.end());
  } else if (Digest::Supports(algid)) {
    hash->m_digest = std::make_unique<Digest>(algid);
  }
  return hash;
}

std::unique_ptr<HashObject> HashObject::Clone() const {
  std::unique_ptr<HashObject> copy(new HashObject(*m_provider, m_algid));
  copy->m_finished = m_finished;
  copy->m_value = m_value;
  if (m_digest && !m_finished) copy->m_digest = m_digest->Clone();
  if (m_mac) copy->m_mac = m_mac->Clone();
  copy->m_macPending = m_macPending;
  copy->m_hmacKey = m_hmacKey;
  copy->m_hmacAlgid = m_hmacAlgid;
  copy->m_hmacOuter = m_hmacOuter;
  return copy;
}

size_t HashObject::size() const {
  switch (m_algid) {
    case CALG_MAC:
      return m_mac ? m_mac->blockSize() : 0;  // the key's block: 8, or 16 for AES
    case CALG_SSL3_SHAMD5:
      return kSsl3ShaMd5Size;
    case CALG_HMAC:
      return Digest::SizeOf(m_hmacAlgid);
    default:
      return Digest::SizeOf(m_algid);
  }
}

ALG_ID HashObject::digestAlgid() const {
  if (m_algid == CALG_HMAC) return m_hmacAlgid;
  return Digest::Supports(m_algid) ? m_algid : 0;
}

// --- data -----------------------------------------------------------------------------------

void HashObject::CheckWritable() const {
  if (m_algid == CALG_SSL3_SHAMD5) Fail(NTE_BAD_ALGID);  // its value can only be set
  if (m_finished) Fail(NTE_BAD_HASH_STATE);
  // HMAC data before HP_HMAC_INFO is refused (what Windows does is unconfirmed).
  if (m_algid == CALG_HMAC && !m_digest) Fail(NTE_BAD_HASH_STATE);
}

void HashObject::HashData(std::span<const uint8_t> data, DWORD flags) {
  if ((flags & ~static_cast<DWORD>(CRYPT_USERDATA)) != 0) Fail(NTE_BAD_FLAGS);
  CheckWritable();
  Absorb(data);
}

void HashObject::HashSessionKey(const SymmetricKey& key, DWORD flags) {
  if ((flags & ~static_cast<DWORD>(CRYPT_LITTLE_ENDIAN)) != 0) Fail(NTE_BAD_FLAGS);
  CheckWritable();
  const std::span<const uint8_t> bytes = key.KeyBytes();
  SecureBytes ordered(bytes.begin(), bytes.end());
  // By default the key is hashed as a big-endian number, i.e. its stored bytes reversed.
  if ((flags & CRYPT_LITTLE_ENDIAN) == 0) std::reverse(ordered.begin(), ordered.end());
  Absorb(ordered);
}

void HashObject::HashDescription(std::u16string_view text) {
  SecureBytes bytes;
  bytes.reserve(text.size() * 2);
  for (const char16_t unit : text) {
    bytes.push_back(static_cast<uint8_t>(unit & 0xFF));
    bytes.push_back(static_cast<uint8_t>(unit >> 8));
  }
  HashData(bytes, 0);
}

void HashObject::Absorb(std::span<const uint8_t> data) {
  if (data.empty()) return;
  if (!m_mac) {
    m_digest->Update(data);
    return;
  }
  // CBC-MAC: encrypt whole blocks as they complete; keep the tail for the final padding.
  m_macPending.insert(m_macPending.end(), data.begin(), data.end());
  const size_t whole = m_macPending.size() - m_macPending.size() % m_mac->blockSize();
  if (whole == 0) return;
  m_mac->Encrypt(std::span<uint8_t>(m_macPending.data(), whole));
  m_macPending.erase(m_macPending.begin(), m_macPending.begin() + static_cast<ptrdiff_t>(whole));
}

// --- value ----------------------------------------------------------------------------------

const SecureBytes& HashObject::Finish() {
  if (m_finished) return m_value;
  switch (m_algid) {
    case CALG_MAC:
      FinishMac();
      break;
    case CALG_HMAC:
      FinishHmac();
      break;
    case CALG_SSL3_SHAMD5:
      Fail(NTE_BAD_HASH_STATE);  // no value was set
    default:
      m_value = m_digest->Final();
      m_digest.reset();
      break;
  }
  m_finished = true;
  return m_value;
}

// PKCS#5 padding is always added, so an aligned input gets a whole extra block; the MAC is the
// last cipher block.
void HashObject::FinishMac() {
  const size_t pad = m_mac->blockSize() - m_macPending.size();
  SecureBytes block(m_macPending);
  block.insert(block.end(), pad, static_cast<uint8_t>(pad));
  m_mac->Encrypt(block);
  m_value = std::move(block);
  m_macPending.clear();
}

// RFC 2104 with the provider's twist: the pads are the (possibly caller-sized) keyed strings.
void HashObject::FinishHmac() {
  if (!m_digest) Fail(NTE_BAD_HASH_STATE);
  const SecureBytes inner = m_digest->Final();
  m_digest.reset();
  Digest outer(m_hmacAlgid);
  outer.Update(m_hmacOuter);
  outer.Update(inner);
  m_value = outer.Final();
}

void HashObject::SetHmacInfo(const HMAC_INFO& info) {
  // The inner hash must be one this provider offers: SHA-2 only in the AES provider.
  if (!Digest::Supports(info.HashAlgid) || m_provider->Find(info.HashAlgid) == nullptr) {
    Fail(NTE_BAD_ALGID);
  }
  // Keys longer than the hash block are replaced by their digest (RFC 2104 section 2). The
  // block is 128 bytes for SHA-384 and SHA-512 (RFC 4231), so their default pads are 128 bytes
  // long (the standard HMAC; nothing recorded says otherwise).
  const size_t block = Digest::HmacBlockOf(info.HashAlgid);
  SecureBytes key = m_hmacKey;
  if (key.size() > block) key = Digest::Compute(info.HashAlgid, key);
  const SecureBytes inner = KeyedPad(key, info.pbInnerString, info.cbInnerString, kInnerPad, block);
  SecureBytes outer = KeyedPad(key, info.pbOuterString, info.cbOuterString, kOuterPad, block);
  auto digest = std::make_unique<Digest>(info.HashAlgid);
  digest->Update(inner);
  // Setting the info restarts the hash.
  m_digest = std::move(digest);
  m_hmacAlgid = info.HashAlgid;
  m_hmacOuter = std::move(outer);
  m_value.clear();
  m_finished = false;
}

// --- parameters -----------------------------------------------------------------------------

void HashObject::GetParam(DWORD param, BYTE* pbData, DWORD* pdwDataLen, DWORD flags) {
  if (pdwDataLen == nullptr) Fail(ERROR_INVALID_PARAMETER);
  if (flags != 0) Fail(NTE_BAD_FLAGS);
  switch (param) {
    case HP_ALGID:
      return SizedOutput::WriteDword(m_algid, pbData, pdwDataLen);
    case HP_HASHSIZE:
      return SizedOutput::WriteDword(static_cast<DWORD>(size()), pbData, pdwDataLen);
    case HP_HASHVAL: {
      // Size queries and short buffers do not finish the hash.
      const size_t needed = m_finished ? m_value.size() : size();
      if (pbData == nullptr || *pdwDataLen < needed) {
        *pdwDataLen = static_cast<DWORD>(needed);
        if (pbData == nullptr) return;
        Fail(ERROR_MORE_DATA);
      }
      return SizedOutput::Write(Finish(), pbData, pdwDataLen);
    }
    default:
      Fail(NTE_BAD_TYPE);
  }
}

void HashObject::SetParam(DWORD param, const BYTE* pbData, DWORD flags) {
  if (pbData == nullptr) Fail(ERROR_INVALID_PARAMETER);
  if (flags != 0) Fail(NTE_BAD_FLAGS);
  switch (param) {
    case HP_HASHVAL:
      // A value computed elsewhere, e.g. to be signed; the hash is finished with it.
      m_value.assign(pbData, pbData + size());
      m_digest.reset();
      m_macPending.clear();
      m_finished = true;
      return;
    case HP_HMAC_INFO: {
      if (m_algid != CALG_HMAC) Fail(NTE_BAD_TYPE);
      HMAC_INFO info;
      std::memcpy(&info, pbData, sizeof(info));
      return SetHmacInfo(info);
    }
    default:
      Fail(NTE_BAD_TYPE);
  }
}

}  // namespace quiv::platform
