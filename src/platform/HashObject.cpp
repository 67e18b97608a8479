#include "platform/HashObject.h"

#include "platform/CipherEngine.h"
#include "platform/CspError.h"
#include "platform/Digest.h"
#include "platform/ProviderInfo.h"
#include "platform/SymmetricKey.h"

namespace quiv::platform {

// Not implemented yet: every entry point fails with NTE_FAIL.
std::unique_ptr<HashObject> HashObject::Create(const ProviderInfo&, ALG_ID, const SymmetricKey*,
                                               DWORD) {
  throw CspError(NTE_FAIL);
}
HashObject::~HashObject() = default;
std::unique_ptr<HashObject> HashObject::Clone() const {
  throw CspError(NTE_FAIL);
}
size_t HashObject::size() const {
  return m_value.size();
}
ALG_ID HashObject::digestAlgid() const {
  return 0;
}
void HashObject::HashData(std::span<const uint8_t>, DWORD) {
  throw CspError(NTE_FAIL);
}
void HashObject::HashSessionKey(const SymmetricKey&, DWORD) {
  throw CspError(NTE_FAIL);
}
void HashObject::GetParam(DWORD, BYTE*, DWORD*, DWORD) {
  throw CspError(NTE_FAIL);
}
void HashObject::SetParam(DWORD, const BYTE*, DWORD) {
  throw CspError(NTE_FAIL);
}
const SecureBytes& HashObject::Finish() {
  throw CspError(NTE_FAIL);
}
void HashObject::HashDescription(std::u16string_view) {
  throw CspError(NTE_FAIL);
}

}  // namespace quiv::platform
