#pragma once

// A main executor whose loop the owner runs by hand: `brisko` runs it until
// its command is done, tests until the state they wait for arrives. The thread
// that runs the loop is the executor's thread.

#include <atomic>
#include <condition_variable>
#include <deque>
#include <map>
#include <mutex>
#include <thread>

#include "store/main_executor.h"

namespace brisko {

class ManualExecutor : public MainExecutor {
 public:
  using Clock = std::chrono::steady_clock;

  void post(Task task) override;
  void postAfter(std::chrono::milliseconds delay, Task task) override;
  bool isCurrent() const override;

  // Runs every task that is ready now, and those they post, without waiting.
  // Returns how many ran.
  int runUntilIdle();

  // Runs tasks as they come until `done()` holds after a task (checked first
  // too) or `timeout` passes. Returns whether `done()` held.
  bool runUntil(const std::function<bool()>& done,
                std::chrono::milliseconds timeout = std::chrono::seconds(60));

 private:
  bool runOne(std::unique_lock<std::mutex>& guard);

  mutable std::mutex lock_;
  std::condition_variable posted_;
  std::deque<Task> ready_;                          // guarded by lock_
  std::multimap<Clock::time_point, Task> delayed_;  // guarded by lock_
  std::atomic<std::thread::id> runner_{};
};

}  // namespace brisko
