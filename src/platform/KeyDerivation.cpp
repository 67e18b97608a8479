#include "platform/KeyDerivation.h"

#include <bit>

#include "platform/CspError.h"
#include "platform/Digest.h"
#include "platform/HashObject.h"

namespace quiv::platform {
namespace {

constexpr size_t kPadLength = 64;

SecureBytes PaddedDigest(ALG_ID algid, std::span<const uint8_t> value, uint8_t pad) {
  SecureBytes block(kPadLength, pad);
  for (size_t i = 0; i < value.size() && i < kPadLength; ++i) block[i] ^= value[i];
  return Digest::Compute(algid, block);
}

}  // namespace

SecureBytes KeyDerivation::Material(HashObject& base, size_t length) {
  const SecureBytes& value = base.Finish();
  return Material(base.digestAlgid(), value, length);
}

SecureBytes KeyDerivation::Material(ALG_ID digestAlgid, std::span<const uint8_t> value,
                                    size_t length) {
  if (value.size() >= length) return SecureBytes(value.begin(), value.begin() + length);
  return Expansion(digestAlgid, value, length);
}

SecureBytes KeyDerivation::AesMaterial(HashObject& base, size_t length) {
  const SecureBytes& value = base.Finish();
  return AesMaterial(base.digestAlgid(), value, length);
}

SecureBytes KeyDerivation::AesMaterial(ALG_ID digestAlgid, std::span<const uint8_t> value,
                                       size_t length) {
  if (Digest::IsSha2(digestAlgid)) return Material(digestAlgid, value, length);
  return Expansion(digestAlgid, value, length);
}

// The prefix of H(64 x 0x36 XOR h) || H(64 x 0x5C XOR h).
SecureBytes KeyDerivation::Expansion(ALG_ID digestAlgid, std::span<const uint8_t> value,
                                     size_t length) {
  if (!Digest::Supports(digestAlgid)) throw CspError(NTE_BAD_ALGID);
  SecureBytes out = PaddedDigest(digestAlgid, value, 0x36);
  const SecureBytes second = PaddedDigest(digestAlgid, value, 0x5C);
  out.insert(out.end(), second.begin(), second.end());
  if (out.size() < length) throw CspError(NTE_BAD_LEN);
  out.resize(length);
  return out;
}

void KeyDerivation::ForceOddParity(std::span<uint8_t> key) {
  for (uint8_t& byte : key) {
    const uint8_t high = byte & 0xFE;
    byte = static_cast<uint8_t>(high | ((std::popcount(high) % 2 == 0) ? 1 : 0));
  }
}

}  // namespace quiv::platform
