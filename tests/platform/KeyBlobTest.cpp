// KeyBlob: header checks, export/import dispatch, SIMPLEBLOB and PLAINTEXTKEYBLOB, wrapped
// PRIVATEKEYBLOB, with the recorded Windows SIMPLEBLOB as the known answer.
#include "platform/KeyBlob.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "platform/CspError.h"
#include "platform/ProviderInfo.h"
#include "platform/RsaKey.h"
#include "platform/SymmetricKey.h"
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
using test::ToBytes;
using test::Vector;

std::unique_ptr<SymmetricKey> Session(ALG_ID algid, const Bytes& bytes, DWORD flags) {
  return SymmetricKey::FromKeyBytes(Enhanced(), algid, bytes, flags,
                                    SymmetricKey::Origin::PlaintextBlob);
}

Bytes PlaintextBlob(ALG_ID algid, const Bytes& key) {
  Bytes blob = {PLAINTEXTKEYBLOB, 2, 0, 0};
  for (int s = 0; s < 32; s += 8) blob.push_back(static_cast<uint8_t>(algid >> s));
  for (int s = 0; s < 32; s += 8) blob.push_back(static_cast<uint8_t>(key.size() >> s));
  blob.insert(blob.end(), key.begin(), key.end());
  return blob;
}

// A SIMPLEBLOB under the e = d = 1 exchange key: the "encryption" is the block itself.
Bytes SimpleBlobWithBlock(ALG_ID algid, const Bytes& bigEndianBlock) {
  Bytes blob = {SIMPLEBLOB, 2, 0, 0};
  for (int s = 0; s < 32; s += 8) blob.push_back(static_cast<uint8_t>(algid >> s));
  for (int s = 0; s < 32; s += 8) blob.push_back(static_cast<uint8_t>(CALG_RSA_KEYX >> s));
  blob.insert(blob.end(), bigEndianBlock.rbegin(), bigEndianBlock.rend());
  return blob;
}

Bytes Type2Block(size_t k, const Bytes& message) {
  Bytes block = {0x00, 0x02};
  block.insert(block.end(), k - 3 - message.size(), 0x5A);
  block.push_back(0x00);
  block.insert(block.end(), message.begin(), message.end());
  return block;
}

// ---- header checks ----

TEST(KeyBlobTest, ShortOrMalformedHeaderIsBadData) {
  const Bytes pub = Shared("rsa512_keyx_public");
  EXPECT_EQ(
      ErrorOf([&] { KeyBlob::Import(Enhanced(), Bytes(pub.begin(), pub.begin() + 7), {}, 0); }),
      Code(NTE_BAD_DATA));
  Bytes version = pub;
  version[1] = 1;
  EXPECT_EQ(ErrorOf([&] { KeyBlob::Import(Enhanced(), version, {}, 0); }), Code(NTE_BAD_DATA));
  Bytes reserved = pub;
  reserved[3] = 1;
  EXPECT_EQ(ErrorOf([&] { KeyBlob::Import(Enhanced(), reserved, {}, 0); }), Code(NTE_BAD_DATA));
}

TEST(KeyBlobTest, UnknownBlobTypeIsBadType) {
  Bytes blob = Shared("rsa512_keyx_public");
  blob[0] = 9;
  EXPECT_EQ(ErrorOf([&] { KeyBlob::Import(Enhanced(), blob, {}, 0); }), Code(NTE_BAD_TYPE));
  auto key = SharedPair("rsa512_keyx_private");
  DWORD length = 0;
  EXPECT_EQ(ErrorOf([&] {
              KeyBlob::Export({nullptr, key.get()}, {}, 9, 0, nullptr, &length);
            }),
            Code(NTE_BAD_TYPE));
}

TEST(KeyBlobTest, DispatchesPublicAndPrivateBlobs) {
  const Bytes pub = Shared("rsa512_public_all_0x11");
  ImportedKey imported = KeyBlob::Import(Enhanced(), pub, {}, 0);
  ASSERT_TRUE(imported.rsa);
  EXPECT_FALSE(imported.symmetric);
  EXPECT_EQ(ToBytes(KeyBlob::Export({nullptr, imported.rsa.get()}, {}, PUBLICKEYBLOB, 0)), pub);
  const Bytes priv = Shared("rsa1024_sign_private_highbit");
  ImportedKey pair = KeyBlob::Import(Enhanced(), priv, {}, CRYPT_EXPORTABLE);
  ASSERT_TRUE(pair.rsa);
  EXPECT_EQ(pair.rsa->algid(), static_cast<ALG_ID>(CALG_RSA_SIGN));
  EXPECT_EQ(ToBytes(KeyBlob::Export({nullptr, pair.rsa.get()}, {}, PRIVATEKEYBLOB, 0)), priv);
}

