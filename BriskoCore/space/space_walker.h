#pragma once

// The state of one space scan, shared by all of its threads. Used through
// SpaceTreeBuilder::build; lives for one scan.

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "platform/folder_walk.h"
#include "rules/scan_progress_ledger.h"
#include "space/entry_budget.h"
#include "space/large_file_heap.h"
#include "space/space_tree_builder.h"

namespace brisko {

class SpaceWalker {
 public:
  SpaceWalker(std::string home, SpaceTreeBuilder::Options options,
              SpaceTreeBuilder::StartedHandler onStarted,
              SpaceTreeBuilder::RootEntryHandler onRootEntry,
              SpaceTreeBuilder::ActivityHandler onActivity, const SpaceReuseOracle* reuse,
              const std::atomic<bool>* stop);
  ~SpaceWalker();

  SpaceWalker(const SpaceWalker&) = delete;
  SpaceWalker& operator=(const SpaceWalker&) = delete;

  SpaceTreeBuilder::Result run();

 private:
  struct RootEntry {
    std::string path;
    std::string leafName;
    std::string displayName;
    bool isHidden = false;
    int weight = 0;
  };

  // One directory under way. The queue, its children's parent links and the
  // thread that processes it share it.
  struct Box {
    std::string path;
    std::string displayName;
    std::shared_ptr<Box> parent;
    FolderHandle::Ptr folder;
    // False for a folder whose name isn't valid text: it can't be a row, so
    // its sizes join its parent's small items instead.
    bool shown = true;
    int rootIndex = -1;  // root boxes only
    bool foldedRoot = false;
    bool retainsChildren = true;
    bool isHomeLibrary = false;

    std::mutex lock;
    std::int64_t pending = 1;  // its own listing, plus one per child box
    std::vector<SpaceNode> children;
    std::int64_t bytes = 0;
    std::int64_t itemCount = 0;
    bool isPartial = false;
    bool accessDenied = false;
    std::int64_t childDirsTotal = 0;
    std::int64_t childDirsFinished = 0;
    std::int64_t tinyBytes = 0;
    std::int64_t tinyCount = 0;
    std::int64_t sharedBytes = 0;
  };
  using BoxPtr = std::shared_ptr<Box>;

  void listRootEntries();
  void push(std::vector<BoxPtr> boxes);
  BoxPtr take();
  void startHelpers();
  void workerLoop();
  void process(const BoxPtr& box, std::int64_t& allowance);
  void complete(BoxPtr box);
  SpaceNode buildNode(Box& box) const;
  void leaveOutOfRoot(const SpaceNode& node);
  void finishRootEntry(int index, std::optional<SpaceNode> node, std::int64_t bytes);
  SpaceScanProgress progressLocked(std::string title);
  std::string mostImportantUnfinishedTitleLocked() const;
  void pulse();
  SpaceTreeBuilder::Result assemble();

  const std::string home_;
  const SpaceTreeBuilder::Options options_;
  const SpaceTreeBuilder::StartedHandler onStarted_;
  const SpaceTreeBuilder::RootEntryHandler onRootEntry_;
  const SpaceTreeBuilder::ActivityHandler onActivity_;
  const SpaceReuseOracle* const reuse_;
  const std::atomic<bool>* const stop_;

  LargeFileHeap largeFiles_;
  EntryBudget budget_;
  bool rootDenied_ = false;
  FolderHandle::Ptr homeFolder_;
  Descriptor homeDescriptor_;  // held until the root boxes are made
  // Entries left out of the tree for a name that isn't valid text, and
  // folders past the walk's depth.
  std::atomic<std::int64_t> leftOut_{0};
  std::atomic<std::int64_t> tooDeep_{0};

  std::mutex condLock_;
  std::condition_variable cond_;
  std::vector<BoxPtr> queue_;
  std::int64_t inFlight_ = 0;
  bool helpersSpawned_ = false;
  std::vector<std::thread> helpers_;

  std::mutex progressLock_;
  ScanProgressLedger ledger_{0};
  std::vector<RootEntry> entries_;
  std::set<int> unfinished_;
  std::map<int, SpaceNode> rootNodes_;
  std::map<int, BoxPtr> rootBoxes_;
  // Added to from every box; read for reports under progressLock_.
  std::atomic<std::int64_t> measuredBytes_{0};
  std::chrono::steady_clock::time_point lastPulse_;
  SpaceNode leftOutOfRoot_;  // sums of home entries that aren't rows
  double peakFineFraction_ = 0;
};

}  // namespace brisko
