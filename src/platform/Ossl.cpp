#include "platform/Ossl.h"

#include <openssl/err.h>
#include <openssl/provider.h>

#include <map>
#include <mutex>
#include <string>

#include "platform/CspError.h"
#include "platform/wincrypt.h"

namespace quiv::platform {
namespace {

// Own library context with the default and legacy providers, so that loading the legacy
// algorithms does not change what the application's own OpenSSL calls see.
struct Registry {
  Registry()
      : ctx(OSSL_LIB_CTX_new()),
        defaultProvider(OSSL_PROVIDER_load(ctx, "default")),
        legacyProvider(OSSL_PROVIDER_load(ctx, "legacy")) {}
  ~Registry() {
    for (auto& [name, md] : digests) EVP_MD_free(md);
    for (auto& [name, c] : ciphers) EVP_CIPHER_free(c);
    // Providers must be unloaded before their context goes, or their state leaks.
    if (legacyProvider != nullptr) OSSL_PROVIDER_unload(legacyProvider);
    if (defaultProvider != nullptr) OSSL_PROVIDER_unload(defaultProvider);
    OSSL_LIB_CTX_free(ctx);
  }
  std::mutex mutex;
  OSSL_LIB_CTX* ctx;
  OSSL_PROVIDER* defaultProvider;
  OSSL_PROVIDER* legacyProvider;
  std::map<std::string, EVP_MD*> digests;
  std::map<std::string, EVP_CIPHER*> ciphers;
};

Registry& TheRegistry() {
  static Registry registry;
  return registry;
}

}  // namespace

OSSL_LIB_CTX* Ossl::LibContext() {
  return TheRegistry().ctx;
}

const EVP_MD* Ossl::Digest(const char* name) {
  Registry& r = TheRegistry();
  std::lock_guard lock(r.mutex);
  auto it = r.digests.find(name);
  if (it != r.digests.end()) return it->second;
  EVP_MD* md = EVP_MD_fetch(r.ctx, name, nullptr);
  if (md == nullptr) Fail(static_cast<uint32_t>(NTE_FAIL));
  r.digests.emplace(name, md);
  return md;
}

const EVP_CIPHER* Ossl::Cipher(const char* name) {
  Registry& r = TheRegistry();
  std::lock_guard lock(r.mutex);
  auto it = r.ciphers.find(name);
  if (it != r.ciphers.end()) return it->second;
  EVP_CIPHER* c = EVP_CIPHER_fetch(r.ctx, name, nullptr);
  if (c == nullptr) Fail(static_cast<uint32_t>(NTE_FAIL));
  r.ciphers.emplace(name, c);
  return c;
}

void Ossl::Fail(uint32_t code) {
  ERR_clear_error();
  throw CspError(code);
}

}  // namespace quiv::platform
