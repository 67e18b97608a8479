// Fuzz target: signature blocks as they arrive from outside, through RsaKey::Verify (what
// CryptVerifySignature runs). The public key is the recorded exchange pair with e = 1, so the
// fuzzer's bytes, read big-endian, are the PKCS#1 block itself: the fuzzer explores the padding
// check directly. Property: Verify accepts exactly what a tiny reference of the rule accepts
// (right length, below the modulus, 00 01, at least eight FF, 00, then the hash with or without
// its DigestInfo; only without when CRYPT_NOHASHOID is given), and every refusal is
// NTE_BAD_SIGNATURE.
//
// Input: byte 0 selects the hash (bit 0: MD5 or SHA-1) and the flags (bit 1: CRYPT_NOHASHOID);
// the rest is the signature in CryptoAPI's byte order (little-endian).
#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "FuzzSupport.h"
#include "RecordedKeys.h"
#include "platform/CspError.h"
#include "platform/HashObject.h"
#include "platform/ProviderInfo.h"
#include "platform/RsaKey.h"

using namespace quiv::platform;

namespace {

using Bytes = std::vector<uint8_t>;

using fuzz::FromHex;
using fuzz::Require;

const ProviderInfo& Enhanced() {
  return *ProviderInfo::FindByName(MS_ENHANCED_PROV_A);
}

const Bytes& PairBlob() {
  static const Bytes blob = FromHex(kPubexp1Hex);
  return blob;
}

const RsaKey& PublicKey() {
  static const auto key = RsaKey::ImportPrivateBlob(Enhanced(), PairBlob(), 0, nullptr);
  return *key;
}

// The modulus, big-endian: PRIVATEKEYBLOB = 8-byte header, RSAPUBKEY (12 bytes), modulus LE.
const Bytes& Modulus() {
  static const Bytes modulus = [] {
    const Bytes& blob = PairBlob();
    return Bytes(blob.rbegin() + static_cast<ptrdiff_t>(blob.size() - 20 - 64), blob.rend() - 20);
  }();
  return modulus;
}

// DigestInfo prefixes as RFC 8017 (section 9.2, note 1) lists them.
Bytes DigestInfo(ALG_ID algid) {
  if (algid == CALG_MD5) {
    return {0x30, 0x20, 0x30, 0x0c, 0x06, 0x08, 0x2a, 0x86, 0x48,
            0x86, 0xf7, 0x0d, 0x02, 0x05, 0x05, 0x00, 0x04, 0x10};
  }
  return {0x30, 0x21, 0x30, 0x09, 0x06, 0x05, 0x2b, 0x0e, 0x03, 0x02, 0x1a, 0x05, 0x00, 0x04, 0x14};
}

const uint8_t kMessage[] = {'s', 'i', 'g', 'n', 'e', 'd'};

std::unique_ptr<HashObject> HashOfMessage(ALG_ID algid) {
  auto hash = HashObject::Create(Enhanced(), algid, nullptr, 0);
  hash->HashData(kMessage, 0);
  return hash;
}

// The reference rule, on the block read big-endian.
bool ReferenceAccepts(const Bytes& block, const Bytes& value, ALG_ID algid, bool noHashOid) {
  const Bytes& n = Modulus();
  if (block.size() != n.size()) return false;
  if (!std::lexicographical_compare(block.begin(), block.end(), n.begin(), n.end())) return false;
  if (block[0] != 0x00 || block[1] != 0x01) return false;
  size_t i = 2;
  while (i < block.size() && block[i] == 0xFF) ++i;
  if (i - 2 < 8 || i == block.size() || block[i] != 0x00) return false;
  const Bytes payload(block.begin() + static_cast<ptrdiff_t>(i + 1), block.end());
  if (payload == value) return true;
  Bytes withPrefix = DigestInfo(algid);
  withPrefix.insert(withPrefix.end(), value.begin(), value.end());
  return !noHashOid && payload == withPrefix;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 1) return 0;
  const ALG_ID algid = (data[0] & 1) != 0 ? CALG_SHA1 : CALG_MD5;
  const bool noHashOid = (data[0] & 2) != 0;
  const Bytes signature(data + 1, data + size);
  const Bytes block(signature.rbegin(), signature.rend());
  const auto reference = HashOfMessage(algid);
  const SecureBytes& value = reference->Finish();
  const bool expected =
      ReferenceAccepts(block, Bytes(value.begin(), value.end()), algid, noHashOid);

  auto hash = HashOfMessage(algid);
  bool accepted = true;
  try {
    PublicKey().Verify(*hash, signature.data(), static_cast<DWORD>(signature.size()), nullptr,
                       noHashOid ? CRYPT_NOHASHOID : 0);
  } catch (const CspError& e) {
    Require(e.code() == static_cast<uint32_t>(NTE_BAD_SIGNATURE));
    accepted = false;
  }
  Require(accepted == expected);
  return 0;
}
