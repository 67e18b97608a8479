// VectorNode: a read-only view of one JSON value inside a recorded vector, used by the vector
// tests to pull typed values out of windows-csp.json. Every value taken through it is logged as
// read in the owning VectorCase's ReadLog, so the case can fail the test on any field that no
// procedure looked at (a recorded answer that is silently never compared is a test that cannot
// fail).
//
// Structural problems (missing field, wrong JSON type, bad hex, an error object whose name, code
// and hex disagree) throw std::runtime_error: GoogleTest reports the exception as a failure of
// the running test and stops its procedure.
//
// Ownership: a VectorNode borrows the JSON value, the read log and the file; all three belong to
// the VectorFile / VectorCase that made it and must outlive it.
#ifndef QUIV_TESTS_SUPPORT_VECTORNODE_H
#define QUIV_TESTS_SUPPORT_VECTORNODE_H

#include <cstdint>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include <nlohmann/json.hpp>

namespace quiv::test {

class VectorFile;

// Paths of the values a test has read ("expected.HP_HASHVAL", "inputs.cases[0].encrypt_length").
// Reading a value marks its whole subtree.
using ReadLog = std::set<std::string, std::less<>>;

// Outcome strings of the file: "succeeds", "fails (code not asserted)", "present", "fails".
enum class VectorOutcome { Succeeds, Fails, Present };

class VectorNode final {
 public:
  VectorNode(const nlohmann::json& value, std::string path, ReadLog& log, const VectorFile& file);

  const std::string& path() const { return m_path; }

  // Navigation does not mark anything as read; only the typed getters below do.
  bool Has(std::string_view key) const;
  VectorNode operator[](std::string_view key) const;  // throws when absent
  size_t Size() const;                                // array length; throws on non-arrays
  VectorNode At(size_t index) const;

  // Typed values. Each marks this node (and everything under it) as read.
  // Hex(): a lowercase hex string, or {"ref": NAME} resolved through shared_inputs.
  std::vector<uint8_t> Hex() const;
  uint32_t Dword() const;  // an integer that fits 32 bits
  std::string Text() const;
  bool Bool() const;
  std::vector<uint32_t> DwordList() const;
  // {"name": ..., "value": ...} algorithm objects; the name must match the file's constant table.
  uint32_t Alg() const;
  // {"name", "code", "hex"} error objects; all three must agree with the file's error table.
  uint32_t Error() const;
  // "NAME (87) or NAME (0x80090016)": every code written in parentheses.
  std::vector<uint32_t> ErrorAlternatives() const;
  VectorOutcome Outcome() const;
  // Marks the node as read without using it; `why` says why no comparison is possible.
  void Acknowledge(std::string_view why) const;

 private:
  void MarkRead() const;
  [[noreturn]] void Fail(std::string_view what) const;

  const nlohmann::json* m_value;
  std::string m_path;
  ReadLog* m_log;
  const VectorFile* m_file;
};

}  // namespace quiv::test

#endif
