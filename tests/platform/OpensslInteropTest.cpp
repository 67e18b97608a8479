// Interoperability with OpenSSL as an independent implementation: its MSBLOB codec reads and
// writes PUBLICKEYBLOB/PRIVATEKEYBLOB, its RSA signs, verifies, encrypts and decrypts with the
// usual big-endian conventions. Everything OpenSSL does here runs in the default library
// context, apart from the code under test.
#include <gtest/gtest.h>
#include <openssl/core_names.h>
#include <openssl/decoder.h>
#include <openssl/encoder.h>
#include <openssl/evp.h>
#include <openssl/provider.h>
#include <openssl/rsa.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include "platform/CspError.h"
#include "platform/HashObject.h"
#include "platform/KeyBlob.h"
#include "platform/ProviderInfo.h"
#include "platform/RsaKey.h"
#include "platform/SymmetricKey.h"

namespace quiv::platform {
namespace {

using Bytes = std::vector<uint8_t>;

struct PkeyFree {
  void operator()(EVP_PKEY* p) const { EVP_PKEY_free(p); }
};
struct CtxFree {
  void operator()(EVP_PKEY_CTX* p) const { EVP_PKEY_CTX_free(p); }
};
using Pkey = std::unique_ptr<EVP_PKEY, PkeyFree>;
using PkeyCtx = std::unique_ptr<EVP_PKEY_CTX, CtxFree>;

const ProviderInfo& Enhanced() {
  return *ProviderInfo::FindByName(MS_ENHANCED_PROV_A);
}

Bytes ToBytes(const SecureBytes& s) {
  return Bytes(s.begin(), s.end());
}

Bytes Reversed(Bytes b) {
  std::reverse(b.begin(), b.end());
  return b;
}

// OpenSSL's MSBLOB decoder: a CryptoAPI blob to an EVP_PKEY.
Pkey DecodeMsblob(const Bytes& blob, bool isPrivate) {
  EVP_PKEY* pkey = nullptr;
  OSSL_DECODER_CTX* dctx = OSSL_DECODER_CTX_new_for_pkey(
      &pkey, "MSBLOB", nullptr, "RSA",
      isPrivate ? OSSL_KEYMGMT_SELECT_KEYPAIR : OSSL_KEYMGMT_SELECT_PUBLIC_KEY, nullptr, nullptr);
  EXPECT_NE(dctx, nullptr);
  const unsigned char* data = blob.data();
  size_t length = blob.size();
  EXPECT_EQ(OSSL_DECODER_from_data(dctx, &data, &length), 1);
  OSSL_DECODER_CTX_free(dctx);
  return Pkey(pkey);
}

// OpenSSL's MSBLOB encoder: an EVP_PKEY to a CryptoAPI blob.
Bytes EncodeMsblob(EVP_PKEY* pkey, bool isPrivate) {
  OSSL_ENCODER_CTX* ectx = OSSL_ENCODER_CTX_new_for_pkey(
      pkey, isPrivate ? OSSL_KEYMGMT_SELECT_KEYPAIR : OSSL_KEYMGMT_SELECT_PUBLIC_KEY, "MSBLOB",
      nullptr, nullptr);
  EXPECT_NE(ectx, nullptr);
  unsigned char* data = nullptr;
  size_t length = 0;
  EXPECT_EQ(OSSL_ENCODER_to_data(ectx, &data, &length), 1);
  OSSL_ENCODER_CTX_free(ectx);
  Bytes out(data, data + length);
  OPENSSL_free(data);
  return out;
}

Pkey OpensslKey(int bits) {
  return Pkey(EVP_RSA_gen(static_cast<unsigned int>(bits)));
}

bool SameKey(EVP_PKEY* a, EVP_PKEY* b) {
  return EVP_PKEY_eq(a, b) == 1;
}

const Bytes kMessage = {'i', 'n', 't', 'e', 'r', 'o', 'p', ' ', 'c', 'h', 'e', 'c', 'k'};

// ---- blobs ----

TEST(OpensslInteropTest, OpensslReadsOurPrivateAndPublicBlobs) {
  for (DWORD bits : {512u, 1024u, 2048u}) {
    SCOPED_TRACE(bits);
    auto key = RsaKey::Generate(Enhanced(), AT_KEYEXCHANGE, (bits << 16) | CRYPT_EXPORTABLE);
    const Bytes priv = ToBytes(key->ExportPrivateBlob(nullptr));
    const Bytes pub = key->ExportPublicBlob();
    Pkey fromPrivate = DecodeMsblob(priv, true);
    Pkey fromPublic = DecodeMsblob(pub, false);
    ASSERT_TRUE(fromPrivate && fromPublic);
    EXPECT_EQ(EVP_PKEY_get_bits(fromPrivate.get()), static_cast<int>(bits));
    EXPECT_TRUE(SameKey(fromPrivate.get(), fromPublic.get()));
    // OpenSSL's own check of the pair (p*q = n, d, CRT values).
    std::unique_ptr<EVP_PKEY_CTX, CtxFree> check(EVP_PKEY_CTX_new(fromPrivate.get(), nullptr));
    EXPECT_EQ(EVP_PKEY_check(check.get()), 1);
    // And writes the same bytes back.
    EXPECT_EQ(EncodeMsblob(fromPrivate.get(), true), priv);
    EXPECT_EQ(EncodeMsblob(fromPublic.get(), false), pub);
  }
}

TEST(OpensslInteropTest, WeReadOpensslBlobsAndWriteThemBackByteForByte) {
  for (int bits : {512, 1024, 1536}) {
    SCOPED_TRACE(bits);
    Pkey ossl = OpensslKey(bits);
    const Bytes priv = EncodeMsblob(ossl.get(), true);
    const Bytes pub = EncodeMsblob(ossl.get(), false);
    auto pair = RsaKey::ImportPrivateBlob(Enhanced(), priv, CRYPT_EXPORTABLE, nullptr);
    auto publicKey = RsaKey::ImportPublicBlob(Enhanced(), pub, 0);
    EXPECT_EQ(ToBytes(pair->ExportPrivateBlob(nullptr)), priv);
    EXPECT_EQ(pair->ExportPublicBlob(), pub);
    EXPECT_EQ(publicKey->ExportPublicBlob(), pub);
  }
}

TEST(OpensslInteropTest, OpensslCommandLineConvertsOurBlob) {
  auto key = RsaKey::Generate(Enhanced(), AT_KEYEXCHANGE, (1024u << 16) | CRYPT_EXPORTABLE);
  const Bytes priv = ToBytes(key->ExportPrivateBlob(nullptr));
  const auto dir =
      std::filesystem::temp_directory_path() / ("quiv_rsa_interop_" + std::to_string(::getpid()));
  std::filesystem::create_directories(dir);
  const auto in = dir / "key.blob", out = dir / "key2.blob", pubOut = dir / "pub.blob";
  std::ofstream(in, std::ios::binary)
      .write(reinterpret_cast<const char*>(priv.data()), static_cast<std::streamsize>(priv.size()));
  const std::string base = "openssl rsa -inform MSBLOB -in " + in.string() + " -outform MSBLOB ";
  ASSERT_EQ(std::system((base + "-out " + out.string() + " 2>/dev/null").c_str()), 0);
  ASSERT_EQ(std::system((base + "-pubout -out " + pubOut.string() + " 2>/dev/null").c_str()), 0);
  auto read = [](const std::filesystem::path& p) {
    std::ifstream f(p, std::ios::binary);
    return Bytes(std::istreambuf_iterator<char>(f), {});
  };
  EXPECT_EQ(read(out), priv);
  EXPECT_EQ(read(pubOut), key->ExportPublicBlob());
  std::filesystem::remove_all(dir);
}

// ---- signatures ----

// The hashes signed both ways: those of every provider, and the AES provider's SHA-2, whose
// DigestInfo OpenSSL checks as RFC 8017 section 9.2 writes it.
struct SignedHash {
  const char* provider;
  ALG_ID algid;
  const char* name;
};
constexpr SignedHash kSignedHashes[] = {
    {MS_ENHANCED_PROV_A, CALG_MD5, "MD5"},
    {MS_ENHANCED_PROV_A, CALG_SHA1, "SHA1"},
    {MS_ENH_RSA_AES_PROV_A, CALG_SHA_256, "SHA256"},
    {MS_ENH_RSA_AES_PROV_A, CALG_SHA_384, "SHA384"},
    {MS_ENH_RSA_AES_PROV_A, CALG_SHA_512, "SHA512"},
};

std::unique_ptr<HashObject> HashOf(const SignedHash& h, const Bytes& data) {
  auto hash = HashObject::Create(*ProviderInfo::FindByName(h.provider), h.algid, nullptr, 0);
  hash->HashData(data, 0);
  return hash;
}

TEST(OpensslInteropTest, OpensslVerifiesOurSignatureAfterByteReversal) {
  auto key = RsaKey::Generate(Enhanced(), AT_SIGNATURE, (1024u << 16) | CRYPT_EXPORTABLE);
  Pkey ossl = DecodeMsblob(key->ExportPublicBlob(), false);
  for (const SignedHash& h : kSignedHashes) {
    SCOPED_TRACE(h.name);
    auto hash = HashOf(h, kMessage);
    DWORD length = 128;
    Bytes sig(128);
    key->Sign(*hash, nullptr, 0, sig.data(), &length);
    const Bytes bigEndian = Reversed(sig);
    EVP_MD_CTX* md = EVP_MD_CTX_new();
    ASSERT_EQ(EVP_DigestVerifyInit_ex(md, nullptr, h.name, nullptr, nullptr, ossl.get(), nullptr),
              1);
    EXPECT_EQ(
        EVP_DigestVerify(md, bigEndian.data(), bigEndian.size(), kMessage.data(), kMessage.size()),
        1);
    EVP_MD_CTX_free(md);
  }
}

TEST(OpensslInteropTest, WeVerifyOpensslSignatureAfterByteReversal) {
  Pkey ossl = OpensslKey(1024);
  auto publicKey = RsaKey::ImportPublicBlob(Enhanced(), EncodeMsblob(ossl.get(), false), 0);
  for (const SignedHash& h : kSignedHashes) {
    SCOPED_TRACE(h.name);
    EVP_MD_CTX* md = EVP_MD_CTX_new();
    ASSERT_EQ(EVP_DigestSignInit_ex(md, nullptr, h.name, nullptr, nullptr, ossl.get(), nullptr), 1);
    size_t length = 0;
    EVP_DigestSign(md, nullptr, &length, kMessage.data(), kMessage.size());
    Bytes sig(length);
    ASSERT_EQ(EVP_DigestSign(md, sig.data(), &length, kMessage.data(), kMessage.size()), 1);
    EVP_MD_CTX_free(md);
    const Bytes littleEndian = Reversed(sig);
    EXPECT_NO_THROW(publicKey->Verify(*HashOf(h, kMessage), littleEndian.data(), 128, nullptr, 0));
    Bytes tampered = littleEndian;
    tampered[5] ^= 0x40;
    EXPECT_THROW(publicKey->Verify(*HashOf(h, kMessage), tampered.data(), 128, nullptr, 0),
                 CspError);
  }
}

// OpenSSL's codec reads the private blob of a pair the AES provider made.
TEST(OpensslInteropTest, OpensslReadsTheAesProvidersBlobs) {
  const ProviderInfo& aes = *ProviderInfo::FindByName(MS_ENH_RSA_AES_PROV_A);
  auto key = RsaKey::Generate(aes, AT_KEYEXCHANGE, (1024u << 16) | CRYPT_EXPORTABLE);
  Pkey priv = DecodeMsblob(ToBytes(key->ExportPrivateBlob(nullptr)), true);
  Pkey pub = DecodeMsblob(key->ExportPublicBlob(), false);
  ASSERT_TRUE(priv && pub);
  EXPECT_TRUE(SameKey(priv.get(), pub.get()));
}

// ---- RSA encryption and SIMPLEBLOB ----

Bytes OpensslEncrypt(EVP_PKEY* pkey, const Bytes& message, int padding) {
  PkeyCtx ctx(EVP_PKEY_CTX_new(pkey, nullptr));
  EXPECT_EQ(EVP_PKEY_encrypt_init(ctx.get()), 1);
  EVP_PKEY_CTX_set_rsa_padding(ctx.get(), padding);
  if (padding == RSA_PKCS1_OAEP_PADDING) {
    EVP_PKEY_CTX_set_rsa_oaep_md(ctx.get(), EVP_sha1());
    EVP_PKEY_CTX_set_rsa_mgf1_md(ctx.get(), EVP_sha1());
  }
  size_t length = 0;
  EVP_PKEY_encrypt(ctx.get(), nullptr, &length, message.data(), message.size());
  Bytes out(length);
  EXPECT_EQ(EVP_PKEY_encrypt(ctx.get(), out.data(), &length, message.data(), message.size()), 1);
  out.resize(length);
  return out;
}

Bytes OpensslDecrypt(EVP_PKEY* pkey, const Bytes& cipher, int padding) {
  PkeyCtx ctx(EVP_PKEY_CTX_new(pkey, nullptr));
  EXPECT_EQ(EVP_PKEY_decrypt_init(ctx.get()), 1);
  EVP_PKEY_CTX_set_rsa_padding(ctx.get(), padding);
  if (padding == RSA_PKCS1_OAEP_PADDING) {
    EVP_PKEY_CTX_set_rsa_oaep_md(ctx.get(), EVP_sha1());
    EVP_PKEY_CTX_set_rsa_mgf1_md(ctx.get(), EVP_sha1());
  }
  size_t length = cipher.size();
  Bytes out(length);
  EXPECT_EQ(EVP_PKEY_decrypt(ctx.get(), out.data(), &length, cipher.data(), cipher.size()), 1);
  out.resize(length);
  return out;
}

TEST(OpensslInteropTest, RsaEncryptionAgreesBothWays) {
  Pkey ossl = OpensslKey(1024);
  auto pair = RsaKey::ImportPrivateBlob(Enhanced(), EncodeMsblob(ossl.get(), true), 0, nullptr);
  for (auto [flags, padding] :
       {std::pair{0u, RSA_PKCS1_PADDING},
        std::pair{static_cast<DWORD>(CRYPT_OAEP), RSA_PKCS1_OAEP_PADDING}}) {
    SCOPED_TRACE(flags);
    Bytes data(128, 0);
    std::copy(kMessage.begin(), kMessage.end(), data.begin());
    DWORD length = static_cast<DWORD>(kMessage.size());
    pair->Encrypt(nullptr, true, flags, data.data(), &length, 128);
    EXPECT_EQ(OpensslDecrypt(ossl.get(), Reversed(data), padding), kMessage);

    Bytes fromOpenssl = Reversed(OpensslEncrypt(ossl.get(), kMessage, padding));
    length = 128;
    pair->Decrypt(nullptr, true, flags, fromOpenssl.data(), &length);
    EXPECT_EQ(Bytes(fromOpenssl.begin(), fromOpenssl.begin() + length), kMessage);
  }
}

TEST(OpensslInteropTest, HandBuiltSimpleBlobImportsAndDecrypts) {
  Pkey ossl = OpensslKey(1024);
  auto exchange = RsaKey::ImportPrivateBlob(Enhanced(), EncodeMsblob(ossl.get(), true), 0, nullptr);
  const Bytes rc4Key = {0x10, 0x32, 0x54, 0x76, 0x98, 0xBA, 0xDC, 0xFE,
                        0x01, 0x23, 0x45, 0x67, 0x89, 0xAB, 0xCD, 0xEF};
  Bytes blob = {SIMPLEBLOB, 2, 0, 0, 0x01, 0x68, 0, 0, 0x00, 0xA4, 0, 0};
  const Bytes wrapped = Reversed(OpensslEncrypt(ossl.get(), rc4Key, RSA_PKCS1_PADDING));
  blob.insert(blob.end(), wrapped.begin(), wrapped.end());
  ImportedKey imported = KeyBlob::Import(Enhanced(), blob, {nullptr, exchange.get()}, 0);
  ASSERT_TRUE(imported.symmetric);

  // Encrypt with OpenSSL's RC4 under the same key; the imported key decrypts it.
  // RC4 lives in OpenSSL's legacy provider; load it into the default context for this test.
  OSSL_PROVIDER* legacy = OSSL_PROVIDER_load(nullptr, "legacy");
  OSSL_PROVIDER* standard = OSSL_PROVIDER_load(nullptr, "default");
  EVP_CIPHER* rc4 = EVP_CIPHER_fetch(nullptr, "RC4", nullptr);
  ASSERT_NE(rc4, nullptr);
  EVP_CIPHER_CTX* cctx = EVP_CIPHER_CTX_new();
  ASSERT_EQ(EVP_EncryptInit_ex2(cctx, rc4, rc4Key.data(), nullptr, nullptr), 1);
  Bytes data(kMessage.size());
  int outLength = 0;
  EVP_EncryptUpdate(cctx, data.data(), &outLength, kMessage.data(),
                    static_cast<int>(kMessage.size()));
  EVP_CIPHER_CTX_free(cctx);
  EVP_CIPHER_free(rc4);
  OSSL_PROVIDER_unload(legacy);
  OSSL_PROVIDER_unload(standard);
  DWORD length = static_cast<DWORD>(data.size());
  imported.symmetric->Decrypt(nullptr, true, 0, data.data(), &length);
  EXPECT_EQ(data, kMessage);
}

}  // namespace
}  // namespace quiv::platform
