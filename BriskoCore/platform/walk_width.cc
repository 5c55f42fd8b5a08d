#include "platform/walk_width.h"

#include <algorithm>
#include <cstdlib>
#include <string>
#include <thread>

namespace brisko {
namespace {

constexpr unsigned kWaitingThreads = 16;
constexpr unsigned kMostThreads = 64;

unsigned chosenWidth() {
  if (const char* text = std::getenv("BRISKO_WALK_THREADS")) {
    char* end = nullptr;
    const unsigned long value = std::strtoul(text, &end, 10);
    if (end != text && *end == '\0' && value >= 1 && value <= kMostThreads)
      return static_cast<unsigned>(value);
  }
  return std::max(kWaitingThreads, std::thread::hardware_concurrency());
}

}  // namespace

unsigned treeWalkWidth() {
  static const unsigned width = chosenWidth();
  return width;
}

}  // namespace brisko
