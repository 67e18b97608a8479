// KeyDerivation: the key-material rules of CryptDeriveKey and of DES-family keys: taking key
// bytes from a hash value (prefix when long enough, else the 0x36/0x5C expansion with the same
// hash algorithm) and forcing odd parity.
//
// Ownership: stateless; the hash object passed in is borrowed for the call.
#ifndef QUIV_PLATFORM_KEYDERIVATION_H
#define QUIV_PLATFORM_KEYDERIVATION_H

#include <cstddef>
#include <cstdint>
#include <span>

#include "platform/SecureBytes.h"
#include "platform/wincrypt.h"

namespace quiv::platform {

class HashObject;

class KeyDerivation final {
 public:
  // The first `length` key bytes derived from `base` (finished if it was not; its value stays
  // readable). If the hash value h (k bytes) has at least `length` bytes they are its prefix;
  // otherwise they are the prefix of H(64 x 0x36 XOR h) || H(64 x 0x5C XOR h), H being the
  // hash's own digest algorithm. Throws CspError: NTE_BAD_HASH_STATE (no value to finish),
  // NTE_BAD_ALGID (expansion needed but the hash has no digest algorithm, e.g. CALG_MAC),
  // NTE_BAD_LEN (longer than the expansion can give).
  static SecureBytes Material(HashObject& base, size_t length);
  // The same rule applied to a known hash value (for tests and callers that hold the value).
  static SecureBytes Material(ALG_ID digestAlgid, std::span<const uint8_t> value, size_t length);
  // The AES provider's rule for AES keys: from a SHA-2 hash as Material; from any other hash
  // always the prefix of the 0x36/0x5C expansion, even when the hash is long enough (an MD5
  // value gives an AES-128 key through the expansion, not as is). Throws as Material; also
  // NTE_BAD_ALGID when the hash has no digest algorithm (CALG_MAC).
  static SecureBytes AesMaterial(HashObject& base, size_t length);
  static SecureBytes AesMaterial(ALG_ID digestAlgid, std::span<const uint8_t> value, size_t length);
  // Sets bit 0 of every byte so that each byte has an odd number of one bits (FIPS 46-3).
  static void ForceOddParity(std::span<uint8_t> key);

 private:
  static SecureBytes Expansion(ALG_ID digestAlgid, std::span<const uint8_t> value, size_t length);
};

}  // namespace quiv::platform

#endif
