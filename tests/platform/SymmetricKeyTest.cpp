// SymmetricKey: recorded Windows values (derivation table, modes, padding, salt, effective
// length, imported over-long RC2 keys), standard known answers (RFC 2268 RC2, FIPS 81 DES,
// SP 800-67 triple DES) and `openssl enc` as an oracle for chaining across calls.
#include "platform/SymmetricKey.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "platform/CspError.h"
#include "platform/HashObject.h"
#include "platform/ProviderInfo.h"
#include "support/OpensslEnc.h"
#include "support/PlatformTestHelpers.h"
#include "support/Rc2Vectors.h"
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
std::string HexOf(std::span<const uint8_t> bytes) {
  return VectorFile::EncodeHex(Bytes(bytes.begin(), bytes.end()));
}
const nlohmann::json& V(std::string_view id) {
  return WindowsVectors().Vector(id);
}

std::unique_ptr<HashObject> HashOf(const ProviderInfo& p, ALG_ID algid, const Bytes& data) {
  auto hash = HashObject::Create(p, algid, nullptr, 0);
  hash->HashData(data, 0);
  return hash;
}

// The "standard key" of the recorded tests: MD2 over seq2000, then CryptDeriveKey.
std::unique_ptr<SymmetricKey> StandardKey(const ProviderInfo& p, ALG_ID algid, DWORD flags) {
  auto hash = HashOf(p, CALG_MD2, WindowsVectors().Shared("seq2000"));
  return SymmetricKey::Derive(p, algid, *hash, flags);
}

std::unique_ptr<SymmetricKey> Raw(const ProviderInfo& p, ALG_ID algid, const Bytes& key,
                                  DWORD mode = CRYPT_MODE_CBC) {
  auto k = SymmetricKey::FromKeyBytes(p, algid, key, 0, SymmetricKey::Origin::PlaintextBlob);
  const DWORD m = mode;
  k->SetParam(KP_MODE, reinterpret_cast<const BYTE*>(&m), 0);
  return k;
}

Bytes Encrypt(SymmetricKey& key, Bytes data, bool final, size_t room = 0) {
  DWORD length = static_cast<DWORD>(data.size());
  data.resize(data.size() + (room ? room : 8));
  key.Encrypt(nullptr, final, 0, data.data(), &length, static_cast<DWORD>(data.size()));
  data.resize(length);
  return data;
}

Bytes Decrypt(SymmetricKey& key, Bytes data, bool final) {
  DWORD length = static_cast<DWORD>(data.size());
  key.Decrypt(nullptr, final, 0, data.data(), &length);
  data.resize(length);
  return data;
}

DWORD Dword(const SymmetricKey& key, DWORD param) {
  DWORD value = 0;
  DWORD length = sizeof(value);
  key.GetParam(param, reinterpret_cast<BYTE*>(&value), &length, 0);
  EXPECT_EQ(length, 4u);
  return value;
}

Bytes ParamBytes(const SymmetricKey& key, DWORD param) {
  DWORD length = 0;
  key.GetParam(param, nullptr, &length, 0);
  Bytes out(length);
  key.GetParam(param, out.data(), &length, 0);
  out.resize(length);
  return out;
}

void SetDword(SymmetricKey& key, DWORD param, DWORD value) {
  key.SetParam(param, reinterpret_cast<const BYTE*>(&value), 0);
}

// `openssl enc` as an independent implementation, on whole blocks: the tests here add PKCS#5
// padding themselves where they want it.
Bytes OpensslEnc(const std::string& cipher, const std::string& keyHex, const std::string& ivHex,
                 const Bytes& data, bool decrypt = false) {
  return test::OpensslEnc(cipher, keyHex, ivHex, data, {.decrypt = decrypt, .pad = false});
}

Bytes Pkcs5(Bytes data) {
  const size_t pad = 8 - data.size() % 8;
  data.insert(data.end(), pad, static_cast<uint8_t>(pad));
  return data;
}

// --- recorded Windows values ----------------------------------------------------------------

TEST(SymmetricKeyTest, DerivationTableRows) {
  for (const std::string& id : WindowsVectors().Ids()) {
    if (id.rfind("kdf.", 0) != 0) continue;
    const auto& v = V(id);
    for (const std::string provider : {"Enhanced", "Strong"}) {
      SCOPED_TRACE(id + " " + provider);
      nlohmann::json expected = v["expected"];
      if (v.contains("expected_by_provider") && v["expected_by_provider"].contains(provider)) {
        expected.update(v["expected_by_provider"][provider]);
      }
      const ProviderInfo& p = ByName(provider);
      const Bytes data = H(v["inputs"]["data_hex"].get<std::string>());
      auto hash = HashOf(p, v["inputs"]["hash_alg"]["value"].get<ALG_ID>(), data);
      EXPECT_EQ(HexOf(hash->Finish()), expected["HP_HASHVAL"].get<std::string>());
      const ALG_ID keyAlg = v["inputs"]["key_alg"]["value"].get<ALG_ID>();
      const DWORD flags = v["inputs"]["derive_flags"].get<DWORD>();
      if (expected.contains("derive_error")) {
        EXPECT_EQ(ErrorOf([&] { SymmetricKey::Derive(p, keyAlg, *hash, flags); }),
                  expected["derive_error"]["code"].get<uint32_t>());
        continue;
      }
      auto key = SymmetricKey::Derive(p, keyAlg, *hash, flags);
      EXPECT_EQ(Dword(*key, KP_MODE), expected["KP_MODE"].get<DWORD>());
      const Bytes out = Encrypt(*key, Bytes(data.begin(), data.begin() + 4), true);
      EXPECT_EQ(out.size(), expected["encrypted_length"].get<size_t>());
      EXPECT_EQ(HexOf(out), expected["ciphertext"].get<std::string>());
    }
  }
}

