// The AES provider (PROV_RSA_AES) through the CryptoAPI C functions: its identity and parameters,
// AES keys (lengths, parameters, IV, padding and length rules, derivation, blobs), SHA-2 hashes
// (state rules, signatures), key containers shared with the PROV_RSA_FULL providers, and the
// PROV_RSA_FULL providers still refusing AES and SHA-2 with the codes they give. OpenSSL's
// command line is the independent implementation the ciphertexts and digests are checked
// against.
#include <gtest/gtest.h>

#include <algorithm>
#include <set>
#include <string>
#include <vector>

#include "platform/wincrypt.h"
#include "support/AesProvider.h"
#include "support/CapiCalls.h"
#include "support/OpensslEnc.h"
#include "support/PlatformTestHelpers.h"
#include "support/TempKeyStore.h"

namespace quiv::test {
namespace {

constexpr DWORD kDefaultPermissions =
    CRYPT_ENCRYPT | CRYPT_DECRYPT | CRYPT_READ | CRYPT_WRITE | CRYPT_MAC;
constexpr ALG_ID kAesIds[] = {CALG_AES_128, CALG_AES_192, CALG_AES_256};
constexpr ALG_ID kSha2Ids[] = {CALG_SHA_256, CALG_SHA_384, CALG_SHA_512};

DWORD AesBits(ALG_ID algid) {
  return algid == CALG_AES_128 ? 128 : algid == CALG_AES_192 ? 192 : 256;
}

std::string OpensslCipher(ALG_ID algid, const std::string& mode) {
  return "aes-" + std::to_string(AesBits(algid)) + "-" + mode;
}

Bytes Text(const std::string& text) {
  return Bytes(text.begin(), text.end());
}

Bytes Pattern(size_t length, uint8_t seed) {
  Bytes out(length);
  for (size_t i = 0; i < length; ++i) out[i] = static_cast<uint8_t>(seed + 7 * i);
  return out;
}

std::string ProvName(HCRYPTPROV prov) {
  const Bytes bytes = ProvBytes(prov, PP_NAME, 128);
  return bytes.empty() ? std::string() : std::string(bytes.begin(), bytes.end() - 1);
}

// The key bytes of an exportable session key, read from its PLAINTEXTKEYBLOB.
Bytes KeyMaterial(HCRYPTKEY key) {
  const Bytes blob = ExportKey(key, 0, PLAINTEXTKEYBLOB);
  return blob.size() < 12 ? Bytes() : Bytes(blob.begin() + 12, blob.end());
}

class AesProviderTest : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_NE(m_prov.get(), 0u); }
  HCRYPTPROV prov() const { return m_prov.get(); }

  TempKeyStore m_store;

 private:
  ProvHandle m_prov = AesVerifyContext();
};

// ---- identity and parameters ----

TEST_F(AesProviderTest, NameTypeAndDefaultOfItsType) {
  EXPECT_EQ(ProvName(prov()), MS_ENH_RSA_AES_PROV_A);
  EXPECT_EQ(ProvBytes(prov(), PP_NAME, 128).size(), 54u);
  EXPECT_EQ(ProvDword(prov(), PP_PROVTYPE), static_cast<DWORD>(PROV_RSA_AES));
  EXPECT_EQ(ProvDword(prov(), PP_VERSION), 0x200u);
  EXPECT_EQ(ProvDword(prov(), PP_IMPTYPE), static_cast<DWORD>(CRYPT_IMPL_SOFTWARE));
  EXPECT_EQ(ProvDword(prov(), PP_KEYSPEC), static_cast<DWORD>(AT_KEYEXCHANGE | AT_SIGNATURE));
  EXPECT_EQ(ProvDword(prov(), PP_SIG_KEYSIZE_INC), 8u);

  ProvHandle byType;  // no name: the default provider of type 24
  QUIV_ASSERT_SUCCEEDS(
      CryptAcquireContextA(byType.put(), nullptr, nullptr, PROV_RSA_AES, CRYPT_VERIFYCONTEXT));
  EXPECT_EQ(ProvName(byType.get()), MS_ENH_RSA_AES_PROV_A);
  ProvHandle wide;
  QUIV_ASSERT_SUCCEEDS(CryptAcquireContextW(wide.put(), nullptr, MS_ENH_RSA_AES_PROV_W,
                                            PROV_RSA_AES, CRYPT_VERIFYCONTEXT));
  EXPECT_EQ(ProvDword(wide.get(), PP_PROVTYPE), static_cast<DWORD>(PROV_RSA_AES));
}

TEST_F(AesProviderTest, PrototypeNameOpensTheSameProvider) {
  for (const bool narrow : {true, false}) {
    ProvHandle old;
    QUIV_ASSERT_SUCCEEDS(narrow ? CryptAcquireContextA(old.put(), nullptr, MS_ENH_RSA_AES_PROV_XP_A,
                                                       PROV_RSA_AES, CRYPT_VERIFYCONTEXT)
                                : CryptAcquireContextW(old.put(), nullptr, MS_ENH_RSA_AES_PROV_XP_W,
                                                       PROV_RSA_AES, CRYPT_VERIFYCONTEXT));
    EXPECT_EQ(ProvName(old.get()), MS_ENH_RSA_AES_PROV_XP_A);
    const HashHandle hash = CreateHash(old.get(), CALG_SHA_512);
    EXPECT_EQ(HashDword(hash.get(), HP_HASHSIZE), 64u);
  }
}

