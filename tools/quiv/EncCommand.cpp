// quiv enc / quiv dec: encrypt or decrypt a file or a stream with a session key derived from a
// pass phrase, or unwrapped from a SIMPLEBLOB, exactly as the library does it, in sections.
#include <cstdio>
#include <functional>

#include "AesCipher.h"
#include "CapiFallback.h"
#include "Command.h"
#include "DataReader.h"
#include "DataWriter.h"
#include "KeySettings.h"
#include "OutputFile.h"
#include "SectionPump.h"

namespace quiv::cli {

namespace {

// The message object holds no message shorter than two bytes, and a one-byte result could not
// be told from an empty one, so final sections up to this size go through CapiFallback.
constexpr size_t kShortSection = 16;

Options ParseCipherOptions(const std::vector<std::string>& args) {
  Options::Grammar grammar;
  grammar.m_valued = {"in", "out", "inform", "outform"};
  for (const std::string& name : KeySettings::ValuedOptions()) grammar.m_valued.insert(name);
  grammar.m_flags = {"machine", "P"};
  return Options(grammar, args);
}

// One section through the message object and the key, with the AMOUNT of the section.
ByteArray CipherSection(Ref<CMessagetext>& message, Ref<CSessionKey>& key,
                        std::vector<uint8_t>&& section, bool final, bool decrypt) {
  if (final && section.size() <= kShortSection) {
    HCRYPTKEY handle = 0;
    if (!key->GetSessionKeyHandle(handle)) Fail(key, "no key");
    return ByteArray(decrypt ? CapiFallback::DecryptFinal(handle, section)
                             : CapiFallback::EncryptFinal(handle, section));
  }
  if (!message->SetMessageText(ByteArray(std::move(section)))) {
    Fail(message, "cannot hold the data");
  }
  int32_t amount = final ? FINAL_SECTION : NOT_FINAL_SECTION;
  if (decrypt ? !key->Decrypt(message, amount) : !key->Encrypt(message, amount)) {
    Fail(key, decrypt ? "decryption failed" : "encryption failed");
  }
  ByteArray result;
  if (!message->GetMessageText(result)) Fail(message, "cannot read the result");
  return result;
}

// The data pumped from the input through `cipher` to the output, in sections.
void Pump(const Options& options, bool decrypt,
          const std::function<ByteArray(std::vector<uint8_t>&&, bool)>& cipher) {
  const std::string inform = options.Choice("inform", {"bin", "hex"}, "bin");
  const std::string outform = options.Choice("outform", {"bin", "hex"}, "bin");
  InputStream input(options.Value("in"));
  DataReader reader(input, decrypt && inform == "hex");
  OutputFile output(options.Value("out"));
  DataWriter writer(output, !decrypt && outform == "hex");
  ProgressBar progress(input.Size());
  SectionPump::Run(reader, progress, [&](std::vector<uint8_t>&& section, bool final) {
    writer.Write(cipher(std::move(section), final).span());
  });
  writer.Finish();
}

// -provider aes: on the AES provider's C functions (AesCipher), as the classes cannot.
int RunAesCipher(const Options& options, bool decrypt) {
  if (options.Has("P")) throw UsageError("-P does not work with -provider aes");
  AesCipher cipher(options);
  Pump(options, decrypt, [&](std::vector<uint8_t>&& section, bool final) {
    return ByteArray(cipher.Section(section, final, decrypt));
  });
  return 0;
}

int RunCipher(const std::vector<std::string>& args, bool decrypt) {
  const Options options = ParseCipherOptions(args);
  if (options.ValueOr("provider", "") == "aes") return RunAesCipher(options, decrypt);
  const std::string alg = options.ValueOr("alg", "");
  const std::string hash = options.ValueOr("hash", "");
  if (alg.starts_with("aes") || (hash.starts_with("sha") && hash != "sha1")) {
    throw UsageError(
        "AES and SHA-2 need -provider aes (base, enhanced and strong are "
        "PROV_RSA_FULL and have neither)");
  }
  Session session(options);
  if (options.Has("key")) {
    session.OpenContainer(options.ValueOr("container", ""), options.Has("machine"));
  } else {
    session.OpenVerifyContext();
  }
  Ref<CSessionKey> key = KeySettings::Make(session, options);
  if (options.Has("P")) {
    // Like openssl's -P: show the key (and the IV when one was given), encrypt nothing.
    std::string line = "key=" + KeySettings::RevealKey(session, key) + "\n";
    if (options.Has("iv")) {
      String iv;
      DATA_FORMAT format = STRING_HEX;
      if (!key->UnloadIV(iv, format)) Fail(key, "cannot read the IV");
      line += "iv=" + iv.ToUtf8() + "\n";
    }
    std::fputs(line.c_str(), stdout);
    return 0;
  }

  Ref<CMessagetext> message = session.Message();
  Pump(options, decrypt, [&](std::vector<uint8_t>&& section, bool final) {
    return CipherSection(message, key, std::move(section), final, decrypt);
  });
  return 0;
}

int RunEnc(const std::vector<std::string>& args) {
  return RunCipher(args, false);
}
int RunDec(const std::vector<std::string>& args) {
  return RunCipher(args, true);
}

#define QUIV_CIPHER_OPTIONS                                                                     \
  "  -in FILE            input (default: standard input)\n"                                     \
  "  -out FILE           output, written only when the whole run succeeds (default: standard\n" \
  "                      output, which cannot be taken back)\n"                                 \
  "  -pass SOURCE        pass phrase: pass:TEXT, env:VAR, file:PATH (first line) or stdin\n"    \
  "                      (first line of standard input); only pass: shows up in ps\n"           \
  "  -passform text|hex  the phrase as UTF-8 text (default), or hex of its UTF-16LE bytes\n"    \
  "  -alg NAME           rc2 (default), rc4, des, 3des or 3des112; with -provider aes:\n"       \
  "                      aes128, aes192 or aes256 (default)\n"                                  \
  "  -keylen BITS        key length; 0 or absent: the provider's default (rc2/rc4: 40 on\n"     \
  "                      base, 128 on enhanced)\n"                                              \
  "  -hash md5|sha1      the hash the key is derived with (default md5; md2, md4 too; with\n"   \
  "                      -provider aes: sha256 (default), sha384, sha512, md5 or sha1)\n"       \
  "  -provider NAME      enhanced (default), base or strong (same keys as enhanced), or aes\n"  \
  "                      (the AES provider; -key and -P do not work there)\n"                   \
  "  -mode cbc|ecb|cfb   block cipher mode (default cbc); -iv HEX: the IV (default zeros)\n"    \
  "  -key FILE           a SIMPLEBLOB (binary or hex) instead of -pass, unwrapped with the\n"   \
  "                      exchange key of -container NAME (-machine: the machine store);\n"      \
  "                      the blob names the algorithm: -alg, -keylen, -hash do not apply\n"     \
  "  -P                  print the derived key (and IV) in hex and stop\n"

}  // namespace

const Command kEncCommand = {
    "enc", "encrypt with a pass-phrase key or a wrapped session key",
    "usage: quiv enc [options]\n"
    "Encrypts as the library does (and so as Windows pages using it did), in sections of\n"
    "256 KiB in constant memory; a block cipher pads with PKCS#5.\n"
    "\n" QUIV_CIPHER_OPTIONS
    "  -outform bin|hex    raw ciphertext (default) or hex text\n"
    "\n"
    "example:\n"
    "  QUIV_PASS='my secret phrase' quiv enc -alg 3des -pass env:QUIV_PASS -in report.pdf "
    "-out report.enc\n",
    RunEnc};

const Command kDecCommand = {
    "dec", "decrypt what enc (or a Windows page) encrypted",
    "usage: quiv dec [options]\n"
    "Decrypts in sections in constant memory. A wrong pass phrase is found at the end (bad\n"
    "padding, block ciphers only); -out is then left untouched.\n"
    "\n" QUIV_CIPHER_OPTIONS
    "  -inform bin|hex     raw ciphertext (default) or hex text (either case, line breaks ok)\n"
    "\n"
    "example:\n"
    "  quiv dec -alg 3des -pass file:phrase.txt -in report.enc -out report.pdf\n",
    RunDec};

}  // namespace quiv::cli
