// Session keys and the typical request, as a script would run them: a key derived from a pass
// phrase encrypts and decrypts a message; then a sender encrypts, wraps the key for a
// recipient's exchange key and signs, and the recipient verifies, unwraps and decrypts.
#include <cstdio>
#include <string>

#include "DemoParts.h"
#include "automation/Ref.h"
#include "automation/String.h"
#include "data/CMessagetext.h"
#include "keys/CSessionKey.h"
#include "provider/CContainer.h"
#include "provider/CProvider.h"
#include "signing/CRSAKeyPair.h"
// After any platform header: the catalogue's getters share their names with the C macros.
#include "constants/CConstQUIV.h"

namespace quiv::demo {

namespace {

std::string Text(const String& value) {
  return value.ToUtf8();
}

// Stops the demo part on the first failed call, printing the object's error record.
#define DEMO_TRY(call, object)                                                                    \
  do {                                                                                            \
    if (!(call)) {                                                                                \
      std::printf("  %s failed: %s\n", #call, Text((object)->m_oLastError->LastError()).c_str()); \
      return false;                                                                               \
    }                                                                                             \
  } while (0)

// A provider session on the Enhanced provider in the named container (created when missing).
struct Party {
  Ref<CProvider> provider = CProvider::Create();
  Ref<CMessagetext> message;
  Ref<CSessionKey> key;
  Ref<CRSAKeyPair> exchange;
  Ref<CRSAKeyPair> signature;

  bool Open(const String& container) {
    const CConstQUIV c;
    String type = u"PROV_RSA_FULL";
    DEMO_TRY(provider->SetProviderTypeCode(type), provider);
    DEMO_TRY(provider->SetProviderName(c.MS_ENHANCED_PROV()), provider);
    DEMO_TRY(provider->LoadProvider(), provider);
    Ref<CContainer> containers;
    DEMO_TRY(provider->GetContainerObject(containers), provider);
    bool exists = false;
    DEMO_TRY(containers->CheckForContainer(container, exists), containers);
    if (exists) {
      DEMO_TRY(provider->LoadProvider(container), provider);
    } else {
      DEMO_TRY(containers->NewContainer(container, SINGLE_USER), containers);
    }
    DEMO_TRY(provider->GetMessageTextObject(message), provider);
    DEMO_TRY(provider->GetSessionKeyObject(key), provider);
    DEMO_TRY(provider->GetExchangeKeyPairObject(exchange), provider);
    DEMO_TRY(provider->GetSignatureKeyPairObject(signature), provider);
    return true;
  }
  void Close(const String& container) {
    Ref<CContainer> containers;
    if (provider->GetContainerObject(containers)) containers->DeleteContainer(container);
    provider->TerminateAll();
  }
};

bool PhraseRoundTrip(Party& party) {
  const CConstQUIV c;
  DEMO_TRY(party.message->LoadMessageText(u"Attack at dawn.", STRING_VB), party.message);
  DEMO_TRY(party.key->SetKeyAlgorithmID(c.CALG_3DES()), party.key);
  DEMO_TRY(party.key->SetHashAlgorithmID(c.CALG_SHA()), party.key);
  DEMO_TRY(party.key->SetKeyPhrase(u"correct horse battery staple"), party.key);
  DEMO_TRY(party.key->GenerateSessionKey(), party.key);
  String code, mode;
  int32_t bits = 0;
  party.key->GetKeyAlgorithmCode(code);
  party.key->GetKeyLength(bits);
  party.key->GetCipherModeCode(mode);
  std::printf("  %s key of %d bits from the phrase (SHA-1 derivation), mode %s\n",
              Text(code).c_str(), bits, Text(mode).c_str());
  DEMO_TRY(party.key->Encrypt(party.message), party.key);
  String hex;
  DEMO_TRY(party.message->UnloadMessageText(hex, STRING_HEX), party.message);
  std::printf("  \"Attack at dawn.\" encrypted: %s\n", Text(hex).c_str());
  DEMO_TRY(party.key->Decrypt(party.message), party.key);
  String back;
  DEMO_TRY(party.message->UnloadMessageText(back, STRING_VB), party.message);
  std::printf("  decrypted: \"%s\"\n", Text(back).c_str());
  return true;
}

bool TypicalRequest(Party& sender, Party& recipient) {
  const CConstQUIV c;
  const String plain = u"Meet me at the north gate at noon.";
  DEMO_TRY(recipient.exchange->GenerateKeyPair(), recipient.exchange);
  String recipientPublic;
  DEMO_TRY(recipient.exchange->UnloadPublicKey(recipientPublic, STRING_HEX), recipient.exchange);
  std::printf("  recipient's public exchange key: %.40s... (%zu hex digits)\n",
              Text(recipientPublic).c_str(), recipientPublic.u16().size());

  DEMO_TRY(sender.message->LoadMessageText(plain, STRING_VB), sender.message);
  DEMO_TRY(sender.key->SetKeyAlgorithmID(c.CALG_3DES()), sender.key);
  DEMO_TRY(sender.key->SetKeyPhrase(u"a phrase the recipient never sees"), sender.key);
  DEMO_TRY(sender.key->GenerateSessionKey(), sender.key);
  DEMO_TRY(sender.key->AddRandomIV(), sender.key);
  String iv, cipher, wrapped, signature, senderPublic;
  DEMO_TRY(sender.key->UnloadIV(iv, STRING_HEX), sender.key);
  DEMO_TRY(sender.key->Encrypt(sender.message), sender.key);
  DEMO_TRY(sender.message->UnloadMessageText(cipher, STRING_HEX), sender.message);
  DEMO_TRY(sender.exchange->LoadPublicKey(recipientPublic, STRING_HEX), sender.exchange);
  DEMO_TRY(sender.key->UnloadSessionKey(sender.exchange, wrapped, STRING_HEX), sender.key);
  DEMO_TRY(sender.signature->GenerateKeyPair(), sender.signature);
  DEMO_TRY(sender.signature->Sign(sender.message, signature, STRING_HEX, c.CALG_SHA()),
           sender.signature);
  DEMO_TRY(sender.signature->UnloadPublicKey(senderPublic, STRING_HEX), sender.signature);
  std::printf("  sender: IV %s\n  ciphertext %s\n", Text(iv).c_str(), Text(cipher).c_str());
  std::printf("  session key wrapped (SIMPLEBLOB): %.40s... (%zu hex digits)\n",
              Text(wrapped).c_str(), wrapped.u16().size());
  std::printf("  signature (SHA-1, 1024-bit key): %.40s...\n", Text(signature).c_str());

  DEMO_TRY(recipient.message->LoadMessageText(cipher, STRING_HEX), recipient.message);
  DEMO_TRY(recipient.signature->LoadPublicKey(senderPublic, STRING_HEX), recipient.signature);
  bool valid = false;
  DEMO_TRY(recipient.signature->VerifySignature(recipient.message, signature, STRING_HEX, valid,
                                                c.CALG_SHA()),
           recipient.signature);
  std::printf("  recipient: signature %s\n", valid ? "valid" : "INVALID");
  DEMO_TRY(recipient.exchange->LoadKeyPair(String(), CURRENT_KEY_CONTAINER), recipient.exchange);
  DEMO_TRY(recipient.key->LoadSessionKey(recipient.exchange, wrapped, STRING_HEX), recipient.key);
  DEMO_TRY(recipient.key->LoadAndAddIV(iv, STRING_HEX), recipient.key);
  DEMO_TRY(recipient.key->Decrypt(recipient.message), recipient.key);
  String received;
  DEMO_TRY(recipient.message->UnloadMessageText(received, STRING_VB), recipient.message);
  std::printf("  decrypted: \"%s\"\n", Text(received).c_str());
  return true;
}

}  // namespace

void ShowSessionKeys() {
  std::printf("\nSession keys and the typical request\n");
  Party sender;
  Party recipient;
  if (sender.Open(u"QUIV demo sender") && recipient.Open(u"QUIV demo recipient") &&
      PhraseRoundTrip(sender)) {
    TypicalRequest(sender, recipient);
  }
  sender.Close(u"QUIV demo sender");
  recipient.Close(u"QUIV demo recipient");
}

}  // namespace quiv::demo