TEST_F(AesProviderTest, TypeMustMatchTheName) {
  HCRYPTPROV h = 0;
  QUIV_EXPECT_FAILS_WITH(
      CryptAcquireContextA(&h, nullptr, MS_ENH_RSA_AES_PROV_A, PROV_RSA_FULL, CRYPT_VERIFYCONTEXT),
      NTE_PROV_TYPE_NO_MATCH);
  QUIV_EXPECT_FAILS_WITH(
      CryptAcquireContextA(&h, nullptr, MS_ENHANCED_PROV_A, PROV_RSA_AES, CRYPT_VERIFYCONTEXT),
      NTE_PROV_TYPE_NO_MATCH);
  QUIV_EXPECT_FAILS_WITH(
      CryptAcquireContextA(&h, nullptr, MS_STRONG_PROV_A, PROV_RSA_AES, CRYPT_VERIFYCONTEXT),
      NTE_PROV_TYPE_NO_MATCH);
  // Names are matched as the registry does, ignoring case.
  ProvHandle upper;
  QUIV_EXPECT_SUCCEEDS(CryptAcquireContextA(upper.put(), nullptr,
                                            "MICROSOFT ENHANCED RSA AND AES CRYPTOGRAPHIC PROVIDER",
                                            PROV_RSA_AES, CRYPT_VERIFYCONTEXT));
}

// Reads every PP_ENUMALGS_EX record from CRYPT_FIRST to ERROR_NO_MORE_ITEMS.
std::vector<PROV_ENUMALGS_EX> EnumAlgsEx(HCRYPTPROV prov) {
  std::vector<PROV_ENUMALGS_EX> out;
  DWORD flags = CRYPT_FIRST;
  for (;;) {
    PROV_ENUMALGS_EX record{};
    DWORD length = sizeof record;
    if (!CryptGetProvParam(prov, PP_ENUMALGS_EX, reinterpret_cast<BYTE*>(&record), &length,
                           flags)) {
      EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_NO_MORE_ITEMS));
      return out;
    }
    EXPECT_EQ(length, sizeof record);
    out.push_back(record);
    flags = 0;
  }
}

TEST_F(AesProviderTest, EnumAlgsIsTheEnhancedListWithAesAndSha2) {
  const std::vector<PROV_ENUMALGS_EX> records = EnumAlgsEx(prov());
  ASSERT_EQ(records.size(), 20u);
  ProvHandle enhanced;
  QUIV_ASSERT_SUCCEEDS(CryptAcquireContextA(enhanced.put(), nullptr, MS_ENHANCED_PROV_A,
                                            PROV_RSA_FULL, CRYPT_VERIFYCONTEXT));
  const std::vector<PROV_ENUMALGS_EX> base = EnumAlgsEx(enhanced.get());
  ASSERT_EQ(base.size(), 14u);
  for (size_t i = 0; i < base.size(); ++i) {
    EXPECT_EQ(std::memcmp(&records[i], &base[i], sizeof base[i]), 0) << "record " << i;
  }
  struct Added {
    ALG_ID algid;
    DWORD bits;
    DWORD protocols;
    const char* name;
    const char* longName;
  };
  const Added added[] = {
      {CALG_AES_128, 128, 0, "AES 128", "Advanced Encryption Standard (AES-128)"},
      {CALG_AES_192, 192, 0, "AES 192", "Advanced Encryption Standard (AES-192)"},
      {CALG_AES_256, 256, 0, "AES 256", "Advanced Encryption Standard (AES-256)"},
      {CALG_SHA_256, 256, 0x20, "SHA-256", "Secure Hash Algorithm (SHA-256)"},
      {CALG_SHA_384, 384, 0x20, "SHA-384", "Secure Hash Algorithm (SHA-384)"},
      {CALG_SHA_512, 512, 0x20, "SHA-512", "Secure Hash Algorithm (SHA-512)"},
  };
  for (size_t i = 0; i < std::size(added); ++i) {
    const PROV_ENUMALGS_EX& r = records[14 + i];
    SCOPED_TRACE(added[i].name);
    EXPECT_EQ(r.aiAlgid, added[i].algid);
    EXPECT_EQ(r.dwDefaultLen, added[i].bits);
    EXPECT_EQ(r.dwMinLen, added[i].bits);
    EXPECT_EQ(r.dwMaxLen, added[i].bits);
    EXPECT_EQ(r.dwProtocols, added[i].protocols);
    EXPECT_STREQ(r.szName, added[i].name);
    EXPECT_EQ(r.dwNameLen, std::strlen(added[i].name) + 1);
    EXPECT_STREQ(r.szLongName, added[i].longName);
    EXPECT_EQ(r.dwLongNameLen, std::strlen(added[i].longName) + 1);
  }
  // The short form carries the same records; both forms share one cursor.
  PROV_ENUMALGS shortForm{};
  DWORD length = sizeof shortForm;
  QUIV_ASSERT_SUCCEEDS(CryptGetProvParam(prov(), PP_ENUMALGS, reinterpret_cast<BYTE*>(&shortForm),
                                         &length, CRYPT_FIRST));
  EXPECT_EQ(shortForm.aiAlgid, static_cast<ALG_ID>(CALG_RC2));
}

// ---- PROV_RSA_FULL keeps refusing what it never offered ----

TEST_F(AesProviderTest, RsaFullProvidersStillRefuseAesAndSha2) {
  for (const char* name : {MS_DEF_PROV_A, MS_ENHANCED_PROV_A, MS_STRONG_PROV_A}) {
    SCOPED_TRACE(name);
    ProvHandle full;
    QUIV_ASSERT_SUCCEEDS(
        CryptAcquireContextA(full.put(), nullptr, name, PROV_RSA_FULL, CRYPT_VERIFYCONTEXT));
    for (const ALG_ID algid : kSha2Ids) {
      HashHandle hash;
      QUIV_EXPECT_FAILS_WITH(CryptCreateHash(full.get(), algid, 0, 0, hash.put()), NTE_BAD_ALGID);
    }
    const HashHandle md5 = HashOf(full.get(), CALG_MD5, Text("phrase"));
    for (const ALG_ID algid : kAesIds) {
      KeyHandle key;
      QUIV_EXPECT_FAILS_WITH(CryptGenKey(full.get(), algid, 0, key.put()), NTE_BAD_ALGID);
      QUIV_EXPECT_FAILS_WITH(CryptDeriveKey(full.get(), algid, md5.get(), 0, key.put()),
                             NTE_BAD_ALGID);
      const Bytes blob = PlaintextKeyBlob(algid, Bytes(AesBits(algid) / 8, 0x42));
      QUIV_EXPECT_FAILS_WITH(
          CryptImportKey(full.get(), blob.data(), static_cast<DWORD>(blob.size()), 0, 0, key.put()),
          NTE_BAD_ALGID);
    }
    // No SHA-2 inside an HMAC either.
    const KeyHandle rc4 = PlainKey(full.get(), CALG_RC4, Bytes(5, 0x11));
    const HashHandle hmac = CreateHash(full.get(), CALG_HMAC, rc4.get());
    const HMAC_INFO info = HmacInfo(CALG_SHA_256);
    QUIV_EXPECT_FAILS_WITH(
        CryptSetHashParam(hmac.get(), HP_HMAC_INFO, reinterpret_cast<const BYTE*>(&info), 0),
        NTE_BAD_ALGID);
  }
}

