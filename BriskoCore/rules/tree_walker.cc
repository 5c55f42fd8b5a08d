#include "rules/tree_walker.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <condition_variable>
#include <cstring>
#include <mutex>
#include <system_error>
#include <thread>
#include <vector>

#include "base/unicode_text.h"
#include "platform/folder_walk.h"
#include "platform/walk_width.h"

namespace brisko {

TreeTotals& TreeTotals::operator+=(const TreeTotals& other) {
  bytes += other.bytes;
  items += other.items;
  isPartial = isPartial || other.isPartial;
  skippedProtected += other.skippedProtected;
  skippedWhitelisted += other.skippedWhitelisted;
  skippedInvalid += other.skippedInvalid;
  foldersTooDeep += other.foldersTooDeep;
  return *this;
}

bool isPackageName(std::string_view name) {
  const size_t dot = name.rfind('.');
  if (dot == std::string_view::npos || dot == 0 || dot + 1 == name.size()) return false;
  static constexpr std::array<std::string_view, 9> extensions = {
      "app", "appex", "bundle", "framework", "kext", "plugin", "xpc", "photoslibrary", "xcarchive"};
  const std::string extension = lowercasedText(name.substr(dot + 1));
  return std::find(extensions.begin(), extensions.end(), extension) != extensions.end();
}

namespace {

constexpr std::int64_t kBudgetSlice = 512;
constexpr size_t kListingBufferSize = 64 * 1024;

enum class VisitResult { done, descend, capped };

struct EntryValues {
  bool readable = false;
  unsigned type = DT_UNKNOWN;
  std::int64_t allocatedBytes = 0;
  std::optional<Date> modificationDate;
};

Date dateOf(const struct statx_timestamp& time) {
  return dateFromFileTime(time.tv_sec, time.tv_nsec);
}

EntryValues statEntry(int directory, const char* name, bool wantsDate) {
  EntryValues values;
  struct statx status;
  unsigned mask = STATX_TYPE | STATX_BLOCKS;
  if (wantsDate) mask |= STATX_MTIME;
  if (::statx(directory, name, AT_SYMLINK_NOFOLLOW | AT_STATX_DONT_SYNC, mask, &status) != 0) {
    return values;
  }
  values.readable = true;
  values.type = IFTODT(status.stx_mode);
  if (status.stx_mask & STATX_BLOCKS) {
    values.allocatedBytes =
        std::max<std::int64_t>(static_cast<std::int64_t>(status.stx_blocks) * 512, 0);
  }
  if (wantsDate && (status.stx_mask & STATX_MTIME))
    values.modificationDate = dateOf(status.stx_mtime);
  return values;
}

std::string_view lastComponent(std::string_view path) {
  while (path.size() > 1 && path.back() == '/')
    path.remove_suffix(1);
  const size_t slash = path.rfind('/');
  return slash == std::string_view::npos ? path : path.substr(slash + 1);
}

class TreeWalker {
 public:
  explicit TreeWalker(const TreeWalkOptions& options)
      : options_(options), remaining_(std::max<std::int64_t>(options.maximumItems, 0)) {}

  TreeTotals walk(const std::string& root) {
    Worker worker;
    TreeTotals rootTotals;
    const EntryValues values = statEntry(AT_FDCWD, root.c_str(), wantsDate());
    const VisitResult result = visit(root, lastComponent(root), values, worker, rootTotals);
    merged_ += rootTotals;
    if (result == VisitResult::descend) {
      {
        std::lock_guard lock(cond_);
        pending_.push_back({FolderHandle::root(root, /*followsLinkAtRoot=*/false), root});
      }
      workerLoop(worker);
    }
    for (std::thread& helper : helpers_)
      helper.join();
    return merged_;
  }

 private:
  struct PendingFolder {
    FolderHandle::Ptr handle;
    std::string path;
  };

  struct Worker {
    std::int64_t slice = 0;
    std::vector<char> buffer = std::vector<char>(kListingBufferSize);
    std::string path;
    std::vector<PendingFolder> children;
  };

  bool wantsDate() const { return options_.modifiedBefore.has_value(); }

  bool isCancelled() const {
    return options_.cancelled != nullptr && options_.cancelled->load(std::memory_order_relaxed);
  }

  // One entry, with the caller's totals; the design of the scan in one place.
  VisitResult visit(const std::string& path, std::string_view name, const EntryValues& values,
                    Worker& worker, TreeTotals& totals) {
    if (!values.readable) {
      ++totals.skippedInvalid;
      return VisitResult::done;
    }
    if (values.type == DT_LNK) {
      // Links are never followed nor counted.
      ++totals.skippedInvalid;
      return VisitResult::done;
    }
    // A package is measured as nothing: neither walked nor added.
    const bool descend = values.type == DT_DIR && !isPackageName(name);
    if (options_.applySafetyPolicy && options_.policy != nullptr) {
      switch (options_.policy->evaluate(path, /*resolvingSymlinks=*/false).kind()) {
        case PathSafetyVerdict::Kind::invalid:
          ++totals.skippedInvalid;
          return descend ? VisitResult::descend : VisitResult::done;
        case PathSafetyVerdict::Kind::protected_:
          ++totals.skippedProtected;
          return descend ? VisitResult::descend : VisitResult::done;
        case PathSafetyVerdict::Kind::whitelisted:
          ++totals.skippedWhitelisted;
          return descend ? VisitResult::descend : VisitResult::done;
        case PathSafetyVerdict::Kind::allowed:
          break;
      }
    }
    if (values.type != DT_REG) return descend ? VisitResult::descend : VisitResult::done;
    if (options_.modifiedBefore) {
      if (!values.modificationDate || !(*values.modificationDate < *options_.modifiedBefore)) {
        return VisitResult::done;
      }
    }
    if (worker.slice == 0) {
      std::lock_guard lock(budgetLock_);
      worker.slice = std::min(remaining_, kBudgetSlice);
      remaining_ -= worker.slice;
    }
    if (worker.slice == 0) {
      totals.isPartial = true;
      return VisitResult::capped;
    }
    --worker.slice;
    totals.bytes += values.allocatedBytes;
    ++totals.items;
    return VisitResult::done;
  }

