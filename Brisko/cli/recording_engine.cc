#include "cli/recording_engine.h"

#include <atomic>

#include "protocol/json_codec.h"

namespace brisko::cli {

RecordingEngineClient::RecordingEngineClient(std::shared_ptr<EngineClient> inner, Recorder recorder)
    : inner_(std::move(inner)), recorder_(std::move(recorder)) {}

EventStream<ScanEvent> RecordingEngineClient::scan() {
  return relay("scan-stream", inner_->scan(), [inner = inner_] { inner->cancelScan(); });
}

CleanupPlan RecordingEngineClient::createPlan(const CreateCleanupPlanRequest& request) {
  CleanupPlan plan = inner_->createPlan(request);
  recorder_("create-plan", encodeJson(plan));
  return plan;
}

EventStream<CleanupEvent> RecordingEngineClient::executePlan(
    const ExecuteCleanupPlanRequest& request) {
  return relay("execute-plan", inner_->executePlan(request),
               [inner = inner_] { inner->cancelCleanup(); });
}

EventStream<SpaceEvent> RecordingEngineClient::scanSpace(bool incremental) {
  return relay("space-stream", inner_->scanSpace(incremental),
               [inner = inner_] { inner->cancelSpaceScan(); });
}

// The consumer gets a stream of its own, fed by a thread that reads the
// inner one. When the consumer stops early, the inner stream is cancelled as
// the consumer's own cancel would have done, and the thread ends with it. A
// stream that ended by itself cancels nothing: by then the next command may
// hold the engine session, and a cancel would reach that one.
template <typename Event>
EventStream<Event> RecordingEngineClient::relay(std::string_view command, EventStream<Event> inner,
                                                std::function<void()> cancel) {
  auto ended = std::make_shared<std::atomic<bool>>(false);
  auto [outer, sink] = EventStream<Event>::make([ended, cancel] {
    if (!ended->load()) cancel();
  });
  auto source = std::make_shared<EventStream<Event>>(std::move(inner));
  std::lock_guard guard(threadsLock_);
  threads_.start([this, command, source, ended, sink = sink] {
    std::exception_ptr error;
    try {
      while (auto event = source->next()) {
        recorder_(command, encodeJson(*event));
        if (!sink.yield(std::move(*event))) break;
      }
    } catch (...) {
      error = std::current_exception();
    }
    ended->store(true);
    sink.finish(error);
  });
  return std::move(outer);
}

}  // namespace brisko::cli
