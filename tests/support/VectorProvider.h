// VectorProvider: a provider column of windows-csp.json ("Base", "Enhanced", "Strong",
// "Default", "AES", "SChannel") mapped to the CryptAcquireContextA arguments that open it here.
// "Default" is the empty provider name with PROV_RSA_FULL (the system default of that type);
// "AES" is the Enhanced RSA and AES provider with PROV_RSA_AES. The SChannel provider is not part
// of this provider library; tests skip it and say why.
//
// Ownership: a value type; holds only its label.
#ifndef QUIV_TESTS_SUPPORT_VECTORPROVIDER_H
#define QUIV_TESTS_SUPPORT_VECTORPROVIDER_H

#include <string>
#include <string_view>

#include "platform/wincrypt.h"
#include "support/CapiHandle.h"

namespace quiv::test {

class VectorProvider final {
 public:
  explicit VectorProvider(std::string_view label);  // throws std::runtime_error when unknown

  const std::string& label() const { return m_label; }
  bool IsBuilt() const;
  std::string NotBuiltReason() const;  // empty when built
  // The name passed to CryptAcquireContextA ("" for Default).
  const char* CspName() const;
  DWORD Type() const;

  // CryptAcquireContextA(out, container, CspName(), Type(), flags).
  BOOL Acquire(HCRYPTPROV* out, const char* container, DWORD flags) const;
  // A CRYPT_VERIFYCONTEXT context; ADD_FAILURE and an empty handle when that fails.
  ProvHandle Verify() const;
  // Creates `container` (CRYPT_NEWKEYSET | extraFlags); ADD_FAILURE and empty when that fails.
  ProvHandle NewContainer(const char* container, DWORD extraFlags = 0) const;

 private:
  std::string m_label;
};

}  // namespace quiv::test

#endif
