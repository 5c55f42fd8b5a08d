#pragma once

#include <optional>
#include <string>
#include <vector>

#include "base/date.h"
#include "rules/cleanup_rule.h"

namespace brisko {

// How candidates are found below a selection's root. It is the target's mode,
// except that a presence target (which measures nothing itself) is offered as
// its whole contents.
using CandidateMode = RuleTargetMode;

// One root of one cleanable rule target: everything a plan may take comes
// from these, rebuilt from the catalog, never from the request's IDs.
struct CleanupSelection {
  std::string findingID;
  std::string title;
  std::string root;  // expanded and standardised
  CandidateMode mode;
  std::optional<std::string> itemTitle;
  std::vector<RuleGuard> guards;  // the rule's, then the target's
};

// The selections of every cleanup rule of the catalog, in catalog order.
std::vector<CleanupSelection> buildCleanupSelections(const std::string& home);

// "<pid>_<anything>" links in a folder named fnm_multishells that point at a
// shell which has exited. Such a link is the one kind of link a plan may hold.
bool isStaleShellLink(const std::string& path);

// The stale shell links directly inside a fnm_multishells folder.
std::vector<std::string> staleShellLinks(const std::string& multishellsFolder);

// Whether `path` is something the selection could offer now: the same tests
// as the candidate listing, so a plan file edited on disk can't name anything
// wider (a fresh log, a hidden file, a protected web app's storage, a path
// below a link). `now` is the base of the age test of old files.
bool selectionAccepts(const CleanupSelection& selection, const std::string& path, Date now);

// True when every component of `path` below `root` is a real folder or, for
// the last, anything but a link; `path` must lie under `root`.
bool isReachableWithoutLinks(const std::string& root, const std::string& path);

// The cutoff of an old-files mode: files modified strictly before it are old.
Date oldFilesCutoff(const RuleTargetMode::OldFiles& mode, Date now);

}  // namespace brisko
