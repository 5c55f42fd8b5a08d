#pragma once

#include <set>
#include <string>
#include <vector>

#include "base/date.h"
#include "cleanup/cleanup_selection.h"

namespace brisko {

// The paths below a selection's root that a plan may take, in listing order,
// at most `limit` of them. With `itemIDs` (a partial selection) only the rows
// the user picked count. A listing that fails gives nothing.
std::vector<std::string> planCandidates(const CleanupSelection& selection, const std::string& home,
                                        Date now, size_t limit,
                                        const std::set<std::string>* itemIDs);

}  // namespace brisko