// modes.rc2_40.*: one key through ECB, CBC, CFB and OFB in the recorded order.
TEST(SymmetricKeyTest, Rc2ModesRecorded) {
  for (const ProviderInfo* p : {&Base(), &Enhanced(), &Strong()}) {
    auto key = StandardKey(*p, CALG_RC2, (40 << 16) | CRYPT_EXPORTABLE);
    const Bytes plain = H(V("modes.rc2_40.ecb")["inputs"]["plaintext"].get<std::string>());
    EXPECT_EQ(Dword(*key, KP_MODE), static_cast<DWORD>(CRYPT_MODE_CBC));
    EXPECT_EQ(ParamBytes(*key, KP_SALT).size(), 11u);
    for (const char* id : {"modes.rc2_40.ecb", "modes.rc2_40.cbc"}) {
      SCOPED_TRACE(id);
      const auto& v = V(id);
      SetDword(*key, KP_MODE, v["inputs"]["mode"].get<DWORD>());
      DWORD size = 23;
      key->Encrypt(nullptr, true, 0, nullptr, &size, 24);
      EXPECT_EQ(size, v["expected"]["size_query_length"].get<DWORD>());
      const Bytes cipher = Encrypt(*key, plain, true, 1);
      EXPECT_EQ(HexOf(cipher), v["expected"]["ciphertext"].get<std::string>());
      EXPECT_EQ(Decrypt(*key, cipher, true), plain);
    }
    const auto& cfb = V("modes.rc2_40.cfb");
    SetDword(*key, KP_MODE, CRYPT_MODE_CFB);
    Bytes first = Encrypt(*key, Bytes(plain.begin(), plain.begin() + 16), false);
    EXPECT_EQ(first.size(), 16u);
    DWORD size = 7;
    key->Encrypt(nullptr, true, 0, nullptr, &size, 8);
    EXPECT_EQ(size, cfb["expected"]["final_size_query_length"].get<DWORD>());
    const Bytes last = Encrypt(*key, Bytes(plain.begin() + 16, plain.end()), true, 1);
    EXPECT_EQ(last.size(), 8u);
    first.insert(first.end(), last.begin(), last.end());
    EXPECT_EQ(HexOf(first), cfb["expected"]["ciphertext"].get<std::string>());
    Bytes back = Decrypt(*key, Bytes(first.begin(), first.begin() + 8), false);
    const Bytes rest = Decrypt(*key, Bytes(first.begin() + 8, first.end()), true);
    EXPECT_EQ(rest.size(), 15u);
    back.insert(back.end(), rest.begin(), rest.end());
    EXPECT_EQ(back, plain);

    SetDword(*key, KP_MODE, CRYPT_MODE_OFB);  // accepted by the set...
    Bytes buffer = plain;
    buffer.resize(24);
    DWORD length = 23;
    EXPECT_EQ(ErrorOf([&] { key->Encrypt(nullptr, true, 0, buffer.data(), &length, 24); }),
              Code(NTE_BAD_ALGID));  // ...refused on use
    EXPECT_EQ(ErrorOf([&] { key->Decrypt(nullptr, true, 0, buffer.data(), &length); }),
              Code(NTE_BAD_ALGID));
    SetDword(*key, KP_MODE, CRYPT_MODE_CTS);
    EXPECT_EQ(ErrorOf([&] { key->Encrypt(nullptr, true, 0, buffer.data(), &length, 24); }),
              Code(NTE_BAD_ALGID));
  }
}

TEST(SymmetricKeyTest, DerivedKeysRecorded) {
  for (const ProviderInfo* p : {&Base(), &Enhanced(), &Strong()}) {
    auto des = StandardKey(*p, CALG_DES, CRYPT_EXPORTABLE);
    SetDword(*des, KP_MODE, CRYPT_MODE_ECB);
    EXPECT_EQ(Dword(*des, KP_MODE), static_cast<DWORD>(CRYPT_MODE_ECB));
    const Bytes plain13 = H("000102030405060708090a0b0c");
    EXPECT_EQ(HexOf(Encrypt(*des, plain13, true)),
              V("derive.des.md2.default_length")["expected"]["ciphertext"].get<std::string>());

    auto rc2 = StandardKey(*p, CALG_RC2, 40 << 16);
    const Bytes cipher = Encrypt(*rc2, plain13, true);
    EXPECT_EQ(HexOf(cipher),
              V("derive.rc2_40.encrypt")["expected"]["ciphertext"].get<std::string>());
    EXPECT_EQ(HexOf(ParamBytes(*rc2, KP_IV)), "0000000000000000");
    EXPECT_EQ(Decrypt(*rc2, cipher, true), plain13);

    auto rc4 = StandardKey(*p, CALG_RC4, 56 << 16);
    EXPECT_EQ(Dword(*rc4, KP_KEYLEN), 56u);
    EXPECT_EQ(Dword(*rc4, KP_BLOCKLEN), 0u);
    EXPECT_EQ(Dword(*rc4, KP_MODE), 0u);
    const Bytes plain16 = H("000102030405060708090a0b0c0d0e0f");
    DWORD size = 16;
    rc4->Encrypt(nullptr, true, 0, nullptr, &size, 24);
    EXPECT_EQ(size, 16u);
    const Bytes stream = Encrypt(*rc4, plain16, true);
    EXPECT_EQ(HexOf(stream), V("derive.rc4_56.md2")["expected"]["ciphertext"].get<std::string>());
    EXPECT_EQ(Decrypt(*rc4, stream, true), plain16);  // the final call re-keyed
  }
  for (const ProviderInfo* p : {&Enhanced(), &Strong()}) {
    auto des3 = StandardKey(*p, CALG_3DES, CRYPT_EXPORTABLE);
    EXPECT_EQ(HexOf(Encrypt(*des3, H("000102030405060708090a0b0c"), true)),
              V("derive.3des.md2")["expected"]["ciphertext"].get<std::string>());
  }
}

TEST(SymmetricKeyTest, DerivedRc2ParamsRecorded) {
  const auto& e = V("derive.rc2_40.params")["expected"];
  for (const ProviderInfo* p : {&Base(), &Enhanced(), &Strong()}) {
    auto key = StandardKey(*p, CALG_RC2, 40 << 16);
    EXPECT_EQ(Dword(*key, KP_KEYLEN), 40u);
    EXPECT_EQ(Dword(*key, KP_MODE), e["KP_MODE_default"].get<DWORD>());
    EXPECT_EQ(Dword(*key, KP_PERMISSIONS), e["KP_PERMISSIONS"].get<DWORD>());
    EXPECT_EQ(Dword(*key, KP_BLOCKLEN), 64u);
    EXPECT_EQ(Dword(*key, KP_MODE_BITS), 8u);
    EXPECT_EQ(Dword(*key, KP_EFFECTIVE_KEYLEN), 40u);  // salt does not change it
    EXPECT_EQ(ParamBytes(*key, KP_IV).size(), e["KP_IV_length"].get<size_t>());
    EXPECT_EQ(HexOf(ParamBytes(*key, KP_SALT)), e["KP_SALT_value"].get<std::string>());
    auto exportable = StandardKey(*p, CALG_RC2, (40 << 16) | CRYPT_EXPORTABLE);
    EXPECT_EQ(Dword(*exportable, KP_PERMISSIONS), 0x3Fu);
  }
}

TEST(SymmetricKeyTest, Rc2EffectiveLengthRecorded) {
  const auto& v = V("derive.rc2_56.effective_keylen");
  for (const std::string name : {"Base", "Enhanced", "Strong"}) {
    SCOPED_TRACE(name);
    const auto& e = v["expected_by_provider"][name];
    auto key = StandardKey(ByName(name), CALG_RC2, 56 << 16);
    EXPECT_EQ(Dword(*key, KP_EFFECTIVE_KEYLEN), 56u);  // a new key: its own length
    EXPECT_EQ(ErrorOf([&] { key->SetParam(KP_EFFECTIVE_KEYLEN, nullptr, 0); }),
              Code(ERROR_INVALID_PARAMETER));
    EXPECT_EQ(ErrorOf([&] { SetDword(*key, KP_EFFECTIVE_KEYLEN, 0); }),
              v["expected"]["set_0_error"]["code"].get<uint32_t>());
    EXPECT_NE(ErrorOf([&] { SetDword(*key, KP_EFFECTIVE_KEYLEN, 1025); }), 0u);
    EXPECT_EQ(Dword(*key, KP_KEYLEN), 56u);
    EXPECT_EQ(Dword(*key, KP_EFFECTIVE_KEYLEN), e["KP_EFFECTIVE_KEYLEN_initial"].get<DWORD>());
    const uint32_t set128 = ErrorOf([&] { SetDword(*key, KP_EFFECTIVE_KEYLEN, 128); });
    EXPECT_EQ(set128,
              e.contains("set_128_error") ? e["set_128_error"]["code"].get<uint32_t>() : 0u);
    EXPECT_EQ(Dword(*key, KP_EFFECTIVE_KEYLEN), e["KP_EFFECTIVE_KEYLEN_after"].get<DWORD>());
    EXPECT_EQ(ErrorOf([&] { SetDword(*key, KP_EFFECTIVE_KEYLEN, 40); }), 0u);
  }
}

