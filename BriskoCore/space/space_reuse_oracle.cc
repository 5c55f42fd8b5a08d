#include "space/space_reuse_oracle.h"

#include <algorithm>

namespace brisko {
namespace {

void enterNodes(const SpaceNode& node, std::unordered_map<std::string, const SpaceNode*>& index) {
  for (const auto& child : node.children) {
    if (child.kind == SpaceNodeKind::directory || child.kind == SpaceNodeKind::folded)
      index.emplace(child.path, &child);
    enterNodes(child, index);  // group rows are not entered, but their children are
  }
}

}  // namespace

SpaceReuseOracle::SpaceReuseOracle(SpaceNode root, std::vector<std::string> dirtyPaths)
    : root_(std::move(root)), sortedDirtyPaths_(std::move(dirtyPaths)) {
  enterNodes(root_, nodesByPath_);
  std::sort(sortedDirtyPaths_.begin(), sortedDirtyPaths_.end());
}

bool SpaceReuseOracle::isDirty(std::string_view path) const {
  auto first = std::lower_bound(sortedDirtyPaths_.begin(), sortedDirtyPaths_.end(), path);
  if (first != sortedDirtyPaths_.end() && *first == path) return true;
  const std::string below = std::string(path) + "/";
  auto inside = std::lower_bound(sortedDirtyPaths_.begin(), sortedDirtyPaths_.end(), below);
  return inside != sortedDirtyPaths_.end() && inside->starts_with(below);
}

const SpaceNode* SpaceReuseOracle::reusableNode(const std::string& path) const {
  const auto found = nodesByPath_.find(path);
  if (found == nodesByPath_.end() || isDirty(path)) return nullptr;
  return found->second;
}

}  // namespace brisko
