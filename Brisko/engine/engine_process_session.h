#pragma once

// Lets one streaming engine process run at a time and lets a cancel reach it.
// The engine client and every copy of it share one session.
//
// Threads: any thread may call any operation; the fields are touched only
// under the lock, and the terminate call is made outside it.

#include <memory>
#include <mutex>

#include "engine/child_process.h"

namespace brisko {

class EngineProcessSession {
 public:
  // Makes `process` the session's process, before it is launched, and clears
  // an earlier cancel. Throws EngineClientError::engineBusy, changing nothing,
  // when another process holds the session.
  void take(const std::shared_ptr<ChildProcess>& process);

  // Frees the session when `process` is the one that holds it.
  void release(const std::shared_ptr<ChildProcess>& process);

  // Marks the session cancelled and terminates its process when it is
  // running. A process that isn't launched yet is left to run; its stream
  // still ends as cancelled.
  void cancel();

  // The same, only while `process` holds the session: the end of one stream
  // must never cancel the stream that took the session after it.
  void cancel(const std::shared_ptr<ChildProcess>& process);

  bool didRequestCancellation() const;

 private:
  mutable std::mutex lock_;
  std::shared_ptr<ChildProcess> process_;  // guarded by lock_
  bool didRequestCancellation_ = false;    // guarded by lock_
};

}  // namespace brisko
