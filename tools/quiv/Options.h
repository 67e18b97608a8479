// Options: the command line of one subcommand, in the style of the openssl tools: options start
// with one dash ("-in file", "-md5"); a double dash is accepted as well ("--help"). Which options
// take a value and which are flags is declared up front, so an unknown option or a missing value
// is a usage error before any work starts. Anything that is not an option is a positional
// argument; "--" ends the options.
#ifndef QUIV_TOOLS_QUIV_OPTIONS_H
#define QUIV_TOOLS_QUIV_OPTIONS_H

#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace quiv::cli {

class Options final {
 public:
  struct Grammar {
    std::set<std::string> m_valued;  // names without the dash, e.g. "in"
    std::set<std::string> m_flags;   // e.g. "md5"; "h" and "help" are always known
    size_t m_maxPositional = 0;
  };

  // Throws UsageError for an unknown option, a missing value, a repeated option or too many
  // positional arguments.
  Options(const Grammar& grammar, const std::vector<std::string>& args);

  bool HelpRequested() const { return m_help; }
  bool Has(const std::string& name) const;
  std::optional<std::string> Value(const std::string& name) const;
  std::string ValueOr(const std::string& name, const std::string& fallback) const;
  const std::vector<std::string>& Positional() const { return m_positional; }

  // The one flag of `names` that was given, or `fallback` when none was; two of them given is a
  // usage error (e.g. -md5 and -sha1 together).
  std::string OneOf(const std::vector<std::string>& names, const std::string& fallback) const;
  // A value that must be one of `allowed` (usage error otherwise).
  std::string Choice(const std::string& name, const std::vector<std::string>& allowed,
                     const std::string& fallback) const;
  // A whole number in [low, high] (usage error otherwise).
  long Number(const std::string& name, long low, long high, long fallback) const;

 private:
  std::map<std::string, std::string> m_values;
  std::set<std::string> m_setFlags;
  std::vector<std::string> m_positional;
  bool m_help = false;
};

// A decimal whole number in [low, high]; UsageError naming `what` otherwise.
long ParseNumber(const std::string& text, long low, long high, const std::string& what);

}  // namespace quiv::cli

#endif
