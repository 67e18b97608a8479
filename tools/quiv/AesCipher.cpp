#include "AesCipher.h"

#include <string>

#include "CapiFallback.h"
#include "HexText.h"
#include "PassPhrase.h"
#include "UsageError.h"
#include "platform/wincrypt.h"

namespace quiv::cli {

namespace {

[[noreturn]] void PlatformFailure(const char* what) {
  CapiFallback::PlatformFailure(what);
}

ALG_ID CipherId(const std::string& name) {
  if (name == "aes128") return CALG_AES_128;
  if (name == "aes192") return CALG_AES_192;
  if (name == "aes256") return CALG_AES_256;
  throw UsageError("-provider aes takes -alg aes128, aes192 or aes256, not '" + name + "'");
}

ALG_ID HashId(const std::string& name) {
  if (name == "md5") return CALG_MD5;
  if (name == "sha1") return CALG_SHA1;
  if (name == "sha256") return CALG_SHA_256;
  if (name == "sha384") return CALG_SHA_384;
  if (name == "sha512") return CALG_SHA_512;
  throw UsageError("-hash must be md5, sha1, sha256, sha384 or sha512 with -provider aes");
}

}  // namespace

AesCipher::AesCipher(const Options& options) {
  if (options.Has("key")) throw UsageError("-key does not work with -provider aes");
  if (options.Has("keylen")) throw UsageError("-keylen does not apply to AES: use -alg");
  const ALG_ID cipher = CipherId(options.ValueOr("alg", "aes256"));
  const ALG_ID hashId = HashId(options.ValueOr("hash", "sha256"));
  const PassPhrase phrase(options.ValueOr("pass", ""),
                          options.Choice("passform", {"text", "hex"}, "text"));
  std::vector<uint8_t> bytes = phrase.Phrase().Bytes();
  bytes.insert(bytes.end(), {0, 0});  // the NUL character, hashed as the library does
  HCRYPTPROV context = 0;
  if (!CryptAcquireContextA(&context, nullptr, MS_ENH_RSA_AES_PROV_A, PROV_RSA_AES,
                            CRYPT_VERIFYCONTEXT)) {
    PlatformFailure("opening the AES provider");
  }
  m_context = context;
  HCRYPTHASH hash = 0;
  if (!CryptCreateHash(context, hashId, 0, 0, &hash)) PlatformFailure("creating the hash");
  HCRYPTKEY key = 0;
  const bool ok = CryptHashData(hash, bytes.data(), static_cast<DWORD>(bytes.size()), 0) &&
                  CryptDeriveKey(context, cipher, hash, 0, &key);
  CryptDestroyHash(hash);
  if (!ok) PlatformFailure("deriving the key");
  m_key = key;
  ApplyModeAndIv(options);
}

AesCipher::~AesCipher() {
  if (m_key) CryptDestroyKey(static_cast<HCRYPTKEY>(m_key));
  CryptReleaseContext(static_cast<HCRYPTPROV>(m_context), 0);
}

void AesCipher::ApplyModeAndIv(const Options& options) {
  const std::string mode = options.Choice("mode", {"cbc", "ecb", "cfb"}, "cbc");
  DWORD code = mode == "ecb" ? CRYPT_MODE_ECB : mode == "cfb" ? CRYPT_MODE_CFB : CRYPT_MODE_CBC;
  const HCRYPTKEY key = static_cast<HCRYPTKEY>(m_key);
  if (!CryptSetKeyParam(key, KP_MODE, reinterpret_cast<BYTE*>(&code), 0)) {
    PlatformFailure("setting the mode");
  }
  if (const std::optional<std::string> iv = options.Value("iv")) {
    std::optional<std::vector<uint8_t>> bytes = HexText::Decode(*iv);
    if (!bytes || bytes->size() != 16) throw UsageError("-iv must be 16 bytes in hex for AES");
    if (!CryptSetKeyParam(key, KP_IV, bytes->data(), 0)) PlatformFailure("setting the IV");
  }
}

std::vector<uint8_t> AesCipher::Section(std::span<const uint8_t> data, bool final, bool decrypt) {
  std::vector<uint8_t> buffer(data.begin(), data.end());
  buffer.resize(data.size() + 16);  // room for the padding block (and a valid pointer)
  DWORD length = static_cast<DWORD>(data.size());
  const HCRYPTKEY key = static_cast<HCRYPTKEY>(m_key);
  const bool ok = decrypt ? CryptDecrypt(key, 0, final, 0, buffer.data(), &length)
                          : CryptEncrypt(key, 0, final, 0, buffer.data(), &length,
                                         static_cast<DWORD>(buffer.size()));
  if (!ok) PlatformFailure(decrypt ? "decrypting" : "encrypting");
  buffer.resize(length);
  return buffer;
}

}  // namespace quiv::cli
