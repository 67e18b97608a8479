#include "ObjectSession.h"

#include <cstring>
#include <stdexcept>
#include <string>

#include "constants/CConstQUIV.h"
#include "platform/wincrypt.h"
#include "support/InternalAccess.h"

namespace quiv::bench {

void Require(bool ok, const char* what, const Ref<CErrHandler>& record) {
  if (ok) return;
  std::string why = what;
  if (!record.IsNothing()) why += ": " + record->LastError().ToUtf8();
  throw std::runtime_error(why);
}

ObjectSession::ObjectSession() {
  const CConstQUIV c;
  Require(provider->SetProviderTypeID(c.PROV_RSA_FULL()), "type", provider->m_oLastError);
  Require(provider->SetProviderName(c.MS_ENHANCED_PROV()), "name", provider->m_oLastError);
  Require(provider->LoadProvider(), "LoadProvider", provider->m_oLastError);
  Require(provider->GetMessageTextObject(message), "message", provider->m_oLastError);
  Require(provider->GetSessionKeyObject(key), "key", provider->m_oLastError);
  Require(provider->GetSignatureKeyPairObject(signature), "pair", provider->m_oLastError);
}

ObjectSession::~ObjectSession() {
  provider->TerminateAll();
}

// PLAINTEXTKEYBLOB: an 8-byte header, the key length (4 bytes), then the key.
std::vector<uint8_t> ObjectSession::KeyBytes() const {
  HCRYPTKEY handle = 0;
  Require(Internal(key).GetKeyHandle(handle), "GetKeyHandle", key->m_oLastError);
  std::vector<uint8_t> blob(256);
  DWORD length = static_cast<DWORD>(blob.size());
  if (!CryptExportKey(handle, 0, static_cast<DWORD>(CConstQUIV().PLAINTEXTKEYBLOB()), 0,
                      blob.data(), &length)) {
    throw std::runtime_error("PLAINTEXTKEYBLOB export failed");
  }
  uint32_t keyLength = 0;
  std::memcpy(&keyLength, blob.data() + 8, 4);
  return {blob.begin() + 12, blob.begin() + 12 + keyLength};
}

}  // namespace quiv::bench
