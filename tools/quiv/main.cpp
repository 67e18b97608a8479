// quiv: the library's everyday jobs from a shell, one subcommand each (quiv help lists them).
// Exit status: 0 success, 1 failure (the error record's message on standard error), 2 usage.
#include <cstdio>
#include <cstring>
#include <exception>
#include <string>
#include <vector>

#include "Command.h"
#include "UsageError.h"

namespace quiv::cli {

const std::vector<Command>& AllCommands() {
  static const std::vector<Command> kCommands = {
      kEncCommand,    kDecCommand,    kDgstCommand, kSignCommand,   kVerifyCommand,
      kExportCommand, kImportCommand, kWrapCommand, kUnwrapCommand, kContainerCommand,
      kGenkeyCommand, kRandCommand,   kAlgsCommand, kErrstrCommand};
  return kCommands;
}

namespace {

void PrintOverview(FILE* to) {
  std::fputs("usage: quiv COMMAND [options]   (quiv COMMAND -h for its options and an example)\n\n",
             to);
  for (const Command& command : AllCommands()) {
    std::fprintf(to, "  %-10s %s\n", command.m_name, command.m_summary);
  }
  std::fputs("\nExit status: 0 success, 1 failure, 2 usage error. See quiv(1) and doc/guide.md.\n",
             to);
}

const Command* Find(const std::string& name) {
  for (const Command& command : AllCommands()) {
    if (name == command.m_name) return &command;
  }
  return nullptr;
}

bool WantsHelp(const std::vector<std::string>& args) {
  for (const std::string& arg : args) {
    if (arg == "--") return false;
    if (arg == "-h" || arg == "-help" || arg == "--help") return true;
  }
  return false;
}

int Run(int argc, char** argv) {
  if (argc < 2) {
    PrintOverview(stderr);
    return 2;
  }
  const std::string name = argv[1];
  if (name == "-h" || name == "--help" || name == "help") {
    if (argc > 2 && Find(argv[2]) != nullptr) {
      std::fputs(Find(argv[2])->m_help, stdout);
    } else {
      PrintOverview(stdout);
    }
    return 0;
  }
  const Command* command = Find(name);
  if (command == nullptr) {
    std::fprintf(stderr, "quiv: unknown command '%s'\n", name.c_str());
    PrintOverview(stderr);
    return 2;
  }
  const std::vector<std::string> args(argv + 2, argv + argc);
  if (WantsHelp(args)) {
    std::fputs(command->m_help, stdout);
    return 0;
  }
  try {
    return command->m_run(args);
  } catch (const UsageError& e) {
    std::fprintf(stderr, "quiv %s: %s\nTry 'quiv %s -h'.\n", command->m_name, e.what(),
                 command->m_name);
    return 2;
  } catch (const CommandFailure& e) {
    std::fprintf(stderr, "quiv %s: %s\n", command->m_name, e.what());
    return 1;
  } catch (const std::exception& e) {
    std::fprintf(stderr, "quiv %s: %s\n", command->m_name, e.what());
    return 1;
  }
}

}  // namespace

}  // namespace quiv::cli

int main(int argc, char** argv) {
  return quiv::cli::Run(argc, argv);
}
