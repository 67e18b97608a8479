// Digest: one running message digest of a CryptoAPI hash algorithm (MD2, MD4, MD5, SHA-1,
// SHA-256, SHA-384, SHA-512). MD2 comes from nettle, the others from OpenSSL's EVP; callers see
// one interface. Which provider offers which digest is ProviderInfo's business, not this class's.
//
// Ownership: a Digest owns its running state and wipes it when destroyed.
#ifndef QUIV_PLATFORM_DIGEST_H
#define QUIV_PLATFORM_DIGEST_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>

#include "platform/Ossl.h"
#include "platform/SecureBytes.h"
#include "platform/wincrypt.h"

struct md2_ctx;

namespace quiv::platform {

class Digest final {
 public:
  // True for CALG_MD2, CALG_MD4, CALG_MD5, CALG_SHA1, CALG_SHA_256, CALG_SHA_384, CALG_SHA_512.
  static bool Supports(ALG_ID algid);
  // A fresh digest. Throws CspError(NTE_BAD_ALGID) for any other id, NTE_FAIL if the library
  // cannot provide the algorithm.
  explicit Digest(ALG_ID algid);
  ~Digest();
  Digest(const Digest&) = delete;
  Digest& operator=(const Digest&) = delete;

  // One-shot digest of `data`. Throws as the constructor.
  static SecureBytes Compute(ALG_ID algid, std::span<const uint8_t> data);

  ALG_ID algid() const { return m_algid; }
  // Digest length in bytes (16, 20, 32, 48 or 64); SizeOf gives it for an id without making a
  // digest (0 for unsupported ids).
  size_t size() const { return SizeOf(m_algid); }
  static size_t SizeOf(ALG_ID algid);
  // HMAC's B (RFC 2104, RFC 4231) as the providers use it: 128 for SHA-384 and SHA-512, 64 for
  // the others (MD2 included, whose own block is 16: its pads are 64 bytes like the rest); 0 for
  // unsupported ids.
  static size_t HmacBlockOf(ALG_ID algid);
  // True for the SHA-2 family (SHA-256, SHA-384, SHA-512).
  static bool IsSha2(ALG_ID algid);
  // Adds `data`. Throws CspError(NTE_FAIL) on a library failure.
  void Update(std::span<const uint8_t> data);
  // The digest of everything added so far. The digest must not be used afterwards (Clone first
  // to keep going). Throws CspError(NTE_FAIL) on a library failure.
  SecureBytes Final();
  // An independent copy of the running state. Throws CspError(NTE_FAIL) / NTE_NO_MEMORY.
  std::unique_ptr<Digest> Clone() const;

 private:
  struct Md2Deleter {
    void operator()(md2_ctx* p) const;
  };

  ALG_ID m_algid;
  OsslPtr<EVP_MD_CTX> m_evp;                   // MD4, MD5, SHA-1, SHA-2
  std::unique_ptr<md2_ctx, Md2Deleter> m_md2;  // MD2
};

}  // namespace quiv::platform

#endif
