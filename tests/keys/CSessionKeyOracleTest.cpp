// CSessionKey against an independent oracle: a key derived from a pass phrase encrypts exactly as
// `openssl enc` does with the key bytes the providers' derivation makes from the same phrase, and
// decrypts what openssl made. The oracle's side is worked out here step by step, with
// `openssl dgst` as the hash, so that no code of ours takes part in it:
//   1. the phrase as UTF-16LE followed by one NUL character (two zero bytes), hashed;
//   2. n key bytes: the provider's default length (Base RC2/RC4 40 bits, Enhanced 128; DES 8
//      bytes, 3DES_112 16, 3DES 24, parity bits included) or the requested length;
//   3. a hash of at least n bytes gives its first n bytes; a shorter one (3DES from MD5 or
//      SHA-1) is XORed into 64 bytes of 0x36 and into 64 bytes of 0x5C, each block is hashed
//      again, and the key is the first n bytes of the two digests one after the other;
//   4. DES family: odd parity forced on every byte, as the providers do (DES ignores bit 0, so
//      this keeps the oracle's key faithful rather than changing a ciphertext);
//   5. no salt (the object always derives with CRYPT_NO_SALT); block ciphers in CBC with an IV
//      of zeros and PKCS#5 padding, RC4 as a plain stream without IV.
#include "support/QuietLog.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <ostream>
#include <string>
#include <vector>

#include "automation/ByteArray.h"
#include "constants/CConstQUIV.h"
#include "data/CMessagetext.h"
#include "keys/CSessionKey.h"
#include "provider/CProvider.h"
#include "support/OpensslEnc.h"
#include "support/TempKeyStore.h"
#include "support/VectorFile.h"

