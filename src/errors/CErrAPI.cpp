#include "errors/CErrAPI.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <exception>
#include <new>
#include <string>

#include "automation/RunTime.h"
#include "automation/RuntimeError.h"
#include "errors/CErrHandler.h"
#include "errors/ErrorTrap.h"

namespace quiv {
namespace {

constexpr CErrAPI::GeneralName kGeneralNames[] = {
#define QUIV_WINERROR_ROW(code, name) {(code), name},
#include "errors/WinErrorNames.def"
#undef QUIV_WINERROR_ROW
};

// The general rows are looked up by binary search, which finds the same first equal row as a
// scan in ascending order only if the codes ascend strictly.
constexpr bool GeneralCodesAscend() {
  for (size_t i = 1; i < std::size(kGeneralNames); ++i) {
    if (kGeneralNames[i - 1].m_lCode >= kGeneralNames[i].m_lCode) return false;
  }
  return true;
}
static_assert(GeneralCodesAscend(), "WinErrorNames.def: codes must ascend strictly");

struct ProviderError {
  std::string_view m_sName;
  int32_t (*m_pfnCode)(const CConstQUIV&);
};

constexpr ProviderError kProviderErrors[] = {
#define QUIV_NTE_ROW(name) {#name, [](const CConstQUIV& c) -> int32_t { return c.name(); }},
#include "errors/NteErrorNames.def"
#undef QUIV_NTE_ROW
};

constexpr std::array<std::string_view, std::size(kProviderErrors)> kProviderErrorNames = [] {
  std::array<std::string_view, std::size(kProviderErrors)> names{};
  for (size_t i = 0; i < names.size(); ++i) names[i] = kProviderErrors[i].m_sName;
  return names;
}();

String Widen(std::string_view ascii) {
  return String(std::u16string(ascii.begin(), ascii.end()));
}

// The run time's Hex takes a 32-bit integer: the code is converted as CLng converts (half to
// even, run-time error 6 when it does not fit), so negative codes show their two's complement.
std::string HexFallback(double code) {
  char hex[9];
  std::snprintf(hex, sizeof hex, "%X", static_cast<uint32_t>(CLng(code)));
  return std::string("&H") + hex + " (see WinErr.h for description.)";
}

// The trap's log entry: "<source>, <description>", the description extended with the code.
// Nothing may leave the lookup, so a failure to write the entry is dropped.
void LogLookupFailure(double code) noexcept {
  try {
    LogCurrentFailure(u"QUIV.CErrAPI.LastError",
                      u" API error = " + String::FromDouble(code) + u". ");
  } catch (...) {
  }
}

}  // namespace

String CErrAPI::LastError(const double& code) const {
  String text;
  try {
    const auto general =
        std::lower_bound(std::begin(kGeneralNames), std::end(kGeneralNames), code,
                         [](const GeneralName& row, double value) { return row.m_lCode < value; });
    if (general != std::end(kGeneralNames) && general->m_lCode == code) {
      text = Widen(std::string(general->m_sName) + " ");
      return text;
    }
    for (const ProviderError& row : kProviderErrors) {
      if (row.m_pfnCode(m_oConst) == code) {
        text = Widen(std::string(row.m_sName) + " ");
        return text;
      }
    }
    text = Widen(HexFallback(code));
  } catch (...) {
    LogLookupFailure(code);
  }
  return text;
}

std::span<const CErrAPI::GeneralName> CErrAPI::GeneralNames() {
  return kGeneralNames;
}

std::span<const std::string_view> CErrAPI::ProviderErrorNames() {
  return kProviderErrorNames;
}

size_t CErrAPI::RowCount() {
  return std::size(kGeneralNames) + std::size(kProviderErrors);
}

}  // namespace quiv
