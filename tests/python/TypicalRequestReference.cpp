// The typical request through the C++ classes, for the Python client's tests to compare bytes
// with: prints the ciphertext of TEXT under a key derived from PHRASE with ALGID, and, with a
// PRIVATEKEYBLOB in hex, the SHA-1 signature of TEXT under that signature key.
// Usage: quiv_typical_request_reference TEXT PHRASE ALGID [PRIVATEKEYBLOB_HEX]
#include <cstdio>
#include <cstdlib>

#include "automation/Ref.h"
#include "automation/String.h"
#include "data/CMessagetext.h"
#include "keys/CSessionKey.h"
#include "provider/CProvider.h"
#include "signing/CRSAKeyPair.h"
// After the other headers: the catalogue's getters share their names with the C macros.
#include "constants/CConstQUIV.h"

using namespace quiv;

namespace {

template <class T>
int Fail(const Ref<T>& object, const char* what) {
  std::fprintf(stderr, "%s failed: %s\n", what, object->m_oLastError->LastError().ToUtf8().c_str());
  return 1;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 4 && argc != 5) {
    std::fprintf(stderr, "usage: %s TEXT PHRASE ALGID [PRIVATEKEYBLOB_HEX]\n", argv[0]);
    return 2;
  }
  const CConstQUIV c;
  Ref<CProvider> provider = CProvider::Create();
  if (!provider->SetProviderTypeID(c.PROV_RSA_FULL()) ||
      !provider->SetProviderName(c.MS_ENHANCED_PROV()) || !provider->LoadProvider()) {
    return Fail(provider, "provider");
  }
  Ref<CMessagetext> message;
  Ref<CSessionKey> key;
  Ref<CRSAKeyPair> signature;
  if (!provider->GetMessageTextObject(message) || !provider->GetSessionKeyObject(key) ||
      !provider->GetSignatureKeyPairObject(signature)) {
    return Fail(provider, "objects");
  }
  const String text = String::FromUtf8(argv[1]);
  if (!message->LoadMessageText(text, STRING_VB)) return Fail(message, "LoadMessageText");
  if (argc == 5) {
    if (!signature->LoadKeyPair(String::FromUtf8(argv[4]), STRING_HEX)) {
      return Fail(signature, "LoadKeyPair");
    }
    String block;
    if (!signature->Sign(message, block, STRING_HEX, c.CALG_SHA1())) {
      return Fail(signature, "Sign");
    }
    std::printf("signature %s\n", block.ToUtf8().c_str());
  }
  if (!key->SetKeyAlgorithmID(static_cast<int32_t>(std::strtol(argv[3], nullptr, 10))) ||
      !key->SetKeyPhrase(String::FromUtf8(argv[2])) || !key->GenerateSessionKey() ||
      !key->Encrypt(message)) {
    return Fail(key, "Encrypt");
  }
  String hex;
  if (!message->UnloadMessageText(hex, STRING_HEX)) return Fail(message, "UnloadMessageText");
  std::printf("ciphertext %s\n", hex.ToUtf8().c_str());
  provider->TerminateAll();
  return 0;
}
