// Test helpers for the process environment and private temporary folders.
//
// MakeTempFolder: a new folder under the system's temporary folder, 0700, with an unpredictable
// name starting with `prefix`; the caller removes it.
// ScopedEnvironment: sets (or, with nullopt, unsets) one environment variable and restores its
// previous state on destruction. The environment is process-wide: one per variable at a time.
#ifndef QUIV_TESTS_SUPPORT_TEMPFOLDER_H
#define QUIV_TESTS_SUPPORT_TEMPFOLDER_H

#include <filesystem>
#include <optional>
#include <string>

namespace quiv::test {

// throws std::runtime_error when the folder cannot be made.
std::filesystem::path MakeTempFolder(const std::string& prefix);

class ScopedEnvironment final {
 public:
  ScopedEnvironment(std::string name, const std::optional<std::string>& value);
  ~ScopedEnvironment();
  ScopedEnvironment(const ScopedEnvironment&) = delete;
  ScopedEnvironment& operator=(const ScopedEnvironment&) = delete;

 private:
  std::string m_name;
  std::optional<std::string> m_previous;
};

}  // namespace quiv::test

#endif