TEST(KeyBlobTest, ExportSizeRules) {
  auto key = SharedPair("rsa512_keyx_private");
  DWORD length = 0;
  KeyBlob::Export({nullptr, key.get()}, {}, PUBLICKEYBLOB, 0, nullptr, &length);
  EXPECT_EQ(length, 84u);
  Bytes small(83, 0xAA);
  length = 83;
  EXPECT_EQ(ErrorOf([&] {
              KeyBlob::Export({nullptr, key.get()}, {}, PUBLICKEYBLOB, 0, small.data(), &length);
            }),
            Code(ERROR_MORE_DATA));
  EXPECT_EQ(length, 84u);
  EXPECT_EQ(small[0], 0xAA);
  EXPECT_EQ(ErrorOf([&] {
              KeyBlob::Export({nullptr, key.get()}, {}, PUBLICKEYBLOB, 0, small.data(), nullptr);
            }),
            Code(ERROR_INVALID_PARAMETER));
  Bytes big(100);
  length = 100;
  KeyBlob::Export({nullptr, key.get()}, {}, PUBLICKEYBLOB, 0, big.data(), &length);
  EXPECT_EQ(length, 84u);
  EXPECT_EQ(Bytes(big.begin(), big.begin() + 84), Shared("rsa512_keyx_public"));
}

TEST(KeyBlobTest, BlobTypeMustFitTheKey) {
  auto pair = SharedPair("rsa512_keyx_private", CRYPT_EXPORTABLE);
  auto session = Session(CALG_RC4, Bytes(16, 7), CRYPT_EXPORTABLE);
  DWORD length = 0;
  EXPECT_EQ(ErrorOf([&] {
              KeyBlob::Export({session.get(), nullptr}, {}, PUBLICKEYBLOB, 0, nullptr, &length);
            }),
            Code(NTE_BAD_KEY));
  EXPECT_EQ(ErrorOf([&] {
              KeyBlob::Export({session.get(), nullptr}, {}, PRIVATEKEYBLOB, 0, nullptr, &length);
            }),
            Code(NTE_BAD_KEY));
  EXPECT_EQ(ErrorOf([&] {
              KeyBlob::Export({nullptr, pair.get()}, {nullptr, pair.get()}, SIMPLEBLOB, 0, nullptr,
                              &length);
            }),
            Code(NTE_BAD_KEY));
  // A public blob takes no exchange key.
  EXPECT_EQ(ErrorOf([&] {
              KeyBlob::Export({nullptr, pair.get()}, {session.get(), nullptr}, PUBLICKEYBLOB, 0,
                              nullptr, &length);
            }),
            Code(NTE_BAD_KEY));
}

// ---- SIMPLEBLOB ----

TEST(KeyBlobTest, ImportsWindowsSimpleBlobAndDecrypts) {
  const auto& v = Vector("rsa.keyx1024.simpleblob_import_and_decrypt");
  auto exchange = SharedPair("rsa1024_keyx_private");
  const Bytes blob = Shared("simpleblob_rc4_56_under_rsa1024");
  ASSERT_EQ(blob.size(), v["inputs"]["import_length"].get<size_t>());
  ImportedKey imported = KeyBlob::Import(Enhanced(), blob, {nullptr, exchange.get()}, 0);
  ASSERT_TRUE(imported.symmetric);
  EXPECT_EQ(imported.symmetric->permissions(), v["expected"]["KP_PERMISSIONS"].get<DWORD>());
  const Bytes md2 = Shared("md2_of_seq2000");
  const std::span<const uint8_t> keyBytes = imported.symmetric->KeyBytes();
  EXPECT_EQ(Bytes(keyBytes.begin(), keyBytes.end()), Bytes(md2.begin(), md2.begin() + 7));
  Bytes data = FromHex(v["inputs"]["ciphertext"]);
  DWORD length = static_cast<DWORD>(data.size());
  imported.symmetric->Decrypt(nullptr, true, 0, data.data(), &length);
  EXPECT_EQ(length, v["expected"]["decrypted_length"].get<DWORD>());
  EXPECT_EQ(data, FromHex(v["expected"]["plaintext"]));
}

