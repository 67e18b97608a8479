// Key blobs as callers hand them to the objects: arbitrary bytes through CKeyTools::ValidateBlob
// and, as hex text, through CRSAKeyPair::LoadPublicKey and CSessionKey::LoadSessionKey on a real
// provider session (Enhanced provider, a key store in a temporary folder, the exchange pair a
// recorded key).
//
// Input: byte 0 selects what is tried (low 2 bits) and, for the key tools, the blob type and the
// expected class (next 4 bits); the rest is the blob.
// Properties:
// - ValidateBlob accepts exactly what a tiny reference of its rule accepts (the blob type fits the
//   class asked for, byte 0 is the type, and the class bits of the low word at offset 4 are the
//   class asked for), and a rejected blob is replaced by the empty array;
// - a public key the pair object loads unloads back to the same bytes (the provider ignores bytes
//   after the key, so the unloaded blob is the input's leading part), and the loaded object then
//   reports a public key;
// - a session key that loads either encrypts a message and decrypts it back, or refuses (an RC2
//   key longer than the provider's maximum cannot encrypt) and leaves the message as it was;
// - nothing ever crashes or leaks.
#include <cctype>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>
#include "platform/wincrypt.h"

#include "FuzzSupport.h"
#include "RecordedKeys.h"
#include "automation/ByteArray.h"
#include "automation/Ref.h"
#include "automation/String.h"
#include "constants/CConstQUIV.h"
#include "data/CConvert.h"
#include "data/CMessagetext.h"
#include "keys/CKeyTools.h"
#include "keys/CSessionKey.h"
#include "provider/CProvider.h"
#include "signing/CRSAKeyPair.h"
#include "signing/SigningEnums.h"
#include "support/InternalAccess.h"

namespace {

using namespace quiv;

using fuzz::Require;

// The recorded exchange pair with e = d = 1: a SIMPLEBLOB for it carries the PKCS#1 type 2 block
// in the clear, so the fuzzer can reach keys that really import.
String RecordedExchangePair() {
  std::string hex = kPubexp1Hex;
  for (char& c : hex) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  return String::FromUtf8(hex);
}

// One provider session for the whole run, holding the recorded exchange pair.
struct Session {
  Ref<CProvider> provider = CProvider::Create();
  Ref<CRSAKeyPair> exchange;
  Ref<CRSAKeyPair> signature;
  Ref<CSessionKey> key;
  Ref<CMessagetext> message;

  std::string folder;