TEST(SymmetricKeyTest, EffectiveLengthChangesTheCipher) {
  // RFC 2268: key 88bca90e90875a7f0f79c384627bafb2, plaintext 0, effective 64 vs 128.
  auto key = Raw(Enhanced(), CALG_RC2, H("88bca90e90875a7f0f79c384627bafb2"), CRYPT_MODE_ECB);
  EXPECT_EQ(Dword(*key, KP_EFFECTIVE_KEYLEN), 128u);
  EXPECT_EQ(HexOf(Encrypt(*key, Bytes(8, 0), false)), "2269552ab0f85ca6");
  SetDword(*key, KP_EFFECTIVE_KEYLEN, 64);
  EXPECT_EQ(HexOf(Encrypt(*key, Bytes(8, 0), false)), "1a807d272bbe5db1");
}

TEST(SymmetricKeyTest, Rfc2268Vectors) {
  for (const test::Rc2Vector& c : test::kRc2Vectors) {
    SCOPED_TRACE(std::string(c.key) + "/" + std::to_string(c.effectiveBits));
    if (c.KeyBytes() < 5) continue;  // below the provider's 40-bit minimum: no key to hold it
    // A key longer than 128 bits exists here only as an imported over-long key: it decrypts.
    auto key = c.KeyBytes() <= 16 ? Raw(Enhanced(), CALG_RC2, H(c.key), CRYPT_MODE_ECB)
                                  : SymmetricKey::FromKeyBytes(Enhanced(), CALG_RC2, H(c.key), 0,
                                                               SymmetricKey::Origin::SimpleBlob);
    SetDword(*key, KP_MODE, CRYPT_MODE_ECB);
    SetDword(*key, KP_EFFECTIVE_KEYLEN, c.effectiveBits);
    if (c.KeyBytes() <= 16) {
      const Bytes cipher = Encrypt(*key, H(c.plain), false);
      EXPECT_EQ(HexOf(cipher), c.cipher);
    }
    EXPECT_EQ(HexOf(Decrypt(*key, H(c.cipher), false)), c.plain);
  }
}

TEST(SymmetricKeyTest, OverLongImportedRc2Recorded) {
  const auto& v = V("rc2import.simpleblob.136bits");
  const Bytes material = H(v["inputs"]["key_material"].get<std::string>());
  for (const std::string name : {"Base", "Enhanced", "Strong"}) {
    SCOPED_TRACE(name);
    const auto& e = v["expected_by_provider"][name];
    auto key = SymmetricKey::FromKeyBytes(ByName(name), CALG_RC2, material, 0,
                                          SymmetricKey::Origin::SimpleBlob);
    EXPECT_EQ(Dword(*key, KP_EFFECTIVE_KEYLEN), e["KP_EFFECTIVE_KEYLEN"].get<DWORD>());
    EXPECT_EQ(Dword(*key, KP_KEYLEN), e["KP_KEYLEN"].get<DWORD>());
    Bytes data(16, 0xcc);
    DWORD length = 8;
    for (const bool final : {false, true}) {
      EXPECT_EQ(ErrorOf([&] { key->Encrypt(nullptr, final, 0, data.data(), &length, 16); }),
                v["expected"]["encrypt_error"]["code"].get<uint32_t>());
    }
    EXPECT_EQ(HexOf(Decrypt(*key, Bytes(8, 0xcc), false)), e["decrypted_8"].get<std::string>());
    // The same bytes as a PLAINTEXTKEYBLOB are out of range.
    EXPECT_EQ(ErrorOf([&] {
                SymmetricKey::FromKeyBytes(ByName(name), CALG_RC2, material, 0,
                                           SymmetricKey::Origin::PlaintextBlob);
              }),
              Code(NTE_BAD_DATA));
  }
}

TEST(SymmetricKeyTest, FailedFinalDecryptResetsStateRecorded) {
  const auto& v = V("padding.final_decrypt_resets_state.des");
  for (const ProviderInfo* p : {&Base(), &Enhanced(), &Strong()}) {
    auto key = StandardKey(*p, CALG_DES, CRYPT_EXPORTABLE);
    SetDword(*key, KP_MODE, CRYPT_MODE_ECB);
    for (const auto& c : v["inputs"]["cases"]) {
      Bytes buffer = H(c["buffer_initial"].get<std::string>());
      buffer.resize(16);
      const size_t n = c["encrypt_length"].get<size_t>();
      DWORD length = static_cast<DWORD>(n);
      key->Encrypt(nullptr, true, 0, buffer.data(), &length, 16);
      ASSERT_EQ(length, c["encrypted_length"].get<DWORD>());
      const Bytes good = buffer;
      const Bytes plain = Decrypt(*key, good, true);
      EXPECT_EQ(plain.size(), c["decrypted_length"].get<size_t>());
      EXPECT_EQ(HexOf(plain), c["decrypted_prefix"].get<std::string>());
      Decrypt(*key, good, false);  // mid-stream now
      Bytes bad = good;
      bad[15] ^= 0xFF;
      length = 16;
      EXPECT_EQ(ErrorOf([&] { key->Decrypt(nullptr, true, 0, bad.data(), &length); }),
                v["expected"]["bad_final_error"]["code"].get<uint32_t>());
      EXPECT_EQ(length, v["expected"]["length_after_bad_final"].get<DWORD>());
      EXPECT_EQ(Decrypt(*key, good, true), plain);
    }
  }
}

