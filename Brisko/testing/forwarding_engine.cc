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

// Forwards the real stream's events until `count` of those that `counts`
// picks have passed, then holds until `*cancelled` is set. It ends as the real
// stream does, once its engine is gone and the session free again, so that
// the next stream isn't refused as busy.
template <class Event, class Counts>
EventStream<Event> ForwardingEngine::holdAfter(EventStream<Event> real, int count, Counts counts,
                                               bool ForwardingEngine::*cancelled) {
  {
    std::lock_guard guard(lock_);
    this->*cancelled = false;
  }
  auto [stream, sink] = EventStream<Event>::make();
  forwarders_.emplace_back(
      [this, sink = sink, real = std::move(real), count, counts, cancelled]() mutable {
        int seen = 0;
        try {
          while (seen < count) {
            auto event = real.next();
            if (!event) break;
            if (counts(*event)) ++seen;
            sink.yield(std::move(*event));
          }
        } catch (...) {
          sink.finish(std::current_exception());
          return;
        }
        std::unique_lock guard(lock_);
        cancelled_.wait(guard, [&] { return this->*cancelled; });
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

EventStream<ScanEvent> ForwardingEngine::scan() {
  ++scanCalls;
  if (!holdScanAfterFindings) return real_->scan();
  return holdAfter(
      real_->scan(), *holdScanAfterFindings,
      [](const ScanEvent& event) { return event.finding.has_value(); },
      &ForwardingEngine::scanCancelled_);
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
  return holdAfter(
      real_->scanSpace(incremental), *holdSpaceScanAfterNodes,
      [](const SpaceEvent& event) { return event.node.has_value(); },
      &ForwardingEngine::spaceScanCancelled_);
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
