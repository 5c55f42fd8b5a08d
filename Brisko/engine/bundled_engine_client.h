#pragma once

// The engine client that runs the real `BriskoEngine`, one child process a
// command. Copies share one process session, so at most one streaming command
// runs at a time across all of them, and any copy's cancel reaches it.
//
// Single-answer commands (`capabilities`, `overview`, `createPlan`) run beside
// a streaming one and beside each other, and can't be cancelled.

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "engine/engine_client.h"
#include "engine/engine_process_session.h"
#include "settings/settings_store.h"

namespace brisko {

class BundledEngineClient : public EngineClient {
 public:
  // `executable` none means the engine couldn't be found: every operation then
  // fails with `executableMissing`. `settings` is read afresh at each scan.
  BundledEngineClient(std::optional<std::string> executable, SettingsStore settings);

  // The installed engine (`bundledExecutablePath`) and the user's settings.
  BundledEngineClient();

  // `BriskoEngine` beside the running executable, else in
  // `../libexec/brisko/` from it; none when neither exists.
  static std::optional<std::string> bundledExecutablePath();

  const std::optional<std::string>& executable() const { return executable_; }

  // Stands in for the setting "scan.downloadedInstallers" in every later scan
  // of this client (as `brisko scan --exclude-installers` asks), without
  // writing the user's settings. Call before the first scan.
  void overrideDownloadedInstallers(bool scanned) { installersOverride_ = scanned; }

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
  // The executable when it is there and executable; else throws
  // `executableMissing`.
  std::string runnableExecutable() const;

  std::string runSingleAnswer(std::vector<std::string> arguments, std::string input = {});

  template <typename Event>
  EventStream<Event> stream(std::vector<std::string> arguments, std::string input = {});

  std::optional<std::string> executable_;
  SettingsStore settings_;
  std::optional<bool> installersOverride_;
  std::shared_ptr<EngineProcessSession> session_;
};

}  // namespace brisko
