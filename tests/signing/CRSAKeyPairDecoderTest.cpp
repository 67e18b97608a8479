// CRSAKeyPair against OpenSSL's own MSBLOB decoder and encoder, in the same process: the
// PUBLICKEYBLOB and PRIVATEKEYBLOB the key pair unloads decode to the numbers the blobs carry and
// to a key OpenSSL finds consistent, that key verifies the key pair's signatures once their byte
// order is reversed (CryptoAPI writes them little-endian, PKCS #1 big-endian), and a key OpenSSL
// generates and encodes loads into the key pair, which then verifies OpenSSL's signatures.
//
// The only file outside the platform's own tests that includes OpenSSL (NoOpensslOutsideTest
// names it): the oracle has to be the independent decoder, not the command line's exit status.
#include "support/RsaKeyPairFixture.h"

#include <gtest/gtest.h>
#include <openssl/bn.h>
#include <openssl/core_names.h>
#include <openssl/crypto.h>
#include <openssl/decoder.h>
#include <openssl/encoder.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/rsa.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "constants/CConstQUIV.h"
#include "signing/CRSAKeyPair.h"
#include "support/InternalAccess.h"

namespace quiv {
namespace {

using Bytes = std::vector<uint8_t>;

const CConstQUIV k;

// Every test of this file runs without writing the application log.
const auto* const kQuiet = ::testing::AddGlobalTestEnvironment(new test::QuietEnvironment);

const std::string kMessage = "decoded in process, signed on one side and checked on the other";

// ---- OpenSSL, as the independent side ----

struct OsslFree {
  void operator()(EVP_PKEY* p) const { EVP_PKEY_free(p); }
  void operator()(EVP_PKEY_CTX* p) const { EVP_PKEY_CTX_free(p); }
  void operator()(EVP_MD_CTX* p) const { EVP_MD_CTX_free(p); }
  void operator()(BIGNUM* p) const { BN_free(p); }
  void operator()(OSSL_DECODER_CTX* p) const { OSSL_DECODER_CTX_free(p); }
  void operator()(OSSL_ENCODER_CTX* p) const { OSSL_ENCODER_CTX_free(p); }
};
template <class T>
using Owned = std::unique_ptr<T, OsslFree>;

// The blob through OSSL_DECODER ("MSBLOB", key type "RSA"); null when it does not decode or
// leaves bytes over.
Owned<EVP_PKEY> Decoded(const Bytes& blob, int selection) {
  EVP_PKEY* key = nullptr;
  Owned<OSSL_DECODER_CTX> decoder(
      OSSL_DECODER_CTX_new_for_pkey(&key, "MSBLOB", nullptr, "RSA", selection, nullptr, nullptr));
  if (!decoder) return nullptr;
  const unsigned char* data = blob.data();
  size_t left = blob.size();
  const bool ok = OSSL_DECODER_from_data(decoder.get(), &data, &left) == 1;
  Owned<EVP_PKEY> owned(key);
  ERR_clear_error();  // a refusal leaves its reasons queued; none may reach the platform's calls
  return ok && left == 0 ? std::move(owned) : nullptr;
}

// The key through OSSL_ENCODER as an MSBLOB; empty when OpenSSL cannot write it.
Bytes Encoded(EVP_PKEY* key, int selection) {
  Owned<OSSL_ENCODER_CTX> encoder(
      OSSL_ENCODER_CTX_new_for_pkey(key, selection, "MSBLOB", nullptr, nullptr));
  unsigned char* data = nullptr;
  size_t length = 0;
  if (!encoder || OSSL_ENCODER_to_data(encoder.get(), &data, &length) != 1) return {};
  Bytes blob(data, data + length);
  OPENSSL_free(data);
  return blob;
}

std::string HexOfBignum(const BIGNUM* number) {
  char* text = BN_bn2hex(number);
  std::string hex = text == nullptr ? "" : text;
  OPENSSL_free(text);
  return hex;
}

// An RSA parameter of the key (OSSL_PKEY_PARAM_RSA_N, _E, _D, _FACTOR1, _FACTOR2) as
// big-endian hex; empty when the key has none.
std::string ParamHex(const EVP_PKEY* key, const char* name) {
  BIGNUM* value = nullptr;
  if (EVP_PKEY_get_bn_param(key, name, &value) != 1) {
    ERR_clear_error();
    return "";
  }
  return HexOfBignum(Owned<BIGNUM>(value).get());
}

// OpenSSL's own check of a private key: n = p q, d, and the CRT values.
bool OpensslFindsConsistent(EVP_PKEY* key) {
  Owned<EVP_PKEY_CTX> context(EVP_PKEY_CTX_new_from_pkey(nullptr, key, nullptr));
  return context && EVP_PKEY_check(context.get()) == 1;
}

bool EvpVerifies(EVP_PKEY* key, const EVP_MD* digest, const Bytes& bigEndianSignature) {
  Owned<EVP_MD_CTX> context(EVP_MD_CTX_new());
  const bool valid =
      EVP_DigestVerifyInit(context.get(), nullptr, digest, nullptr, key) == 1 &&
      EVP_DigestVerify(context.get(), bigEndianSignature.data(), bigEndianSignature.size(),
                       reinterpret_cast<const unsigned char*>(kMessage.data()),
                       kMessage.size()) == 1;
  ERR_clear_error();
  return valid;
}

// PKCS #1 v1.5 (the RSA default padding), big-endian; empty when OpenSSL refuses.
Bytes EvpSignature(EVP_PKEY* key, const EVP_MD* digest) {
  Owned<EVP_MD_CTX> context(EVP_MD_CTX_new());
  Bytes signature(static_cast<size_t>(EVP_PKEY_get_size(key)));
  size_t length = signature.size();
  if (EVP_DigestSignInit(context.get(), nullptr, digest, nullptr, key) != 1 ||
      EVP_DigestSign(context.get(), signature.data(), &length,
                     reinterpret_cast<const unsigned char*>(kMessage.data()),
                     kMessage.size()) != 1) {
    return {};
  }
  signature.resize(length);
  return signature;
}

// ---- the blob layout (BLOBHEADER 8 bytes, RSAPUBKEY 12, then little-endian numbers) ----

// A little-endian field of the blob as big-endian hex without leading zeros, as BN_bn2hex
// writes it.
std::string FieldHex(const Bytes& blob, size_t offset, size_t length) {
  EXPECT_LE(offset + length, blob.size());
  if (offset + length > blob.size()) return "<outside the blob>";
  return HexOfBignum(
      Owned<BIGNUM>(BN_lebin2bn(blob.data() + offset, static_cast<int>(length), nullptr)).get());
}

struct BlobFields {
  std::string n, e, p, q, d;  // p, q and d stay empty for a PUBLICKEYBLOB
};

BlobFields FieldsOf(const Bytes& blob) {
  EXPECT_GE(blob.size(), 20u);
  if (blob.size() < 20) return {};
  const size_t bits = blob[12] | blob[13] << 8 | blob[14] << 16 | size_t{blob[15]} << 24;
  const size_t whole = bits / 8, half = bits / 16;
  BlobFields fields{FieldHex(blob, 20, whole), FieldHex(blob, 16, 4), "", "", ""};
  if (blob[0] == 7) {  // PRIVATEKEYBLOB: p, q, dp, dq, qInv, then d
    fields.p = FieldHex(blob, 20 + whole, half);
    fields.q = FieldHex(blob, 20 + whole + half, half);
    fields.d = FieldHex(blob, 20 + whole + 5 * half, whole);
  }
  return fields;
}

BlobFields FieldsOf(const EVP_PKEY* key) {
  return {ParamHex(key, OSSL_PKEY_PARAM_RSA_N), ParamHex(key, OSSL_PKEY_PARAM_RSA_E),
          ParamHex(key, OSSL_PKEY_PARAM_RSA_FACTOR1), ParamHex(key, OSSL_PKEY_PARAM_RSA_FACTOR2),
          ParamHex(key, OSSL_PKEY_PARAM_RSA_D)};
}

void ExpectSameFields(const BlobFields& ours, const BlobFields& theirs) {
  EXPECT_EQ(ours.n, theirs.n);
  EXPECT_EQ(ours.e, theirs.e);
  EXPECT_EQ(ours.p, theirs.p);
  EXPECT_EQ(ours.q, theirs.q);
  EXPECT_EQ(ours.d, theirs.d);
}

// ---- fixture: our 1024-bit signature and 512-bit exchange pairs, and a key of OpenSSL's ----

class CRSAKeyPairDecoderTest : public test::RsaKeyPairFixture {
 protected:
  static void SetUpTestSuite() {
    RsaKeyPairFixture::SetUpTestSuite();
    GenerateSuiteKeys(1024, 512);
    s_theirs.reset(EVP_RSA_gen(1024));
    ASSERT_TRUE(s_theirs);
  }
  static void TearDownTestSuite() {
    s_theirs.reset();
    RsaKeyPairFixture::TearDownTestSuite();
  }