TEST_F(AesProviderTest, AlgorithmsItDoesNotOfferAreBadAlgid) {
  const HashHandle sha = HashOf(prov(), CALG_SHA_256, Text("phrase"));
  for (const ALG_ID algid : {ALG_ID{CALG_AES}, ALG_ID{CALG_RC5}}) {
    KeyHandle key;
    QUIV_EXPECT_FAILS_WITH(CryptGenKey(prov(), algid, 0, key.put()), NTE_BAD_ALGID);
    QUIV_EXPECT_FAILS_WITH(CryptDeriveKey(prov(), algid, sha.get(), 0, key.put()), NTE_BAD_ALGID);
  }
  HashHandle hash;
  QUIV_EXPECT_FAILS_WITH(CryptCreateHash(prov(), CALG_TLS1PRF, 0, 0, hash.put()), NTE_BAD_ALGID);
}

// ---- AES keys ----

TEST_F(AesProviderTest, GeneratedKeyParameters) {
  for (const ALG_ID algid : kAesIds) {
    SCOPED_TRACE(algid);
    for (const DWORD flags : {DWORD{0}, (AesBits(algid) << 16) | CRYPT_EXPORTABLE}) {
      KeyHandle key;
      QUIV_ASSERT_SUCCEEDS(CryptGenKey(prov(), algid, flags, key.put()));
      EXPECT_EQ(KeyDword(key.get(), KP_ALGID), algid);
      EXPECT_EQ(KeyDword(key.get(), KP_KEYLEN), AesBits(algid));
      EXPECT_EQ(KeyDword(key.get(), KP_EFFECTIVE_KEYLEN), AesBits(algid));
      EXPECT_EQ(KeyDword(key.get(), KP_BLOCKLEN), 128u);
      EXPECT_EQ(KeyDword(key.get(), KP_MODE), static_cast<DWORD>(CRYPT_MODE_CBC));
      EXPECT_EQ(KeyDword(key.get(), KP_PADDING), static_cast<DWORD>(PKCS5_PADDING));
      EXPECT_EQ(KeyDword(key.get(), KP_MODE_BITS), 8u);
      EXPECT_EQ(KeyDword(key.get(), KP_PERMISSIONS),
                kDefaultPermissions | ((flags & CRYPT_EXPORTABLE) ? CRYPT_EXPORT : 0));
      EXPECT_EQ(Hex(KeyBytes(key.get(), KP_IV)), std::string(32, '0'));
      EXPECT_EQ(KeyParamSize(key.get(), KP_SALT), 0u);  // success, no salt
    }
  }
}

TEST_F(AesProviderTest, GeneratedKeysDiffer) {
  KeyHandle a, b;
  QUIV_ASSERT_SUCCEEDS(CryptGenKey(prov(), CALG_AES_256, CRYPT_EXPORTABLE, a.put()));
  QUIV_ASSERT_SUCCEEDS(CryptGenKey(prov(), CALG_AES_256, CRYPT_EXPORTABLE, b.put()));
  const Bytes first = KeyMaterial(a.get());
  EXPECT_EQ(first.size(), 32u);
  EXPECT_NE(first, KeyMaterial(b.get()));
}

TEST_F(AesProviderTest, LengthOtherThanTheKeysOwnIsBadFlags) {
  const HashHandle sha = HashOf(prov(), CALG_SHA_256, Text("phrase"));
  for (const auto& [algid, bits] : {std::pair{CALG_AES_128, 192u}, std::pair{CALG_AES_192, 128u},
                                    std::pair{CALG_AES_256, 40u}, std::pair{CALG_AES_256, 512u}}) {
    SCOPED_TRACE(bits);
    KeyHandle key;
    QUIV_EXPECT_FAILS_WITH(CryptGenKey(prov(), algid, bits << 16, key.put()), NTE_BAD_FLAGS);
    QUIV_EXPECT_FAILS_WITH(CryptDeriveKey(prov(), algid, sha.get(), bits << 16, key.put()),
                           NTE_BAD_FLAGS);
  }
}

TEST_F(AesProviderTest, SaltAndEffectiveLengthDoNotApply) {
  KeyHandle key;
  QUIV_ASSERT_SUCCEEDS(CryptGenKey(prov(), CALG_AES_128, CRYPT_CREATE_SALT, key.put()));
  EXPECT_EQ(KeyParamSize(key.get(), KP_SALT), 0u);
  const BYTE salt[11] = {};
  QUIV_EXPECT_FAILS_WITH(CryptSetKeyParam(key.get(), KP_SALT, salt, 0), NTE_BAD_KEY);
  BYTE one = 1;
  const CRYPT_INTEGER_BLOB blob = {1, &one};
  QUIV_EXPECT_FAILS_WITH(
      CryptSetKeyParam(key.get(), KP_SALT_EX, reinterpret_cast<const BYTE*>(&blob), 0),
      NTE_BAD_KEY);
  EXPECT_EQ(SetDwordKeyParam(key.get(), KP_EFFECTIVE_KEYLEN, 128),
            static_cast<DWORD>(NTE_BAD_TYPE));
}

// ---- derivation ----

