#pragma once

// Measures the home folder into a tree of SpaceNode for the size map, with the
// largest files met on the way. Many threads walk together over one shared
// stack of directories; each directory's result rolls up into its parent the
// moment its last child is done, and a stored tree can be grafted in wherever
// nothing changed.

#include <atomic>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "protocol/space_records.h"

namespace brisko {

class SpaceReuseOracle;

class SpaceTreeBuilder {
 public:
  struct Options {
    std::int64_t topChildrenPerLevel = 60;
    std::int64_t minimumChildBytes = 1'048'576;
    std::int64_t entryBudget = 30'000'000;  // negative counts as 0
    double progressPulseInterval = 0.3;     // seconds
    std::int64_t largeFileThreshold = 104'857'600;
    std::int64_t maximumLargeFiles = 200;  // under 1 counts as 1
    bool parallel = true;
    bool usesBulkEnumeration = true;
  };

  struct Result {
    SpaceNode root;
    std::vector<LargeFileItem> largeFiles;
    std::vector<std::string> warnings;
    std::int64_t rootEntryCount = 0;
    // Helper threads that joined the calling thread (0 when the work never
    // grew enough to share).
    std::int64_t helperCount = 0;
  };

  // Given the number of root entries, once, before any other call.
  using StartedHandler = std::function<void(std::int64_t)>;
  // One root entry is finished. Called under the walker's progress lock, from
  // whichever thread finished it: keep it quick, and don't call back in.
  using RootEntryHandler = std::function<void(const SpaceNode&, const SpaceScanProgress&)>;
  // A progress pulse, at most once per pulse interval; same rules as above.
  using ActivityHandler = std::function<void(const SpaceScanProgress&)>;

  static constexpr const char* homeUnreadableWarning =
      "Can\u2019t read the home folder; there are no results to show this time.";
  static constexpr const char* budgetExhaustedWarning =
      "The home folder is very large; the scan hit its safety limit and some folders were only "
      "partially measured.";

  SpaceTreeBuilder();
  explicit SpaceTreeBuilder(Options options) : options_(options) {}

  // Runs the whole scan, with the calling thread as one of the workers, and
  // returns when it is done. Never fails: what can't be read is marked in the
  // tree and in the warnings. Once `stop` is set, the folders not yet read are
  // left unread and marked partial, so the walk ends soon.
  Result build(const std::string& home, StartedHandler onStarted = nullptr,
               RootEntryHandler onRootEntry = nullptr, ActivityHandler onActivity = nullptr,
               const SpaceReuseOracle* reuse = nullptr,
               const std::atomic<bool>* stop = nullptr) const;

 private:
  Options options_;
};

}  // namespace brisko
