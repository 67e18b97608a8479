#include "support/TempKeyStore.h"

#include <stdlib.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <system_error>
#include <vector>

namespace quiv::test {

namespace {

constexpr const char* kVariable = "QUIV_KEY_STORE";

std::filesystem::path MakePrivateFolder() {
  std::error_code ec;
  auto base = std::filesystem::temp_directory_path(ec);
  if (ec) base = "/tmp";
  std::string pattern = (base / "quiv-keystore-XXXXXX").string();
  std::vector<char> buffer(pattern.begin(), pattern.end());
  buffer.push_back('\0');
  // mkdtemp makes the folder 0700 with a name nobody else can predict.
  if (mkdtemp(buffer.data()) == nullptr) {
    throw std::runtime_error("mkdtemp failed: " + std::string(std::strerror(errno)));
  }
  return std::filesystem::path(buffer.data());
}

}  // namespace

TempKeyStore::TempKeyStore() : m_folder(MakePrivateFolder()) {
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
