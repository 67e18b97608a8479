#include "support/VectorCase.h"

#include <algorithm>
#include <array>
#include <stdexcept>

namespace quiv::test {

namespace {

// Prose for people; a procedure reads them with its eyes, not with code.
constexpr std::array<std::string_view, 6> kDescriptive = {"id",        "category", "providers",
                                                          "procedure", "notes",    "tags"};
constexpr std::array<std::string_view, 3> kData = {"inputs", "expected", "expected_by_provider"};

bool Contains(std::span<const std::string_view> set, std::string_view key) {
  return std::find(set.begin(), set.end(), key) != set.end();
}

}  // namespace

VectorCase::VectorCase(const VectorFile& file, std::string_view id, std::string_view provider)
    : m_file(&file), m_vector(&file.Vector(id)), m_id(id), m_provider(provider) {
  for (const auto& [key, value] : m_vector->items()) {
    if (!Contains(kDescriptive, key) && !Contains(kData, key)) {
      throw std::runtime_error("vector " + m_id + " has a field the harness does not know: " + key);
    }
  }
  const auto& providers = m_vector->at("providers");
  if (std::find(providers.begin(), providers.end(), m_provider) == providers.end()) {
    throw std::runtime_error("vector " + m_id + " does not list provider " + m_provider);
  }
}

VectorNode VectorCase::Inputs() {
  return VectorNode(m_vector->at("inputs"), "inputs", m_log, *m_file);
}

const nlohmann::json* VectorCase::Refinement() const {
  const auto it = m_vector->find("expected_by_provider");
  if (it == m_vector->end()) return nullptr;
  const auto entry = it->find(m_provider);
  return entry == it->end() ? nullptr : &*entry;
}

bool VectorCase::HasExpected(std::string_view key) const {
  const auto* refinement = Refinement();
  if (refinement != nullptr && refinement->contains(std::string(key))) return true;
  const auto it = m_vector->find("expected");
  return it != m_vector->end() && it->contains(std::string(key));
}

VectorNode VectorCase::Expected(std::string_view key) {
  const std::string k(key);
  const auto base = m_vector->find("expected");
  const bool inBase = base != m_vector->end() && base->contains(k);
  if (const auto* refinement = Refinement(); refinement != nullptr && refinement->contains(k)) {
    if (inBase) m_log.insert("expected." + k);  // overridden for this provider
    return VectorNode(refinement->at(k), "expected_by_provider." + m_provider + "." + k, m_log,
                      *m_file);
  }
  if (!inBase) {
    throw std::runtime_error("vector " + m_id + " has no expected value " + k + " for " +
                             m_provider);
  }
  return VectorNode(base->at(k), "expected." + k, m_log, *m_file);
}

bool VectorCase::IsRead(const std::string& path) const {
  // A read of "a.b" covers "a.b.c" and "a.b[2]"; walk up the path to the roots.
  std::string p = path;
  while (!p.empty()) {
    if (m_log.contains(p)) return true;
    const size_t cut = p.find_last_of(".[");
    if (cut == std::string::npos) break;
    p.resize(cut);
  }
  return false;
}

void VectorCase::CollectUnread(const nlohmann::json& value, const std::string& path,
                               std::vector<std::string>& out) const {
  if (IsRead(path)) return;
  // An empty object or array holds nothing to read.
  if (value.is_object()) {
    for (const auto& [key, child] : value.items()) CollectUnread(child, path + "." + key, out);
  } else if (value.is_array()) {
    for (size_t i = 0; i < value.size(); ++i) {
      CollectUnread(value[i], path + "[" + std::to_string(i) + "]", out);
    }
  } else {
    out.push_back(path);
  }
}

std::vector<std::string> VectorCase::Unread() const {
  std::vector<std::string> unread;
  for (const auto root : {"inputs", "expected"}) {
    if (const auto it = m_vector->find(root); it != m_vector->end()) {
      CollectUnread(*it, root, unread);
    }
  }
  if (const auto* refinement = Refinement(); refinement != nullptr) {
    CollectUnread(*refinement, "expected_by_provider." + m_provider, unread);
  }
  return unread;
}

}  // namespace quiv::test
