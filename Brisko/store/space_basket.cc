#include "store/space_basket.h"

#include <algorithm>

namespace brisko {

namespace {

void collect(const std::vector<SpaceNode>& level, const std::set<std::string>& basket,
             std::vector<SpaceNode>& found, std::set<std::string>& seen) {
  for (const SpaceNode& node : level) {
    if (basket.contains(node.path)) {
      if (seen.insert(node.path).second) {
        found.push_back(node);
        // The row stands for the item; its own subtree isn't needed.
        found.back().children.clear();
      }
      continue;
    }
    collect(node.children, basket, found, seen);
  }
}

}  // namespace

SpaceNode largeFileNode(const LargeFileItem& file) {
  SpaceNode node;
  node.id = file.path;
  node.name = file.name;
  node.path = file.path;
  node.bytes = file.bytes;
  node.itemCount = 1;
  node.kind = SpaceNodeKind::file;
  return node;
}

bool isCoveredBy(const std::set<std::string>& basket, const std::string& path) {
  // Only a prefix of `path` can cover it: look at each "/" in it.
  for (size_t slash = path.find('/', 1); slash != std::string::npos;
       slash = path.find('/', slash + 1))
    if (basket.contains(path.substr(0, slash))) return true;
  return false;
}

bool isPickable(const SpaceNode& node) {
  return node.kind != SpaceNodeKind::hiddenGroup && node.kind != SpaceNodeKind::otherGroup &&
         !node.accessDenied;
}

std::set<std::string> toggledBasket(std::set<std::string> basket, const SpaceNode& node) {
  if (basket.erase(node.path) > 0) return basket;
  if (!isPickable(node) || isCoveredBy(basket, node.path)) return basket;
  const std::string below = node.path + "/";
  for (auto it = basket.lower_bound(below); it != basket.end() && it->starts_with(below);)
    it = basket.erase(it);
  basket.insert(node.path);
  return basket;
}

std::vector<SpaceNode> basketNodesOf(const std::vector<SpaceNode>& topLevel,
                                     const std::vector<LargeFileItem>& largeFiles,
                                     const std::set<std::string>& basket) {
  std::vector<SpaceNode> found;
  if (basket.empty()) return found;
  std::set<std::string> seen;
  collect(topLevel, basket, found, seen);
  for (const LargeFileItem& file : largeFiles) {
    if (!basket.contains(file.path) || !seen.insert(file.path).second) continue;
    found.push_back(largeFileNode(file));
  }
  return found;
}

std::int64_t basketBytesOf(const std::vector<SpaceNode>& nodes) {
  std::int64_t total = 0;
  for (const SpaceNode& node : nodes)
    total += node.bytes;
  return total;
}

std::int64_t basketFreeableBytesOf(const std::vector<SpaceNode>& nodes) {
  std::int64_t total = 0;
  for (const SpaceNode& node : nodes)
    total += std::max<std::int64_t>(0, node.bytes - node.sharedBytes);
  return total;
}

}  // namespace brisko
