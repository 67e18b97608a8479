#include "constants/CConstQUIV.h"

#include <algorithm>
#include <array>

namespace quiv {
namespace {

// What the dispatch layer needs per property, beside its name: how to read it.
struct Reader {
  int32_t (CConstQUIV::*integer)() const noexcept;  // Integer and Computed
  std::u16string_view text;                         // String
};

constexpr std::array<CConstQUIV::Property, CConstQUIV::kPropertyCount> MakeProperties() {
  std::array<CConstQUIV::Property, CConstQUIV::kPropertyCount> properties{};
  size_t index = 0;
  const auto add = [&](std::string_view name, CConstQUIV::Kind kind) {
    properties[index] = {name, kind, CConstQUIV::DispIdAt(index)};
    ++index;
  };
#define QUIV_CONST_INT(name, value) add(#name, CConstQUIV::Kind::Integer);
#define QUIV_CONST_CALG(name, algClass, algType, algSid) add(#name, CConstQUIV::Kind::Computed);
#define QUIV_CONST_STRING(name, text) add(#name, CConstQUIV::Kind::String);
#include "constants/CConstQUIV.def"
  return properties;
}

constexpr std::array<CConstQUIV::Property, CConstQUIV::kPropertyCount> kProperties =
    MakeProperties();

constexpr std::array<Reader, CConstQUIV::kPropertyCount> kReaders = {{
#define QUIV_CONST_INT(name, value) {&CConstQUIV::name, {}},
#define QUIV_CONST_CALG(name, algClass, algType, algSid) {&CConstQUIV::name, {}},
#define QUIV_CONST_STRING(name, text) {nullptr, text},
#include "constants/CConstQUIV.def"
}};

// The interface's published shape: 330 integers (35 of them computed) and 12 strings.
static_assert(CConstQUIV::kPropertyCount == 342);
static_assert(CConstQUIV::kIntegerCount == 330);
static_assert(CConstQUIV::kComputedCount == 35);
static_assert(CConstQUIV::kStringCount == 12);
static_assert(CConstQUIV::DispIdAt(CConstQUIV::kPropertyCount - 1) == 0x68030000);

constexpr char LowerAscii(char c) {
  return (c >= 'A' && c <= 'Z') ? static_cast<char>(c + 32) : c;
}

// Three-way ASCII case-insensitive comparison: automation binds member names that way.
constexpr int CompareNoCase(std::string_view a, std::string_view b) {
  const size_t common = std::min(a.size(), b.size());
  for (size_t i = 0; i < common; ++i) {
    const char ca = LowerAscii(a[i]);
    const char cb = LowerAscii(b[i]);
    if (ca != cb) return ca < cb ? -1 : 1;
  }
  if (a.size() == b.size()) return 0;
  return a.size() < b.size() ? -1 : 1;
}

// Indices of kProperties sorted by name, for a binary search; computed at compile time.
constexpr std::array<uint16_t, CConstQUIV::kPropertyCount> MakeByName() {
  std::array<uint16_t, CConstQUIV::kPropertyCount> order{};
  for (size_t i = 0; i < order.size(); ++i) order[i] = static_cast<uint16_t>(i);
  std::sort(order.begin(), order.end(), [](uint16_t a, uint16_t b) {
    return CompareNoCase(kProperties[a].name, kProperties[b].name) < 0;
  });
  return order;
}

constexpr std::array<uint16_t, CConstQUIV::kPropertyCount> kByName = MakeByName();

}  // namespace

std::span<const CConstQUIV::Property> CConstQUIV::Properties() noexcept {
  return kProperties;
}

std::optional<size_t> CConstQUIV::IndexOf(std::string_view name) noexcept {
  const auto it = std::lower_bound(kByName.begin(), kByName.end(), name,
                                   [](uint16_t index, std::string_view wanted) {
                                     return CompareNoCase(kProperties[index].name, wanted) < 0;
                                   });
  if (it == kByName.end() || CompareNoCase(kProperties[*it].name, name) != 0) return std::nullopt;
  return *it;
}

bool CConstQUIV::ValueAt(size_t index, Value& o_value) const noexcept {
  if (index >= kPropertyCount) return false;
  const Reader& reader = kReaders[index];
  Value value;
  value.kind = kProperties[index].kind;
  if (value.kind == Kind::String) {
    value.text = reader.text;
  } else {
    value.integer = (this->*reader.integer)();
  }
  o_value = value;
  return true;
}

bool CConstQUIV::Lookup(std::string_view name, Value& o_value) const noexcept {
  const std::optional<size_t> index = IndexOf(name);
  return index.has_value() && ValueAt(*index, o_value);
}

bool CConstQUIV::LookupDispId(int32_t dispId, Value& o_value) const noexcept {
  // Ids run downward from the first, so the offset from it is the slot index.
  const int64_t offset = static_cast<int64_t>(kFirstDispId) - dispId;
  if (offset < 0 || offset >= static_cast<int64_t>(kPropertyCount)) return false;
  return ValueAt(static_cast<size_t>(offset), o_value);
}

}  // namespace quiv
