#include "platform/SymmetricKey.h"

#include "platform/CipherEngine.h"
#include "platform/CspError.h"
#include "platform/HashObject.h"
#include "platform/ProviderInfo.h"

namespace quiv::platform {

// Not implemented yet: every entry point fails with NTE_FAIL.
std::unique_ptr<SymmetricKey> SymmetricKey::Generate(const ProviderInfo&, ALG_ID, DWORD) {
  throw CspError(NTE_FAIL);
}
std::unique_ptr<SymmetricKey> SymmetricKey::Derive(const ProviderInfo&, ALG_ID, HashObject&,
                                                   DWORD) {
  throw CspError(NTE_FAIL);
}
std::unique_ptr<SymmetricKey> SymmetricKey::FromKeyBytes(const ProviderInfo&, ALG_ID,
                                                         std::span<const uint8_t>, DWORD, Origin) {
  throw CspError(NTE_FAIL);
}
SymmetricKey::~SymmetricKey() = default;
std::unique_ptr<SymmetricKey> SymmetricKey::Clone() const {
  throw CspError(NTE_FAIL);
}
bool SymmetricKey::IsBlockCipher() const {
  return m_algid != CALG_RC4;
}
void SymmetricKey::GetParam(DWORD, BYTE*, DWORD*, DWORD) const {
  throw CspError(NTE_FAIL);
}
void SymmetricKey::SetParam(DWORD, const BYTE*, DWORD) {
  throw CspError(NTE_FAIL);
}
void SymmetricKey::Encrypt(HashObject*, bool, DWORD, BYTE*, DWORD*, DWORD) {
  throw CspError(NTE_FAIL);
}
void SymmetricKey::Decrypt(HashObject*, bool, DWORD, BYTE*, DWORD*) {
  throw CspError(NTE_FAIL);
}
std::unique_ptr<CipherEngine> SymmetricKey::NewMacEngine() const {
  throw CspError(NTE_FAIL);
}

}  // namespace quiv::platform
