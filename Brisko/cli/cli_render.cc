#include "cli/cli_render.h"

#include <cstdio>

#include "protocol/brisko_formatting.h"
#include "text/app_texts.h"

namespace brisko::cli {

namespace {

std::string size(std::int64_t bytes) {
  return BriskoFormatting::bytes(bytes);
}

// `text` padded with blanks to `width` characters (UTF-8 counted as such).
std::string padded(const std::string& text, size_t width) {
  size_t characters = 0;
  for (const char byte : text)
    if ((static_cast<unsigned char>(byte) & 0xC0) != 0x80) ++characters;
  return characters >= width ? text : text + std::string(width - characters, ' ');
}

std::string rightAligned(const std::string& text, size_t width) {
  return text.size() >= width ? text : std::string(width - text.size(), ' ') + text;
}

enum class Section { recommended, review, shownOnly };

Section sectionOf(const ScanFinding& finding) {
  if (finding.action == RuleAction::reportOnly) return Section::shownOnly;
  return finding.risk == RiskLevel::recommended ? Section::recommended : Section::review;
}

}  // namespace

std::string scanText(const AppStore& store, const Console& console) {
  std::string text;
  if (const auto& disk = store.disk())
    text += "Volume " + disk->volumeName + ": " + size(disk->availableBytes) + " free of " +
            size(disk->totalBytes) + ".\n";
  struct Heading {
    Section section;
    std::string title;
    Colour colour;
  };
  const Heading headings[] = {
      {Section::recommended, AppText::localized(AppText::kRecommended), Colour::green},
      {Section::review, AppText::localized(AppText::kNeedsReview), Colour::yellow},
      {Section::shownOnly, "Shown only", Colour::dim},
  };
  std::int64_t cleanable = 0;
  std::int64_t recommended = 0;
  for (const Heading& heading : headings) {
    bool first = true;
    for (const ScanFinding& finding : store.findings()) {
      if (sectionOf(finding) != heading.section) continue;
      if (first) text += "\n" + console.paint(heading.title, Colour::bold) + "\n";
      first = false;
      std::string explanation = finding.explanation;
      if (!finding.subtitle.empty()) explanation = finding.subtitle + ". " + explanation;
      text += "  " + padded(finding.title, 26) + " " + rightAligned(size(finding.bytes), 9) + "  " +
              explanation + (finding.isPartial ? " (partial)" : "") + " " +
              console.paint("[" + finding.id + "]", heading.colour) + "\n";
      if (finding.items)
        for (const ScanFindingItem& item : *finding.items)
          text += "      " + padded(item.title, 30) + " " + rightAligned(size(item.bytes), 9) +
                  "  " + item.path + "\n";
      if (heading.section != Section::shownOnly) cleanable += finding.bytes;
      if (heading.section == Section::recommended) recommended += finding.bytes;
    }
  }
  if (!store.warnings().empty() || !store.blockedLocations().empty()) text += "\n";
  for (const std::string& warning : store.warnings())
    text += console.paint("Warning: ", Colour::yellow) + AppText::engineText(warning) + "\n";
  for (const BlockedLocation& blocked : store.blockedLocations())
    text += AppText::formatted(blocked.needsFullDiskAccess ? AppText::kBlockedNeedsAccess
                                                           : AppText::kBlockedUnreadable,
                               {blocked.title}) +
            "\n";
  text += "\n" + std::to_string(store.findings().size()) + " findings: " + size(cleanable) +
          " could be cleaned, " + size(recommended) +
          " of it recommended. Selected by default: " + size(store.selectedBytes()) +
          " (brisko clean --recommended).\n";
  return text;
}

std::string planText(const CleanupPlan& plan, std::optional<std::int64_t> trashBytes,
                     std::int64_t trashEntries, const Console& console) {
  std::int64_t total = 0;
  for (const CleanupPlanItem& item : plan.items)
    total += item.estimatedBytes;
  std::string text =
      console.paint("The plan holds " + std::to_string(plan.items.size()) +
                        (plan.items.size() == 1 ? " item, " : " items, ") + size(total) + ":",
                    Colour::bold) +
      "\n";
  for (const CleanupPlanItem& item : plan.items)
    text += "  " + rightAligned(size(item.estimatedBytes), 9) + "  " + item.path + "\n";
  if (trashBytes)
    text += "  " + rightAligned(size(*trashBytes), 9) + "  " +
            AppText::localized(AppText::kTrashTitle) + " (" + std::to_string(trashEntries) +
            (trashEntries == 1 ? " item" : " items") + "), emptied after the plan\n";
  size_t missing = 0;
  std::string leftOut;
  for (const CleanupPlanSkip& skip : plan.skipped) {
    // Catalog locations that this home doesn't have are many and say little.
    if (skip.reason == CleanupPlanSkipReason::pathMissing) {
      ++missing;
      continue;
    }
    leftOut += "  " + skip.path + ": " + AppText::engineText(skip.message) + "\n";
  }
  if (!leftOut.empty()) text += "Left out:\n" + leftOut;
  if (missing > 0)
    text += "Left out " + std::to_string(missing) +
            (missing == 1 ? " catalog location that this home folder doesn\u2019t have.\n"
                          : " catalog locations that this home folder doesn\u2019t have.\n");
  return text;
}

std::string receiptText(const CleanupReceipt& receipt, std::int64_t plannedBytes,
                        const Console& console) {
  std::string text;
  std::int64_t deleted = 0;
  std::int64_t kept = 0;
  std::int64_t freed = 0;
  for (const CleanupItemResult& result : receipt.results) {
    switch (result.outcome) {
      case CleanupItemOutcome::deleted:
        ++deleted;
        freed += result.bytes;
        text += "  " + console.paint("deleted", Colour::green) + "  " +
                rightAligned(size(result.bytes), 9) + "  " + result.originalPath + "\n";
        break;
      case CleanupItemOutcome::skipped:
        ++kept;
        text += "  " + console.paint("kept   ", Colour::yellow) + "  " + std::string(9, ' ') +
                "  " + result.originalPath + ": " + AppText::engineText(result.message) + "\n";
        break;
      case CleanupItemOutcome::failed:
        ++kept;
        text += "  " + console.paint("failed ", Colour::red) + "  " + std::string(9, ' ') + "  " +
                result.originalPath + ": " + AppText::engineText(result.message) + "\n";
        break;
    }
  }
  text += AppText::runSummary(deleted, kept) + ". " + AppText::freedOfPlanned(freed, plannedBytes) +
          ".\n";
  return text;
}

namespace {

void addNode(std::string& text, const SpaceNode& node, std::int64_t rootBytes, int level, int depth,
             const Console& console) {
  constexpr int kBarWidth = 10;
  const double share = rootBytes > 0 ? static_cast<double>(node.bytes) / rootBytes : 0.0;
  const int filled = static_cast<int>(share * kBarWidth + 0.5);
  std::string bar;
  for (int cell = 0; cell < kBarWidth; ++cell)
    bar += cell < filled ? "\u2588" : "\u00B7";
  char percent[8];
  std::snprintf(percent, sizeof percent, "%3d%%", static_cast<int>(share * 100 + 0.5));
  std::string notes;
  if (node.kind == SpaceNodeKind::folded) notes += " (measured whole)";
  if (node.accessDenied) notes += " (not readable)";
  if (node.isPartial && !node.accessDenied) notes += " (partly read)";
  text += std::string(static_cast<size_t>(2 * level), ' ') + rightAligned(size(node.bytes), 9) +
          "  " + console.paint(bar, Colour::green) + " " + percent + "  " +
          AppText::engineText(node.name) + notes + "\n";
  if (level < depth)
    for (const SpaceNode& child : node.children)
      addNode(text, child, rootBytes, level + 1, depth, console);
}

}  // namespace

std::string spaceText(const SpaceReport& report, int depth, const Console& console) {
  const SpaceNode& root = report.root;
  std::string text = console.paint(root.path, Colour::bold) + " holds " + size(root.bytes) +
                     " in " + std::to_string(root.itemCount) + " files" +
                     (root.isPartial ? " (not all of it could be read)" : "") + ".\n";
  for (const SpaceNode& child : root.children)
    addNode(text, child, root.bytes, 1, depth, console);
  for (const std::string& warning : report.warnings)
    text += console.paint("Note: ", Colour::yellow) + AppText::engineText(warning) + "\n";
  if (report.largeFiles.empty()) return text + "No large files.\n";
  text += console.paint("Large files:", Colour::bold) + "\n";
  size_t shown = 0;
  for (const LargeFileItem& file : report.largeFiles) {
    if (shown++ == 10) break;
    text += "  " + rightAligned(size(file.bytes), 9) + "  " + file.path + "\n";
  }
  return text;
}

std::string historyLine(const CleanupReceipt& receipt) {
  int deleted = 0;
  int kept = 0;
  int failed = 0;
  std::int64_t freed = 0;
  for (const CleanupItemResult& result : receipt.results) {
    if (result.outcome == CleanupItemOutcome::deleted) {
      ++deleted;
      freed += result.bytes;
    }
    if (result.outcome == CleanupItemOutcome::skipped) ++kept;
    if (result.outcome == CleanupItemOutcome::failed) ++failed;
  }
  return formatIso8601(receipt.completedAt) + "  " + rightAligned(size(freed), 9) + " freed  " +
         std::to_string(deleted) + " deleted, " + std::to_string(kept) + " kept, " +
         std::to_string(failed) + " failed  " + receipt.id.text() + "\n";
}

}  // namespace brisko::cli