// salt.set_kp_salt_and_salt_ex on the 40-bit RC2 and the 56-bit RC4 standard keys.
TEST(SymmetricKeyTest, SaltSettingRecorded) {
  const auto& v = V("salt.set_kp_salt_and_salt_ex");
  for (const std::string name : {"Base", "Enhanced", "Strong"}) {
    for (const auto& [algid, bits] : {std::pair<ALG_ID, DWORD>{CALG_RC2, 40}, {CALG_RC4, 56}}) {
      SCOPED_TRACE(name + " " + std::to_string(algid));
      auto key = StandardKey(ByName(name), algid, bits << 16);
      const Bytes salt(11, 0x5a);
      key->SetParam(KP_SALT, salt.data(), 0);
      EXPECT_EQ(ParamBytes(*key, KP_SALT).size(),
                v["expected_by_provider"][name]["KP_SALT_length_after_set"].get<size_t>());
      Bytes bytes(25, 0x31);
      for (DWORD n = 0; n <= 23; ++n) {
        CRYPT_INTEGER_BLOB blob{n, bytes.data()};
        key->SetParam(KP_SALT_EX, reinterpret_cast<const BYTE*>(&blob), 0);
        EXPECT_EQ(ParamBytes(*key, KP_SALT).size(), n);
      }
      CRYPT_INTEGER_BLOB over{25, bytes.data()};
      EXPECT_EQ(
          ErrorOf([&] { key->SetParam(KP_SALT_EX, reinterpret_cast<const BYTE*>(&over), 0); }),
          Code(NTE_BAD_DATA));
    }
  }
}

// rc4salt.*: generated keys and their SIMPLEBLOB re-import.
TEST(SymmetricKeyTest, GeneratedRc4SaltRecorded) {
  for (const char* id : {"rc4salt.00.base.len0.none", "rc4salt.01.base.len40.none",
                         "rc4salt.05.enhanced.len0.none", "rc4salt.06.enhanced.len40.none"}) {
    SCOPED_TRACE(id);
    const auto& v = V(id);
    const ProviderInfo& p = ByName(v["providers"][0].get<std::string>());
    const auto& e = v["expected"];
    auto key = SymmetricKey::Generate(p, CALG_RC4, v["inputs"]["genkey_flags"].get<DWORD>());
    EXPECT_EQ(Dword(*key, KP_KEYLEN), e["KP_KEYLEN"].get<DWORD>());
    const Bytes salt = ParamBytes(*key, KP_SALT);
    EXPECT_EQ(salt.size(), e["KP_SALT_length_generated"].get<size_t>());
    EXPECT_EQ(salt, Bytes(salt.size(), 0));
    Bytes saltEx = H(v["inputs"]["salt_ex"].get<std::string>());
    CRYPT_INTEGER_BLOB blob{static_cast<DWORD>(saltEx.size()), saltEx.data()};
    key->SetParam(KP_SALT_EX, reinterpret_cast<const BYTE*>(&blob), 0);
    auto imported = SymmetricKey::FromKeyBytes(p, CALG_RC4, key->KeyBytes(), 0,
                                               SymmetricKey::Origin::SimpleBlob);
    const Bytes importedSalt = ParamBytes(*imported, KP_SALT);
    EXPECT_EQ(importedSalt.size(), e["KP_SALT_length_after_simpleblob_import"].get<size_t>());
    EXPECT_EQ(importedSalt, Bytes(importedSalt.size(), 0));
  }
}

// --- salt and derivation rules ----------------------------------------------------------------

TEST(SymmetricKeyTest, SaltIsPartOfTheKeying) {
  // RC4 is keyed with the key bytes followed by the salt bytes.
  auto key = Raw(Base(), CALG_RC4, H("0102030405"));
  EXPECT_EQ(ParamBytes(*key, KP_SALT), Bytes(11, 0));
  const Bytes plain(32, 0x61);
  Bytes salt = H("3031323334353637383941");
  CRYPT_INTEGER_BLOB blob{11, salt.data()};
  key->SetParam(KP_SALT_EX, reinterpret_cast<const BYTE*>(&blob), 0);
  EXPECT_EQ(Encrypt(*key, plain, true), OpensslEnc("rc4",
                                                   "0102030405"
                                                   "3031323334353637383941",
                                                   "", plain));
  auto unsalted = SymmetricKey::FromKeyBytes(Base(), CALG_RC4, H("0102030405"), CRYPT_NO_SALT,
                                             SymmetricKey::Origin::PlaintextBlob);
  EXPECT_TRUE(ParamBytes(*unsalted, KP_SALT).empty());
  EXPECT_EQ(Encrypt(*unsalted, plain, true), OpensslEnc("rc4-40", "0102030405", "", plain));
  // RC2: salt feeds the key schedule, the effective length stays 40 (RFC 2268 keyed with 16
  // bytes at 40 effective bits).
  auto rc2 = Raw(Base(), CALG_RC2, H("0102030405"), CRYPT_MODE_ECB);
  rc2->SetParam(KP_SALT_EX, reinterpret_cast<const BYTE*>(&blob), 0);
  EXPECT_EQ(Dword(*rc2, KP_EFFECTIVE_KEYLEN), 40u);
  auto reference = Raw(Enhanced(), CALG_RC2,
                       H("0102030405"
                         "3031323334353637383941"),
                       CRYPT_MODE_ECB);
  SetDword(*reference, KP_EFFECTIVE_KEYLEN, 40);
  EXPECT_EQ(Encrypt(*rc2, Bytes(8, 0), false), Encrypt(*reference, Bytes(8, 0), false));
}

TEST(SymmetricKeyTest, CreateSaltOnDerivedKeysPerProvider) {
  const Bytes data = WindowsVectors().Shared("seq2000");
  for (const ProviderInfo* p : {&Base(), &Enhanced(), &Strong()}) {
    auto hash = HashOf(*p, CALG_MD5, data);
    auto key = SymmetricKey::Derive(*p, CALG_RC4, *hash, (40 << 16) | CRYPT_CREATE_SALT);
    const Bytes value(hash->Finish().begin(), hash->Finish().end());
    EXPECT_EQ(Bytes(key->KeyBytes().begin(), key->KeyBytes().end()),
              Bytes(value.begin(), value.begin() + 5));
    if (p->kind() == ProviderKind::Enhanced) {
      EXPECT_TRUE(ParamBytes(*key, KP_SALT).empty());
    } else {
      EXPECT_EQ(ParamBytes(*key, KP_SALT), Bytes(value.begin() + 5, value.begin() + 16));
    }
  }
}

TEST(SymmetricKeyTest, CreateSaltOnGeneratedKeysPerProvider) {
  auto base = SymmetricKey::Generate(Base(), CALG_RC4, (56 << 16) | CRYPT_CREATE_SALT);
  const Bytes salt = ParamBytes(*base, KP_SALT);
  EXPECT_EQ(salt.size(), 11u);
  EXPECT_NE(salt, Bytes(11, 0));
  for (const DWORD bits : {40u, 56u, 128u}) {
    auto enhanced = SymmetricKey::Generate(Enhanced(), CALG_RC4, (bits << 16) | CRYPT_CREATE_SALT);
    EXPECT_TRUE(ParamBytes(*enhanced, KP_SALT).empty()) << bits;
  }
}

