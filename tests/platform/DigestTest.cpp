// Digest against the published test suites: RFC 1319 (MD2), RFC 1320 (MD4), RFC 1321 (MD5)
// appendix A.5, and FIPS 180-1 appendices A and B (SHA-1).
#include "platform/Digest.h"

#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <vector>

#include "platform/CspError.h"
#include "support/VectorFile.h"

namespace quiv::platform {
namespace {

using test::VectorFile;

std::string HexOf(const SecureBytes& bytes) {
  return VectorFile::EncodeHex(std::vector<uint8_t>(bytes.begin(), bytes.end()));
}

std::span<const uint8_t> Ascii(std::string_view text) {
  return {reinterpret_cast<const uint8_t*>(text.data()), text.size()};
}

struct Known {
  std::string_view message;
  std::string_view digest;
};

// The seven messages shared by the RFC 1319/1320/1321 suites.
constexpr std::string_view kSuite[] = {
    "",
    "a",
    "abc",
    "message digest",
    "abcdefghijklmnopqrstuvwxyz",
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789",
    "12345678901234567890123456789012345678901234567890123456789012345678901234567890"};

void CheckSuite(ALG_ID algid, const std::string_view (&expected)[7]) {
  for (size_t i = 0; i < 7; ++i) {
    EXPECT_EQ(HexOf(Digest::Compute(algid, Ascii(kSuite[i]))), expected[i]) << kSuite[i];
  }
}

TEST(DigestTest, Md2Rfc1319Suite) {
  const std::string_view expected[7] = {
      "8350e5a3e24c153df2275c9f80692773", "32ec01ec4a6dac72c0ab96fb34c0b5d1",
      "da853b0d3f88d99b30283a69e6ded6bb", "ab4f496bfb2a530b219ff33031fe06b0",
      "4e8ddff3650292ab5a4108c3aa47940b", "da33def2a42df13975352846c30338cd",
      "d5976f79d83d3a0dc9806c3c66f3efd8"};
  CheckSuite(CALG_MD2, expected);
}

TEST(DigestTest, Md4Rfc1320Suite) {
  const std::string_view expected[7] = {
      "31d6cfe0d16ae931b73c59d7e0c089c0", "bde52cb31de33e46245e05fbdbd6fb24",
      "a448017aaf21d8525fc10ae87aa6729d", "d9130a8164549fe818874806e1c7014b",
      "d79e1c308aa5bbcdeea8ed63df412da9", "043f8582f241db351ce627e153e7f0e4",
      "e33b4ddc9c38f2199c3e7b164fcc0536"};
  CheckSuite(CALG_MD4, expected);
}

TEST(DigestTest, Md5Rfc1321Suite) {
  const std::string_view expected[7] = {
      "d41d8cd98f00b204e9800998ecf8427e", "0cc175b9c0f1b6a831c399e269772661",
      "900150983cd24fb0d6963f7d28e17f72", "f96b697d7cb7938d525a2f31aaf161d0",
      "c3fcd3d76192e4007dfb496cca67e13b", "d174ab98d277d9f5a5611c2c9f419d9f",
      "57edf4a22be3c955ac49da2e2107b67a"};
  CheckSuite(CALG_MD5, expected);
}

TEST(DigestTest, Sha1Fips180_1AppendicesAAndB) {
  EXPECT_EQ(HexOf(Digest::Compute(CALG_SHA1, Ascii("abc"))),
            "a9993e364706816aba3e25717850c26c9cd0d89d");
  EXPECT_EQ(HexOf(Digest::Compute(
                CALG_SHA1, Ascii("abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq"))),
            "84983e441c3bd26ebaae4aa1f95129e5e54670f1");
}

TEST(DigestTest, Sha1Fips180_1AppendixCMillionAsInPieces) {
  Digest digest(CALG_SHA1);
  const std::string chunk(1000, 'a');
  for (int i = 0; i < 1000; ++i) digest.Update(Ascii(chunk));
  EXPECT_EQ(HexOf(digest.Final()), "34aa973cd4c4daa4f61eeb2bdbad27316534016f");
}

TEST(DigestTest, SizesAndIds) {
  EXPECT_EQ(Digest(CALG_MD2).size(), 16u);
  EXPECT_EQ(Digest(CALG_MD4).size(), 16u);
  EXPECT_EQ(Digest(CALG_MD5).size(), 16u);
  EXPECT_EQ(Digest(CALG_SHA1).size(), 20u);
  EXPECT_EQ(Digest(CALG_SHA).algid(), static_cast<ALG_ID>(CALG_SHA1));
}

TEST(DigestTest, UnsupportedAlgorithmsAreBadAlgid) {
  for (const ALG_ID algid : {CALG_TLS1PRF, CALG_MAC, CALG_HMAC, CALG_RC2}) {
    EXPECT_FALSE(Digest::Supports(algid));
    try {
      Digest digest(algid);
      ADD_FAILURE() << "no error for " << algid;
    } catch (const CspError& e) {
      EXPECT_EQ(e.code(), static_cast<uint32_t>(NTE_BAD_ALGID));
    }
  }
}

// A clone continues independently from the state it was taken at, for nettle's MD2 and EVP.
TEST(DigestTest, CloneContinuesIndependently) {
  for (const ALG_ID algid : {CALG_MD2, CALG_MD4, CALG_MD5, CALG_SHA1}) {
    Digest digest(algid);
    digest.Update(Ascii("message "));
    auto copy = digest.Clone();
    copy->Update(Ascii("digest"));
    digest.Update(Ascii("other"));
    EXPECT_EQ(HexOf(copy->Final()), HexOf(Digest::Compute(algid, Ascii("message digest"))));
    EXPECT_EQ(HexOf(digest.Final()), HexOf(Digest::Compute(algid, Ascii("message other"))));
  }
}

TEST(DigestTest, EmptyUpdatesChangeNothing) {
  Digest digest(CALG_MD2);
  digest.Update({});
  digest.Update(Ascii("abc"));
  digest.Update({});
  EXPECT_EQ(HexOf(digest.Final()), "da853b0d3f88d99b30283a69e6ded6bb");
}

// FIPS 180-4 examples (NIST's published SHA-2 example values for "abc").
TEST(DigestTest, Sha2Fips180_4Abc) {
  const std::pair<ALG_ID, const char*> cases[] = {
      {CALG_SHA_256, "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad"},
      {CALG_SHA_384,
       "cb00753f45a35e8bb5a03d699ac65007272c32ab0eded1631a8b605a43ff5bed8086072ba1e7cc2358baeca1"
       "34c825a7"},
      {CALG_SHA_512,
       "ddaf35a193617abacc417349ae20413112e6fa4e89a97ea20a9eeee64b55d39a2192992a274fc1a836ba3c23"
       "a3feebbd454d4423643ce80e2a9ac94fa54ca49f"},
  };
  for (const auto& [algid, expected] : cases) {
    EXPECT_TRUE(Digest::Supports(algid));
    EXPECT_TRUE(Digest::IsSha2(algid));
    Digest digest(algid);
    digest.Update(Ascii("ab"));
    auto copy = digest.Clone();
    digest.Update(Ascii("c"));
    copy->Update(Ascii("c"));
    EXPECT_EQ(HexOf(digest.Final()), expected);
    EXPECT_EQ(HexOf(copy->Final()), expected);
  }
}

TEST(DigestTest, Sha2SizesAndHmacBlocks) {
  EXPECT_EQ(Digest::SizeOf(CALG_SHA_256), 32u);
  EXPECT_EQ(Digest::SizeOf(CALG_SHA_384), 48u);
  EXPECT_EQ(Digest::SizeOf(CALG_SHA_512), 64u);
  EXPECT_EQ(Digest::SizeOf(CALG_MAC), 0u);
  // RFC 4231: SHA-384 and SHA-512 work on 128-byte blocks; the others (and the providers' MD2
  // pads) on 64.
  EXPECT_EQ(Digest::HmacBlockOf(CALG_SHA_384), 128u);
  EXPECT_EQ(Digest::HmacBlockOf(CALG_SHA_512), 128u);
  for (const ALG_ID algid : {CALG_MD2, CALG_MD4, CALG_MD5, CALG_SHA1, CALG_SHA_256}) {
    EXPECT_EQ(Digest::HmacBlockOf(algid), 64u) << algid;
    EXPECT_EQ(Digest::IsSha2(algid), algid == CALG_SHA_256) << algid;
  }
  EXPECT_EQ(Digest::HmacBlockOf(CALG_HMAC), 0u);
}

}  // namespace
}  // namespace quiv::platform
