#include "platform/Ossl.h"

#include <openssl/crypto.h>
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
//
// The registry lives until the process is gone: it is made on first use and never destroyed.
// Handles may outlive main (a program may end with keys and hashes open, use them from an
// atexit handler, or still be using them in another thread while exit() runs), and every key,
// hash and context holds OpenSSL objects from this context's providers. Destroying the registry
// at exit, in whatever order against the handle tables, would unload the providers under those
// objects (RC2, RC4, DES and MD4 come from the legacy provider, whose code is unloaded with
// it). As on Windows, the memory of a process that ends goes with it; nothing here needs
// flushing. The handle tables follow the same rule (CryptApi.cpp).
struct Registry {
  Registry()
      : ctx(OSSL_LIB_CTX_new()),
        defaultProvider(OSSL_PROVIDER_load(ctx, "default")),
        legacyProvider(OSSL_PROVIDER_load(ctx, "legacy")) {}
  ~Registry() = delete;
  std::mutex mutex;
  OSSL_LIB_CTX* ctx;
  OSSL_PROVIDER* defaultProvider;
  OSSL_PROVIDER* legacyProvider;
  std::map<std::string, EVP_MD*> digests;
  std::map<std::string, EVP_CIPHER*> ciphers;
};

// OpenSSL frees its process-wide state from an atexit handler of its own by default, after
// which any OpenSSL call may crash (a thread still working, or an atexit handler registered
// before OpenSSL's, calls into freed locks). The library therefore asks OpenSSL, when it is
// loaded and before anything in the process has initialised OpenSSL, to leave that state to the
// end of the process instead, like the registry above. The only cost is that OpenSSL's global
// state is still allocated when the process ends (a leak checker lists it as reachable, not as
// lost). A program that initialises OpenSSL itself before loading the library keeps OpenSSL's
// default and, by OpenSSL's rules, must not use the library while exit() runs.
__attribute__((constructor)) void KeepOpensslUntilProcessEnd() {
  OPENSSL_init_crypto(OPENSSL_INIT_NO_ATEXIT, nullptr);
}

Registry& TheRegistry() {
  static Registry* const registry = new Registry();  // never deleted, see above
  return *registry;
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
