#include "platform/KeyCodec.h"

#include <openssl/core_names.h>
#include <openssl/decoder.h>
#include <openssl/encoder.h>
#include <openssl/err.h>
#include <openssl/evp.h>

#include <memory>

namespace quiv::platform {

namespace {

struct CodecFree {
  void operator()(EVP_PKEY* p) const { EVP_PKEY_free(p); }
  void operator()(OSSL_DECODER_CTX* p) const { OSSL_DECODER_CTX_free(p); }
  void operator()(OSSL_ENCODER_CTX* p) const { OSSL_ENCODER_CTX_free(p); }
};
template <class T>
using Owned = std::unique_ptr<T, CodecFree>;

// A failed result carrying the first reason OpenSSL queued (or `what` when it queued none); the
// queue is emptied, so nothing stale reaches the provider's next call.
KeyCodec::Result Failure(const std::string& what) {
  KeyCodec::Result result;
  const unsigned long code = ERR_peek_error();
  result.m_error = what;
  if (code != 0) {
    const char* reason = ERR_reason_error_string(code);
    if (reason != nullptr) result.m_error += " (" + std::string(reason) + ")";
  }
  ERR_clear_error();
  return result;
}

KeyCodec::Result Success(std::vector<uint8_t> bytes) {
  KeyCodec::Result result;
  result.m_ok = true;
  result.m_bytes = std::move(bytes);
  return result;
}

// The whole input must decode, with nothing left over.
Owned<EVP_PKEY> Decode(std::span<const uint8_t> data, const char* format, const char* type,
                       int selection, const std::string& passphrase) {
  EVP_PKEY* key = nullptr;
  Owned<OSSL_DECODER_CTX> decoder(
      OSSL_DECODER_CTX_new_for_pkey(&key, format, nullptr, type, selection, nullptr, nullptr));
  if (!decoder) return nullptr;
  if (!passphrase.empty()) {
    OSSL_DECODER_CTX_set_passphrase(decoder.get(),
                                    reinterpret_cast<const unsigned char*>(passphrase.data()),
                                    passphrase.size());
  }
  const unsigned char* cursor = data.data();
  size_t left = data.size();
  const bool ok = OSSL_DECODER_from_data(decoder.get(), &cursor, &left) == 1;
  Owned<EVP_PKEY> owned(key);
  if (!ok) return nullptr;
  // PEM text may end with blank lines; DER and blobs must be used up exactly.
  for (size_t i = data.size() - left; i < data.size(); ++i) {
    if (data[i] != '\n' && data[i] != '\r' && data[i] != ' ' && data[i] != '\t') return nullptr;
  }
  return owned;
}

bool Encode(EVP_PKEY* key, int selection, const char* format, const char* structure,
            const std::string& passphrase, std::vector<uint8_t>& out) {
  Owned<OSSL_ENCODER_CTX> encoder(
      OSSL_ENCODER_CTX_new_for_pkey(key, selection, format, structure, nullptr));
  if (!encoder) return false;
  if (!passphrase.empty()) {
    if (OSSL_ENCODER_CTX_set_cipher(encoder.get(), "AES-256-CBC", nullptr) != 1 ||
        OSSL_ENCODER_CTX_set_passphrase(encoder.get(),
                                        reinterpret_cast<const unsigned char*>(passphrase.data()),
                                        passphrase.size()) != 1) {
      return false;
    }
  }
  unsigned char* data = nullptr;
  size_t length = 0;
  if (OSSL_ENCODER_to_data(encoder.get(), &data, &length) != 1) return false;
  out.assign(data, data + length);
  OPENSSL_clear_free(data, length);
  return true;
}

bool HasPrivatePart(const EVP_PKEY* key) {
  BIGNUM* d = nullptr;
  const bool has = EVP_PKEY_get_bn_param(key, OSSL_PKEY_PARAM_RSA_D, &d) == 1;
  BN_clear_free(d);
  ERR_clear_error();
  return has;
}

constexpr uint8_t kPublicKeyBlob = 6;
constexpr uint8_t kPrivateKeyBlob = 7;

}  // namespace

KeyCodec::Result KeyCodec::FromBlob(std::span<const uint8_t> blob, Encoding encoding,
                                    const std::string& passphrase) {
  if (blob.size() < 8 || (blob[0] != kPublicKeyBlob && blob[0] != kPrivateKeyBlob)) {
    return Failure("not a PUBLICKEYBLOB or PRIVATEKEYBLOB");
  }
  const bool isPrivate = blob[0] == kPrivateKeyBlob;
  const int selection = isPrivate ? OSSL_KEYMGMT_SELECT_KEYPAIR : OSSL_KEYMGMT_SELECT_PUBLIC_KEY;
  Owned<EVP_PKEY> key = Decode(blob, "MSBLOB", "RSA", selection, "");
  if (!key) return Failure("the key blob does not decode");
  const char* format = encoding == Encoding::kPem ? "PEM" : "DER";
  const char* structure = !isPrivate           ? "SubjectPublicKeyInfo"
                          : passphrase.empty() ? "PrivateKeyInfo"
                                               : "EncryptedPrivateKeyInfo";
  std::vector<uint8_t> out;
  if (!Encode(key.get(), selection, format, structure, isPrivate ? passphrase : "", out)) {
    return Failure("the key does not encode");
  }
  return Success(std::move(out));
}

KeyCodec::Result KeyCodec::ToBlob(std::span<const uint8_t> data, bool wantPrivate,
                                  const std::string& passphrase, uint32_t algId) {
  if (data.empty()) return Failure("no key data");
  Owned<EVP_PKEY> key = Decode(data, nullptr, "RSA", 0, passphrase);
  if (!key) return Failure("not an RSA key in PEM or DER (or a wrong pass phrase)");
  if (wantPrivate && !HasPrivatePart(key.get())) return Failure("the file holds no private key");
  const int selection = wantPrivate ? OSSL_KEYMGMT_SELECT_KEYPAIR : OSSL_KEYMGMT_SELECT_PUBLIC_KEY;
  std::vector<uint8_t> blob;
  if (!Encode(key.get(), selection, "MSBLOB", nullptr, "", blob) || blob.size() < 8) {
    return Failure("the key cannot be written as a key blob");
  }
  for (int i = 0; i < 4; ++i) blob[4 + i] = static_cast<uint8_t>(algId >> (8 * i));
  return Success(std::move(blob));
}

}  // namespace quiv::platform
