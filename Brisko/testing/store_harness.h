#pragma once

// What the store's tests share: a hand-run main executor with the store on
// it, a Trash client that answers as told, and fixture sets for the debug
// engine written from records.

#include <atomic>
#include <condition_variable>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "engine/debug_mock_engine.h"
#include "protocol/json_codec.h"
#include "store/app_store.h"
#include "store/manual_executor.h"
#include "trash/trash_client.h"

namespace brisko::testing {

// A Trash that answers from a script, for the cases the real Trash can't
// produce here: Finder's refusals and an empty that takes its time.
class ScriptedTrash : public TrashClient {
 public:
  // Each inventory takes the next answer; the last one repeats. With none,
  // the inventory fails (reason `other`), so no Trash row shows.
  void answerInventory(std::function<FinderTrash::Inventory()> answer);
  void answerEmpty(std::function<void()> answer);
  // `empty` waits until `release` is called.
  void holdEmpty();
  void release();

  FinderTrash::Inventory inventory() override;
  void empty() override;

  int inventoryCalls() const { return inventoryCalls_; }
  int emptyCalls() const { return emptyCalls_; }

 private:
  std::mutex lock_;
  std::condition_variable released_;
  bool held_ = false;                                                     // guarded by lock_
  std::deque<std::function<FinderTrash::Inventory()>> inventoryAnswers_;  // guarded by lock_
  std::function<void()> emptyAnswer_;                                     // guarded by lock_
  std::atomic<int> inventoryCalls_ = 0;
  std::atomic<int> emptyCalls_ = 0;
};

FinderTrash::Inventory inventoryOf(std::vector<std::pair<std::string, std::int64_t>> entries);

// Writes a fixture set for `DebugMockEngine` into a folder.
class FixtureSet {
 public:
  explicit FixtureSet(std::string folder) : folder_(std::move(folder)) {}
  const std::string& folder() const { return folder_; }

  template <typename Record>
  void answer(const std::string& command, const Record& record) {
    write(command + ".json", encodeJson(record));
  }
  template <typename Event>
  void stream(const std::string& command, const std::vector<Event>& events,
              const std::string& trailingLines = {}) {
    std::string text;
    for (const Event& event : events)
      text += encodeJson(event) + "\n";
    write(command + ".jsonl", text + trailingLines);
  }
  void failWith(const std::string& command, const std::string& standardError) {
    write(command + ".stderr", standardError);
  }

 private:
  void write(const std::string& name, const std::string& contents) const;
  std::string folder_;
};

// A store on a hand-run executor, whose Full Disk Access poll wakes three
// times, a millisecond apart. Operations run through `onMain`, which runs the
// loop until the call has run on it.
class StoreHarness {
 public:
  explicit StoreHarness(std::shared_ptr<EngineClient> engine,
                        std::shared_ptr<TrashClient> trash = nullptr,
                        std::string trashFolder = "/home/u/.local/share/Trash",
                        std::function<bool()> probe = nullptr);
  ~StoreHarness();

  ManualExecutor executor;
  std::unique_ptr<AppStore> store;

  void onMain(const std::function<void(AppStore&)>& call);
  // Runs the loop until `done` holds (checked on the loop's thread).
  bool runUntil(const std::function<bool(const AppStore&)>& done,
                std::chrono::milliseconds timeout = std::chrono::seconds(60));
  // Runs the loop until no scan and no clean runs.
  bool settle();

  // The changes told to the subscriber, one entry per notice.
  std::vector<StoreFields> notices;

 private:
  StoreObservers::Subscription subscription_;
};

}  // namespace brisko::testing
