// RsaKey: an RSA key pair or a public key of the provider, as CryptGenKey, CryptImportKey and
// CryptGetUserKey hand them out. It holds the key exactly as the CryptoAPI blobs lay it out
// (little-endian fields of fixed width), so that an imported key exports back byte for byte,
// even a public key whose modulus is not a real RSA modulus, and implements on it the provider's
// RSA operations: PKCS#1 v1.5 signatures with little-endian output, verification, and RSA
// encryption (PKCS#1 v1.5 type 2 or OAEP) for key-exchange keys.
//
// Ownership: an RsaKey owns its material (the private part in a wiping buffer). It refers to the
// ProviderInfo it was made for, which lives for the whole process. It never owns hash objects or
// session keys passed to its members. Not thread-safe: the handle table serialises calls on one
// key.
//
// Every failing member throws CspError with the code the caller of the C function must see; the
// codes are listed per member ("throws"). Codes marked (unconfirmed) follow the behaviour
// reference's best reading where no recorded Windows observation pins them.
#ifndef QUIV_PLATFORM_RSAKEY_H
#define QUIV_PLATFORM_RSAKEY_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string_view>
#include <vector>

#include "platform/QuivExport.h"
#include "platform/SecureBytes.h"
#include "platform/wincrypt.h"

// OpenSSL's key type, named without including OpenSSL in this header.
struct evp_pkey_st;

namespace quiv::platform {

class HashObject;
class ProviderInfo;
class SymmetricKey;

class QUIV_API RsaKey final {
 public:
  // Permissions of every new RSA key: ENCRYPT|DECRYPT|READ|WRITE|MAC; CRYPT_EXPORT is added
  // when the key is made or imported with CRYPT_EXPORTABLE.
  static constexpr DWORD kDefaultPermissions = 0x3B;
  static constexpr DWORD kPublicExponent = 65537;

  // CryptGenKey for AT_KEYEXCHANGE/CALG_RSA_KEYX or AT_SIGNATURE/CALG_RSA_SIGN (AT_* are
  // mapped to the CALG_ ids). The modulus length is the upper 16 bits of `flags` (0 = the
  // provider's default); CRYPT_EXPORTABLE in the low bits makes the private key exportable.
  // throws NTE_BAD_ALGID (not an RSA id), NTE_BAD_DATA (length out of the provider's range or
  // not a multiple of 8; unconfirmed code), NTE_FAIL (generation failed).
  static std::unique_ptr<RsaKey> Generate(const ProviderInfo& provider, ALG_ID algid, DWORD flags);

  // CryptImportKey of a PUBLICKEYBLOB (header bType 6, "RSA1"). The bytes are kept as given.
  // Trailing bytes after 20 + bitlen/8 are ignored.
  // throws NTE_BAD_DATA (too short, bad version/reserved, bad magic, bitlen 0 or too large),
  // NTE_BAD_TYPE (bType not PUBLICKEYBLOB), NTE_BAD_ALGID (aiKeyAlg not an RSA id).
  static std::unique_ptr<RsaKey> ImportPublicBlob(const ProviderInfo& provider,
                                                  std::span<const uint8_t> blob, DWORD flags);

  // CryptImportKey of a PRIVATEKEYBLOB (header bType 7, "RSA2"). When `unwrap` is given, every
  // byte after the 8-byte header is first decrypted with it (CryptDecrypt, Final=TRUE). The
  // private exponent may be cut short (its length is what remains of the blob); the rest of
  // the fields must be complete. CRYPT_EXPORTABLE in `flags` makes the key exportable.
  // throws NTE_BAD_DATA (too short, bad header, bad magic, bad unwrap padding), NTE_BAD_TYPE
  // (bType), NTE_BAD_ALGID (aiKeyAlg), NTE_BAD_DATA also for a bitlen outside the provider's
  // range for the algorithm (unconfirmed code), and whatever `unwrap->Decrypt` throws.
  static std::unique_ptr<RsaKey> ImportPrivateBlob(const ProviderInfo& provider,
                                                   std::span<const uint8_t> blob, DWORD flags,
                                                   SymmetricKey* unwrap);

