#pragma once

// An engine that replays recorded answers instead of running `BriskoEngine`:
// the debug pane shows the window with it, and tests produce with it what a
// real engine can't be made to say (another protocol version, an event
// carrying several payloads, a repeated id).
//
// A fixture set is a folder with one file per command, named after it:
// `capabilities.json`, `overview.json`, `create-plan.json` hold the one answer;
// `scan-stream.jsonl`, `execute-plan.jsonl`, `space-stream.jsonl` hold the
// standard output of the stream, read through the engine client's line
// framing. A `<command>.stderr` file makes the command end as a failed run
// (status 1, the file's text) after what its answer file held. A missing
// answer file fails the command in the same way, with a sentence that names
// the file. A line that doesn't decode ends the stream with the decoder's
// error, as it would from the real engine. A replayed stream is complete when
// it is handed out, so a cancel finds nothing to stop.

#include <atomic>
#include <string>

#include "engine/engine_client.h"

namespace brisko {

class DebugMockEngine : public EngineClient {
 public:
  explicit DebugMockEngine(std::string fixtureFolder);

  const std::string& fixtureFolder() const { return fixtureFolder_; }

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
  std::string fixtureFolder_;
};

}  // namespace brisko
