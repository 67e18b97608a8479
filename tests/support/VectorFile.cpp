#include "support/VectorFile.h"

#include <algorithm>
#include <fstream>
#include <map>
#include <memory>
#include <mutex>
#include <stdexcept>

namespace quiv::test {

namespace {

int HexDigit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

nlohmann::json Load(const std::filesystem::path& path) {
  std::ifstream in(path);
  if (!in) throw std::runtime_error("cannot open vector file " + path.string());
  return nlohmann::json::parse(in);
}

}  // namespace

const VectorFile& VectorFile::Cached(const std::filesystem::path& path) {
  static std::mutex mutex;
  static std::map<std::filesystem::path, std::unique_ptr<const VectorFile>> files;
  const std::lock_guard lock(mutex);
  auto& slot = files[path];
  if (!slot) slot = std::make_unique<const VectorFile>(path);
  return *slot;
}

VectorFile::VectorFile(const std::filesystem::path& path) : m_doc(Load(path)) {
  if (m_doc.value("format", "") != "windows-csp-vectors/1") {
    throw std::runtime_error("unexpected vector file format in " + path.string());
  }
}

std::vector<std::string> VectorFile::Ids() const {
  std::vector<std::string> ids;
  for (const auto& v : m_doc.at("vectors")) ids.push_back(v.at("id").get<std::string>());
  return ids;
}

std::vector<std::string> VectorFile::Categories() const {
  std::vector<std::string> categories;
  for (const auto& v : m_doc.at("vectors")) {
    auto c = v.at("category").get<std::string>();
    if (std::find(categories.begin(), categories.end(), c) == categories.end()) {
      categories.push_back(std::move(c));
    }
  }
  return categories;
}

std::vector<VectorParam> VectorFile::Params(std::span<const std::string_view> categories) const {
  std::vector<VectorParam> params;
  for (const auto& v : m_doc.at("vectors")) {
    const auto category = v.at("category").get<std::string>();
    if (std::find(categories.begin(), categories.end(), category) == categories.end()) continue;
    for (const auto& provider : v.at("providers")) {
      params.push_back({this, v.at("id").get<std::string>(), provider.get<std::string>()});
    }
  }
  return params;
}

const nlohmann::json& VectorFile::Vector(std::string_view id) const {
  for (const auto& v : m_doc.at("vectors")) {
    if (v.at("id").get<std::string>() == id) return v;
  }
  throw std::runtime_error("no vector with id " + std::string(id));
}

std::vector<uint8_t> VectorFile::Shared(std::string_view name) const {
  const auto& inputs = m_doc.at("shared_inputs");
  const auto it = inputs.find(std::string(name));
  if (it == inputs.end()) throw std::runtime_error("no shared input " + std::string(name));
  auto bytes = DecodeHex(it->at("hex").get<std::string>());
  if (it->contains("length") && it->at("length").get<size_t>() != bytes.size()) {
    throw std::runtime_error("shared input " + std::string(name) + " has the wrong length");
  }
  if (it->contains("meaningful_length") &&
      it->at("meaningful_length").get<size_t>() > bytes.size()) {
    throw std::runtime_error("shared input " + std::string(name) + " is shorter than its blob");
  }
  return bytes;
}

uint32_t VectorFile::ErrorCode(std::string_view name) const {
  const auto& errors = m_doc.at("errors");
  const auto it = errors.find(std::string(name));
  if (it == errors.end()) throw std::runtime_error("no error named " + std::string(name));
  return it->at("code").get<uint32_t>();
}

uint32_t VectorFile::Constant(std::string_view group, std::string_view name) const {
  return Constants().at(std::string(group)).at(std::string(name)).get<uint32_t>();
}

bool VectorFile::FindConstant(std::string_view name, uint32_t& value) const {
  for (const auto& [group, table] : Constants().items()) {
    const auto it = table.find(std::string(name));
    if (it != table.end() && it->is_number_unsigned()) {
      value = it->get<uint32_t>();
      return true;
    }
  }
  return false;
}

std::string VectorFile::ContainerName() const {
  return m_doc.at("container_name_used").get<std::string>();
}

std::vector<uint8_t> VectorFile::DecodeHex(std::string_view hex) {
  if (hex.size() % 2 != 0) throw std::runtime_error("odd-length hex string");
  std::vector<uint8_t> bytes(hex.size() / 2);
  for (size_t i = 0; i < bytes.size(); ++i) {
    const int hi = HexDigit(hex[2 * i]);
    const int lo = HexDigit(hex[2 * i + 1]);
    if (hi < 0 || lo < 0) throw std::runtime_error("non-hex character in " + std::string(hex));
    bytes[i] = static_cast<uint8_t>(hi << 4 | lo);
  }
  return bytes;
}

std::string VectorFile::EncodeHex(std::span<const uint8_t> bytes) {
  static constexpr char kDigits[] = "0123456789abcdef";
  std::string hex;
  hex.reserve(bytes.size() * 2);
  for (const uint8_t b : bytes) {
    hex.push_back(kDigits[b >> 4]);
    hex.push_back(kDigits[b & 0x0f]);
  }
  return hex;
}

}  // namespace quiv::test
