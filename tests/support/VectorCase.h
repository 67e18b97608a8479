// VectorCase: one recorded vector as seen by one provider. It hands out its "inputs" and its
// expected values (the provider's "expected_by_provider" entry refines or overrides "expected"),
// logs what the procedure read, and at the end fails the test on every input or expected value
// nobody read: that is what keeps a recorded answer from being skipped by accident.
//
// The descriptive fields (id, category, providers, procedure, notes, tags) are prose for people
// and are not data; every other top-level field must be known. Expectations recorded for other
// providers are not this case's business.
//
// Ownership: borrows the VectorFile (which must outlive it); owns its read log.
#ifndef QUIV_TESTS_SUPPORT_VECTORCASE_H
#define QUIV_TESTS_SUPPORT_VECTORCASE_H

#include <string>
#include <string_view>
#include <vector>

#include <nlohmann/json.hpp>

#include "support/VectorFile.h"
#include "support/VectorNode.h"

namespace quiv::test {

class VectorCase final {
 public:
  VectorCase(const VectorFile& file, std::string_view id, std::string_view provider);
  VectorCase(const VectorCase&) = delete;
  VectorCase& operator=(const VectorCase&) = delete;

  const std::string& id() const { return m_id; }
  const std::string& provider() const { return m_provider; }
  const VectorFile& file() const { return *m_file; }

  VectorNode Inputs();
  VectorNode Input(std::string_view key) { return Inputs()[key]; }
  // The provider's refinement when it has `key`, else "expected"[key]. A base value that the
  // refinement overrides counts as read: it does not apply to this provider.
  VectorNode Expected(std::string_view key);
  bool HasExpected(std::string_view key) const;

  // Field paths under inputs / expected / this provider's refinement that were never read.
  std::vector<std::string> Unread() const;

 private:
  const nlohmann::json* Refinement() const;  // nullptr when the provider has none
  void CollectUnread(const nlohmann::json& value, const std::string& path,
                     std::vector<std::string>& out) const;
  bool IsRead(const std::string& path) const;

  const VectorFile* m_file;
  const nlohmann::json* m_vector;
  std::string m_id;
  std::string m_provider;
  ReadLog m_log;
};

}  // namespace quiv::test

#endif
