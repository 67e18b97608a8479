// Ossl: owning pointers for OpenSSL objects, the one place where the OpenSSL error queue is
// translated into a provider error code, and access to the algorithm objects, fetched once per
// process (the legacy provider is loaded for RC2, RC4, DES and MD4).
#ifndef QUIV_PLATFORM_OSSL_H
#define QUIV_PLATFORM_OSSL_H

#include <openssl/bn.h>
#include <openssl/evp.h>

#include <cstdint>
#include <memory>

namespace quiv::platform {

struct OsslDeleter {
  void operator()(EVP_MD_CTX* p) const { EVP_MD_CTX_free(p); }
  void operator()(EVP_CIPHER_CTX* p) const { EVP_CIPHER_CTX_free(p); }
  void operator()(EVP_PKEY* p) const { EVP_PKEY_free(p); }
  void operator()(EVP_PKEY_CTX* p) const { EVP_PKEY_CTX_free(p); }
  void operator()(BIGNUM* p) const { BN_clear_free(p); }
  void operator()(BN_CTX* p) const { BN_CTX_free(p); }
};
template <class T>
using OsslPtr = std::unique_ptr<T, OsslDeleter>;

class Ossl final {
 public:
  // Algorithm objects, fetched on first use and kept for the life of the process.
  // Names are OpenSSL's ("MD5", "SHA1", "MD4", "RC2-CBC", "DES-EDE3-CBC", ...).
  // Throws CspError(NTE_FAIL) when the algorithm is unavailable.
  static const EVP_MD* Digest(const char* name);
  static const EVP_CIPHER* Cipher(const char* name);
  static OSSL_LIB_CTX* LibContext();

  // Empties the OpenSSL error queue and throws CspError(code). Every failing OpenSSL call ends
  // here, so no stale error survives into a later call.
  [[noreturn]] static void Fail(uint32_t code);
  static void Check(int ok, uint32_t code) {
    if (ok != 1) Fail(code);
  }
};

}  // namespace quiv::platform

#endif