TEST(KeyBlobTest, SimpleBlobShorterThanModulusIsBadData) {
  auto exchange = SharedPair("rsa1024_keyx_private");
  const Bytes blob = Shared("simpleblob_rc4_56_under_rsa1024");
  const Bytes cut(blob.begin(), blob.begin() + 139);
  EXPECT_EQ(ErrorOf([&] {
              KeyBlob::Import(Enhanced(), cut, {nullptr, exchange.get()}, 0);
            }),
            Code(NTE_BAD_DATA));
}

TEST(KeyBlobTest, SimpleBlobNeedsExchangePrivateKey) {
  const Bytes blob = Shared("simpleblob_rc4_56_under_rsa1024");
  auto signature = SharedPair("rsa1024_sign_private_highbit");
  auto publicOnly = RsaKey::ImportPublicBlob(Enhanced(), Shared("rsa1024_keyx_public_derived"), 0);
  EXPECT_EQ(ErrorOf([&] { KeyBlob::Import(Enhanced(), blob, {}, 0); }), Code(NTE_BAD_PUBLIC_KEY));
  EXPECT_EQ(ErrorOf([&] {
              KeyBlob::Import(Enhanced(), blob, {nullptr, signature.get()}, 0);
            }),
            Code(NTE_BAD_PUBLIC_KEY));
  EXPECT_EQ(ErrorOf([&] {
              KeyBlob::Import(Enhanced(), blob, {nullptr, publicOnly.get()}, 0);
            }),
            Code(NTE_BAD_PUBLIC_KEY));
}

TEST(KeyBlobTest, SimpleBlobWithBadPaddingIsBadData) {
  auto exchange = SharedPair("rsa512_pubexp1_private");
  Bytes block = Type2Block(64, Bytes(16, 0x33));
  block[1] = 0x01;  // type 1 is not an encryption block
  EXPECT_EQ(ErrorOf([&] {
              KeyBlob::Import(Enhanced(), SimpleBlobWithBlock(CALG_RC4, block),
                              {nullptr, exchange.get()}, 0);
            }),
            Code(NTE_BAD_DATA));
  Bytes noSeparator(64, 0x5A);
  noSeparator[0] = 0;
  noSeparator[1] = 2;
  EXPECT_EQ(ErrorOf([&] {
              KeyBlob::Import(Enhanced(), SimpleBlobWithBlock(CALG_RC4, noSeparator),
                              {nullptr, exchange.get()}, 0);
            }),
            Code(NTE_BAD_DATA));
}

TEST(KeyBlobTest, SimpleBlobOfNonSessionAlgorithmIsBadAlgid) {
  auto exchange = SharedPair("rsa512_pubexp1_private");
  const Bytes blob = SimpleBlobWithBlock(CALG_RSA_SIGN, Type2Block(64, Bytes(16, 0x33)));
  EXPECT_EQ(ErrorOf([&] {
              KeyBlob::Import(Enhanced(), blob, {nullptr, exchange.get()}, 0);
            }),
            Code(NTE_BAD_ALGID));
}

TEST(KeyBlobTest, HandMadeType2BlockUnwrapsToItsKeyBytes) {
  auto exchange = SharedPair("rsa512_pubexp1_private");
  const Bytes keyBytes = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16};
  ImportedKey imported =
      KeyBlob::Import(Enhanced(), SimpleBlobWithBlock(CALG_RC4, Type2Block(64, keyBytes)),
                      {nullptr, exchange.get()}, CRYPT_EXPORTABLE);
  ASSERT_TRUE(imported.symmetric);
  const auto got = imported.symmetric->KeyBytes();
  EXPECT_EQ(Bytes(got.begin(), got.end()), keyBytes);
  EXPECT_EQ(imported.symmetric->permissions(), 0x3Fu);
}

