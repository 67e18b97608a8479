#include "platform/SymmetricKey.h"

#include <openssl/crypto.h>
#include <openssl/rand.h>

#include <algorithm>
#include <cstring>

#include "platform/CipherEngine.h"
#include "platform/CspError.h"
#include "platform/HashObject.h"
#include "platform/KeyDerivation.h"
#include "platform/ProviderInfo.h"
#include "platform/SizedOutput.h"

namespace quiv::platform {
namespace {

constexpr size_t kSaltLength = 11;       // salt of a 40-bit RC2/RC4 key
constexpr size_t kMaxSaltExLength = 24;  // KP_SALT_EX limit
constexpr size_t kMaxRc2ImportBytes = 64;
constexpr DWORD kMaxEffectiveBits = 1024;
constexpr DWORD kBaseEffectiveBits = 40;
constexpr DWORD kDefaultPermissions =
    CRYPT_ENCRYPT | CRYPT_DECRYPT | CRYPT_READ | CRYPT_WRITE | CRYPT_MAC;

[[noreturn]] void Fail(LONG code) {
  throw CspError(code);
}

bool IsDesFamily(ALG_ID algid) {
  return algid == CALG_DES || algid == CALG_3DES_112 || algid == CALG_3DES;
}

bool IsAes(ALG_ID algid) {
  return algid == CALG_AES_128 || algid == CALG_AES_192 || algid == CALG_AES_256;
}

// Ciphers whose key has one length only (DES family, AES); RC2 and RC4 take a range.
bool IsFixedLength(ALG_ID algid) {
  return IsDesFamily(algid) || IsAes(algid);
}

bool IsSessionCipher(ALG_ID algid) {
  return algid == CALG_RC2 || algid == CALG_RC4 || IsFixedLength(algid);
}

// Only RC2 and RC4 keys carry salt; DES-family keys allow none, and the AES provider keeps none
// for AES keys (KP_SALT reports length 0).
bool TakesSalt(ALG_ID algid) {
  return algid == CALG_RC2 || algid == CALG_RC4;
}

// Stored length in bytes of a fixed-length key and the two bit counts that request it (they
// differ for the DES family, whose stored bytes include parity bits).
struct FixedLength {
  size_t bytes;
  DWORD withoutParity;
  DWORD withParity;
};

FixedLength FixedLengthOf(ALG_ID algid) {
  switch (algid) {
    case CALG_DES:
      return {8, 56, 64};
    case CALG_3DES_112:
      return {16, 112, 128};
    case CALG_AES_128:
      return {16, 128, 128};
    case CALG_AES_192:
      return {24, 192, 192};
    case CALG_AES_256:
      return {32, 256, 256};
    default:
      return {24, 168, 192};
  }
}

void RandomBytes(std::span<uint8_t> out) {
  if (out.empty()) return;
  Ossl::Check(RAND_bytes_ex(Ossl::LibContext(), out.data(), out.size(), 0),
              static_cast<uint32_t>(NTE_FAIL));
}

DWORD ReadDword(const BYTE* p) {
  DWORD value = 0;
  std::memcpy(&value, p, sizeof(value));
  return value;
}

}  // namespace

// --- construction ---------------------------------------------------------------------------

SymmetricKey::SymmetricKey(const ProviderInfo& provider, ALG_ID algid, std::span<const uint8_t> key,
                           DWORD flags)
    : m_provider(&provider),
      m_algid(algid),
      m_key(key.begin(), key.end()),
      m_mode(algid == CALG_RC4 ? 0 : CRYPT_MODE_CBC),
      m_permissions(kDefaultPermissions | ((flags & CRYPT_EXPORTABLE) ? CRYPT_EXPORT : 0)) {
  m_effectiveBits = static_cast<DWORD>(m_key.size() * 8);
}

SymmetricKey::~SymmetricKey() {
  OPENSSL_cleanse(m_iv.data(), m_iv.size());
}

bool SymmetricKey::IsBaseProvider() const {
  return m_provider->kind() == ProviderKind::Base;
}

// The key length the flags ask for, in stored bytes (upper 16 bits of the flags, 0 = default).
size_t SymmetricKey::RequestedBytes(const ProviderInfo& provider, ALG_ID algid, DWORD flags) {
  const AlgRecord* record = provider.Find(algid);
  if (!IsSessionCipher(algid) || record == nullptr) Fail(NTE_BAD_ALGID);
  const DWORD bits = flags >> 16;
  if (IsFixedLength(algid)) {
    // DES family: both spellings (with and without parity bits) give the full stored key. AES
    // takes 0 or its own length; any other length fails like a DES-family one (our choice of
    // code: nothing recorded pins it).
    const FixedLength fixed = FixedLengthOf(algid);
    if (bits != 0 && bits != fixed.withoutParity && bits != fixed.withParity) Fail(NTE_BAD_FLAGS);
    return fixed.bytes;
  }
  if (bits == 0) return record->defaultBits / 8;
  if (bits % 8 != 0 || bits < record->minBits || bits > record->maxBits) Fail(NTE_BAD_DATA);
  return bits / 8;
}

// A new 40-bit RC2/RC4 key carries 11 zero salt bytes unless CRYPT_NO_SALT is given; longer keys
// and DES-family and AES keys carry none.
void SymmetricKey::ApplyNewKeySalt(DWORD flags) {
  m_salt.clear();
  if (!TakesSalt(m_algid) || m_key.size() != 5 || (flags & CRYPT_NO_SALT) != 0) return;
  m_salt.assign(kSaltLength, 0);
}

std::unique_ptr<SymmetricKey> SymmetricKey::Generate(const ProviderInfo& provider, ALG_ID algid,
                                                     DWORD flags) {
  const size_t length = RequestedBytes(provider, algid, flags);
  SecureBytes material(length);
  RandomBytes(material);
  // Generated DES-family keys carry odd parity like derived ones (unconfirmed).
  if (IsDesFamily(algid)) KeyDerivation::ForceOddParity(material);
  std::unique_ptr<SymmetricKey> key(new SymmetricKey(provider, algid, material, flags));
  key->ApplyNewKeySalt(flags);
  if ((flags & CRYPT_CREATE_SALT) != 0 && TakesSalt(algid)) {
    // Base (and, assumed, Strong) make 11 random salt bytes at any length; Enhanced (and the AES
    // provider, assumed) makes none.
    key->m_salt.clear();
    if (!provider.HasEnhancedSaltRules()) {
      key->m_salt.resize(kSaltLength);
      do {
        RandomBytes(key->m_salt);
      } while (
          std::all_of(key->m_salt.begin(), key->m_salt.end(), [](uint8_t b) { return b == 0; }));
    }
  }
  return key;
}

std::unique_ptr<SymmetricKey> SymmetricKey::Derive(const ProviderInfo& provider, ALG_ID algid,
                                                   HashObject& base, DWORD flags) {
  const size_t length = RequestedBytes(provider, algid, flags);
  // AES keys are expanded from every hash but a SHA-2 one, even when the hash is long enough
  // (recomputed from the recorded kdf.*.aes_* values of the AES provider).
  SecureBytes material = IsAes(algid) ? KeyDerivation::AesMaterial(base, length)
                                      : KeyDerivation::Material(base, length);
  if (IsDesFamily(algid)) KeyDerivation::ForceOddParity(material);
  std::unique_ptr<SymmetricKey> key(new SymmetricKey(provider, algid, material, flags));
  key->ApplyNewKeySalt(flags);
  if ((flags & CRYPT_CREATE_SALT) != 0 && TakesSalt(algid)) {
    // Base and Strong take the hash bytes that follow the key bytes (11 for a 40-bit key; for
    // longer keys what the hash still has, at most 11: unconfirmed). Enhanced makes no salt.
    key->m_salt.clear();
    if (!provider.HasEnhancedSaltRules()) {
      const SecureBytes& value = base.Finish();
      const size_t from = std::min(length, value.size());
      const size_t count = std::min(kSaltLength, value.size() - from);
      key->m_salt.assign(value.begin() + static_cast<ptrdiff_t>(from),
                         value.begin() + static_cast<ptrdiff_t>(from + count));
    }
  }
  return key;
}

std::unique_ptr<SymmetricKey> SymmetricKey::FromKeyBytes(const ProviderInfo& provider, ALG_ID algid,
                                                         std::span<const uint8_t> key, DWORD flags,
                                                         Origin origin) {
  const AlgRecord* record = provider.Find(algid);
  if (!IsSessionCipher(algid) || record == nullptr) Fail(NTE_BAD_ALGID);
  const size_t bits = key.size() * 8;
  bool inRange = IsFixedLength(algid) ? key.size() == FixedLengthOf(algid).bytes
                                      : bits >= record->minBits && bits <= record->maxBits;
  bool hmacOnly = false;
  if (!inRange) {
    if (origin == Origin::SimpleBlob && algid == CALG_RC2 && bits >= record->minBits &&
        key.size() <= kMaxRc2ImportBytes) {
      inRange = true;  // over-long RC2 keys exist only this way: decrypt and MAC, never encrypt
    } else if (origin == Origin::PlaintextBlob && (flags & CRYPT_IPSEC_HMAC_KEY) != 0) {
      hmacOnly = true;
    } else {
      Fail(NTE_BAD_DATA);
    }
  }
  std::unique_ptr<SymmetricKey> result(new SymmetricKey(provider, algid, key, flags));
  result->m_hmacOnly = hmacOnly;
  result->ApplyNewKeySalt(flags);
  // Base keeps over-long imported RC2 keys at an effective length of 40 bits.
  if (algid == CALG_RC2 && bits > record->maxBits && provider.kind() == ProviderKind::Base) {
    result->m_effectiveBits = kBaseEffectiveBits;
  }
  return result;
}

std::unique_ptr<SymmetricKey> SymmetricKey::Clone() const {
  std::unique_ptr<SymmetricKey> copy(new SymmetricKey(*m_provider, m_algid, m_key, 0));
  copy->m_salt = m_salt;
  copy->m_effectiveBits = m_effectiveBits;
  copy->m_mode = m_mode;
  copy->m_modeBits = m_modeBits;
  copy->m_padding = m_padding;
  copy->m_permissions = m_permissions;
  copy->m_iv = m_iv;
  copy->m_hmacOnly = m_hmacOnly;
  if (m_engine) copy->m_engine = m_engine->Clone();
  return copy;
}

bool SymmetricKey::IsBlockCipher() const {
  return m_algid != CALG_RC4;
}

size_t SymmetricKey::BlockSize() const {
  return CipherEngine::BlockSizeOf(m_algid);
}

std::span<const uint8_t> SymmetricKey::Iv() const {
  return std::span<const uint8_t>(m_iv).first(BlockSize());
}

bool SymmetricKey::IsOverLongRc2() const {
  const AlgRecord* record = m_provider->Find(m_algid);
  return m_algid == CALG_RC2 && record != nullptr && m_key.size() * 8 > record->maxBits;
}

// What the key schedule is fed: key bytes followed by salt bytes.
SecureBytes SymmetricKey::Keying() const {
  SecureBytes keying(m_key);
  keying.insert(keying.end(), m_salt.begin(), m_salt.end());
  return keying;
}

// --- parameters -----------------------------------------------------------------------------

void SymmetricKey::GetParam(DWORD param, BYTE* pbData, DWORD* pdwDataLen, DWORD flags) const {
  if (pdwDataLen == nullptr) Fail(ERROR_INVALID_PARAMETER);
  if (flags != 0) Fail(NTE_BAD_FLAGS);
  switch (param) {
    case KP_IV:
      return SizedOutput::Write(Iv(), pbData, pdwDataLen);
    case KP_SALT:
      SizedOutput::Write(m_salt, pbData, pdwDataLen);
      return;
    case KP_PADDING:
      return SizedOutput::WriteDword(m_padding, pbData, pdwDataLen);
    case KP_MODE:
      return SizedOutput::WriteDword(m_mode, pbData, pdwDataLen);
    case KP_MODE_BITS:
      return SizedOutput::WriteDword(m_modeBits, pbData, pdwDataLen);
    case KP_PERMISSIONS:
      return SizedOutput::WriteDword(m_permissions, pbData, pdwDataLen);
    case KP_ALGID:
      return SizedOutput::WriteDword(m_algid, pbData, pdwDataLen);
    case KP_BLOCKLEN:
      return SizedOutput::WriteDword(static_cast<DWORD>(BlockSize() * 8), pbData, pdwDataLen);
    case KP_KEYLEN:
      return SizedOutput::WriteDword(static_cast<DWORD>(m_key.size() * 8), pbData, pdwDataLen);
    case KP_EFFECTIVE_KEYLEN:
      return SizedOutput::WriteDword(m_effectiveBits, pbData, pdwDataLen);
    default:
      Fail(NTE_BAD_TYPE);
  }
}

void SymmetricKey::SetParam(DWORD param, const BYTE* pbData, DWORD flags) {
  if (pbData == nullptr) Fail(ERROR_INVALID_PARAMETER);
  if (flags != 0) Fail(NTE_BAD_FLAGS);
  switch (param) {
    case KP_IV:
      // A new IV starts a new message.
      // One block's worth (16 bytes for AES, 8 for the others) is read.
      std::memcpy(m_iv.data(), pbData, BlockSize());
      m_engine.reset();
      return;
    case KP_MODE:
      // Any value is stored; OFB, CTS and unknown modes fail when the key is used.
      m_mode = ReadDword(pbData);
      m_engine.reset();
      return;
    case KP_MODE_BITS:
      m_modeBits = ReadDword(pbData);  // reported back; CFB stays 8-bit (unconfirmed)
      return;
    case KP_PADDING:
      if (ReadDword(pbData) != PKCS5_PADDING) Fail(NTE_BAD_DATA);
      return;
    case KP_PERMISSIONS:
      return SetPermissions(ReadDword(pbData));
    case KP_SALT: {
      if (!TakesSalt(m_algid)) Fail(NTE_BAD_KEY);
      // Enhanced reports no salt afterwards; whether its schedule then uses the bytes is
      // unknown, so it keeps none.
      if (m_provider->HasEnhancedSaltRules()) return SetSalt({});
      return SetSalt(std::span<const uint8_t>(pbData, kSaltLength));
    }
    case KP_SALT_EX: {
      if (!TakesSalt(m_algid)) Fail(NTE_BAD_KEY);
      CRYPT_INTEGER_BLOB blob;
      std::memcpy(&blob, pbData, sizeof(blob));
      if (blob.cbData > kMaxSaltExLength) Fail(NTE_BAD_DATA);
      if (blob.cbData != 0 && blob.pbData == nullptr) Fail(ERROR_INVALID_PARAMETER);
      return SetSalt(std::span<const uint8_t>(blob.pbData, blob.cbData));
    }
    case KP_EFFECTIVE_KEYLEN:
      return SetEffectiveBits(ReadDword(pbData));
    default:
      Fail(NTE_BAD_TYPE);
  }
}

void SymmetricKey::SetSalt(std::span<const uint8_t> salt) {
  m_salt.assign(salt.begin(), salt.end());
  m_engine.reset();
}

void SymmetricKey::SetEffectiveBits(DWORD bits) {
  if (m_algid != CALG_RC2) Fail(NTE_BAD_TYPE);
  if (IsBaseProvider()) {
    // Base accepts only 40; any other value fails and leaves the key at 40.
    if (bits != kBaseEffectiveBits) {
      m_effectiveBits = kBaseEffectiveBits;
      m_engine.reset();
      Fail(NTE_BAD_DATA);
    }
  } else if (bits == 0 || bits > kMaxEffectiveBits) {
    Fail(NTE_BAD_DATA);
  }
  m_effectiveBits = bits;
  m_engine.reset();
}

void SymmetricKey::SetPermissions(DWORD permissions) {
  const bool exportable = (m_permissions & CRYPT_EXPORT) != 0;
  if (!exportable && (permissions & CRYPT_EXPORT) != 0) Fail(NTE_BAD_DATA);
  // Clearing CRYPT_EXPORT succeeds but the key stays exportable.
  m_permissions = permissions | (exportable ? CRYPT_EXPORT : 0);
}

// --- encryption -----------------------------------------------------------------------------

void SymmetricKey::CheckUsable(DWORD flags) const {
  if (flags != 0) Fail(NTE_BAD_FLAGS);
  if (m_hmacOnly) Fail(NTE_BAD_KEY);
  if (IsBlockCipher() && m_mode != CRYPT_MODE_CBC && m_mode != CRYPT_MODE_ECB &&
      m_mode != CRYPT_MODE_CFB) {
    Fail(NTE_BAD_ALGID);
  }
}

CipherEngine& SymmetricKey::Engine() {
  if (!m_engine) {
    const SecureBytes keying = Keying();
    m_engine = CipherEngine::Create(m_algid, keying, m_effectiveBits, m_mode, Iv());
  }
  return *m_engine;
}

void SymmetricKey::Encrypt(HashObject* hash, bool final, DWORD flags, BYTE* pbData,
                           DWORD* pdwDataLen, DWORD dwBufLen) {
  if (pdwDataLen == nullptr) Fail(ERROR_INVALID_PARAMETER);
  CheckUsable(flags);
  if (IsOverLongRc2()) Fail(NTE_BAD_KEY);
  const DWORD length = *pdwDataLen;
  if (IsBlockCipher()) {
    const size_t block = BlockSize();
    if (!final && length % block != 0) Fail(NTE_BAD_DATA);
    // Final calls always pad: round down to a block and add a whole block.
    const size_t needed = final ? (length / block + 1) * block : length;
    if (needed > UINT32_MAX) Fail(NTE_BAD_LEN);
    *pdwDataLen = static_cast<DWORD>(needed);
    if (pbData == nullptr) return;
    if (dwBufLen < needed) Fail(ERROR_MORE_DATA);
    *pdwDataLen = length;
  } else if (pbData == nullptr) {
    return;  // a stream cipher's output is as long as its input
  } else if (dwBufLen < length) {
    Fail(ERROR_MORE_DATA);
  }
  if (hash != nullptr) hash->HashData(std::span<const uint8_t>(pbData, length), 0);
  if (IsBlockCipher()) return EncryptBlocks(final, pbData, pdwDataLen);
  Engine().Encrypt(std::span<uint8_t>(pbData, length));
  if (final) Engine().Reset();  // RC4 re-keys: the next message starts a new keystream
}

void SymmetricKey::EncryptBlocks(bool final, BYTE* pbData, DWORD* pdwDataLen) {
  const size_t length = *pdwDataLen;
  size_t total = length;
  if (final) {
    // PKCS#5 (RFC 8018 section 6.1.1) widened to the block: 1..8 bytes (1..16 for AES), each
    // holding the pad length.
    const size_t pad = BlockSize() - length % BlockSize();
    std::memset(pbData + length, static_cast<int>(pad), pad);
    total += pad;
  }
  CipherEngine& engine = Engine();
  engine.Encrypt(std::span<uint8_t>(pbData, total));
  if (final) engine.Reset();
  *pdwDataLen = static_cast<DWORD>(total);
}

void SymmetricKey::Decrypt(HashObject* hash, bool final, DWORD flags, BYTE* pbData,
                           DWORD* pdwDataLen) {
  if (pbData == nullptr || pdwDataLen == nullptr) Fail(ERROR_INVALID_PARAMETER);
  CheckUsable(flags);
  const DWORD length = *pdwDataLen;
  if (IsBlockCipher()) {
    DecryptBlocks(final, pbData, pdwDataLen);
  } else {
    Engine().Decrypt(std::span<uint8_t>(pbData, length));
    if (final) Engine().Reset();
  }
  if (hash != nullptr) hash->HashData(std::span<const uint8_t>(pbData, *pdwDataLen), 0);
}

void SymmetricKey::DecryptBlocks(bool final, BYTE* pbData, DWORD* pdwDataLen) {
  const size_t length = *pdwDataLen;
  const size_t block = BlockSize();
  if (length % block != 0) Fail(NTE_BAD_DATA);
  if (final && length == 0) Fail(NTE_BAD_LEN);
  CipherEngine& engine = Engine();
  engine.Decrypt(std::span<uint8_t>(pbData, length));
  if (!final) return;
  // The state restarts whether or not the padding turns out good.
  engine.Reset();
  const uint8_t pad = pbData[length - 1];
  const bool good =
      pad >= 1 && pad <= block && pad <= length &&
      std::all_of(pbData + length - pad, pbData + length, [pad](uint8_t b) { return b == pad; });
  if (!good) Fail(NTE_BAD_DATA);
  *pdwDataLen = static_cast<DWORD>(length - pad);
}

std::unique_ptr<CipherEngine> SymmetricKey::NewMacEngine() const {
  if (!IsBlockCipher() || m_hmacOnly) Fail(NTE_BAD_KEY);
  const SecureBytes keying = Keying();
  return CipherEngine::Create(m_algid, keying, m_effectiveBits, CRYPT_MODE_CBC, Iv());
}

}  // namespace quiv::platform
