#include "support/TempKeyStore.h"

#include <stdlib.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <system_error>
#include <vector>

#include "support/TempFolder.h"

namespace quiv::test {

namespace {

constexpr const char* kVariable = "QUIV_KEY_STORE";

}  // namespace

TempKeyStore::TempKeyStore() : m_folder(MakeTempFolder("quiv-keystore-")) {
  if (const char* previous = getenv(kVariable); previous != nullptr) m_previous = previous;
  if (setenv(kVariable, m_folder.c_str(), 1) != 0) {
    std::filesystem::remove_all(m_folder);
    throw std::runtime_error("setenv QUIV_KEY_STORE failed");
  }
}

TempKeyStore::~TempKeyStore() {
  if (m_previous) {
    setenv(kVariable, m_previous->c_str(), 1);
  } else {
    unsetenv(kVariable);
  }
  std::error_code ec;  // a destructor must not throw; a leftover temp folder is harmless
  std::filesystem::remove_all(m_folder, ec);
}

}  // namespace quiv::test
