#include "Options.h"

#include <cerrno>
#include <cstdlib>

#include "UsageError.h"

namespace quiv::cli {

namespace {

// "-in" and "--in" both name "in"; a lone "-" is a positional argument (stdin, by convention).
std::optional<std::string> OptionName(const std::string& arg) {
  if (arg.size() < 2 || arg[0] != '-') return std::nullopt;
  if (arg[1] >= '0' && arg[1] <= '9') return std::nullopt;  // a negative number
  if (arg[1] == '-') return arg.size() > 2 ? std::optional(arg.substr(2)) : std::nullopt;
  return arg.substr(1);
}

}  // namespace

Options::Options(const Grammar& grammar, const std::vector<std::string>& args) {
  bool optionsEnded = false;
  for (size_t i = 0; i < args.size(); ++i) {
    const std::string& arg = args[i];
    const std::optional<std::string> name = optionsEnded ? std::nullopt : OptionName(arg);
    if (!optionsEnded && arg == "--") {
      optionsEnded = true;
      continue;
    }
    if (!name) {
      if (m_positional.size() >= grammar.m_maxPositional) {
        throw UsageError("unexpected argument '" + arg + "'");
      }
      m_positional.push_back(arg);
      continue;
    }
    if (*name == "h" || *name == "help") {
      m_help = true;
    } else if (grammar.m_flags.count(*name) != 0) {
      if (!m_setFlags.insert(*name).second) throw UsageError("option -" + *name + " given twice");
    } else if (grammar.m_valued.count(*name) != 0) {
      if (i + 1 >= args.size()) throw UsageError("option -" + *name + " needs a value");
      if (!m_values.emplace(*name, args[++i]).second) {
        throw UsageError("option -" + *name + " given twice");
      }
    } else {
      throw UsageError("unknown option '" + arg + "'");
    }
  }
}

bool Options::Has(const std::string& name) const {
  return m_setFlags.count(name) != 0 || m_values.count(name) != 0;
}

std::optional<std::string> Options::Value(const std::string& name) const {
  const auto it = m_values.find(name);
  if (it == m_values.end()) return std::nullopt;
  return it->second;
}

std::string Options::ValueOr(const std::string& name, const std::string& fallback) const {
  return Value(name).value_or(fallback);
}

std::string Options::OneOf(const std::vector<std::string>& names,
                           const std::string& fallback) const {
  std::string chosen;
  for (const std::string& name : names) {
    if (!Has(name)) continue;
    if (!chosen.empty())
      throw UsageError("options -" + chosen + " and -" + name + " exclude each other");
    chosen = name;
  }
  return chosen.empty() ? fallback : chosen;
}

std::string Options::Choice(const std::string& name, const std::vector<std::string>& allowed,
                            const std::string& fallback) const {
  const std::optional<std::string> value = Value(name);
  if (!value) return fallback;
  for (const std::string& candidate : allowed) {
    if (*value == candidate) return candidate;
  }
  std::string list;
  for (const std::string& candidate : allowed) list += (list.empty() ? "" : "|") + candidate;
  throw UsageError("-" + name + " must be one of " + list + ", not '" + *value + "'");
}

long Options::Number(const std::string& name, long low, long high, long fallback) const {
  const std::optional<std::string> value = Value(name);
  return value ? ParseNumber(*value, low, high, "-" + name) : fallback;
}

long ParseNumber(const std::string& text, long low, long high, const std::string& what) {
  errno = 0;
  char* end = nullptr;
  const long value = std::strtol(text.c_str(), &end, 10);
  if (text.empty() || *end != '\0' || errno == ERANGE || value < low || value > high) {
    throw UsageError(what + " must be a whole number from " + std::to_string(low) + " to " +
                     std::to_string(high) + ", not '" + text + "'");
  }
  return value;
}

}  // namespace quiv::cli