  // The container store's form of a key pair: the private blob and the exportable flag.
  // FromStoredForm throws NTE_KEYSET_ENTRY_BAD when the bytes are not such a form or the key in
  // them fails OpenSSL's RSA key check (a damaged field under a valid file checksum). The key it
  // returns has its OpenSSL state built: no const member changes it any more, so it may be
  // shared read-only between threads (the container key cache does).
  SecureBytes StoredForm() const;
  static std::unique_ptr<RsaKey> FromStoredForm(const ProviderInfo& provider,
                                                std::span<const uint8_t> stored);

  // CryptDuplicateKey: an independent copy with the same material and permissions.
  std::unique_ptr<RsaKey> Clone() const;

  // PUBLICKEYBLOB of the key (pairs and public keys alike; no permission needed).
  std::vector<uint8_t> ExportPublicBlob() const;
  // Size in bytes of the private blob, unwrapped (20 + 2B + 5H).
  size_t PrivateBlobSize() const;
  // PRIVATEKEYBLOB, wrapped under `wrap` (CryptEncrypt, Final=TRUE, of everything after the
  // header) when given. throws NTE_BAD_KEY (no private part), NTE_BAD_KEY_STATE (not
  // exportable), and whatever `wrap->Encrypt` throws.
  SecureBytes ExportPrivateBlob(SymmetricKey* wrap) const;
  // The length ExportPrivateBlob(wrap) will have, with the same checks, without encrypting.
  size_t ExportPrivateBlobSize(SymmetricKey* wrap) const;

  ALG_ID algid() const { return m_algid; }
  bool HasPrivate() const { return m_private.has_value(); }
  // The bitlen field of the key (for imported keys, the blob's value).
  DWORD BitLength() const { return m_bitLength; }
  // Modulus size in bytes: the length of every signature and RSA ciphertext of this key.
  size_t ModulusBytes() const { return m_modulus.size(); }
  DWORD permissions() const { return m_permissions; }
  bool exportable() const { return (m_permissions & CRYPT_EXPORT) != 0; }

  // CryptGetKeyParam: KP_ALGID, KP_KEYLEN and KP_BLOCKLEN (modulus bits), KP_PERMISSIONS,
  // under the size rules of SizedOutput.
  // throws ERROR_INVALID_PARAMETER (pdwDataLen NULL), ERROR_MORE_DATA, NTE_BAD_FLAGS (flags
  // not 0), NTE_BAD_KEY (a symmetric-only parameter such as KP_SALT, KP_IV, KP_MODE),
  // NTE_BAD_TYPE (unknown parameter).
  void GetParam(DWORD param, BYTE* pbData, DWORD* pdwDataLen, DWORD flags) const;
  // CryptSetKeyParam: only KP_PERMISSIONS. Adding CRYPT_EXPORT fails; removing it succeeds but
  // the key stays exportable.
  // throws ERROR_INVALID_PARAMETER (pbData NULL), NTE_BAD_FLAGS (flags not 0), NTE_BAD_DATA
  // (adding CRYPT_EXPORT), NTE_BAD_KEY (symmetric-only parameter), NTE_BAD_TYPE (unknown).
  void SetParam(DWORD param, const BYTE* pbData, DWORD flags);

  // CryptEncrypt with a key-exchange key: PKCS#1 v1.5 type 2 (flags 0) or OAEP with SHA-1
  // (CRYPT_OAEP) of the *pdwDataLen bytes at pbData; the k-byte result is written
  // little-endian over pbData and *pdwDataLen becomes k. pbData NULL: *pdwDataLen = k. `final`
  // is accepted and ignored (RSA always completes). When `hash` is given the plaintext is
  // hashed into it first.
  // throws NTE_BAD_KEY (signature key), NTE_BAD_FLAGS, ERROR_INVALID_PARAMETER (pdwDataLen
  // NULL), ERROR_MORE_DATA (dwBufLen < k; *pdwDataLen = k), NTE_BAD_LEN (message longer than
  // k - 11, or k - 42 with OAEP).
  void Encrypt(HashObject* hash, bool final, DWORD flags, BYTE* pbData, DWORD* pdwDataLen,
               DWORD dwBufLen) const;
  // CryptDecrypt with a key-exchange pair: reads k little-endian bytes at pbData, removes the
  // padding and writes the message at the start of pbData. The incoming *pdwDataLen must be at
  // least k; nothing past it is read.
  // throws NTE_BAD_KEY (signature key or no private part), NTE_BAD_FLAGS,
  // ERROR_INVALID_PARAMETER (NULL pointers), NTE_BAD_DATA (*pdwDataLen below k, bad padding,
  // or a message longer than *pdwDataLen; *pdwDataLen unchanged).
  void Decrypt(HashObject* hash, bool final, DWORD flags, BYTE* pbData, DWORD* pdwDataLen) const;

