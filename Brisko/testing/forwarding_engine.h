#pragma once

// A forwarding wrapper around a real engine client, for the faults the real
// engine can't be asked for: it counts the calls, runs a hook between the
// plan and its run, and can hold a scan after its first findings until it is
// cancelled.

#include <atomic>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "engine/engine_client.h"

namespace brisko::testing {

class ForwardingEngine : public EngineClient {
 public:
  explicit ForwardingEngine(std::shared_ptr<EngineClient> real) : real_(std::move(real)) {}
  ~ForwardingEngine() override;

  // Runs on the worker that asks for the run, before the run starts.
  std::function<void()> beforeExecute;
  // With a value, a scan passes on the events up to this many findings, then
  // holds until it is cancelled, and ends as cancelled.
  std::optional<int> holdScanAfterFindings;
  // The same for a space scan, after this many node events.
  std::optional<int> holdSpaceScanAfterNodes;

  std::atomic<int> capabilitiesCalls = 0, overviewCalls = 0, scanCalls = 0, planCalls = 0,
                   executeCalls = 0, spaceScanCalls = 0;

  EngineCapabilities capabilities() override;
  DiskSnapshot overview() override;
  EventStream<ScanEvent> scan() override;
  void cancelScan() override;
  CleanupPlan createPlan(const CreateCleanupPlanRequest& request) override;
  EventStream<CleanupEvent> executePlan(const ExecuteCleanupPlanRequest& request) override;
  void cancelCleanup() override;
  EventStream<SpaceEvent> scanSpace(bool incremental = false) override;
  void cancelSpaceScan() override;

 private:
  std::shared_ptr<EngineClient> real_;
  template <class Event, class Counts>
  EventStream<Event> holdAfter(EventStream<Event> real, int count, Counts counts,
                               bool ForwardingEngine::*cancelled);

  std::mutex lock_;
  std::condition_variable cancelled_;
  bool scanCancelled_ = false;       // guarded by lock_
  bool spaceScanCancelled_ = false;  // guarded by lock_
  std::vector<std::thread> forwarders_;
};

}  // namespace brisko::testing
