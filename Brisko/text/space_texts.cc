#include "text/space_texts.h"

#include "protocol/brisko_formatting.h"
#include "space/space_clean_copy.h"
#include "text/app_texts.h"

namespace brisko::AppText {

std::string spaceMeasured(std::int64_t measuredBytes) {
  if (measuredBytes < 1) return localized(kMeasuringStarted);
  return formatted(kMeasuredSize, {BriskoFormatting::bytes(measuredBytes)});
}

std::string spaceStatusLine(const std::optional<SpaceScanProgress>& progress) {
  if (progress && progress->currentTitle && !progress->currentTitle->empty())
    return formatted(kMeasuringTitle, {engineText(*progress->currentTitle)});
  if (progress && progress->completedLocations > 0) return localized(kOrganizingResults);
  return localized(kPreparingMeasurement);
}

std::string spaceBasketLine(std::int64_t count, std::int64_t bytes, std::int64_t freeableBytes) {
  std::string line = engineText(SpaceCleanCopy::selectedCount(count));
  if (freeableBytes < bytes)
    line += formatted(kActuallyFreeable, {BriskoFormatting::bytes(freeableBytes)});
  return line;
}

std::string spaceReceiptSummary(const SpaceCleanReceipt& receipt) {
  return engineText(SpaceCleanCopy::summary(receipt));
}

std::optional<std::string> spaceReceiptFailures(const SpaceCleanReceipt& receipt) {
  const std::vector<std::string> messages = SpaceCleanCopy::failureMessages(receipt);
  if (messages.empty()) return std::nullopt;
  std::string joined;
  for (const std::string& message : messages) {
    if (!joined.empty()) joined += " ";
    joined += engineText(message);
  }
  return formatted(kSomeNotDeleted, {joined});
}

std::optional<std::string> spaceRowSubtitle(const DirectoryRow& row) {
  const SpaceNode& node = row.node;
  if (node.kind == SpaceNodeKind::hiddenGroup) return localized(kHiddenGroupSubtitle);
  if (node.kind == SpaceNodeKind::otherGroup) return localized(kOtherGroupSubtitle);
  if (node.kind == SpaceNodeKind::directory && row.isRootLevel && node.path.ends_with("/Library"))
    return localized(kLibrarySubtitle);
  return std::nullopt;
}

std::vector<std::string> spaceRowBadges(const DirectoryRow& row) {
  std::vector<std::string> badges;
  if (row.node.accessDenied) badges.push_back(localized(kPrivacyProtected));
  if (row.node.kind == SpaceNodeKind::folded) badges.push_back(localized(kMeasuredWhole));
  if (row.node.isPartial) badges.push_back(localized(kEstimate));
  return badges;
}

std::string spaceSelectionHelp(bool isCovered, bool isInBasket) {
  if (isCovered) return localized(kAlreadyCovered);
  return localized(isInBasket ? kRemoveFromCleanup : kAddToCleanup);
}

std::string spaceJumpTo(const SpaceNode& node) {
  return formatted(kJumpTo, {node.name});
}

}  // namespace brisko::AppText
