// CapiFallback: the few jobs the library's classes cannot do, done with the provider's C
// functions instead, each for a reason the class's own rules give:
//  - a message object holds no message shorter than two bytes (one byte is its "empty" form and
//    GetMessageText refuses it), so the last section of a tiny message is encrypted or
//    decrypted on the session key's own handle (its public IHash handle);
//  - the hash object refuses data of fewer than two bytes, so tiny inputs are hashed here;
//  - the hash object refuses every key on a PROV_RSA_FULL provider, so HMAC is made here;
//  - the library's classes choose only the PROV_RSA_FULL providers, so SHA-256/384/512 hashes
//    and HMACs are made here on the AES provider (PROV_RSA_AES).
#ifndef QUIV_TOOLS_QUIV_CAPIFALLBACK_H
#define QUIV_TOOLS_QUIV_CAPIFALLBACK_H

#include <cstdint>
#include <functional>
#include <span>
#include <vector>

namespace quiv::cli {

class CapiFallback final {
 public:
  // Called with a sink taking the data piece by piece until it returns.
  // CommandFailure naming `what` and the platform's last error code.
  [[noreturn]] static void PlatformFailure(const char* what);
  using Feed = std::function<void(const std::function<void(std::span<const uint8_t>)>&)>;
  // The final section of a message on the key handle (in place, as CryptEncrypt/CryptDecrypt
  // work). CommandFailure with the platform's error code on failure.
  static std::vector<uint8_t> EncryptFinal(uint32_t key, std::span<const uint8_t> data);
  static std::vector<uint8_t> DecryptFinal(uint32_t key, std::span<const uint8_t> data);
  // The digest of `data` with hash algorithm `algId`.
  static std::vector<uint8_t> Digest(uint32_t algId, std::span<const uint8_t> data);
  // The same for data given piece by piece by `feed`.
  static std::vector<uint8_t> DigestStream(uint32_t algId, const Feed& feed);
  // HMAC (RFC 2104) with inner hash `algId` and the given key bytes over the data of `feed`.
  static std::vector<uint8_t> Hmac(uint32_t algId, std::span<const uint8_t> key, const Feed& feed);
};

}  // namespace quiv::cli

#endif
