#pragma once

#include <atomic>
#include <cstdint>
#include <optional>
#include <string>

#include "base/date.h"
#include "safety/path_safety_policy.h"

namespace brisko {

// What one walk of a tree found. Adding two totals adds the counters and ors
// `isPartial`.
struct TreeTotals {
  std::int64_t bytes = 0;  // allocated bytes of the regular files counted
  std::int64_t items = 0;  // regular files counted
  bool isPartial = false;  // the walk stopped at its item budget
  std::int64_t skippedProtected = 0;
  std::int64_t skippedWhitelisted = 0;
  std::int64_t skippedInvalid = 0;  // unreadable entries, links, refused names
  // Folders past the depth that a walk goes to: not measured, and the walk is
  // partial.
  std::int64_t foldersTooDeep = 0;

  TreeTotals& operator+=(const TreeTotals& other);
  bool operator==(const TreeTotals&) const = default;
};

struct TreeWalkOptions {
  // Judged on every entry when `applySafetyPolicy` is true; a refused folder is
  // not counted itself, but what lies below it still is looked at.
  const PathSafetyPolicy* policy = nullptr;
  bool applySafetyPolicy = true;
  // When set, only regular files modified before this date count.
  std::optional<Date> modifiedBefore;
  // The most files one walk counts; the walk is partial when one more is met.
  std::int64_t maximumItems = 150000;
  // Set from another thread (or a signal handler) to stop the walk early.
  const std::atomic<bool>* cancelled = nullptr;
};

// Measures the tree at `root`: the allocated bytes and the number of its
// regular files. Links are never followed nor counted, packages (folders that
// the system shows as one file, such as an application bundle) count as
// nothing, and a folder that can't be listed counts as empty. Every folder is
// opened relative to its parent (see FolderHandle), so no path is too long to
// measure; a folder deeper than kMaximumWalkDepth levels or with a path
// longer than kMaximumWalkPathLength is counted in `foldersTooDeep`. The walk is
// depth-first on one shared stack; when the stack holds three or more folders
// it starts helpers, one fewer than the machine has cores (at least one), so a
// small tree never leaves the calling thread.
TreeTotals walkTree(const std::string& root, const TreeWalkOptions& options);

// Whether a folder of this name is a package: Linux has no flag for it, so
// the bundle extensions that macOS shows as one file decide.
bool isPackageName(std::string_view name);

}  // namespace brisko
