// EvpBaseline: what the benchmarks compare the provider with, OpenSSL's EVP interface used
// directly. It loads the default and legacy providers (RC2, RC4 and DES live in the legacy one)
// into OpenSSL's default library context, fetches each cipher and digest once, and owns what it
// fetched for its whole life. Keys made from a PRIVATEKEYBLOB belong to the caller (EvpKey).
#ifndef QUIV_BENCH_EVPBASELINE_H
#define QUIV_BENCH_EVPBASELINE_H

#include <openssl/evp.h>
#include <openssl/provider.h>

#include <cstdint>
#include <map>
#include <memory>
#include <span>
#include <string>

namespace quiv::bench {

struct EvpFree {
  void operator()(EVP_CIPHER_CTX* p) const { EVP_CIPHER_CTX_free(p); }
  void operator()(EVP_MD_CTX* p) const { EVP_MD_CTX_free(p); }
  void operator()(EVP_PKEY* p) const { EVP_PKEY_free(p); }
  void operator()(EVP_CIPHER* p) const { EVP_CIPHER_free(p); }
  void operator()(EVP_MD* p) const { EVP_MD_free(p); }
};
using EvpCipherCtx = std::unique_ptr<EVP_CIPHER_CTX, EvpFree>;
using EvpMdCtx = std::unique_ptr<EVP_MD_CTX, EvpFree>;
using EvpKey = std::unique_ptr<EVP_PKEY, EvpFree>;

class EvpBaseline final {
 public:
  EvpBaseline();
  ~EvpBaseline();
  EvpBaseline(const EvpBaseline&) = delete;
  EvpBaseline& operator=(const EvpBaseline&) = delete;

  // OpenSSL names ("RC2-CBC", "SHA1", ...); throws std::runtime_error when unavailable.
  const EVP_CIPHER* Cipher(const std::string& name);
  const EVP_MD* Digest(const std::string& name);

  // The RSA key held in a CryptoAPI PRIVATEKEYBLOB, through OpenSSL's MSBLOB reader.
  static EvpKey PrivateKeyFromBlob(std::span<const uint8_t> blob);

  // One whole message through `cipher` with `key` and a zero IV (CBC ciphers pad with PKCS#5),
  // from `in` into `out`, which has room for n plus one block; returns the output length.
  static size_t CipherOnce(EVP_CIPHER_CTX* ctx, const EVP_CIPHER* cipher,
                           std::span<const uint8_t> key, bool encrypt, const uint8_t* in, size_t n,
                           uint8_t* out);

  // Throws when an EVP call returned anything but 1.
  static void Check(int ok, const char* call);

 private:
  OSSL_PROVIDER* m_default = nullptr;
  OSSL_PROVIDER* m_legacy = nullptr;
  std::map<std::string, std::unique_ptr<EVP_CIPHER, EvpFree>> m_ciphers;
  std::map<std::string, std::unique_ptr<EVP_MD, EvpFree>> m_digests;
};

}  // namespace quiv::bench

#endif
