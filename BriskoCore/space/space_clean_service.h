#pragma once

// Sends picked rows of the Space page to the Trash or deletes them, one path
// at a time, behind a wall of refusals: only real items inside the home
// folder, never the home or a standard folder itself, never a symbolic link,
// never what the path safety policy keeps. Each path is judged afresh at the
// moment of the act, since the tree it came from may be hours old.
//
// A plain value, safe to use from any thread; `clean` blocks, so callers run
// it off the main executor. Two runs at once only see each other's work as
// missing items.

#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "safety/path_safety_policy.h"
#include "space/space_clean_records.h"
#include "space/space_file_operations.h"

namespace brisko {

class SpaceCleanService {
 public:
  // `operations` is the disk: SystemSpaceFileOperations in the application
  // (its library, BriskoSystemTrash, is the one that links GLib, so the
  // service can't default to it). Without `policy`, each `clean` (and each
  // `refusal`) builds the standard policy for the home from the whitelist
  // file as it is at that moment, so a pattern added a moment ago protects.
  SpaceCleanService(std::string homeDirectory, std::shared_ptr<SpaceFileOperations> operations,
                    std::optional<PathSafetyPolicy> policy = std::nullopt);

  // Every target in order; never fails as a whole.
  SpaceCleanReceipt clean(const std::vector<SpaceCleanTarget>& targets, SpaceCleanMode mode) const;

  // Why `path` may not be acted on, or none.
  std::optional<std::string> refusal(const std::string& path) const;

  const std::string& homeDirectory() const { return homeDirectory_; }
  // Replaces the disk; a null pointer is ignored.
  void setOperations(std::shared_ptr<SpaceFileOperations> operations);

  // The folders directly under the home that are never removed themselves.
  static const std::vector<std::string>& standardFolderNames();

 private:
  // What one clean judges by: the policy and the standard folders, as
  // relative paths under the home.
  struct Judgement {
    PathSafetyPolicy policy;
    std::set<std::string> standardFolders;
  };

  Judgement currentJudgement() const;
  std::optional<std::string> refusal(const std::string& path, const Judgement& judgement) const;

  std::string homeDirectory_;                        // standardised
  std::shared_ptr<SpaceFileOperations> operations_;  // never null
  std::optional<PathSafetyPolicy> policy_;
};

}  // namespace brisko
