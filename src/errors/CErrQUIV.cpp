#include "errors/CErrQUIV.h"

#include <algorithm>
#include <array>
#include <exception>
#include <new>
#include <string>

#include "automation/RuntimeError.h"
#include "errors/CErrHandler.h"
#include "errors/ErrorTrap.h"

namespace quiv {
namespace {

constexpr std::array<CErrQUIV::Member, kQuivErrorCount> kMembers{{
#define QUIV_ERROR_ROW(name, value, text) {#name, (value)},
#include "errors/QuivErrors.def"
#undef QUIV_ERROR_ROW
}};

constexpr std::array<std::string_view, kQuivErrorCount> kTexts{{
#define QUIV_ERROR_ROW(name, value, text) text,
#include "errors/QuivErrors.def"
#undef QUIV_ERROR_ROW
}};

// The lookup indexes the table by code - first, so the codes must be consecutive.
constexpr bool CodesAreConsecutive() {
  for (size_t i = 0; i < kMembers.size(); ++i) {
    if (kMembers[i].m_lValue != kQuivErrorFirst + static_cast<int32_t>(i)) return false;
  }
  return true;
}
static_assert(CodesAreConsecutive(), "QuivErrors.def: codes must run consecutively");

String Widen(std::string_view ascii) {
  return String(std::u16string(ascii.begin(), ascii.end()));
}

// The texts as the record stores them, converted once.
const std::array<String, kQuivErrorCount>& WideTexts() {
  static const std::array<String, kQuivErrorCount> texts = [] {
    std::array<String, kQuivErrorCount> wide;
    for (size_t i = 0; i < kTexts.size(); ++i) wide[i] = Widen(kTexts[i]);
    return wide;
  }();
  return texts;
}

std::optional<size_t> PositionOf(int32_t code) {
  const int64_t position = int64_t{code} - kQuivErrorFirst;
  if (position < 0 || position >= static_cast<int64_t>(kQuivErrorCount)) return std::nullopt;
  return static_cast<size_t>(position);
}

// Automation binds names without regard to ASCII case.
bool EqualsIgnoringAsciiCase(std::string_view a, std::string_view b) {
  const auto lower = [](char c) { return (c >= 'A' && c <= 'Z') ? static_cast<char>(c + 32) : c; };
  return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(),
                                            [&](char x, char y) { return lower(x) == lower(y); });
}

// The trap's log entry: "<source>, <description>", the description extended with the code.
// Nothing may leave the lookup, so a failure to write the entry is dropped.
void LogLookupFailure(int32_t code) noexcept {
  try {
    LogCurrentFailure(u"QUIV.CErrQUIV.LastError", u" QUIV error was: " + String::FromInt(code));
  } catch (...) {
  }
}

}  // namespace

String CErrQUIV::LastError(const int32_t& code) const {
  String text;
  try {
    if (const auto position = PositionOf(code)) {
      text = WideTexts()[*position];
    } else {
      text = Widen("(No error description for this code=" + std::to_string(code) + ")");
    }
  } catch (...) {
    LogLookupFailure(code);
  }
  return text;
}

std::span<const CErrQUIV::Member> CErrQUIV::Members() {
  return kMembers;
}

std::string_view CErrQUIV::Name(int32_t code) {
  const auto position = PositionOf(code);
  return position ? kMembers[*position].m_sName : std::string_view{};
}

std::optional<int32_t> CErrQUIV::Value(std::string_view name) {
  for (const Member& member : kMembers) {
    if (EqualsIgnoringAsciiCase(member.m_sName, name)) return member.m_lValue;
  }
  return std::nullopt;
}

}  // namespace quiv
