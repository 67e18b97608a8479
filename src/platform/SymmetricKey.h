// SymmetricKey: a CryptoAPI session key (RC2, RC4, DES, 3DES_112, 3DES, and in the AES provider
// AES-128/192/256): its key bytes, salt, RC2 effective length, mode, IV, padding, permissions and
// running cipher state, and the CryptEncrypt / CryptDecrypt / CryptGetKeyParam / CryptSetKeyParam
// behaviour of the providers for it (lengths and salt per provider, PKCS#5 padding to the
// cipher's block, final/non-final calls, state reset after a final call, size queries).
//
// Ownership: a key owns its key material (wiped on destruction) and its cipher state. It refers
// to the ProviderInfo it was made for, which lives for the whole process. Hash objects passed to
// Encrypt/Decrypt are borrowed for the call only.
#ifndef QUIV_PLATFORM_SYMMETRICKEY_H
#define QUIV_PLATFORM_SYMMETRICKEY_H

#include <array>
#include <cstdint>
#include <memory>
#include <span>

#include "platform/QuivExport.h"
#include "platform/SecureBytes.h"
#include "platform/wincrypt.h"

namespace quiv::platform {

class CipherEngine;
class HashObject;
class ProviderInfo;

class QUIV_API SymmetricKey final {
 public:
  enum class Origin { SimpleBlob, PlaintextBlob };

  // CryptGenKey for a session key: random key bytes (DES family with odd parity), length from
  // the upper 16 bits of `flags` (0 = provider default), salt per provider and flags.
  // Throws CspError: NTE_BAD_ALGID (not a session cipher of this provider), NTE_BAD_DATA (RC2/RC4
  // length out of range or not a multiple of 8), NTE_BAD_FLAGS (DES-family length other than the
  // two accepted spellings, AES length other than the key's own), NTE_FAIL (random source
  // failure).
  static std::unique_ptr<SymmetricKey> Generate(const ProviderInfo& provider, ALG_ID algid,
                                                DWORD flags);
  // CryptDeriveKey: key bytes from the value of `base` (finished if it was not), expanded with
  // the 0x36/0x5C construction when the hash is shorter than the key (AES keys: always, unless
  // the hash is a SHA-2 one), DES-family parity, salt per provider. `base` stays readable
  // afterwards. Throws as Generate, plus NTE_BAD_ALGID when the hash cannot drive the expansion.
  static std::unique_ptr<SymmetricKey> Derive(const ProviderInfo& provider, ALG_ID algid,
                                              HashObject& base, DWORD flags);
  // A key from unwrapped blob bytes (stored order). SIMPLEBLOB: length must be in the provider's
  // range, except RC2, which accepts 5..64 bytes. PLAINTEXTKEYBLOB: in range, or any length with
  // CRYPT_IPSEC_HMAC_KEY (such a key is only good for HMAC). Salt follows the new-key rules; the
  // IV is zero. Throws CspError: NTE_BAD_ALGID (not a session cipher of this provider),
  // NTE_BAD_DATA (length not acceptable).
  static std::unique_ptr<SymmetricKey> FromKeyBytes(const ProviderInfo& provider, ALG_ID algid,
                                                    std::span<const uint8_t> key, DWORD flags,
                                                    Origin origin);
  ~SymmetricKey();
  SymmetricKey(const SymmetricKey&) = delete;
  SymmetricKey& operator=(const SymmetricKey&) = delete;

  // CryptDuplicateKey: an independent key with the whole state (material, salt, mode, IV,
  // running chain value or keystream position, permissions, effective length).
  // Throws CspError(NTE_FAIL) / NTE_NO_MEMORY.
  std::unique_ptr<SymmetricKey> Clone() const;

  ALG_ID algid() const { return m_algid; }
  DWORD permissions() const { return m_permissions; }
  // The key bytes (KP_KEYLEN / 8 of them), salt excluded: what key blobs carry.
  std::span<const uint8_t> KeyBytes() const { return m_key; }
  std::span<const uint8_t> Salt() const { return m_salt; }
  // True for RC2, DES, 3DES_112, 3DES (64-bit blocks) and AES (128-bit blocks); false for RC4.
  bool IsBlockCipher() const;
  // The cipher's block length in bytes (8, or 16 for AES); 0 for RC4.
  size_t BlockSize() const;
  // KP_IV: the initial chain value, BlockSize() bytes (none for RC4).
  std::span<const uint8_t> Iv() const;

