// UsageError and CommandFailure: the two ways a subcommand ends early. A usage error (an unknown
// option, a missing value, a bad combination) exits with status 2 and points at the help; a
// failure of the work itself exits with status 1 and carries the message to print, which for a
// library failure is the error record's assembled one-line message.
#ifndef QUIV_TOOLS_QUIV_USAGEERROR_H
#define QUIV_TOOLS_QUIV_USAGEERROR_H

#include <stdexcept>
#include <string>

namespace quiv::cli {

class UsageError final : public std::runtime_error {
 public:
  explicit UsageError(const std::string& message) : std::runtime_error(message) {}
};

class CommandFailure final : public std::runtime_error {
 public:
  explicit CommandFailure(const std::string& message) : std::runtime_error(message) {}
};

}  // namespace quiv::cli

#endif
