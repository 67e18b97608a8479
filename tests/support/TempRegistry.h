// TempRegistry: a fresh, empty class registry for one test. It creates a private temporary
// folder and points QUIV_REGISTRY at <folder>/registry (not created), so registration and
// lookups never touch the registry files of the user running the tests; on destruction it
// restores the variable and removes the folder.
//
// Ownership: owns the folder and everything in it. Not copyable; one per test at a time (the
// environment is process-wide).
#ifndef QUIV_TESTS_SUPPORT_TEMPREGISTRY_H
#define QUIV_TESTS_SUPPORT_TEMPREGISTRY_H

#include <filesystem>
#include <memory>

#include "support/TempFolder.h"

namespace quiv::test {

class TempRegistry final {
 public:
  TempRegistry();  // throws std::runtime_error when the folder cannot be made
  ~TempRegistry();
  TempRegistry(const TempRegistry&) = delete;
  TempRegistry& operator=(const TempRegistry&) = delete;

  const std::filesystem::path& folder() const { return m_folder; }
  // The registry file QUIV_REGISTRY names.
  std::filesystem::path file() const { return m_folder / "registry"; }

 private:
  std::filesystem::path m_folder;
  std::unique_ptr<ScopedEnvironment> m_variable;
};

}  // namespace quiv::test

#endif
