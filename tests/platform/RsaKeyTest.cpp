// RsaKey: generation, blob import/export, parameters, signatures and RSA encryption, checked
// against the recorded Windows values (tests/vectors/windows-csp.json) and against independent
// big-number arithmetic (OpenSSL BIGNUM in the test, not the code under test).
#include "platform/RsaKey.h"

#include <gtest/gtest.h>
#include <openssl/bn.h>

#include <algorithm>
#include <string>
#include <vector>

#include "platform/CspError.h"
#include "platform/HashObject.h"
#include "platform/ProviderInfo.h"
#include "support/PlatformTestHelpers.h"

namespace quiv::platform {
namespace {

using Bytes = std::vector<uint8_t>;
using test::Base;
using test::Code;
using test::Enhanced;
using test::ErrorOf;
using test::FromHex;
using test::Shared;
using test::SharedPair;
using test::Strong;
using test::ToBytes;
using test::Vector;

DWORD GetDword(const RsaKey& key, DWORD param) {
  DWORD value = 0;
  DWORD length = sizeof value;
  key.GetParam(param, reinterpret_cast<BYTE*>(&value), &length, 0);
  EXPECT_EQ(length, 4u);
  return value;
}

std::unique_ptr<HashObject> HashOf(ALG_ID algid, const Bytes& data) {
  auto hash = HashObject::Create(Enhanced(), algid, nullptr, 0);
  hash->HashData(data, 0);
  return hash;
}

// Independent arithmetic: value^exponent mod modulus on little-endian inputs, big-endian out.
Bytes ModExpBigEndian(const Bytes& littleEndianValue, const Bytes& littleEndianModulus,
                      unsigned long exponent) {
  BIGNUM* v =
      BN_lebin2bn(littleEndianValue.data(), static_cast<int>(littleEndianValue.size()), nullptr);
  BIGNUM* n = BN_lebin2bn(littleEndianModulus.data(), static_cast<int>(littleEndianModulus.size()),
                          nullptr);
  BIGNUM* e = BN_new();
  BN_set_word(e, exponent);
  BIGNUM* r = BN_new();
  BN_CTX* ctx = BN_CTX_new();
  BN_mod_exp(r, v, e, n, ctx);
  Bytes out(littleEndianModulus.size());
  BN_bn2binpad(r, out.data(), static_cast<int>(out.size()));
  BN_free(v);
  BN_free(n);
  BN_free(e);
  BN_free(r);
  BN_CTX_free(ctx);
  return out;
}

Bytes ModulusOf(const RsaKey& key) {
  const Bytes pub = key.ExportPublicBlob();
  return Bytes(pub.begin() + 20, pub.end());
}

const Bytes kWineRocks = {'W', 'i', 'n', 'e', ' ', 'r', 'o', 'c', 'k', 's', '!', 0};

// ---- generation ----

TEST(RsaKeyTest, GenerateUsesProviderDefaultLengths) {
  EXPECT_EQ(RsaKey::Generate(Base(), AT_KEYEXCHANGE, 0)->BitLength(), 512u);
  EXPECT_EQ(RsaKey::Generate(Base(), AT_SIGNATURE, 0)->BitLength(), 512u);
  EXPECT_EQ(RsaKey::Generate(Enhanced(), CALG_RSA_KEYX, 0)->BitLength(), 1024u);
  EXPECT_EQ(RsaKey::Generate(Strong(), CALG_RSA_SIGN, 0)->BitLength(), 1024u);
}

TEST(RsaKeyTest, GenerateMapsKeySpecToAlgorithmAndReportsParams) {
  auto keyx = RsaKey::Generate(Enhanced(), AT_KEYEXCHANGE, 512u << 16);
  auto sign = RsaKey::Generate(Enhanced(), AT_SIGNATURE, 512u << 16);
  EXPECT_EQ(GetDword(*keyx, KP_ALGID), static_cast<DWORD>(CALG_RSA_KEYX));
  EXPECT_EQ(GetDword(*sign, KP_ALGID), static_cast<DWORD>(CALG_RSA_SIGN));
  EXPECT_EQ(GetDword(*keyx, KP_KEYLEN), 512u);
  EXPECT_EQ(GetDword(*keyx, KP_BLOCKLEN), 512u);
  EXPECT_EQ(GetDword(*keyx, KP_PERMISSIONS), 0x3Bu);
  auto exportable = RsaKey::Generate(Enhanced(), AT_SIGNATURE, (512u << 16) | CRYPT_EXPORTABLE);
  EXPECT_EQ(GetDword(*exportable, KP_PERMISSIONS), 0x3Fu);
}

// The generated pair is a real RSA key with e = 65537 and the CRT values CryptoAPI stores.
void ExpectConsistentPair(const Bytes& blob, DWORD bits) {
  const size_t b = (bits + 7) / 8, h = (bits + 15) / 16;
  ASSERT_EQ(blob.size(), 20 + 2 * b + 5 * h);
  const uint8_t* f = blob.data() + 20;
  auto bn = [](const uint8_t* p, size_t n) { return BN_lebin2bn(p, static_cast<int>(n), nullptr); };
  BIGNUM *n = bn(f, b), *p = bn(f + b, h), *q = bn(f + b + h, h), *dp = bn(f + b + 2 * h, h),
         *dq = bn(f + b + 3 * h, h), *qi = bn(f + b + 4 * h, h), *d = bn(f + b + 5 * h, b);
  BN_CTX* ctx = BN_CTX_new();
  BIGNUM *t = BN_new(), *one = BN_new(), *pm1 = BN_new(), *qm1 = BN_new(), *e = BN_new();
  BN_one(one);
  BN_set_word(e, 65537);
  BN_mul(t, p, q, ctx);
  EXPECT_EQ(BN_cmp(t, n), 0);
  EXPECT_EQ(BN_num_bits(n), static_cast<int>(bits));
  BN_sub(pm1, p, one);
  BN_sub(qm1, q, one);
  BN_mod(t, d, pm1, ctx);
  EXPECT_EQ(BN_cmp(t, dp), 0);
  BN_mod(t, d, qm1, ctx);
  EXPECT_EQ(BN_cmp(t, dq), 0);
  BN_mod_mul(t, qi, q, p, ctx);
  EXPECT_TRUE(BN_is_one(t));
  BN_mod_mul(t, e, dp, pm1, ctx);  // e * dP = 1 mod (p-1)
  EXPECT_TRUE(BN_is_one(t));
  for (BIGNUM* x : {n, p, q, dp, dq, qi, d, t, one, pm1, qm1, e}) BN_free(x);
  BN_CTX_free(ctx);
}

TEST(RsaKeyTest, GeneratedPairsAreConsistentIncludingBelowOpensslMinimum) {
  for (DWORD bits : {384u, 392u, 512u, 520u, 1024u}) {
    SCOPED_TRACE(bits);
    auto key = RsaKey::Generate(Enhanced(), AT_SIGNATURE, (bits << 16) | CRYPT_EXPORTABLE);
    const SecureBytes blob = key->ExportPrivateBlob(nullptr);
    EXPECT_EQ(blob[16] | (blob[17] << 8) | (blob[18] << 16), 65537);
    ExpectConsistentPair(ToBytes(blob), bits);
  }
}

// Loading a stored pair runs OpenSSL's RSA key check: pairs made by the Windows providers and by
// ours pass it, and come back exactly as they were stored.
TEST(RsaKeyTest, RecordedAndGeneratedPairsPassTheCheckOnLoad) {
  std::vector<std::unique_ptr<RsaKey>> pairs;
  for (const char* name : {"rsa512_sign_private", "rsa512_keyx_private", "rsa1024_keyx_private",
                           "rsa1024_sign_private_highbit"}) {
    pairs.push_back(SharedPair(name, CRYPT_EXPORTABLE));
  }
  for (const DWORD bits : {384u, 1024u}) {
    pairs.push_back(RsaKey::Generate(Strong(), AT_KEYEXCHANGE, (bits << 16) | CRYPT_EXPORTABLE));
  }
  for (const auto& pair : pairs) {
    const SecureBytes stored = pair->StoredForm();
    const auto loaded = RsaKey::FromStoredForm(Strong(), stored);
    EXPECT_EQ(loaded->StoredForm(), stored);
  }
}

TEST(RsaKeyTest, GenerateRejectsLengthOutsideProviderRange) {
  EXPECT_EQ(ErrorOf([] { RsaKey::Generate(Enhanced(), AT_SIGNATURE, 376u << 16); }),
            Code(NTE_BAD_DATA));
  EXPECT_EQ(ErrorOf([] { RsaKey::Generate(Enhanced(), AT_SIGNATURE, 516u << 16); }),
            Code(NTE_BAD_DATA));
  // Base: exchange keys stop at 1024 bits, signature keys do not.
  EXPECT_EQ(ErrorOf([] { RsaKey::Generate(Base(), AT_KEYEXCHANGE, 1032u << 16); }),
            Code(NTE_BAD_DATA));
  EXPECT_EQ(RsaKey::Generate(Base(), AT_SIGNATURE, 1032u << 16)->BitLength(), 1032u);
}

TEST(RsaKeyTest, GenerateRejectsNonRsaAlgorithm) {
  EXPECT_EQ(ErrorOf([] { RsaKey::Generate(Enhanced(), CALG_RC4, 0); }), Code(NTE_BAD_ALGID));
  EXPECT_EQ(ErrorOf([] { RsaKey::Generate(Enhanced(), 3, 0); }), Code(NTE_BAD_ALGID));
}

// ---- exportability and permissions ----

TEST(RsaKeyTest, NonExportablePairRefusesPrivateExportButGivesPublic) {
  auto key = RsaKey::Generate(Enhanced(), AT_KEYEXCHANGE, 512u << 16);
  EXPECT_EQ(ErrorOf([&] { key->ExportPrivateBlob(nullptr); }), Code(NTE_BAD_KEY_STATE));
  EXPECT_EQ(ErrorOf([&] { key->ExportPrivateBlobSize(nullptr); }), Code(NTE_BAD_KEY_STATE));
  EXPECT_EQ(key->ExportPublicBlob().size(), 84u);
}

TEST(RsaKeyTest, ExportPermissionCannotBeAddedLater) {
  auto key = RsaKey::Generate(Enhanced(), AT_KEYEXCHANGE, 512u << 16);
  const DWORD withExport = 0x3F;
  EXPECT_EQ(ErrorOf([&] {
              key->SetParam(KP_PERMISSIONS, reinterpret_cast<const BYTE*>(&withExport), 0);
            }),
            Code(NTE_BAD_DATA));
  EXPECT_EQ(GetDword(*key, KP_PERMISSIONS), 0x3Bu);
}

TEST(RsaKeyTest, ClearingExportPermissionLeavesKeyExportable) {
  auto key = RsaKey::Generate(Enhanced(), AT_KEYEXCHANGE, (512u << 16) | CRYPT_EXPORTABLE);
  const DWORD withoutExport = 0x3B;
  key->SetParam(KP_PERMISSIONS, reinterpret_cast<const BYTE*>(&withoutExport), 0);
  EXPECT_EQ(GetDword(*key, KP_PERMISSIONS), 0x3Fu);
  EXPECT_EQ(key->ExportPrivateBlob(nullptr).size(), 308u);
}

// ---- parameters ----

TEST(RsaKeyTest, GetParamSizeRules) {
  auto key = RsaKey::ImportPublicBlob(Enhanced(), Shared("rsa512_keyx_public"), 0);
  DWORD length = 0;
  key->GetParam(KP_KEYLEN, nullptr, &length, 0);
  EXPECT_EQ(length, 4u);
  BYTE small[2] = {0xAA, 0xAA};
  length = 2;
  EXPECT_EQ(ErrorOf([&] { key->GetParam(KP_KEYLEN, small, &length, 0); }), Code(ERROR_MORE_DATA));
  EXPECT_EQ(length, 4u);
  EXPECT_EQ(small[0], 0xAA);
  EXPECT_EQ(ErrorOf([&] { key->GetParam(KP_KEYLEN, small, nullptr, 0); }),
            Code(ERROR_INVALID_PARAMETER));
}

TEST(RsaKeyTest, SaltOfRsaKeyIsBadKey) {
  auto key = RsaKey::ImportPublicBlob(Enhanced(), Shared("rsa512_keyx_public"), 0);
  BYTE buffer[64];
  DWORD length = sizeof buffer;
  EXPECT_EQ(ErrorOf([&] { key->GetParam(KP_SALT, buffer, &length, 0); }), Code(NTE_BAD_KEY));
}

TEST(RsaKeyTest, UnknownParamAndFlagsRejected) {
  auto key = RsaKey::ImportPublicBlob(Enhanced(), Shared("rsa512_keyx_public"), 0);
  BYTE buffer[64] = {};
  DWORD length = sizeof buffer;
  EXPECT_EQ(ErrorOf([&] { key->GetParam(999, buffer, &length, 0); }), Code(NTE_BAD_TYPE));
  EXPECT_EQ(ErrorOf([&] { key->GetParam(KP_ALGID, buffer, &length, 1); }), Code(NTE_BAD_FLAGS));
  EXPECT_EQ(ErrorOf([&] { key->SetParam(999, buffer, 0); }), Code(NTE_BAD_TYPE));
  EXPECT_EQ(ErrorOf([&] { key->SetParam(KP_PERMISSIONS, nullptr, 0); }),
            Code(ERROR_INVALID_PARAMETER));
  EXPECT_EQ(ErrorOf([&] { key->SetParam(KP_PERMISSIONS, buffer, 2); }), Code(NTE_BAD_FLAGS));
}

// ---- recorded Windows blobs ----

TEST(RsaKeyTest, PublicKeyWithAll0x11ModulusRoundTrips) {
  const auto& v = Vector("rsa.public512_0x11.import_export");
  const Bytes blob = Shared("rsa512_public_all_0x11");
  auto key = RsaKey::ImportPublicBlob(Enhanced(), blob, 0);
  EXPECT_EQ(GetDword(*key, KP_ALGID), v["expected"]["KP_ALGID"].get<DWORD>());
  EXPECT_EQ(GetDword(*key, KP_PERMISSIONS), v["expected"]["KP_PERMISSIONS"].get<DWORD>());
  const Bytes exported = key->ExportPublicBlob();
  EXPECT_EQ(exported.size(), v["expected"]["export_length"].get<size_t>());
  EXPECT_EQ(exported, blob);
  EXPECT_FALSE(key->HasPrivate());
}

TEST(RsaKeyTest, PrivateKeyWithZeroTopBytesRoundTripsExactly) {
  const auto& v = Vector("rsa.sign1024_highbit.private_roundtrip");
  const Bytes blob = Shared("rsa1024_sign_private_highbit");
  for (const ProviderInfo* provider : {&Base(), &Enhanced(), &Strong()}) {
    auto key = RsaKey::ImportPrivateBlob(*provider, blob, v["inputs"]["import_flags"].get<DWORD>(),
                                         nullptr);
    EXPECT_EQ(key->algid(), static_cast<ALG_ID>(CALG_RSA_SIGN));
    EXPECT_EQ(key->ExportPrivateBlobSize(nullptr), v["expected"]["export_length"].get<size_t>());
    EXPECT_EQ(ToBytes(key->ExportPrivateBlob(nullptr)), blob);
  }
}

TEST(RsaKeyTest, KeyExchangePrivateBlobImportsAndGivesItsPublicBlob) {
  const Bytes blob = Shared("rsa1024_keyx_private");
  for (const ProviderInfo* provider : {&Base(), &Enhanced(), &Strong()}) {
    auto key = RsaKey::ImportPrivateBlob(*provider, blob, 0, nullptr);
    EXPECT_EQ(key->algid(), static_cast<ALG_ID>(CALG_RSA_KEYX));  // the AT_KEYEXCHANGE slot
    EXPECT_TRUE(key->HasPrivate());
    EXPECT_EQ(key->ExportPublicBlob(), Shared("rsa1024_keyx_public_derived"));
    EXPECT_EQ(ErrorOf([&] { key->ExportPrivateBlob(nullptr); }), Code(NTE_BAD_KEY_STATE));
  }
  auto small = SharedPair("rsa512_keyx_private");
  EXPECT_EQ(small->ExportPublicBlob(), Shared("rsa512_keyx_public"));
}

TEST(RsaKeyTest, PrivateExponentMayBeCutShort) {
  const Bytes blob = Shared("rsa1024_sign_private_highbit");
  const size_t fixed = 20 + 128 + 5 * 64;  // everything but d
  for (size_t length = fixed; length <= blob.size(); ++length) {
    const Bytes cut(blob.begin(), blob.begin() + static_cast<ptrdiff_t>(length));
    auto key = RsaKey::ImportPrivateBlob(Enhanced(), cut, CRYPT_EXPORTABLE, nullptr);
    const Bytes exported = ToBytes(key->ExportPrivateBlob(nullptr));
    ASSERT_EQ(exported.size(), blob.size());
    EXPECT_TRUE(std::equal(cut.begin(), cut.end(), exported.begin()));
    EXPECT_TRUE(std::all_of(exported.begin() + static_cast<ptrdiff_t>(length), exported.end(),
                            [](uint8_t b) { return b == 0; }));
  }
  const Bytes tooShort(blob.begin(), blob.begin() + static_cast<ptrdiff_t>(fixed - 1));
  EXPECT_EQ(ErrorOf([&] { RsaKey::ImportPrivateBlob(Enhanced(), tooShort, 0, nullptr); }),
            Code(NTE_BAD_DATA));
}

TEST(RsaKeyTest, CutShortKeyStillSignsThroughCrt) {
  // Windows accepts every length from 20 + bitlen/2 bytes; the CRT values carry the key.
  Bytes blob = Shared("rsa512_sign_private");
  const Bytes full = blob;
  blob.resize(20 + 64 + 5 * 32 + 32);
  auto cut = RsaKey::ImportPrivateBlob(Enhanced(), blob, 0, nullptr);
  auto whole = RsaKey::ImportPrivateBlob(Enhanced(), full, 0, nullptr);
  Bytes a(64), b(64);
  DWORD la = 64, lb = 64;
  cut->Sign(*HashOf(CALG_SHA1, kWineRocks), nullptr, 0, a.data(), &la);
  whole->Sign(*HashOf(CALG_SHA1, kWineRocks), nullptr, 0, b.data(), &lb);
  EXPECT_EQ(a, b);
}

TEST(RsaKeyTest, ImportRejectsMalformedBlobs) {
  Bytes pub = Shared("rsa512_keyx_public");
  EXPECT_EQ(ErrorOf([&] {
              RsaKey::ImportPublicBlob(Enhanced(), Bytes(pub.begin(), pub.begin() + 19), 0);
            }),
            Code(NTE_BAD_DATA));
  EXPECT_EQ(
      ErrorOf([&] { RsaKey::ImportPublicBlob(Enhanced(), Bytes(pub.begin(), pub.end() - 1), 0); }),
      Code(NTE_BAD_DATA));
  Bytes badMagic = pub;
  badMagic[11] = '2';  // "RSA2" in a public blob
  EXPECT_EQ(ErrorOf([&] { RsaKey::ImportPublicBlob(Enhanced(), badMagic, 0); }),
            Code(NTE_BAD_DATA));
  Bytes badVersion = pub;
  badVersion[1] = 3;
  EXPECT_EQ(ErrorOf([&] { RsaKey::ImportPublicBlob(Enhanced(), badVersion, 0); }),
            Code(NTE_BAD_DATA));
  Bytes badAlg = pub;
  badAlg[4] = 0x01;
  badAlg[5] = 0x68;  // CALG_RC4
  EXPECT_EQ(ErrorOf([&] { RsaKey::ImportPublicBlob(Enhanced(), badAlg, 0); }), Code(NTE_BAD_ALGID));
  Bytes priv = Shared("rsa512_sign_private");
  priv[11] = '1';  // "RSA1" in a private blob
  EXPECT_EQ(ErrorOf([&] { RsaKey::ImportPrivateBlob(Enhanced(), priv, 0, nullptr); }),
            Code(NTE_BAD_DATA));
  EXPECT_EQ(ErrorOf([&] {
              RsaKey::ImportPrivateBlob(Enhanced(), Bytes(priv.begin(), priv.begin() + 19), 0,
                                        nullptr);
            }),
            Code(NTE_BAD_DATA));
}

TEST(RsaKeyTest, TrailingBytesAfterPublicBlobAreIgnored) {
  Bytes pub = Shared("rsa512_keyx_public");
  Bytes longer = pub;
  longer.insert(longer.end(), 8, 0xEE);
  EXPECT_EQ(RsaKey::ImportPublicBlob(Enhanced(), longer, 0)->ExportPublicBlob(), pub);
}

TEST(RsaKeyTest, BaseRefusesExchangePairLongerThanItsMaximum) {
  auto big = RsaKey::Generate(Enhanced(), AT_KEYEXCHANGE, (1536u << 16) | CRYPT_EXPORTABLE);
  const SecureBytes blob = big->ExportPrivateBlob(nullptr);
  EXPECT_EQ(ErrorOf([&] { RsaKey::ImportPrivateBlob(Base(), blob, 0, nullptr); }),
            Code(NTE_BAD_DATA));
  EXPECT_NO_THROW(RsaKey::ImportPrivateBlob(Enhanced(), blob, 0, nullptr));
}

// ---- signatures: recorded Windows values ----

TEST(RsaKeyTest, VerifiesWindowsMd5SignatureWithDigestInfo) {
  const auto& v = Vector("sig.verify.md5.with_oid");
  auto key = RsaKey::ImportPublicBlob(Enhanced(), Shared("rsa1024_sign_public"), 0);
  const Bytes data = FromHex(v["inputs"]["data"]);
  const Bytes sig = FromHex(v["inputs"]["signature"]);
  auto hash = HashOf(CALG_MD5, data);
  EXPECT_NO_THROW(key->Verify(*hash, sig.data(), static_cast<DWORD>(sig.size()), nullptr,
                              v["inputs"]["flags"].get<DWORD>()));
  EXPECT_EQ(ToBytes(hash->Finish()), FromHex(v["expected"]["digest (derived)"]));
}

TEST(RsaKeyTest, VerifiesWindowsMd5SignatureWithoutDigestInfoUnderBothFlags) {
  const auto& v = Vector("sig.verify.md5.without_oid");
  auto key = RsaKey::ImportPublicBlob(Enhanced(), Shared("rsa1024_sign_public"), 0);
  const Bytes data = FromHex(v["inputs"]["data"]);
  const Bytes sig = FromHex(v["inputs"]["signature"]);
  for (DWORD flags : {0u, static_cast<DWORD>(CRYPT_NOHASHOID)}) {
    auto hash = HashOf(CALG_MD5, data);
    EXPECT_NO_THROW(key->Verify(*hash, sig.data(), static_cast<DWORD>(sig.size()), nullptr, flags));
  }
}

TEST(RsaKeyTest, VerifyChecksLengthBeforePointer) {
  const auto& v = Vector("sig.verify.bad_inputs");
  auto key = RsaKey::ImportPublicBlob(Enhanced(), Shared("rsa1024_sign_public"), 0);
  const Bytes data = FromHex(v["inputs"]["data"]);
  const Bytes sig = FromHex(Vector("sig.verify.md5.with_oid")["inputs"]["signature"]);
  EXPECT_EQ(ErrorOf([&] { key->Verify(*HashOf(CALG_MD2, data), nullptr, 128, nullptr, 0); }),
            v["expected"]["null_signature_error"]["code"].get<uint32_t>());
  EXPECT_EQ(ErrorOf([&] {
              key->Verify(*HashOf(CALG_MD2, data), sig.data(),
                          v["inputs"]["short_length"].get<DWORD>(), nullptr, 0);
            }),
            v["expected"]["short_signature_error"]["code"].get<uint32_t>());
  EXPECT_EQ(ErrorOf([&] { key->Verify(*HashOf(CALG_MD2, data), nullptr, 64, nullptr, 0); }),
            Code(NTE_BAD_SIGNATURE));
  EXPECT_EQ(ErrorOf([&] { key->Verify(*HashOf(CALG_MD2, data), sig.data(), 0, nullptr, 0); }),
            Code(NTE_BAD_SIGNATURE));
}

TEST(RsaKeyTest, VerifyRejectsOtherDataAndBadFlags) {
  const auto& v = Vector("sig.verify.md5.with_oid");
  auto key = RsaKey::ImportPublicBlob(Enhanced(), Shared("rsa1024_sign_public"), 0);
  const Bytes sig = FromHex(v["inputs"]["signature"]);
  Bytes other = FromHex(v["inputs"]["data"]);
  other[0] ^= 1;
  EXPECT_EQ(ErrorOf([&] { key->Verify(*HashOf(CALG_MD5, other), sig.data(), 128, nullptr, 0); }),
            Code(NTE_BAD_SIGNATURE));
  EXPECT_EQ(ErrorOf([&] { key->Verify(*HashOf(CALG_MD5, other), sig.data(), 128, nullptr, 2); }),
            Code(NTE_BAD_FLAGS));
}

// ---- signatures: block format, checked by raising to e outside the code under test ----

Bytes SignWith(const RsaKey& key, HashObject& hash, DWORD flags,
               const char16_t* description = nullptr) {
  DWORD length = 0;
  key.Sign(hash, description, flags, nullptr, &length);
  Bytes sig(length);
  key.Sign(hash, description, flags, sig.data(), &length);
  sig.resize(length);
  return sig;
}

Bytes ExpectedBlock(size_t k, const Bytes& prefix, const Bytes& value) {
  Bytes block = {0x00, 0x01};
  block.insert(block.end(), k - 3 - prefix.size() - value.size(), 0xFF);
  block.push_back(0x00);
  block.insert(block.end(), prefix.begin(), prefix.end());
  block.insert(block.end(), value.begin(), value.end());
  return block;
}

TEST(RsaKeyTest, SignatureBlocksCarryDigestInfoPerHash) {
  auto key = SharedPair("rsa512_sign_private");
  const Bytes modulus = ModulusOf(*key);
  struct Case {
    ALG_ID algid;
    const char* prefix;
  } cases[] = {{CALG_MD2, "3020300c06082a864886f70d020205000410"},
               {CALG_MD4, "3020300c06082a864886f70d020405000410"},
               {CALG_MD5, "3020300c06082a864886f70d020505000410"},
               {CALG_SHA1, "3021300906052b0e03021a05000414"}};
  for (const Case& c : cases) {
    SCOPED_TRACE(c.algid);
    auto hash = HashOf(c.algid, kWineRocks);
    const Bytes sig = SignWith(*key, *hash, 0);
    ASSERT_EQ(sig.size(), 64u);
    const Bytes value = ToBytes(hash->Finish());
    EXPECT_EQ(ModExpBigEndian(sig, modulus, 65537), ExpectedBlock(64, FromHex(c.prefix), value));
    auto bare = HashOf(c.algid, kWineRocks);
    const Bytes bareSig = SignWith(*key, *bare, CRYPT_NOHASHOID);
    EXPECT_EQ(ModExpBigEndian(bareSig, modulus, 65537), ExpectedBlock(64, {}, value));
    // Both forms verify with flags 0.
    EXPECT_NO_THROW(key->Verify(*HashOf(c.algid, kWineRocks), sig.data(), 64, nullptr, 0));
    EXPECT_NO_THROW(key->Verify(*HashOf(c.algid, kWineRocks), bareSig.data(), 64, nullptr, 0));
  }
}

TEST(RsaKeyTest, Ssl3ShaMd5IsSignedWithoutPrefix) {
  auto key = SharedPair("rsa512_sign_private");
  Bytes value(36);
  for (size_t i = 0; i < value.size(); ++i) value[i] = static_cast<uint8_t>(i * 7 + 1);
  auto hash = HashObject::Create(Enhanced(), CALG_SSL3_SHAMD5, nullptr, 0);
  hash->SetParam(HP_HASHVAL, value.data(), 0);
  const Bytes sig = SignWith(*key, *hash, 0);
  EXPECT_EQ(ModExpBigEndian(sig, ModulusOf(*key), 65537), ExpectedBlock(64, {}, value));
}

TEST(RsaKeyTest, SignatureIsLittleEndianWithTrailingZeroForLeadingZero) {
  // Find a message whose signature is below 2^(8(k-1)): its big-endian form starts with 00, so
  // the little-endian output must end with 00 and still be k bytes long.
  auto key = SharedPair("rsa512_sign_private");
  bool found = false;
  for (int i = 0; i < 5000 && !found; ++i) {
    const Bytes data = {static_cast<uint8_t>(i), static_cast<uint8_t>(i >> 8)};
    auto hash = HashOf(CALG_SHA1, data);
    const Bytes sig = SignWith(*key, *hash, 0);
    ASSERT_EQ(sig.size(), 64u);
    if (sig.back() != 0) continue;
    found = true;
    EXPECT_NO_THROW(key->Verify(*HashOf(CALG_SHA1, data), sig.data(), 64, nullptr, 0));
  }
  EXPECT_TRUE(found);
}

TEST(RsaKeyTest, SignSizeRules) {
  auto key = SharedPair("rsa1024_sign_private_highbit");
  auto hash = HashOf(CALG_MD5, kWineRocks);
  DWORD length = 0;
  key->Sign(*hash, nullptr, 0, nullptr, &length);
  EXPECT_EQ(length, 128u);
  Bytes small(127, 0xAA);
  length = 127;
  EXPECT_EQ(ErrorOf([&] { key->Sign(*hash, nullptr, 0, small.data(), &length); }),
            Code(ERROR_MORE_DATA));
  EXPECT_EQ(length, 128u);
  EXPECT_EQ(small[0], 0xAA);
  EXPECT_EQ(ErrorOf([&] { key->Sign(*hash, nullptr, 0, small.data(), nullptr); }),
            Code(ERROR_INVALID_PARAMETER));
  EXPECT_EQ(ErrorOf([&] { key->Sign(*hash, nullptr, 0x10, nullptr, &length); }),
            Code(NTE_BAD_FLAGS));
  // The size query did not finish the hash.
  EXPECT_NO_THROW(hash->HashData(kWineRocks, 0));
}

TEST(RsaKeyTest, SigningFinishesTheHash) {
  auto key = SharedPair("rsa512_sign_private");
  auto hash = HashOf(CALG_MD5, kWineRocks);
  SignWith(*key, *hash, 0);
  EXPECT_EQ(ErrorOf([&] { hash->HashData(kWineRocks, 0); }), Code(NTE_BAD_HASH_STATE));
}

TEST(RsaKeyTest, DescriptionIsHashedAsUtf16CodeUnits) {
  auto key = SharedPair("rsa512_sign_private");
  auto withDescription = HashOf(CALG_SHA1, kWineRocks);
  const Bytes a = SignWith(*key, *withDescription, 0, u"d\u00e9");
  Bytes manual = kWineRocks;
  manual.insert(manual.end(), {'d', 0x00, 0xE9, 0x00});
  const Bytes b = SignWith(*key, *HashOf(CALG_SHA1, manual), 0);
  EXPECT_EQ(a, b);
}

TEST(RsaKeyTest, PublicKeyCannotSign) {
  auto key = RsaKey::ImportPublicBlob(Enhanced(), Shared("rsa1024_sign_public"), 0);
  Bytes sig(128);
  DWORD length = 128;
  EXPECT_EQ(
      ErrorOf([&] { key->Sign(*HashOf(CALG_MD5, kWineRocks), nullptr, 0, sig.data(), &length); }),
      Code(NTE_BAD_KEY));
}

TEST(RsaKeyTest, KeyExchangePairCanSign) {
  auto key = SharedPair("rsa512_keyx_private");
  const Bytes sig = SignWith(*key, *HashOf(CALG_MD5, kWineRocks), 0);
  auto pub = RsaKey::ImportPublicBlob(Enhanced(), Shared("rsa512_keyx_public"), 0);
  EXPECT_NO_THROW(pub->Verify(*HashOf(CALG_MD5, kWineRocks), sig.data(), 64, nullptr, 0));
}

// ---- RSA encryption ----

TEST(RsaKeyTest, SignatureKeyCannotEncryptOrDecrypt) {
  auto key = SharedPair("rsa512_sign_private");
  Bytes data(64, 1);
  DWORD length = 4;
  EXPECT_EQ(ErrorOf([&] { key->Encrypt(nullptr, true, 0, data.data(), &length, 64); }),
            Code(NTE_BAD_KEY));
  length = 64;
  EXPECT_EQ(ErrorOf([&] { key->Decrypt(nullptr, true, 0, data.data(), &length); }),
            Code(NTE_BAD_KEY));
}

TEST(RsaKeyTest, EncryptSizeQueryAndShortBuffer) {
  auto key = SharedPair("rsa1024_keyx_private");
  DWORD length = 12;
  key->Encrypt(nullptr, true, 0, nullptr, &length, 0);
  EXPECT_EQ(length, 128u);
  Bytes data(127, 0x55);
  length = 12;
  EXPECT_EQ(ErrorOf([&] { key->Encrypt(nullptr, true, CRYPT_OAEP, data.data(), &length, 127); }),
            Code(ERROR_MORE_DATA));
  EXPECT_EQ(length, 128u);
  EXPECT_EQ(data[0], 0x55);
  EXPECT_EQ(ErrorOf([&] { key->Encrypt(nullptr, true, 0x80, data.data(), &length, 128); }),
            Code(NTE_BAD_FLAGS));
}

TEST(RsaKeyTest, EncryptRejectsMessageTooLongForPadding) {
  auto key = SharedPair("rsa512_keyx_private");
  Bytes data(64, 0x42);
  DWORD length = 64 - 10;
  EXPECT_EQ(ErrorOf([&] { key->Encrypt(nullptr, true, 0, data.data(), &length, 64); }),
            Code(NTE_BAD_LEN));
  length = 64 - 11;
  EXPECT_NO_THROW(key->Encrypt(nullptr, true, 0, data.data(), &length, 64));
  data.assign(64, 0x42);
  length = 64 - 41;
  EXPECT_EQ(ErrorOf([&] { key->Encrypt(nullptr, true, CRYPT_OAEP, data.data(), &length, 64); }),
            Code(NTE_BAD_LEN));
  length = 64 - 42;
  EXPECT_NO_THROW(key->Encrypt(nullptr, true, CRYPT_OAEP, data.data(), &length, 64));
}

TEST(RsaKeyTest, EncryptFramesType2BlockLittleEndian) {
  // With e = d = 1 the "ciphertext" is the padded block itself, byte-reversed.
  auto key = SharedPair("rsa512_pubexp1_private");
  Bytes data(64, 0);
  std::copy(kWineRocks.begin(), kWineRocks.end(), data.begin());
  DWORD length = static_cast<DWORD>(kWineRocks.size());
  key->Encrypt(nullptr, true, 0, data.data(), &length, 64);
  ASSERT_EQ(length, 64u);
  const Bytes block(data.rbegin(), data.rend());
  EXPECT_EQ(block[0], 0x00);
  EXPECT_EQ(block[1], 0x02);
  const size_t ps = 64 - 3 - kWineRocks.size();
  EXPECT_TRUE(std::none_of(block.begin() + 2, block.begin() + 2 + static_cast<ptrdiff_t>(ps),
                           [](uint8_t b) { return b == 0; }));
  EXPECT_EQ(block[2 + ps], 0x00);
  EXPECT_TRUE(std::equal(kWineRocks.begin(), kWineRocks.end(), block.end() - 12));
}

TEST(RsaKeyTest, EncryptWithPublicKeyDecryptWithPair) {
  auto pub = RsaKey::ImportPublicBlob(Enhanced(), Shared("rsa1024_keyx_public_derived"), 0);
  auto pair = SharedPair("rsa1024_keyx_private");
  for (DWORD flags : {0u, static_cast<DWORD>(CRYPT_OAEP)}) {
    Bytes data(128, 0);
    std::copy(kWineRocks.begin(), kWineRocks.end(), data.begin());
    DWORD length = 12;
    pub->Encrypt(nullptr, true, flags, data.data(), &length, 128);
    ASSERT_EQ(length, 128u);
    pair->Decrypt(nullptr, true, flags, data.data(), &length);
    ASSERT_EQ(length, 12u);
    EXPECT_TRUE(std::equal(kWineRocks.begin(), kWineRocks.end(), data.begin()));
  }
}

TEST(RsaKeyTest, EncryptAndDecryptFeedTheHash) {
  auto pair = SharedPair("rsa512_keyx_private");
  auto encryptHash = HashObject::Create(Enhanced(), CALG_MD5, nullptr, 0);
  auto decryptHash = HashObject::Create(Enhanced(), CALG_MD5, nullptr, 0);
  Bytes data(64, 0);
  std::copy(kWineRocks.begin(), kWineRocks.end(), data.begin());
  DWORD length = 12;
  pair->Encrypt(encryptHash.get(), true, 0, data.data(), &length, 64);
  pair->Decrypt(decryptHash.get(), true, 0, data.data(), &length);
  const Bytes expected = ToBytes(HashOf(CALG_MD5, kWineRocks)->Finish());
  EXPECT_EQ(ToBytes(encryptHash->Finish()), expected);
  EXPECT_EQ(ToBytes(decryptHash->Finish()), expected);
}

TEST(RsaKeyTest, DecryptBadPaddingLeavesLengthUnchanged) {
  auto pair = SharedPair("rsa512_pubexp1_private");
  // e = 1: this little-endian block decrypts to 00 01 ... which is not type 2.
  Bytes block(64, 0xFF);
  block[0] = 0x00;
  block[1] = 0x01;
  block[50] = 0x00;
  Bytes data(block.rbegin(), block.rend());
  DWORD length = 64;
  for (DWORD flags : {0u, static_cast<DWORD>(CRYPT_OAEP)}) {
    EXPECT_EQ(ErrorOf([&] { pair->Decrypt(nullptr, true, flags, data.data(), &length); }),
              Code(NTE_BAD_DATA));
    EXPECT_EQ(length, 64u);
  }
}

TEST(RsaKeyTest, DecryptedMessageLongerThanRoomFails) {
  auto pair = SharedPair("rsa512_keyx_private");
  Bytes data(64, 0);
  std::copy(kWineRocks.begin(), kWineRocks.end(), data.begin());
  DWORD length = 12;
  pair->Encrypt(nullptr, true, CRYPT_OAEP, data.data(), &length, 64);
  const Bytes cipher = data;
  length = 11;  // room for 11 bytes, the message has 12
  EXPECT_EQ(ErrorOf([&] { pair->Decrypt(nullptr, true, CRYPT_OAEP, data.data(), &length); }),
            Code(NTE_BAD_DATA));
  EXPECT_EQ(length, 11u);
  length = 64;
  EXPECT_EQ(ErrorOf([&] { pair->Decrypt(nullptr, true, 0x80, data.data(), &length); }),
            Code(NTE_BAD_FLAGS));
  EXPECT_EQ(ErrorOf([&] { pair->Decrypt(nullptr, true, 0, nullptr, &length); }),
            Code(ERROR_INVALID_PARAMETER));
}

TEST(RsaKeyTest, PublicKeyCannotDecrypt) {
  auto pub = RsaKey::ImportPublicBlob(Enhanced(), Shared("rsa512_keyx_public"), 0);
  Bytes data(64, 3);
  DWORD length = 64;
  EXPECT_EQ(ErrorOf([&] { pub->Decrypt(nullptr, true, 0, data.data(), &length); }),
            Code(NTE_BAD_KEY));
}

// ---- clone and stored form ----

TEST(RsaKeyTest, CloneIsIndependent) {
  auto key = SharedPair("rsa512_sign_private", CRYPT_EXPORTABLE);
  auto copy = key->Clone();
  const DWORD fewer = 0x0C;
  copy->SetParam(KP_PERMISSIONS, reinterpret_cast<const BYTE*>(&fewer), 0);
  EXPECT_EQ(GetDword(*copy, KP_PERMISSIONS), 0x0Cu | CRYPT_EXPORT);
  EXPECT_EQ(GetDword(*key, KP_PERMISSIONS), 0x3Fu);
  EXPECT_EQ(ToBytes(copy->ExportPrivateBlob(nullptr)), Shared("rsa512_sign_private"));
}

TEST(RsaKeyTest, StoredFormRoundTripsKeyAndExportability) {
  for (DWORD flags : {0u, static_cast<DWORD>(CRYPT_EXPORTABLE)}) {
    auto key = SharedPair("rsa1024_sign_private_highbit", flags);
    auto back = RsaKey::FromStoredForm(Enhanced(), key->StoredForm());
    EXPECT_EQ(back->algid(), static_cast<ALG_ID>(CALG_RSA_SIGN));
    EXPECT_EQ(back->exportable(), flags != 0);
    EXPECT_EQ(back->StoredForm(), key->StoredForm());
  }
}

TEST(RsaKeyTest, DamagedStoredFormIsKeysetEntryBad) {
  auto key = SharedPair("rsa512_sign_private");
  const SecureBytes stored = key->StoredForm();
  for (size_t cut : {size_t{0}, size_t{3}, size_t{8}, size_t{20}, stored.size() - 1}) {
    const Bytes truncated(stored.begin(), stored.begin() + static_cast<ptrdiff_t>(cut));
    EXPECT_EQ(ErrorOf([&] { RsaKey::FromStoredForm(Enhanced(), truncated); }),
              Code(NTE_KEYSET_ENTRY_BAD));
  }
  Bytes badMagic(stored.begin(), stored.end());
  badMagic[0] ^= 0xFF;
  EXPECT_EQ(ErrorOf([&] { RsaKey::FromStoredForm(Enhanced(), badMagic); }),
            Code(NTE_KEYSET_ENTRY_BAD));
  auto pub = RsaKey::ImportPublicBlob(Enhanced(), Shared("rsa512_keyx_public"), 0);
  EXPECT_EQ(ErrorOf([&] { pub->StoredForm(); }), Code(NTE_BAD_KEY));
}

// The AES provider signs SHA-2 values with their DigestInfo (RFC 8017 section 9.2, note 1).
TEST(RsaKeyTest, Sha2SignatureBlocksCarryTheirDigestInfo) {
  const ProviderInfo& aes = ProviderInfo::Of(ProviderKind::Aes);
  auto key = RsaKey::ImportPrivateBlob(aes, Shared("rsa1024_sign_private_highbit"), 0, nullptr);
  const Bytes modulus = ModulusOf(*key);
  const std::pair<ALG_ID, const char*> cases[] = {
      {CALG_SHA_256, "3031300d060960864801650304020105000420"},
      {CALG_SHA_384, "3041300d060960864801650304020205000430"},
      {CALG_SHA_512, "3051300d060960864801650304020305000440"}};
  const auto hashOf = [&](ALG_ID algid) {
    auto hash = HashObject::Create(aes, algid, nullptr, 0);
    hash->HashData(kWineRocks, 0);
    return hash;
  };
  for (const auto& [algid, prefix] : cases) {
    SCOPED_TRACE(algid);
    auto hash = hashOf(algid);
    const Bytes sig = SignWith(*key, *hash, 0);
    ASSERT_EQ(sig.size(), 128u);
    const Bytes value = ToBytes(hash->Finish());
    EXPECT_EQ(ModExpBigEndian(sig, modulus, 65537), ExpectedBlock(128, FromHex(prefix), value));
    EXPECT_NO_THROW(key->Verify(*hashOf(algid), sig.data(), 128, nullptr, 0));
  }
  // The PROV_RSA_FULL providers have no SHA-2 hash to sign.
  EXPECT_EQ(ErrorOf([] { HashObject::Create(Enhanced(), CALG_SHA_256, nullptr, 0); }),
            Code(NTE_BAD_ALGID));
}

}  // namespace
}  // namespace quiv::platform
