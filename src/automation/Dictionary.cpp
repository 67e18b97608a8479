#include "automation/Dictionary.h"

#include <functional>
#include <string_view>

#include "automation/RunTime.h"

namespace quiv {
namespace {

constexpr int32_t kErrElementNotFound = 32811;

// Consistent with Variant's ==: numbers hash by value (so Integer 1, Long 1 and Double 1 land
// together), everything else by kind and content.
size_t HashKey(const Variant& key) {
  using Kind = Variant::Kind;
  const size_t kindSalt = static_cast<size_t>(key.GetKind()) * 0x9E3779B97F4A7C15ull;
  if (key.IsNumber()) {
    const double value = key.ToDouble();
    return std::hash<double>{}(value == 0 ? 0.0 : value);
  }
  switch (key.GetKind()) {
    case Kind::Boolean:
      return kindSalt ^ std::hash<bool>{}(key.ToBoolean());
    case Kind::String: {
      const String text = key.TextForm();
      return kindSalt ^ std::hash<std::u16string>{}(text.u16()) ^ text.ByteLength();
    }
    case Kind::ByteArray: {
      const ByteArray bytes = key.ToByteArray();
      const std::string_view view(reinterpret_cast<const char*>(bytes.data()), bytes.size());
      return kindSalt ^ std::hash<std::string_view>{}(view);
    }
    case Kind::Object:
      return kindSalt ^ std::hash<const void*>{}(key.ToObject().get());
    default:
      return kindSalt;
  }
}

}  // namespace

template <class Self>
auto Dictionary::Locate(Self& self, const Variant& key) -> decltype(self.m_entries.begin()) {
  const auto [first, last] = self.m_index.equal_range(HashKey(key));
  for (auto slot = first; slot != last; ++slot) {
    if (slot->second->first == key) return slot->second;
  }
  return self.m_entries.end();
}

void Dictionary::Add(const Variant& key, const Variant& item) {
  if (Exists(key)) RaiseRuntime(kErrDuplicateKey);
  Append(key, item);
}

Variant Dictionary::Item(const Variant& key) {
  const auto found = Locate(*this, key);
  if (found != m_entries.end()) return found->second;
  Append(key, Variant());
  return Variant();
}

void Dictionary::SetItem(const Variant& key, const Variant& item) {
  const auto found = Locate(*this, key);
  if (found != m_entries.end()) {
    found->second = item;
  } else {
    Append(key, item);
  }
}

const Variant* Dictionary::Find(const Variant& key) const {
  const auto found = Locate(*this, key);
  return found == m_entries.end() ? nullptr : &found->second;
}

void Dictionary::Remove(const Variant& key) {
  const auto [first, last] = m_index.equal_range(HashKey(key));
  for (auto slot = first; slot != last; ++slot) {
    if (slot->second->first == key) {
      m_entries.erase(slot->second);
      m_index.erase(slot);
      return;
    }
  }
  throw RuntimeError(kErrElementNotFound, kRuntimeSource, u"Element not found",
                     LastPlatformError());
}

void Dictionary::RemoveAll() {
  m_index.clear();
  m_entries.clear();
}

std::vector<Variant> Dictionary::Keys() const {
  std::vector<Variant> keys;
  keys.reserve(m_entries.size());
  for (const auto& entry : m_entries) keys.push_back(entry.first);
  return keys;
}

std::vector<Variant> Dictionary::Items() const {
  std::vector<Variant> items;
  items.reserve(m_entries.size());
  for (const auto& entry : m_entries) items.push_back(entry.second);
  return items;
}

void Dictionary::Append(const Variant& key, const Variant& item) {
  m_entries.emplace_back(key, item);
  m_index.emplace(HashKey(key), std::prev(m_entries.end()));
}

}  // namespace quiv
