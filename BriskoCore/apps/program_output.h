#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <vector>

namespace brisko {

struct ProgramOutput {
  int exitStatus = 0;
  std::string standardOutput;
};

// Runs `argv` (argv[0] an absolute path) with no input and standard error
// discarded, and collects its output. None when it can't be started or is
// still running after `timeout` (it is then killed) or ends by a signal.
std::optional<ProgramOutput> runProgram(const std::vector<std::string>& argv,
                                        std::chrono::milliseconds timeout);

}  // namespace brisko