TEST(SymmetricKeyTest, DesFamilyDerivedKeysHaveOddParity) {
  // MD5-derived 3DES_112 in Strong: the hash bytes with parity fixed.
  const Bytes data = WindowsVectors().Shared("seq2000");
  auto hash = HashOf(Strong(), CALG_MD5, data);
  auto key = SymmetricKey::Derive(Strong(), CALG_3DES_112, *hash, 0);
  const SecureBytes& value = hash->Finish();
  ASSERT_EQ(key->KeyBytes().size(), 16u);
  for (size_t i = 0; i < 16; ++i) {
    EXPECT_EQ(key->KeyBytes()[i] & 0xFE, value[i] & 0xFE);
    EXPECT_EQ(std::popcount(key->KeyBytes()[i]) % 2, 1);
  }
  for (const ALG_ID algid : {CALG_DES, CALG_3DES}) {
    auto generated = SymmetricKey::Generate(Strong(), algid, 0);
    for (const uint8_t b : generated->KeyBytes()) EXPECT_EQ(std::popcount(b) % 2, 1);
  }
}

TEST(SymmetricKeyTest, LengthRequests) {
  auto des56 = SymmetricKey::Generate(Base(), CALG_DES, 56 << 16);
  auto des64 = SymmetricKey::Generate(Base(), CALG_DES, 64 << 16);
  EXPECT_EQ(Dword(*des56, KP_KEYLEN), 64u);
  EXPECT_EQ(Dword(*des64, KP_KEYLEN), 64u);
  EXPECT_EQ(Dword(*SymmetricKey::Generate(Strong(), CALG_3DES_112, 112 << 16), KP_KEYLEN), 128u);
  EXPECT_EQ(Dword(*SymmetricKey::Generate(Strong(), CALG_3DES, 192 << 16), KP_KEYLEN), 192u);
  EXPECT_EQ(Dword(*SymmetricKey::Generate(Base(), CALG_RC2, 0), KP_KEYLEN), 40u);
  EXPECT_EQ(Dword(*SymmetricKey::Generate(Strong(), CALG_RC2, 0), KP_KEYLEN), 128u);
  EXPECT_EQ(Dword(*SymmetricKey::Generate(Base(), CALG_RC4, 48 << 16), KP_KEYLEN), 48u);
  EXPECT_EQ(ErrorOf([] { SymmetricKey::Generate(Base(), CALG_DES, 63 << 16); }),
            Code(NTE_BAD_FLAGS));
  EXPECT_EQ(ErrorOf([] { SymmetricKey::Generate(Base(), CALG_RC2, 64 << 16); }),
            Code(NTE_BAD_DATA));
  EXPECT_EQ(ErrorOf([] { SymmetricKey::Generate(Strong(), CALG_RC4, 44 << 16); }),
            Code(NTE_BAD_DATA));
  EXPECT_EQ(ErrorOf([] { SymmetricKey::Generate(Strong(), CALG_RC4, 32 << 16); }),
            Code(NTE_BAD_DATA));
  EXPECT_EQ(ErrorOf([] { SymmetricKey::Generate(Base(), CALG_3DES, 0); }), Code(NTE_BAD_ALGID));
  EXPECT_EQ(ErrorOf([] { SymmetricKey::Generate(Strong(), CALG_AES_128, 0); }),
            Code(NTE_BAD_ALGID));
  EXPECT_EQ(ErrorOf([] { SymmetricKey::Generate(Strong(), CALG_RSA_KEYX, 0); }),
            Code(NTE_BAD_ALGID));
  EXPECT_NE(HexOf(des56->KeyBytes()), HexOf(des64->KeyBytes()));  // random material
}

TEST(SymmetricKeyTest, ImportRanges) {
  // Base refuses a 16-byte RC2 key from a PLAINTEXTKEYBLOB; CRYPT_IPSEC_HMAC_KEY allows any.
  EXPECT_EQ(ErrorOf([] {
              SymmetricKey::FromKeyBytes(Base(), CALG_RC2, Bytes(16, 1), 0,
                                         SymmetricKey::Origin::PlaintextBlob);
            }),
            Code(NTE_BAD_DATA));
  auto hmacKey = SymmetricKey::FromKeyBytes(Base(), CALG_RC2, Bytes(80, 0xaa), CRYPT_IPSEC_HMAC_KEY,
                                            SymmetricKey::Origin::PlaintextBlob);
  EXPECT_EQ(hmacKey->KeyBytes().size(), 80u);
  Bytes buffer(88);
  DWORD length = 8;
  EXPECT_EQ(ErrorOf([&] { hmacKey->Encrypt(nullptr, true, 0, buffer.data(), &length, 88); }),
            Code(NTE_BAD_KEY));
  EXPECT_EQ(ErrorOf([] {
              SymmetricKey::FromKeyBytes(Strong(), CALG_DES, Bytes(7, 1), 0,
                                         SymmetricKey::Origin::SimpleBlob);
            }),
            Code(NTE_BAD_DATA));
  EXPECT_EQ(ErrorOf([] {
              SymmetricKey::FromKeyBytes(Strong(), CALG_RC2, Bytes(65, 1), 0,
                                         SymmetricKey::Origin::SimpleBlob);
            }),
            Code(NTE_BAD_DATA));
  // Imported DES-family bytes are kept as given.
  auto des = SymmetricKey::FromKeyBytes(Strong(), CALG_DES, Bytes(8, 0), CRYPT_EXPORTABLE,
                                        SymmetricKey::Origin::SimpleBlob);
  EXPECT_EQ(HexOf(des->KeyBytes()), "0000000000000000");
  EXPECT_EQ(Dword(*des, KP_PERMISSIONS), 0x3Fu);
}

// --- standard ciphers -----------------------------------------------------------------------

TEST(SymmetricKeyTest, DesFips81Examples) {
  auto ecb = Raw(Base(), CALG_DES, H("0123456789abcdef"), CRYPT_MODE_ECB);
  EXPECT_EQ(HexOf(Encrypt(*ecb, H("4e6f772069732074"), false)), "3fa40e8a984d4815");
  auto cbc = Raw(Base(), CALG_DES, H("0123456789abcdef"));
  const Bytes iv = H("1234567890abcdef");
  cbc->SetParam(KP_IV, iv.data(), 0);
  const std::string text = "Now is the time for all ";
  EXPECT_EQ(HexOf(Encrypt(*cbc, Bytes(text.begin(), text.end()), false)),
            "e5c7cdde872bf27c43e934008c389c0f683788499a7c05f6");
}

TEST(SymmetricKeyTest, TripleDesSp800_67Example) {
  auto key = Raw(Strong(), CALG_3DES, H("0123456789abcdef23456789abcdef01456789abcdef0123"),
                 CRYPT_MODE_ECB);
  const std::string text = "The qufck brown fox jump";
  EXPECT_EQ(HexOf(Encrypt(*key, Bytes(text.begin(), text.end()), false)),
            "a826fd8ce53b855fcce21c8112256fe668d5c05dd9b6b900");
}

TEST(SymmetricKeyTest, TwoKeyTripleDesIsK1K2K1) {
  const std::string k1 = "0123456789abcdef";
  const std::string k2 = "23456789abcdef01";
  auto two = Raw(Strong(), CALG_3DES_112, H(k1 + k2), CRYPT_MODE_ECB);
  auto three = Raw(Strong(), CALG_3DES, H(k1 + k2 + k1), CRYPT_MODE_ECB);
  const Bytes plain = H("5468652071756663");
  EXPECT_EQ(Encrypt(*two, plain, false), Encrypt(*three, plain, false));
  EXPECT_EQ(Encrypt(*two, plain, false), OpensslEnc("des-ede-ecb", k1 + k2, "", plain));
}

