// Published known answers for the AES provider (PROV_RSA_AES), each driven through the CryptoAPI
// C functions: the AES examples of FIPS 197 appendix C, the ECB, CBC and CFB-8 examples of
// NIST SP 800-38A appendix F, the SHA-256/384/512 examples of FIPS 180-4 (as published in the
// NIST example files), and the HMAC-SHA-256/384/512 test cases of RFC 4231. Keys enter through
// PLAINTEXTKEYBLOB (HMAC keys with CRYPT_IPSEC_HMAC_KEY, which accepts any length).
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "platform/wincrypt.h"
#include "support/AesProvider.h"
#include "support/CapiCalls.h"
#include "support/PlatformTestHelpers.h"

namespace quiv::test {
namespace {

Bytes H(const std::string& hex) {
  return FromHex(hex);
}

Bytes Text(const std::string& text) {
  return Bytes(text.begin(), text.end());
}

class AesKnownAnswerTest : public ::testing::Test {
 public:
  HCRYPTPROV prov() const { return m_prov.get(); }

  // A key in `mode` with `iv` (none for ECB).
  KeyHandle Key(ALG_ID algid, const Bytes& key, DWORD mode, const Bytes& iv = {}) {
    KeyHandle handle = PlainKey(prov(), algid, key);
    EXPECT_EQ(SetDwordKeyParam(handle.get(), KP_MODE, mode), 0u);
    if (!iv.empty()) {
      QUIV_EXPECT_SUCCEEDS(CryptSetKeyParam(handle.get(), KP_IV, iv.data(), 0));
    }
    return handle;
  }

 protected:
  void SetUp() override { ASSERT_NE(m_prov.get(), 0u); }

