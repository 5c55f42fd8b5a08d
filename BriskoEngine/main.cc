#include <malloc.h>

#include <algorithm>
#include <csignal>
#include <string>
#include <thread>
#include <vector>

#include "engine_command.h"

int main(int argc, char** argv) {
  // A reader that goes away must not kill the engine silently: writes then
  // fail with EPIPE and the command ends with a message and a status.
  std::signal(SIGPIPE, SIG_IGN);
  // The walks run many more threads than there are cores, most of them
  // waiting on the disk. One allocation arena per thread would hold each
  // one's freed memory apart (about 20 MB more at the peak of a space scan);
  // one per core is as many as can allocate at the same moment.
  mallopt(M_ARENA_MAX, static_cast<int>(std::max(std::thread::hardware_concurrency(), 1u)));
  const std::vector<std::string> args(argv + 1, argv + argc);
  return brisko::engine::runEngine(args);
}