  Session() {
    const CConstQUIV k;
    char pattern[] = "/tmp/quiv-fuzz-keyblob-XXXXXX";
    Require(mkdtemp(pattern) != nullptr);
    folder = pattern;
    Require(setenv("QUIV_KEY_STORE", folder.c_str(), 1) == 0);
    Require(provider->SetProviderTypeID(k.PROV_RSA_FULL()));
    Require(provider->SetProviderName(k.MS_ENHANCED_PROV()));
    Require(provider->LoadProvider());
    Require(provider->GetExchangeKeyPairObject(exchange));
    Require(exchange->LoadKeyPair(RecordedExchangePair(), STRING_HEX));
    Require(provider->GetSignatureKeyPairObject(signature));
    Require(provider->GetSessionKeyObject(key));
    Require(provider->GetMessageTextObject(message));
  }
  // The key store goes when the run ends.
  ~Session() {
    provider->TerminateAll();
    std::error_code ignored;
    std::filesystem::remove_all(folder, ignored);
  }
};

Session& TheSession() {
  static Session session;
  return session;
}

// The rule of ValidateBlob, written out on its own.
bool ReferenceAccepts(int32_t type, int32_t askedClass, const std::vector<uint8_t>& blob) {
  const CConstQUIV k;
  const bool pairBlob = type == k.PUBLICKEYBLOB() || type == k.PRIVATEKEYBLOB();
  int32_t algClass = askedClass;
  if (askedClass == k.AT_KEYEXCHANGE()) algClass = k.ALG_CLASS_KEY_EXCHANGE();
  if (askedClass == k.AT_SIGNATURE()) algClass = k.ALG_CLASS_SIGNATURE();
  const bool pairAsked = askedClass == k.AT_KEYEXCHANGE() || askedClass == k.AT_SIGNATURE();
  if (pairAsked && !pairBlob) return false;
  if (askedClass == k.ALG_CLASS_DATA_ENCRYPT() && type != k.SIMPLEBLOB()) return false;
  if (!pairAsked && askedClass != k.ALG_CLASS_DATA_ENCRYPT()) return false;
  if (blob.size() < 6 || blob[0] != type) return false;
  const int32_t algId = blob[4] | (blob[5] << 8);
  return (algId & 0xE000) == algClass;
}

void CheckKeyTools(uint8_t selector, const std::vector<uint8_t>& blob) {
  const CConstQUIV k;
  const int32_t types[] = {k.PUBLICKEYBLOB(), k.PRIVATEKEYBLOB(), k.SIMPLEBLOB(), 0x08};
  const int32_t classes[] = {k.AT_KEYEXCHANGE(), k.AT_SIGNATURE(), k.ALG_CLASS_DATA_ENCRYPT(),
                             k.ALG_CLASS_HASH()};
  const int32_t type = types[(selector >> 2) & 3];
  const int32_t askedClass = classes[(selector >> 4) & 3];
  CKeyTools tools;
  ByteArray bytes{std::vector<uint8_t>(blob)};
  int32_t algClass = askedClass;
  const bool accepted = tools.ValidateBlob(type, algClass, bytes);
  if (accepted != ReferenceAccepts(type, askedClass, blob)) std::abort();
  if (accepted && bytes.ToVector() != blob) std::abort();
  if (!accepted && bytes != ByteArray()) std::abort();
}

String AsHex(const std::vector<uint8_t>& blob) {
  String hex;
  CConvert convert;
  // The converter refuses the library's empty array ({0} and no bytes): such input is no blob.
  if (!convert.UnloadItem(ByteArray(std::vector<uint8_t>(blob)), hex, STRING_HEX, true)) {
    return String();
  }
  return hex;
}

void CheckPublicKey(Ref<CRSAKeyPair>& pair, const String& hex) {
  if (!pair->LoadPublicKey(hex, STRING_HEX)) return;
  int16_t contains = 0;
  Require(Internal(pair).GetKeyPairContents(contains) && contains == PUBLIC_KEY);
  String back;
  Require(pair->UnloadPublicKey(back, STRING_HEX));
  const std::u16string& in = hex.u16();
  if (back.u16().size() > in.size() || in.compare(0, back.u16().size(), back.u16()) != 0) {
    std::abort();
  }
  pair->Clear();
}

void CheckSessionKey(Session& session, const String& hex) {
  if (!session.key->LoadSessionKey(session.exchange, hex, STRING_HEX)) return;
  const ByteArray plain{0x51, 0x55, 0x49, 0x56};
  Require(session.message->SetMessageText(plain));
  if (session.key->Encrypt(session.message)) Require(session.key->Decrypt(session.message));
  ByteArray now;
  Require(session.message->GetMessageText(now));
  if (!(now == plain)) std::abort();
  session.key->Clear();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;
  const uint8_t selector = data[0];
  const std::vector<uint8_t> blob(data + 1, data + size);
  Session& session = TheSession();
  switch (selector & 3) {
    case 0:
      CheckKeyTools(selector, blob);
      break;
    case 1:
      CheckPublicKey(session.signature, AsHex(blob));
      break;
    case 2:
      CheckPublicKey(session.exchange, AsHex(blob));
      // The SIMPLEBLOB case needs the private exchange key back.
      Require(session.exchange->LoadKeyPair(RecordedExchangePair(), STRING_HEX));
      break;
    default:
      CheckSessionKey(session, AsHex(blob));
      break;
  }
  return 0;
}
