// KeyCodec: the provider's RSA key blobs to and from the key formats the rest of Linux uses,
// through OpenSSL's own codecs: PUBLICKEYBLOB <-> SubjectPublicKeyInfo, PRIVATEKEYBLOB <->
// PKCS#8 PrivateKeyInfo (EncryptedPrivateKeyInfo, PBES2 with AES-256-CBC and PBKDF2, when a
// pass phrase is given), each as PEM text or DER bytes. Reading also takes PKCS#1 RSA keys
// ("BEGIN RSA PRIVATE KEY" and the like) and either encoding, detected from the data.
//
// Only plain (unwrapped) PRIVATEKEYBLOBs are converted: a blob wrapped under a session key must
// be unwrapped by the provider first. Stateless and thread-safe; no OpenSSL type appears here,
// so callers outside the platform need no OpenSSL header.
#ifndef QUIV_PLATFORM_KEYCODEC_H
#define QUIV_PLATFORM_KEYCODEC_H

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "platform/QuivExport.h"

namespace quiv::platform {

class QUIV_API KeyCodec final {
 public:
  enum class Encoding { kPem, kDer };

  struct Result {
    bool m_ok = false;
    std::vector<uint8_t> m_bytes;  // the converted key when m_ok
    std::string m_error;           // why not, in OpenSSL's words, when not m_ok
  };

  // A PUBLICKEYBLOB or plain PRIVATEKEYBLOB (bType 6 or 7) in the standard form. A pass phrase
  // (UTF-8 bytes) encrypts a private key; it is ignored for a public one.
  static Result FromBlob(std::span<const uint8_t> blob, Encoding encoding,
                         const std::string& passphrase);

  // An RSA key in PEM or DER as a blob whose aiKeyAlg is `algId` (CALG_RSA_KEYX or
  // CALG_RSA_SIGN): a PRIVATEKEYBLOB when `wantPrivate` (the data must hold a private key),
  // else the PUBLICKEYBLOB of whatever key the data holds. `passphrase` opens an encrypted key.
  static Result ToBlob(std::span<const uint8_t> data, bool wantPrivate,
                       const std::string& passphrase, uint32_t algId);
};

}  // namespace quiv::platform

#endif
