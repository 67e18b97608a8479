// KeyCodec: key blobs to and from PEM/DER. The expected blobs are built here field by field from
// the key's numbers (the PRIVATEKEYBLOB layout: header, "RSA2", bit length, exponent, then n, p,
// q, dP, dQ, qInv and d little-endian at their full widths), and the PEM/DER side is read back
// with OpenSSL's PEM and DER readers, so neither side is checked against the codec itself.
#include "platform/KeyCodec.h"

#include <gtest/gtest.h>
#include <openssl/bio.h>
#include <openssl/core_names.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/rsa.h>
#include <openssl/x509.h>

#include <memory>
#include <string>
#include <vector>

namespace quiv::platform {
namespace {

using Bytes = std::vector<uint8_t>;

struct Free {
  void operator()(EVP_PKEY* p) const { EVP_PKEY_free(p); }
  void operator()(BIO* p) const { BIO_free(p); }
  void operator()(BIGNUM* p) const { BN_free(p); }
};

constexpr uint32_t kKeyExchange = 0xA400;
constexpr uint32_t kSignature = 0x2400;

std::unique_ptr<EVP_PKEY, Free> NewKey(unsigned bits) {
  return std::unique_ptr<EVP_PKEY, Free>(EVP_RSA_gen(bits));
}

void PutLittleEndian(Bytes& out, const EVP_PKEY* key, const char* name, size_t width) {
  BIGNUM* value = nullptr;
  ASSERT_EQ(EVP_PKEY_get_bn_param(key, name, &value), 1) << name;
  std::unique_ptr<BIGNUM, Free> owned(value);
  Bytes field(width);
  ASSERT_EQ(BN_bn2lebinpad(value, field.data(), static_cast<int>(width)), static_cast<int>(width));
  out.insert(out.end(), field.begin(), field.end());
}

void PutWord(Bytes& out, uint32_t word) {
  for (int i = 0; i < 4; ++i) out.push_back(static_cast<uint8_t>(word >> (8 * i)));
}

Bytes ExpectedBlob(const EVP_PKEY* key, bool isPrivate, uint32_t algId) {
  const size_t bits = static_cast<size_t>(EVP_PKEY_get_bits(key));
  Bytes blob = {static_cast<uint8_t>(isPrivate ? 7 : 6), 2, 0, 0};
  PutWord(blob, algId);
  PutWord(blob, isPrivate ? 0x32415352 : 0x31415352);
  PutWord(blob, static_cast<uint32_t>(bits));
  PutLittleEndian(blob, key, OSSL_PKEY_PARAM_RSA_E, 4);
  PutLittleEndian(blob, key, OSSL_PKEY_PARAM_RSA_N, bits / 8);
  if (isPrivate) {
    for (const char* name :
         {OSSL_PKEY_PARAM_RSA_FACTOR1, OSSL_PKEY_PARAM_RSA_FACTOR2, OSSL_PKEY_PARAM_RSA_EXPONENT1,
          OSSL_PKEY_PARAM_RSA_EXPONENT2, OSSL_PKEY_PARAM_RSA_COEFFICIENT1}) {
      PutLittleEndian(blob, key, name, bits / 16);
    }
    PutLittleEndian(blob, key, OSSL_PKEY_PARAM_RSA_D, bits / 8);
  }
  return blob;
}

Bytes PemOf(EVP_PKEY* key, bool isPrivate, bool pkcs1 = false) {
  std::unique_ptr<BIO, Free> bio(BIO_new(BIO_s_mem()));
  if (!isPrivate) {
    PEM_write_bio_PUBKEY(bio.get(), key);
  } else if (pkcs1) {
    PEM_write_bio_PrivateKey_traditional(bio.get(), key, nullptr, nullptr, 0, nullptr, nullptr);
  } else {
    PEM_write_bio_PrivateKey(bio.get(), key, nullptr, nullptr, 0, nullptr, nullptr);
  }
  char* data = nullptr;
  const long length = BIO_get_mem_data(bio.get(), &data);
  return Bytes(data, data + length);
}

std::unique_ptr<EVP_PKEY, Free> ReadPem(const Bytes& pem, const char* pass, bool isPrivate) {
  std::unique_ptr<BIO, Free> bio(BIO_new_mem_buf(pem.data(), static_cast<int>(pem.size())));
  EVP_PKEY* key =
      isPrivate ? PEM_read_bio_PrivateKey(bio.get(), nullptr, nullptr, const_cast<char*>(pass))
                : PEM_read_bio_PUBKEY(bio.get(), nullptr, nullptr, nullptr);
  return std::unique_ptr<EVP_PKEY, Free>(key);
}

TEST(KeyCodecTest, PrivatePemBecomesThePrivateKeyBlobOfItsNumbers) {
  auto key = NewKey(1024);
  const KeyCodec::Result result = KeyCodec::ToBlob(PemOf(key.get(), true), true, "", kKeyExchange);
  ASSERT_TRUE(result.m_ok) << result.m_error;
  EXPECT_EQ(result.m_bytes, ExpectedBlob(key.get(), true, kKeyExchange));
}

TEST(KeyCodecTest, PkcsOnePemIsReadToo) {
  auto key = NewKey(768);
  const KeyCodec::Result result =
      KeyCodec::ToBlob(PemOf(key.get(), true, true), true, "", kSignature);
  ASSERT_TRUE(result.m_ok) << result.m_error;
  EXPECT_EQ(result.m_bytes, ExpectedBlob(key.get(), true, kSignature));
}

TEST(KeyCodecTest, PublicPemBecomesThePublicKeyBlob) {
  auto key = NewKey(1024);
  const KeyCodec::Result result = KeyCodec::ToBlob(PemOf(key.get(), false), false, "", kSignature);
  ASSERT_TRUE(result.m_ok) << result.m_error;
  EXPECT_EQ(result.m_bytes, ExpectedBlob(key.get(), false, kSignature));
}

TEST(KeyCodecTest, APrivateKeyGivesItsPublicBlobWhenAskedForPublic) {
  auto key = NewKey(768);
  const KeyCodec::Result result = KeyCodec::ToBlob(PemOf(key.get(), true), false, "", kKeyExchange);
  ASSERT_TRUE(result.m_ok) << result.m_error;
  EXPECT_EQ(result.m_bytes, ExpectedBlob(key.get(), false, kKeyExchange));
}

TEST(KeyCodecTest, BlobsBecomePemThatOpensslReads) {
  auto key = NewKey(1024);
  const KeyCodec::Result priv =
      KeyCodec::FromBlob(ExpectedBlob(key.get(), true, kKeyExchange), KeyCodec::Encoding::kPem, "");
  ASSERT_TRUE(priv.m_ok) << priv.m_error;
  auto read = ReadPem(priv.m_bytes, nullptr, true);
  ASSERT_TRUE(read);
  EXPECT_EQ(EVP_PKEY_eq(read.get(), key.get()), 1);
  const KeyCodec::Result pub =
      KeyCodec::FromBlob(ExpectedBlob(key.get(), false, kSignature), KeyCodec::Encoding::kPem, "");
  ASSERT_TRUE(pub.m_ok) << pub.m_error;
  auto readPub = ReadPem(pub.m_bytes, nullptr, false);
  ASSERT_TRUE(readPub);
  EXPECT_EQ(EVP_PKEY_eq(readPub.get(), key.get()), 1);
}

TEST(KeyCodecTest, DerIsPkcs8AndSubjectPublicKeyInfo) {
  auto key = NewKey(768);
  const KeyCodec::Result priv =
      KeyCodec::FromBlob(ExpectedBlob(key.get(), true, kKeyExchange), KeyCodec::Encoding::kDer, "");
  ASSERT_TRUE(priv.m_ok);
  const unsigned char* cursor = priv.m_bytes.data();
  PKCS8_PRIV_KEY_INFO* info =
      d2i_PKCS8_PRIV_KEY_INFO(nullptr, &cursor, static_cast<long>(priv.m_bytes.size()));
  ASSERT_NE(info, nullptr);
  PKCS8_PRIV_KEY_INFO_free(info);
  const KeyCodec::Result pub = KeyCodec::FromBlob(ExpectedBlob(key.get(), false, kKeyExchange),
                                                  KeyCodec::Encoding::kDer, "");
  ASSERT_TRUE(pub.m_ok);
  cursor = pub.m_bytes.data();
  EVP_PKEY* read = d2i_PUBKEY(nullptr, &cursor, static_cast<long>(pub.m_bytes.size()));
  ASSERT_NE(read, nullptr);
  EXPECT_EQ(EVP_PKEY_eq(read, key.get()), 1);
  EVP_PKEY_free(read);
}

TEST(KeyCodecTest, APassPhraseEncryptsThePrivateKey) {
  auto key = NewKey(768);
  const KeyCodec::Result enc = KeyCodec::FromBlob(ExpectedBlob(key.get(), true, kKeyExchange),
                                                  KeyCodec::Encoding::kPem, "sesame");
  ASSERT_TRUE(enc.m_ok);
  const std::string text(enc.m_bytes.begin(), enc.m_bytes.end());
  EXPECT_NE(text.find("BEGIN ENCRYPTED PRIVATE KEY"), std::string::npos);
  auto read = ReadPem(enc.m_bytes, "sesame", true);
  ASSERT_TRUE(read);
  EXPECT_EQ(EVP_PKEY_eq(read.get(), key.get()), 1);
  const KeyCodec::Result back = KeyCodec::ToBlob(enc.m_bytes, true, "sesame", kKeyExchange);
  ASSERT_TRUE(back.m_ok) << back.m_error;
  EXPECT_EQ(back.m_bytes, ExpectedBlob(key.get(), true, kKeyExchange));
  EXPECT_FALSE(KeyCodec::ToBlob(enc.m_bytes, true, "wrong", kKeyExchange).m_ok);
}

TEST(KeyCodecTest, RejectsAPublicKeyWhereAPrivateOneIsNeeded) {
  auto key = NewKey(768);
  const KeyCodec::Result result = KeyCodec::ToBlob(PemOf(key.get(), false), true, "", kKeyExchange);
  EXPECT_FALSE(result.m_ok);
  EXPECT_FALSE(result.m_error.empty());
}

TEST(KeyCodecTest, RejectsGarbageEmptyAndTruncatedInput) {
  const Bytes garbage = {'n', 'o', 't', ' ', 'a', ' ', 'k', 'e', 'y'};
  EXPECT_FALSE(KeyCodec::ToBlob(garbage, false, "", kKeyExchange).m_ok);
  EXPECT_FALSE(KeyCodec::ToBlob(Bytes{}, false, "", kKeyExchange).m_ok);
  auto key = NewKey(768);
  Bytes pem = PemOf(key.get(), true);
  pem.resize(pem.size() / 2);
  EXPECT_FALSE(KeyCodec::ToBlob(pem, true, "", kKeyExchange).m_ok);
}

TEST(KeyCodecTest, FromBlobRejectsOtherBlobsAndDamagedOnes) {
  const Bytes simple = {1, 2, 0, 0, 0x01, 0x68, 0, 0, 0, 0xA4, 0, 0};
  EXPECT_FALSE(KeyCodec::FromBlob(simple, KeyCodec::Encoding::kPem, "").m_ok);
  auto key = NewKey(768);
  Bytes blob = ExpectedBlob(key.get(), true, kKeyExchange);
  blob.resize(40);
  EXPECT_FALSE(KeyCodec::FromBlob(blob, KeyCodec::Encoding::kDer, "").m_ok);
  EXPECT_FALSE(KeyCodec::FromBlob(Bytes{}, KeyCodec::Encoding::kDer, "").m_ok);
}

}  // namespace
}  // namespace quiv::platform
