#include "store/finding_selection.h"

#include <gtest/gtest.h>

#include "protocol/guard_warning_text.h"
#include "store/finding_item_grouping.h"
#include "store/finding_list.h"

namespace brisko {
namespace {

ScanFinding findingWith(std::string id, std::vector<std::string> itemTitles,
                        RiskLevel risk = RiskLevel::recommended,
                        RuleAction action = RuleAction::cleanup, bool partial = false) {
  ScanFinding finding;
  finding.id = id;
  finding.title = id + " title";
  finding.risk = risk;
  finding.action = action;
  finding.isPartial = partial;
  if (!itemTitles.empty()) {
    finding.items.emplace();
    int index = 0;
    for (const std::string& title : itemTitles) {
      ScanFindingItem item;
      item.id = id + ":/home/u/" + std::to_string(index);
      item.path = "/home/u/" + std::to_string(index++);
      item.title = title;
      item.bytes = 10 * index;
      finding.items->push_back(item);
    }
  }
  return finding;
}

std::set<std::string> itemIDsOf(const ScanFinding& finding, std::vector<int> indices) {
  std::set<std::string> ids;
  for (int index : indices)
    ids.insert(finding.items->at(index).id);
  return ids;
}

TEST(FindingSelectionTest, PreselectionTakesRecommendedCleanupsAndHoldsBackWhatAGuardNames) {
  const std::string namedGuard = GuardWarningText::namedProcess("Slack", "Slack cache");
  const std::string relatedGuard = GuardWarningText::relatedProcess("cache title");
  struct Case {
    const char* name;
    ScanFinding finding;
    std::vector<std::string> warnings;
    bool findingSelected;
    std::vector<int> selectedItems;
  };
  const std::vector<Case> cases = {
      {"review is never preselected", findingWith("logs", {}, RiskLevel::review), {}, false, {}},
      {"reportOnly is never preselected",
       findingWith("models", {}, RiskLevel::recommended, RuleAction::reportOnly),
       {},
       false,
       {}},
      {"a plain recommended finding is selected", findingWith("tmp", {}), {}, true, {}},
      {"a guard names an item: only that item stays out",
       findingWith("apps", {"Slack cache", "Zoom cache"}),
       {namedGuard},
       false,
       {1}},
      {"a guard names the finding: every item stays out",
       findingWith("cache", {"Slack cache", "Zoom cache"}),
       {relatedGuard},
       false,
       {}},
      {"a guard names a whole partial finding: it stays out",
       findingWith("cache", {}, RiskLevel::recommended, RuleAction::cleanup, true),
       {relatedGuard},
       false,
       {}},
      {"a guard names a whole finding that isn't partial: selected all the same",
       findingWith("cache", {}),
       {relatedGuard},
       true,
       {}},
      {"a plain warning holds nothing back",
       findingWith("apps", {"Slack cache", "Zoom cache"}),
       {"Slack cache"},
       true,
       {0, 1}},
  };
  for (const Case& test : cases) {
    SCOPED_TRACE(test.name);
    FindingSelection selection;
    selection.redo({test.finding}, test.warnings);
    EXPECT_EQ(selection.findingIDs.contains(test.finding.id), test.findingSelected);
    const std::set<std::string> items =
        test.finding.items ? itemIDsOf(test.finding, test.selectedItems) : std::set<std::string>{};
    EXPECT_EQ(selection.itemIDs, items);
  }
}

TEST(FindingSelectionTest, TheFindingsIdMeansAllOfItThroughEveryKindOfChange) {
  const ScanFinding finding = findingWith("apps", {"a", "b", "c"});
  const std::string a = finding.items->at(0).id, b = finding.items->at(1).id,
                    c = finding.items->at(2).id;
  struct Step {
    const char* name;
    std::function<void(FindingSelection&)> change;
    bool findingSelected;
    std::set<std::string> items;
  };
  // One selection carried through the steps, in order.
  const std::vector<Step> steps = {
      {"toggling an unselected finding selects it all",
       [&](FindingSelection& s) { s.toggleFinding(finding); },
       true,
       {a, b, c}},
      {"clearing one item takes the finding out",
       [&](FindingSelection& s) { s.toggleItem(finding, b); },
       false,
       {a, c}},
      {"toggling a partly selected finding selects all of it",
       [&](FindingSelection& s) { s.toggleFinding(finding); },
       true,
       {a, b, c}},
      {"toggling a fully selected finding clears it all",
       [&](FindingSelection& s) { s.toggleFinding(finding); },
       false,
       {}},
      {"setting a list on",
       [&](FindingSelection& s) {
         s.setItems(finding, {a, b}, true);
       },
       false,
       {a, b}},
      {"selecting the last unselected item puts the finding in",
       [&](FindingSelection& s) { s.toggleItem(finding, c); },
       true,
       {a, b, c}},
      {"setting a list off",
       [&](FindingSelection& s) {
         s.setItems(finding, {a, c}, false);
       },
       false,
       {b}},
  };
  FindingSelection selection;
  for (const Step& step : steps) {
    SCOPED_TRACE(step.name);
    step.change(selection);
    EXPECT_EQ(selection.findingIDs.contains(finding.id), step.findingSelected);
    EXPECT_EQ(selection.isFullySelected(finding), step.findingSelected);
    EXPECT_EQ(selection.itemIDs, step.items);
  }
}

TEST(FindingSelectionTest, TheRequestNamesWholeFindingsOrSingleItemsAndNeverTheTrash) {
  const ScanFinding whole = findingWith("whole", {"a", "b"});
  const ScanFinding part = findingWith("part", {"a", "b"});
  const ScanFinding bare = findingWith("bare", {});
  const ScanFinding reportOnly =
      findingWith("models", {}, RiskLevel::recommended, RuleAction::reportOnly);
  ScanFinding trash = findingWith(std::string(kTrashFindingID), {});
  FindingSelection selection;
  selection.toggleFinding(whole);
  selection.toggleItem(part, part.items->at(1).id);
  selection.toggleFinding(bare);
  selection.findingIDs.insert(reportOnly.id);
  selection.findingIDs.insert(trash.id);

  const CreateCleanupPlanRequest request =
      selection.cleanupRequest({trash, whole, reportOnly, part, bare});
  EXPECT_EQ(request.findingIDs, (std::vector<std::string>{"whole", "bare"}));
  EXPECT_EQ(request.itemIDs, (std::vector<std::string>{part.items->at(1).id}));
  EXPECT_TRUE(selection.isTrashSelected());
}

// A clean's results are by path, and a row that is a folder may have been
// planned as its entries: the row goes only when nothing under it stays.
TEST(FindingListTest, AFolderRowGoesWhenEverythingUnderItWasDeleted) {
  struct Result {
    std::string path;
    bool deleted;
  };
  struct Case {
    const char* name;
    std::vector<Result> results;
    std::vector<std::string> leftOut;
    bool rowStays;
    std::int64_t bytesLeft;  // of the 100-byte row, when it stays
  };
  const std::vector<Case> cases = {
      {"the row itself deleted", {{"/home/u/0", true}}, {}, false, 0},
      {"every entry deleted, beside a kept sibling that sorts between",
       {{"/home/u/0-old", false}, {"/home/u/0/a", true}, {"/home/u/0/b/c", true}},
       {},
       false,
       0},
      {"an entry failed", {{"/home/u/0/a", true}, {"/home/u/0/b", false}}, {}, true, 70},
      {"an entry left out of the plan", {{"/home/u/0/a", true}}, {"/home/u/0/p"}, true, 70},
      {"a sibling whose name starts alike",
       {{"/home/u/0-old/a", true}, {"/home/u/0.bak", true}},
       {},
       true,
       100},
      {"a left-out sibling doesn't hold the row",
       {{"/home/u/0/a", true}},
       {"/home/u/0-old/p"},
       false,
       0},
  };
  for (const Case& test : cases) {
    ScanFinding finding = findingWith("caches", {"row", "other"});
    finding.items->at(0).bytes = 100;
    finding.bytes = 120;
    FindingSelection selection;
    selection.findingIDs.insert("caches");
    selection.itemIDs = itemIDsOf(finding, {0, 1});
    std::vector<CleanupItemResult> results;
    for (const Result& result : test.results) {
      CleanupItemResult row;
      row.originalPath = result.path;
      row.outcome = result.deleted ? CleanupItemOutcome::deleted : CleanupItemOutcome::failed;
      row.bytes = result.deleted ? 30 : 0;
      results.push_back(row);
    }
    const std::string rowID = finding.items->at(0).id;
    std::vector<ScanFinding> findings = {finding};
    removeDeleted(findings, selection, results, test.leftOut);
    ASSERT_EQ(findings.size(), 1u) << test.name;
    const auto& items = *findings[0].items;
    ASSERT_EQ(items.size(), test.rowStays ? 2u : 1u) << test.name;
    EXPECT_EQ(selection.itemIDs.contains(rowID), test.rowStays) << test.name;
    if (test.rowStays) {
      EXPECT_EQ(items[0].bytes, test.bytesLeft) << test.name;
    }
  }
}

TEST(FindingItemGroupingTest, GroupsByTitleLargestGroupFirstAndLargestItemFirst) {
  ScanFinding finding = findingWith("apps", {"Zoom", "Slack", "", "Slack", "Zoom"});
  // bytes are 10, 20, 30, 40, 50: Zoom 60, Slack 60, untitled 30.
  const auto groups = FindingItemGrouping::groups(finding);
  ASSERT_EQ(groups.size(), 3u);
  EXPECT_EQ(groups[0].title, "Slack");  // equal sums fall back to the title
  EXPECT_EQ(groups[1].title, "Zoom");
  EXPECT_EQ(groups[2].title, "apps title");
  EXPECT_EQ(groups[0].items.front().bytes, 40);
  EXPECT_EQ(groups[1].items.front().bytes, 50);
  EXPECT_TRUE(FindingItemGrouping::groups(findingWith("bare", {})).empty());
}

}  // namespace
}  // namespace brisko
