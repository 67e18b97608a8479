// quiv wrap / quiv unwrap: a session key as a SIMPLEBLOB for a recipient's public key, and back
// with a container's exchange key pair.
#include <cstdio>

#include "Command.h"
#include "HexText.h"
#include "KeyFile.h"
#include "KeySettings.h"
#include "Options.h"
#include "OutputFile.h"
#include "PublicKeyInput.h"

namespace quiv::cli {

namespace {

void WriteWrapped(Ref<CSessionKey>& key, Ref<CRSAKeyPair>& recipient, const Options& options) {
  String hex;
  DATA_FORMAT hexFormat = STRING_HEX;
  if (!key->UnloadSessionKey(recipient, hex, hexFormat)) Fail(key, "cannot wrap the key");
  const std::vector<uint8_t> blob = HexText::Decode(hex.ToUtf8()).value_or(std::vector<uint8_t>{});
  OutputFile output(options.Value("out"));
  output.Write(options.Choice("outform", {"bin", "hex"}, "bin") == "hex"
                   ? HexText::Encode(blob) + (output.IsFile() ? "" : "\n")
                   : std::string(blob.begin(), blob.end()));
  output.Commit();
}

int RunWrap(const std::vector<std::string>& args) {
  Options::Grammar grammar;
  grammar.m_valued = {"pubin", "out", "outform"};
  for (const std::string& name : KeySettings::ValuedOptions()) grammar.m_valued.insert(name);
  const Options options(grammar, args);
  const std::optional<std::string> pubin = options.Value("pubin");
  if (!pubin) throw UsageError("-pubin RECIPIENT is required");
  if (!options.Has("pass"))
    throw UsageError("-pass is required: the key to wrap is derived from it");
  Session session(options);
  session.OpenVerifyContext();
  Ref<CSessionKey> key = KeySettings::FromPassPhrase(session, options);
  Ref<CRSAKeyPair> recipient = PublicKeyInput::FromFile(session, *pubin, KeyFile::kRsaKeyExchange);
  WriteWrapped(key, recipient, options);
  return 0;
}

int RunUnwrap(const std::vector<std::string>& args) {
  Options::Grammar grammar;
  grammar.m_valued = {"container", "in", "pubin", "out", "outform", "provider"};
  grammar.m_flags = {"machine", "P"};
  const Options options(grammar, args);
  if (!options.Has("in")) throw UsageError("-in SIMPLEBLOB is required");
  Session session(options);
  session.OpenContainer(options.ValueOr("container", ""), options.Has("machine"));
  // KeySettings::Make unwraps -key with the container's exchange pair.
  std::vector<std::string> keyArgs = {"-key", *options.Value("in")};
  Options::Grammar keySpec;
  keySpec.m_valued = {"key"};
  Ref<CSessionKey> key = KeySettings::Make(session, Options(keySpec, keyArgs));
  String code;
  int32_t bits = 0;
  if (!key->GetKeyAlgorithmCode(code) || !key->GetKeyLength(bits)) Fail(key, "cannot read the key");
  std::printf("%s, %d bits\n", code.ToUtf8().c_str(), bits);
  if (options.Has("P")) std::printf("key=%s\n", KeySettings::RevealKey(session, key).c_str());
  if (const std::optional<std::string> pubin = options.Value("pubin")) {
    Ref<CRSAKeyPair> recipient =
        PublicKeyInput::FromFile(session, *pubin, KeyFile::kRsaKeyExchange);
    WriteWrapped(key, recipient, options);
  }
  return 0;
}

}  // namespace

const Command kWrapCommand = {
    "wrap", "wrap a pass-phrase key as a SIMPLEBLOB for a recipient",
    "usage: quiv wrap -pubin RECIPIENT -pass SOURCE [-alg NAME] [-keylen BITS] [-hash md5|sha1]\n"
    "                 [-outform bin|hex] [-out FILE]\n"
    "Derives the session key from the pass phrase exactly as enc does and writes it as a\n"
    "SIMPLEBLOB encrypted to RECIPIENT's public key (a PUBLICKEYBLOB, hex, PEM or DER public\n"
    "key). The recipient decrypts with 'quiv dec -key BLOB -container THEIRS'; the cipher mode\n"
    "and IV are not in the blob and must be agreed.\n"
    "\n"
    "example:\n"
    "  quiv wrap -pubin partner.pub.pem -pass env:QUIV_PASS -alg 3des -out order.key\n",
    RunWrap};

const Command kUnwrapCommand = {
    "unwrap", "unwrap a SIMPLEBLOB with a container's exchange key",
    "usage: quiv unwrap -container NAME -in SIMPLEBLOB [-P] [-pubin OTHER [-outform bin|hex]\n"
    "                   [-out FILE]] [-machine]\n"
    "Imports the wrapped session key with the container's exchange key pair and prints its\n"
    "algorithm and length; -P also prints the key bytes; -pubin wraps it again for another\n"
    "recipient.\n"
    "\n"
    "example:\n"
    "  quiv unwrap -container web-orders -in order.key -P\n",
    RunUnwrap};

}  // namespace quiv::cli
