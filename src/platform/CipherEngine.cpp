#include "platform/CipherEngine.h"

#include "platform/CspError.h"

namespace quiv::platform {

// Not implemented yet: every entry point fails with NTE_FAIL.
std::unique_ptr<CipherEngine> CipherEngine::Create(ALG_ID, std::span<const uint8_t>, DWORD, DWORD,
                                                   std::span<const uint8_t>) {
  throw CspError(NTE_FAIL);
}
CipherEngine::~CipherEngine() = default;
std::unique_ptr<CipherEngine> CipherEngine::Clone() const {
  throw CspError(NTE_FAIL);
}
void CipherEngine::Encrypt(std::span<uint8_t>) {
  throw CspError(NTE_FAIL);
}
void CipherEngine::Decrypt(std::span<uint8_t>) {
  throw CspError(NTE_FAIL);
}
void CipherEngine::Reset() {
  throw CspError(NTE_FAIL);
}

}  // namespace quiv::platform
