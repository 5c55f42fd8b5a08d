#include "testing/forwarding_engine.h"

namespace brisko::testing {

ForwardingEngine::~ForwardingEngine() {
  cancelScan();
  cancelSpaceScan();
  for (std::thread& forwarder : forwarders_)
    forwarder.join();
}

EngineCapabilities ForwardingEngine::capabilities() {
  ++capabilitiesCalls;
  return real_->capabilities();
}

DiskSnapshot ForwardingEngine::overview() {
  ++overviewCalls;
  return real_->overview();
}

EventStream<ScanEvent> ForwardingEngine::scan() {
  ++scanCalls;
  if (!holdScanAfterFindings) return real_->scan();
  {
    std::lock_guard guard(lock_);
    scanCancelled_ = false;
  }
  auto [stream, sink] = EventStream<ScanEvent>::make();
  forwarders_.emplace_back(
      [this, sink = sink, real = real_->scan(), findings = *holdScanAfterFindings]() mutable {
        int seen = 0;
        try {
          while (seen < findings) {
            auto event = real.next();
            if (!event) break;
            if (event->finding) ++seen;
            sink.yield(std::move(*event));
          }
        } catch (...) {
          sink.finish(std::current_exception());
          return;
        }
        std::unique_lock guard(lock_);
        cancelled_.wait(guard, [&] { return scanCancelled_; });
        guard.unlock();
        // Ends as the real stream does, once its engine is gone and the
        // session free again, so that the next scan isn't refused as busy.
        try {
          while (real.next()) {
          }
        } catch (...) {
        }
        sink.finish(std::make_exception_ptr(CancellationError()));
      });
  return std::move(stream);
}

void ForwardingEngine::cancelScan() {
  {
    std::lock_guard guard(lock_);
    scanCancelled_ = true;
  }
  cancelled_.notify_all();
  real_->cancelScan();
}

CleanupPlan ForwardingEngine::createPlan(const CreateCleanupPlanRequest& request) {
  ++planCalls;
  return real_->createPlan(request);
}

EventStream<CleanupEvent> ForwardingEngine::executePlan(const ExecuteCleanupPlanRequest& request) {
  ++executeCalls;
  if (beforeExecute) beforeExecute();
  return real_->executePlan(request);
}

void ForwardingEngine::cancelCleanup() {
  real_->cancelCleanup();
}

EventStream<SpaceEvent> ForwardingEngine::scanSpace(bool incremental) {
  ++spaceScanCalls;
  if (!holdSpaceScanAfterNodes) return real_->scanSpace(incremental);
  {
    std::lock_guard guard(lock_);
    spaceScanCancelled_ = false;
  }
  auto [stream, sink] = EventStream<SpaceEvent>::make();
  forwarders_.emplace_back([this, sink = sink, real = real_->scanSpace(incremental),
                            nodes = *holdSpaceScanAfterNodes]() mutable {
    int seen = 0;
    try {
      while (seen < nodes) {
        auto event = real.next();
        if (!event) break;
        if (event->node) ++seen;
        sink.yield(std::move(*event));
      }
    } catch (...) {
      sink.finish(std::current_exception());
      return;
    }
    std::unique_lock guard(lock_);
    cancelled_.wait(guard, [&] { return spaceScanCancelled_; });
    guard.unlock();
    try {
      while (real.next()) {
      }
    } catch (...) {
    }
    sink.finish(std::make_exception_ptr(CancellationError()));
  });
  return std::move(stream);
}

void ForwardingEngine::cancelSpaceScan() {
  {
    std::lock_guard guard(lock_);
    spaceScanCancelled_ = true;
  }
  cancelled_.notify_all();
  real_->cancelSpaceScan();
}

}  // namespace brisko::testing
