#pragma once

// `brisko`'s command table: one row a command, with its options, its words
// for `--help` and the function that runs it. Later commands (`apps`,
// `uninstall`, `tools`) join as rows.
//
// Exit statuses, the same for every command: 0 when the command did all it
// was asked, 1 when something failed or was kept (the output says which),
// 2 for a command line that can't be understood.

#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "cli/cli_arguments.h"
#include "cli/console.h"

namespace brisko::cli {

inline constexpr int kExitSuccess = 0;
inline constexpr int kExitFailure = 1;
inline constexpr int kExitUsage = 2;

struct CommandCall {
  ParsedArguments arguments;
  Console& console;
};

struct Command {
  std::string_view name;
  std::string_view operands;  // for the synopsis, e.g. "[FINDING-ID | ITEM-ID ...]"
  std::string_view summary;   // one line
  std::string_view details;   // a paragraph for `brisko help COMMAND`
  std::span<const OptionSpec> options;
  int (*run)(CommandCall& call);
};

std::span<const Command> commandTable();

// The whole program: `arguments` without the program's name. Writes the
// results and the one line of a failure; answers the exit status.
int runBrisko(const std::vector<std::string>& arguments, Console& console);

// The commands, each in its own file.
int runScan(CommandCall& call);
int runClean(CommandCall& call);
int runSpace(CommandCall& call);
int runTrash(CommandCall& call);
int runWhitelist(CommandCall& call);
int runHistory(CommandCall& call);
int runBatteries(CommandCall& call);
int runTools(CommandCall& call);

// The user's home folder; throws std::runtime_error when there is none.
std::string homeFolder();

}  // namespace brisko::cli
