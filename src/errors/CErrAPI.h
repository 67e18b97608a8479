// CErrAPI: symbolic names for platform error codes. An error record whose failure carries a
// non-zero last platform error shows that code by name ("API error=ERROR_ACCESS_DENIED").
//
// The table has two parts, searched in this order: the platform's general error codes
// (WinErrorNames.def, generated from the platform SDK's winerror.h by
// tools/gen/gen_winerror_names.py) in ascending order, then the cryptographic service provider
// errors NTE_BAD_UID to NTE_FIXEDPARAMETER (NteErrorNames.def). The provider codes are not
// written here: each is read, at lookup time, from the CConstQUIV instance that a CErrAPI owns
// for its whole life.
//
// Internal (not creatable by clients): the error record creates one per lookup.
#ifndef QUIV_ERRORS_CERRAPI_H
#define QUIV_ERRORS_CERRAPI_H

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

#include "automation/String.h"
#include "constants/CConstQUIV.h"
#include "platform/QuivExport.h"

namespace quiv {

class QUIV_API CErrAPI final {
 public:
  // One named general error code.
  struct GeneralName {
    int32_t m_lCode;
    std::string_view m_sName;
  };

  // The name of a platform error code, followed by one blank ("ERROR_SUCCESS ", "NTE_NO_KEY ";
  // the record trims it). The code is a 32-bit value widened to a double, as the record keeps
  // it; rows match on exact equality. A code without a row gives "&H" and its 32-bit two's
  // complement in upper-case hex without leading zeros, then " (see WinErr.h for description.)":
  // 6119 gives "&H17E7 (see WinErr.h for description.)". Never throws: a code that does not
  // convert to a 32-bit integer (overflow) is written to the application log as
  // "QUIV.CErrAPI.LastError, <description> API error = <code>. " and the text set so far (the
  // empty string) is returned.
  String LastError(const double& code) const;

  // The table, for the consistency checks: the general rows in lookup order, the provider
  // error names in lookup order, and the number of rows of both parts.
  static std::span<const GeneralName> GeneralNames();
  static std::span<const std::string_view> ProviderErrorNames();
  static size_t RowCount();

 private:
  const CConstQUIV m_oConst{};
};

}  // namespace quiv

#endif
