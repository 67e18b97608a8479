// HashObject: recorded Windows values (hash, MAC, HMAC), RFC 2202 HMAC-MD5/SHA-1, the state
// rules of CryptHashData / CryptGetHashParam / CryptSetHashParam, and `openssl enc` as the
// oracle for CBC-MAC.
#include "platform/HashObject.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <tuple>
#include <vector>

#include "platform/CspError.h"
#include "platform/ProviderInfo.h"
#include "platform/SymmetricKey.h"
#include "support/CapiCalls.h"
#include "support/OpensslEnc.h"
#include "support/PlatformTestHelpers.h"
#include "support/VectorFile.h"

namespace quiv::platform {
namespace {

using Bytes = std::vector<uint8_t>;
using test::VectorFile;
using test::WindowsVectors;

using test::Base;
using test::ByName;
using test::Code;
using test::Enhanced;
using test::ErrorOf;
using test::Strong;
Bytes H(std::string_view hex) {
  return VectorFile::DecodeHex(hex);
}
Bytes Ascii(std::string_view text) {
  return Bytes(text.begin(), text.end());
}
std::string HexOf(std::span<const uint8_t> bytes) {
  return VectorFile::EncodeHex(Bytes(bytes.begin(), bytes.end()));
}
const nlohmann::json& V(std::string_view id) {
  return WindowsVectors().Vector(id);
}

std::unique_ptr<HashObject> Plain(const ProviderInfo& p, ALG_ID algid) {
  return HashObject::Create(p, algid, nullptr, 0);
}

DWORD Dword(HashObject& hash, DWORD param) {
  DWORD value = 0;
  DWORD length = sizeof(value);
  hash.GetParam(param, reinterpret_cast<BYTE*>(&value), &length, 0);
  return value;
}

std::string Value(HashObject& hash) {
  DWORD length = 0;
  hash.GetParam(HP_HASHVAL, nullptr, &length, 0);
  Bytes out(length);
  hash.GetParam(HP_HASHVAL, out.data(), &length, 0);
  out.resize(length);
  return HexOf(out);
}

std::unique_ptr<SymmetricKey> HmacKey(const Bytes& key) {
  return SymmetricKey::FromKeyBytes(Base(), CALG_RC2, key, CRYPT_IPSEC_HMAC_KEY,
                                    SymmetricKey::Origin::PlaintextBlob);
}

void SetInfo(HashObject& hash, ALG_ID algid, Bytes* inner = nullptr, Bytes* outer = nullptr) {
  const HMAC_INFO info = test::HmacInfo(algid, inner, outer);
  hash.SetParam(HP_HMAC_INFO, reinterpret_cast<const BYTE*>(&info), 0);
}

std::string Hmac(ALG_ID algid, const Bytes& key, const Bytes& data) {
  auto k = HmacKey(key);
  auto hash = HashObject::Create(Base(), CALG_HMAC, k.get(), 0);
  SetInfo(*hash, algid);
  hash->HashData(data, 0);
  return Value(*hash);
}

// --- plain hashes -----------------------------------------------------------------------------

TEST(HashObjectTest, RecordedDigests) {
  const Bytes seq2048 = WindowsVectors().Shared("seq2048");
  for (const ProviderInfo* p : {&Base(), &Enhanced(), &Strong()}) {
    auto md2 = Plain(*p, CALG_MD2);
    md2->HashData(seq2048, 0);
    EXPECT_EQ(Dword(*md2, HP_HASHSIZE), 16u);
    EXPECT_EQ(Value(*md2), V("hash.md2.seq2048")["expected"]["HP_HASHVAL"].get<std::string>());

    for (const char* id : {"hash.md4.seq2048", "hash.md5.seq2048"}) {
      const auto& v = V(id);
      auto hash = Plain(*p, v["inputs"]["algid"]["value"].get<ALG_ID>());
      EXPECT_EQ(Dword(*hash, HP_HASHSIZE), 16u);
      EXPECT_EQ(ErrorOf([&] { hash->HashData(seq2048, 0xffffffff); }),
                v["expected"]["bad_flags_error"]["code"].get<uint32_t>());
      hash->HashData(seq2048, CRYPT_USERDATA);
      EXPECT_EQ(Value(*hash), v["expected"]["HP_HASHVAL"].get<std::string>());
    }

    const auto& dup = V("hash.sha1.seq2048.duplicate");
    auto sha = Plain(*p, CALG_SHA);
    sha->HashData(std::span(seq2048).first(5), CRYPT_USERDATA);
    auto copy = sha->Clone();
    copy->HashData(std::span(seq2048).subspan(5), 0);
    EXPECT_EQ(Dword(*copy, HP_HASHSIZE), 20u);
    EXPECT_EQ(Value(*copy), dup["expected"]["HP_HASHVAL"].get<std::string>());
    sha->HashData(std::span(seq2048).subspan(5, 10), 0);  // the original still takes data
  }
}

TEST(HashObjectTest, EmptyHashAndFinishedStateRecorded) {
  const auto& e = V("hash.md5.empty")["expected"];
  auto hash = Plain(Strong(), CALG_MD5);
  EXPECT_EQ(Value(*hash), e["HP_HASHVAL_first"].get<std::string>());
  EXPECT_EQ(Value(*hash), e["HP_HASHVAL_second"].get<std::string>());
  EXPECT_EQ(ErrorOf([&] { hash->HashData(Bytes(3, 1), 0); }),
            e["hashdata_after_read_error"]["code"].get<uint32_t>());
  EXPECT_EQ(Value(*hash), e["HP_HASHVAL_third"].get<std::string>());
}

TEST(HashObjectTest, Sha2AndNonHashesAreBadAlgid) {
  for (const ALG_ID algid : {CALG_SHA_256, CALG_SHA_384, CALG_SHA_512, CALG_RC2, CALG_TLS1PRF}) {
    EXPECT_EQ(ErrorOf([&] { Plain(Strong(), algid); }), Code(NTE_BAD_ALGID)) << algid;
  }
  EXPECT_EQ(ErrorOf([] { HashObject::Create(Strong(), CALG_MD5, nullptr, 1); }),
            Code(NTE_BAD_FLAGS));
}

TEST(HashObjectTest, SizeQueriesDoNotFinish) {
  auto hash = Plain(Base(), CALG_SHA1);
  DWORD length = 0;
  hash->GetParam(HP_HASHVAL, nullptr, &length, 0);
  EXPECT_EQ(length, 20u);
  BYTE small[4];
  length = sizeof(small);
  EXPECT_EQ(ErrorOf([&] { hash->GetParam(HP_HASHVAL, small, &length, 0); }), Code(ERROR_MORE_DATA));
  EXPECT_EQ(length, 20u);
  EXPECT_FALSE(hash->finished());
  hash->HashData(Ascii("abc"), 0);
  EXPECT_EQ(Value(*hash), "a9993e364706816aba3e25717850c26c9cd0d89d");  // FIPS 180-1
  EXPECT_TRUE(hash->finished());
}

TEST(HashObjectTest, ParameterErrors) {
  auto hash = Plain(Base(), CALG_MD5);
  BYTE buffer[32];
  DWORD length = sizeof(buffer);
  EXPECT_EQ(Dword(*hash, HP_ALGID), static_cast<DWORD>(CALG_MD5));
  EXPECT_EQ(ErrorOf([&] { hash->GetParam(HP_HASHVAL, buffer, nullptr, 0); }),
            Code(ERROR_INVALID_PARAMETER));
  EXPECT_EQ(ErrorOf([&] { hash->GetParam(HP_HASHVAL, buffer, &length, 1); }), Code(NTE_BAD_FLAGS));
  EXPECT_EQ(ErrorOf([&] { hash->GetParam(3, buffer, &length, 0); }), Code(NTE_BAD_TYPE));
  EXPECT_EQ(ErrorOf([&] { hash->SetParam(HP_HASHVAL, nullptr, 0); }),
            Code(ERROR_INVALID_PARAMETER));
  EXPECT_EQ(ErrorOf([&] { hash->SetParam(HP_HASHVAL, buffer, 1); }), Code(NTE_BAD_FLAGS));
  EXPECT_EQ(ErrorOf([&] { hash->SetParam(99, buffer, 0); }), Code(NTE_BAD_TYPE));
  EXPECT_EQ(ErrorOf([&] { hash->SetParam(HP_HMAC_INFO, buffer, 0); }), Code(NTE_BAD_TYPE));
  EXPECT_FALSE(hash->finished());
}

TEST(HashObjectTest, SetValueFinishes) {
  auto hash = Plain(Base(), CALG_MD5);
  const Bytes value = H("000102030405060708090a0b0c0d0e0f");
  hash->SetParam(HP_HASHVAL, value.data(), 0);
  EXPECT_EQ(Value(*hash), HexOf(value));
  EXPECT_EQ(ErrorOf([&] { hash->HashData(Bytes(1), 0); }), Code(NTE_BAD_HASH_STATE));
  EXPECT_EQ(HexOf(hash->Finish()), HexOf(value));
}

TEST(HashObjectTest, Ssl3ShaMd5IsSettableOnly) {
  auto hash = Plain(Base(), CALG_SSL3_SHAMD5);
  EXPECT_EQ(Dword(*hash, HP_HASHSIZE), 36u);
  EXPECT_EQ(ErrorOf([&] { hash->HashData(Bytes(4), 0); }), Code(NTE_BAD_ALGID));
  EXPECT_EQ(ErrorOf([&] { hash->Finish(); }), Code(NTE_BAD_HASH_STATE));
  Bytes value(36);
  for (size_t i = 0; i < value.size(); ++i) value[i] = static_cast<uint8_t>(i);
  hash->SetParam(HP_HASHVAL, value.data(), 0);
  EXPECT_EQ(HexOf(hash->Finish()), HexOf(value));
  EXPECT_EQ(ErrorOf([&] { hash->HashData(Bytes(4), 0); }), Code(NTE_BAD_ALGID));
}

TEST(HashObjectTest, DuplicateOfFinishedHashKeepsValue) {
  auto hash = Plain(Base(), CALG_MD4);
  hash->HashData(Ascii("abc"), 0);
  const std::string value = Value(*hash);
  EXPECT_EQ(value, "a448017aaf21d8525fc10ae87aa6729d");  // RFC 1320
  auto copy = hash->Clone();
  EXPECT_TRUE(copy->finished());
  EXPECT_EQ(Value(*copy), value);
  EXPECT_EQ(ErrorOf([&] { copy->HashData(Bytes(1), 0); }), Code(NTE_BAD_HASH_STATE));
}

TEST(HashObjectTest, SessionKeyBytesAreHashedReversedByDefault) {
  auto key = SymmetricKey::FromKeyBytes(Strong(), CALG_RC4, Ascii("abc\x01\x02"), 0,
                                        SymmetricKey::Origin::PlaintextBlob);
  auto reversed = Plain(Strong(), CALG_MD5);
  reversed->HashSessionKey(*key, 0);
  auto expected = Plain(Strong(), CALG_MD5);
  expected->HashData(Ascii("\x02\x01"
                           "cba"),
                     0);
  EXPECT_EQ(Value(*reversed), Value(*expected));
  auto stored = Plain(Strong(), CALG_MD5);
  stored->HashSessionKey(*key, CRYPT_LITTLE_ENDIAN);
  auto expectedStored = Plain(Strong(), CALG_MD5);
  expectedStored->HashData(Ascii("abc\x01\x02"), 0);
  EXPECT_EQ(Value(*stored), Value(*expectedStored));
  EXPECT_EQ(ErrorOf([&] { stored->HashSessionKey(*key, 0); }), Code(NTE_BAD_HASH_STATE));
  auto fresh = Plain(Strong(), CALG_MD5);
  EXPECT_EQ(ErrorOf([&] { fresh->HashSessionKey(*key, 2); }), Code(NTE_BAD_FLAGS));
}

TEST(HashObjectTest, DescriptionIsHashedAsUtf16LittleEndian) {
  auto hash = Plain(Strong(), CALG_SHA1);
  hash->HashDescription(u"ab\u20ac");
  auto expected = Plain(Strong(), CALG_SHA1);
  expected->HashData(H("61006200ac20"), 0);
  EXPECT_EQ(Value(*hash), Value(*expected));
}

// --- CALG_MAC ---------------------------------------------------------------------------------

TEST(HashObjectTest, MacRecorded) {
  const auto& v = V("mac.rc2_40.seq256");
  const Bytes seq256 = WindowsVectors().Shared("seq256");
  for (const ProviderInfo* p : {&Base(), &Enhanced(), &Strong()}) {
    auto base = Plain(*p, CALG_MD2);
    base->HashData(WindowsVectors().Shared("seq2000"), 0);
    auto key = SymmetricKey::Derive(*p, CALG_RC2, *base, v["inputs"]["derive_flags"].get<DWORD>());
    Bytes buffer = seq256;
    buffer.resize(264);
    DWORD length = 256;
    key->Encrypt(nullptr, true, 0, buffer.data(), &length, 264);
    EXPECT_EQ(length, v["expected"]["encrypt_256_final_length"].get<DWORD>());
    auto mac = HashObject::Create(*p, CALG_MAC, key.get(), 0);
    Bytes eight(8, 0);
    length = 8;
    key->Encrypt(nullptr, false, 0, eight.data(), &length, 8);  // does not disturb the MAC
    mac->HashData(seq256, 0);
    EXPECT_EQ(Dword(*mac, HP_HASHSIZE), 8u);
    EXPECT_EQ(Value(*mac), v["expected"]["HP_HASHVAL"].get<std::string>());
    EXPECT_EQ(ErrorOf([&] { mac->HashData(Bytes(1), 0); }),
              v["expected"]["hashdata_after_value_error"]["code"].get<uint32_t>());
    // The same data in pieces of 1, 1, 6, 9, ... bytes.
    auto pieces = HashObject::Create(*p, CALG_MAC, key.get(), 0);
    size_t at = 0;
    for (const size_t n : {1, 1, 6, 9, 100, 139}) {
      pieces->HashData(std::span(seq256).subspan(at, n), 0);
      at += n;
    }
    ASSERT_EQ(at, 256u);
    EXPECT_EQ(Value(*pieces), v["expected"]["HP_HASHVAL"].get<std::string>());
  }
}

TEST(HashObjectTest, MacIsLastCbcBlockWithPkcs5Padding) {
  const std::string k = "0123456789abcdef";
  auto key =
      SymmetricKey::FromKeyBytes(Base(), CALG_DES, H(k), 0, SymmetricKey::Origin::PlaintextBlob);
  for (const size_t n : {0, 5, 8, 20}) {
    const Bytes data(n, 0x4d);
    auto mac = HashObject::Create(Base(), CALG_MAC, key.get(), 0);
    mac->HashData(data, 0);
    const Bytes cbc = test::OpensslEnc("des-cbc", k, "0000000000000000", data);  // pads PKCS#5
    EXPECT_EQ(Value(*mac), HexOf(std::span(cbc).last(8))) << n;
  }
}

TEST(HashObjectTest, MacNeedsABlockCipherKey) {
  EXPECT_EQ(ErrorOf([] { HashObject::Create(Base(), CALG_MAC, nullptr, 0); }), Code(NTE_BAD_KEY));
  EXPECT_EQ(ErrorOf([] { HashObject::Create(Base(), CALG_HMAC, nullptr, 0); }), Code(NTE_BAD_KEY));
  auto base = Plain(Strong(), CALG_MD2);
  base->HashData(WindowsVectors().Shared("seq2000"), 0);
  auto rc4 = SymmetricKey::Derive(Strong(), CALG_RC4, *base,
                                  V("mac.rc4_key_rejected")["inputs"]["derive_flags"].get<DWORD>());
  EXPECT_EQ(ErrorOf([&] { HashObject::Create(Strong(), CALG_MAC, rc4.get(), 0); }),
            V("mac.rc4_key_rejected")["expected"]["error"]["code"].get<uint32_t>());
}

TEST(HashObjectTest, MacDuplicateContinuesIndependently) {
  auto key = SymmetricKey::FromKeyBytes(Base(), CALG_DES, H("0123456789abcdef"), 0,
                                        SymmetricKey::Origin::PlaintextBlob);
  auto mac = HashObject::Create(Base(), CALG_MAC, key.get(), 0);
  mac->HashData(Bytes(11, 1), 0);
  auto copy = mac->Clone();
  copy->HashData(Bytes(7, 2), 0);
  mac->HashData(Bytes(7, 2), 0);
  EXPECT_EQ(Value(*copy), Value(*mac));
}

// --- imported over-long RC2 key: MAC and HMAC with long caller strings ---------------------------

TEST(HashObjectTest, OverLongRc2MacAndHmacRecorded) {
  const auto& v = V("rc2import.simpleblob.136bits");
  const Bytes material = H(v["inputs"]["key_material"].get<std::string>());
  const size_t stringLength = v["inputs"]["hmac_inner_outer_strings"]["length_bytes"].get<size_t>();
  for (const std::string name : {"Base", "Enhanced", "Strong"}) {
    SCOPED_TRACE(name);
    const auto& e = v["expected_by_provider"][name];
    auto key = SymmetricKey::FromKeyBytes(ByName(name), CALG_RC2, material, 0,
                                          SymmetricKey::Origin::SimpleBlob);
    auto mac = HashObject::Create(ByName(name), CALG_MAC, key.get(), 0);
    mac->HashData(H("00"), 0);
    EXPECT_EQ(Dword(*mac, HP_HASHSIZE), v["expected"]["mac_HP_HASHSIZE"].get<DWORD>());
    EXPECT_EQ(Value(*mac), e["mac"].get<std::string>());

    auto hmac = HashObject::Create(ByName(name), CALG_HMAC, key.get(), 0);
    Bytes inner(stringLength, 0);
    Bytes outer(stringLength, 0);
    SetInfo(*hmac, CALG_MD5, &inner, &outer);
    hmac->HashData(H("00"), 0);
    EXPECT_EQ(Dword(*hmac, HP_HASHSIZE), v["expected"]["hmac_HP_HASHSIZE"].get<DWORD>());
    EXPECT_EQ(Value(*hmac), e["hmac_md5"].get<std::string>());
  }
}

// --- CALG_HMAC --------------------------------------------------------------------------------

TEST(HashObjectTest, Rfc2202) {
  Bytes key25;
  for (uint8_t i = 1; i <= 25; ++i) key25.push_back(i);
  const std::vector<std::tuple<Bytes, Bytes, Bytes, const char*, const char*>> cases = {
      {Bytes(16, 0x0b), Bytes(20, 0x0b), Ascii("Hi There"), "9294727a3638bb1c13f48ef8158bfc9d",
       "b617318655057264e28bc0b6fb378c8ef146be00"},
      {Ascii("Jefe"), Ascii("Jefe"), Ascii("what do ya want for nothing?"),
       "750c783e6ab0b503eaa86e310a5db738", "effcdf6ae5eb2fa2d27416d5f184df9c259a7c79"},
      {Bytes(16, 0xaa), Bytes(20, 0xaa), Bytes(50, 0xdd), "56be34521d144c88dbb8c733f0e8b3f6",
       "125d7342b9ac11cd91a39af48aa17b4f63f175d3"},
      {key25, key25, Bytes(50, 0xcd), "697eaf0aca3a3aea3a75164746ffaa79",
       "4c9007f4026250c6bc8414f9bf50c86c2d7235da"},
      {Bytes(16, 0x0c), Bytes(20, 0x0c), Ascii("Test With Truncation"),
       "56461ef2342edc00f9bab995690efd4c", "4c1a03424b55e07fe7f27be1d58bb9324a9a5a04"},
      {Bytes(80, 0xaa), Bytes(80, 0xaa),
       Ascii("Test Using Larger Than Block-Size Key - Hash Key First"),
       "6b1ab7fe4bd7bf8f0b62e6ce61b9d0cd", "aa4ae5e15272d00e95705637ce8a3b55ed402112"},
      {Bytes(80, 0xaa), Bytes(80, 0xaa),
       Ascii("Test Using Larger Than Block-Size Key and Larger Than One Block-Size Data"),
       "6f630fad67cda0ee1fb1f562db3aa53e", "e8e99d0f45237d786d6bbaa7965c7808bbff1a91"},
  };
  for (const auto& [md5Key, shaKey, data, md5, sha1] : cases) {
    EXPECT_EQ(Hmac(CALG_MD5, md5Key, data), md5);
    EXPECT_EQ(Hmac(CALG_SHA1, shaKey, data), sha1);
  }
}

TEST(HashObjectTest, Rfc2202Recorded) {
  for (const char* id :
       {"hmac.sha1.rfc2202.case1", "hmac.sha1.rfc2202.case2", "hmac.sha1.rfc2202.case3"}) {
    const auto& v = V(id);
    EXPECT_EQ(Hmac(CALG_SHA1, H(v["inputs"]["key"].get<std::string>()),
                   H(v["inputs"]["data"].get<std::string>())),
              v["expected"]["HP_HASHVAL"].get<std::string>());
  }
}

TEST(HashObjectTest, HmacWithSessionKeyUsesItsKeyBytes) {
  // A 56-bit RC2 session key: HMAC-MD5 equals standard HMAC keyed with its 7 key bytes.
  auto key = SymmetricKey::FromKeyBytes(Strong(), CALG_RC2, H("01020304050607"), 0,
                                        SymmetricKey::Origin::PlaintextBlob);
  auto hash = HashObject::Create(Strong(), CALG_HMAC, key.get(), 0);
  SetInfo(*hash, CALG_MD5);
  hash->HashData(Ascii("Hi There"), 0);
  EXPECT_EQ(Value(*hash), Hmac(CALG_MD5, H("01020304050607"), Ascii("Hi There")));
}

TEST(HashObjectTest, HmacInfoRestartsAndSizes) {
  auto key = HmacKey(Ascii("Jefe"));
  auto hash = HashObject::Create(Base(), CALG_HMAC, key.get(), 0);
  EXPECT_EQ(ErrorOf([&] { hash->HashData(Bytes(3), 0); }), Code(NTE_BAD_HASH_STATE));
  SetInfo(*hash, CALG_SHA1);
  EXPECT_EQ(Dword(*hash, HP_HASHSIZE), 20u);
  hash->HashData(Ascii("garbage"), 0);
  SetInfo(*hash, CALG_MD5);  // restarts
  EXPECT_EQ(Dword(*hash, HP_HASHSIZE), 16u);
  hash->HashData(Ascii("what do ya want for nothing?"), 0);
  EXPECT_EQ(Value(*hash), "750c783e6ab0b503eaa86e310a5db738");
  HMAC_INFO bad{};
  bad.HashAlgid = CALG_SHA_256;
  EXPECT_EQ(ErrorOf([&] { hash->SetParam(HP_HMAC_INFO, reinterpret_cast<const BYTE*>(&bad), 0); }),
            Code(NTE_BAD_ALGID));
}

TEST(HashObjectTest, HmacDuplicateContinues) {
  auto key = HmacKey(Bytes(20, 0x0b));
  auto hash = HashObject::Create(Base(), CALG_HMAC, key.get(), 0);
  SetInfo(*hash, CALG_SHA1);
  hash->HashData(Ascii("Hi "), 0);
  auto copy = hash->Clone();
  copy->HashData(Ascii("There"), 0);
  EXPECT_EQ(Value(*copy), "b617318655057264e28bc0b6fb378c8ef146be00");
}

// --- the AES provider -------------------------------------------------------------------------

// RFC 4231 test case 2 ("Jefe") with SHA-384 and SHA-512, whose pads are 128 bytes.
TEST(HashObjectTest, Rfc4231WithSha2InTheAesProvider) {
  const ProviderInfo& aes = ProviderInfo::Of(ProviderKind::Aes);
  auto key = SymmetricKey::FromKeyBytes(aes, CALG_RC2, Ascii("Jefe"), CRYPT_IPSEC_HMAC_KEY,
                                        SymmetricKey::Origin::PlaintextBlob);
  const std::pair<ALG_ID, const char*> cases[] = {
      {CALG_SHA_256, "5bdcc146bf60754e6a042426089575c75a003f089d2739839dec58b964ec3843"},
      {CALG_SHA_384,
       "af45d2e376484031617f78d2b58a6b1b9c7ef464f5a01b47e42ec3736322445e8e2240ca5e69e2c78b3239ec"
       "fab21649"},
      {CALG_SHA_512,
       "164b7a7bfcf819e2e395fbe73b56e0a387bd64222e831fd610270cd7ea2505549758bf75c05a994a6d034f65"
       "f8f0e6fdcaeab1a34d4a6b4b636e070a38bce737"}};
  for (const auto& [algid, expected] : cases) {
    auto hash = HashObject::Create(aes, CALG_HMAC, key.get(), 0);
    SetInfo(*hash, algid);
    EXPECT_EQ(hash->digestAlgid(), algid);
    EXPECT_EQ(Dword(*hash, HP_HASHSIZE), std::string(expected).size() / 2);
    hash->HashData(Ascii("what do ya want for nothing?"), 0);
    EXPECT_EQ(Value(*hash), expected);
  }
}

TEST(HashObjectTest, MacWithAesKeyHasSixteenBytes) {
  const ProviderInfo& aes = ProviderInfo::Of(ProviderKind::Aes);
  auto key = SymmetricKey::FromKeyBytes(aes, CALG_AES_128, H("2b7e151628aed2a6abf7158809cf4f3c"), 0,
                                        SymmetricKey::Origin::PlaintextBlob);
  auto mac = HashObject::Create(aes, CALG_MAC, key.get(), 0);
  EXPECT_EQ(Dword(*mac, HP_HASHSIZE), 16u);
  // One whole block plus the padding block: CBC of SP 800-38A F.2.1's first block under a zero
  // IV, then 16 bytes of 0x10.
  mac->HashData(H("6bc1bee22e409f96e93d7e117393172a"), 0);
  const std::string value = Value(*mac);
  EXPECT_EQ(value.size(), 32u);
  auto check = SymmetricKey::FromKeyBytes(aes, CALG_AES_128, H("2b7e151628aed2a6abf7158809cf4f3c"),
                                          0, SymmetricKey::Origin::PlaintextBlob);
  Bytes data = H("6bc1bee22e409f96e93d7e117393172a");
  DWORD length = 16;
  data.resize(32);
  check->Encrypt(nullptr, true, 0, data.data(), &length, 32);
  EXPECT_EQ(value, HexOf(Bytes(data.begin() + 16, data.end())));
}

}  // namespace
}  // namespace quiv::platform
