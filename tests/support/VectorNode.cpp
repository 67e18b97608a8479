#include "support/VectorNode.h"

#include <cerrno>
#include <cstdlib>
#include <stdexcept>

#include "support/VectorFile.h"

namespace quiv::test {

namespace {

// A whole decimal or 0x-prefixed hexadecimal number that fits 32 bits; nothing else.
bool ParseCode(const std::string& text, uint32_t& code) {
  if (text.empty() || text.find_first_not_of("0123456789abcdefxABCDEF") != std::string::npos) {
    return false;
  }
  char* end = nullptr;
  errno = 0;
  const unsigned long long value = std::strtoull(text.c_str(), &end, 0);
  if (errno != 0 || end != text.c_str() + text.size() || value > 0xffffffffu) return false;
  code = static_cast<uint32_t>(value);
  return true;
}

}  // namespace

VectorNode::VectorNode(const nlohmann::json& value, std::string path, ReadLog& log,
                       const VectorFile& file)
    : m_value(&value), m_path(std::move(path)), m_log(&log), m_file(&file) {}

bool VectorNode::Has(std::string_view key) const {
  return m_value->is_object() && m_value->contains(std::string(key));
}

VectorNode VectorNode::operator[](std::string_view key) const {
  if (!Has(key)) Fail("has no field \"" + std::string(key) + "\"");
  return VectorNode(m_value->at(std::string(key)), m_path + "." + std::string(key), *m_log,
                    *m_file);
}

size_t VectorNode::Size() const {
  if (!m_value->is_array()) Fail("is not an array");
  return m_value->size();
}

VectorNode VectorNode::At(size_t index) const {
  if (index >= Size()) Fail("has no element " + std::to_string(index));
  return VectorNode(m_value->at(index), m_path + "[" + std::to_string(index) + "]", *m_log,
                    *m_file);
}

std::vector<uint8_t> VectorNode::Hex() const {
  MarkRead();
  if (m_value->is_object()) {
    if (m_value->size() != 1 || !m_value->contains("ref")) Fail("is an object but not a ref");
    return m_file->Shared(m_value->at("ref").get<std::string>());
  }
  if (!m_value->is_string()) Fail("is not a hex string");
  return VectorFile::DecodeHex(m_value->get<std::string>());
}

uint32_t VectorNode::Dword() const {
  MarkRead();
  if (!m_value->is_number_unsigned() || m_value->get<uint64_t>() > 0xffffffffu) {
    Fail("is not an unsigned 32-bit number");
  }
  return m_value->get<uint32_t>();
}

std::string VectorNode::Text() const {
  MarkRead();
  if (!m_value->is_string()) Fail("is not a string");
  return m_value->get<std::string>();
}

bool VectorNode::Bool() const {
  MarkRead();
  if (!m_value->is_boolean()) Fail("is not a boolean");
  return m_value->get<bool>();
}

std::vector<uint32_t> VectorNode::DwordList() const {
  std::vector<uint32_t> values;
  for (size_t i = 0; i < Size(); ++i) values.push_back(At(i).Dword());
  MarkRead();
  return values;
}

uint32_t VectorNode::Alg() const {
  const uint32_t value = (*this)["value"].Dword();
  const std::string name = (*this)["name"].Text();
  uint32_t known = 0;
  if (!m_file->FindConstant(name, known)) Fail("names an unknown constant " + name);
  if (known != value)
    Fail("says " + name + " = " + std::to_string(value) + " but the table says " +
         std::to_string(known));
  return value;
}

uint32_t VectorNode::Error() const {
  const uint32_t code = (*this)["code"].Dword();
  const std::string name = (*this)["name"].Text();
  const std::string hex = (*this)["hex"].Text();
  uint32_t parsed = 0;
  if (!ParseCode(hex, parsed) || !hex.starts_with("0x") || hex.size() != 10 || parsed != code) {
    Fail("has hex " + hex + " that is not its code");
  }
  if (m_file->ErrorCode(name) != code) Fail("has a code that is not that of " + name);
  return code;
}

std::vector<uint32_t> VectorNode::ErrorAlternatives() const {
  // "NAME (87) or NAME (0x80090016)": each name must carry its own code.
  const std::string text = Text();
  std::vector<uint32_t> codes;
  size_t start = 0;
  while (true) {
    const size_t end = text.find(" or ", start);
    const std::string item = text.substr(start, end == std::string::npos ? end : end - start);
    const size_t open = item.find(" (");
    uint32_t code = 0;
    if (open == std::string::npos || !item.ends_with(")") ||
        !ParseCode(item.substr(open + 2, item.size() - open - 3), code) ||
        m_file->ErrorCode(item.substr(0, open)) != code) {
      Fail("is not a list of \"NAME (code)\" alternatives: " + text);
    }
    codes.push_back(code);
    if (end == std::string::npos) break;
    start = end + 4;
  }
  return codes;
}

VectorOutcome VectorNode::Outcome() const {
  const std::string text = Text();
  if (text == "succeeds") return VectorOutcome::Succeeds;
  if (text == "present") return VectorOutcome::Present;
  // "fails (code not asserted)": a parenthesised remark and nothing after it.
  if (text == "fails" ||
      (text.starts_with("fails (") && text.ends_with(")") && text.find(')') == text.size() - 1)) {
    return VectorOutcome::Fails;
  }
  Fail("is not an outcome string: " + text);
}

void VectorNode::Acknowledge(std::string_view why) const {
  if (why.empty()) Fail("acknowledged without a reason");
  MarkRead();
}

void VectorNode::MarkRead() const {
  m_log->insert(m_path);
}

void VectorNode::Fail(std::string_view what) const {
  throw std::runtime_error("vector field " + m_path + " " + std::string(what));
}

}  // namespace quiv::test
