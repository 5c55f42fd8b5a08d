#include "store/space_tree_view.h"

#include <algorithm>

#include "space/space_naming.h"

namespace brisko {

namespace {

std::string lastComponent(const std::string& path) {
  const size_t slash = path.rfind('/');
  return slash == std::string::npos ? path : path.substr(slash + 1);
}

std::string parentFolder(const std::string& path) {
  const size_t slash = path.rfind('/');
  if (slash == std::string::npos) return {};
  return slash == 0 ? std::string("/") : path.substr(0, slash);
}

const SpaceNode* findByPath(const std::vector<SpaceNode>& level, const std::string& path) {
  const auto found = std::find_if(level.begin(), level.end(),
                                  [&](const SpaceNode& node) { return node.path == path; });
  return found == level.end() ? nullptr : &*found;
}

// False when the node itself goes.
bool prune(SpaceNode& node, const std::set<std::string>& removed) {
  if (removed.contains(node.path)) return false;
  if (node.children.empty()) return true;
  std::vector<SpaceNode> kept;
  kept.reserve(node.children.size());
  node.bytes = 0;
  node.itemCount = 0;
  node.sharedBytes = 0;
  for (SpaceNode& child : node.children) {
    if (!prune(child, removed)) continue;
    node.bytes += child.bytes;
    node.itemCount += child.itemCount;
    kept.push_back(std::move(child));
  }
  node.children = std::move(kept);
  return true;
}

}  // namespace

void sortSpaceNodes(std::vector<SpaceNode>& nodes) {
  std::sort(nodes.begin(), nodes.end(), [](const SpaceNode& a, const SpaceNode& b) {
    if (a.bytes != b.bytes) return a.bytes > b.bytes;
    if (a.name != b.name) return a.name < b.name;
    return a.path < b.path;
  });
}

std::vector<SpaceNode> liveTopLevel(const std::vector<SpaceNode>& pendingNodes) {
  std::vector<SpaceNode> visible;
  std::vector<const SpaceNode*> hidden;
  for (const SpaceNode& node : pendingNodes) {
    if (node.kind != SpaceNodeKind::hiddenGroup && lastComponent(node.path).starts_with("."))
      hidden.push_back(&node);
    else
      visible.push_back(node);
  }
  if (!hidden.empty()) {
    SpaceNode group;
    group.id = parentFolder(hidden.front()->path) + "#hidden";
    group.path = group.id;
    group.name = SpaceNaming::hiddenItemsName;
    group.kind = SpaceNodeKind::hiddenGroup;
    for (const SpaceNode* node : hidden) {
      group.bytes += node->bytes;
      group.itemCount += node->itemCount;
      group.sharedBytes += node->sharedBytes;
      group.isPartial = group.isPartial || node->isPartial;
    }
    visible.push_back(std::move(group));
  }
  sortSpaceNodes(visible);
  return visible;
}

std::vector<const SpaceNode*> spaceBreadcrumbOf(const std::vector<SpaceNode>& topLevel,
                                                const std::vector<std::string>& stack) {
  std::vector<const SpaceNode*> chain;
  const std::vector<SpaceNode>* level = &topLevel;
  for (const std::string& path : stack) {
    const SpaceNode* node = findByPath(*level, path);
    if (node == nullptr) break;
    chain.push_back(node);
    level = &node->children;
  }
  return chain;
}

std::vector<std::string> repairedSpaceStack(const std::vector<SpaceNode>& topLevel,
                                            const std::vector<std::string>& stack) {
  std::vector<std::string> repaired;
  for (const SpaceNode* node : spaceBreadcrumbOf(topLevel, stack))
    repaired.push_back(node->path);
  return repaired;
}

std::vector<SpaceNode> prunedSpaceNodes(const std::vector<SpaceNode>& topLevel,
                                        const std::set<std::string>& removed) {
  std::vector<SpaceNode> kept;
  kept.reserve(topLevel.size());
  for (SpaceNode node : topLevel)
    if (prune(node, removed)) kept.push_back(std::move(node));
  return kept;
}

bool liesBelowAny(const std::string& path, const std::set<std::string>& roots) {
  return std::any_of(roots.begin(), roots.end(), [&](const std::string& root) {
    return path.size() > root.size() + 1 && path.starts_with(root) && path[root.size()] == '/';
  });
}

}  // namespace brisko
