// quiv dgst: the hash (or HMAC) of files or a stream, as hex or as a library fingerprint.
#include "CapiFallback.h"
#include "Command.h"
#include "DataReader.h"
#include "HexText.h"
#include "InputStream.h"
#include "Options.h"
#include "OutputFile.h"
#include "SectionPump.h"
#include "Session.h"
#include "platform/wincrypt.h"

namespace quiv::cli {

namespace {

struct Digester {
  Session& m_session;
  int32_t m_alg;
  std::optional<std::vector<uint8_t>> m_hmacKey;
  std::string m_fingerprint;  // empty: plain hex
  bool m_sha2 = false;        // SHA-256/384/512: made on the AES provider (CapiFallback)
};

// The running hash of the hash object, fed section by section (Hash accumulates until Clear).
std::vector<uint8_t> HashWithObject(Digester& d, DataReader& reader, ProgressBar& progress,
                                    bool& tiny) {
  Ref<CHashValue> hash = d.m_session.HashValue();
  Ref<CMessagetext> message = d.m_session.Message();
  if (!hash->Clear() || !hash->SetHashAlgorithmID(d.m_alg)) Fail(hash, "cannot set up the hash");
  std::vector<uint8_t> shortData;
  SectionPump::Run(reader, progress, [&](std::vector<uint8_t>&& section, bool final) {
    if (final && section.size() < 2) {
      tiny = true;  // only when the whole input is shorter than two bytes
      shortData = std::move(section);
      return;
    }
    if (!message->SetMessageText(ByteArray(std::move(section)))) {
      Fail(message, "cannot hold the data");
    }
    if (!hash->Hash(message)) Fail(hash, "hashing failed");
  });
  if (tiny) return CapiFallback::Digest(static_cast<uint32_t>(d.m_alg), shortData);
  ByteArray value;
  if (!hash->GetHashValue(value)) Fail(hash, "cannot read the hash");
  return value.ToVector();
}

std::vector<uint8_t> Compute(Digester& d, InputStream& input) {
  DataReader reader(input, false);
  ProgressBar progress(input.Size());
  if (d.m_hmacKey) {
    return CapiFallback::Hmac(static_cast<uint32_t>(d.m_alg), *d.m_hmacKey, [&](const auto& add) {
      SectionPump::Run(reader, progress, [&](std::vector<uint8_t>&& s, bool) { add(s); });
    });
  }
  if (d.m_sha2) {
    return CapiFallback::DigestStream(static_cast<uint32_t>(d.m_alg), [&](const auto& add) {
      SectionPump::Run(reader, progress, [&](std::vector<uint8_t>&& s, bool) { add(s); });
    });
  }
  bool tiny = false;
  return HashWithObject(d, reader, progress, tiny);
}

FINGERPRINT_FORMAT FingerprintFormat(const std::string& name) {
  if (name == "spaces") return SPACES;
  if (name == "hyphens") return HYPHENS;
  if (name == "double-hyphens") return DOUBLE_HYPHENS;
  if (name == "hyphens-spaced") return HYPHENS_SPACED;
  if (name == "double-hyphens-spaced") return DOUBLE_HYPHENS_SPACED;
  return NOFORMAT;
}

// The value as the hash object formats a fingerprint (loaded back into it for that).
std::string Format(Digester& d, const std::vector<uint8_t>& value) {
  if (d.m_fingerprint.empty()) return HexText::Encode(value);
  Ref<CHashValue> hash = d.m_session.HashValue();
  DATA_FORMAT hexFormat = STRING_HEX;
  if (!hash->LoadHashValue(String::FromUtf8(HexText::Encode(value)), hexFormat, d.m_alg)) {
    Fail(hash, "cannot load the value");
  }
  String text;
  DATA_FORMAT textFormat = STRING_VB;
  FINGERPRINT_FORMAT format = FingerprintFormat(d.m_fingerprint);
  if (!hash->UnloadFingerprint(text, textFormat, format)) Fail(hash, "cannot format the value");
  return text.ToUtf8();
}

// SHA-2 exists only on the AES provider, and the library's fingerprint layouts only for the
// hashes its classes know.
void CheckSha2Options(const Options& options, const std::string& fingerprint) {
  const std::string provider =
      options.Choice("provider", {"base", "enhanced", "strong", "aes"}, "aes");
  if (provider != "aes") {
    throw UsageError("SHA-256/384/512 need -provider aes (the " + provider +
                     " provider is PROV_RSA_FULL and has no SHA-2)");
  }
  if (!fingerprint.empty() && fingerprint != "none") {
    throw UsageError("-fingerprint works with -md5, -sha1, -md2 or -md4");
  }
}

int RunDgst(const std::vector<std::string>& args) {
  Options::Grammar grammar;
  grammar.m_valued = {"hmac", "fingerprint", "out", "provider"};
  grammar.m_flags = {"md2", "md4", "md5", "sha1", "sha256", "sha384", "sha512"};
  grammar.m_maxPositional = 1000;
  const Options options(grammar, args);
  const CConstQUIV c;
  const std::string md =
      options.OneOf({"md2", "md4", "md5", "sha1", "sha256", "sha384", "sha512"}, "md5");
  const bool sha2 = md.starts_with("sha") && md != "sha1";
  const int32_t alg = md == "md2"      ? c.CALG_MD2()
                      : md == "md4"    ? c.CALG_MD4()
                      : md == "sha1"   ? c.CALG_SHA1()
                      : md == "sha256" ? CALG_SHA_256
                      : md == "sha384" ? CALG_SHA_384
                      : md == "sha512" ? CALG_SHA_512
                                       : c.CALG_MD5();
  const std::string fingerprint = options.Choice(
      "fingerprint",
      {"spaces", "hyphens", "double-hyphens", "hyphens-spaced", "double-hyphens-spaced", "none"},
      "");
  if (options.Has("hmac") && (md == "md2" || md == "md4")) {
    throw UsageError("-hmac works with -md5, -sha1, -sha256, -sha384 or -sha512");
  }
  if (sha2) CheckSha2Options(options, fingerprint);
  Session session(sha2 ? Session() : Session(options));
  session.OpenVerifyContext();
  Digester d{session, alg, std::nullopt, fingerprint, sha2};
  if (const std::optional<std::string> keyFile = options.Value("hmac")) {
    d.m_hmacKey = ReadSmallFile(*keyFile, "HMAC key file");
  }
  OutputFile output(options.Value("out"));
  std::vector<std::optional<std::string>> inputs(options.Positional().begin(),
                                                 options.Positional().end());
  if (inputs.empty()) inputs.push_back(std::nullopt);
  for (const std::optional<std::string>& path : inputs) {
    InputStream input(path);
    const std::string text = Format(d, Compute(d, input));
    output.Write(inputs.size() > 1 || path ? text + "  " + input.Name() + "\n" : text + "\n");
  }
  output.Commit();
  return 0;
}

}  // namespace

const Command kDgstCommand = {
    "dgst", "hash or HMAC of files, as hex or as a fingerprint",
    "usage: quiv dgst [-md5|-sha1|-md2|-md4|-sha256|-sha384|-sha512] [-hmac KEYFILE]\n"
    "                 [-fingerprint FORMAT] [-provider NAME] [-out FILE] [FILE...]\n"
    "Hashes each FILE (standard input when there is none) in sections in constant memory.\n"
    "Prints the value in upper-case hex, followed by two blanks and the file's name when a\n"
    "file is named.\n"
    "\n"
    "  -md5 -sha1 -md2 -md4   the hash (default -md5)\n"
    "  -sha256 -sha384 -sha512\n"
    "                         SHA-2 hashes, on the AES provider (-provider aes, the default\n"
    "                         for them; base, enhanced and strong have no SHA-2)\n"
    "  -hmac KEYFILE          HMAC (RFC 2104) keyed with the bytes of KEYFILE (not -md2/-md4)\n"
    "  -fingerprint FORMAT    the library's fingerprint layout, four hex digits a group:\n"
    "                         spaces, hyphens, double-hyphens, hyphens-spaced,\n"
    "                         double-hyphens-spaced or none (not with SHA-2)\n"
    "  -provider NAME         base, enhanced (default), strong; aes for SHA-2\n"
    "  -out FILE              write there, only on success (default: standard output)\n"
    "\n"
    "example:\n"
    "  quiv dgst -sha1 -fingerprint hyphens partner.pub\n",
    RunDgst};

}  // namespace quiv::cli
