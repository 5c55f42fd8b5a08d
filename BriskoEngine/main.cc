#include <csignal>
#include <string>
#include <vector>

#include "engine_command.h"

int main(int argc, char** argv) {
  // A reader that goes away must not kill the engine silently: writes then
  // fail with EPIPE and the command ends with a message and a status.
  std::signal(SIGPIPE, SIG_IGN);
  const std::vector<std::string> args(argv + 1, argv + argc);
  return brisko::engine::runEngine(args);
}
