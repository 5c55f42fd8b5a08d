#include "store/manual_executor.h"

#include <utility>

namespace brisko {

void ManualExecutor::post(Task task) {
  {
    std::lock_guard guard(lock_);
    ready_.push_back(std::move(task));
  }
  posted_.notify_all();
}

void ManualExecutor::postAfter(std::chrono::milliseconds delay, Task task) {
  {
    std::lock_guard guard(lock_);
    delayed_.emplace(Clock::now() + delay, std::move(task));
  }
  posted_.notify_all();
}

bool ManualExecutor::isCurrent() const {
  return runner_.load() == std::this_thread::get_id();
}

// Moves the due delayed tasks to the ready queue, then runs the first ready
// task outside the lock. False when nothing was ready.
bool ManualExecutor::runOne(std::unique_lock<std::mutex>& guard) {
  const auto now = Clock::now();
  while (!delayed_.empty() && delayed_.begin()->first <= now) {
    ready_.push_back(std::move(delayed_.begin()->second));
    delayed_.erase(delayed_.begin());
  }
  if (ready_.empty()) return false;
  Task task = std::move(ready_.front());
  ready_.pop_front();
  guard.unlock();
  runner_.store(std::this_thread::get_id());
  task();
  runner_.store(std::thread::id{});
  guard.lock();
  return true;
}

int ManualExecutor::runUntilIdle() {
  std::unique_lock guard(lock_);
  int count = 0;
  while (runOne(guard))
    ++count;
  return count;
}

bool ManualExecutor::runUntil(const std::function<bool()>& done,
                              std::chrono::milliseconds timeout) {
  const auto deadline = Clock::now() + timeout;
  std::unique_lock guard(lock_);
  for (;;) {
    guard.unlock();
    runner_.store(std::this_thread::get_id());
    const bool finished = done();
    runner_.store(std::thread::id{});
    guard.lock();
    if (finished) return true;
    if (runOne(guard)) continue;
    const auto now = Clock::now();
    if (now >= deadline) return false;
    auto wake = deadline;
    if (!delayed_.empty() && delayed_.begin()->first < wake) wake = delayed_.begin()->first;
    posted_.wait_until(guard, wake);
  }
}

}  // namespace brisko
