// CErrQUIV: the library error catalogue. It turns a QUIV_ERROR code into the text that an error
// record stores in its QUIVError field and shows in its assembled message, and it maps member
// names to codes for the automation surface, which publishes the enumeration by name.
//
// Internal (not creatable by clients): the error record creates one for a lookup and releases it
// right after. It holds no state of its own; the table is QuivErrors.def.
#ifndef QUIV_ERRORS_CERRQUIV_H
#define QUIV_ERRORS_CERRQUIV_H

#include <cstdint>
#include <optional>
#include <span>
#include <string_view>

#include "automation/String.h"
#include "errors/QuivError.h"
#include "platform/QuivExport.h"

namespace quiv {

class QUIV_API CErrQUIV final {
 public:
  // One member of QUIV_ERROR as the interface publishes it.
  struct Member {
    std::string_view m_sName;
    int32_t m_lValue;
  };

  // The text for a code: "(Undefined error, used in debugging.)" for UNDEFINED_ERROR, the
  // member's own name for every other member, and "(No error description for this code=<code>)"
  // (signed decimal) for any code outside the enumeration. Never throws: a failure is written
  // to the application log as "QUIV.CErrQUIV.LastError, <description> QUIV error was: <code>"
  // and the text set so far (the empty string) is returned.
  String LastError(const int32_t& code) const;

  // The automation surface's view of the enumeration: every member in declaration order, the
  // name of a code (empty when the code is not a member), the code of a name (ASCII case is
  // ignored, as automation binds names; nullopt when no member has that name).
  static std::span<const Member> Members();
  static std::string_view Name(int32_t code);
  static std::optional<int32_t> Value(std::string_view name);
};

}  // namespace quiv

#endif
