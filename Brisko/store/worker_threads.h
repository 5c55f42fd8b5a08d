#pragma once

// The threads on which one owner runs blocking calls. Going, it waits for all
// of them, so a worker never outlives what it reports to; the owner stops
// long calls (cancels streams) before that.

#include <atomic>
#include <functional>
#include <list>
#include <memory>
#include <thread>

namespace brisko {

class WorkerThreads {
 public:
  WorkerThreads() = default;
  WorkerThreads(const WorkerThreads&) = delete;
  WorkerThreads& operator=(const WorkerThreads&) = delete;
  ~WorkerThreads() {
    for (Worker& worker : workers_)
      worker.thread.join();
  }

  // Call from one thread only (the owner's).
  void start(std::function<void()> work) {
    // Threads that finished are joined here, so a long session keeps few.
    workers_.remove_if([](Worker& worker) {
      if (!worker.done->load()) return false;
      worker.thread.join();
      return true;
    });
    auto done = std::make_shared<std::atomic<bool>>(false);
    workers_.push_back(Worker{done, std::thread([work = std::move(work), done] {
                                work();
                                done->store(true);
                              })});
  }

 private:
  struct Worker {
    std::shared_ptr<std::atomic<bool>> done;
    std::thread thread;
  };
  std::list<Worker> workers_;
};

}  // namespace brisko
