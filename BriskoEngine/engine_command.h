#pragma once

#include <functional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "engine_output.h"

namespace brisko::engine {

// A failure of the command line itself (unknown command or argument).
class UsageError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// What one command gets: its flags (already checked against the table), the
// output, and the user's home folder on demand.
struct CommandContext {
  std::vector<std::string> flags;
  EngineOutput& output;

  bool hasFlag(std::string_view flag) const;
  // The home folder; throws when it is unknown or can't be read.
  std::string homeDirectory() const;
  // All of standard input, for the commands that take a request; more than
  // a request can be throws DecodingError before anything is parsed.
  std::string readStandardInput() const;
};

struct EngineCommand {
  std::string_view name;
  std::vector<std::string_view> flags;  // the only arguments it accepts
  std::function<void(CommandContext&)> run;
};

// Every command this engine understands, in the order "capabilities" lists them.
const std::vector<EngineCommand>& engineCommands();

// Runs the command named by args[0]; returns the exit status. Every failure
// ends as one line on standard error and a non-zero status.
int runEngine(std::span<const std::string> args);

}  // namespace brisko::engine