  // CryptSignHash with this pair: the PKCS#1 v1.5 type 1 block over the DigestInfo prefix of
  // the hash algorithm (none for CALG_SSL3_SHAMD5 or with CRYPT_NOHASHOID) and the hash value,
  // raised to the private exponent, written little-endian in exactly k bytes. `description`
  // (may be null) is hashed as UTF-16 code units first; signing finishes the hash. A size
  // query (pbSignature NULL) touches neither.
  // throws NTE_BAD_FLAGS, ERROR_INVALID_PARAMETER (pdwSigLen NULL), ERROR_MORE_DATA,
  // NTE_BAD_KEY (no private part), NTE_BAD_ALGID (MAC/HMAC hash; unconfirmed code),
  // NTE_BAD_LEN (block does not fit the modulus), NTE_BAD_HASH_STATE (from the hash).
  void Sign(HashObject& hash, const char16_t* description, DWORD flags, BYTE* pbSignature,
            DWORD* pdwSigLen) const;
  // CryptVerifySignature. The length is checked before the pointer. With flags 0 both the
  // with-DigestInfo and the bare block are accepted; with CRYPT_NOHASHOID only the bare block
  // (unconfirmed whether Windows refuses the prefixed one then). Verification finishes the hash.
  // throws NTE_BAD_FLAGS, NTE_BAD_SIGNATURE (wrong length or mismatch), ERROR_INVALID_PARAMETER
  // (pbSignature NULL with the right length), NTE_BAD_ALGID (MAC/HMAC hash).
  void Verify(HashObject& hash, const BYTE* pbSignature, DWORD dwSigLen,
              const char16_t* description, DWORD flags) const;

  // Raw building blocks shared with KeyBlob (SIMPLEBLOB wrap and unwrap).
  // EncryptBlock: PKCS#1 type 2 (or OAEP) encryption of `message`, little-endian, k bytes.
  // throws NTE_BAD_LEN (message too long), NTE_BAD_KEY (key unusable).
  std::vector<uint8_t> EncryptBlock(std::span<const uint8_t> message, bool oaep) const;
  // DecryptBlock: the inverse for k little-endian bytes. throws NTE_BAD_KEY (no private part),
  // NTE_BAD_DATA (bad padding or length).
  SecureBytes DecryptBlock(std::span<const uint8_t> littleEndian, bool oaep) const;

  RsaKey(const RsaKey&) = default;
  RsaKey& operator=(const RsaKey&) = delete;

 private:
  RsaKey() = default;

  // Parses the fields after the 8-byte header of a private blob (already unwrapped).
  static std::unique_ptr<RsaKey> ParsePrivateBody(ALG_ID algid, std::span<const uint8_t> body,
                                                  DWORD flags);
  SecureBytes PrivateBlobBytes() const;
  // Builds both OpenSSL forms and runs the full RSA key check.
  // throws NTE_KEYSET_ENTRY_BAD (inconsistent key), NTE_BAD_KEY (OpenSSL refuses the fields).
  void CheckConsistency() const;
  void CheckEncryptionKey() const;

  ALG_ID m_algid = CALG_RSA_KEYX;
  DWORD m_bitLength = 0;
  DWORD m_publicExponent = 0;
  DWORD m_permissions = kDefaultPermissions;
  // Little-endian modulus, (bitlen + 7) / 8 bytes, as in the blob.
  std::vector<uint8_t> m_modulus;
  // p, q, dP, dQ, qInv (each (bitlen + 15) / 16 bytes) then d (modulus size), little-endian,
  // exactly as the private blob carries them after the modulus.
  std::optional<SecureBytes> m_private;
  // OpenSSL's form of the key, built on first use and kept with the key: a key rebuilt for every
  // operation loses OpenSSL's per-key Montgomery and blinding set-up, which halves the signing
  // rate. Calls on one key are serialised by its handle; a clone starts without them.
  mutable std::shared_ptr<evp_pkey_st> m_publicPkey;
  mutable std::shared_ptr<evp_pkey_st> m_privatePkey;
  const evp_pkey_st& PublicForm() const;
  const evp_pkey_st& PrivateForm() const;
};

}  // namespace quiv::platform

#endif
