#pragma once

// The basket of the Space page: the paths that the user picked for removal.
// It holds paths, never ids, and never a path together with one below it.

#include <cstdint>
#include <set>
#include <string>
#include <vector>

#include "protocol/space_records.h"

namespace brisko {

// True when a picked path lies above `path`; a picked path doesn't cover
// itself.
bool isCoveredBy(const std::set<std::string>& basket, const std::string& path);

// Whether a row may be picked at all: no group row, nothing unreadable.
bool isPickable(const SpaceNode& node);

// The basket after the user toggled `node`: a picked path goes out; a group
// row, an unreadable row or a covered one changes nothing; otherwise the path
// goes in and takes the place of every picked path below it.
std::set<std::string> toggledBasket(std::set<std::string> basket, const SpaceNode& node);

// A large file as a row that can be picked: a file node of its size.
SpaceNode largeFileNode(const LargeFileItem& file);

// One node per picked item: the nodes of `topLevel` whose path is picked
// (nothing below them is searched), then each picked path that the tree
// doesn't show but `largeFiles` lists (a file inside a folder measured whole),
// as a file node of its size.
std::vector<SpaceNode> basketNodesOf(const std::vector<SpaceNode>& topLevel,
                                     const std::vector<LargeFileItem>& largeFiles,
                                     const std::set<std::string>& basket);

// What the picked nodes measure, and what removing them would give back: a
// node's bytes less those it may share with files elsewhere.
std::int64_t basketBytesOf(const std::vector<SpaceNode>& nodes);
std::int64_t basketFreeableBytesOf(const std::vector<SpaceNode>& nodes);

}  // namespace brisko
