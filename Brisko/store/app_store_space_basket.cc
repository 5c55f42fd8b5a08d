// The Space page's drill-down, basket and clean, and the values and texts
// derived from them.

#include <algorithm>
#include <iterator>
#include <utility>

#include "store/app_store.h"
#include "store/space_basket.h"
#include "store/space_tree_view.h"
#include "text/space_texts.h"

namespace brisko {

void AppStore::enterSpaceNode(const SpaceNode& node) {
  Batch batch(*this);
  if (node.children.empty()) return;
  std::vector<std::string> stack = spacePathStack_;
  stack.push_back(node.path);
  set(StoreField::spacePathStack, spacePathStack_, std::move(stack));
}

void AppStore::popSpacePath(std::int64_t depth) {
  Batch batch(*this);
  if (depth < 0 || depth >= static_cast<std::int64_t>(spacePathStack_.size())) return;
  std::vector<std::string> stack = spacePathStack_;
  stack.resize(static_cast<size_t>(depth));
  set(StoreField::spacePathStack, spacePathStack_, std::move(stack));
}

void AppStore::toggleBasket(const SpaceNode& node) {
  Batch batch(*this);
  setSpaceBasket(toggledBasket(spaceBasket_, node));
}

bool AppStore::isCoveredBySelection(const std::string& path) const {
  return isCoveredBy(spaceBasket_, path);
}

void AppStore::cleanBasket(SpaceCleanMode mode) {
  Batch batch(*this);
  if (isSpaceCleaning_) return;
  std::vector<SpaceCleanTarget> targets;
  for (const SpaceNode& node : spaceBasketNodes())
    targets.push_back(SpaceCleanTarget{node.path, node.bytes});
  if (targets.empty()) return;
  set(StoreField::isSpaceCleaning, isSpaceCleaning_, true);
  onWorker([this, service = spaceCleanService_, targets = std::move(targets), mode] {
    SpaceCleanReceipt receipt = service.clean(targets, mode);
    postBack([this, receipt = std::move(receipt)]() mutable {
      set(StoreField::isSpaceCleaning, isSpaceCleaning_, false);
      applySpaceCleanReceipt(std::move(receipt));
    });
  });
}

void AppStore::applySpaceCleanReceipt(SpaceCleanReceipt receipt) {
  std::set<std::string> gone;
  bool moved = false;
  for (const SpaceCleanResult& result : receipt.succeeded()) {
    gone.insert(result.path);
    moved = moved || result.outcome == SpaceCleanOutcome::moved;
  }
  set(StoreField::spaceCleanReceipt, spaceCleanReceipt_, std::optional(std::move(receipt)));
  if (gone.empty()) return;

  // The cache file and the report stay as they are: the next scan catches up.
  set(StoreField::spaceNodes, spaceNodes_, prunedSpaceNodes(spaceNodes_, gone));
  std::vector<LargeFileItem> largeFiles;
  for (const LargeFileItem& file : spaceLargeFiles_)
    if (!gone.contains(file.path) && !liesBelowAny(file.path, gone)) largeFiles.push_back(file);
  set(StoreField::spaceLargeFiles, spaceLargeFiles_, std::move(largeFiles));
  std::set<std::string> basket;
  std::set_difference(spaceBasket_.begin(), spaceBasket_.end(), gone.begin(), gone.end(),
                      std::inserter(basket, basket.end()));
  setSpaceBasket(std::move(basket));
  set(StoreField::spacePathStack, spacePathStack_,
      repairedSpaceStack(spaceNodes_, spacePathStack_));

  // What the Clean page knew of the Trash is out of date after a move; its
  // next scan measures it again. The free space changed after any removal.
  if (moved && trash_) {
    set(StoreField::trash, trash_, {});
    rebuildTrash();
  }
  refreshDisk();
}

void AppStore::dismissSpaceCleanReceipt() {
  Batch batch(*this);
  set(StoreField::spaceCleanReceipt, spaceCleanReceipt_, {});
}

const std::vector<SpaceNode>& AppStore::spaceDisplayNodes() const {
  static const std::vector<SpaceNode> none;
  if (spacePathStack_.empty()) return spaceNodes_;
  const std::vector<const SpaceNode*> chain = spaceBreadcrumb();
  return chain.empty() ? none : chain.back()->children;
}

std::vector<const SpaceNode*> AppStore::spaceBreadcrumb() const {
  return spaceBreadcrumbOf(spaceNodes_, spacePathStack_);
}

std::int64_t AppStore::spaceMeasuredBytes() const {
  // The sum keeps the figure from going down when the report replaces the
  // live numbers.
  std::int64_t shown = 0;
  for (const SpaceNode& node : spaceNodes_)
    shown += node.bytes;
  const std::int64_t measured =
      spaceProgress_ && spaceProgress_->measuredBytes ? *spaceProgress_->measuredBytes : 0;
  return std::max(measured, shown);
}

std::vector<SpaceNode> AppStore::spaceBasketNodes() const {
  return basketNodesOf(spaceNodes_, spaceLargeFiles_, spaceBasket_);
}

std::int64_t AppStore::spaceBasketBytes() const {
  return basketBytesOf(spaceBasketNodes());
}

std::int64_t AppStore::spaceBasketFreeableBytes() const {
  return basketFreeableBytesOf(spaceBasketNodes());
}

SpaceView::DockPhase AppStore::spaceDockPhase() const {
  if (spaceScanState_.kind == SpaceScanState::Kind::scanning) return SpaceView::DockPhase::scanning;
  if (spaceCleanReceipt_) return SpaceView::DockPhase::receipt;
  if (!spaceBasket_.empty()) return SpaceView::DockPhase::basket;
  return SpaceView::DockPhase::hidden;
}

std::vector<DirectoryRow> AppStore::spaceRows() const {
  const std::vector<SpaceNode>& nodes = spaceDisplayNodes();
  std::int64_t scale = 0;
  for (const SpaceNode& node : nodes)
    scale = std::max(scale, node.bytes);
  std::vector<DirectoryRow> rows;
  rows.reserve(nodes.size());
  for (const SpaceNode& node : nodes)
    rows.push_back(DirectoryRow{node, scale, spacePathStack_.empty(), false});
  return rows;
}

bool AppStore::showsSelectionControl(const DirectoryRow& row) const {
  return spaceBasket_.contains(row.node.path) || isCoveredBySelection(row.node.path) ||
         (row.isHovered && isPickable(row.node));
}

std::string AppStore::selectionHelp(const DirectoryRow& row) const {
  return AppText::spaceSelectionHelp(isCoveredBySelection(row.node.path),
                                     spaceBasket_.contains(row.node.path));
}

std::string AppStore::spaceMeasuredText() const {
  return AppText::spaceMeasured(spaceMeasuredBytes());
}

std::string AppStore::spaceStatusText() const {
  return AppText::spaceStatusLine(spaceProgress_);
}

std::string AppStore::spaceBasketText() const {
  const std::vector<SpaceNode> nodes = spaceBasketNodes();
  return AppText::spaceBasketLine(static_cast<std::int64_t>(nodes.size()), basketBytesOf(nodes),
                                  basketFreeableBytesOf(nodes));
}

}  // namespace brisko
