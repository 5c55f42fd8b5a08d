#include "rules/cleanup_rule_catalog.h"

#include <gtest/gtest.h>

#include <fstream>
#include <sstream>
#include <string>
#include <vector>

// The catalog written out a second time, flat, in cleanup_rule_catalog_table.tsv
// beside this file: one row per rule, guard and target, every path in full,
// targets in catalog order. The catalog source groups and generates its
// targets; the table doesn't, so a slip in either shows up here.

namespace brisko {
namespace {

// The table's rows of one kind, each split at its tabs (empty fields kept).
std::vector<std::vector<std::string>> tableRows(const std::string& kind) {
  std::ifstream table(BRISKO_CATALOG_TABLE);
  EXPECT_TRUE(table.is_open()) << BRISKO_CATALOG_TABLE;
  std::vector<std::vector<std::string>> rows;
  std::string line;
  while (std::getline(table, line)) {
    std::vector<std::string> fields;
    std::stringstream split(line);
    std::string field;
    while (std::getline(split, field, '\t'))
      fields.push_back(field);
    if (!line.empty() && line.back() == '\t') fields.emplace_back();
    if (!fields.empty() && fields[0] == kind) rows.emplace_back(fields.begin() + 1, fields.end());
  }
  return rows;
}

std::vector<std::string> listOf(const std::string& field) {
  std::vector<std::string> items;
  std::stringstream split(field);
  std::string item;
  while (std::getline(split, item, '|'))
    items.push_back(item);
  return items;
}

template <typename E>
std::string nameOf(E value) {
  return std::string(EnumNames<E>::names[static_cast<size_t>(value)]);
}

std::string joined(const auto& items, const char* separator) {
  std::string text;
  for (const auto& item : items) {
    if (!text.empty()) text += separator;
    text += item;
  }
  return text;
}

std::string describe(const RuleTargetMode& mode) {
  using Mode = RuleTargetMode;
  if (mode.as<Mode::Contents>()) return "contents";
  if (auto* m = mode.as<Mode::TopLevel>()) {
    if (m->excludedEntries.empty()) return "topLevel";
    return "topLevel(" + joined(m->excludedEntries, ",") + ")";
  }
  if (mode.as<Mode::ServiceWorkerCacheStorage>()) return "sw";
  if (auto* m = mode.as<Mode::OldFiles>()) return "oldFiles(" + std::to_string(m->days) + ")";
  if (auto* m = mode.as<Mode::FilesWithExtensions>()) {
    return "extensions(" + joined(m->extensions, ",") + ")";
  }
  if (auto* m = mode.as<Mode::KeepNewestVersions>()) {
    std::string text = "keepNewest(" + std::to_string(m->keep);
    if (m->activePin) text += "," + *m->activePin;
    return text + ")";
  }
  if (auto* m = mode.as<Mode::KeepActiveAndNewer>()) {
    return "activeAndNewer(" + m->currentSymlink + ")";
  }
  if (auto* m = mode.as<Mode::ElectronAppSupportCaches>()) {
    return "electron(" + joined(m->excludedEntries, ",") + ")";
  }
  if (auto* m = mode.as<Mode::AppBundlePresence>()) {
    return "presence(" + joined(m->paths, "|") + ")";
  }
  if (auto* m = mode.as<Mode::OrphanedBundles>()) {
    const char* names[] = {"caches", "logs", "savedState"};
    return std::string("orphan(") + names[static_cast<int>(m->resource)] + ")";
  }
  return "?";
}

// The label of the expected guard equal to this one, or "unknown".
std::string labelOf(const RuleGuard& guard) {
  static const auto guards = tableRows("guard");
  for (const auto& row : guards) {
    if (guard == RuleGuard::processNotRunning(listOf(row.at(1)), listOf(row.at(2)))) return row[0];
  }
  return "unknown";
}

std::string labelsOf(const std::vector<RuleGuard>& guards) {
  std::vector<std::string> labels;
  for (const RuleGuard& guard : guards)
    labels.push_back(labelOf(guard));
  return joined(labels, "+");
}

TEST(CleanupRuleCatalog, RulesStandInOrderWithTheirTexts) {
  const auto& rules = CleanupRuleCatalog::rules();
  const auto expected = tableRows("rule");
  ASSERT_EQ(rules.size(), 23u);
  ASSERT_EQ(expected.size(), 23u);
  for (size_t i = 0; i < rules.size(); ++i) {
    const CleanupRule& rule = rules[i];
    const auto& row = expected[i];
    ASSERT_EQ(row.size(), 10u);
    SCOPED_TRACE(row[0]);
    EXPECT_EQ(rule.id, row[0]);
    EXPECT_EQ(nameOf(rule.kind), row[1]);
    EXPECT_EQ(nameOf(rule.risk), row[2]);
    EXPECT_EQ(std::to_string(rule.targets.size()), row[3]);
    EXPECT_EQ(nameOf(rule.action), row[4]);
    EXPECT_EQ(labelsOf(rule.guards), row[5]);
    EXPECT_EQ(rule.title, row[6]);
    EXPECT_EQ(rule.subtitle, row[7]);
    EXPECT_EQ(rule.explanation, row[8]);
    // Guidance is present exactly on the report-only rules.
    if (rule.action == RuleAction::reportOnly) {
      ASSERT_TRUE(rule.guidance.has_value());
      EXPECT_EQ(*rule.guidance, row[9]);
    } else {
      EXPECT_FALSE(rule.guidance.has_value());
      EXPECT_EQ(row[9], "");
    }
  }
  // Leaving the installers out keeps every other rule in its place.
  std::vector<CleanupRule> without = rules;
  std::erase_if(without,
                [](const CleanupRule& rule) { return rule.id == "downloaded-installers"; });
  EXPECT_EQ(without.size(), 22u);
  EXPECT_EQ(CleanupRuleCatalog::rules(false), without);
  EXPECT_EQ(CleanupRuleCatalog::rules(true), rules);
}

TEST(CleanupRuleCatalog, GuardsNameTheirProcesses) {
  const auto& g = CleanupRuleCatalog::guards();
  const std::vector<const RuleGuard*> inOrder = {
      &g.xcode,  &g.simulator, &g.chrome,  &g.arc,      &g.brave,   &g.vivaldi,
      &g.dia,    &g.helium,    &g.yandex,  &g.qq,       &g.firefox, &g.edge,
      &g.capCut, &g.finalCut,  &g.resolve, &g.chromium, &g.opera,   &g.steam};
  const auto expected = tableRows("guard");
  ASSERT_EQ(expected.size(), inOrder.size() + 2) << "and the two named by their root";
  for (size_t i = 0; i < inOrder.size(); ++i) {
    SCOPED_TRACE(expected[i].at(0));
    EXPECT_EQ(inOrder[i]->names, listOf(expected[i].at(1)));
    EXPECT_EQ(inOrder[i]->pathFragments, listOf(expected[i].at(2)));
  }
}

TEST(CleanupRuleCatalog, EveryTargetInOrderWithModeTitleAndGuard) {
  std::vector<std::pair<std::string, const RuleTarget*>> actual;
  for (const CleanupRule& rule : CleanupRuleCatalog::rules()) {
    for (const RuleTarget& target : rule.targets)
      actual.emplace_back(rule.id, &target);
  }
  const auto expected = tableRows("target");
  ASSERT_EQ(actual.size(), expected.size());
  for (size_t i = 0; i < actual.size(); ++i) {
    const RuleTarget& target = *actual[i].second;
    const auto& row = expected[i];
    ASSERT_EQ(row.size(), 5u) << i;
    SCOPED_TRACE(std::to_string(i) + ": " + row[1]);
    EXPECT_EQ(actual[i].first, row[0]);
    EXPECT_EQ(target.path, row[1]);
    EXPECT_EQ(describe(target.mode), row[2]);
    EXPECT_EQ(target.itemTitle.value_or(""), row[3]);
    // An absent title and an empty one are different things; no row has an empty one.
    if (target.itemTitle) {
      EXPECT_FALSE(target.itemTitle->empty());
    }
    EXPECT_EQ(labelsOf(target.guards), row[4]);
  }
}

TEST(CleanupRuleCatalog, ServiceWorkerRowsKeepTheEighteenWebApps) {
  const std::vector<std::string> domains = {
      "capcut.com",        "photopea.com",      "pixlr.com",        "docs.google.com",
      "sheets.google.com", "slides.google.com", "drive.google.com", "mail.google.com",
      "github.com",        "gitlab.com",        "codepen.io",       "codesandbox.io",
      "replit.com",        "stackblitz.com",    "notion.so",        "figma.com",
      "linear.app",        "excalidraw.com"};
  EXPECT_EQ(CleanupRuleCatalog::protectedDomains(), domains);
  int serviceWorkerRows = 0;
  for (const RuleTarget& target : CleanupRuleCatalog::rule("browser-caches")->targets) {
    if (auto* sw = target.mode.as<RuleTargetMode::ServiceWorkerCacheStorage>()) {
      ++serviceWorkerRows;
      EXPECT_EQ(sw->protectedDomains, domains) << target.path;
      EXPECT_TRUE(target.guards.empty()) << target.path;
    } else {
      EXPECT_EQ(target.guards.size(), 1u) << target.path;
    }
  }
  // Chrome, Arc (two), Brave, Vivaldi and Dia; then Linux's six chromium browsers.
  EXPECT_EQ(serviceWorkerRows, 12);
}

}  // namespace
}  // namespace brisko