TEST_F(AesProviderTest, KeysFromSha2AreTheHashPrefix) {
  const Bytes phrase = Text("correct horse battery staple");
  for (const ALG_ID hashAlg : kSha2Ids) {
    const HashHandle hash = HashOf(prov(), hashAlg, phrase);
    const Bytes value = HashBytes(hash.get(), HP_HASHVAL, 64);
    for (const ALG_ID keyAlg : kAesIds) {
      SCOPED_TRACE(std::to_string(hashAlg) + " " + std::to_string(keyAlg));
      KeyHandle key;
      QUIV_ASSERT_SUCCEEDS(CryptDeriveKey(prov(), keyAlg, hash.get(), CRYPT_EXPORTABLE, key.put()));
      EXPECT_EQ(Hex(KeyMaterial(key.get())),
                Hex(Bytes(value.begin(), value.begin() + AesBits(keyAlg) / 8)));
    }
  }
}

// From a hash outside SHA-2 the key is always expanded: H(0x36 pad ^ h) || H(0x5C pad ^ h), even
// when h alone would be long enough (SHA-1 and AES-128). OpenSSL computes the two digests.
TEST_F(AesProviderTest, KeysFromSha1AreAlwaysExpanded) {
  const HashHandle hash = HashOf(prov(), CALG_SHA1, Text("phrase"));
  const Bytes value = HashBytes(hash.get(), HP_HASHVAL, 20);
  ASSERT_EQ(value.size(), 20u);
  Bytes inner(64, 0x36), outer(64, 0x5c);
  for (size_t i = 0; i < value.size(); ++i) {
    inner[i] ^= value[i];
    outer[i] ^= value[i];
  }
  Bytes expanded = OpensslDigest("sha1", inner);
  const Bytes second = OpensslDigest("sha1", outer);
  expanded.insert(expanded.end(), second.begin(), second.end());
  ASSERT_EQ(expanded.size(), 40u);
  for (const ALG_ID keyAlg : kAesIds) {
    KeyHandle key;
    QUIV_ASSERT_SUCCEEDS(CryptDeriveKey(prov(), keyAlg, hash.get(), CRYPT_EXPORTABLE, key.put()));
    EXPECT_EQ(Hex(KeyMaterial(key.get())),
              Hex(Bytes(expanded.begin(), expanded.begin() + AesBits(keyAlg) / 8)));
  }
  // The other ciphers keep their rule in this provider: a 3DES_112 key is the SHA-1 prefix
  // (with odd parity), not the expansion.
  KeyHandle des;
  QUIV_ASSERT_SUCCEEDS(
      CryptDeriveKey(prov(), CALG_3DES_112, hash.get(), CRYPT_EXPORTABLE, des.put()));
  const Bytes desKey = KeyMaterial(des.get());
  ASSERT_EQ(desKey.size(), 16u);
  for (size_t i = 0; i < 16; ++i) EXPECT_EQ(desKey[i] & 0xfe, value[i] & 0xfe) << i;
}

// A pass phrase hashed with SHA-256 gives an AES-256 key that encrypts exactly as
// `openssl enc -aes-256-cbc -K <derived> -iv <iv>`, and decrypts what that command makes.
TEST_F(AesProviderTest, DerivedKeyEncryptsAsOpensslEnc) {
  const HashHandle hash = HashOf(prov(), CALG_SHA_256, Text("my secret phrase"));
  const Bytes value = HashBytes(hash.get(), HP_HASHVAL, 32);
  KeyHandle key;
  QUIV_ASSERT_SUCCEEDS(CryptDeriveKey(prov(), CALG_AES_256, hash.get(), 0, key.put()));
  const Bytes iv = Pattern(16, 0xa5);
  QUIV_ASSERT_SUCCEEDS(CryptSetKeyParam(key.get(), KP_IV, iv.data(), 0));
  for (const size_t length : {size_t{0}, size_t{1}, size_t{15}, size_t{16}, size_t{1000}}) {
    SCOPED_TRACE(length);
    const Bytes plaintext = Pattern(length, static_cast<uint8_t>(length));
    const Bytes ours = EncryptBytes(key.get(), plaintext, true);
    EXPECT_EQ(ours.size(), (length / 16 + 1) * 16);
    EXPECT_EQ(Hex(ours), Hex(OpensslEnc("aes-256-cbc", Hex(value), Hex(iv), plaintext)));
    const Bytes theirs = OpensslEnc("aes-256-cbc", Hex(value), Hex(iv), plaintext);
    EXPECT_EQ(Hex(DecryptBytes(key.get(), theirs, true)), Hex(plaintext));
  }
}

TEST_F(AesProviderTest, EcbAndCfb8AgreeWithOpensslEnc) {
  for (const ALG_ID algid : kAesIds) {
    SCOPED_TRACE(algid);
    const Bytes material = Pattern(AesBits(algid) / 8, 0x3c);
    const Bytes iv = Pattern(16, 0x91);
    const Bytes plaintext = Pattern(77, 0x05);
    const KeyHandle ecb = PlainKey(prov(), algid, material);
    EXPECT_EQ(SetDwordKeyParam(ecb.get(), KP_MODE, CRYPT_MODE_ECB), 0u);
    EXPECT_EQ(Hex(EncryptBytes(ecb.get(), plaintext, true)),
              Hex(OpensslEnc(OpensslCipher(algid, "ecb"), Hex(material), "", plaintext)));
    const KeyHandle cfb = PlainKey(prov(), algid, material);
    EXPECT_EQ(SetDwordKeyParam(cfb.get(), KP_MODE, CRYPT_MODE_CFB), 0u);
    QUIV_ASSERT_SUCCEEDS(CryptSetKeyParam(cfb.get(), KP_IV, iv.data(), 0));
    // CFB-8 pads like CBC on the final call; openssl's cfb8 takes the padded input as is.
    Bytes padded = plaintext;
    padded.insert(padded.end(), 3, 3);  // 77 + 3 = 80
    EXPECT_EQ(Hex(EncryptBytes(cfb.get(), plaintext, true)),
              Hex(OpensslEnc(OpensslCipher(algid, "cfb8"), Hex(material), Hex(iv), padded,
                             {.pad = false})));
  }
}

// ---- padding, lengths and IV ----

