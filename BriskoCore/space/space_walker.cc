#include "space/space_walker.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <span>

#include "base/path_components.h"
#include "base/utf8.h"
#include "platform/bulk_directory_lister.h"
#include "platform/walk_width.h"
#include "space/space_folding.h"
#include "space/space_naming.h"
#include "space/space_reuse_oracle.h"

namespace brisko {
namespace {

// Slots kept by a worker between folders; a huge folder's are given back.
constexpr size_t kRetainedSlots = 65536;

// Names and paths go into JSON, which must be UTF-8. A repaired text no
// longer names anything on disk, which is what keeps such an entry from ever
// being acted on.
std::string shownText(const std::string& raw) {
  return isValidUtf8(raw) ? raw : repairedUtf8(raw);
}

std::string joinPath(const std::string& directory, const std::string& name) {
  if (!directory.empty() && directory.back() == '/') return directory + name;
  return directory + "/" + name;
}

int weightOf(const std::string& name, bool isHidden) {
  if (isHidden) return 80;
  if (name == "Library") return 100;
  if (name == "Downloads") return 70;
  if (name == "Documents") return 60;
  if (name == "Movies") return 55;
  if (name == "Pictures") return 50;
  if (name == "Music") return 45;
  if (name == "Desktop") return 40;
  if (name == "Applications") return 30;
  return 10;
}

void sortNodes(std::vector<SpaceNode>& nodes) {
  std::sort(nodes.begin(), nodes.end(), [](const SpaceNode& a, const SpaceNode& b) {
    if (a.bytes != b.bytes) return a.bytes > b.bytes;
    if (a.name != b.name) return a.name < b.name;
    return a.path < b.path;
  });
}

// Keeps the first `kept` nodes and replaces the rest, together with `tinyCount`
// items of `tinyBytes` that never became nodes, by one row at `groupPath`.
void cutToGroup(std::vector<SpaceNode>& nodes, size_t kept, std::int64_t tinyBytes,
                std::int64_t tinyCount, const std::string& groupPath) {
  SpaceNode group;
  group.id = groupPath;
  group.path = groupPath;
  group.kind = SpaceNodeKind::otherGroup;
  group.bytes = tinyBytes;
  group.itemCount = tinyCount;
  std::int64_t count = tinyCount;
  for (size_t i = kept; i < nodes.size(); ++i) {
    group.bytes += nodes[i].bytes;
    group.itemCount += nodes[i].itemCount;
    group.isPartial = group.isPartial || nodes[i].isPartial;
    ++count;
  }
  group.name = SpaceNaming::moreItemsName(count);
  nodes.resize(kept);
  nodes.push_back(std::move(group));
}

SpaceNode fileNode(const std::string& path, const std::string& name, std::int64_t bytes,
                   bool mayShareStorage) {
  SpaceNode node;
  node.id = shownText(path);
  node.path = node.id;
  node.name = shownText(name);
  node.bytes = bytes;
  node.itemCount = 1;
  node.kind = SpaceNodeKind::file;
  node.sharedBytes = mayShareStorage ? bytes : 0;
  return node;
}

// The group rows of the top level: sorted, no size floor, cut to the top.
void finishTopLevel(std::vector<SpaceNode>& nodes, std::int64_t top, const std::string& groupPath) {
  sortNodes(nodes);
  if (static_cast<std::int64_t>(nodes.size()) > top)
    cutToGroup(nodes, static_cast<size_t>(top), 0, 0, groupPath);
}

void sumInto(SpaceNode& total, const std::vector<SpaceNode>& parts) {
  for (const auto& part : parts) {
    total.bytes += part.bytes;
    total.itemCount += part.itemCount;
    total.sharedBytes += part.sharedBytes;
    total.isPartial = total.isPartial || part.isPartial;
  }
}

}  // namespace

SpaceWalker::SpaceWalker(std::string home, SpaceTreeBuilder::Options options,
                         SpaceTreeBuilder::StartedHandler onStarted,
                         SpaceTreeBuilder::RootEntryHandler onRootEntry,
                         SpaceTreeBuilder::ActivityHandler onActivity,
                         const SpaceReuseOracle* reuse, const std::atomic<bool>* stop)
    : home_(std::move(home)),
      options_(options),
      onStarted_(std::move(onStarted)),
      onRootEntry_(std::move(onRootEntry)),
      onActivity_(std::move(onActivity)),
      reuse_(reuse),
      stop_(stop),
      largeFiles_(options.largeFileThreshold, options.maximumLargeFiles),
      budget_(options.entryBudget),
      lastPulse_(std::chrono::steady_clock::now()) {}

SpaceWalker::~SpaceWalker() {
  for (auto& helper : helpers_) {
    if (helper.joinable()) helper.join();
  }
}

SpaceTreeBuilder::Result SpaceWalker::run() {
  listRootEntries();

  {
    std::lock_guard guard(progressLock_);
    ledger_ = ScanProgressLedger(static_cast<std::int64_t>(entries_.size()));
    for (int i = 0; i < static_cast<int>(entries_.size()); ++i)
      unfinished_.insert(i);
  }
  if (onStarted_) onStarted_(static_cast<std::int64_t>(entries_.size()));

  std::vector<BoxPtr> rootBoxes;
  for (int index = 0; index < static_cast<int>(entries_.size()); ++index) {
    const RootEntry& entry = entries_[index];
    struct stat info;
    if (::fstatat(homeDescriptor_.get(), entry.leafName.c_str(), &info, AT_SYMLINK_NOFOLLOW) != 0) {
      finishRootEntry(index, std::nullopt, 0);
      continue;
    }
    const bool shown = isValidUtf8(entry.leafName);
    if (!shown) ++leftOut_;
    if (!S_ISDIR(info.st_mode)) {
      // Only regular files hold blocks of their own in the tree; links and
      // special files count 0, as they do in directory listings.
      const std::int64_t bytes =
          S_ISREG(info.st_mode) ? static_cast<std::int64_t>(info.st_blocks) * 512 : 0;
      if (!shown) {
        SpaceNode counted;
        counted.bytes = bytes;
        counted.itemCount = 1;
        leaveOutOfRoot(counted);
        finishRootEntry(index, std::nullopt, 0);
        continue;
      }
      SpaceNode node = fileNode(entry.path, entry.displayName, bytes, false);
      finishRootEntry(index, std::move(node), bytes);
      continue;
    }
    if (reuse_ != nullptr) {
      if (const SpaceNode* stored = reuse_->reusableNode(entry.path)) {
        finishRootEntry(index, *stored, stored->bytes);
        continue;
      }
    }
    auto box = std::make_shared<Box>();
    box->path = entry.path;
    box->displayName = entry.displayName;
    box->rootIndex = index;
    box->foldedRoot = SpaceFolding::isFolded(entry.leafName, std::nullopt);
    box->retainsChildren = !box->foldedRoot;
    box->isHomeLibrary = entry.leafName == "Library";
    box->folder = FolderHandle::child(homeFolder_, entry.leafName);
    box->shown = shown;
    rootBoxes.push_back(std::move(box));
  }
  if (homeFolder_) homeFolder_->finishedReading(std::move(homeDescriptor_), rootBoxes.size());
  {
    std::lock_guard guard(progressLock_);
    for (const auto& box : rootBoxes)
      rootBoxes_[box->rootIndex] = box;
  }
  std::reverse(rootBoxes.begin(), rootBoxes.end());  // the heaviest on top
  push(std::move(rootBoxes));

  workerLoop();
  auto result = assemble();
  for (auto& helper : helpers_)
    helper.join();
  result.helperCount = static_cast<std::int64_t>(helpers_.size());
  helpers_.clear();
  return result;
}

void SpaceWalker::listRootEntries() {
  // The home folder itself may be reached through a link (/home → /usr/home);
  // only what lies inside it is never followed.
  homeFolder_ = FolderHandle::root(home_, /*followsLinkAtRoot=*/true);
  int error = 0;
  homeDescriptor_ = homeFolder_->open(error);
  const int fd = homeDescriptor_.valid() ? ::fcntl(homeDescriptor_.get(), F_DUPFD_CLOEXEC, 0) : -1;
  DIR* stream = fd >= 0 ? ::fdopendir(fd) : nullptr;
  if (stream == nullptr) {
    if (fd >= 0) ::close(fd);
    rootDenied_ = true;
    return;
  }
  std::vector<RootEntry> entries;
  for (;;) {
    errno = 0;
    const dirent* record = ::readdir(stream);
    if (record == nullptr) {
      if (errno != 0) {
        entries.clear();
        rootDenied_ = true;
      }
      break;
    }
    const std::string name = record->d_name;
    if (name == "." || name == "..") continue;
    RootEntry entry;
    entry.path = joinPath(home_, name);
    entry.leafName = name;
    entry.displayName = SpaceNaming::displayName(entry.path, name);
    entry.isHidden = name.starts_with(".");
    entry.weight = weightOf(name, entry.isHidden);
    entries.push_back(std::move(entry));
  }
  ::closedir(stream);
  std::stable_sort(entries.begin(), entries.end(), [](const RootEntry& a, const RootEntry& b) {
    if (a.weight != b.weight) return a.weight > b.weight;
    return a.leafName < b.leafName;
  });
  entries_ = std::move(entries);
}

void SpaceWalker::push(std::vector<BoxPtr> boxes) {
  if (boxes.empty()) return;
  size_t count = 0;
  {
    std::lock_guard guard(condLock_);
    for (auto& box : boxes)
      queue_.push_back(std::move(box));
    count = queue_.size();
  }
  if (boxes.size() == 1) {
    cond_.notify_one();
  } else {
    cond_.notify_all();
  }
  if (count >= 4) startHelpers();
}

SpaceWalker::BoxPtr SpaceWalker::take() {
  std::unique_lock guard(condLock_);
  while (queue_.empty()) {
    if (inFlight_ == 0) return nullptr;
    cond_.wait(guard);
  }
  BoxPtr box = std::move(queue_.back());
  queue_.pop_back();
  ++inFlight_;
  return box;
}

void SpaceWalker::startHelpers() {
  if (!options_.parallel) return;
  {
    std::lock_guard guard(condLock_);
    if (helpersSpawned_) return;
    helpersSpawned_ = true;
  }
  // Only the first caller gets here, and run() joins only after its own loop
  // has ended, which cannot happen before this push's boxes are done.
  const unsigned helpers = std::max(treeWalkWidth(), 2u) - 1;
  for (unsigned i = 0; i < helpers; ++i)
    helpers_.emplace_back([this] { workerLoop(); });
}

void SpaceWalker::workerLoop() {
  std::int64_t allowance = 0;
  while (BoxPtr box = take()) {
    process(box, allowance);
    box.reset();
    std::lock_guard guard(condLock_);
    if (--inFlight_ == 0) cond_.notify_all();
  }
}

void SpaceWalker::process(const BoxPtr& box, std::int64_t& allowance) {
  const std::string parentName = lastPathComponent(box->path);
  const bool stopped = stop_ != nullptr && stop_->load(std::memory_order_relaxed);

  // One set of slots per worker thread, reused for every folder it reads.
  thread_local std::vector<BulkDirectoryEntry> slots;
  size_t count = 0;
  bool failed = false;
  bool denied = false;
  const auto noteFailure = [&](const BulkDirectoryLister::Failure& failure) {
    failed = true;
    denied = failure.kind == BulkDirectoryLister::Failure::Kind::permissionDenied;
  };
  Descriptor folder;
  if (!stopped) {
    int error = 0;
    folder = box->folder->open(error);
    if (!folder.valid()) noteFailure(BulkDirectoryLister::failureFromErrno(error));
  }
  if (folder.valid() && options_.usesBulkEnumeration) {
    if (auto failure = BulkDirectoryLister::listOpenInto(folder.get(), slots, count))
      noteFailure(*failure);
  }
  if (folder.valid() && (!options_.usesBulkEnumeration || (failed && !denied))) {
    auto slow = BulkDirectoryLister::listOpenSlowly(folder.get());
    if (auto* listed = std::get_if<std::vector<BulkDirectoryEntry>>(&slow)) {
      failed = false;
      count = listed->size();
      slots = std::move(*listed);
    } else {
      noteFailure(std::get<BulkDirectoryLister::Failure>(slow));
    }
  }
  const std::span<const BulkDirectoryEntry> entries(slots.data(), failed ? 0 : count);

  std::int64_t fileBytes = 0, fileCount = 0, sharedFileBytes = 0, tinyBytes = 0, tinyCount = 0;
  std::vector<SpaceNode> fileNodes;
  std::vector<const SpaceNode*> reusedNodes;
  std::vector<BoxPtr> newBoxes;
  bool cutShort = stopped;

  for (const auto& entry : entries) {
    if (allowance == 0) {
      allowance = budget_.take();
      if (allowance == 0) {
        cutShort = true;
        break;
      }
    }
    --allowance;

    // A name that isn't valid text can't cross as JSON without being
    // repaired, and a repaired name would point at another place, perhaps a
    // real sibling: such an entry is counted, never shown.
    const bool shown = isValidUtf8(entry.name);
    if (!shown && box->shown) ++leftOut_;

    if (entry.kind == BulkDirectoryEntry::Kind::directory) {
      std::string childPath = joinPath(box->path, entry.name);
      if (reuse_ != nullptr && shown) {
        if (const SpaceNode* stored = reuse_->reusableNode(childPath)) {
          reusedNodes.push_back(stored);
          continue;
        }
      }
      if (isBeyondWalkLimits(box->folder->depth() + 1, childPath.size())) {
        // Not entered: the walk is partial here, and says so once.
        cutShort = true;
        ++tooDeep_;
        continue;
      }
      auto child = std::make_shared<Box>();
      if (box->isHomeLibrary && entry.name == "Mobile Documents") {
        child->displayName = SpaceNaming::iCloudDriveName;
        child->foldedRoot = true;
      } else {
        child->foldedRoot = SpaceFolding::isFolded(entry.name, parentName);
        child->displayName = entry.name;
      }
      child->path = std::move(childPath);
      child->shown = shown && box->shown;
      child->retainsChildren = box->retainsChildren && child->shown && !child->foldedRoot;
      child->parent = box;
      child->folder = FolderHandle::child(box->folder, entry.name);
      newBoxes.push_back(std::move(child));
      continue;
    }

    const std::int64_t bytes = entry.allocatedBytes;
    fileBytes += bytes;
    fileCount += 1;
    if (entry.mayShareStorage) sharedFileBytes += bytes;
    const bool pathShown = shown && box->shown;
    const bool isLarge = pathShown && entry.kind == BulkDirectoryEntry::Kind::file &&
                         bytes >= largeFiles_.threshold();
    const bool keepsNode = pathShown && box->retainsChildren && bytes >= options_.minimumChildBytes;
    if (isLarge || keepsNode) {
      const std::string childPath = joinPath(box->path, entry.name);
      if (isLarge)
        largeFiles_.offer(bytes, shownText(childPath), shownText(entry.name),
                          entry.modificationDate);
      if (keepsNode)
        fileNodes.push_back(fileNode(childPath, entry.name, bytes, entry.mayShareStorage));
      else if (box->retainsChildren) {
        tinyBytes += bytes;
        tinyCount += 1;
      }
    } else if (box->retainsChildren) {
      tinyBytes += bytes;
      tinyCount += 1;
    }
  }

  std::int64_t foldedBytes = fileBytes;
  {
    std::lock_guard guard(box->lock);
    if (box->retainsChildren) {
      for (auto& node : fileNodes)
        box->children.push_back(std::move(node));
    }
    box->bytes += fileBytes;
    box->itemCount += fileCount;
    box->sharedBytes += sharedFileBytes;
    for (const SpaceNode* stored : reusedNodes) {
      if (box->retainsChildren) box->children.push_back(*stored);
      box->bytes += stored->bytes;
      box->itemCount += stored->itemCount;
      box->sharedBytes += stored->sharedBytes;
      box->isPartial = box->isPartial || stored->isPartial;
      foldedBytes += stored->bytes;
    }
    box->tinyBytes += tinyBytes;
    box->tinyCount += tinyCount;
    box->isPartial = box->isPartial || cutShort;
    box->accessDenied = denied;
    box->pending += static_cast<std::int64_t>(newBoxes.size());
    if (box->rootIndex >= 0) box->childDirsTotal = static_cast<std::int64_t>(newBoxes.size());
  }
  if (foldedBytes >= 1) measuredBytes_ += foldedBytes;

  if (slots.size() > kRetainedSlots) {
    slots.clear();
    slots.shrink_to_fit();
  }
  if (folder.valid()) box->folder->finishedReading(std::move(folder), newBoxes.size());
  push(std::move(newBoxes));
  complete(box);
  pulse();
}

void SpaceWalker::complete(BoxPtr box) {
  while (box) {
    SpaceNode node;
    {
      std::lock_guard guard(box->lock);
      if (--box->pending != 0) return;
      node = buildNode(*box);
    }
    if (box->rootIndex >= 0) {
      if (box->shown) {
        finishRootEntry(box->rootIndex, std::move(node), 0);
      } else {
        leaveOutOfRoot(node);
        finishRootEntry(box->rootIndex, std::nullopt, 0);
      }
      return;
    }
    BoxPtr parent = box->parent;
    if (!parent) return;
    {
      std::lock_guard guard(parent->lock);
      parent->bytes += node.bytes;
      parent->itemCount += node.itemCount;
      parent->sharedBytes += node.sharedBytes;
      parent->isPartial = parent->isPartial || node.isPartial;
      if (parent->rootIndex >= 0) ++parent->childDirsFinished;
      if (parent->retainsChildren && box->shown) {
        parent->children.push_back(std::move(node));
      } else if (parent->retainsChildren) {
        // Counted in its parent among the items too small to show.
        parent->tinyBytes += node.bytes;
        parent->tinyCount += 1;
      }
    }
    // Nothing touches a finished box again; drop its link so that a deep
    // chain is freed as it goes.
    box->parent.reset();
    box = std::move(parent);
  }
}

SpaceNode SpaceWalker::buildNode(Box& box) const {
  SpaceNode node;
  node.id = shownText(box.path);
  node.path = node.id;
  node.name = shownText(box.displayName);
  node.bytes = box.bytes;
  node.itemCount = box.itemCount;
  node.isPartial = box.isPartial;
  node.accessDenied = box.accessDenied;
  node.sharedBytes = box.sharedBytes;
  node.kind = box.foldedRoot ? SpaceNodeKind::folded : SpaceNodeKind::directory;
  node.children = std::move(box.children);
  box.children.clear();

  auto& children = node.children;
  sortNodes(children);
  size_t shown = 0;
  while (shown < children.size() && children[shown].bytes >= options_.minimumChildBytes)
    ++shown;
  const size_t top = static_cast<size_t>(std::max<std::int64_t>(options_.topChildrenPerLevel, 0));
  const size_t kept = std::min(shown, top);
  if (kept != children.size() || box.tinyCount != 0)
    cutToGroup(children, kept, box.tinyBytes, box.tinyCount, node.path + "#other");
  return node;
}

void SpaceWalker::leaveOutOfRoot(const SpaceNode& node) {
  std::lock_guard guard(progressLock_);
  leftOutOfRoot_.bytes += node.bytes;
  leftOutOfRoot_.itemCount += node.itemCount;
  leftOutOfRoot_.sharedBytes += node.sharedBytes;
  leftOutOfRoot_.isPartial = leftOutOfRoot_.isPartial || node.isPartial;
  measuredBytes_ += node.bytes;
}

void SpaceWalker::finishRootEntry(int index, std::optional<SpaceNode> node, std::int64_t bytes) {
  std::lock_guard guard(progressLock_);
  measuredBytes_ += bytes;
  unfinished_.erase(index);
  rootBoxes_.erase(index);
  std::string title = unfinished_.empty() ? entries_[static_cast<size_t>(index)].displayName
                                          : mostImportantUnfinishedTitleLocked();
  ledger_.finishedLocation(title);
  if (node) {
    if (onRootEntry_) onRootEntry_(*node, progressLocked(shownText(title)));
    rootNodes_[index] = std::move(*node);
  }
}

std::string SpaceWalker::mostImportantUnfinishedTitleLocked() const {
  const RootEntry* best = nullptr;
  for (int index : unfinished_) {
    const RootEntry& entry = entries_[static_cast<size_t>(index)];
    if (best == nullptr || entry.weight > best->weight ||
        (entry.weight == best->weight && entry.displayName < best->displayName))
      best = &entry;
  }
  return best != nullptr ? best->displayName : std::string();
}

SpaceScanProgress SpaceWalker::progressLocked(std::string title) {
  double fraction = static_cast<double>(ledger_.completed());
  for (const auto& [index, box] : rootBoxes_) {
    std::lock_guard guard(box->lock);
    if (box->childDirsTotal >= 1)
      fraction += std::min(1.0, static_cast<double>(box->childDirsFinished) /
                                    static_cast<double>(box->childDirsTotal));
  }
  fraction /= static_cast<double>(std::max<std::int64_t>(ledger_.totalLocations(), 1));
  peakFineFraction_ = std::max(peakFineFraction_, std::min(fraction, 1.0));

  SpaceScanProgress progress;
  progress.completedLocations = ledger_.completed();
  progress.totalLocations = ledger_.totalLocations();
  progress.currentTitle = std::move(title);
  progress.fineFraction = peakFineFraction_;
  progress.measuredBytes = measuredBytes_.load();
  return progress;
}

void SpaceWalker::pulse() {
  if (!onActivity_) return;
  std::lock_guard guard(progressLock_);
  const auto now = std::chrono::steady_clock::now();
  if (std::chrono::duration<double>(now - lastPulse_).count() < options_.progressPulseInterval)
    return;
  if (unfinished_.empty()) return;
  lastPulse_ = now;
  onActivity_(progressLocked(shownText(mostImportantUnfinishedTitleLocked())));
}

SpaceTreeBuilder::Result SpaceWalker::assemble() {
  std::vector<SpaceNode> visible;
  std::vector<SpaceNode> hidden;
  {
    std::lock_guard guard(progressLock_);
    for (int index = 0; index < static_cast<int>(entries_.size()); ++index) {
      auto found = rootNodes_.find(index);
      if (found == rootNodes_.end()) continue;
      (entries_[static_cast<size_t>(index)].isHidden ? hidden : visible)
          .push_back(std::move(found->second));
    }
    rootNodes_.clear();
  }

  const std::string homePath = shownText(home_);
  if (!hidden.empty()) {
    SpaceNode group;
    group.id = homePath + "#hidden";
    group.path = group.id;
    group.name = SpaceNaming::hiddenItemsName;
    group.kind = SpaceNodeKind::hiddenGroup;
    sumInto(group, hidden);
    group.children = std::move(hidden);
    finishTopLevel(group.children, options_.topChildrenPerLevel, group.id + "#other");
    visible.push_back(std::move(group));
  }

  const bool exhausted = budget_.exhausted();
  SpaceTreeBuilder::Result result;
  result.root.id = homePath;
  result.root.path = homePath;
  result.root.name = SpaceNaming::homeFolderName;
  result.root.kind = SpaceNodeKind::directory;
  result.root.accessDenied = rootDenied_;
  sumInto(result.root, visible);
  {
    // Entries of the home folder whose names aren't text: not rows, but
    // their bytes are the home folder's all the same.
    std::lock_guard guard(progressLock_);
    sumInto(result.root, {leftOutOfRoot_});
  }
  result.root.isPartial = result.root.isPartial || exhausted;
  result.root.children = std::move(visible);
  finishTopLevel(result.root.children, options_.topChildrenPerLevel, homePath + "#other");

  if (rootDenied_) result.warnings.push_back(SpaceTreeBuilder::homeUnreadableWarning);
  if (exhausted) result.warnings.push_back(SpaceTreeBuilder::budgetExhaustedWarning);
  if (const std::int64_t count = leftOut_.load(); count > 0)
    result.warnings.push_back(SpaceNaming::leftOutNamesWarning(count));
  if (const std::int64_t count = tooDeep_.load(); count > 0)
    result.warnings.push_back(SpaceNaming::tooDeepWarning(count));
  result.largeFiles = largeFiles_.sortedItems();
  result.rootEntryCount = static_cast<std::int64_t>(entries_.size());
  return result;
}

SpaceTreeBuilder::SpaceTreeBuilder() : options_() {}

SpaceTreeBuilder::Result SpaceTreeBuilder::build(const std::string& home, StartedHandler onStarted,
                                                 RootEntryHandler onRootEntry,
                                                 ActivityHandler onActivity,
                                                 const SpaceReuseOracle* reuse,
                                                 const std::atomic<bool>* stop) const {
  SpaceWalker walker(home, options_, std::move(onStarted), std::move(onRootEntry),
                     std::move(onActivity), reuse, stop);
  return walker.run();
}

}  // namespace brisko
