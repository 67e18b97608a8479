// Command: one subcommand of quiv: its name, a one-line summary for the overview, its help text
// (usage, options, an example) and the function that runs it. Each subcommand's source defines
// its Command; main() looks them up by name.
#ifndef QUIV_TOOLS_QUIV_COMMAND_H
#define QUIV_TOOLS_QUIV_COMMAND_H

#include <string>
#include <vector>

namespace quiv::cli {

struct Command {
  const char* m_name;
  const char* m_summary;
  const char* m_help;
  // Returns the exit status; throws UsageError (status 2) or CommandFailure (status 1).
  int (*m_run)(const std::vector<std::string>& args);
};

// Every subcommand, in the order of the overview.
const std::vector<Command>& AllCommands();

extern const Command kEncCommand;
extern const Command kDecCommand;
extern const Command kDgstCommand;
extern const Command kSignCommand;
extern const Command kVerifyCommand;
extern const Command kExportCommand;
extern const Command kImportCommand;
extern const Command kWrapCommand;
extern const Command kUnwrapCommand;
extern const Command kContainerCommand;
extern const Command kGenkeyCommand;
extern const Command kRandCommand;
extern const Command kAlgsCommand;
extern const Command kErrstrCommand;

}  // namespace quiv::cli

#endif
