#pragma once

// One run of a `brisko` command that needs the application's store: the
// store on a main executor that the command's own thread pumps, the bundled
// engine (behind a recorder for `--json`) and the user's Trash, as the window
// has them.

#include <functional>
#include <memory>
#include <string>

#include "cli/console.h"
#include "cli/recording_engine.h"
#include "engine/bundled_engine_client.h"
#include "store/app_store.h"
#include "store/manual_executor.h"
#include "trash/trash_client.h"

namespace brisko::cli {

class CountingTrashClient;

struct CliSessionOptions {
  // Records the engine's answers as they pass (for `--json`); none for words.
  RecordingEngineClient::Recorder recorder;
  // Whether scans look at installers; none leaves it to the user's setting.
  std::optional<bool> scansInstallers;
};

class CliSession {
 public:
  CliSession(Console& console, CliSessionOptions options);
  ~CliSession();
  CliSession(const CliSession&) = delete;
  CliSession& operator=(const CliSession&) = delete;

  // Read only between calls below, on the command's thread.
  const AppStore& store() const { return *store_; }
  EngineClient& engine() { return *engine_; }

  // Runs `call` on the main executor, and whatever is ready after it.
  void onMain(const std::function<void(AppStore&)>& call);

  // Pumps the executor until `done` holds, calling `tick` after every task
  // (for the progress line). Both run on the main executor.
  void runUntil(const std::function<bool(const AppStore&)>& done,
                const std::function<void(const AppStore&)>& tick = {});

  // Scans and waits for the end of the scan and of the Trash's reading
  // beside it, with a progress line. Throws std::runtime_error with the
  // store's text when the scan failed.
  void scan();

 private:
  Console& console_;
  ManualExecutor executor_;
  std::shared_ptr<EngineClient> engine_;
  std::shared_ptr<CountingTrashClient> trash_;
  std::unique_ptr<AppStore> store_;
};

// The line that stands for the scan's progress.
std::string scanProgressLine(const AppStore& store);

}  // namespace brisko::cli
