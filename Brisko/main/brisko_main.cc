// `brisko`: Brisko on the command line. The commands live in the application
// library (cli/); this only hands them the words and the terminal.

#include <signal.h>

#include <string>
#include <vector>

#include "cli/cli_commands.h"
#include "cli/console.h"

namespace {

// A handler rather than SIG_IGN: a write to a closed pipe then fails with
// EPIPE, which the console reports once, and the engine's child processes
// still start with the default disposition (an ignored signal would stay
// ignored across exec).
void onBrokenPipe(int) {}

}  // namespace

int main(int argc, char** argv) {
  struct sigaction action {};
  action.sa_handler = onBrokenPipe;
  sigemptyset(&action.sa_mask);
  ::sigaction(SIGPIPE, &action, nullptr);

  brisko::cli::Console console;
  return brisko::cli::runBrisko(std::vector<std::string>(argv + 1, argv + argc), console);
}