TEST_F(AesProviderTest, FinalEncryptionPadsToTheNextWholeBlock) {
  const KeyHandle key = PlainKey(prov(), CALG_AES_128, Pattern(16, 1));
  for (const auto& [in, out] : {std::pair{0u, 16u}, std::pair{1u, 16u}, std::pair{15u, 16u},
                                std::pair{16u, 32u}, std::pair{23u, 32u}, std::pair{256u, 272u}}) {
    DWORD length = in;  // size query: dwBufLen is not consulted
    QUIV_EXPECT_SUCCEEDS(CryptEncrypt(key.get(), 0, TRUE, 0, nullptr, &length, 0));
    EXPECT_EQ(length, out) << in;
    const Bytes cipher = EncryptBytes(key.get(), Pattern(in, 9), true);
    EXPECT_EQ(cipher.size(), out) << in;
    EXPECT_EQ(Hex(DecryptBytes(key.get(), cipher, true)), Hex(Pattern(in, 9)));
  }
  Bytes buffer(31);
  DWORD length = 16;
  QUIV_EXPECT_FAILS_WITH(CryptEncrypt(key.get(), 0, TRUE, 0, buffer.data(), &length, 31),
                         ERROR_MORE_DATA);
  EXPECT_EQ(length, 32u);
}

TEST_F(AesProviderTest, LengthRulesUseSixteenByteBlocks) {
  const KeyHandle key = PlainKey(prov(), CALG_AES_192, Pattern(24, 2));
  Bytes buffer(64);
  DWORD length = 8;  // a whole block of the 64-bit ciphers is not one here
  QUIV_EXPECT_FAILS_WITH(CryptEncrypt(key.get(), 0, FALSE, 0, buffer.data(), &length, 64),
                         NTE_BAD_DATA);
  length = 24;
  QUIV_EXPECT_FAILS_WITH(CryptDecrypt(key.get(), 0, FALSE, 0, buffer.data(), &length),
                         NTE_BAD_DATA);
  length = 24;
  QUIV_EXPECT_FAILS_WITH(CryptDecrypt(key.get(), 0, TRUE, 0, buffer.data(), &length), NTE_BAD_DATA);
  length = 0;
  QUIV_EXPECT_FAILS_WITH(CryptDecrypt(key.get(), 0, TRUE, 0, buffer.data(), &length), NTE_BAD_LEN);
  length = 32;
  QUIV_EXPECT_SUCCEEDS(CryptEncrypt(key.get(), 0, FALSE, 0, buffer.data(), &length, 64));
  EXPECT_EQ(length, 32u);
}

TEST_F(AesProviderTest, BadPaddingFailsAndResetsTheState) {
  const KeyHandle key = PlainKey(prov(), CALG_AES_256, Pattern(32, 3));
  EXPECT_EQ(SetDwordKeyParam(key.get(), KP_MODE, CRYPT_MODE_ECB), 0u);
  const Bytes good = EncryptBytes(key.get(), Pattern(20, 4), true);
  // Pad bytes of 17 (more than a block) and 0 are refused; 16 (a whole block) is accepted.
  for (const uint8_t pad : {uint8_t{17}, uint8_t{0}, uint8_t{16}}) {
    SCOPED_TRACE(int{pad});
    Bytes plain(16, pad);
    if (pad != 16) plain[0] = 0x55;
    const Bytes cipher = EncryptBytes(key.get(), plain, false);
    Bytes buffer = cipher;
    DWORD length = 16;
    if (pad == 16) {
      QUIV_EXPECT_SUCCEEDS(CryptDecrypt(key.get(), 0, TRUE, 0, buffer.data(), &length));
      EXPECT_EQ(length, 0u);
      continue;
    }
    QUIV_EXPECT_FAILS_WITH(CryptDecrypt(key.get(), 0, TRUE, 0, buffer.data(), &length),
                           NTE_BAD_DATA);
    EXPECT_EQ(length, 16u);
    EXPECT_EQ(Hex(buffer), Hex(plain));  // the raw decrypted bytes stay in the buffer
  }
  EXPECT_EQ(Hex(DecryptBytes(key.get(), good, true)), Hex(Pattern(20, 4)));
}

TEST_F(AesProviderTest, IvIsOneSixteenByteBlockAndRestartsTheChain) {
  const Bytes material = Pattern(16, 6);
  const KeyHandle key = PlainKey(prov(), CALG_AES_128, material);
  EXPECT_EQ(KeyParamSize(key.get(), KP_IV), 16u);
  const Bytes iv = Pattern(16, 0x70);
  QUIV_ASSERT_SUCCEEDS(CryptSetKeyParam(key.get(), KP_IV, iv.data(), 0));
  EXPECT_EQ(Hex(KeyBytes(key.get(), KP_IV)), Hex(iv));  // all 16 bytes were taken
  // A buffer of the 64-bit ciphers' IV size is too short; no IV at all is refused.
  Bytes shortBuffer(8);
  DWORD shortLength = 8;
  QUIV_EXPECT_FAILS_WITH(CryptGetKeyParam(key.get(), KP_IV, shortBuffer.data(), &shortLength, 0),
                         ERROR_MORE_DATA);
  EXPECT_EQ(shortLength, 16u);
  QUIV_EXPECT_FAILS_WITH(CryptSetKeyParam(key.get(), KP_IV, nullptr, 0), ERROR_INVALID_PARAMETER);
  const Bytes message = Pattern(48, 0x21);
  const Bytes expected = OpensslEnc("aes-128-cbc", Hex(material), Hex(iv), message);
  // In pieces: the chain carries over non-final calls; the final call resets to the IV.
  Bytes pieces = EncryptBytes(key.get(), Bytes(message.begin(), message.begin() + 16), false);
  const Bytes rest = EncryptBytes(key.get(), Bytes(message.begin() + 16, message.end()), true);
  pieces.insert(pieces.end(), rest.begin(), rest.end());
  EXPECT_EQ(Hex(pieces), Hex(expected));
  EXPECT_EQ(Hex(EncryptBytes(key.get(), message, true)), Hex(expected));
  // Setting the IV mid-message starts a new message.
  EncryptBytes(key.get(), Bytes(message.begin(), message.begin() + 16), false);
  QUIV_ASSERT_SUCCEEDS(CryptSetKeyParam(key.get(), KP_IV, iv.data(), 0));
  EXPECT_EQ(Hex(EncryptBytes(key.get(), message, true)), Hex(expected));
  // A duplicate carries the running chain.
  EncryptBytes(key.get(), Bytes(message.begin(), message.begin() + 16), false);
  KeyHandle copy;
  QUIV_ASSERT_SUCCEEDS(CryptDuplicateKey(key.get(), nullptr, 0, copy.put()));
  const Bytes tail = EncryptBytes(copy.get(), Bytes(message.begin() + 16, message.end()), true);
  EXPECT_EQ(Hex(tail), Hex(Bytes(expected.begin() + 16, expected.end())));
}

