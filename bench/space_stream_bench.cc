// Runs the space scan of a folder exactly as the engine's "space-stream"
// does, writing its JSON lines to standard output, so that bench/space_bench.sh
// can time it before, or apart from, the engine binary.
//
//   space_stream_bench HOME [--incremental]

#include <cstdio>
#include <cstring>
#include <iostream>
#include <string>

#include "protocol/json_codec.h"
#include "space/space_stream_command.h"

int main(int argc, char** argv) {
  if (argc < 2) {
    std::cerr << "usage: space_stream_bench HOME [--incremental]\n";
    return 2;
  }
  brisko::SpaceStreamOptions options;
  options.incremental = argc > 2 && std::strcmp(argv[2], "--incremental") == 0;
  return brisko::runSpaceStream(
      argv[1], options,
      [](const brisko::SpaceEvent& event) {
        const std::string line = brisko::encodeSpaceEvent(event) + "\n";
        std::fwrite(line.data(), 1, line.size(), stdout);
        std::fflush(stdout);
      },
      std::cerr);
}