TEST(KeyBlobTest, SimpleBlobExportLayout) {
  auto exchange = SharedPair("rsa512_pubexp1_private");
  const Bytes keyBytes(16, 0xC3);
  auto session = Session(CALG_RC4, keyBytes, CRYPT_EXPORTABLE);
  DWORD length = 0;
  KeyBlob::Export({session.get(), nullptr}, {nullptr, exchange.get()}, SIMPLEBLOB, 0, nullptr,
                  &length);
  EXPECT_EQ(length, 12u + 64u);
  const Bytes blob =
      ToBytes(KeyBlob::Export({session.get(), nullptr}, {nullptr, exchange.get()}, SIMPLEBLOB, 0));
  ASSERT_EQ(blob.size(), 76u);
  EXPECT_EQ(Bytes(blob.begin(), blob.begin() + 12),
            (Bytes{1, 2, 0, 0, 0x01, 0x68, 0, 0, 0x00, 0xa4, 0, 0}));
  // e = 1: the block is visible; key bytes at its end in their stored order.
  const Bytes block(blob.rbegin(), blob.rbegin() + 64);
  EXPECT_EQ(block[0], 0);
  EXPECT_EQ(block[1], 2);
  EXPECT_TRUE(std::none_of(block.begin() + 2, block.end() - 17, [](uint8_t b) { return b == 0; }));
  EXPECT_EQ(block[64 - 17], 0);
  EXPECT_EQ(Bytes(block.end() - 16, block.end()), keyBytes);
}

TEST(KeyBlobTest, SimpleBlobRoundTripsThroughRealKey) {
  auto exchange = SharedPair("rsa1024_keyx_private");
  const Bytes keyBytes = {9, 8, 7, 6, 5, 4, 3, 2, 1, 0, 1, 2, 3, 4, 5, 6};
  auto session = Session(CALG_RC4, keyBytes, CRYPT_EXPORTABLE);
  for (DWORD flags : {0u, static_cast<DWORD>(CRYPT_OAEP)}) {
    const SecureBytes blob =
        KeyBlob::Export({session.get(), nullptr}, {nullptr, exchange.get()}, SIMPLEBLOB, flags);
    ImportedKey back = KeyBlob::Import(Enhanced(), blob, {nullptr, exchange.get()}, flags);
    const auto got = back.symmetric->KeyBytes();
    EXPECT_EQ(Bytes(got.begin(), got.end()), keyBytes);
  }
}

TEST(KeyBlobTest, NonExportableSessionKeyIsRefused) {
  auto exchange = SharedPair("rsa512_keyx_private");
  auto session = Session(CALG_RC4, Bytes(16, 1), 0);
  DWORD length = 0;
  EXPECT_EQ(ErrorOf([&] {
              KeyBlob::Export({session.get(), nullptr}, {nullptr, exchange.get()}, SIMPLEBLOB, 0,
                              nullptr, &length);
            }),
            Code(NTE_BAD_KEY_STATE));
  EXPECT_EQ(ErrorOf([&] {
              KeyBlob::Export({session.get(), nullptr}, {}, PLAINTEXTKEYBLOB, 0, nullptr, &length);
            }),
            Code(NTE_BAD_KEY_STATE));
}

TEST(KeyBlobTest, SimpleBlobExportNeedsExchangeKey) {
  auto signature = SharedPair("rsa512_sign_private");
  auto session = Session(CALG_RC4, Bytes(16, 1), CRYPT_EXPORTABLE);
  DWORD length = 0;
  EXPECT_EQ(ErrorOf([&] {
              KeyBlob::Export({session.get(), nullptr}, {}, SIMPLEBLOB, 0, nullptr, &length);
            }),
            Code(NTE_BAD_PUBLIC_KEY));
  EXPECT_EQ(ErrorOf([&] {
              KeyBlob::Export({session.get(), nullptr}, {nullptr, signature.get()}, SIMPLEBLOB, 0,
                              nullptr, &length);
            }),
            Code(NTE_BAD_PUBLIC_KEY));
}

// ---- PLAINTEXTKEYBLOB ----

TEST(KeyBlobTest, PlaintextBlobImportsAndExportsBack) {
  const Bytes blob =
      PlaintextBlob(CALG_RC4, Bytes{1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16});
  ImportedKey imported = KeyBlob::Import(Enhanced(), blob, {}, CRYPT_EXPORTABLE);
  ASSERT_TRUE(imported.symmetric);
  EXPECT_EQ(ToBytes(KeyBlob::Export({imported.symmetric.get(), nullptr}, {}, PLAINTEXTKEYBLOB, 0)),
            blob);
}

