#pragma once

#include <string>
#include <utility>
#include <vector>

namespace brisko::testing {

struct ProcessResult {
  int exitStatus = -1;  // -1 when the process ended by a signal
  int signal = 0;       // the signal that ended it, else 0
  std::string standardOutput;
  std::string standardError;
};

struct ProcessOptions {
  std::string standardInput;
  bool closeStandardInput = false;  // give the child no input pipe at all
  // Added to (or replacing entries of) the current environment.
  std::vector<std::pair<std::string, std::string>> environment;
  std::vector<std::string> unsetEnvironment;
};

// Runs a real program to its end, feeding standard input and collecting both
// outputs without dead-locking on full pipes.
ProcessResult runProcess(const std::vector<std::string>& argv, const ProcessOptions& options = {});

// Splits text at line feeds, dropping the empty rest after a final line feed.
std::vector<std::string> linesOf(const std::string& text);

}  // namespace brisko::testing
