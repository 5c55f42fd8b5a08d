#include "engine/engine_process_session.h"

#include "engine/engine_client.h"

namespace brisko {

void EngineProcessSession::take(const std::shared_ptr<ChildProcess>& process) {
  std::lock_guard guard(lock_);
  if (process_) throw EngineClientError::engineBusy();
  didRequestCancellation_ = false;
  process_ = process;
}

void EngineProcessSession::release(const std::shared_ptr<ChildProcess>& process) {
  std::lock_guard guard(lock_);
  if (process_ == process) process_.reset();
}

void EngineProcessSession::cancel() {
  std::shared_ptr<ChildProcess> process;
  {
    std::lock_guard guard(lock_);
    didRequestCancellation_ = true;
    process = process_;
  }
  if (process && process->isRunning()) process->terminate();
}

void EngineProcessSession::cancel(const std::shared_ptr<ChildProcess>& process) {
  {
    std::lock_guard guard(lock_);
    if (process_ != process) return;
    didRequestCancellation_ = true;
  }
  if (process->isRunning()) process->terminate();
}

bool EngineProcessSession::didRequestCancellation() const {
  std::lock_guard guard(lock_);
  return didRequestCancellation_;
}

}  // namespace brisko