TEST(SymmetricKeyTest, Cfb8AgainstOpenssl) {
  const Bytes iv = H("1234567890abcdef");
  auto key = Raw(Base(), CALG_DES, H("0123456789abcdef"), CRYPT_MODE_CFB);
  key->SetParam(KP_IV, iv.data(), 0);
  const Bytes plain = H("4e6f77206973207468652074696d6520666f7220616c6c20");
  EXPECT_EQ(Encrypt(*key, plain, false),
            OpensslEnc("des-cfb8", "0123456789abcdef", "1234567890abcdef", plain));
  auto des3 = Raw(Strong(), CALG_3DES, H("0123456789abcdef23456789abcdef01456789abcdef0123"),
                  CRYPT_MODE_CFB);
  EXPECT_EQ(Encrypt(*des3, plain, false),
            OpensslEnc("des-ede3-cfb8", "0123456789abcdef23456789abcdef01456789abcdef0123",
                       "0000000000000000", plain));
}

// --- final / non-final rules ----------------------------------------------------------------

TEST(SymmetricKeyTest, ChainingAcrossCallsMatchesOneMessage) {
  const std::string k = "0123456789abcdef";
  const Bytes plain(64, 0x42);
  const Bytes whole = OpensslEnc("des-cbc", k, "0000000000000000", Pkcs5(plain));
  auto key = Raw(Base(), CALG_DES, H(k));
  Bytes split = Encrypt(*key, Bytes(plain.begin(), plain.begin() + 24), false);
  const Bytes tail = Encrypt(*key, Bytes(plain.begin() + 24, plain.end()), true);
  split.insert(split.end(), tail.begin(), tail.end());
  EXPECT_EQ(split, whole);
  // The final call reset the chain: the same key decrypts what it just made.
  EXPECT_EQ(Decrypt(*key, whole, true), plain);
}

TEST(SymmetricKeyTest, EncryptAndDecryptShareTheChain) {
  const std::string k = "0123456789abcdef";
  const Bytes plain = H("00112233445566778899aabbccddeeff");
  const Bytes cipher = OpensslEnc("des-cbc", k, "0000000000000000", plain);
  auto key = Raw(Base(), CALG_DES, H(k));
  Encrypt(*key, Bytes(plain.begin(), plain.begin() + 8), false);  // chain value is now C1
  EXPECT_EQ(HexOf(Decrypt(*key, Bytes(cipher.begin() + 8, cipher.end()), false)),
            "8899aabbccddeeff");
}

TEST(SymmetricKeyTest, PaddedLengthsAndSizeQueries) {
  auto key = Raw(Strong(), CALG_3DES_112, H("0123456789abcdef23456789abcdef01"));
  const std::pair<DWORD, DWORD> cases[] = {{0, 8}, {8, 16}, {13, 16}, {23, 24}, {256, 264}};
  for (const auto& [in, out] : cases) {
    DWORD size = in;
    key->Encrypt(nullptr, true, 0, nullptr, &size, 0);
    EXPECT_EQ(size, out);
    if (in % 8 == 0) {
      size = in;
      key->Encrypt(nullptr, false, 0, nullptr, &size, 0);
      EXPECT_EQ(size, in);
    }
    const Bytes plain(in, 0x07);
    const Bytes cipher = Encrypt(*key, plain, true);
    EXPECT_EQ(cipher.size(), out);
    EXPECT_EQ(Decrypt(*key, cipher, true), plain);
  }
}

TEST(SymmetricKeyTest, ShortBufferIsMoreDataAndLeavesStateAlone) {
  auto key = Raw(Base(), CALG_DES, H("0123456789abcdef"));
  Bytes buffer(24, 0x11);
  DWORD length = 23;
  EXPECT_EQ(ErrorOf([&] { key->Encrypt(nullptr, true, 0, buffer.data(), &length, 23); }),
            Code(ERROR_MORE_DATA));
  EXPECT_EQ(length, 24u);
  EXPECT_EQ(buffer, Bytes(24, 0x11));
  const Bytes plain(23, 0x11);
  EXPECT_EQ(Encrypt(*key, plain, true),
            OpensslEnc("des-cbc", "0123456789abcdef", "0000000000000000", Pkcs5(plain)));
}

TEST(SymmetricKeyTest, LengthAndArgumentErrors) {
  auto key = Raw(Base(), CALG_DES, H("0123456789abcdef"));
  Bytes buffer(32);
  DWORD length = 13;
  EXPECT_EQ(ErrorOf([&] { key->Encrypt(nullptr, false, 0, buffer.data(), &length, 32); }),
            Code(NTE_BAD_DATA));
  EXPECT_EQ(ErrorOf([&] { key->Decrypt(nullptr, false, 0, buffer.data(), &length); }),
            Code(NTE_BAD_DATA));
  EXPECT_EQ(ErrorOf([&] { key->Decrypt(nullptr, true, 0, buffer.data(), &length); }),
            Code(NTE_BAD_DATA));
  length = 0;
  EXPECT_EQ(ErrorOf([&] { key->Decrypt(nullptr, true, 0, buffer.data(), &length); }),
            Code(NTE_BAD_LEN));
  length = 8;
  EXPECT_EQ(ErrorOf([&] { key->Encrypt(nullptr, true, CRYPT_OAEP, buffer.data(), &length, 32); }),
            Code(NTE_BAD_FLAGS));
  EXPECT_EQ(ErrorOf([&] { key->Decrypt(nullptr, true, 1, buffer.data(), &length); }),
            Code(NTE_BAD_FLAGS));
  EXPECT_EQ(ErrorOf([&] { key->Encrypt(nullptr, true, 0, buffer.data(), nullptr, 32); }),
            Code(ERROR_INVALID_PARAMETER));
  EXPECT_EQ(ErrorOf([&] { key->Decrypt(nullptr, true, 0, nullptr, &length); }),
            Code(ERROR_INVALID_PARAMETER));
  EXPECT_EQ(ErrorOf([&] { key->Decrypt(nullptr, true, 0, buffer.data(), nullptr); }),
            Code(ERROR_INVALID_PARAMETER));
}

TEST(SymmetricKeyTest, BadPaddingVariants) {
  const std::string k = "0123456789abcdef";
  auto key = Raw(Base(), CALG_DES, H(k), CRYPT_MODE_ECB);
  for (const char* block : {"4142434445464700", "4142434445464709", "4142434445460302"}) {
    const Bytes cipher = OpensslEnc("des-ecb", k, "", H(block));
    Bytes buffer = cipher;
    DWORD length = 8;
    EXPECT_EQ(ErrorOf([&] { key->Decrypt(nullptr, true, 0, buffer.data(), &length); }),
              Code(NTE_BAD_DATA))
        << block;
    EXPECT_EQ(length, 8u);
    EXPECT_EQ(HexOf(buffer), block);  // the raw decrypted bytes stay in the buffer
  }
  const Bytes whole = OpensslEnc("des-ecb", k, "", H("0808080808080808"));
  EXPECT_TRUE(Decrypt(*key, whole, true).empty());
}