namespace quiv {
namespace {

using Bytes = std::vector<uint8_t>;

const auto* const kQuiet = ::testing::AddGlobalTestEnvironment(new test::QuietEnvironment);

const CConstQUIV k;

// Non-ASCII characters make the UTF-16LE step count: a byte-per-character reading of the phrase
// would hash other bytes.
const std::u16string kPhrase = u"Grüße an Ωmega: 東京 ist weit";

// A cipher as a provider offers it, and what `openssl enc` calls the same thing. RC2 has an
// effective key length apart from its key length; openssl fixes it by name: rc2-cbc keys with
// 16 bytes at 128 effective bits, rc2-40-cbc with 5 bytes at 40, rc2-64-cbc with 8 bytes at 64.
// A derived RC2 key of n bits has n effective bits in both providers (the object sets the
// Enhanced provider's to the requested length, 128 by default), so those three names match.
// Lengths without such a name (RC2/RC4 at 56 bits) cannot be put to openssl enc: its -K pads a
// short key with zeros up to the cipher's fixed length, which is another key. The Base provider
// offers neither 3DES_112 nor 3DES, so those rows are the Enhanced provider's only.
struct Cipher {
  const char* provider;  // "Base" or "Enhanced"
  const char* name;
  int32_t algId;
  int32_t bits;  // requested length; 0 is the provider's default
  size_t keyBytes;
  const char* openssl;
  bool desFamily;
};

const std::vector<Cipher>& Ciphers() {
  static const std::vector<Cipher> ciphers = {
      {"Base", "RC2", k.CALG_RC2(), 0, 5, "rc2-40-cbc", false},
      {"Base", "RC4", k.CALG_RC4(), 0, 5, "rc4-40", false},
      {"Base", "DES", k.CALG_DES(), 0, 8, "des-cbc", true},
      {"Enhanced", "RC2", k.CALG_RC2(), 0, 16, "rc2-cbc", false},
      {"Enhanced", "RC2", k.CALG_RC2(), 40, 5, "rc2-40-cbc", false},
      {"Enhanced", "RC2", k.CALG_RC2(), 64, 8, "rc2-64-cbc", false},
      {"Enhanced", "RC4", k.CALG_RC4(), 0, 16, "rc4", false},
      {"Enhanced", "RC4", k.CALG_RC4(), 40, 5, "rc4-40", false},
      {"Enhanced", "DES", k.CALG_DES(), 0, 8, "des-cbc", true},
      {"Enhanced", "3DES_112", k.CALG_3DES_112(), 0, 16, "des-ede-cbc", true},
      {"Enhanced", "3DES", k.CALG_3DES(), 0, 24, "des-ede3-cbc", true},
  };
  return ciphers;
}

struct Hash {
  const char* name;
  int32_t algId;
  const char* digest;  // openssl dgst's name
};

struct Case {
  Cipher cipher;
  Hash hash;
};

// Every cipher of the table with each of the two hashes (both providers offer both).
std::vector<Case> Cases() {
  const Hash hashes[] = {{"MD5", k.CALG_MD5(), "md5"}, {"SHA", k.CALG_SHA(), "sha1"}};
  std::vector<Case> cases;
  for (const Cipher& cipher : Ciphers()) {
    for (const Hash& hash : hashes) cases.push_back({cipher, hash});
  }
  return cases;
}

std::string CaseName(const Case& c) {
  const std::string length = c.cipher.bits == 0 ? "default" : std::to_string(c.cipher.bits);
  return std::string(c.cipher.provider) + "_" + c.cipher.name + "_" + length + "_" + c.hash.name;
}

// gtest prints a failing case by its name rather than as raw bytes.
void PrintTo(const Case& c, std::ostream* out) {
  *out << CaseName(c) << " (openssl " << c.cipher.openssl << ")";
}

Bytes Utf16LeWithNul(const std::u16string& text) {
  Bytes bytes;
  for (const char16_t unit : text) {
    bytes.push_back(static_cast<uint8_t>(unit & 0xFF));
    bytes.push_back(static_cast<uint8_t>(unit >> 8));
  }
  bytes.insert(bytes.end(), {0, 0});
  return bytes;
}

// Step 3 for a hash shorter than the key: the ipad/opad extension to two digests.
Bytes Extended(const char* digest, const Bytes& hash) {
  Bytes inner(64, 0x36);
  Bytes outer(64, 0x5C);
  for (size_t i = 0; i < hash.size(); ++i) {
    inner[i] ^= hash[i];
    outer[i] ^= hash[i];
  }
  Bytes both = test::OpensslDigest(digest, inner);
  const Bytes second = test::OpensslDigest(digest, outer);
  both.insert(both.end(), second.begin(), second.end());
  return both;
}

void ForceOddParity(Bytes& key) {
  for (uint8_t& byte : key) {
    const int ones = __builtin_popcount(byte & 0xFE);
    byte = static_cast<uint8_t>((byte & 0xFE) | (ones % 2 == 0 ? 1 : 0));
  }
}

Bytes OracleKey(const Case& c) {
  const Bytes hash = test::OpensslDigest(c.hash.digest, Utf16LeWithNul(kPhrase));
  Bytes key = hash.size() >= c.cipher.keyBytes ? hash : Extended(c.hash.digest, hash);
  if (key.size() < c.cipher.keyBytes) return {};  // a failed digest, already reported
  key.resize(c.cipher.keyBytes);
  if (c.cipher.desFamily) ForceOddParity(key);
  return key;
}

std::string Hex(const Bytes& bytes) {
  return test::VectorFile::EncodeHex(bytes);
}

std::string ZeroIvHex(const Case& c) {
  return c.cipher.algId == k.CALG_RC4() ? std::string() : std::string(16, '0');
}

// What the ciphertext's length must be: PKCS#5 always adds 1 to 8 bytes, RC4 adds none.
size_t CipherLength(const Case& c, size_t plainLength) {
  return c.cipher.algId == k.CALG_RC4() ? plainLength : (plainLength / 8 + 1) * 8;
}

// A message that ends inside a block, and one of whole blocks (a full padding block follows).
std::vector<Bytes> Messages() {
  const std::string text = "Attack at dawn; bring the blue folder along.";
  Bytes blocks(16);
  for (size_t i = 0; i < blocks.size(); ++i) blocks[i] = static_cast<uint8_t>(0xF0 - 7 * i);
  return {Bytes(text.begin(), text.end()), blocks};
}

std::string Why(const Ref<CSessionKey>& key) {
  return key->m_oLastError.IsNothing() ? std::string() : key->m_oLastError->LastError().ToUtf8();
}

class SessionKeyOracle : public ::testing::TestWithParam<Case> {
 protected:
  void SetUp() override {
    ASSERT_TRUE(test::OpensslOnPath())
        << "openssl is not on PATH; scripts/install-deps.sh installs it";
    ASSERT_NO_FATAL_FAILURE(Open(GetParam().cipher.provider));
    ASSERT_NO_FATAL_FAILURE(DeriveFromPhrase(GetParam()));
    m_oracleKey = OracleKey(GetParam());
    ASSERT_EQ(m_oracleKey.size(), GetParam().cipher.keyBytes);
  }
  void TearDown() override {
    if (!m_key.IsNothing()) m_key->Clear();
    if (!m_provider.IsNothing()) m_provider->TerminateAll();
  }

