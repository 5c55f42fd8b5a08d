#pragma once

#include <atomic>

namespace brisko {

// A flag raised by SIGTERM and SIGINT instead of the default ending of the
// process, so that a long command can stop its threads and leave its output
// whole. Installs the handlers on the first call; every call answers the same
// flag.
std::atomic<bool>& terminationFlag();

}  // namespace brisko
