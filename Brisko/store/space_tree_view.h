#pragma once

// The Space page's view of a measured tree: the top level while a scan runs,
// the drill-down position, and the tree after a clean took items away. Plain
// functions over plain values.

#include <set>
#include <string>
#include <vector>

#include "protocol/space_records.h"

namespace brisko {

// Largest first; equal sizes by name, then by path.
void sortSpaceNodes(std::vector<SpaceNode>& nodes);

// The top level as the nodes streamed so far: hidden entries (a name that
// begins with ".") gathered under one "Hidden items" row, as the finished tree
// has it, and everything sorted; no cut to a top number.
std::vector<SpaceNode> liveTopLevel(const std::vector<SpaceNode>& pendingNodes);

// The nodes of `stack` (paths, outermost first) that still exist, resolved
// level by level from `topLevel`; the chain stops at the first miss. The
// pointers are into `topLevel`, valid while it is unchanged.
std::vector<const SpaceNode*> spaceBreadcrumbOf(const std::vector<SpaceNode>& topLevel,
                                                const std::vector<std::string>& stack);

// The stack cut at its first level that `topLevel` no longer has.
std::vector<std::string> repairedSpaceStack(const std::vector<SpaceNode>& topLevel,
                                            const std::vector<std::string>& stack);

// `topLevel` without the nodes at `removed`. A folder that lost something
// below it takes the sums of what is left, and its shared bytes become 0: the
// doubt figure of a folder is not worked out again after a clean.
std::vector<SpaceNode> prunedSpaceNodes(const std::vector<SpaceNode>& topLevel,
                                        const std::set<std::string>& removed);

// True when `path` lies below one of `roots` ("/" added to each root).
bool liesBelowAny(const std::string& path, const std::set<std::string>& roots);

}  // namespace brisko
