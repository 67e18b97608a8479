#include "EvpBaseline.h"

#include <openssl/err.h>
#include <openssl/pem.h>

#include <stdexcept>

namespace quiv::bench {

// Loading a provider by hand turns off the automatic loading of "default", so load both.
EvpBaseline::EvpBaseline()
    : m_default(OSSL_PROVIDER_load(nullptr, "default")),
      m_legacy(OSSL_PROVIDER_load(nullptr, "legacy")) {
  if (m_default == nullptr || m_legacy == nullptr) {
    throw std::runtime_error("OpenSSL default or legacy provider not available");
  }
}

EvpBaseline::~EvpBaseline() {
  m_ciphers.clear();
  m_digests.clear();
  OSSL_PROVIDER_unload(m_legacy);
  OSSL_PROVIDER_unload(m_default);
}

void EvpBaseline::Check(int ok, const char* call) {
  if (ok == 1) return;
  ERR_clear_error();
  throw std::runtime_error(std::string(call) + " failed");
}

const EVP_CIPHER* EvpBaseline::Cipher(const std::string& name) {
  auto& slot = m_ciphers[name];
  if (!slot) slot.reset(EVP_CIPHER_fetch(nullptr, name.c_str(), nullptr));
  if (!slot) throw std::runtime_error("EVP_CIPHER_fetch " + name + " failed");
  return slot.get();
}

const EVP_MD* EvpBaseline::Digest(const std::string& name) {
  auto& slot = m_digests[name];
  if (!slot) slot.reset(EVP_MD_fetch(nullptr, name.c_str(), nullptr));
  if (!slot) throw std::runtime_error("EVP_MD_fetch " + name + " failed");
  return slot.get();
}

size_t EvpBaseline::CipherOnce(EVP_CIPHER_CTX* ctx, const EVP_CIPHER* cipher,
                               std::span<const uint8_t> key, bool encrypt, const uint8_t* in,
                               size_t n, uint8_t* out) {
  static const uint8_t kZeroIV[16] = {};
  const int direction = encrypt ? 1 : 0;
  EVP_CIPHER_CTX_reset(ctx);
  // The key length first: RC2 and RC4 take keys of more than one length.
  Check(EVP_CipherInit_ex2(ctx, cipher, nullptr, nullptr, direction, nullptr),
        "EVP_CipherInit_ex2");
  Check(EVP_CIPHER_CTX_set_key_length(ctx, static_cast<int>(key.size())),
        "EVP_CIPHER_CTX_set_key_length");
  Check(EVP_CipherInit_ex2(ctx, nullptr, key.data(), kZeroIV, direction, nullptr),
        "EVP_CipherInit_ex2");
  int length = 0;
  int last = 0;
  Check(EVP_CipherUpdate(ctx, out, &length, in, static_cast<int>(n)), "EVP_CipherUpdate");
  Check(EVP_CipherFinal_ex(ctx, out + length, &last), "EVP_CipherFinal_ex");
  return static_cast<size_t>(length + last);
}

EvpKey EvpBaseline::PrivateKeyFromBlob(std::span<const uint8_t> blob) {
  const unsigned char* in = blob.data();
  EvpKey key(b2i_PrivateKey(&in, static_cast<long>(blob.size())));
  if (!key) throw std::runtime_error("b2i_PrivateKey failed");
  return key;
}

}  // namespace quiv::bench
