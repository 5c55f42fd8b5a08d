#pragma once

#include <optional>
#include <string>
#include <vector>

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

// Whether `path` (standardised) is something the selection may offer, judged
// from the path alone and the folders around it now.
bool selectionAccepts(const CleanupSelection& selection, const std::string& path);

}  // namespace brisko
