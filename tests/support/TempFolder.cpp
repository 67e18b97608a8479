#include "support/TempFolder.h"

#include <stdlib.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <system_error>
#include <vector>

namespace quiv::test {

std::filesystem::path MakeTempFolder(const std::string& prefix) {
  std::error_code ec;
  auto base = std::filesystem::temp_directory_path(ec);
  if (ec) base = "/tmp";
  const std::string pattern = (base / (prefix + "XXXXXX")).string();
  std::vector<char> buffer(pattern.begin(), pattern.end());
  buffer.push_back('\0');
  // mkdtemp makes the folder 0700 with a name nobody else can predict.
  if (mkdtemp(buffer.data()) == nullptr) {
    throw std::runtime_error("mkdtemp failed: " + std::string(std::strerror(errno)));
  }
  return std::filesystem::path(buffer.data());
}

ScopedEnvironment::ScopedEnvironment(std::string name, const std::optional<std::string>& value)
    : m_name(std::move(name)) {
  if (const char* previous = getenv(m_name.c_str()); previous != nullptr) m_previous = previous;
  const int result = value ? setenv(m_name.c_str(), value->c_str(), 1) : unsetenv(m_name.c_str());
  if (result != 0) throw std::runtime_error("cannot set " + m_name);
}

ScopedEnvironment::~ScopedEnvironment() {
  if (m_previous) {
    setenv(m_name.c_str(), m_previous->c_str(), 1);
  } else {
    unsetenv(m_name.c_str());
  }
}

}  // namespace quiv::test