// ---- MAC, HMAC and hashing session keys ----

TEST_F(AesProviderTest, MacWithAnAesKeyIsTheLastCbcBlock) {
  const Bytes material = Pattern(16, 0x44);
  const KeyHandle key = PlainKey(prov(), CALG_AES_128, material);
  const Bytes data = Pattern(40, 0x01);
  const HashHandle mac = CreateHash(prov(), CALG_MAC, key.get());
  EXPECT_EQ(HashDword(mac.get(), HP_HASHSIZE), 16u);
  QUIV_ASSERT_SUCCEEDS(CryptHashData(mac.get(), data.data(), 7, 0));
  QUIV_ASSERT_SUCCEEDS(CryptHashData(mac.get(), data.data() + 7, 33, 0));
  const Bytes cbc = OpensslEnc("aes-128-cbc", Hex(material), std::string(32, '0'), data);
  ASSERT_EQ(cbc.size(), 48u);
  EXPECT_EQ(Hex(HashBytes(mac.get(), HP_HASHVAL, 16)), Hex(Bytes(cbc.end() - 16, cbc.end())));
}

TEST_F(AesProviderTest, HmacKeyedWithAnAesKey) {
  const Bytes material = Pattern(32, 0x10);
  const KeyHandle key = PlainKey(prov(), CALG_AES_256, material);
  const HashHandle hmac = CreateHash(prov(), CALG_HMAC, key.get());
  const HMAC_INFO info = HmacInfo(CALG_SHA_384);
  QUIV_ASSERT_SUCCEEDS(
      CryptSetHashParam(hmac.get(), HP_HMAC_INFO, reinterpret_cast<const BYTE*>(&info), 0));
  EXPECT_EQ(HashDword(hmac.get(), HP_HASHSIZE), 48u);
  const Bytes data = Text("message");
  QUIV_ASSERT_SUCCEEDS(CryptHashData(hmac.get(), data.data(), 7, 0));
  // RFC 2104 by hand over OpenSSL's SHA-384 (block 128): H(K^opad || H(K^ipad || m)).
  Bytes inner(128, 0x36), outer(128, 0x5c);
  for (size_t i = 0; i < material.size(); ++i) {
    inner[i] ^= material[i];
    outer[i] ^= material[i];
  }
  inner.insert(inner.end(), data.begin(), data.end());
  const Bytes innerHash = OpensslDigest("sha384", inner);
  outer.insert(outer.end(), innerHash.begin(), innerHash.end());
  EXPECT_EQ(Hex(HashBytes(hmac.get(), HP_HASHVAL, 48)), Hex(OpensslDigest("sha384", outer)));
}

TEST_F(AesProviderTest, HashSessionKeyFeedsTheAesKeyBytesReversed) {
  const Bytes material = Pattern(24, 0x61);
  const KeyHandle key = PlainKey(prov(), CALG_AES_192, material);
  Bytes reversed(material.rbegin(), material.rend());
  for (const auto& [flags, expected] :
       {std::pair{DWORD{0}, reversed}, std::pair{DWORD{CRYPT_LITTLE_ENDIAN}, material}}) {
    const HashHandle hash = CreateHash(prov(), CALG_SHA_256);
    QUIV_ASSERT_SUCCEEDS(CryptHashSessionKey(hash.get(), key.get(), flags));
    EXPECT_EQ(Hex(HashBytes(hash.get(), HP_HASHVAL, 32)), Hex(OpensslDigest("sha256", expected)));
  }
}

// ---- SHA-2 hash state rules ----

TEST_F(AesProviderTest, Sha2HashStateRules) {
  KeyHandle pair;
  QUIV_ASSERT_SUCCEEDS(CryptGenKey(prov(), AT_SIGNATURE, 1024u << 16, pair.put()));
  for (const ALG_ID algid : kSha2Ids) {
    SCOPED_TRACE(algid);
    const Bytes data = Text("abc");
    const DWORD size = algid == CALG_SHA_256 ? 32 : algid == CALG_SHA_384 ? 48 : 64;
    {
      const HashHandle hash = HashOf(prov(), algid, data);
      EXPECT_EQ(HashDword(hash.get(), HP_ALGID), algid);
      EXPECT_EQ(HashParamSize(hash.get(), HP_HASHVAL), size);
      Bytes small(size - 1);
      DWORD length = size - 1;
      QUIV_EXPECT_FAILS_WITH(CryptGetHashParam(hash.get(), HP_HASHVAL, small.data(), &length, 0),
                             ERROR_MORE_DATA);
      EXPECT_EQ(length, size);
      QUIV_EXPECT_FAILS_WITH(CryptHashData(hash.get(), data.data(), 3, 2), NTE_BAD_FLAGS);
      HashHandle copy;
      QUIV_ASSERT_SUCCEEDS(CryptDuplicateHash(hash.get(), nullptr, 0, copy.put()));
      const Bytes value = HashBytes(hash.get(), HP_HASHVAL, 64);
      EXPECT_EQ(Hex(value), Hex(HashBytes(copy.get(), HP_HASHVAL, 64)));
      QUIV_EXPECT_FAILS_WITH(CryptHashData(hash.get(), data.data(), 3, 0), NTE_BAD_HASH_STATE);
    }
    {
      // After signing the hash is finished, and so is it after verifying.
      const HashHandle hash = HashOf(prov(), algid, data);
      DWORD length = 128;
      Bytes signature(128);
      const BOOL ok =
          CryptSignHashA(hash.get(), AT_SIGNATURE, nullptr, 0, signature.data(), &length);
      QUIV_ASSERT_SUCCEEDS(ok);
      QUIV_EXPECT_FAILS_WITH(CryptHashData(hash.get(), data.data(), 3, 0), NTE_BAD_HASH_STATE);
      const HashHandle again = HashOf(prov(), algid, data);
      QUIV_EXPECT_SUCCEEDS(
          CryptVerifySignatureA(again.get(), signature.data(), length, pair.get(), nullptr, 0));
      QUIV_EXPECT_FAILS_WITH(CryptHashData(again.get(), data.data(), 3, 0), NTE_BAD_HASH_STATE);
    }
  }
}