TEST(KeyBlobTest, PlaintextBlobOutOfRangeUnlessIpsecHmac) {
  const Bytes blob = PlaintextBlob(CALG_RC2, Bytes(16, 0x11));  // Base allows at most 56 bits
  EXPECT_EQ(ErrorOf([&] { KeyBlob::Import(Base(), blob, {}, 0); }), Code(NTE_BAD_DATA));
  ImportedKey hmacKey = KeyBlob::Import(Base(), blob, {}, CRYPT_IPSEC_HMAC_KEY);
  ASSERT_TRUE(hmacKey.symmetric);
  EXPECT_EQ(hmacKey.symmetric->KeyBytes().size(), 16u);
  const Bytes long80 = PlaintextBlob(CALG_RC2, Bytes(80, 0xAA));  // RFC 2202 case 6 key length
  EXPECT_EQ(
      KeyBlob::Import(Enhanced(), long80, {}, CRYPT_IPSEC_HMAC_KEY).symmetric->KeyBytes().size(),
      80u);
}

TEST(KeyBlobTest, PlaintextBlobLengthBeyondDataIsBadData) {
  Bytes blob = PlaintextBlob(CALG_RC4, Bytes(16, 1));
  blob.pop_back();
  EXPECT_EQ(ErrorOf([&] { KeyBlob::Import(Enhanced(), blob, {}, 0); }), Code(NTE_BAD_DATA));
  const Bytes headerOnly(blob.begin(), blob.begin() + 10);
  EXPECT_EQ(ErrorOf([&] { KeyBlob::Import(Enhanced(), headerOnly, {}, 0); }), Code(NTE_BAD_DATA));
}

// ---- wrapped PRIVATEKEYBLOB ----

TEST(KeyBlobTest, PrivateBlobWrappedUnderSessionKeyRoundTrips) {
  const Bytes plain = Shared("rsa512_sign_private");
  auto pair = RsaKey::ImportPrivateBlob(Enhanced(), plain, CRYPT_EXPORTABLE, nullptr);
  for (ALG_ID algid : {static_cast<ALG_ID>(CALG_RC4), static_cast<ALG_ID>(CALG_3DES)}) {
    SCOPED_TRACE(algid);
    const Bytes material(algid == CALG_RC4 ? 16 : 24, 0x4D);
    auto wrap = Session(algid, material, 0);
    DWORD length = 0;
    KeyBlob::Export({nullptr, pair.get()}, {wrap.get(), nullptr}, PRIVATEKEYBLOB, 0, nullptr,
                    &length);
    const SecureBytes wrapped =
        KeyBlob::Export({nullptr, pair.get()}, {wrap.get(), nullptr}, PRIVATEKEYBLOB, 0);
    EXPECT_EQ(wrapped.size(), length);
    // Header in clear; a block cipher adds 1..8 bytes of PKCS#5 padding (300 -> 304).
    EXPECT_EQ(Bytes(wrapped.begin(), wrapped.begin() + 8), Bytes(plain.begin(), plain.begin() + 8));
    EXPECT_EQ(wrapped.size(), algid == CALG_RC4 ? plain.size() : plain.size() + 4);
    EXPECT_NE(Bytes(wrapped.begin() + 8, wrapped.begin() + 20),
              Bytes(plain.begin() + 8, plain.begin() + 20));
    auto unwrap = Session(algid, material, 0);
    ImportedKey back =
        KeyBlob::Import(Enhanced(), wrapped, {unwrap.get(), nullptr}, CRYPT_EXPORTABLE);
    EXPECT_EQ(ToBytes(back.rsa->ExportPrivateBlob(nullptr)), plain);
  }
}

TEST(KeyBlobTest, PrivateBlobCannotBeUnwrappedByRsaKey) {
  auto exchange = SharedPair("rsa512_keyx_private");
  EXPECT_EQ(
      ErrorOf([&] {
        KeyBlob::Import(Enhanced(), Shared("rsa512_sign_private"), {nullptr, exchange.get()}, 0);
      }),
      Code(NTE_BAD_KEY));
}

}  // namespace
}  // namespace quiv::platform
