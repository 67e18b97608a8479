// VectorFile: the recorded Windows values (tests/vectors/windows-csp.json) loaded once, with
// the lookups the vector tests need: the list of (vector id, provider) pairs to run, a vector's
// JSON, decoded shared inputs, and the file's own constant and error tables (used to check that
// the names written next to numbers agree with them).
//
// Ownership: a VectorFile owns the parsed document. Cached() (and WindowsVectors(), available
// to the test programs) return process-wide instances that live until exit; VectorCase and
// VectorNode objects borrow from them.
#ifndef QUIV_TESTS_SUPPORT_VECTORFILE_H
#define QUIV_TESTS_SUPPORT_VECTORFILE_H

#include <cstdint>
#include <filesystem>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include <nlohmann/json.hpp>

namespace quiv::test {

class VectorFile;

// One test instance: a vector run against one of the providers it lists.
struct VectorParam {
  const VectorFile* file;
  std::string id;
  std::string provider;  // "Base", "Enhanced", "Strong", "Default", "AES", "SChannel"
};

class VectorFile final {
 public:
  // The file at `path`, parsed on first use and kept until exit (one instance per path).
  static const VectorFile& Cached(const std::filesystem::path& path);

  explicit VectorFile(const std::filesystem::path& path);

  std::vector<std::string> Ids() const;
  std::vector<std::string> Categories() const;
  // Every (id, provider) pair of the vectors whose category is one of `categories`, in file order.
  std::vector<VectorParam> Params(std::span<const std::string_view> categories) const;
  const nlohmann::json& Vector(std::string_view id) const;  // throws when unknown

  // shared_inputs[name].hex decoded; its "length" (and "meaningful_length") are checked.
  std::vector<uint8_t> Shared(std::string_view name) const;
  // errors[name].code; throws when unknown.
  uint32_t ErrorCode(std::string_view name) const;
  // constants[group][name]; throws when unknown.
  uint32_t Constant(std::string_view group, std::string_view name) const;
  // Looks `name` up in every constant group (CALG names are unique across groups).
  bool FindConstant(std::string_view name, uint32_t& value) const;
  const nlohmann::json& Constants() const { return m_doc.at("constants"); }
  std::string ContainerName() const;  // "container_name_used"

  static std::vector<uint8_t> DecodeHex(std::string_view hex);  // throws on odd length / non-hex
  static std::string EncodeHex(std::span<const uint8_t> bytes);

 private:
  nlohmann::json m_doc;
};

#ifdef QUIV_TEST_DATA_DIR
// tests/vectors/windows-csp.json; QUIV_TEST_DATA_DIR (the tests/ folder) is defined for the test
// programs by the build.
inline const VectorFile& WindowsVectors() {
  return VectorFile::Cached(std::filesystem::path(QUIV_TEST_DATA_DIR) / "vectors" /
                            "windows-csp.json");
}
#endif

}  // namespace quiv::test

#endif