TEST_F(AesProviderTest, Sha2SignaturesVerifyAndRefuseTampering) {
  KeyHandle pair;
  QUIV_ASSERT_SUCCEEDS(CryptGenKey(prov(), AT_SIGNATURE, 1024u << 16, pair.put()));
  const Bytes publicBlob = ExportKey(pair.get(), 0, PUBLICKEYBLOB);
  const KeyHandle publicKey = ImportKey(prov(), publicBlob, 0, 0);
  const Bytes data = Pattern(300, 0x0f);
  for (const ALG_ID algid : kSha2Ids) {
    for (const DWORD flags : {DWORD{0}, DWORD{CRYPT_NOHASHOID}}) {
      SCOPED_TRACE(std::to_string(algid) + " flags " + std::to_string(flags));
      const HashHandle hash = HashOf(prov(), algid, data);
      DWORD length = 0;
      QUIV_ASSERT_SUCCEEDS(
          CryptSignHashA(hash.get(), AT_SIGNATURE, nullptr, flags, nullptr, &length));
      EXPECT_EQ(length, 128u);
      Bytes signature(length);
      QUIV_ASSERT_SUCCEEDS(
          CryptSignHashA(hash.get(), AT_SIGNATURE, nullptr, flags, signature.data(), &length));
      const HashHandle check = HashOf(prov(), algid, data);
      QUIV_EXPECT_SUCCEEDS(CryptVerifySignatureA(check.get(), signature.data(), length,
                                                 publicKey.get(), nullptr, flags));
      signature[10] ^= 1;
      const HashHandle tampered = HashOf(prov(), algid, data);
      QUIV_EXPECT_FAILS_WITH(CryptVerifySignatureA(tampered.get(), signature.data(), length,
                                                   publicKey.get(), nullptr, flags),
                             NTE_BAD_SIGNATURE);
    }
  }
}

TEST_F(AesProviderTest, Sha512BlockTooLongForASmallKeyIsBadLen) {
  // 19 DigestInfo bytes + 64 hash bytes + 11 padding bytes do not fit a 512-bit modulus.
  KeyHandle pair;
  QUIV_ASSERT_SUCCEEDS(CryptGenKey(prov(), AT_SIGNATURE, 512u << 16, pair.put()));
  const HashHandle hash = HashOf(prov(), CALG_SHA_512, Text("abc"));
  DWORD length = 64;
  Bytes signature(64);
  QUIV_EXPECT_FAILS_WITH(
      CryptSignHashA(hash.get(), AT_SIGNATURE, nullptr, 0, signature.data(), &length), NTE_BAD_LEN);
  // Without the DigestInfo a SHA-384 value fits (48 + 11 bytes).
  const HashHandle bare = HashOf(prov(), CALG_SHA_384, Text("abc"));
  length = 64;
  QUIV_EXPECT_SUCCEEDS(CryptSignHashA(bare.get(), AT_SIGNATURE, nullptr, CRYPT_NOHASHOID,
                                      signature.data(), &length));
}

// ---- blobs ----

TEST_F(AesProviderTest, PlaintextKeyBlobRoundTripAndLengthRule) {
  for (const ALG_ID algid : kAesIds) {
    SCOPED_TRACE(algid);
    const Bytes material = Pattern(AesBits(algid) / 8, 0x77);
    const KeyHandle key = PlainKey(prov(), algid, material, CRYPT_EXPORTABLE);
    EXPECT_EQ(Hex(ExportKey(key.get(), 0, PLAINTEXTKEYBLOB)),
              Hex(PlaintextKeyBlob(algid, material)));
    // A key of another AES size under this algid is refused, unless only meant for HMAC.
    const Bytes wrongSize = PlaintextKeyBlob(algid, Pattern(AesBits(algid) / 8 + 8, 0x77));
    KeyHandle refused;
    QUIV_EXPECT_FAILS_WITH(
        CryptImportKey(prov(), wrongSize.data(), static_cast<DWORD>(wrongSize.size()), 0, 0,
                       refused.put()),
        NTE_BAD_DATA);
    const KeyHandle hmacOnly = ImportKey(prov(), wrongSize, 0, CRYPT_IPSEC_HMAC_KEY);
    ASSERT_NE(hmacOnly.get(), 0u);
    Bytes buffer(32);
    DWORD length = 16;
    QUIV_EXPECT_FAILS_WITH(CryptEncrypt(hmacOnly.get(), 0, TRUE, 0, buffer.data(), &length, 32),
                           NTE_BAD_KEY);
  }
  KeyHandle locked;
  QUIV_ASSERT_SUCCEEDS(CryptGenKey(prov(), CALG_AES_128, 0, locked.put()));
  DWORD length = 0;
  QUIV_EXPECT_FAILS_WITH(CryptExportKey(locked.get(), 0, PLAINTEXTKEYBLOB, 0, nullptr, &length),
                         NTE_BAD_KEY_STATE);
}

