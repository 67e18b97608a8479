// CRSAKeyPair against OpenSSL as an independent implementation, through its command line only
// (the library keeps OpenSSL inside the platform): OpenSSL reads the PUBLICKEYBLOB and
// PRIVATEKEYBLOB files the key pair unloads and writes blobs the key pair loads, verifies the
// key pair's signatures once their byte order is reversed (CryptoAPI writes them
// little-endian, PKCS #1 big-endian), and makes signatures the key pair verifies.
#include "support/RsaKeyPairFixture.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "automation/ByteArray.h"
#include "constants/CConstQUIV.h"
#include "data/CMessagetext.h"
#include "errors/QuivError.h"
#include "platform/PlatformSeam.h"
#include "provider/CProvider.h"
#include "signing/CRSAKeyPair.h"
#include "support/InternalAccess.h"
#include "support/RecordMatchers.h"

namespace quiv {
namespace {

namespace fs = std::filesystem;
using Bytes = std::vector<uint8_t>;
using test::FailedWith;

const CConstQUIV k;

// Every test of this file runs without writing the application log.
const auto* const kQuiet = ::testing::AddGlobalTestEnvironment(new test::QuietEnvironment);

const std::string kMessage =
    "interoperable message text, signed on one side and checked on the other";

Bytes ReadFile(const fs::path& path) {
  std::ifstream in(path, std::ios::binary);
  return Bytes(std::istreambuf_iterator<char>(in), {});
}

void WriteFile(const fs::path& path, const Bytes& bytes) {
  std::ofstream(path, std::ios::binary)
      .write(reinterpret_cast<const char*>(bytes.data()),
             static_cast<std::streamsize>(bytes.size()));
}

// Runs an openssl command line; its exit status and what it wrote to stdout.
struct CommandResult {
  int status;
  std::string out;
};
CommandResult Openssl(const std::string& arguments) {
  const std::string command = "openssl " + arguments + " 2>/dev/null";
  FILE* pipe = ::popen(command.c_str(), "r");
  if (pipe == nullptr) return {-1, ""};
  std::string out;
  char buffer[512];
  for (size_t n; (n = std::fread(buffer, 1, sizeof buffer, pipe)) > 0;) out.append(buffer, n);
  return {::pclose(pipe), out};
}

class CRSAKeyPairInteropTest : public test::RsaKeyPairFileFixture {
 protected:
  static void SetUpTestSuite() {
    RsaKeyPairFixture::SetUpTestSuite();
    GenerateSuiteKeys(1024, 512);
  }

