// Fuzz target: CryptImportKey-level import of arbitrary bytes as PUBLICKEYBLOB, PRIVATEKEYBLOB,
// PLAINTEXTKEYBLOB and SIMPLEBLOB (under a fixed key-exchange pair), with the property that
// whatever imports exports back to the same bytes. The SIMPLEBLOB exchange key has e = d = 1,
// so the fuzzer's bytes are the PKCS#1 type 2 block itself, and a tiny reference parser of that
// block must agree with what was imported. A PRIVATEKEYBLOB may come wrapped under a fixed
// AES-256 session key: what imports must be what the blob decrypts to.
//
// Input: byte 0 selects the blob type (low 2 bits), the provider (next 2 bits: Base, Enhanced,
// Strong, AES), the import flags (bit 4: CRYPT_OAEP for SIMPLEBLOB, CRYPT_IPSEC_HMAC_KEY for
// the others) and, for PRIVATEKEYBLOB, the AES wrapping key (bit 5); the rest is the blob, whose
// bType byte is forced to the selected type.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "FuzzSupport.h"
#include "RecordedKeys.h"
#include "platform/CspError.h"
#include "platform/KeyBlob.h"
#include "platform/ProviderInfo.h"
#include "platform/RsaKey.h"
#include "platform/SymmetricKey.h"

using namespace quiv::platform;

namespace {

using Bytes = std::vector<uint8_t>;

using fuzz::FromHex;
using fuzz::Require;

const ProviderInfo& Provider(unsigned selector) {
  static const char* const names[] = {MS_DEF_PROV_A, MS_ENHANCED_PROV_A, MS_STRONG_PROV_A,
                                      MS_ENH_RSA_AES_PROV_A};
  return *ProviderInfo::FindByName(names[selector & 3]);
}

// The key that unwraps wrapped private blobs: AES-256, bytes 00 01 .. 1f, CBC, zero IV. Each
// input gets a fresh copy, so no chaining state carries from one input to the next.
std::unique_ptr<SymmetricKey> WrappingKey() {
  Bytes material(32);
  for (size_t i = 0; i < material.size(); ++i) material[i] = static_cast<uint8_t>(i);
  return SymmetricKey::FromKeyBytes(Provider(3), CALG_AES_256, material, 0,
                                    SymmetricKey::Origin::PlaintextBlob);
}

const RsaKey& ExchangeKey() {
  static const auto key = RsaKey::ImportPrivateBlob(Provider(1), FromHex(kPubexp1Hex), 0, nullptr);
  return *key;
}

bool IsPrefixThenZeros(const SecureBytes& exported, const Bytes& blob) {
  const size_t common = std::min(exported.size(), blob.size());
  return std::equal(exported.begin(), exported.begin() + static_cast<ptrdiff_t>(common),
                    blob.begin()) &&
         std::all_of(exported.begin() + static_cast<ptrdiff_t>(common), exported.end(),
                     [](uint8_t b) { return b == 0; });
}

// Reference reading of a type 2 block (RFC 8017 section 7.2.2): 00 02, at least 8 non-zero
// bytes, 00, message.
bool ReferenceType2(const Bytes& block, Bytes& message) {
  if (block.size() < 11 || block[0] != 0 || block[1] != 2) return false;
  const auto separator = std::find(block.begin() + 2, block.end(), 0);
  if (separator == block.end() || separator - block.begin() < 10) return false;
  message.assign(separator + 1, block.end());
  return true;
}

void CheckPublic(const Bytes& blob, const RsaKey& key) {
  const SecureBytes exported = KeyBlob::Export({nullptr, &key}, {}, PUBLICKEYBLOB, 0);
  Require(exported.size() <= blob.size());
  Require(std::equal(exported.begin(), exported.end(), blob.begin()));
}

void CheckPrivate(const Bytes& blob, const RsaKey& key) {
  const SecureBytes exported = KeyBlob::Export({nullptr, &key}, {}, PRIVATEKEYBLOB, 0);
  // Export reproduces the blob; a private exponent cut short comes back zero-filled.
  Require(IsPrefixThenZeros(exported, blob));
  Require(KeyBlob::Export({nullptr, &key}, {}, PUBLICKEYBLOB, 0).size() ==
          exported.size() - key.ModulusBytes() - 5 * ((key.BitLength() + 15) / 16));
}

// A wrapped private blob: the header, then the body as the wrapping key's final decryption
// gives it; the key that imported must be the one that plain blob holds.
void CheckWrappedPrivate(const Bytes& blob, const RsaKey& key) {
  Bytes plain(blob);
  auto unwrap = WrappingKey();
  DWORD length = static_cast<DWORD>(plain.size() - KeyBlob::kHeaderSize);
  unwrap->Decrypt(nullptr, true, 0, plain.data() + KeyBlob::kHeaderSize, &length);
  plain.resize(KeyBlob::kHeaderSize + length);
  CheckPrivate(plain, key);
}

void CheckPlaintext(const Bytes& blob, SymmetricKey& key) {
  const SecureBytes exported = KeyBlob::Export({&key, nullptr}, {}, PLAINTEXTKEYBLOB, 0);
  Require(exported.size() <= blob.size());
  Require(std::equal(exported.begin(), exported.end(), blob.begin()));
}

void CheckSimple(const ProviderInfo& provider, const Bytes& blob, SymmetricKey& key, DWORD flags) {
  const RsaKey& exchange = ExchangeKey();
  const std::span<const uint8_t> keyBytes = key.KeyBytes();
  if ((flags & CRYPT_OAEP) == 0) {
    const Bytes block(blob.rbegin() + static_cast<ptrdiff_t>(blob.size() - 12 - 64),
                      blob.rend() - 12);
    Bytes message;
    Require(ReferenceType2(block, message));
    Require(std::equal(message.begin(), message.end(), keyBytes.begin(), keyBytes.end()));
  }
  // Wrapping again (with fresh random filler) and unwrapping gives the same key bytes.
  const SecureBytes again =
      KeyBlob::Export({&key, nullptr}, {nullptr, &exchange}, SIMPLEBLOB, flags);
  Require(again.size() == 12 + exchange.ModulusBytes());
  Require(std::equal(again.begin(), again.begin() + 8, blob.begin()));
  ImportedKey back = KeyBlob::Import(provider, again, {nullptr, &exchange}, flags);
  const std::span<const uint8_t> backBytes = back.symmetric->KeyBytes();
  Require(std::equal(backBytes.begin(), backBytes.end(), keyBytes.begin(), keyBytes.end()));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 2) return 0;
  static const uint8_t kTypes[] = {PUBLICKEYBLOB, PRIVATEKEYBLOB, PLAINTEXTKEYBLOB, SIMPLEBLOB};
  const uint8_t selector = data[0];
  const uint8_t type = kTypes[selector & 3];
  const ProviderInfo& provider = Provider(selector >> 2);
  DWORD flags = CRYPT_EXPORTABLE;
  if (selector & 0x10) flags |= (type == SIMPLEBLOB) ? CRYPT_OAEP : CRYPT_IPSEC_HMAC_KEY;
  Bytes blob(data + 1, data + size);
  blob[0] = type;