TEST(SymmetricKeyTest, Rc4ContinuesUntilFinal) {
  auto key = Raw(Strong(), CALG_RC4, H("0102030405060708090a0b0c0d0e0f10"));
  const Bytes plain(40, 0x33);
  const Bytes stream = OpensslEnc("rc4", "0102030405060708090a0b0c0d0e0f10", "", plain);
  Bytes pieces = Encrypt(*key, Bytes(plain.begin(), plain.begin() + 13), false);
  const Bytes rest = Encrypt(*key, Bytes(plain.begin() + 13, plain.end()), true);
  pieces.insert(pieces.end(), rest.begin(), rest.end());
  EXPECT_EQ(pieces, stream);
  EXPECT_EQ(Encrypt(*key, plain, true), stream);  // re-keyed by the final call
  EXPECT_EQ(Decrypt(*key, stream, false), plain);
  Bytes buffer(8);
  DWORD length = 8;
  EXPECT_EQ(ErrorOf([&] { key->Encrypt(nullptr, true, 0, buffer.data(), &length, 4); }),
            Code(ERROR_MORE_DATA));
}

// --- parameters -----------------------------------------------------------------------------

TEST(SymmetricKeyTest, DefaultsPerCipher) {
  auto rc4 = SymmetricKey::Generate(Strong(), CALG_RC4, 0);
  EXPECT_TRUE(ParamBytes(*rc4, KP_IV).empty());
  EXPECT_EQ(Dword(*rc4, KP_ALGID), static_cast<DWORD>(CALG_RC4));
  EXPECT_EQ(Dword(*rc4, KP_PADDING), static_cast<DWORD>(PKCS5_PADDING));
  EXPECT_EQ(Dword(*rc4, KP_PERMISSIONS), 0x3Bu);
  auto des3 = SymmetricKey::Generate(Strong(), CALG_3DES, CRYPT_EXPORTABLE);
  EXPECT_EQ(Dword(*des3, KP_MODE), static_cast<DWORD>(CRYPT_MODE_CBC));
  EXPECT_EQ(Dword(*des3, KP_BLOCKLEN), 64u);
  EXPECT_EQ(HexOf(ParamBytes(*des3, KP_IV)), "0000000000000000");
  EXPECT_TRUE(ParamBytes(*des3, KP_SALT).empty());
  EXPECT_EQ(Dword(*des3, KP_PERMISSIONS), 0x3Fu);
}

TEST(SymmetricKeyTest, ParameterErrors) {
  auto key = SymmetricKey::Generate(Strong(), CALG_RC2, 0);
  BYTE buffer[16] = {};
  DWORD length = 2;
  EXPECT_EQ(ErrorOf([&] { key->GetParam(KP_KEYLEN, buffer, &length, 0); }), Code(ERROR_MORE_DATA));
  EXPECT_EQ(length, 4u);
  EXPECT_EQ(ErrorOf([&] { key->GetParam(KP_KEYLEN, buffer, nullptr, 0); }),
            Code(ERROR_INVALID_PARAMETER));
  EXPECT_EQ(ErrorOf([&] { key->GetParam(KP_KEYLEN, buffer, &length, 1); }), Code(NTE_BAD_FLAGS));
  EXPECT_EQ(ErrorOf([&] { key->GetParam(999, buffer, &length, 0); }), Code(NTE_BAD_TYPE));
  EXPECT_EQ(ErrorOf([&] { key->SetParam(999, buffer, 0); }), Code(NTE_BAD_TYPE));
  EXPECT_EQ(ErrorOf([&] { key->SetParam(KP_MODE, nullptr, 0); }), Code(ERROR_INVALID_PARAMETER));
  EXPECT_EQ(ErrorOf([&] { SetDword(*key, KP_PADDING, 2); }), Code(NTE_BAD_DATA));
  EXPECT_EQ(ErrorOf([&] { SetDword(*key, KP_PADDING, PKCS5_PADDING); }), 0u);
  EXPECT_EQ(ErrorOf([&] { key->SetParam(KP_MODE, buffer, 4); }), Code(NTE_BAD_FLAGS));
  auto rc4 = SymmetricKey::Generate(Strong(), CALG_RC4, 0);
  EXPECT_EQ(ErrorOf([&] { SetDword(*rc4, KP_EFFECTIVE_KEYLEN, 64); }), Code(NTE_BAD_TYPE));
  auto des = SymmetricKey::Generate(Strong(), CALG_DES, 0);
  EXPECT_EQ(ErrorOf([&] { des->SetParam(KP_SALT, buffer, 0); }), Code(NTE_BAD_KEY));
}

TEST(SymmetricKeyTest, PermissionsCannotGainExport) {
  auto key = SymmetricKey::Generate(Strong(), CALG_RC2, 0);
  EXPECT_EQ(ErrorOf([&] { SetDword(*key, KP_PERMISSIONS, 0x3F); }), Code(NTE_BAD_DATA));
  EXPECT_EQ(Dword(*key, KP_PERMISSIONS), 0x3Bu);
  auto exportable = SymmetricKey::Generate(Strong(), CALG_RC2, CRYPT_EXPORTABLE);
  SetDword(*exportable, KP_PERMISSIONS, 0x3B);  // accepted, but the key stays exportable
  EXPECT_EQ(Dword(*exportable, KP_PERMISSIONS), 0x3Fu);
  EXPECT_EQ(exportable->permissions() & CRYPT_EXPORT, static_cast<DWORD>(CRYPT_EXPORT));
}

TEST(SymmetricKeyTest, SettingTheIvRestartsTheMessage) {
  const std::string k = "0123456789abcdef";
  auto key = Raw(Base(), CALG_DES, H(k));
  Encrypt(*key, Bytes(8, 1), false);
  const Bytes iv = H("1234567890abcdef");
  key->SetParam(KP_IV, iv.data(), 0);
  EXPECT_EQ(HexOf(ParamBytes(*key, KP_IV)), "1234567890abcdef");
  const Bytes plain(16, 2);
  EXPECT_EQ(Encrypt(*key, plain, false), OpensslEnc("des-cbc", k, "1234567890abcdef", plain));
}

// --- duplication ----------------------------------------------------------------------------

