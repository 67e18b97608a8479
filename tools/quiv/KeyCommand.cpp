// quiv export / quiv import: a container's public key or key pair to and from a file, as the
// provider's blobs (msblob, hex) or as PEM/DER.
#include <cstdio>

#include "Command.h"
#include "HexText.h"
#include "InputStream.h"
#include "KeyFile.h"
#include "KeySettings.h"
#include "OutputFile.h"
#include "PassPhrase.h"

namespace quiv::cli {

namespace {

std::vector<uint8_t> BytesOfHex(const String& hex) {
  return HexText::Decode(hex.ToUtf8()).value_or(std::vector<uint8_t>{});
}

Options ParseKeyOptions(const std::vector<std::string>& args, bool import) {
  Options::Grammar grammar;
  grammar.m_valued = {"container", "pass",   "passform",
                      "alg",       "keylen", "hash",
                      "provider",  "in",     import ? "inform" : "outform"};
  if (!import) grammar.m_valued.insert("out");
  grammar.m_flags = {"exchange", "signature", "machine"};
  if (import) {
    grammar.m_flags.insert({"exportable", "create"});
  } else {
    grammar.m_flags.insert("private");
  }
  return Options(grammar, args);
}

// The key of a file (-in) in the session's pair object: a PRIVATEKEYBLOB or private PEM/DER key
// as a key pair (exportable: it only lives in this verify-only session), a public one as such.
Ref<CRSAKeyPair> LoadFromFile(Session& session, const std::string& path,
                              const std::string& chosen) {
  const std::vector<uint8_t> data = ReadSmallFile(path, "key file");
  const std::string form = KeyFile::DetectForm(data);
  const uint32_t slotAlg =
      chosen == "signature" ? KeyFile::kRsaSignature : KeyFile::kRsaKeyExchange;
  std::vector<uint8_t> blob;
  try {
    blob = KeyFile::ToBlob(data, form, true, "", slotAlg);
  } catch (const CommandFailure&) {
    blob = KeyFile::ToBlob(data, form, false, "", slotAlg);  // a public PEM/DER key
  }
  if (blob.empty() || (blob[0] != KeyFile::kPrivateKeyBlob && blob[0] != KeyFile::kPublicKeyBlob)) {
    throw CommandFailure(path + " holds no RSA key");
  }
  if (!chosen.empty()) KeyFile::SetAlgorithm(blob, slotAlg);
  Ref<CRSAKeyPair> pair =
      session.Pair(KeyFile::AlgorithmOf(blob) == KeyFile::kRsaSignature ? "signature" : "exchange");
  const String text = String::FromUtf8(HexText::Encode(blob));
  DATA_FORMAT hexFormat = STRING_HEX;
  const bool loaded = blob[0] == KeyFile::kPrivateKeyBlob
                          ? pair->SetUnloadable(true) && pair->LoadKeyPair(text, hexFormat)
                          : pair->LoadPublicKey(text, hexFormat);
  if (!loaded) Fail(pair, "cannot load the key of " + path);
  return pair;
}

int RunExport(const std::vector<std::string>& args) {
  const Options options = ParseKeyOptions(args, false);
  const std::string form = options.Choice("outform", {"msblob", "pem", "der", "hex"}, "msblob");
  const std::string chosen = options.OneOf({"exchange", "signature"}, "");
  const std::string which = chosen.empty() ? "exchange" : chosen;
  const bool wantPrivate = options.Has("private");
  if (options.Has("pass") && !wantPrivate) throw UsageError("-pass protects a private key only");
  if (options.Has("in") && options.Has("container")) {
    throw UsageError("give either -container NAME or -in FILE");
  }
  Session session(options);
  Ref<CRSAKeyPair> pair;
  if (const std::optional<std::string> path = options.Value("in")) {
    session.OpenVerifyContext();
    pair = LoadFromFile(session, *path, chosen);
  } else {
    session.OpenContainer(options.ValueOr("container", ""), options.Has("machine"));
    pair = session.Pair(which);
    const String none;
    DATA_FORMAT fromContainer = CURRENT_KEY_CONTAINER;
    if (!pair->LoadKeyPair(none, fromContainer)) {
      Fail(pair, "the container has no " + which + " key pair");
    }
  }
  String hex;
  DATA_FORMAT hexFormat = STRING_HEX;
  std::string pkcs8Phrase;
  if (!wantPrivate) {
    if (!pair->UnloadPublicKey(hex, hexFormat)) Fail(pair, "cannot export the public key");
  } else if (options.Has("pass") && (form == "msblob" || form == "hex")) {
    // Wrapped as the library does: everything after the blob header encrypted with a session
    // key derived from the pass phrase (the reader needs the same -alg, -keylen, -hash).
    Ref<CSessionKey> key = KeySettings::FromPassPhrase(session, options);
    if (!pair->UnloadPrivateKey(hex, hexFormat, key)) Fail(pair, "cannot export the private key");
  } else {
    if (options.Has("pass")) {
      pkcs8Phrase = PassPhrase(*options.Value("pass"), options.ValueOr("passform", "text")).Utf8();
    }
    if (!pair->UnloadPrivateKey(hex, hexFormat)) {
      Fail(pair, "cannot export the private key (was the pair made -exportable?)");
    }
  }
  const std::vector<uint8_t> blob = BytesOfHex(hex);
  OutputFile output(options.Value("out"), wantPrivate ? 0600 : 0644);
  output.Write(KeyFile::FromBlob(blob, form, pkcs8Phrase));
  output.Commit();
  return 0;
}

void LoadInto(Session& session, const Options& options, const std::vector<uint8_t>& blob,
              const std::string& which, bool blobForm);

int RunImport(const std::vector<std::string>& args) {
  const Options options = ParseKeyOptions(args, true);
  const std::string form =
      options.Choice("inform", {"auto", "msblob", "pem", "der", "hex"}, "auto");
  const std::string chosen = options.OneOf({"exchange", "signature"}, "");
  const std::vector<uint8_t> data = ReadSmallFile(options.ValueOr("in", "-"), "key file");
  const std::string actual = form == "auto" ? KeyFile::DetectForm(data) : form;
  const bool blobForm = actual == "msblob" || actual == "hex";
  std::string pkcs8Phrase;
  if (options.Has("pass") && !blobForm) {
    pkcs8Phrase = PassPhrase(*options.Value("pass"), options.ValueOr("passform", "text")).Utf8();
  }
  const uint32_t slotAlg =
      chosen == "signature" ? KeyFile::kRsaSignature : KeyFile::kRsaKeyExchange;
  std::vector<uint8_t> blob = KeyFile::ToBlob(data, actual, true, pkcs8Phrase, slotAlg);
  if (blob.empty() || blob[0] != KeyFile::kPrivateKeyBlob) {
    throw CommandFailure("the file holds no key pair (a container keeps key pairs only)");
  }
  // The slot: the one asked for (the blob is relabelled), else the one the blob names.
  if (!chosen.empty()) KeyFile::SetAlgorithm(blob, slotAlg);
  const std::string which =
      KeyFile::AlgorithmOf(blob) == KeyFile::kRsaSignature ? "signature" : "exchange";

  Session session(options);
  const std::string name = options.ValueOr("container", "");
  const bool created = session.OpenContainer(name, options.Has("machine"), options.Has("create"));
  try {
    LoadInto(session, options, blob, which, blobForm);
  } catch (const CommandFailure&) {
    if (created) session.DeleteContainer(name, options.Has("machine"));
    throw;
  }
  std::fprintf(stderr, "imported %s key pair into container '%s'\n", which.c_str(), name.c_str());
  return 0;
}

void LoadInto(Session& session, const Options& options, const std::vector<uint8_t>& blob,
              const std::string& which, bool blobForm) {
  Ref<CSessionKey> key;
  if (options.Has("pass") && blobForm) key = KeySettings::FromPassPhrase(session, options);
  Ref<CRSAKeyPair> pair = session.Pair(which);
  DATA_FORMAT hexFormat = STRING_HEX;
  if (!pair->SetUnloadable(options.Has("exportable")) ||
      !pair->LoadKeyPair(String::FromUtf8(HexText::Encode(blob)), hexFormat, key)) {
    Fail(pair, "cannot import the key pair");
  }
}

#define QUIV_KEY_PASS_HELP                                                                         \
  "  -pass SOURCE        for a private key: pass:TEXT, env:VAR, file:PATH or stdin. msblob/hex:\n" \
  "                      the blob wrapped under a session key derived from it, as the library\n"   \
  "                      does (-alg, -keylen, -hash as for enc; default rc2); pem/der: PKCS#8\n"   \
  "                      encryption (PBES2, AES-256-CBC)\n"

}  // namespace

const Command kExportCommand = {
    "export", "write a container's public key or key pair to a file",
    "usage: quiv export (-container NAME | -in KEYFILE) [-exchange|-signature] [-private]\n"
    "                   [-pass SOURCE] [-outform msblob|pem|der|hex] [-out FILE] [-machine]\n"
    "Writes the PUBLICKEYBLOB (or with -private the PRIVATEKEYBLOB, which needs a pair made\n"
    "-exportable) of the container's exchange (default) or signature pair. pem/der write\n"
    "SubjectPublicKeyInfo or PKCS#8. A private key file is made with mode 0600.\n"
    "With -in, the key comes from a file instead (a blob as Windows exports it, hex, or an\n"
    "unencrypted PEM/DER key): a conversion that touches no container.\n"
    "\n"
    "  -outform FORM       msblob (default: the blob bytes, as Windows exports them), pem, der\n"
    "                      or hex\n" QUIV_KEY_PASS_HELP
    "\n"
    "examples:\n"
    "  quiv export -container web-orders -outform pem -out orders.pub.pem\n"
    "  quiv export -container web-orders -private -pass env:KEYPASS -outform pem -out key.pem\n"
    "  quiv export -in signer.pub.blob -outform pem -out signer.pub.pem\n",
    RunExport};

const Command kImportCommand = {
    "import", "put a key pair from a file into a container",
    "usage: quiv import -container NAME -in FILE [-exchange|-signature] [-exportable]\n"
    "                   [-create] [-pass SOURCE] [-inform auto|msblob|pem|der|hex] [-machine]\n"
    "Stores a PRIVATEKEYBLOB (as Windows exports it) or a PEM/DER RSA private key (PKCS#8 or\n"
    "PKCS#1) in the container, in the slot -exchange/-signature names (default: the blob's own\n"
    "algorithm; PEM/DER: exchange). The form is detected from the content unless -inform says.\n"
    "\n"
    "  -exportable         the imported pair may be exported again\n"
    "  -create             create the container if it does not exist\n" QUIV_KEY_PASS_HELP
    "\n"
    "example:\n"
    "  quiv import -container web-orders -create -exchange -in windows-export.blob -exportable\n",
    RunImport};

}  // namespace quiv::cli