  const bool wrapped = type == PRIVATEKEYBLOB && (selector & 0x20) != 0;
  try {
    const std::unique_ptr<SymmetricKey> unwrap = wrapped ? WrappingKey() : nullptr;
    KeyRef pubKey = type == SIMPLEBLOB ? KeyRef{nullptr, &ExchangeKey()} : KeyRef{};
    if (wrapped) pubKey = KeyRef{unwrap.get(), nullptr};
    ImportedKey imported = KeyBlob::Import(provider, blob, pubKey, flags);
    switch (type) {
      case PUBLICKEYBLOB:
        Require(imported.rsa != nullptr);
        CheckPublic(blob, *imported.rsa);
        break;
      case PRIVATEKEYBLOB:
        Require(imported.rsa != nullptr);
        if (wrapped) {
          CheckWrappedPrivate(blob, *imported.rsa);
        } else {
          CheckPrivate(blob, *imported.rsa);
        }
        break;
      case PLAINTEXTKEYBLOB:
        Require(imported.symmetric != nullptr);
        CheckPlaintext(blob, *imported.symmetric);
        break;
      default:
        Require(imported.symmetric != nullptr);
        CheckSimple(provider, blob, *imported.symmetric, flags);
        break;
    }
  } catch (const CspError&) {
    // Rejected input: an error code, as CryptImportKey would report.
  }
  return 0;
}