TEST_F(AesProviderTest, SimpleBlobWrapsAnAesKey) {
  KeyHandle exchange;
  QUIV_ASSERT_SUCCEEDS(CryptGenKey(prov(), AT_KEYEXCHANGE, 1024u << 16, exchange.put()));
  for (const ALG_ID algid : kAesIds) {
    SCOPED_TRACE(algid);
    KeyHandle session;
    QUIV_ASSERT_SUCCEEDS(CryptGenKey(prov(), algid, CRYPT_EXPORTABLE, session.put()));
    const Bytes blob = ExportKey(session.get(), exchange.get(), SIMPLEBLOB);
    ASSERT_EQ(blob.size(), 12u + 128u);
    EXPECT_EQ(Hex(Bytes(blob.begin(), blob.begin() + 12)),
              Hex(Bytes{SIMPLEBLOB, 2, 0, 0, static_cast<uint8_t>(algid & 0xff),
                        static_cast<uint8_t>(algid >> 8), 0, 0, 0x00, 0xa4, 0, 0}));
    const KeyHandle imported = ImportKey(prov(), blob, exchange.get(), CRYPT_EXPORTABLE);
    ASSERT_NE(imported.get(), 0u);
    EXPECT_EQ(Hex(KeyMaterial(imported.get())), Hex(KeyMaterial(session.get())));
    const Bytes message = Pattern(50, 0x12);
    EXPECT_EQ(Hex(EncryptBytes(imported.get(), message, true)),
              Hex(EncryptBytes(session.get(), message, true)));
  }
}

// A private key wrapped under an AES session key: the header stays in clear and the rest is
// that key's CBC encryption with PKCS#5 padding to 16 bytes, which `openssl enc -d` undoes.
TEST_F(AesProviderTest, PrivateKeyBlobWrappedUnderAes) {
  KeyHandle pair;
  QUIV_ASSERT_SUCCEEDS(
      CryptGenKey(prov(), AT_KEYEXCHANGE, (1024u << 16) | CRYPT_EXPORTABLE, pair.put()));
  const Bytes plain = ExportKey(pair.get(), 0, PRIVATEKEYBLOB);
  ASSERT_EQ(plain.size(), 596u);
  const Bytes material = Pattern(32, 0xe0);
  const KeyHandle wrap = PlainKey(prov(), CALG_AES_256, material);
  const Bytes wrapped = ExportKey(pair.get(), wrap.get(), PRIVATEKEYBLOB);
  ASSERT_EQ(wrapped.size(), 8u + 592u);  // 588 body bytes padded to 592
  EXPECT_EQ(Hex(Bytes(wrapped.begin(), wrapped.begin() + 8)),
            Hex(Bytes(plain.begin(), plain.begin() + 8)));
  EXPECT_EQ(Hex(OpensslEnc("aes-256-cbc", Hex(material), std::string(32, '0'),
                           Bytes(wrapped.begin() + 8, wrapped.end()), {.decrypt = true})),
            Hex(Bytes(plain.begin() + 8, plain.end())));
  // Another context with the same AES key bytes unwraps it.
  const ProvHandle other = AesVerifyContext();
  const KeyHandle unwrap = PlainKey(other.get(), CALG_AES_256, material);
  const KeyHandle imported = ImportKey(other.get(), wrapped, unwrap.get(), CRYPT_EXPORTABLE);
  ASSERT_NE(imported.get(), 0u);
  EXPECT_EQ(Hex(ExportKey(imported.get(), 0, PRIVATEKEYBLOB)), Hex(plain));
}

// ---- key containers are shared with the PROV_RSA_FULL providers ----

TEST_F(AesProviderTest, ContainersAreSharedWithRsaFullProviders) {
  ProvHandle enhanced;
  QUIV_ASSERT_SUCCEEDS(CryptAcquireContextA(enhanced.put(), "shared", MS_ENHANCED_PROV_A,
                                            PROV_RSA_FULL, CRYPT_NEWKEYSET));
  KeyHandle signature;
  QUIV_ASSERT_SUCCEEDS(CryptGenKey(enhanced.get(), AT_SIGNATURE, 512u << 16, signature.put()));
  const Bytes signaturePublic = ExportKey(signature.get(), 0, PUBLICKEYBLOB);

  ProvHandle aes;
  QUIV_ASSERT_SUCCEEDS(
      CryptAcquireContextA(aes.put(), "SHARED", MS_ENH_RSA_AES_PROV_A, PROV_RSA_AES, 0));
  EXPECT_EQ(ProvName(aes.get()), MS_ENH_RSA_AES_PROV_A);
  KeyHandle fromAes;
  QUIV_ASSERT_SUCCEEDS(CryptGetUserKey(aes.get(), AT_SIGNATURE, fromAes.put()));
  EXPECT_EQ(Hex(ExportKey(fromAes.get(), 0, PUBLICKEYBLOB)), Hex(signaturePublic));
  // A SHA-256 signature made with the pair the Enhanced provider generated.
  const HashHandle hash = HashOf(aes.get(), CALG_SHA_256, Text("shared"));
  DWORD length = 64;
  Bytes sig(64);
  QUIV_EXPECT_SUCCEEDS(CryptSignHashA(hash.get(), AT_SIGNATURE, nullptr, 0, sig.data(), &length));

  KeyHandle exchange;
  QUIV_ASSERT_SUCCEEDS(CryptGenKey(aes.get(), AT_KEYEXCHANGE, 512u << 16, exchange.put()));
  ProvHandle strong;
  QUIV_ASSERT_SUCCEEDS(
      CryptAcquireContextA(strong.put(), "shared", MS_STRONG_PROV_A, PROV_RSA_FULL, 0));
  KeyHandle fromStrong;
  QUIV_ASSERT_SUCCEEDS(CryptGetUserKey(strong.get(), AT_KEYEXCHANGE, fromStrong.put()));
  EXPECT_EQ(Hex(ExportKey(fromStrong.get(), 0, PUBLICKEYBLOB)),
            Hex(ExportKey(exchange.get(), 0, PUBLICKEYBLOB)));

  HCRYPTPROV gone = 0;
  QUIV_ASSERT_SUCCEEDS(
      CryptAcquireContextA(&gone, "shared", nullptr, PROV_RSA_AES, CRYPT_DELETEKEYSET));
  QUIV_EXPECT_FAILS_WITH(
      CryptAcquireContextA(&gone, "shared", MS_ENHANCED_PROV_A, PROV_RSA_FULL, 0), NTE_BAD_KEYSET);
}

}  // namespace
}  // namespace quiv::test