  // The key pair's blobs as files for OpenSSL.
  void UnloadBoth(const Ref<CRSAKeyPair>& pair) {
    String priv = PathString("ours.priv");
    String pub = PathString("ours.pub");
    ASSERT_TRUE(pair->UnloadPrivateKey(priv, FILE_BINARY));
    ASSERT_TRUE(pair->UnloadPublicKey(pub, FILE_BINARY));
  }
};

// ---- blobs ----

TEST_F(CRSAKeyPairInteropTest, OpensslReadsOurBlobsAndWritesThemBackByteForByte) {
  for (const Ref<CRSAKeyPair>& pair : {s_signature, s_exchange}) {
    UnloadBoth(pair);
    const std::string priv = PathOf("ours.priv");
    // OpenSSL's own consistency check of the private key (n = p q, d, the CRT values).
    const CommandResult check = Openssl("rsa -inform MSBLOB -in " + priv + " -check -noout");
    EXPECT_EQ(check.status, 0);
    EXPECT_NE(check.out.find("RSA key ok"), std::string::npos) << check.out;
    ASSERT_EQ(
        Openssl("rsa -inform MSBLOB -in " + priv + " -outform MSBLOB -out " + PathOf("back.priv"))
            .status,
        0);
    ASSERT_EQ(Openssl("rsa -inform MSBLOB -in " + priv + " -pubout -outform MSBLOB -out " +
                      PathOf("back.pub"))
                  .status,
              0);
    // OpenSSL marks every blob it writes as an exchange key; the rest is ours byte for byte.
    for (const char* name : {"priv", "pub"}) {
      SCOPED_TRACE(name);
      Bytes ours = ReadFile(PathOf((std::string("ours.") + name).c_str()));
      Bytes back = ReadFile(PathOf((std::string("back.") + name).c_str()));
      ASSERT_EQ(ours.size(), back.size());
      EXPECT_EQ(back[5], 0xA4);
      ours[5] = back[5] = 0;
      EXPECT_EQ(back, ours);
    }
    // A binary unload writes over an existing file without truncating it: start afresh.
    for (const char* name : {"ours.priv", "ours.pub", "back.priv", "back.pub"}) {
      fs::remove(m_dir / name);
    }
  }
}

TEST_F(CRSAKeyPairInteropTest, OpensslReadsTheModulusOfOurPublicKey) {
  UnloadBoth(s_signature);
  const CommandResult run =
      Openssl("rsa -pubin -inform MSBLOB -in " + PathOf("ours.pub") + " -modulus -noout");
  ASSERT_EQ(run.status, 0);
  // BLOBHEADER (8) and RSAPUBKEY (12), then the modulus, little-endian.
  const Bytes blob = ReadFile(PathOf("ours.pub"));
  ASSERT_EQ(blob.size(), 20u + 128u);
  const Bytes modulus = Reversed(Bytes(blob.begin() + 20, blob.end()));
  EXPECT_EQ(run.out, "Modulus=" + HexOf(modulus) + "\n");
}

TEST_F(CRSAKeyPairInteropTest, BlobsWrittenByOpensslLoadAsExchangeKeys) {
  const std::string pem = PathOf("theirs.pem");
  ASSERT_EQ(Openssl("genrsa -out " + pem + " 1024").status, 0);
  ASSERT_EQ(Openssl("rsa -in " + pem + " -outform MSBLOB -out " + PathOf("theirs.priv")).status, 0);
  ASSERT_EQ(
      Openssl("rsa -in " + pem + " -pubout -outform MSBLOB -out " + PathOf("theirs.pub")).status,
      0);
  const Bytes theirPrivate = ReadFile(PathOf("theirs.priv"));
  const Bytes theirPublic = ReadFile(PathOf("theirs.pub"));

  Ref<CRSAKeyPair> pair = Pair(kExchange);
  ASSERT_TRUE(pair->LoadKeyPair(PathString("theirs.priv"), FILE_BINARY));
  int16_t contents = 0;
  ASSERT_TRUE(Internal(pair).GetKeyPairContents(contents));
  EXPECT_EQ(contents, KEY_PAIR);
  String hex;
  ASSERT_TRUE(pair->UnloadPrivateKey(hex, STRING_HEX));
  EXPECT_EQ(hex.ToUtf8(), HexOf(theirPrivate));
  int32_t modulus = 0;
  ASSERT_TRUE(pair->GetModulus(modulus));
  EXPECT_EQ(modulus, 1024);

  Ref<CRSAKeyPair> publicOnly = Pair(kExchange);
  ASSERT_TRUE(publicOnly->LoadPublicKey(PathString("theirs.pub"), FILE_BINARY));
  ASSERT_TRUE(Internal(publicOnly).GetKeyPairContents(contents));
  EXPECT_EQ(contents, PUBLIC_KEY);
  ASSERT_TRUE(publicOnly->UnloadPublicKey(hex, STRING_HEX));
  EXPECT_EQ(hex.ToUtf8(), HexOf(theirPublic));

  // The exchange mark keeps them out of a signature key pair.
  Ref<CRSAKeyPair> signature = Pair(kSignature);
  EXPECT_TRUE(FailedWith(signature->LoadPublicKey(PathString("theirs.pub"), FILE_BINARY),
                         signature->m_oLastError, KEY_ERROR_WRONG_KEY_TYPE,
                         "QUIV.CRSAKeyPair.LoadPublicKey"));
}

// ---- signatures ----

TEST_F(CRSAKeyPairInteropTest, OpensslVerifiesOurSignaturesOnceReversed) {
  UnloadBoth(s_signature);
  const std::string pubPem = PathOf("ours.pem");
  ASSERT_EQ(
      Openssl("rsa -pubin -inform MSBLOB -in " + PathOf("ours.pub") + " -pubout -out " + pubPem)
          .status,
      0);
  WriteFile(PathOf("message"), Bytes(kMessage.begin(), kMessage.end()));
  for (auto [algorithm, digest] :
       {std::pair{k.CALG_MD5(), "-md5"}, std::pair{k.CALG_SHA(), "-sha1"}}) {
    SCOPED_TRACE(digest);
    String block;
    ASSERT_TRUE(
        s_signature->Sign(Message(kMessage), block, STRING_HEX, static_cast<int32_t>(algorithm)));
    const Bytes littleEndian = BytesOfHex(block);
    ASSERT_EQ(littleEndian.size(), 128u);
    const std::string verify = std::string("dgst ") + digest + " -verify " + pubPem +
                               " -signature " + PathOf("sig") + " " + PathOf("message");
    WriteFile(PathOf("sig"), Reversed(littleEndian));
    const CommandResult good = Openssl(verify);
    EXPECT_EQ(good.status, 0);
    EXPECT_NE(good.out.find("Verified OK"), std::string::npos) << good.out;
    // As the platform writes it (not reversed), or with one bit changed, it does not verify.
    WriteFile(PathOf("sig"), littleEndian);
    EXPECT_NE(Openssl(verify).status, 0);
    Bytes tampered = Reversed(littleEndian);
    tampered[64] ^= 0x01;
    WriteFile(PathOf("sig"), tampered);
    EXPECT_NE(Openssl(verify).status, 0);
  }
}

TEST_F(CRSAKeyPairInteropTest, WeVerifyOpensslSignaturesOnceReversed) {
  const std::string pem = PathOf("theirs.pem");
  ASSERT_EQ(Openssl("genrsa -out " + pem + " 1024").status, 0);
  ASSERT_EQ(
      Openssl("rsa -in " + pem + " -pubout -outform MSBLOB -out " + PathOf("theirs.pub")).status,
      0);
  Ref<CRSAKeyPair> verifier = Pair(kExchange);
  ASSERT_TRUE(verifier->LoadPublicKey(PathString("theirs.pub"), FILE_BINARY));
  WriteFile(PathOf("message"), Bytes(kMessage.begin(), kMessage.end()));
  for (auto [algorithm, digest] :
       {std::pair{k.CALG_MD5(), "-md5"}, std::pair{k.CALG_SHA1(), "-sha1"}}) {
    SCOPED_TRACE(digest);
    ASSERT_EQ(Openssl(std::string("dgst ") + digest + " -sign " + pem + " -out " + PathOf("sig") +
                      " " + PathOf("message"))
                  .status,
              0);
    const Bytes bigEndian = ReadFile(PathOf("sig"));
    ASSERT_EQ(bigEndian.size(), 128u);
    const String block = String::FromUtf8(HexOf(Reversed(bigEndian)));
    bool valid = false;
    ASSERT_TRUE(verifier->VerifySignature(Message(kMessage), block, STRING_HEX, valid,
                                          static_cast<int32_t>(algorithm)));
    EXPECT_TRUE(valid);
    // Unreversed, with another message, or with the other hash algorithm: a verdict of false.
    ASSERT_TRUE(verifier->VerifySignature(Message(kMessage), String::FromUtf8(HexOf(bigEndian)),
                                          STRING_HEX, valid, static_cast<int32_t>(algorithm)));
    EXPECT_FALSE(valid);
    ASSERT_TRUE(verifier->VerifySignature(Message(kMessage + "."), block, STRING_HEX, valid,
                                          static_cast<int32_t>(algorithm)));
    EXPECT_FALSE(valid);
    const int32_t other =
        static_cast<int32_t>(algorithm == k.CALG_MD5() ? k.CALG_SHA1() : k.CALG_MD5());
    ASSERT_TRUE(verifier->VerifySignature(Message(kMessage), block, STRING_HEX, valid, other));
    EXPECT_FALSE(valid);
  }
}

}  // namespace
}  // namespace quiv
