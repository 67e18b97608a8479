#include "CapiFallback.h"

#include <cstdio>
#include <string>

#include "UsageError.h"
#include "platform/wincrypt.h"

namespace quiv::cli {

namespace {

[[noreturn]] void PlatformFailure(const char* what) {
  CapiFallback::PlatformFailure(what);
}

bool IsSha2(ALG_ID alg) {
  return alg == CALG_SHA_256 || alg == CALG_SHA_384 || alg == CALG_SHA_512;
}

// A verify-only context for the hashes made here: the Enhanced provider, or the AES provider
// for the SHA-2 hashes (the library's classes choose only the PROV_RSA_FULL providers, so
// SHA-2 is reached here, through the AES provider's C functions).
class Context final {
 public:
  explicit Context(ALG_ID alg) {
    const bool aes = IsSha2(alg);
    if (!CryptAcquireContextA(&m_handle, nullptr, aes ? MS_ENH_RSA_AES_PROV_A : MS_ENHANCED_PROV_A,
                              aes ? PROV_RSA_AES : PROV_RSA_FULL, CRYPT_VERIFYCONTEXT)) {
      PlatformFailure("opening the provider");
    }
  }
  ~Context() { CryptReleaseContext(m_handle, 0); }
  Context(const Context&) = delete;
  Context& operator=(const Context&) = delete;
  HCRYPTPROV Get() const { return m_handle; }

 private:
  HCRYPTPROV m_handle = 0;
};

class Hash final {
 public:
  Hash(HCRYPTPROV context, ALG_ID alg, HCRYPTKEY key) {
    if (!CryptCreateHash(context, alg, key, 0, &m_handle)) PlatformFailure("creating the hash");
  }
  ~Hash() { CryptDestroyHash(m_handle); }
  Hash(const Hash&) = delete;
  Hash& operator=(const Hash&) = delete;
  HCRYPTHASH Get() const { return m_handle; }
  void Add(std::span<const uint8_t> data) {
    if (!CryptHashData(m_handle, data.data(), static_cast<DWORD>(data.size()), 0)) {
      PlatformFailure("hashing");
    }
  }
  std::vector<uint8_t> Value() {
    std::vector<uint8_t> value(64);
    DWORD length = static_cast<DWORD>(value.size());
    if (!CryptGetHashParam(m_handle, HP_HASHVAL, value.data(), &length, 0)) {
      PlatformFailure("reading the hash");
    }
    value.resize(length);
    return value;
  }

 private:
  HCRYPTHASH m_handle = 0;
};

}  // namespace

void CapiFallback::PlatformFailure(const char* what) {
  char code[16];
  std::snprintf(code, sizeof code, "0x%08X", static_cast<unsigned>(GetLastError()));
  throw CommandFailure(std::string(what) + " failed (platform error " + code + "; 'quiv errstr " +
                       code + "' names it)");
}

std::vector<uint8_t> CapiFallback::EncryptFinal(uint32_t key, std::span<const uint8_t> data) {
  std::vector<uint8_t> buffer(data.begin(), data.end());
  buffer.resize(data.size() + 8);  // room for a block cipher's padding
  DWORD length = static_cast<DWORD>(data.size());
  if (!CryptEncrypt(key, 0, TRUE, 0, buffer.data(), &length, static_cast<DWORD>(buffer.size()))) {
    PlatformFailure("encrypting");
  }
  buffer.resize(length);
  return buffer;
}

std::vector<uint8_t> CapiFallback::DecryptFinal(uint32_t key, std::span<const uint8_t> data) {
  std::vector<uint8_t> buffer(data.begin(), data.end());
  buffer.push_back(0);  // a valid pointer also for an empty message
  DWORD length = static_cast<DWORD>(data.size());
  if (!CryptDecrypt(key, 0, TRUE, 0, buffer.data(), &length)) PlatformFailure("decrypting");
  buffer.resize(length);
  return buffer;
}

std::vector<uint8_t> CapiFallback::Digest(uint32_t algId, std::span<const uint8_t> data) {
  return DigestStream(algId, [&](const auto& add) { add(data); });
}

std::vector<uint8_t> CapiFallback::DigestStream(uint32_t algId, const Feed& feed) {
  const Context context(algId);
  Hash hash(context.Get(), algId, 0);
  feed([&](std::span<const uint8_t> piece) { hash.Add(piece); });
  return hash.Value();
}

std::vector<uint8_t> CapiFallback::Hmac(uint32_t algId, std::span<const uint8_t> key,
                                        const Feed& feed) {
  const Context context(algId);
  // PLAINTEXTKEYBLOB of an RC2 key; CRYPT_IPSEC_HMAC_KEY lets the key have any length.
  std::vector<uint8_t> blob = {PLAINTEXTKEYBLOB, CUR_BLOB_VERSION, 0, 0, 0x02, 0x66, 0, 0};
  const uint32_t length = static_cast<uint32_t>(key.size());
  for (int shift = 0; shift < 32; shift += 8) blob.push_back(static_cast<uint8_t>(length >> shift));
  blob.insert(blob.end(), key.begin(), key.end());
  HCRYPTKEY handle = 0;
  if (!CryptImportKey(context.Get(), blob.data(), static_cast<DWORD>(blob.size()), 0,
                      CRYPT_IPSEC_HMAC_KEY, &handle)) {
    PlatformFailure("importing the HMAC key");
  }
  std::vector<uint8_t> value;
  {
    Hash hash(context.Get(), CALG_HMAC, handle);
    HMAC_INFO info{};
    info.HashAlgid = algId;
    if (!CryptSetHashParam(hash.Get(), HP_HMAC_INFO, reinterpret_cast<BYTE*>(&info), 0)) {
      PlatformFailure("setting up the HMAC");
    }
    feed([&](std::span<const uint8_t> piece) { hash.Add(piece); });
    value = hash.Value();
  }
  CryptDestroyKey(handle);
  return value;
}

}  // namespace quiv::cli