 private:
  ProvHandle m_prov = AesVerifyContext();
};

// ---- FIPS 197 appendix C: one block under each key size ----

TEST_F(AesKnownAnswerTest, Fips197AppendixC) {
  const Bytes plaintext = H("00112233445566778899aabbccddeeff");
  struct Case {
    ALG_ID algid;
    const char* key;
    const char* ciphertext;
  };
  const Case cases[] = {
      {CALG_AES_128, "000102030405060708090a0b0c0d0e0f", "69c4e0d86a7b0430d8cdb78070b4c55a"},
      {CALG_AES_192, "000102030405060708090a0b0c0d0e0f1011121314151617",
       "dda97ca4864cdfe06eaf70a0ec0d7191"},
      {CALG_AES_256, "000102030405060708090a0b0c0d0e0f101112131415161718191a1b1c1d1e1f",
       "8ea2b7ca516745bfeafc49904b496089"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.key);
    const KeyHandle key = Key(c.algid, H(c.key), CRYPT_MODE_ECB);
    EXPECT_EQ(Hex(EncryptBytes(key.get(), plaintext, false)), c.ciphertext);
    EXPECT_EQ(Hex(DecryptBytes(key.get(), H(c.ciphertext), false)), Hex(plaintext));
  }
}

// ---- SP 800-38A appendix F: four blocks, ECB and CBC; CFB-8 over 18 bytes ----

const Bytes kSp800Plaintext =
    H("6bc1bee22e409f96e93d7e117393172aae2d8a571e03ac9c9eb76fac45af8e51"
      "30c81c46a35ce411e5fbc1191a0a52eff69f2445df4f9b17ad2b417be66c3710");
const Bytes kSp800Iv = H("000102030405060708090a0b0c0d0e0f");

struct Sp800Key {
  ALG_ID algid;
  const char* key;
};
const Sp800Key kSp800Keys[] = {
    {CALG_AES_128, "2b7e151628aed2a6abf7158809cf4f3c"},
    {CALG_AES_192, "8e73b0f7da0e6452c810f32b809079e562f8ead2522c6b7b"},
    {CALG_AES_256, "603deb1015ca71be2b73aef0857d77811f352c073b6108d72d9810a30914dff4"},
};

// Encrypts the four published blocks (in two non-final calls of two blocks, so the chain value
// carries over between calls) and decrypts the published ciphertext with a fresh key.
void CheckFourBlocks(AesKnownAnswerTest& test, DWORD mode, const char* const (&expected)[3]) {
  const Bytes iv = mode == CRYPT_MODE_ECB ? Bytes() : kSp800Iv;
  const Bytes firstHalf(kSp800Plaintext.begin(), kSp800Plaintext.begin() + 32);
  const Bytes secondHalf(kSp800Plaintext.begin() + 32, kSp800Plaintext.end());
  for (size_t i = 0; i < std::size(kSp800Keys); ++i) {
    SCOPED_TRACE(kSp800Keys[i].key);
    const KeyHandle key = test.Key(kSp800Keys[i].algid, H(kSp800Keys[i].key), mode, iv);
    const Bytes first = EncryptBytes(key.get(), firstHalf, false);
    const Bytes second = EncryptBytes(key.get(), secondHalf, false);
    EXPECT_EQ(Hex(first) + Hex(second), expected[i]);
    const KeyHandle fresh = test.Key(kSp800Keys[i].algid, H(kSp800Keys[i].key), mode, iv);
    EXPECT_EQ(Hex(DecryptBytes(fresh.get(), H(expected[i]), false)), Hex(kSp800Plaintext));
  }
}

TEST_F(AesKnownAnswerTest, Sp800_38aEcbF11F13F15) {
  const char* const expected[] = {
      "3ad77bb40d7a3660a89ecaf32466ef97f5d3d58503b9699de785895a96fdbaaf"
      "43b1cd7f598ece23881b00e3ed0306887b0c785e27e8ad3f8223207104725dd4",
      "bd334f1d6e45f25ff712a214571fa5cc974104846d0ad3ad7734ecb3ecee4eef"
      "ef7afd2270e2e60adce0ba2face6444e9a4b41ba738d6c72fb16691603c18e0e",
      "f3eed1bdb5d2a03c064b5a7e3db181f8591ccb10d410ed26dc5ba74a31362870"
      "b6ed21b99ca6f4f9f153e7b1beafed1d23304b7a39f9f3ff067d8d8f9e24ecc7",
  };
  CheckFourBlocks(*this, CRYPT_MODE_ECB, expected);
}

TEST_F(AesKnownAnswerTest, Sp800_38aCbcF21F23F25) {
  const char* const expected[] = {
      "7649abac8119b246cee98e9b12e9197d5086cb9b507219ee95db113a917678b2"
      "73bed6b8e3c1743b7116e69e222295163ff1caa1681fac09120eca307586e1a7",
      "4f021db243bc633d7178183a9fa071e8b4d9ada9ad7dedf4e5e738763f69145a"
      "571b242012fb7ae07fa9baac3df102e008b0e27988598881d920a9e64f5615cd",
      "f58c4c04d6e5f1ba779eabfb5f7bfbd69cfc4e967edb808d679f777bc6702c7d"
      "39f23369a9d9bacfa530e26304231461b2eb05e2c39be9fcda6c19078c6a9d1b",
  };
  CheckFourBlocks(*this, CRYPT_MODE_CBC, expected);
}

// CFB-8 works byte by byte, but CryptEncrypt still takes whole blocks until the final call,
// which pads: 16 bytes non-final, then the last 2 bytes final (padded to 16; the 2 bytes are
// the published ones).
TEST_F(AesKnownAnswerTest, Sp800_38aCfb8F37F39F311) {
  const char* expected[] = {
      "3b79424c9c0dd436bace9e0ed4586a4f32b9",
      "cda2521ef0a905ca44cd057cbf0d47a0678a",
      "dc1f1a8520a64db55fcc8ac554844e889700",
  };
  const Bytes plaintext(kSp800Plaintext.begin(), kSp800Plaintext.begin() + 18);
  for (size_t i = 0; i < std::size(kSp800Keys); ++i) {
    SCOPED_TRACE(kSp800Keys[i].key);
    const KeyHandle key = Key(kSp800Keys[i].algid, H(kSp800Keys[i].key), CRYPT_MODE_CFB, kSp800Iv);
    Bytes out = EncryptBytes(key.get(), Bytes(plaintext.begin(), plaintext.begin() + 16), false);
    const Bytes tail =
        EncryptBytes(key.get(), Bytes(plaintext.begin() + 16, plaintext.end()), true);
    ASSERT_EQ(tail.size(), 16u);
    out.insert(out.end(), tail.begin(), tail.begin() + 2);
    EXPECT_EQ(Hex(out), expected[i]);
    // Decrypting the published 16 + 2 bytes non-final gives the plaintext back byte for byte.
    const KeyHandle fresh =
        Key(kSp800Keys[i].algid, H(kSp800Keys[i].key), CRYPT_MODE_CFB, kSp800Iv);
    const Bytes ciphertext = H(expected[i]);
    const Bytes head =
        DecryptBytes(fresh.get(), Bytes(ciphertext.begin(), ciphertext.begin() + 16), false);
    EXPECT_EQ(Hex(head), Hex(Bytes(plaintext.begin(), plaintext.begin() + 16)));
  }
}

// ---- FIPS 180-4 examples (NIST's SHA-256, SHA-384, SHA-512 example values) ----

Bytes HashValue(HCRYPTPROV prov, ALG_ID algid, const Bytes& data) {
  const HashHandle hash = HashOf(prov, algid, data);
  return HashBytes(hash.get(), HP_HASHVAL, 64);
}

TEST_F(AesKnownAnswerTest, Fips180_4Sha256) {
  EXPECT_EQ(Hex(HashValue(prov(), CALG_SHA_256, Text("abc"))),
            "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
  EXPECT_EQ(Hex(HashValue(prov(), CALG_SHA_256,
                          Text("abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq"))),
            "248d6a61d20638b8e5c026930c3e6039a33ce45964ff2167f6ecedd419db06c1");
  // One million 'a' in 1000 calls of 1000 bytes.
  const HashHandle hash = CreateHash(prov(), CALG_SHA_256);
  const Bytes chunk(1000, 'a');
  for (int i = 0; i < 1000; ++i) {
    ASSERT_TRUE(Succeeded(CryptHashData(hash.get(), chunk.data(), 1000, 0)));
  }
  EXPECT_EQ(Hex(HashBytes(hash.get(), HP_HASHVAL, 32)),
            "cdc76e5c9914fb9281a1c7e284d73e67f1809a48a497200e046d39ccc7112cd0");
}

const char kFips896[] =
    "abcdefghbcdefghicdefghijdefghijkefghijklfghijklmghijklmnhijklmnoijklmnopjklmnopqklmnopqrlmnop"
    "qrsmnopqrstnopqrstu";

TEST_F(AesKnownAnswerTest, Fips180_4Sha384) {
  EXPECT_EQ(Hex(HashValue(prov(), CALG_SHA_384, Text("abc"))),
            "cb00753f45a35e8bb5a03d699ac65007272c32ab0eded1631a8b605a43ff5bed"
            "8086072ba1e7cc2358baeca134c825a7");
  EXPECT_EQ(Hex(HashValue(prov(), CALG_SHA_384, Text(kFips896))),
            "09330c33f71147e83d192fc782cd1b4753111b173b3b05d22fa08086e3b0f712"
            "fcc7c71a557e2db966c3e9fa91746039");
}

TEST_F(AesKnownAnswerTest, Fips180_4Sha512) {
  EXPECT_EQ(Hex(HashValue(prov(), CALG_SHA_512, Text("abc"))),
            "ddaf35a193617abacc417349ae20413112e6fa4e89a97ea20a9eeee64b55d39a"
            "2192992a274fc1a836ba3c23a3feebbd454d4423643ce80e2a9ac94fa54ca49f");
  EXPECT_EQ(Hex(HashValue(prov(), CALG_SHA_512, Text(kFips896))),
            "8e959b75dae313da8cf4f72814fc143f8f7779c6eb9f7fa17299aeadb6889018"
            "501d289e4900f7e4331b99dec4b5433ac7d329eeb6dd26545e96e55b874be909");
}

// ---- RFC 4231 section 4 (test cases 1-4, 6 and 7; case 5 is a truncation of the output) ----

struct Rfc4231Case {
  const char* name;
  Bytes key;
  Bytes data;
  const char* sha256;
  const char* sha384;
  const char* sha512;
};

std::vector<Rfc4231Case> Rfc4231Cases() {
  Bytes key25;
  for (uint8_t b = 1; b <= 25; ++b) key25.push_back(b);
  return {
      {"4.2", Bytes(20, 0x0b), Text("Hi There"),
       "b0344c61d8db38535ca8afceaf0bf12b881dc200c9833da726e9376c2e32cff7",
       "afd03944d84895626b0825f4ab46907f15f9dadbe4101ec682aa034c7cebc59c"
       "faea9ea9076ede7f4af152e8b2fa9cb6",
       "87aa7cdea5ef619d4ff0b4241a1d6cb02379f4e2ce4ec2787ad0b30545e17cde"
       "daa833b7d6b8a702038b274eaea3f4e4be9d914eeb61f1702e696c203a126854"},
      {"4.3", Text("Jefe"), Text("what do ya want for nothing?"),
       "5bdcc146bf60754e6a042426089575c75a003f089d2739839dec58b964ec3843",
       "af45d2e376484031617f78d2b58a6b1b9c7ef464f5a01b47e42ec3736322445e"
       "8e2240ca5e69e2c78b3239ecfab21649",
       "164b7a7bfcf819e2e395fbe73b56e0a387bd64222e831fd610270cd7ea250554"
       "9758bf75c05a994a6d034f65f8f0e6fdcaeab1a34d4a6b4b636e070a38bce737"},
      {"4.4", Bytes(20, 0xaa), Bytes(50, 0xdd),
       "773ea91e36800e46854db8ebd09181a72959098b3ef8c122d9635514ced565fe",
       "88062608d3e6ad8a0aa2ace014c8a86f0aa635d947ac9febe83ef4e55966144b"
       "2a5ab39dc13814b94e3ab6e101a34f27",
       "fa73b0089d56a284efb0f0756c890be9b1b5dbdd8ee81a3655f83e33b2279d39"
       "bf3e848279a722c806b485a47e67c807b946a337bee8942674278859e13292fb"},
      {"4.5", key25, Bytes(50, 0xcd),
       "82558a389a443c0ea4cc819899f2083a85f0faa3e578f8077a2e3ff46729665b",
       "3e8a69b7783c25851933ab6290af6ca77a9981480850009cc5577c6e1f573b4e"
       "6801dd23c4a7d679ccf8a386c674cffb",
       "b0ba465637458c6990e5a8c5f61d4af7e576d97ff94b872de76f8050361ee3db"
       "a91ca5c11aa25eb4d679275cc5788063a5f19741120c4f2de2adebeb10a298dd"},
      {"4.7", Bytes(131, 0xaa), Text("Test Using Larger Than Block-Size Key - Hash Key First"),
       "60e431591ee0b67f0d8a26aacbf5b77f8e0bc6213728c5140546040f0ee37f54",
       "4ece084485813e9088d2c63a041bc5b44f9ef1012a2b588f3cd11f05033ac4c6"
       "0c2ef6ab4030fe8296248df163f44952",
       "80b24263c7c1a3ebb71493c1dd7be8b49b46d1f41b4aeec1121b013783f8f352"
       "6b56d037e05f2598bd0fd2215d6a1e5295e64f73f63f0aec8b915a985d786598"},
      {"4.8", Bytes(131, 0xaa),
       Text("This is a test using a larger than block-size key and a larger than block-size "
            "data. The key needs to be hashed before being used by the HMAC algorithm."),
       "9b09ffa71b942fcb27635fbcd5b0e944bfdc63644f0713938a7f51535c3a35e2",
       "6617178e941f020d351e2f254e8fd32c602420feb0b8fb9adccebb82461e99c5"
       "a678cc31e799176d3860e6110c46523e",
       "e37b6a775dc87dbaa4dfa9f96e5e3ffddebd71f8867289865df5a32d20cdc944"
       "b6022cac3c4982b10d5eeb55c3e4de15134676fb6de0446065c97440fa8c6a58"},
  };
}

TEST_F(AesKnownAnswerTest, Rfc4231HmacSha2) {
  for (const Rfc4231Case& c : Rfc4231Cases()) {
    SCOPED_TRACE(c.name);
    // Any key length is accepted for HMAC use with CRYPT_IPSEC_HMAC_KEY.
    const KeyHandle key = PlainKey(prov(), CALG_RC2, c.key, CRYPT_IPSEC_HMAC_KEY);
    ASSERT_NE(key.get(), 0u);
    const std::pair<ALG_ID, const char*> expected[] = {
        {CALG_SHA_256, c.sha256}, {CALG_SHA_384, c.sha384}, {CALG_SHA_512, c.sha512}};
    for (const auto& [algid, value] : expected) {
      SCOPED_TRACE(algid);
      const HashHandle hmac = CreateHash(prov(), CALG_HMAC, key.get());
      const HMAC_INFO info = HmacInfo(algid);
      QUIV_ASSERT_SUCCEEDS(
          CryptSetHashParam(hmac.get(), HP_HMAC_INFO, reinterpret_cast<const BYTE*>(&info), 0));
      EXPECT_EQ(HashDword(hmac.get(), HP_HASHSIZE), std::string(value).size() / 2);
      QUIV_ASSERT_SUCCEEDS(
          CryptHashData(hmac.get(), c.data.data(), static_cast<DWORD>(c.data.size()), 0));
      EXPECT_EQ(Hex(HashBytes(hmac.get(), HP_HASHVAL, 64)), value);
    }
  }
}

}  // namespace
}  // namespace quiv::test
