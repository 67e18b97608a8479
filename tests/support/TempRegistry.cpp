#include "support/TempRegistry.h"

#include <system_error>

namespace quiv::test {

TempRegistry::TempRegistry() : m_folder(MakeTempFolder("quiv-registry-")) {
  try {
    m_variable = std::make_unique<ScopedEnvironment>("QUIV_REGISTRY", file().string());
  } catch (...) {
    std::filesystem::remove_all(m_folder);
    throw;
  }
}

TempRegistry::~TempRegistry() {
  m_variable.reset();
  std::error_code ec;  // a destructor must not throw; a leftover temp folder is harmless
  std::filesystem::remove_all(m_folder, ec);
}

}  // namespace quiv::test