  static Bytes PublicBlob(const Ref<CRSAKeyPair>& pair) { return BytesOfHex(PublicHex(pair)); }
  static Bytes PrivateBlob(const Ref<CRSAKeyPair>& pair) { return BytesOfHex(PrivateHex(pair)); }
  static int32_t Modulus(const Ref<CRSAKeyPair>& pair) {
    int32_t bits = 0;
    EXPECT_TRUE(pair->GetModulus(bits));
    return bits;
  }
  // Our signature of kMessage as the key pair writes it (little-endian bytes).
  static Bytes OurSignature(const Ref<CRSAKeyPair>& pair, int32_t algorithm) {
    String block;
    EXPECT_TRUE(pair->Sign(Message(kMessage), block, STRING_HEX, algorithm));
    return BytesOfHex(block);
  }
  static bool WeVerify(const Ref<CRSAKeyPair>& pair, const Bytes& littleEndian, int32_t algorithm) {
    return Verifies(pair, Message(kMessage), String::FromUtf8(HexOf(littleEndian)), algorithm);
  }

  static inline Owned<EVP_PKEY> s_theirs;  // generated by OpenSSL
};

struct HashCase {
  int32_t algorithm;
  const EVP_MD* (*digest)();
  const char* name;
};
const HashCase kHashes[] = {{static_cast<int32_t>(k.CALG_MD5()), EVP_md5, "MD5"},
                            {static_cast<int32_t>(k.CALG_SHA1()), EVP_sha1, "SHA-1"}};

// ---- our blobs, decoded by OpenSSL ----

TEST_F(CRSAKeyPairDecoderTest, OurPublicBlobsDecodeToTheModulusAndExponentTheyCarry) {
  for (const Ref<CRSAKeyPair>& pair : {s_signature, s_exchange}) {
    SCOPED_TRACE(Modulus(pair));
    const Bytes blob = PublicBlob(pair);
    const Owned<EVP_PKEY> key = Decoded(blob, EVP_PKEY_PUBLIC_KEY);
    ASSERT_TRUE(key);
    EXPECT_EQ(EVP_PKEY_get_bits(key.get()), Modulus(pair));
    const BlobFields fields = FieldsOf(key.get());
    EXPECT_EQ(fields.n, FieldsOf(blob).n);
    EXPECT_EQ(fields.e, FieldsOf(blob).e);
    EXPECT_EQ(fields.e, "010001");  // 65537, the exponent the provider generates with
    EXPECT_EQ(fields.d, "");        // a public blob carries no private part
  }
}

TEST_F(CRSAKeyPairDecoderTest, OurPrivateBlobsDecodeToAConsistentKeyWithTheFactorsTheyCarry) {
  for (const Ref<CRSAKeyPair>& pair : {s_signature, s_exchange}) {
    SCOPED_TRACE(Modulus(pair));
    const Bytes blob = PrivateBlob(pair);
    const Owned<EVP_PKEY> key = Decoded(blob, EVP_PKEY_KEYPAIR);
    ASSERT_TRUE(key);
    EXPECT_EQ(EVP_PKEY_get_bits(key.get()), Modulus(pair));
    EXPECT_TRUE(OpensslFindsConsistent(key.get()));
    ExpectSameFields(FieldsOf(key.get()), FieldsOf(blob));
    // The private blob's modulus is the public blob's.
    EXPECT_EQ(FieldsOf(key.get()).n, FieldsOf(PublicBlob(pair)).n);
  }
}

TEST_F(CRSAKeyPairDecoderTest, BytesThatAreNoBlobDoNotDecode) {
  // The oracle must be able to say no: a cut blob and one with a foreign magic are refused.
  const Bytes blob = PublicBlob(s_signature);
  EXPECT_FALSE(Decoded(Bytes(blob.begin(), blob.begin() + 40), EVP_PKEY_PUBLIC_KEY));
  Bytes foreign = blob;
  foreign[8] = 'X';  // "RSA1" -> "XSA1"
  EXPECT_FALSE(Decoded(foreign, EVP_PKEY_PUBLIC_KEY));
}

// ---- signatures ----

TEST_F(CRSAKeyPairDecoderTest, TheDecodedKeyVerifiesOurSignaturesOnceReversed) {
  for (const Ref<CRSAKeyPair>& pair : {s_signature, s_exchange}) {
    const Owned<EVP_PKEY> key = Decoded(PublicBlob(pair), EVP_PKEY_PUBLIC_KEY);
    ASSERT_TRUE(key);
    for (const HashCase& hash : kHashes) {
      SCOPED_TRACE(std::string(hash.name) + ", " + std::to_string(Modulus(pair)) + " bits");
      const Bytes littleEndian = OurSignature(pair, hash.algorithm);
      ASSERT_EQ(littleEndian.size(), static_cast<size_t>(EVP_PKEY_get_size(key.get())));
      EXPECT_TRUE(EvpVerifies(key.get(), hash.digest(), Reversed(littleEndian)));
      // As the key pair writes it, with one bit changed, or under the other hash: no.
      EXPECT_FALSE(EvpVerifies(key.get(), hash.digest(), littleEndian));
      Bytes tampered = Reversed(littleEndian);
      tampered[tampered.size() / 2] ^= 0x01;
      EXPECT_FALSE(EvpVerifies(key.get(), hash.digest(), tampered));
      const EVP_MD* other = hash.digest() == EVP_md5() ? EVP_sha1() : EVP_md5();
      EXPECT_FALSE(EvpVerifies(key.get(), other, Reversed(littleEndian)));
    }
  }
}

// ---- OpenSSL's keys, loaded by us ----

TEST_F(CRSAKeyPairDecoderTest, OpensslsPublicBlobLoadsAndVerifiesItsSignaturesOnceReversed) {
  const Bytes blob = Encoded(s_theirs.get(), EVP_PKEY_PUBLIC_KEY);
  ASSERT_FALSE(blob.empty());
  // OpenSSL marks its blobs as exchange keys.
  Ref<CRSAKeyPair> verifier = Pair(kExchange);
  ASSERT_TRUE(verifier->LoadPublicKey(String::FromUtf8(HexOf(blob)), STRING_HEX));
  EXPECT_EQ(Contents(verifier), PUBLIC_KEY);
  EXPECT_EQ(Modulus(verifier), 1024);
  EXPECT_EQ(PublicHex(verifier).ToUtf8(), HexOf(blob));
  for (const HashCase& hash : kHashes) {
    SCOPED_TRACE(hash.name);
    const Bytes bigEndian = EvpSignature(s_theirs.get(), hash.digest());
    ASSERT_EQ(bigEndian.size(), 128u);
    EXPECT_TRUE(WeVerify(verifier, Reversed(bigEndian), hash.algorithm));
    EXPECT_FALSE(WeVerify(verifier, bigEndian, hash.algorithm));
    const int32_t other =
        static_cast<int32_t>(hash.algorithm == k.CALG_MD5() ? k.CALG_SHA1() : k.CALG_MD5());
    EXPECT_FALSE(WeVerify(verifier, Reversed(bigEndian), other));
  }
}

TEST_F(CRSAKeyPairDecoderTest, OpensslsPrivateBlobLoadsAsAPairWithItsNumbers) {
  const Bytes blob = Encoded(s_theirs.get(), EVP_PKEY_KEYPAIR);
  ASSERT_FALSE(blob.empty());
  // A container of its own: the import becomes the container's exchange key.
  Ref<CProvider> provider = CProvider::Create();
  ASSERT_TRUE(OpenNewContainer(provider, u"theirs"));
  Ref<CRSAKeyPair> pair = Pair(provider, kExchange);
  ASSERT_TRUE(pair->LoadKeyPair(String::FromUtf8(HexOf(blob)), STRING_HEX));
  EXPECT_EQ(Contents(pair), KEY_PAIR);
  EXPECT_EQ(Modulus(pair), 1024);
  // What the pair unloads carries OpenSSL's numbers, read from the key rather than the blob.
  ExpectSameFields(FieldsOf(PrivateBlob(pair)), FieldsOf(s_theirs.get()));
  // And it signs with them: OpenSSL verifies the reversed block with its own key.
  for (const HashCase& hash : kHashes) {
    SCOPED_TRACE(hash.name);
    EXPECT_TRUE(
        EvpVerifies(s_theirs.get(), hash.digest(), Reversed(OurSignature(pair, hash.algorithm))));
  }
  Internal(pair).Terminate();
  provider->TerminateAll();
}

}  // namespace
}  // namespace quiv