  void Open(const std::string& which) {
    m_provider = CProvider::Create();
    ASSERT_TRUE(m_provider->SetProviderTypeID(k.PROV_RSA_FULL()));
    ASSERT_TRUE(
        m_provider->SetProviderName(which == "Base" ? k.MS_DEF_PROV() : k.MS_ENHANCED_PROV()));
    ASSERT_TRUE(m_provider->LoadProvider());
    ASSERT_TRUE(m_provider->GetSessionKeyObject(m_key));
    ASSERT_TRUE(m_provider->GetMessageTextObject(m_message));
  }

  void DeriveFromPhrase(const Case& c) {
    ASSERT_TRUE(m_key->SetKeyAlgorithmID(c.cipher.algId));
    ASSERT_TRUE(m_key->SetHashAlgorithmID(c.hash.algId));
    ASSERT_TRUE(m_key->SetKeyLength(c.cipher.bits));
    ASSERT_TRUE(m_key->SetKeyPhrase(kPhrase));
    ASSERT_TRUE(m_key->GenerateSessionKey()) << Why(m_key);
  }

  // openssl's ciphertext of the message under the oracle key; its length is checked first so
  // that an empty answer from a failed run cannot pass for anything.
  Bytes OpensslCipher(const Bytes& plain) {
    const Bytes cipher =
        test::OpensslEnc(GetParam().cipher.openssl, Hex(m_oracleKey), ZeroIvHex(GetParam()), plain);
    EXPECT_EQ(cipher.size(), CipherLength(GetParam(), plain.size()));
    return cipher;
  }

  std::string Describe(const Bytes& plain) const {
    return std::to_string(plain.size()) + "-byte message, key " + Hex(m_oracleKey);
  }

  Bytes Through(bool decrypt, const Bytes& input) {
    EXPECT_TRUE(m_message->SetMessageText(ByteArray(input)));
    const bool done = decrypt ? m_key->Decrypt(m_message) : m_key->Encrypt(m_message);
    EXPECT_TRUE(done) << Why(m_key);
    ByteArray out;
    EXPECT_TRUE(m_message->GetDataAsByteArray(out));
    return out.ToVector();
  }

  test::TempKeyStore m_store;
  Ref<CProvider> m_provider;
  Ref<CSessionKey> m_key;
  Ref<CMessagetext> m_message;
  Bytes m_oracleKey;
};

INSTANTIATE_TEST_SUITE_P(Derived, SessionKeyOracle, ::testing::ValuesIn(Cases()),
                         [](const auto& info) { return CaseName(info.param); });

TEST_P(SessionKeyOracle, EncryptsAsOpensslWithTheDerivedKeyBytes) {
  for (const Bytes& plain : Messages()) {
    SCOPED_TRACE(Describe(plain));
    EXPECT_EQ(Hex(Through(false, plain)), Hex(OpensslCipher(plain)));
  }
}

TEST_P(SessionKeyOracle, DecryptsWhatOpensslEncrypted) {
  for (const Bytes& plain : Messages()) {
    SCOPED_TRACE(Describe(plain));
    EXPECT_EQ(Hex(Through(true, OpensslCipher(plain))), Hex(plain));
  }
}

}  // namespace
}  // namespace quiv