  std::optional<PendingFolder> pop() {
    std::unique_lock lock(cond_);
    while (true) {
      if (capped_) {
        if (inFlight_ == 0) return std::nullopt;
      } else if (!pending_.empty()) {
        PendingFolder next = std::move(pending_.back());
        pending_.pop_back();
        ++inFlight_;
        return next;
      } else if (inFlight_ == 0) {
        return std::nullopt;
      }
      changed_.wait(lock);
    }
  }

  void workerLoop(Worker& worker) {
    while (auto folder = pop()) {
      TreeTotals totals;
      worker.children.clear();
      const bool hitCap = listFolder(*folder, worker, totals);
      {
        std::lock_guard lock(resultLock_);
        merged_ += totals;
      }
      std::lock_guard lock(cond_);
      if (hitCap) {
        capped_ = true;
        pending_.clear();
      } else if (!capped_ && !worker.children.empty()) {
        const size_t heldBeforeLastPush = pending_.size() + worker.children.size() - 1;
        for (PendingFolder& child : worker.children)
          pending_.push_back(std::move(child));
        if (heldBeforeLastPush >= 3) spawnHelpersLocked();
      }
      --inFlight_;
      changed_.notify_all();
    }
  }

  // Lists one folder and visits its children; true when the budget ran out
  // (or the walk was cancelled). A folder that can't be listed counts as empty.
  bool listFolder(const PendingFolder& folder, Worker& worker, TreeTotals& totals) {
    if (isCancelled()) {
      totals.isPartial = true;
      return true;
    }
    int error = 0;
    Descriptor opened = folder.handle->open(error);
    if (!opened.valid()) return false;
    const int descriptor = opened.get();
    std::string& path = worker.path;
    path.assign(folder.path);
    if (path != "/") path.push_back('/');
    const size_t prefixLength = path.size();
    bool hitCap = false;
    while (!hitCap) {
      const long got =
          ::syscall(SYS_getdents64, descriptor, worker.buffer.data(), worker.buffer.size());
      if (got <= 0) break;
      for (long offset = 0; offset < got && !hitCap;) {
        // glibc's dirent64 has the layout of the kernel's getdents64 record.
        const auto* entry = reinterpret_cast<const struct dirent64*>(worker.buffer.data() + offset);
        offset += entry->d_reclen;
        const char* name = entry->d_name;
        if (name[0] == '.' && (name[1] == '\0' || (name[1] == '.' && name[2] == '\0'))) continue;
        EntryValues values;
        if (entry->d_type == DT_DIR || entry->d_type == DT_LNK) {
          // The type is all a folder or a link needs; their own blocks never count.
          values.readable = true;
          values.type = entry->d_type;
        } else {
          values = statEntry(descriptor, name, wantsDate());
        }
        path.resize(prefixLength);
        path.append(name);
        switch (visit(path, std::string_view(path).substr(prefixLength), values, worker, totals)) {
          case VisitResult::done:
            break;
          case VisitResult::descend:
            if (isBeyondWalkLimits(folder.handle->depth() + 1, path.size())) {
              totals.isPartial = true;
              ++totals.foldersTooDeep;
            } else {
              worker.children.push_back({FolderHandle::child(folder.handle, name), path});
            }
            break;
          case VisitResult::capped:
            hitCap = true;
            break;
        }
      }
    }
    folder.handle->finishedReading(std::move(opened), hitCap ? 0 : worker.children.size());
    return hitCap;
  }

  // Called with `cond_` held; helpers start once per walk.
  void spawnHelpersLocked() {
    if (helpersSpawned_) return;
    helpersSpawned_ = true;
    const unsigned count = std::max(treeWalkWidth(), 2u) - 1;
    for (unsigned i = 0; i < count; ++i) {
      try {
        helpers_.emplace_back([this] {
          Worker helper;
          workerLoop(helper);
        });
      } catch (const std::system_error&) {
        break;  // no thread to be had: the others carry on
      }
    }
  }

  const TreeWalkOptions& options_;

  std::mutex budgetLock_;
  std::int64_t remaining_;  // guarded by budgetLock_

  std::mutex cond_;
  std::condition_variable changed_;
  std::vector<PendingFolder> pending_;  // guarded by cond_
  int inFlight_ = 0;                    // guarded by cond_
  bool capped_ = false;                 // guarded by cond_
  bool helpersSpawned_ = false;         // guarded by cond_
  std::vector<std::thread> helpers_;    // written under cond_, joined after the walk

  std::mutex resultLock_;
  TreeTotals merged_;  // guarded by resultLock_
};

}  // namespace

TreeTotals walkTree(const std::string& root, const TreeWalkOptions& options) {
  TreeWalker walker(options);
  return walker.walk(root);
}

}  // namespace brisko
