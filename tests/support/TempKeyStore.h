// TempKeyStore: a fresh, empty key-container store for one test. It creates a private temporary
// folder, points QUIV_KEY_STORE at it (the provider's container store reads the variable when it
// is constructed, so both the user and the machine store land inside: <dir>/user, <dir>/machine),
// and on destruction restores the previous value of the variable and removes the folder.
//
// Tests that create containers therefore never touch the real stores of the user running them,
// and every test starts with no containers at all.
//
// Ownership: owns the folder and everything in it. Not copyable; one per test at a time (the
// environment is process-wide).
#ifndef QUIV_TESTS_SUPPORT_TEMPKEYSTORE_H
#define QUIV_TESTS_SUPPORT_TEMPKEYSTORE_H

#include <filesystem>
#include <optional>
#include <string>

namespace quiv::test {

class TempKeyStore final {
 public:
  TempKeyStore();  // throws std::runtime_error when the folder cannot be made
  ~TempKeyStore();
  TempKeyStore(const TempKeyStore&) = delete;
  TempKeyStore& operator=(const TempKeyStore&) = delete;

  const std::filesystem::path& folder() const { return m_folder; }

 private:
  std::filesystem::path m_folder;
  std::optional<std::string> m_previous;  // QUIV_KEY_STORE before we set it
};

}  // namespace quiv::test

#endif
