// CipherEngine: RFC 2268 RC2 known answers (all effective lengths and key sizes, beyond what a
// session key may hold), FIPS 81 DES, shared chaining across directions, cloning and reset.
#include "platform/CipherEngine.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "platform/CspError.h"
#include "support/PlatformTestHelpers.h"
#include "support/Rc2Vectors.h"
#include "support/VectorFile.h"

namespace quiv::platform {
namespace {

using Bytes = std::vector<uint8_t>;
using test::VectorFile;

Bytes H(std::string_view hex) {
  return VectorFile::DecodeHex(hex);
}
std::string HexOf(const Bytes& bytes) {
  return VectorFile::EncodeHex(bytes);
}
using test::ErrorOf;

Bytes Apply(CipherEngine& engine, Bytes data, bool encrypt) {
  if (encrypt) {
    engine.Encrypt(data);
  } else {
    engine.Decrypt(data);
  }
  return data;
}

TEST(CipherEngineTest, Rc2Rfc2268) {
  for (const test::Rc2Vector& c : test::kRc2Vectors) {
    auto engine = CipherEngine::Create(CALG_RC2, H(c.key), c.effectiveBits, CRYPT_MODE_ECB, {});
    EXPECT_EQ(HexOf(Apply(*engine, H(c.plain), true)), c.cipher) << c.key << "/" << c.effectiveBits;
    EXPECT_EQ(HexOf(Apply(*engine, H(c.cipher), false)), c.plain);
  }
}

TEST(CipherEngineTest, DesFips81Cbc) {
  const Bytes iv = H("1234567890abcdef");
  auto engine = CipherEngine::Create(CALG_DES, H("0123456789abcdef"), 0, CRYPT_MODE_CBC, iv);
  const std::string text = "Now is the time for all ";
  Bytes data(text.begin(), text.end());
  const std::string expected = "e5c7cdde872bf27c43e934008c389c0f683788499a7c05f6";
  EXPECT_EQ(HexOf(Apply(*engine, Bytes(data.begin(), data.begin() + 8), true)),
            expected.substr(0, 16));
  auto copy = engine->Clone();
  EXPECT_EQ(HexOf(Apply(*copy, Bytes(data.begin() + 8, data.end()), true)), expected.substr(16));
  EXPECT_EQ(HexOf(Apply(*engine, Bytes(data.begin() + 8, data.end()), true)), expected.substr(16));
  engine->Reset();
  EXPECT_EQ(HexOf(Apply(*engine, data, true)), expected);
  engine->Reset();
  EXPECT_EQ(Apply(*engine, H(expected), false), data);
}

TEST(CipherEngineTest, ChainCarriesOverWhenDirectionChanges) {
  const Bytes iv = H("1234567890abcdef");
  auto engine = CipherEngine::Create(CALG_DES, H("0123456789abcdef"), 0, CRYPT_MODE_CBC, iv);
  const std::string text = "Now is the time for all ";
  Apply(*engine, Bytes(text.begin(), text.begin() + 8), true);
  EXPECT_EQ(Apply(*engine, H("43e934008c389c0f683788499a7c05f6"), false),
            Bytes(text.begin() + 8, text.end()));
}

TEST(CipherEngineTest, Errors) {
  EXPECT_EQ(ErrorOf([] { CipherEngine::Create(CALG_RC5, Bytes(16), 0, CRYPT_MODE_CBC, {}); }),
            static_cast<uint32_t>(NTE_BAD_ALGID));
  EXPECT_EQ(ErrorOf([] { CipherEngine::Create(CALG_AES, Bytes(16), 0, CRYPT_MODE_CBC, {}); }),
            static_cast<uint32_t>(NTE_BAD_ALGID));
  EXPECT_EQ(ErrorOf([] { CipherEngine::Create(CALG_AES_256, Bytes(16), 0, CRYPT_MODE_ECB, {}); }),
            static_cast<uint32_t>(NTE_BAD_KEY));
  EXPECT_EQ(ErrorOf([] { CipherEngine::Create(CALG_DES, Bytes(8), 0, CRYPT_MODE_OFB, {}); }),
            static_cast<uint32_t>(NTE_BAD_ALGID));
  EXPECT_EQ(ErrorOf([] { CipherEngine::Create(CALG_3DES, Bytes(8), 0, CRYPT_MODE_ECB, {}); }),
            static_cast<uint32_t>(NTE_BAD_KEY));
  auto engine = CipherEngine::Create(CALG_DES, Bytes(8), 0, CRYPT_MODE_ECB, {});
  Bytes odd(7);
  EXPECT_EQ(ErrorOf([&] { engine->Encrypt(odd); }), static_cast<uint32_t>(NTE_BAD_DATA));
}

TEST(CipherEngineTest, Rc4ResetRestartsKeystream) {
  // RC4 test vector (key 0102030405, keystream offset 0) from RFC 6229.
  auto engine = CipherEngine::Create(CALG_RC4, H("0102030405"), 0, 0, {});
  EXPECT_TRUE(engine->IsStream());
  EXPECT_EQ(HexOf(Apply(*engine, Bytes(8, 0), true)), "b2396305f03dc027");
  EXPECT_EQ(HexOf(Apply(*engine, Bytes(8, 0), true)), "ccc3524a0a1118a8");
  engine->Reset();
  EXPECT_EQ(HexOf(Apply(*engine, Bytes(16, 0), true)), "b2396305f03dc027ccc3524a0a1118a8");
}

// FIPS 197 appendix C.3 (one block, AES-256) and SP 800-38A F.3.7 (CFB-8, AES-128).
TEST(CipherEngineTest, AesFips197AndCfb8) {
  EXPECT_EQ(CipherEngine::BlockSizeOf(CALG_AES_128), 16u);
  EXPECT_EQ(CipherEngine::BlockSizeOf(CALG_AES_256), 16u);
  EXPECT_EQ(CipherEngine::BlockSizeOf(CALG_3DES), 8u);
  EXPECT_EQ(CipherEngine::BlockSizeOf(CALG_RC4), 0u);
  auto ecb = CipherEngine::Create(
      CALG_AES_256, H("000102030405060708090a0b0c0d0e0f101112131415161718191a1b1c1d1e1f"), 0,
      CRYPT_MODE_ECB, {});
  EXPECT_EQ(ecb->blockSize(), 16u);
  EXPECT_EQ(HexOf(Apply(*ecb, H("00112233445566778899aabbccddeeff"), true)),
            "8ea2b7ca516745bfeafc49904b496089");
  EXPECT_EQ(ErrorOf([&] { Apply(*ecb, Bytes(8), true); }), static_cast<uint32_t>(NTE_BAD_DATA));

  const Bytes iv = H("000102030405060708090a0b0c0d0e0f");
  auto cfb = CipherEngine::Create(CALG_AES_128, H("2b7e151628aed2a6abf7158809cf4f3c"), 0,
                                  CRYPT_MODE_CFB, iv);
  const Bytes plain = H("6bc1bee22e409f96e93d7e117393172aae2d8a571e03ac9c9eb76fac45af8e51");
  const std::string expected = "3b79424c9c0dd436bace9e0ed4586a4f";  // the first 16 of F.3.7
  EXPECT_EQ(HexOf(Apply(*cfb, Bytes(plain.begin(), plain.begin() + 16), true)), expected);
  cfb->Reset();
  EXPECT_EQ(HexOf(Apply(*cfb, H(expected), false)),
            HexOf(Bytes(plain.begin(), plain.begin() + 16)));
}

// SP 800-38A F.2.1 (CBC-AES128): the chain value is 16 bytes and carries over a direction change.
TEST(CipherEngineTest, AesCbcChainCarriesOver) {
  const Bytes key = H("2b7e151628aed2a6abf7158809cf4f3c");
  const Bytes iv = H("000102030405060708090a0b0c0d0e0f");
  auto engine = CipherEngine::Create(CALG_AES_128, key, 0, CRYPT_MODE_CBC, iv);
  EXPECT_EQ(HexOf(Apply(*engine, H("6bc1bee22e409f96e93d7e117393172a"), true)),
            "7649abac8119b246cee98e9b12e9197d");
  // Decrypting the second published block continues from the first ciphertext block.
  EXPECT_EQ(HexOf(Apply(*engine, H("5086cb9b507219ee95db113a917678b2"), false)),
            "ae2d8a571e03ac9c9eb76fac45af8e51");
}

}  // namespace
}  // namespace quiv::platform
