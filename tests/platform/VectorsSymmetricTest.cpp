// Recorded Windows values for session keys: derivation, key parameters, block modes, padding,
// salt and over-long imported RC2 keys (categories key_params, block_mode, derived_key, padding,
// salt, rc2_import of windows-csp.json), replayed through the C functions exactly as each
// vector's procedure says.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstring>

#include "platform/wincrypt.h"
#include "support/CapiCalls.h"
#include "support/StandardKey.h"
#include "support/VectorSuites.h"
#include "support/VectorTest.h"

namespace quiv::test {
namespace {

DWORD Size(const Bytes& bytes) {
  return static_cast<DWORD>(bytes.size());
}

Bytes Head(const Bytes& bytes, DWORD length) {
  return Bytes(bytes.begin(), bytes.begin() + std::min<size_t>(length, bytes.size()));
}

bool AllZero(const Bytes& bytes) {
  return std::all_of(bytes.begin(), bytes.end(), [](uint8_t b) { return b == 0; });
}

// Salt descriptions of the file: "all zero" (there is salt and it is zero) or "n/a" (none).
void ExpectSaltDescription(const Bytes& salt, const std::string& description) {
  if (description == "all zero") {
    EXPECT_FALSE(salt.empty()) << "salt described as all zero but there is none";
    EXPECT_TRUE(AllZero(salt)) << "salt " << Hex(salt);
  } else if (description == "n/a") {
    EXPECT_TRUE(salt.empty()) << "salt described as n/a but it is " << Hex(salt);
  } else {
    ADD_FAILURE() << "unknown salt description " << description;
  }
}

// The key must still start from the IV the vector names (the default IV of a derived key).
void ExpectIv(HCRYPTKEY key, VectorCase& v) {
  EXPECT_EQ(Hex(KeyBytes(key, KP_IV)), Hex(v.Input("iv").Hex())) << "KP_IV";
}

// Encrypts `plaintext` with Final=TRUE in a buffer of `bufferSize` and decrypts it again,
// checking only that both calls succeed (an earlier step of a recorded sequence).
void FinalRoundTrip(HCRYPTKEY key, const Bytes& plaintext, DWORD bufferSize) {
  Bytes buffer(plaintext);
  buffer.resize(bufferSize);
  DWORD length = Size(plaintext);
  QUIV_EXPECT_SUCCEEDS(CryptEncrypt(key, 0, TRUE, 0, buffer.data(), &length, bufferSize));
  QUIV_EXPECT_SUCCEEDS(CryptDecrypt(key, 0, TRUE, 0, buffer.data(), &length));
}

// The modes.rc2_40 series runs on one key: ECB, then CBC, then CFB, then OFB. The earlier
// steps are replayed (without their own assertions) before the step a vector records.
void ReplayEarlierModes(HCRYPTKEY key, const Bytes& plaintext, DWORD mode) {
  constexpr DWORD kBuffer = 24;
  const DWORD order[] = {CRYPT_MODE_ECB, CRYPT_MODE_CBC, CRYPT_MODE_CFB};
  for (const DWORD earlier : order) {
    if (earlier == mode) return;
    EXPECT_EQ(SetDwordKeyParam(key, KP_MODE, earlier), 0u) << "KP_MODE " << earlier;
    FinalRoundTrip(key, plaintext, kBuffer);
  }
}

// modes.rc2_40.defaults
void Rc2Defaults(VectorCase& v, const VectorProvider& p) {
  const ProvHandle prov = p.Verify();
  const KeyHandle key = StandardKey(v, prov.get());
  ASSERT_NE(key.get(), 0u);
  EXPECT_EQ(KeyDword(key.get(), KP_MODE), v.Expected("KP_MODE_default").Dword());
  ExpectIv(key.get(), v);
  EXPECT_EQ(SetDwordKeyParam(key.get(), KP_MODE, CRYPT_MODE_ECB), 0u);
  EXPECT_EQ(KeyParamSize(key.get(), KP_SALT), v.Expected("KP_SALT_length").Dword());
  v.Input("plaintext").Acknowledge("shared by the modes.rc2_40 series; this step encrypts nothing");
}

// modes.rc2_40.ecb and modes.rc2_40.cbc: size query, Final encryption, Final decryption.
void Rc2BlockMode(VectorCase& v, const VectorProvider& p) {
  constexpr DWORD kBuffer = 24;  // the procedure's buffer
  const ProvHandle prov = p.Verify();
  const KeyHandle key = StandardKey(v, prov.get());
  ASSERT_NE(key.get(), 0u);
  const Bytes plaintext = v.Input("plaintext").Hex();
  const DWORD mode = v.Input("mode").Dword();
  ReplayEarlierModes(key.get(), plaintext, mode);
  EXPECT_EQ(SetDwordKeyParam(key.get(), KP_MODE, mode), 0u) << "KP_MODE " << mode;
  ExpectIv(key.get(), v);

  DWORD length = Size(plaintext);
  QUIV_EXPECT_SUCCEEDS(CryptEncrypt(key.get(), 0, TRUE, 0, nullptr, &length, kBuffer));
  EXPECT_EQ(length, v.Expected("size_query_length").Dword());

  Bytes buffer(plaintext);
  buffer.resize(kBuffer);
  length = Size(plaintext);
  QUIV_ASSERT_SUCCEEDS(CryptEncrypt(key.get(), 0, TRUE, 0, buffer.data(), &length, kBuffer));
  if (v.HasExpected("ciphertext_length")) {
    EXPECT_EQ(length, v.Expected("ciphertext_length").Dword());
  }
  EXPECT_EQ(Hex(Head(buffer, length)), Hex(v.Expected("ciphertext").Hex()));

  QUIV_ASSERT_SUCCEEDS(CryptDecrypt(key.get(), 0, TRUE, 0, buffer.data(), &length));
  EXPECT_EQ(length, v.Expected("decrypted_length").Dword());
  EXPECT_EQ(Hex(Head(buffer, length)), Hex(v.Expected("decrypted").Hex()));
}

// modes.rc2_40.cfb: 8-bit CFB still works in whole blocks and pads like CBC.
void Rc2Cfb(VectorCase& v, const VectorProvider& p) {
  constexpr DWORD kBuffer = 24;
  const ProvHandle prov = p.Verify();
  const KeyHandle key = StandardKey(v, prov.get());
  ASSERT_NE(key.get(), 0u);
  const Bytes plaintext = v.Input("plaintext").Hex();
  ASSERT_EQ(plaintext.size(), 23u) << "the procedure splits 23 bytes as 16 + 7";
  const DWORD mode = v.Input("mode").Dword();
  ReplayEarlierModes(key.get(), plaintext, mode);
  EXPECT_EQ(SetDwordKeyParam(key.get(), KP_MODE, mode), 0u);
  ExpectIv(key.get(), v);

  Bytes buffer(plaintext);
  buffer.resize(kBuffer);
  DWORD length = 16;
  QUIV_ASSERT_SUCCEEDS(CryptEncrypt(key.get(), 0, FALSE, 0, buffer.data(), &length, 16));
  EXPECT_EQ(length, v.Expected("first_call_length").Dword());
  length = 7;
  QUIV_EXPECT_SUCCEEDS(CryptEncrypt(key.get(), 0, TRUE, 0, nullptr, &length, 8));
  EXPECT_EQ(length, v.Expected("final_size_query_length").Dword());
  length = 7;
  QUIV_ASSERT_SUCCEEDS(CryptEncrypt(key.get(), 0, TRUE, 0, buffer.data() + 16, &length, 8));
  EXPECT_EQ(length, v.Expected("final_call_length").Dword());
  EXPECT_EQ(Hex(buffer), Hex(v.Expected("ciphertext").Hex()));

  length = 8;
  QUIV_ASSERT_SUCCEEDS(CryptDecrypt(key.get(), 0, FALSE, 0, buffer.data(), &length));
  EXPECT_EQ(length, v.Expected("decrypt_first_length").Dword());
  length = 16;
  QUIV_ASSERT_SUCCEEDS(CryptDecrypt(key.get(), 0, TRUE, 0, buffer.data() + 8, &length));
  EXPECT_EQ(length, v.Expected("decrypt_final_length").Dword());
  EXPECT_EQ(Hex(Head(buffer, 8 + length)), Hex(v.Expected("decrypted").Hex()));
}

// modes.rc2_40.ofb_rejected: the mode can be set, but using it fails.
void Rc2Ofb(VectorCase& v, const VectorProvider& p) {
  constexpr DWORD kBuffer = 24;
  const ProvHandle prov = p.Verify();
  const KeyHandle key = StandardKey(v, prov.get());
  ASSERT_NE(key.get(), 0u);
  const Bytes plaintext = v.Input("plaintext").Hex();
  ReplayEarlierModes(key.get(), plaintext, CRYPT_MODE_OFB);  // ECB, CBC and CFB steps
  ExpectIv(key.get(), v);

  const DWORD mode = v.Input("mode").Dword();
  EXPECT_EQ(SetDwordKeyParam(key.get(), KP_MODE, mode) == 0, v.Expected("set_mode_succeeds").Bool())
      << "KP_MODE " << mode;
  Bytes buffer(plaintext);
  buffer.resize(kBuffer);
  DWORD length = Size(plaintext);
  QUIV_EXPECT_FAILS_WITH(CryptEncrypt(key.get(), 0, TRUE, 0, buffer.data(), &length, kBuffer),
                         v.Expected("encrypt_error").Error());
}

// derive.des.md2.default_length, derive.3des.md2: 13 bytes in a 16-byte buffer.
void DesFamilyEncrypt(VectorCase& v, const VectorProvider& p) {
  constexpr DWORD kBuffer = 16;
  const ProvHandle prov = p.Verify();
  const KeyHandle key = StandardKey(v, prov.get());
  ASSERT_NE(key.get(), 0u);
  if (v.Inputs().Has("mode")) {
    EXPECT_EQ(SetDwordKeyParam(key.get(), KP_MODE, v.Input("mode").Dword()), 0u);
    EXPECT_EQ(KeyDword(key.get(), KP_MODE), v.Expected("KP_MODE_after_set").Dword());
  }
  const Bytes plaintext = v.Input("plaintext").Hex();
  Bytes buffer(kBuffer);
  for (size_t i = 0; i < buffer.size(); ++i) buffer[i] = static_cast<uint8_t>(i);  // 0x00..0x0f
  std::copy(plaintext.begin(), plaintext.end(), buffer.begin());
  DWORD length = Size(plaintext);
  QUIV_ASSERT_SUCCEEDS(CryptEncrypt(key.get(), 0, TRUE, 0, buffer.data(), &length, kBuffer));
  EXPECT_EQ(Hex(Head(buffer, length)), Hex(v.Expected("ciphertext").Hex()));
  QUIV_ASSERT_SUCCEEDS(CryptDecrypt(key.get(), 0, TRUE, 0, buffer.data(), &length));
  EXPECT_EQ(Hex(Head(buffer, length)), Hex(plaintext)) << "round trip";
}

// padding.final_decrypt_resets_state.des: a failed final decryption still resets the key.
void FailedFinalDecryptResets(VectorCase& v, const VectorProvider& p) {
  const ProvHandle prov = p.Verify();
  const KeyHandle key = StandardKey(v, prov.get());
  ASSERT_NE(key.get(), 0u);
  EXPECT_EQ(SetDwordKeyParam(key.get(), KP_MODE, CRYPT_MODE_ECB), 0u);
  const DWORD badFinal = v.Expected("bad_final_error").Error();
  const DWORD lengthAfterBad = v.Expected("length_after_bad_final").Dword();
  const std::string goodAfterBad = v.Expected("good_final_after_bad").Text();
  ASSERT_EQ(goodAfterBad, "succeeds with the case's decrypted_length and plaintext")
      << "the procedure below implements exactly this description";

  const VectorNode cases = v.Input("cases");
  for (size_t i = 0; i < cases.Size(); ++i) {
    SCOPED_TRACE("case " + std::to_string(i));
    const VectorNode c = cases.At(i);
    const DWORD bufferSize = c["buffer_size"].Dword();
    const DWORD decryptedLength = c["decrypted_length"].Dword();
    const Bytes prefix = c["decrypted_prefix"].Hex();
    Bytes buffer = c["buffer_initial"].Hex();
    ASSERT_LE(buffer.size(), bufferSize);
    buffer.resize(bufferSize);

    DWORD length = c["encrypt_length"].Dword();
    QUIV_ASSERT_SUCCEEDS(CryptEncrypt(key.get(), 0, TRUE, 0, buffer.data(), &length, bufferSize));
    ASSERT_EQ(length, c["encrypted_length"].Dword());
    const Bytes ciphertext = Head(buffer, length);
    QUIV_EXPECT_SUCCEEDS(CryptDecrypt(key.get(), 0, TRUE, 0, buffer.data(), &length));
    EXPECT_EQ(length, decryptedLength);
    EXPECT_EQ(Hex(Head(buffer, Size(prefix))), Hex(prefix));

    Bytes midStream = ciphertext;
    length = Size(midStream);
    QUIV_EXPECT_SUCCEEDS(CryptDecrypt(key.get(), 0, FALSE, 0, midStream.data(), &length));

    Bytes damaged = ciphertext;
    damaged.back() = static_cast<uint8_t>(~damaged.back());
    length = Size(damaged);
    QUIV_EXPECT_FAILS_WITH(CryptDecrypt(key.get(), 0, TRUE, 0, damaged.data(), &length), badFinal);
    EXPECT_EQ(length, lengthAfterBad);

    Bytes good = ciphertext;
    length = Size(good);
    QUIV_EXPECT_SUCCEEDS(CryptDecrypt(key.get(), 0, TRUE, 0, good.data(), &length))
        << "the failed final call must have reset the key";
    EXPECT_EQ(length, decryptedLength);
    EXPECT_EQ(Hex(Head(good, Size(prefix))), Hex(prefix));
  }
}

// derive.rc2_40.params
void Rc2Params(VectorCase& v, const VectorProvider& p) {
  const ProvHandle prov = p.Verify();
  const KeyHandle key = StandardKey(v, prov.get());
  ASSERT_NE(key.get(), 0u);
  KeyDword(key.get(), KP_KEYLEN);  // read, value not recorded
  EXPECT_EQ(KeyDword(key.get(), KP_MODE), v.Expected("KP_MODE_default").Dword());
  EXPECT_EQ(SetDwordKeyParam(key.get(), KP_MODE, CRYPT_MODE_CBC), 0u);
  KeyDword(key.get(), KP_MODE_BITS);  // read, value not recorded
  EXPECT_EQ(KeyDword(key.get(), KP_PERMISSIONS), v.Expected("KP_PERMISSIONS").Dword());

  DWORD length = 64;  // room for more than a DWORD: the provider says how much it wrote
  Bytes room(length);
  QUIV_EXPECT_SUCCEEDS(CryptGetKeyParam(key.get(), KP_BLOCKLEN, room.data(), &length, 0));
  EXPECT_EQ(length, v.Expected("KP_BLOCKLEN_output_size").Dword());

  DWORD ivLength = 0;
  QUIV_EXPECT_SUCCEEDS(CryptGetKeyParam(key.get(), KP_IV, nullptr, &ivLength, 0));
  const DWORD expectedIvLength = v.Expected("KP_IV_length").Dword();
  EXPECT_EQ(ivLength, expectedIvLength);
  EXPECT_EQ(KeyBytes(key.get(), KP_IV).size(), expectedIvLength);

  DWORD saltLength = 0;
  QUIV_EXPECT_SUCCEEDS(CryptGetKeyParam(key.get(), KP_SALT, nullptr, &saltLength, 0));
  EXPECT_EQ(saltLength, v.Expected("KP_SALT_length").Dword());
  EXPECT_EQ(Hex(KeyBytes(key.get(), KP_SALT)), Hex(v.Expected("KP_SALT_value").Hex()));
  EXPECT_EQ(KeyDword(key.get(), KP_MODE), v.Expected("KP_MODE_final").Dword());
}

// derive.rc2_40.encrypt
void Rc2Encrypt(VectorCase& v, const VectorProvider& p) {
  constexpr DWORD kBuffer = 24;
  const ProvHandle prov = p.Verify();
  const KeyHandle key = StandardKey(v, prov.get());
  ASSERT_NE(key.get(), 0u);
  const Bytes plaintext = v.Input("plaintext").Hex();
  Bytes buffer(plaintext);
  buffer.resize(kBuffer);
  DWORD length = Size(plaintext);
  QUIV_ASSERT_SUCCEEDS(CryptEncrypt(key.get(), 0, TRUE, 0, buffer.data(), &length, kBuffer));
  EXPECT_EQ(length, v.Expected("ciphertext_length").Dword());
  EXPECT_EQ(Hex(Head(buffer, length)), Hex(v.Expected("ciphertext").Hex()));
  KeyBytes(key.get(), KP_IV);  // read, value not recorded
  QUIV_ASSERT_SUCCEEDS(CryptDecrypt(key.get(), 0, TRUE, 0, buffer.data(), &length));
  EXPECT_EQ(Hex(Head(buffer, length)), Hex(plaintext)) << "round trip";
}

// salt.set_kp_salt_and_salt_ex, on the 40-bit RC2 key of derive.rc2_40.* and the 56-bit RC4 key
// of derive.rc4_56.*.
void SetSalt(VectorCase& v, const VectorProvider& p) {
  const ProvHandle prov = p.Verify();
  const Bytes seq2000 = v.file().Shared("seq2000");
  const DWORD afterSet = v.Expected("KP_SALT_length_after_set").Dword();
  const std::vector<uint32_t> sizes = v.Input("salt_ex_sizes").DwordList();
  ASSERT_FALSE(sizes.empty());
  // "n (for each n in 0..23)": the reported length equals each size set, over the listed sizes.
  EXPECT_EQ(v.Expected("KP_SALT_length_after_salt_ex_n").Text(),
            "n (for each n in " + std::to_string(sizes.front()) + ".." +
                std::to_string(sizes.back()) + ")");
  const DWORD oversize = v.Input("oversize").Dword();
  ASSERT_EQ(v.Expected("salt_ex_25").Outcome(), VectorOutcome::Fails);
  ASSERT_EQ(oversize, 25u) << "salt_ex_25 records the outcome for 25 bytes";

  struct KeyUnderTest {
    ALG_ID alg;
    DWORD flags;
  };
  const KeyUnderTest keys[] = {{CALG_RC2, 40u << 16}, {CALG_RC4, 56u << 16}};
  const std::array<BYTE, 11> salt = {'0', '1', '2', '3', '4', '5', '6', '7', '8', '9', 'A'};
  for (const auto& k : keys) {
    SCOPED_TRACE("algid 0x" +
                 Hex(Bytes{static_cast<uint8_t>(k.alg >> 8), static_cast<uint8_t>(k.alg)}));
    const KeyHandle key = DeriveKey(prov.get(), CALG_MD2, seq2000, k.alg, k.flags);
    ASSERT_NE(key.get(), 0u);
    QUIV_EXPECT_SUCCEEDS(CryptSetKeyParam(key.get(), KP_SALT, salt.data(), 0));
    EXPECT_EQ(KeyParamSize(key.get(), KP_SALT), afterSet) << "after KP_SALT";
    Bytes backing(oversize, 0x5a);
    for (const uint32_t n : sizes) {
      CRYPT_INTEGER_BLOB blob{n, backing.data()};
      QUIV_EXPECT_SUCCEEDS(
          CryptSetKeyParam(key.get(), KP_SALT_EX, reinterpret_cast<const BYTE*>(&blob), 0))
          << " KP_SALT_EX of " << n << " bytes";
      EXPECT_EQ(KeyParamSize(key.get(), KP_SALT), n) << "after KP_SALT_EX of " << n << " bytes";
    }
    CRYPT_INTEGER_BLOB big{oversize, backing.data()};
    EXPECT_TRUE(FailedWithAnyCode(
        CryptSetKeyParam(key.get(), KP_SALT_EX, reinterpret_cast<const BYTE*>(&big), 0)))
        << "KP_SALT_EX of " << oversize << " bytes";
  }
}

// derive.rc2_56.effective_keylen
void Rc2EffectiveLength(VectorCase& v, const VectorProvider& p) {
  const ProvHandle prov = p.Verify();
  const KeyHandle key = StandardKey(v, prov.get());
  ASSERT_NE(key.get(), 0u);
  QUIV_EXPECT_FAILS_WITH(CryptSetKeyParam(key.get(), KP_EFFECTIVE_KEYLEN, nullptr, 0),
                         v.Expected("set_null_error").Error());
  EXPECT_EQ(SetDwordKeyParam(key.get(), KP_EFFECTIVE_KEYLEN, 0), v.Expected("set_0_error").Error());
  ASSERT_EQ(v.Expected("set_1025").Outcome(), VectorOutcome::Fails);
  EXPECT_NE(SetDwordKeyParam(key.get(), KP_EFFECTIVE_KEYLEN, 1025), 0u) << "1025 must fail";
  const DWORD keyLength = v.Expected("KP_KEYLEN").Dword();
  EXPECT_EQ(KeyDword(key.get(), KP_KEYLEN), keyLength);
  EXPECT_EQ(KeyDword(key.get(), KP_EFFECTIVE_KEYLEN),
            v.Expected("KP_EFFECTIVE_KEYLEN_initial").Dword());
  const DWORD set128 = SetDwordKeyParam(key.get(), KP_EFFECTIVE_KEYLEN, 128);
  if (v.HasExpected("set_128")) {
    ASSERT_EQ(v.Expected("set_128").Outcome(), VectorOutcome::Succeeds);
    EXPECT_EQ(set128, 0u) << "setting 128 failed with " << ErrorText(set128);
  } else {
    EXPECT_EQ(set128, v.Expected("set_128_error").Error()) << ErrorText(set128);
  }
  EXPECT_EQ(KeyDword(key.get(), KP_EFFECTIVE_KEYLEN),
            v.Expected("KP_EFFECTIVE_KEYLEN_after").Dword());
  EXPECT_EQ(KeyDword(key.get(), KP_KEYLEN), keyLength);
}

// derive.rc4_56.md2
void Rc4Derived(VectorCase& v, const VectorProvider& p) {
  constexpr DWORD kBuffer = 24;
  const ProvHandle prov = p.Verify();
  const KeyHandle key = StandardKey(v, prov.get());
  ASSERT_NE(key.get(), 0u);
  EXPECT_EQ(KeyDword(key.get(), KP_KEYLEN), v.Expected("KP_KEYLEN").Dword());
  EXPECT_EQ(KeyDword(key.get(), KP_BLOCKLEN), v.Expected("KP_BLOCKLEN").Dword());
  KeyBytes(key.get(), KP_IV);    // size query and read; lengths not recorded
  KeyBytes(key.get(), KP_SALT);  // likewise
  EXPECT_EQ(KeyDword(key.get(), KP_MODE), v.Expected("KP_MODE").Dword());

  const Bytes plaintext = v.Input("plaintext").Hex();
  DWORD length = Size(plaintext);
  QUIV_EXPECT_SUCCEEDS(CryptEncrypt(key.get(), 0, TRUE, 0, nullptr, &length, kBuffer));
  Bytes buffer(plaintext);
  buffer.resize(kBuffer);
  length = Size(plaintext);
  QUIV_ASSERT_SUCCEEDS(CryptEncrypt(key.get(), 0, TRUE, 0, buffer.data(), &length, kBuffer));
  EXPECT_EQ(Hex(Head(buffer, length)), Hex(v.Expected("ciphertext").Hex()));
  QUIV_ASSERT_SUCCEEDS(CryptDecrypt(key.get(), 0, TRUE, 0, buffer.data(), &length));
  EXPECT_EQ(Hex(Head(buffer, length)), Hex(plaintext)) << "round trip";
}

// rc4salt.*: salt of a generated RC4 key, and what a SIMPLEBLOB round trip does to it.
void Rc4GeneratedSalt(VectorCase& v, const VectorProvider& p) {
  const DWORD bits = v.Input("key_length_bits").Dword();
  const DWORD flags = v.Input("flags").Dword();
  const std::string flagsName = v.Input("flags_name").Text();
  EXPECT_EQ(flagsName == "none", flags == 0) << "flags_name " << flagsName;
  const DWORD genFlags = v.Input("genkey_flags").Dword();
  EXPECT_EQ(genFlags, (bits << 16) | flags | CRYPT_EXPORTABLE) << "genkey_flags as described";

  const ProvHandle prov = p.Verify();
  KeyHandle key;
  QUIV_ASSERT_SUCCEEDS(CryptGenKey(prov.get(), CALG_RC4, genFlags, key.put()));
  EXPECT_EQ(KeyDword(key.get(), KP_KEYLEN), v.Expected("KP_KEYLEN").Dword());
  EXPECT_EQ(KeyParamSize(key.get(), KP_SALT), v.Expected("KP_SALT_length_generated").Dword());
  ExpectSaltDescription(KeyBytes(key.get(), KP_SALT), v.Expected("generated_salt").Text());

  Bytes saltEx = v.Input("salt_ex").Hex();
  CRYPT_INTEGER_BLOB blob{Size(saltEx), saltEx.data()};
  QUIV_EXPECT_SUCCEEDS(
      CryptSetKeyParam(key.get(), KP_SALT_EX, reinterpret_cast<const BYTE*>(&blob), 0));
  const KeyHandle wrap = ImportKey(prov.get(), v.Input("wrap_public").Hex(), 0, 0);
  ASSERT_NE(wrap.get(), 0u);
  const Bytes simpleBlob = ExportKey(key.get(), wrap.get(), SIMPLEBLOB);
  ASSERT_FALSE(simpleBlob.empty());

  const ProvHandle other = p.Verify();
  const KeyHandle unwrap = ImportKey(other.get(), v.Input("unwrap_private").Hex(), 0, 0);
  ASSERT_NE(unwrap.get(), 0u);
  const KeyHandle imported = ImportKey(other.get(), simpleBlob, unwrap.get(), 0);
  ASSERT_NE(imported.get(), 0u);
  EXPECT_EQ(KeyParamSize(imported.get(), KP_SALT),
            v.Expected("KP_SALT_length_after_simpleblob_import").Dword());
  ExpectSaltDescription(KeyBytes(imported.get(), KP_SALT), v.Expected("imported_salt").Text());
}

// rc2import.simpleblob.136bits: an RC2 key longer than any the provider makes, wrapped by hand.
void OverlongRc2Import(VectorCase& v, const VectorProvider& p) {
  const DWORD bits = v.Input("L_bits").Dword();
  const DWORD keyBytes = v.Input("key_length_bytes").Dword();
  EXPECT_EQ(keyBytes, std::min<DWORD>(bits / 8, 64)) << "N = min(L/8, 64)";
  const Bytes material = v.Input("key_material").Hex();
  ASSERT_EQ(material.size(), keyBytes);
  const Bytes header = v.Input("simpleblob_header").Hex();
  ASSERT_EQ(header.size(), 12u);

  // The container's own exchange key wraps the key material (any RSA exchange key will do).
  const std::string container = v.file().ContainerName();
  const ProvHandle prov = p.NewContainer(container.c_str());
  ASSERT_NE(prov.get(), 0u);
  KeyHandle exchange;
  QUIV_ASSERT_SUCCEEDS(CryptGenKey(prov.get(), AT_KEYEXCHANGE, 0, exchange.put()));
  DWORD length = keyBytes;
  QUIV_ASSERT_SUCCEEDS(CryptEncrypt(exchange.get(), 0, TRUE, 0, nullptr, &length, 0));
  Bytes wrapped(material);
  wrapped.resize(std::max<size_t>(length, material.size()));
  length = keyBytes;
  QUIV_ASSERT_SUCCEEDS(
      CryptEncrypt(exchange.get(), 0, TRUE, 0, wrapped.data(), &length, Size(wrapped)));
  Bytes blob(header);
  blob.insert(blob.end(), wrapped.begin(), wrapped.begin() + length);

  // The notes record that the newest revision also expects the same key bytes to be refused
  // as a PLAINTEXTKEYBLOB (its length is outside the provider's RC2 range).
  Bytes plainBlob = {PLAINTEXTKEYBLOB, CUR_BLOB_VERSION, 0, 0};
  plainBlob.insert(plainBlob.end(), header.begin() + 4, header.begin() + 8);  // aiKeyAlg
  for (int shift = 0; shift < 32; shift += 8) plainBlob.push_back(uint8_t(keyBytes >> shift));
  plainBlob.insert(plainBlob.end(), material.begin(), material.end());
  KeyHandle plain;
  EXPECT_TRUE(FailedWithAnyCode(
      CryptImportKey(prov.get(), plainBlob.data(), Size(plainBlob), 0, 0, plain.put())))
      << "PLAINTEXTKEYBLOB of " << keyBytes << " RC2 key bytes";

  ASSERT_EQ(v.Expected("import").Outcome(), VectorOutcome::Succeeds);
  const KeyHandle key = ImportKey(prov.get(), blob, exchange.get(), 0);
  ASSERT_NE(key.get(), 0u);
  EXPECT_EQ(KeyDword(key.get(), KP_EFFECTIVE_KEYLEN), v.Expected("KP_EFFECTIVE_KEYLEN").Dword());
  EXPECT_EQ(KeyDword(key.get(), KP_KEYLEN), v.Expected("KP_KEYLEN").Dword());

  const Bytes input = v.Input("decrypt_input").Hex();  // 8 bytes of 0xcc
  const DWORD encryptError = v.Expected("encrypt_error").Error();
  Bytes buffer(input);
  buffer.resize(16);
  length = Size(input);
  QUIV_EXPECT_FAILS_WITH(CryptEncrypt(key.get(), 0, FALSE, 0, buffer.data(), &length, 16),
                         encryptError);
  buffer = input;
  buffer.resize(16);
  length = Size(input);
  QUIV_EXPECT_FAILS_WITH(CryptEncrypt(key.get(), 0, TRUE, 0, buffer.data(), &length, 16),
                         encryptError);
  buffer = input;
  length = Size(input);
  QUIV_EXPECT_SUCCEEDS(CryptDecrypt(key.get(), 0, FALSE, 0, buffer.data(), &length));
  EXPECT_EQ(length, v.Expected("decrypt_length").Dword());
  EXPECT_EQ(Hex(Head(buffer, length)), Hex(v.Expected("decrypted_8").Hex()));

  const Bytes hashInput = v.Input("hash_input").Hex();
  {
    const HashHandle mac = CreateHash(prov.get(), CALG_MAC, key.get());
    ASSERT_NE(mac.get(), 0u);
    QUIV_EXPECT_SUCCEEDS(CryptHashData(mac.get(), hashInput.data(), Size(hashInput), 0));
    EXPECT_EQ(HashDword(mac.get(), HP_HASHSIZE), v.Expected("mac_HP_HASHSIZE").Dword());
    const Bytes value = HashBytes(mac.get(), HP_HASHVAL, 64);
    EXPECT_EQ(value.size(), v.Expected("mac_length").Dword());
    EXPECT_EQ(Hex(value), Hex(v.Expected("mac").Hex()));
    v.Expected("mac_pre_win8 (legacy)")
        .Acknowledge("value of releases before Windows 8, which mixed the key's state in");
  }
  {
    const VectorNode strings = v.Input("hmac_inner_outer_strings");
    const DWORD stringLength = strings["length_bytes"].Dword();
    ASSERT_EQ(strings["value"].Text(), "all zero");
    Bytes inner(stringLength, 0);
    Bytes outer(stringLength, 0);
    const HMAC_INFO info = HmacInfo(CALG_MD5, &inner, &outer);
    const HashHandle hmac = CreateHash(prov.get(), CALG_HMAC, key.get());
    ASSERT_NE(hmac.get(), 0u);
    QUIV_EXPECT_SUCCEEDS(
        CryptSetHashParam(hmac.get(), HP_HMAC_INFO, reinterpret_cast<const BYTE*>(&info), 0));
    QUIV_EXPECT_SUCCEEDS(CryptHashData(hmac.get(), hashInput.data(), Size(hashInput), 0));
    EXPECT_EQ(HashDword(hmac.get(), HP_HASHSIZE), v.Expected("hmac_HP_HASHSIZE").Dword());
    const Bytes value = HashBytes(hmac.get(), HP_HASHVAL, 64);
    EXPECT_EQ(value.size(), v.Expected("hmac_length").Dword());
    EXPECT_EQ(Hex(value), Hex(v.Expected("hmac_md5").Hex()));
  }
}

constexpr NamedProcedure kProcedures[] = {
    {"modes.rc2_40.defaults", Rc2Defaults},
    {"modes.rc2_40.ecb", Rc2BlockMode},
    {"modes.rc2_40.cbc", Rc2BlockMode},
    {"modes.rc2_40.cfb", Rc2Cfb},
    {"modes.rc2_40.ofb_rejected", Rc2Ofb},
    {"derive.des.md2.default_length", DesFamilyEncrypt},
    {"derive.3des.md2", DesFamilyEncrypt},
    {"padding.final_decrypt_resets_state.des", FailedFinalDecryptResets},
    {"derive.rc2_40.params", Rc2Params},
    {"derive.rc2_40.encrypt", Rc2Encrypt},
    {"salt.set_kp_salt_and_salt_ex", SetSalt},
    {"derive.rc2_56.effective_keylen", Rc2EffectiveLength},
    {"derive.rc4_56.md2", Rc4Derived},
    {"rc2import.simpleblob.136bits", OverlongRc2Import},
    {"rc4salt.00.base.len0.none", Rc4GeneratedSalt},
    {"rc4salt.01.base.len40.none", Rc4GeneratedSalt},
    {"rc4salt.05.enhanced.len0.none", Rc4GeneratedSalt},
    {"rc4salt.06.enhanced.len40.none", Rc4GeneratedSalt},
};

class VectorsSymmetric : public VectorTest {};

TEST_P(VectorsSymmetric, Procedure) {
  RunProcedure(kProcedures);
}

INSTANTIATE_TEST_SUITE_P(Windows, VectorsSymmetric,
                         ::testing::ValuesIn(WindowsVectors().Params(kSymmetricCategories)),
                         VectorTestName);

}  // namespace
}  // namespace quiv::test
