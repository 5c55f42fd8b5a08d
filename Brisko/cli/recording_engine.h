#pragma once

// An engine client that passes everything to another one and hands each
// record that comes back, as the engine's own JSON text, to a recorder:
// `brisko --json` prints them while the store folds the same records into its
// state. The recorder learns which command the record answered
// ("scan-stream", "create-plan", "execute-plan", "space-stream").
//
// Threads: the recorder runs on a thread of this client for streams and on
// the caller's thread for `createPlan`; it must not block for long. Dropping
// the client waits for its relay threads, which end with their streams.

#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>

#include "engine/engine_client.h"
#include "store/worker_threads.h"

namespace brisko::cli {

class RecordingEngineClient : public EngineClient {
 public:
  using Recorder = std::function<void(std::string_view command, const std::string& json)>;

  RecordingEngineClient(std::shared_ptr<EngineClient> inner, Recorder recorder);

  EngineCapabilities capabilities() override { return inner_->capabilities(); }
  DiskSnapshot overview() override { return inner_->overview(); }
  EventStream<ScanEvent> scan() override;
  void cancelScan() override { inner_->cancelScan(); }
  CleanupPlan createPlan(const CreateCleanupPlanRequest& request) override;
  EventStream<CleanupEvent> executePlan(const ExecuteCleanupPlanRequest& request) override;
  void cancelCleanup() override { inner_->cancelCleanup(); }
  EventStream<SpaceEvent> scanSpace(bool incremental = false) override;
  void cancelSpaceScan() override { inner_->cancelSpaceScan(); }

 private:
  template <typename Event>
  EventStream<Event> relay(std::string_view command, EventStream<Event> inner,
                           std::function<void()> cancel);

  std::shared_ptr<EngineClient> inner_;
  Recorder recorder_;
  std::mutex threadsLock_;
  WorkerThreads threads_;  // guarded by threadsLock_ for `start`; last, so it goes first
};

}  // namespace brisko::cli
