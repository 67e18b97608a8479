#include "support/VectorProvider.h"

#include <gtest/gtest.h>

#include <stdexcept>

#include "support/CapiCalls.h"

namespace quiv::test {

VectorProvider::VectorProvider(std::string_view label) : m_label(label) {
  if (m_label != "Base" && m_label != "Enhanced" && m_label != "Strong" && m_label != "Default" &&
      m_label != "AES" && m_label != "SChannel") {
    throw std::runtime_error("unknown provider label " + m_label);
  }
}

bool VectorProvider::IsBuilt() const {
  return m_label != "SChannel";
}

std::string VectorProvider::NotBuiltReason() const {
  if (m_label == "SChannel") {
    return "the SChannel provider (PROV_RSA_SCHANNEL) is not one of the providers this library "
           "implements";
  }
  return {};
}

const char* VectorProvider::CspName() const {
  if (m_label == "Base") return MS_DEF_PROV_A;
  if (m_label == "Enhanced") return MS_ENHANCED_PROV_A;
  if (m_label == "Strong") return MS_STRONG_PROV_A;
  if (m_label == "AES") return MS_ENH_RSA_AES_PROV_A;
  if (m_label == "Default") return "";
  throw std::runtime_error("provider " + m_label + " is not built");
}

DWORD VectorProvider::Type() const {
  if (!IsBuilt()) throw std::runtime_error("provider " + m_label + " is not built");
  return m_label == "AES" ? PROV_RSA_AES : PROV_RSA_FULL;
}

BOOL VectorProvider::Acquire(HCRYPTPROV* out, const char* container, DWORD flags) const {
  return CryptAcquireContextA(out, container, CspName(), Type(), flags);
}

ProvHandle VectorProvider::Verify() const {
  ProvHandle prov;
  EXPECT_TRUE(Succeeded(Acquire(prov.put(), nullptr, CRYPT_VERIFYCONTEXT)))
      << "CRYPT_VERIFYCONTEXT on " << m_label;
  return prov;
}

ProvHandle VectorProvider::NewContainer(const char* container, DWORD extraFlags) const {
  ProvHandle prov;
  EXPECT_TRUE(Succeeded(Acquire(prov.put(), container, CRYPT_NEWKEYSET | extraFlags)))
      << "CRYPT_NEWKEYSET of " << (container ? container : "(default)") << " on " << m_label;
  return prov;
}

}  // namespace quiv::test
