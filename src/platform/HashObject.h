// HashObject: a CryptoAPI hash object of the providers: the plain digests (MD2, MD4, MD5, SHA-1,
// and in the AES provider SHA-256/384/512), CALG_MAC (CBC-MAC with PKCS#5 padding under a private
// copy of a block-cipher key), CALG_HMAC (keyed by a session key, parameterised by HMAC_INFO) and
// CALG_SSL3_SHAMD5 (value settable only). It applies the state rules of CryptHashData /
// CryptGetHashParam / CryptSetHashParam: once the value has been read, set, signed or verified the
// hash is finished and takes no more data.
//
// Ownership: a hash object owns its running state, its copy of any key material (wiped on
// destruction) and its value. Keys passed to Create / HashSessionKey are only read during the
// call.
#ifndef QUIV_PLATFORM_HASHOBJECT_H
#define QUIV_PLATFORM_HASHOBJECT_H

#include <cstdint>
#include <memory>
#include <span>
#include <string_view>

#include "platform/QuivExport.h"
#include "platform/SecureBytes.h"
#include "platform/wincrypt.h"

namespace quiv::platform {

class CipherEngine;
class Digest;
class ProviderInfo;
class SymmetricKey;

class QUIV_API HashObject final {
 public:
  // CryptCreateHash. `key` is required for CALG_MAC (a block-cipher key) and CALG_HMAC (any
  // session key) and ignored otherwise.
  // Throws CspError: NTE_BAD_FLAGS (flags non-zero), NTE_BAD_ALGID (not a hash of this
  // provider), NTE_BAD_KEY (MAC/HMAC without a key, MAC with a stream-cipher key).
  static std::unique_ptr<HashObject> Create(const ProviderInfo& provider, ALG_ID algid,
                                            const SymmetricKey* key, DWORD flags);
  ~HashObject();
  HashObject(const HashObject&) = delete;
  HashObject& operator=(const HashObject&) = delete;

  // CryptDuplicateHash: an independent copy of the whole state (a finished hash keeps its value).
  // Throws CspError(NTE_FAIL) / NTE_NO_MEMORY.
  std::unique_ptr<HashObject> Clone() const;

  ALG_ID algid() const { return m_algid; }
  // HP_HASHSIZE in bytes (for HMAC, that of the inner hash; 0 until HP_HMAC_INFO is set).
  size_t size() const;
  bool finished() const { return m_finished; }
  // The digest algorithm behind the value (the hash itself, or HMAC's inner hash); 0 when there
  // is none (MAC, SSL3_SHAMD5, HMAC before HP_HMAC_INFO). Key derivation uses it to expand.
  ALG_ID digestAlgid() const;

  // CryptHashData. Throws CspError: NTE_BAD_FLAGS (flags other than 0 / CRYPT_USERDATA; the
  // state is untouched), NTE_BAD_HASH_STATE (finished, or HMAC before HP_HMAC_INFO),
  // NTE_BAD_ALGID (CALG_SSL3_SHAMD5).
  void HashData(std::span<const uint8_t> data, DWORD flags);
  // CryptHashSessionKey: the key bytes, reversed unless CRYPT_LITTLE_ENDIAN.
  // Throws CspError: NTE_BAD_FLAGS, and the HashData errors.
  void HashSessionKey(const SymmetricKey& key, DWORD flags);
  // CryptGetHashParam: HP_ALGID, HP_HASHSIZE, HP_HASHVAL (finishes the hash), with the size
  // rules of SizedOutput. Throws CspError: ERROR_INVALID_PARAMETER (pdwDataLen NULL),
  // ERROR_MORE_DATA, NTE_BAD_FLAGS (flags non-zero), NTE_BAD_TYPE (unknown parameter),
  // NTE_BAD_HASH_STATE (value of an HMAC without HP_HMAC_INFO, of an unset SSL3_SHAMD5).
  void GetParam(DWORD param, BYTE* pbData, DWORD* pdwDataLen, DWORD flags);
  // CryptSetHashParam: HP_HASHVAL (size() bytes; finishes the hash), HP_HMAC_INFO (HMAC only;
  // restarts it). Throws CspError: ERROR_INVALID_PARAMETER (pbData NULL), NTE_BAD_FLAGS,
  // NTE_BAD_TYPE (unknown parameter, HP_HMAC_INFO on a non-HMAC hash), NTE_BAD_ALGID
  // (HashAlgid not a digest this provider offers).
  void SetParam(DWORD param, const BYTE* pbData, DWORD flags);
  // Finishes the hash if it is not yet finished and returns its value (for signing, verifying
  // and key derivation). Throws CspError(NTE_BAD_HASH_STATE) when there is no value to finish
  // (unset SSL3_SHAMD5, HMAC without HP_HMAC_INFO).
  const SecureBytes& Finish();
  // Hashes the sDescription of CryptSignHash / CryptVerifySignature: its UTF-16 code units,
  // little-endian, without terminator. Throws as HashData.
  void HashDescription(std::u16string_view text);

 private:
  HashObject(const ProviderInfo& provider, ALG_ID algid);
  void CheckWritable() const;
  void Absorb(std::span<const uint8_t> data);
  void FinishMac();
  void FinishHmac();
  void SetHmacInfo(const HMAC_INFO& info);

  const ProviderInfo* m_provider;
  ALG_ID m_algid;
  bool m_finished = false;
  SecureBytes m_value;
  std::unique_ptr<Digest> m_digest;  // plain hash, or HMAC's inner hash once keyed
  // CALG_MAC: private cipher and the bytes of a block not yet complete.
  std::unique_ptr<CipherEngine> m_mac;
  SecureBytes m_macPending;
  // CALG_HMAC: key bytes, inner hash algorithm and the keyed outer string.
  SecureBytes m_hmacKey;
  ALG_ID m_hmacAlgid = 0;
  SecureBytes m_hmacOuter;
};

}  // namespace quiv::platform

#endif
