// The library's typical request from end to end, across two provider sessions: the sender loads
// a message, derives a key from a pass phrase, encrypts, unloads the ciphertext as hex, wraps the
// session key for the recipient's exchange key and signs; the recipient verifies, unwraps and
// decrypts. Everything crosses between the two sessions as hex text only.
#include "support/QuietLog.h"

#include <gtest/gtest.h>

#include <string>

#include "constants/CConstQUIV.h"
#include "data/CMessagetext.h"
#include "keys/CSessionKey.h"
#include "platform/PlatformSeam.h"
#include "provider/CContainer.h"
#include "provider/CProvider.h"
#include "signing/CRSAKeyPair.h"
#include "support/TempKeyStore.h"

namespace quiv {
namespace {

const CConstQUIV k;

std::string Why(const Ref<CErrHandler>& record) {
  return record.IsNothing() ? std::string() : record->LastError().ToUtf8();
}

// One party: a provider session on the Enhanced provider with its working objects.
struct Party {
  Ref<CProvider> provider = CProvider::Create();
  Ref<CMessagetext> message;
  Ref<CSessionKey> key;
  Ref<CRSAKeyPair> exchange;
  Ref<CRSAKeyPair> signature;

  void Open(const String& container) {
    ASSERT_TRUE(provider->SetProviderTypeID(k.PROV_RSA_FULL()));
    ASSERT_TRUE(provider->SetProviderName(k.MS_ENHANCED_PROV()));
    ASSERT_TRUE(provider->LoadProvider());
    Ref<CContainer> containers;
    ASSERT_TRUE(provider->GetContainerObject(containers));
    ASSERT_TRUE(containers->NewContainer(container, SINGLE_USER)) << Why(containers->m_oLastError);
    ASSERT_TRUE(provider->GetMessageTextObject(message));
    ASSERT_TRUE(provider->GetSessionKeyObject(key));
    ASSERT_TRUE(provider->GetExchangeKeyPairObject(exchange));
    ASSERT_TRUE(provider->GetSignatureKeyPairObject(signature));
  }
  ~Party() { provider->TerminateAll(); }
};

class TypicalRequestTest : public ::testing::Test {
 protected:
  test::QuietLog m_quiet;
  platform::ScopedPlatformOverride m_use{m_quiet};
  test::TempKeyStore store;
  Party sender;
  Party recipient;
};

TEST_F(TypicalRequestTest, MessageTravelsEncryptedSignedAndWrappedAsHexText) {
  const String plain = u"Meet me at the north gate at noon.";
  recipient.Open(u"recipient");
  sender.Open(u"sender");

  // The recipient publishes the public half of its exchange pair (kept in its container).
  ASSERT_TRUE(recipient.exchange->GenerateKeyPair()) << Why(recipient.exchange->m_oLastError);
  String recipientPublic;
  ASSERT_TRUE(recipient.exchange->UnloadPublicKey(recipientPublic, STRING_HEX));

  // The sender: message in, key from a phrase, a random IV, encrypt, unload as hex.
  ASSERT_TRUE(sender.message->LoadMessageText(plain, STRING_VB));
  ASSERT_TRUE(sender.key->SetKeyAlgorithmID(k.CALG_3DES()));
  ASSERT_TRUE(sender.key->SetKeyPhrase(u"correct horse battery staple"));
  ASSERT_TRUE(sender.key->GenerateSessionKey()) << Why(sender.key->m_oLastError);
  ASSERT_TRUE(sender.key->AddRandomIV());
  String iv;
  ASSERT_TRUE(sender.key->UnloadIV(iv, STRING_HEX));
  ASSERT_TRUE(sender.key->Encrypt(sender.message)) << Why(sender.key->m_oLastError);
  String cipherHex;
  ASSERT_TRUE(sender.message->UnloadMessageText(cipherHex, STRING_HEX));
  EXPECT_EQ(cipherHex.u16().size() % 16, 0u);  // whole 3DES blocks, as hex

  // The session key, wrapped for the recipient's public exchange key.
  ASSERT_TRUE(sender.exchange->LoadPublicKey(recipientPublic, STRING_HEX))
      << Why(sender.exchange->m_oLastError);
  String wrappedKey;
  ASSERT_TRUE(sender.key->UnloadSessionKey(sender.exchange, wrappedKey, STRING_HEX))
      << Why(sender.key->m_oLastError);

  // Signed with the sender's signature pair; its public half goes along.
  ASSERT_TRUE(sender.signature->GenerateKeyPair()) << Why(sender.signature->m_oLastError);
  String signatureHex;
  ASSERT_TRUE(sender.signature->Sign(sender.message, signatureHex, STRING_HEX, k.CALG_SHA()))
      << Why(sender.signature->m_oLastError);
  String senderPublic;
  ASSERT_TRUE(sender.signature->UnloadPublicKey(senderPublic, STRING_HEX));

  // The recipient: verify, unwrap, decrypt.
  ASSERT_TRUE(recipient.message->LoadMessageText(cipherHex, STRING_HEX));
  ASSERT_TRUE(recipient.signature->LoadPublicKey(senderPublic, STRING_HEX));
  bool valid = false;
  ASSERT_TRUE(recipient.signature->VerifySignature(recipient.message, signatureHex, STRING_HEX,
                                                   valid, k.CALG_SHA()))
      << Why(recipient.signature->m_oLastError);
  EXPECT_TRUE(valid);
  ASSERT_TRUE(recipient.exchange->LoadKeyPair(String(), CURRENT_KEY_CONTAINER))
      << Why(recipient.exchange->m_oLastError);
  ASSERT_TRUE(recipient.key->LoadSessionKey(recipient.exchange, wrappedKey, STRING_HEX))
      << Why(recipient.key->m_oLastError);
  ASSERT_TRUE(recipient.key->LoadAndAddIV(iv, STRING_HEX));
  ASSERT_TRUE(recipient.key->Decrypt(recipient.message)) << Why(recipient.key->m_oLastError);
  String received;
  ASSERT_TRUE(recipient.message->UnloadMessageText(received, STRING_VB));
  EXPECT_EQ(received, plain);
}

TEST_F(TypicalRequestTest, ATamperedCiphertextFailsTheSignatureAndTheWrongIvTheText) {
  recipient.Open(u"recipient");
  sender.Open(u"sender");
  ASSERT_TRUE(recipient.exchange->GenerateKeyPair());
  String recipientPublic;
  ASSERT_TRUE(recipient.exchange->UnloadPublicKey(recipientPublic, STRING_HEX));
  ASSERT_TRUE(sender.message->LoadMessageText(u"Pay 100 to Alice.", STRING_VB));
  ASSERT_TRUE(sender.key->SetKeyAlgorithmID(k.CALG_RC2()));
  ASSERT_TRUE(sender.key->SetKeyPhrase(u"phrase"));
  ASSERT_TRUE(sender.key->GenerateSessionKey());
  ASSERT_TRUE(sender.key->Encrypt(sender.message));
  String cipherHex;
  ASSERT_TRUE(sender.message->UnloadMessageText(cipherHex, STRING_HEX));
  ASSERT_TRUE(sender.exchange->LoadPublicKey(recipientPublic, STRING_HEX));
  String wrappedKey;
  ASSERT_TRUE(sender.key->UnloadSessionKey(sender.exchange, wrappedKey, STRING_HEX));
  ASSERT_TRUE(sender.signature->GenerateKeyPair());
  String signatureHex;
  ASSERT_TRUE(sender.signature->Sign(sender.message, signatureHex, STRING_HEX));
  String senderPublic;
  ASSERT_TRUE(sender.signature->UnloadPublicKey(senderPublic, STRING_HEX));

  // One hex digit changed on the way.
  std::u16string tampered = cipherHex.u16();
  tampered[0] = tampered[0] == u'0' ? u'1' : u'0';
  ASSERT_TRUE(recipient.message->LoadMessageText(String(tampered), STRING_HEX));
  ASSERT_TRUE(recipient.signature->LoadPublicKey(senderPublic, STRING_HEX));
  bool valid = true;
  ASSERT_TRUE(
      recipient.signature->VerifySignature(recipient.message, signatureHex, STRING_HEX, valid));
  EXPECT_FALSE(valid);

  // The untouched ciphertext with a wrong IV decrypts, but not to the text.
  ASSERT_TRUE(recipient.message->LoadMessageText(cipherHex, STRING_HEX));
  ASSERT_TRUE(recipient.exchange->LoadKeyPair(String(), CURRENT_KEY_CONTAINER));
  ASSERT_TRUE(recipient.key->LoadSessionKey(recipient.exchange, wrappedKey, STRING_HEX));
  ASSERT_TRUE(recipient.key->LoadAndAddIV(u"0102030405060708", STRING_HEX));
  String received;
  if (recipient.key->Decrypt(recipient.message)) {
    ASSERT_TRUE(recipient.message->UnloadMessageText(received, STRING_VB));
  }
  EXPECT_NE(received, String(u"Pay 100 to Alice."));
}

}  // namespace
}  // namespace quiv
