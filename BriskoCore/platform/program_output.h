#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace brisko {

struct ProgramOutput {
  int exitStatus = 0;
  std::string standardOutput;
};

struct ProgramOptions {
  // Added to (or replacing in) this process's environment.
  std::vector<std::pair<std::string, std::string>> environment;
  // Output past this is read and thrown away, so that a program that floods
  // its output neither blocks nor fills the memory.
  size_t outputLimit = 64 * 1024 * 1024;
};

// Runs `argv` (argv[0] an absolute path) in a process group of its own, with
// no input and standard error discarded, and collects its output. None when
// it can't be started or is still running after `timeout` (the whole group
// is then killed) or ends by a signal.
std::optional<ProgramOutput> runProgram(const std::vector<std::string>& argv,
                                        std::chrono::milliseconds timeout,
                                        const ProgramOptions& options = {});

}  // namespace brisko