  // CryptGetKeyParam: KP_IV, KP_SALT, KP_PADDING, KP_MODE, KP_MODE_BITS, KP_PERMISSIONS,
  // KP_ALGID, KP_BLOCKLEN, KP_KEYLEN, KP_EFFECTIVE_KEYLEN, with the size rules of SizedOutput.
  // Throws CspError: ERROR_INVALID_PARAMETER (pdwDataLen NULL), ERROR_MORE_DATA (short buffer),
  // NTE_BAD_FLAGS (flags non-zero), NTE_BAD_TYPE (unknown parameter, or one that does not apply
  // to this cipher).
  void GetParam(DWORD param, BYTE* pbData, DWORD* pdwDataLen, DWORD flags) const;
  // CryptSetKeyParam: KP_IV (restarts chaining), KP_MODE, KP_MODE_BITS, KP_PADDING,
  // KP_PERMISSIONS, KP_SALT, KP_SALT_EX (CRYPT_INTEGER_BLOB), KP_EFFECTIVE_KEYLEN.
  // Throws CspError: ERROR_INVALID_PARAMETER (pbData NULL), NTE_BAD_FLAGS (flags non-zero),
  // NTE_BAD_DATA (value refused: padding, permissions adding CRYPT_EXPORT, effective length,
  // salt over 24 bytes), NTE_BAD_KEY (salt on a DES-family or AES key), NTE_BAD_TYPE (unknown
  // parameter or effective length on a non-RC2 key).
  void SetParam(DWORD param, const BYTE* pbData, DWORD flags);

  // CryptEncrypt, in place. `hash` (may be null) receives the plaintext first. pbData NULL is a
  // size query. Throws CspError: ERROR_INVALID_PARAMETER (pdwDataLen NULL), NTE_BAD_FLAGS,
  // NTE_BAD_DATA (non-final length not a block multiple), ERROR_MORE_DATA (output longer than
  // dwBufLen; *pdwDataLen = needed), NTE_BAD_ALGID (mode OFB/CTS/unknown), NTE_BAD_KEY (RC2 key
  // longer than the provider maximum, key only good for HMAC), and whatever `hash->HashData`
  // throws. Permission bits are reported, not enforced (no recorded behaviour says otherwise).
  void Encrypt(HashObject* hash, bool final, DWORD flags, BYTE* pbData, DWORD* pdwDataLen,
               DWORD dwBufLen);
  // CryptDecrypt, in place; `hash` (may be null) receives the recovered plaintext.
  // Throws CspError: ERROR_INVALID_PARAMETER (pbData or pdwDataLen NULL), NTE_BAD_FLAGS,
  // NTE_BAD_DATA (length not a block multiple, bad PKCS#5 padding: the key state is reset and
  // *pdwDataLen kept), NTE_BAD_LEN (final call with no data), NTE_BAD_ALGID (mode), NTE_BAD_KEY
  // (key only good for HMAC).
  void Decrypt(HashObject* hash, bool final, DWORD flags, BYTE* pbData, DWORD* pdwDataLen);

  // For CALG_MAC: a private cipher in CBC mode at this key's IV, fresh chain, independent of
  // this key's running state. Throws CspError(NTE_BAD_KEY) for a stream cipher or a key that
  // cannot be keyed.
  std::unique_ptr<CipherEngine> NewMacEngine() const;

 private:
  SymmetricKey(const ProviderInfo& provider, ALG_ID algid, std::span<const uint8_t> key,
               DWORD flags);
  static size_t RequestedBytes(const ProviderInfo& provider, ALG_ID algid, DWORD flags);
  void ApplyNewKeySalt(DWORD flags);
  bool IsBaseProvider() const;
  bool IsOverLongRc2() const;
  SecureBytes Keying() const;
  void CheckUsable(DWORD flags) const;
  CipherEngine& Engine();
  void SetSalt(std::span<const uint8_t> salt);
  void SetEffectiveBits(DWORD bits);
  void SetPermissions(DWORD permissions);
  void EncryptBlocks(bool final, BYTE* pbData, DWORD* pdwDataLen);
  void DecryptBlocks(bool final, BYTE* pbData, DWORD* pdwDataLen);

  const ProviderInfo* m_provider;
  ALG_ID m_algid;
  SecureBytes m_key;
  SecureBytes m_salt;
  DWORD m_effectiveBits = 0;
  DWORD m_mode = 0;
  DWORD m_modeBits = 8;
  DWORD m_padding = PKCS5_PADDING;
  DWORD m_permissions = 0;
  std::array<uint8_t, 16> m_iv{};  // the first BlockSize() bytes are the IV
  bool m_hmacOnly = false;         // PLAINTEXTKEYBLOB with CRYPT_IPSEC_HMAC_KEY outside the range
  std::unique_ptr<CipherEngine> m_engine;  // built on first use from the current parameters
};

}  // namespace quiv::platform

#endif
