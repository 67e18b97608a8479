// KeyDerivation: odd parity (FIPS 46-3), and the hash-to-key rule checked against the recorded
// derivation table (the expansion case: 3DES from a 16-byte MD5 value).
#include "platform/KeyDerivation.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "platform/CipherEngine.h"
#include "platform/CspError.h"
#include "platform/HashObject.h"
#include "platform/ProviderInfo.h"
#include "platform/SymmetricKey.h"
#include "support/VectorFile.h"

namespace quiv::platform {
namespace {

using Bytes = std::vector<uint8_t>;
using test::VectorFile;
using test::WindowsVectors;

Bytes H(std::string_view hex) {
  return VectorFile::DecodeHex(hex);
}
std::string HexOf(std::span<const uint8_t> bytes) {
  return VectorFile::EncodeHex(Bytes(bytes.begin(), bytes.end()));
}

TEST(KeyDerivationTest, OddParityOnKnownKeys) {
  // The parity-adjusted spellings of the all-zero and all-one DES keys, and a key that is
  // already odd-parity (the FIPS 81 example key).
  for (const auto& [in, out] :
       {std::pair<const char*, const char*>{"0000000000000000", "0101010101010101"},
        {"ffffffffffffffff", "fefefefefefefefe"},
        {"0123456789abcdef", "0123456789abcdef"},
        {"e0e0e0e0f1f1f1f1", "e0e0e0e0f1f1f1f1"}}) {
    Bytes key = H(in);
    KeyDerivation::ForceOddParity(key);
    EXPECT_EQ(HexOf(key), out);
  }
}

TEST(KeyDerivationTest, PrefixWhenTheHashIsLongEnough) {
  const Bytes value = H("00112233445566778899aabbccddeeff");
  EXPECT_EQ(HexOf(KeyDerivation::Material(CALG_MD5, value, 5)), "0011223344");
  EXPECT_EQ(HexOf(KeyDerivation::Material(CALG_MD5, value, 16)), HexOf(value));
}

// kdf.26.3des.md5: the 24-byte key comes from the 0x36/0x5C expansion of the MD5 value.
TEST(KeyDerivationTest, ExpansionMatchesRecordedTripleDes) {
  const auto& v = WindowsVectors().Vector("kdf.26.3des.md5");
  const Bytes value = H(v["expected"]["HP_HASHVAL"].get<std::string>());
  const SecureBytes key = KeyDerivation::Material(CALG_MD5, value, 24);
  ASSERT_EQ(key.size(), 24u);
  Bytes block = H(v["inputs"]["data_hex"].get<std::string>());
  block.resize(4);
  block.insert(block.end(), 4, 4);  // PKCS#5 of a 4-byte message
  auto engine = CipherEngine::Create(CALG_3DES, key, 0, CRYPT_MODE_CBC, Bytes(8, 0));
  engine->Encrypt(block);
  EXPECT_EQ(HexOf(block), v["expected"]["ciphertext"].get<std::string>());
}

TEST(KeyDerivationTest, DerivingLeavesTheHashReadable) {
  auto hash = HashObject::Create(ProviderInfo::Default(), CALG_SHA1, nullptr, 0);
  hash->HashData(H("616263"), 0);
  const SecureBytes first = KeyDerivation::Material(*hash, 8);
  const SecureBytes second = KeyDerivation::Material(*hash, 8);
  EXPECT_EQ(HexOf(first), HexOf(second));
  EXPECT_EQ(HexOf(hash->Finish()), "a9993e364706816aba3e25717850c26c9cd0d89d");  // FIPS 180-1
  try {
    hash->HashData(H("00"), 0);
    ADD_FAILURE() << "finished hash took data";
  } catch (const CspError& e) {
    EXPECT_EQ(e.code(), static_cast<uint32_t>(NTE_BAD_HASH_STATE));
  }
}

TEST(KeyDerivationTest, ExpansionNeedsADigest) {
  try {
    KeyDerivation::Material(CALG_MAC, Bytes(8, 1), 24);
    ADD_FAILURE() << "no error";
  } catch (const CspError& e) {
    EXPECT_EQ(e.code(), static_cast<uint32_t>(NTE_BAD_ALGID));
  }
}

// kdf.33.aes_128.md5 (AES provider): the AES-128 key comes from the expansion although the
// 16-byte MD5 value alone would be long enough.
TEST(KeyDerivationTest, AesKeysAreExpandedFromShortHashFamilies) {
  const auto& v = WindowsVectors().Vector("kdf.33.aes_128.md5");
  const Bytes value = H(v["expected"]["HP_HASHVAL"].get<std::string>());
  const SecureBytes key = KeyDerivation::AesMaterial(CALG_MD5, value, 16);
  EXPECT_NE(HexOf(key), HexOf(value));
  Bytes block = H(v["inputs"]["data_hex"].get<std::string>());
  block.resize(4);
  block.insert(block.end(), 12, 12);  // PKCS#5 of a 4-byte message in a 16-byte block
  auto engine = CipherEngine::Create(CALG_AES_128, key, 0, CRYPT_MODE_CBC, Bytes(16, 0));
  engine->Encrypt(block);
  EXPECT_EQ(HexOf(block), v["expected_by_provider"]["AES"]["ciphertext"].get<std::string>());
}

TEST(KeyDerivationTest, AesKeysFromSha2AreThePrefix) {
  Bytes value(64);
  for (size_t i = 0; i < value.size(); ++i) value[i] = static_cast<uint8_t>(i);
  EXPECT_EQ(HexOf(KeyDerivation::AesMaterial(CALG_SHA_512, value, 32)),
            HexOf(Bytes(value.begin(), value.begin() + 32)));
  value.resize(32);
  EXPECT_EQ(HexOf(KeyDerivation::AesMaterial(CALG_SHA_256, value, 32)), HexOf(value));
  try {
    KeyDerivation::AesMaterial(CALG_MAC, Bytes(16, 1), 16);
    ADD_FAILURE() << "no error";
  } catch (const CspError& e) {
    EXPECT_EQ(e.code(), static_cast<uint32_t>(NTE_BAD_ALGID));
  }
}

}  // namespace
}  // namespace quiv::platform
