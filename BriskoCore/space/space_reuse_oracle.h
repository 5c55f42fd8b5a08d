#pragma once

// Answers, for one directory, whether the node of a stored tree still holds:
// it does unless something changed in it or anywhere below it.

#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "protocol/space_records.h"

namespace brisko {

class SpaceReuseOracle {
 public:
  // `root` is the stored report's root; `dirtyPaths` the directories in which
  // something changed since that report was made.
  SpaceReuseOracle(SpaceNode root, std::vector<std::string> dirtyPaths);

  SpaceReuseOracle(const SpaceReuseOracle&) = delete;
  SpaceReuseOracle& operator=(const SpaceReuseOracle&) = delete;

  // True when `path` itself, or anything below it, changed. A sibling that
  // merely shares a prefix ("a/bc" for "a/b") does not count.
  bool isDirty(std::string_view path) const;

  // The stored directory or folded node at `path`, unless it is dirty.
  const SpaceNode* reusableNode(const std::string& path) const;

 private:
  SpaceNode root_;
  std::unordered_map<std::string, const SpaceNode*> nodesByPath_;
  std::vector<std::string> sortedDirtyPaths_;
};

}  // namespace brisko
