#include "platform/termination_signal.h"

#include <csignal>

namespace brisko {

namespace {

// Touched from a signal handler: it must be lock-free.
static_assert(std::atomic<bool>::is_always_lock_free);
std::atomic<bool> raised{false};

void raiseFlag(int) {
  raised.store(true, std::memory_order_relaxed);
}

}  // namespace

std::atomic<bool>& terminationFlag() {
  static const bool installed = [] {
    struct sigaction action = {};
    action.sa_handler = raiseFlag;
    sigemptyset(&action.sa_mask);
    action.sa_flags = 0;
    ::sigaction(SIGTERM, &action, nullptr);
    ::sigaction(SIGINT, &action, nullptr);
    return true;
  }();
  (void)installed;
  return raised;
}

}  // namespace brisko
