// quiv sign / quiv verify: PKCS#1 v1.5 signatures with MD5 or SHA-1 as the provider makes them
// (little-endian), or big-endian with -reverse, as OpenSSL and most other tools write them.
#include <algorithm>
#include <cstdio>

#include "Command.h"
#include "HexText.h"
#include "InputStream.h"
#include "KeyFile.h"
#include "Options.h"
#include "OutputFile.h"
#include "PublicKeyInput.h"

namespace quiv::cli {

namespace {

int32_t HashOf(const Options& options) {
  const CConstQUIV c;
  return options.OneOf({"md5", "sha1"}, "md5") == "sha1" ? c.CALG_SHA1() : c.CALG_MD5();
}

// The signed data as the message object holds it (the library signs two bytes or more).
Ref<CMessagetext> LoadMessage(Session& session, const Options& options) {
  InputStream input(options.Value("in"));
  const std::vector<uint8_t> data = input.ReadAll();
  if (data.size() < 2) {
    throw CommandFailure("the library signs and verifies messages of two bytes or more");
  }
  Ref<CMessagetext> message = session.Message();
  if (!message->SetMessageText(ByteArray(data))) Fail(message, "cannot hold the data");
  return message;
}

int RunSign(const std::vector<std::string>& args) {
  Options::Grammar grammar;
  grammar.m_valued = {"container", "in", "out", "outform", "provider"};
  grammar.m_flags = {"md5", "sha1", "reverse", "exchange", "signature", "machine"};
  const Options options(grammar, args);
  const std::string form = options.Choice("outform", {"bin", "hex"}, "bin");
  Session session(options);
  session.OpenContainer(options.ValueOr("container", ""), options.Has("machine"));
  Ref<CRSAKeyPair> pair =
      PublicKeyInput::FromContainer(session, options.OneOf({"exchange", "signature"}, "signature"));
  Ref<CMessagetext> message = LoadMessage(session, options);
  String hex;
  DATA_FORMAT hexFormat = STRING_HEX;
  int32_t hash = HashOf(options);
  if (!pair->Sign(message, hex, hexFormat, hash)) Fail(pair, "cannot sign");
  std::vector<uint8_t> signature = HexText::Decode(hex.ToUtf8()).value_or(std::vector<uint8_t>{});
  if (options.Has("reverse")) std::reverse(signature.begin(), signature.end());
  OutputFile output(options.Value("out"));
  output.Write(form == "hex" ? HexText::Encode(signature) + (output.IsFile() ? "" : "\n")
                             : std::string(signature.begin(), signature.end()));
  output.Commit();
  return 0;
}

int RunVerify(const std::vector<std::string>& args) {
  Options::Grammar grammar;
  grammar.m_valued = {"signature", "pubin", "container", "in", "sigform", "provider"};
  grammar.m_flags = {"md5", "sha1", "reverse", "exchange", "machine"};
  const Options options(grammar, args);
  const std::optional<std::string> sigFile = options.Value("signature");
  if (!sigFile) throw UsageError("-signature FILE is required");
  if (options.Has("pubin") == options.Has("container")) {
    throw UsageError("give either -pubin FILE or -container NAME");
  }
  const std::string form = options.Choice("sigform", {"auto", "bin", "hex"}, "auto");
  const std::vector<uint8_t> raw = ReadSmallFile(*sigFile, "signature file");
  const bool hex = form == "hex" || (form == "auto" && HexText::LooksLikeHex(raw));
  std::vector<uint8_t> signature =
      hex ? HexText::Decode(std::string(raw.begin(), raw.end())).value_or(std::vector<uint8_t>{})
          : raw;
  if (signature.empty()) throw CommandFailure(*sigFile + " is not a hex signature");
  if (options.Has("reverse")) std::reverse(signature.begin(), signature.end());

  Session session(options);
  const bool exchange = options.Has("exchange");
  Ref<CRSAKeyPair> pair;
  if (const std::optional<std::string> pubin = options.Value("pubin")) {
    session.OpenVerifyContext();
    pair = PublicKeyInput::FromFile(session, *pubin,
                                    exchange ? KeyFile::kRsaKeyExchange : KeyFile::kRsaSignature);
  } else {
    session.OpenContainer(*options.Value("container"), options.Has("machine"));
    pair = PublicKeyInput::FromContainer(session, exchange ? "exchange" : "signature");
  }
  Ref<CMessagetext> message = LoadMessage(session, options);
  bool valid = false;
  DATA_FORMAT hexFormat = STRING_HEX;
  int32_t hash = HashOf(options);
  if (!pair->VerifySignature(message, String::FromUtf8(HexText::Encode(signature)), hexFormat,
                             valid, hash)) {
    Fail(pair, "cannot verify");
  }
  std::puts(valid ? "Verified OK" : "Verification failure: the signature does not match");
  return valid ? 0 : 1;
}

}  // namespace

const Command kSignCommand = {
    "sign", "sign data with a container's key pair",
    "usage: quiv sign -container NAME [-md5|-sha1] [-reverse] [-outform bin|hex]\n"
    "                 [-exchange|-signature] [-in FILE] [-out FILE] [-machine]\n"
    "Signs the data (read whole; two bytes or more) with PKCS#1 v1.5 and MD5 (default) or\n"
    "SHA-1, using the container's signature pair (default) or exchange pair. The signature is\n"
    "little-endian, as CryptoAPI writes it; -reverse writes it big-endian, as OpenSSL does.\n"
    "\n"
    "example:\n"
    "  quiv sign -container web-orders -sha1 -reverse -in order.xml -out order.sig\n"
    "  openssl dgst -sha1 -verify orders.pub.pem -signature order.sig order.xml\n",
    RunSign};

const Command kVerifyCommand = {
    "verify", "check a signature (exit 0 good, 1 bad)",
    "usage: quiv verify -signature FILE (-pubin KEYFILE | -container NAME) [-md5|-sha1]\n"
    "                   [-reverse] [-sigform auto|bin|hex] [-exchange] [-in FILE]\n"
    "Checks a PKCS#1 v1.5 signature of the data and says \"Verified OK\" (exit 0) or\n"
    "\"Verification failure\" (exit 1). KEYFILE is a PUBLICKEYBLOB, hex, PEM or DER public key\n"
    "(detected). The signature is read little-endian as CryptoAPI writes it; -reverse reads\n"
    "it big-endian, as OpenSSL writes it.\n"
    "\n"
    "example:\n"
    "  openssl dgst -sha1 -sign key.pem -out data.sig data.txt\n"
    "  quiv verify -sha1 -reverse -pubin key.pub.pem -signature data.sig -in data.txt\n",
    RunVerify};

}  // namespace quiv::cli
