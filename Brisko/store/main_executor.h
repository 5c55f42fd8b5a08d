#pragma once

// The one thread on which the application's observable state lives. The
// window backs it with the Qt event loop, `brisko` and the tests with a
// `ManualExecutor` whose loop they run by hand. Workers hand results back by
// posting; posts run in the order they were made (delayed ones when due).

#include <chrono>
#include <functional>

namespace brisko {

class MainExecutor {
 public:
  using Task = std::function<void()>;

  virtual ~MainExecutor() = default;

  // May be called from any thread.
  virtual void post(Task task) = 0;
  virtual void postAfter(std::chrono::milliseconds delay, Task task) = 0;

  // True on the executor's own thread, while it runs its tasks.
  virtual bool isCurrent() const = 0;
};

}  // namespace brisko
