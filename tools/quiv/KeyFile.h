// KeyFile: RSA keys in files, in the four forms the command reads and writes:
//   msblob  the provider's PUBLICKEYBLOB / PRIVATEKEYBLOB bytes, as Windows exports them
//   hex     the same bytes as hex text (the library's FILE_HEX layout)
//   pem     SubjectPublicKeyInfo / PKCS#8 (optionally encrypted) PEM text; PKCS#1 is read too
//   der     the same as DER bytes
// Reading detects the form from the content unless one is named. The PEM and DER conversions
// are the platform's KeyCodec (OpenSSL's own codecs).
#ifndef QUIV_TOOLS_QUIV_KEYFILE_H
#define QUIV_TOOLS_QUIV_KEYFILE_H

#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace quiv::cli {

class KeyFile final {
 public:
  static constexpr uint8_t kPublicKeyBlob = 6;
  static constexpr uint8_t kPrivateKeyBlob = 7;
  static constexpr uint32_t kRsaKeyExchange = 0xA400;
  static constexpr uint32_t kRsaSignature = 0x2400;

  // "msblob", "hex", "pem" or "der" for the data ("auto" detects it).
  static std::string DetectForm(std::span<const uint8_t> data);

  // The key in `data` as a blob. For pem/der: a PRIVATEKEYBLOB when `wantPrivate`, else a
  // PUBLICKEYBLOB, with aiKeyAlg `algId`; `passphrase` opens encrypted PKCS#8. For msblob/hex:
  // the blob as it stands. CommandFailure when it does not read.
  static std::vector<uint8_t> ToBlob(std::span<const uint8_t> data, const std::string& form,
                                     bool wantPrivate, const std::string& passphrase,
                                     uint32_t algId);
  // The blob in the chosen form (`passphrase` encrypts a PEM/DER private key as PKCS#8).
  static std::vector<uint8_t> FromBlob(std::span<const uint8_t> blob, const std::string& form,
                                       const std::string& passphrase);

  // The blob's aiKeyAlg (bytes 4..7, little-endian); 0 for a blob shorter than 8 bytes.
  static uint32_t AlgorithmOf(std::span<const uint8_t> blob);
  // Sets the blob's aiKeyAlg, choosing the container slot the blob goes to.
  static void SetAlgorithm(std::vector<uint8_t>& blob, uint32_t algId);
};

}  // namespace quiv::cli

#endif