TEST(SymmetricKeyTest, CloneCarriesRunningState) {
  const std::string k = "0123456789abcdef";
  const Bytes plain(32, 0x5c);
  const Bytes whole = OpensslEnc("des-cbc", k, "0000000000000000", plain);
  auto key = Raw(Base(), CALG_DES, H(k));
  Encrypt(*key, Bytes(plain.begin(), plain.begin() + 16), false);
  auto copy = key->Clone();
  EXPECT_EQ(HexOf(Encrypt(*copy, Bytes(plain.begin() + 16, plain.end()), false)),
            HexOf(Bytes(whole.begin() + 16, whole.end())));
  EXPECT_EQ(HexOf(Encrypt(*key, Bytes(plain.begin() + 16, plain.end()), false)),
            HexOf(Bytes(whole.begin() + 16, whole.end())));

  auto rc4 = Raw(Strong(), CALG_RC4, H("0102030405060708090a0b0c0d0e0f10"));
  const Bytes stream = OpensslEnc("rc4", "0102030405060708090a0b0c0d0e0f10", "", plain);
  Encrypt(*rc4, Bytes(plain.begin(), plain.begin() + 10), false);
  auto rc4copy = rc4->Clone();
  EXPECT_EQ(Encrypt(*rc4copy, Bytes(plain.begin() + 10, plain.end()), false),
            Bytes(stream.begin() + 10, stream.end()));

  auto params = SymmetricKey::Generate(Strong(), CALG_RC2, CRYPT_EXPORTABLE | (56 << 16));
  SetDword(*params, KP_EFFECTIVE_KEYLEN, 100);
  SetDword(*params, KP_MODE, CRYPT_MODE_ECB);
  auto paramsCopy = params->Clone();
  EXPECT_EQ(Dword(*paramsCopy, KP_EFFECTIVE_KEYLEN), 100u);
  EXPECT_EQ(Dword(*paramsCopy, KP_MODE), static_cast<DWORD>(CRYPT_MODE_ECB));
  EXPECT_EQ(Dword(*paramsCopy, KP_PERMISSIONS), 0x3Fu);
  EXPECT_EQ(HexOf(paramsCopy->KeyBytes()), HexOf(params->KeyBytes()));
}

TEST(SymmetricKeyTest, EncryptFeedsTheHashWithPlaintext) {
  auto key = Raw(Base(), CALG_DES, H("0123456789abcdef"));
  const Bytes plain = H("000102030405060708090a0b0c");
  auto viaEncrypt = HashObject::Create(Base(), CALG_MD5, nullptr, 0);
  Bytes buffer = plain;
  buffer.resize(16);
  DWORD length = 13;
  key->Encrypt(viaEncrypt.get(), true, 0, buffer.data(), &length, 16);
  auto viaDecrypt = HashObject::Create(Base(), CALG_MD5, nullptr, 0);
  key->Decrypt(viaDecrypt.get(), true, 0, buffer.data(), &length);
  const std::string expected = HexOf(HashOf(Base(), CALG_MD5, plain)->Finish());
  EXPECT_EQ(HexOf(viaEncrypt->Finish()), expected);
  EXPECT_EQ(HexOf(viaDecrypt->Finish()), expected);
}

// --- the AES provider -------------------------------------------------------------------------

const ProviderInfo& Aes() {
  return ProviderInfo::Of(ProviderKind::Aes);
}

// The AES column of the recorded derivation table (kdf.09-11 from MD2, kdf.33-35 from MD5).
TEST(SymmetricKeyTest, AesDerivationRowsRecorded) {
  for (const char* id : {"kdf.09.aes_128.md2", "kdf.10.aes_192.md2", "kdf.11.aes_256.md2",
                         "kdf.33.aes_128.md5", "kdf.34.aes_192.md5", "kdf.35.aes_256.md5"}) {
    SCOPED_TRACE(id);
    const auto& v = V(id);
    auto hash = HashOf(Aes(), v["inputs"]["hash_alg"]["value"].get<ALG_ID>(),
                       H(v["inputs"]["data_hex"].get<std::string>()));
    auto key = SymmetricKey::Derive(Aes(), v["inputs"]["key_alg"]["value"].get<ALG_ID>(), *hash, 0);
    const auto& aes = v["expected_by_provider"]["AES"];
    EXPECT_EQ(Dword(*key, KP_MODE), aes["KP_MODE"].get<DWORD>());
    const Bytes out = Encrypt(*key, H(v["inputs"]["plaintext"].get<std::string>()), true, 16);
    EXPECT_EQ(out.size(), aes["encrypted_length"].get<size_t>());
    EXPECT_EQ(HexOf(out), aes["ciphertext"].get<std::string>());
  }
}

TEST(SymmetricKeyTest, AesKeysAreSixteenByteBlockCiphersWithoutSalt) {
  for (const auto& [algid, bytes] :
       {std::pair{CALG_AES_128, 16u}, std::pair{CALG_AES_192, 24u}, std::pair{CALG_AES_256, 32u}}) {
    auto key = SymmetricKey::Generate(Aes(), algid, CRYPT_CREATE_SALT | CRYPT_EXPORTABLE);
    EXPECT_TRUE(key->IsBlockCipher());
    EXPECT_EQ(key->BlockSize(), 16u);
    EXPECT_EQ(key->KeyBytes().size(), bytes);
    EXPECT_TRUE(key->Salt().empty());
    EXPECT_EQ(Dword(*key, KP_BLOCKLEN), 128u);
    EXPECT_EQ(ParamBytes(*key, KP_IV), Bytes(16, 0));
    EXPECT_EQ(ErrorOf([&] { SetDword(*key, KP_EFFECTIVE_KEYLEN, 128); }), Code(NTE_BAD_TYPE));
    EXPECT_EQ(ErrorOf([&] { SymmetricKey::Generate(Aes(), algid, 64 << 16); }),
              Code(NTE_BAD_FLAGS));
    EXPECT_EQ(ErrorOf([&] {
                SymmetricKey::FromKeyBytes(Aes(), algid, Bytes(bytes - 1, 1), 0,
                                           SymmetricKey::Origin::SimpleBlob);
              }),
              Code(NTE_BAD_DATA));
  }
  // The 64-bit ciphers keep their 8-byte IV in the AES provider.
  auto des = SymmetricKey::Generate(Aes(), CALG_3DES, 0);
  EXPECT_EQ(des->BlockSize(), 8u);
  EXPECT_EQ(ParamBytes(*des, KP_IV).size(), 8u);
  EXPECT_EQ(ErrorOf([] { SymmetricKey::Generate(Enhanced(), CALG_AES_256, 0); }),
            Code(NTE_BAD_ALGID));
}

// SP 800-38A F.2.5 (CBC-AES256) through the key object, with the PKCS#5 block it adds.
TEST(SymmetricKeyTest, AesCbcWithSixteenBytePadding) {
  auto key = Raw(Aes(), CALG_AES_256,
                 H("603deb1015ca71be2b73aef0857d77811f352c073b6108d72d9810a30914dff4"));
  const Bytes iv = H("000102030405060708090a0b0c0d0e0f");
  key->SetParam(KP_IV, iv.data(), 0);
  const Bytes out = Encrypt(*key, H("6bc1bee22e409f96e93d7e117393172a"), true, 16);
  ASSERT_EQ(out.size(), 32u);
  EXPECT_EQ(HexOf(Bytes(out.begin(), out.begin() + 16)), "f58c4c04d6e5f1ba779eabfb5f7bfbd6");
  EXPECT_EQ(HexOf(Decrypt(*key, out, true)), "6bc1bee22e409f96e93d7e117393172a");
}

}  // namespace
}  // namespace quiv::platform
