#include "KeySettings.h"

#include <algorithm>

#include "HexText.h"
#include "InputStream.h"
#include "PassPhrase.h"

namespace quiv::cli {

namespace {

// A PUBLICKEYBLOB (CALG_RSA_KEYX, 1024 bits) whose exponent is 1 and whose modulus is all ones:
// every PKCS#1 block (it starts 00 02) is smaller than the modulus, so it comes out unchanged.
std::vector<uint8_t> IdentityPublicKeyBlob() {
  std::vector<uint8_t> blob = {0x06, 0x02, 0x00, 0x00, 0x00, 0xA4, 0x00, 0x00,  // PUBLICKEYBLOB
                               0x52, 0x53, 0x41, 0x31,                          // "RSA1"
                               0x00, 0x04, 0x00, 0x00,                          // 1024 bits
                               0x01, 0x00, 0x00, 0x00};                         // e = 1
  blob.resize(blob.size() + 128, 0xFF);
  return blob;
}

}  // namespace

const std::vector<std::string>& KeySettings::ValuedOptions() {
  static const std::vector<std::string> kNames = {
      "pass", "passform", "alg", "keylen", "hash", "mode", "iv", "key", "container", "provider"};
  return kNames;
}

int32_t KeySettings::CipherId(const std::string& name) {
  const CConstQUIV c;
  if (name == "rc2") return c.CALG_RC2();
  if (name == "rc4") return c.CALG_RC4();
  if (name == "des") return c.CALG_DES();
  if (name == "3des") return c.CALG_3DES();
  if (name == "3des112") return c.CALG_3DES_112();
  throw UsageError("-alg must be rc2, rc4, des, 3des or 3des112, not '" + name + "'");
}

int32_t KeySettings::HashId(const std::string& name) {
  const CConstQUIV c;
  if (name == "md5") return c.CALG_MD5();
  if (name == "sha1") return c.CALG_SHA1();
  if (name == "md2") return c.CALG_MD2();
  if (name == "md4") return c.CALG_MD4();
  throw UsageError("-hash must be md5, sha1, md2 or md4, not '" + name + "'");
}

void KeySettings::Settle(Ref<CSessionKey>& key, const Options& options) {
  const int32_t cipher = CipherId(options.ValueOr("alg", "rc2"));
  const int32_t hash = HashId(options.ValueOr("hash", "md5"));
  const int32_t length = static_cast<int32_t>(options.Number("keylen", 0, 32767, 0));
  if (!key->SetKeyAlgorithmID(cipher) || !key->SetHashAlgorithmID(hash) ||
      !key->SetKeyLength(length)) {
    Fail(key, "bad key settings");
  }
}

Ref<CSessionKey> KeySettings::Make(Session& session, const Options& options) {
  const bool phrase = options.Has("pass");
  const bool wrapped = options.Has("key");
  if (phrase == wrapped) throw UsageError("give either -pass or -key");
  if (phrase) return FromPassPhrase(session, options);

  const std::vector<uint8_t> blob = ReadSmallFile(*options.Value("key"), "key file");
  Ref<CRSAKeyPair> exchange = session.ExchangePair();
  const String empty;
  DATA_FORMAT fromContainer = CURRENT_KEY_CONTAINER;
  if (!exchange->LoadKeyPair(empty, fromContainer)) {
    Fail(exchange, "the container has no exchange key pair to unwrap the key with");
  }
  Ref<CSessionKey> key = session.SessionKey();
  // A hex file (as the library's FILE_HEX writes it, or any hex text) or the raw blob.
  const bool hex = HexText::LooksLikeHex(blob);
  const std::vector<uint8_t> raw =
      hex ? HexText::Decode(std::string(blob.begin(), blob.end())).value_or(blob) : blob;
  const String text = String::FromUtf8(HexText::Encode(raw));
  DATA_FORMAT format = STRING_HEX;
  if (!key->LoadSessionKey(exchange, text, format)) Fail(key, "cannot unwrap the session key");
  ApplyModeAndIv(key, options);
  return key;
}

Ref<CSessionKey> KeySettings::FromPassPhrase(Session& session, const Options& options) {
  const PassPhrase phrase(options.ValueOr("pass", ""),
                          options.Choice("passform", {"text", "hex"}, "text"));
  Ref<CSessionKey> key = session.SessionKey();
  Settle(key, options);
  if (!key->SetKeyPhrase(phrase.Phrase()) || !key->GenerateSessionKey()) {
    Fail(key, "cannot derive the key");
  }
  ApplyModeAndIv(key, options);
  return key;
}

Ref<CSessionKey> KeySettings::Random(Session& session, const Options& options) {
  Ref<CSessionKey> key = session.SessionKey();
  Settle(key, options);
  if (!key->GenerateSessionKey()) Fail(key, "cannot make a session key");
  ApplyModeAndIv(key, options);
  return key;
}

void KeySettings::ApplyModeAndIv(Ref<CSessionKey>& key, const Options& options) {
  const std::string mode = options.Choice("mode", {"cbc", "ecb", "cfb"}, "");
  if (!mode.empty()) {
    std::string code = "CRYPT_MODE_" + mode;
    std::transform(code.begin(), code.end(), code.begin(), ::toupper);
    if (!key->ChangeCipherModeCode(String::FromUtf8(code))) Fail(key, "cannot set the mode");
  }
  if (const std::optional<std::string> iv = options.Value("iv")) {
    const std::optional<std::vector<uint8_t>> bytes = HexText::Decode(*iv);
    if (!bytes || bytes->empty()) throw UsageError("-iv must be hex digits");
    DATA_FORMAT format = STRING_HEX;
    if (!key->LoadAndAddIV(String::FromUtf8(HexText::Encode(*bytes)), format)) {
      Fail(key, "cannot set the IV");
    }
  }
}

std::string KeySettings::RevealKey(Session& session, Ref<CSessionKey>& key) {
  Ref<CRSAKeyPair> identity = session.ExchangePair();
  DATA_FORMAT hexFormat = STRING_HEX;
  if (!identity->LoadPublicKey(String::FromUtf8(HexText::Encode(IdentityPublicKeyBlob())),
                               hexFormat)) {
    Fail(identity, "cannot load the clear-text wrapping key");
  }
  String wrapped;
  if (!key->UnloadSessionKey(identity, wrapped, hexFormat)) {
    Fail(key, "cannot read the key (was it made exportable?)");
  }
  const std::vector<uint8_t> blob =
      HexText::Decode(wrapped.ToUtf8()).value_or(std::vector<uint8_t>{});
  // SIMPLEBLOB: 12 header bytes, then the block little-endian: reversed, 00 02 PS 00 key.
  if (blob.size() < 12 + 11) throw CommandFailure("unexpected SIMPLEBLOB from the library");
  std::vector<uint8_t> block(blob.rbegin(), blob.rend() - 12);
  const auto zero = std::find(block.begin() + 2, block.end(), 0);
  if (block[0] != 0 || block[1] != 2 || zero == block.end()) {
    throw CommandFailure("unexpected SIMPLEBLOB from the library");
  }
  return HexText::Encode(std::vector<uint8_t>(zero + 1, block.end()));
}

}  // namespace quiv::cli
