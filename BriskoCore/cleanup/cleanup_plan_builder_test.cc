// Plans built from real folders in a temporary home.

#include "cleanup/cleanup_plan_builder.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>

#include "cleanup/cleanup_planning_error.h"
#include "rules/cleanup_rule_catalog.h"
#include "rules/cleanup_rule_evaluator.h"
#include "testing/sample_home.h"
#include "testing/temporary_directory.h"

namespace brisko {
namespace {

using testing::TemporaryDirectory;

class CleanupPlanBuilderTest : public ::testing::Test {
 protected:
  CleanupPlan plan(std::vector<std::string> findings, std::vector<std::string> items = {}) {
    return CleanupPlanBuilder(home.path(), now).makePlan({std::move(findings), std::move(items)});
  }

  static std::vector<std::string> paths(const CleanupPlan& plan) {
    std::vector<std::string> result;
    for (const auto& item : plan.items)
      result.push_back(item.path);
    return result;
  }

  void age(const std::string& path, std::chrono::seconds by) {
    const auto when = std::chrono::system_clock::to_time_t(now) - by.count();
    const timespec times[2] = {{when, 0}, {when, 0}};
    ASSERT_EQ(::utimensat(AT_FDCWD, path.c_str(), times, AT_SYMLINK_NOFOLLOW), 0);
  }

  TemporaryDirectory home;
  Date now = std::chrono::floor<std::chrono::seconds>(std::chrono::system_clock::now());
};

TEST_F(CleanupPlanBuilderTest, AnEmptyRequestIsRefusedAndUnknownIDsGiveAnEmptyPlan) {
  try {
    plan({}, {});
    FAIL();
  } catch (const CleanupPlanningError& error) {
    EXPECT_EQ(error.kind(), CleanupPlanningError::Kind::emptySelection);
  }
  const CleanupPlan empty = plan({"no-such-rule"}, {"nothing:/x"});
  EXPECT_TRUE(empty.items.empty());
  EXPECT_TRUE(empty.skipped.empty());
  EXPECT_EQ(empty.protocolVersion, 3);
  EXPECT_EQ(empty.expiresAt - empty.createdAt, std::chrono::seconds(900));
}

TEST_F(CleanupPlanBuilderTest, AWholeFindingTakesEveryVisibleChildLargestFirst) {
  home.writeFile("Library/Caches/com.b.app/data", std::string(100, 'b'));
  home.writeFile("Library/Caches/com.a.app/data", std::string(100, 'a'));
  home.writeFile("Library/Caches/big/data", std::string(50000, 'x'));
  home.writeFile("Library/Caches/.hidden/data", "h");
  const CleanupPlan result = plan({"user-caches"});
  ASSERT_EQ(result.items.size(), 3u);
  EXPECT_EQ(result.items[0].path, home / "Library/Caches/big");
  // Equal sizes by path.
  EXPECT_EQ(result.items[1].path, home / "Library/Caches/com.a.app");
  EXPECT_EQ(result.items[2].path, home / "Library/Caches/com.b.app");
  const auto& item = result.items[0];
  EXPECT_EQ(item.title, "big");
  EXPECT_EQ(item.findingID, "user-caches");
  EXPECT_EQ(item.id, "user-caches:" + std::to_string(item.identity.deviceID) + ":" +
                         std::to_string(item.identity.fileID));
  EXPECT_EQ(item.identity.fileType, static_cast<std::uint32_t>(S_IFDIR));
  EXPECT_GE(item.estimatedBytes, 50000);
}

TEST_F(CleanupPlanBuilderTest, AnItemIDTakesOnlyThatChildUnlessTheWholeFindingIsPicked) {
  home.writeFile("Library/Caches/one/data", "1");
  home.writeFile("Library/Caches/two/data", "2");
  const std::string picked = "user-caches:" + home / "Library/Caches/one";
  EXPECT_EQ(paths(plan({}, {picked})), std::vector<std::string>{home / "Library/Caches/one"});
  EXPECT_EQ(plan({"user-caches"}, {picked}).items.size(), 2u);
  // An ID can only choose among candidates: a path outside the category is never taken.
  home.writeFile("Documents/precious", "x");
  EXPECT_TRUE(plan({}, {"user-caches:" + home / "Documents/precious"}).items.empty());
  EXPECT_TRUE(
      plan({}, {"user-caches:" + home / "Library/Caches/one/../../../Documents"}).items.empty());
}

TEST_F(CleanupPlanBuilderTest, RefusedCandidatesBecomeSkipsWithTheirReasons) {
  home.makeDirectory("Library/Caches");
  home.writeFile("Outside/keep", "x");
  home.makeSymlink("Library/Caches/link", home / "Outside");
  home.writeFile("Library/Caches/kept-by-whitelist/data", "w");
  home.writeFile(".config/brisko/whitelist", home / "Library/Caches/kept-by-whitelist" + "\n");
  const CleanupPlan result = plan({"user-caches", "xcode-derived-data"});
  EXPECT_TRUE(result.items.empty());
  ASSERT_EQ(result.skipped.size(), 3u);
  EXPECT_EQ(result.skipped[0].reason, CleanupPlanSkipReason::symbolicLink);
  EXPECT_EQ(result.skipped[0].id, "symbolicLink:" + home / "Library/Caches/link");
  EXPECT_EQ(result.skipped[0].message, "Symbolic links are never added to a cleanup plan.");
  EXPECT_EQ(result.skipped[1].reason, CleanupPlanSkipReason::whitelisted);
  EXPECT_EQ(result.skipped[1].message, "Protected by the Brisko whitelist.");
  EXPECT_EQ(result.skipped[2].reason, CleanupPlanSkipReason::pathMissing);
  EXPECT_EQ(result.skipped[2].id, "pathMissing:" + home / "Library/Developer/Xcode/DerivedData");
  EXPECT_EQ(result.skipped[2].message, "The scanned location no longer exists.");
}

TEST_F(CleanupPlanBuilderTest, OldLogsAreStrictlyOlderFilesNeverThroughLinks) {
  const std::string old = home.writeFile("Library/Logs/App/old.log", "o");
  const std::string fresh = home.writeFile("Library/Logs/App/new.log", "n");
  const std::string edge = home.writeFile("Library/Logs/App/edge.log", "e");
  const std::string outside = home.writeFile("Elsewhere/ancient.log", "a");
  home.makeSymlink("Library/Logs/App/linked", home / "Elsewhere");
  age(old, std::chrono::hours(24 * 8));
  age(fresh, std::chrono::hours(24 * 6));
  age(edge, std::chrono::hours(24 * 7));  // exactly at the cutoff: not older
  age(outside, std::chrono::hours(24 * 30));
  EXPECT_EQ(paths(plan({"user-logs"})), std::vector<std::string>{old});
  // A partial selection walks only the picked row.
  home.writeFile("Library/Logs/Other/old.log", "o");
  age(home / "Library/Logs/Other/old.log", std::chrono::hours(24 * 9));
  EXPECT_EQ(paths(plan({}, {"user-logs:" + home / "Library/Logs/Other"})),
            std::vector<std::string>{home / "Library/Logs/Other/old.log"});
}

TEST_F(CleanupPlanBuilderTest, PickedRowsCannotClimbOutOfTheRootOrCountTwice) {
  const std::string outside = home.writeFile("Documents/old-report.pdf", "r");
  age(outside, std::chrono::hours(24 * 30));
  home.makeSymlink("Library/Logs/to-documents", home / "Documents");
  EXPECT_TRUE(plan({}, {"user-logs:" + home / "Library/Logs/../../Documents"}).items.empty());
  EXPECT_TRUE(plan({}, {"user-logs:" + home / "Library/Logs/to-documents"}).items.empty());

  const std::string old = home.writeFile("Library/Logs/a/old.log", "o");
  age(old, std::chrono::hours(24 * 30));
  const CleanupPlan nested = plan(
      {}, {"user-logs:" + home / "Library/Logs/a", "user-logs:" + home / "Library/Logs/a/old.log"});
  EXPECT_EQ(paths(nested), std::vector<std::string>{old});
}

TEST_F(CleanupPlanBuilderTest, ANameThatIsNotUtf8IsSkippedAndThePlanStillWrites) {
  home.writeFile("Library/Caches/bad\xff/data", "x");
  home.writeFile("Library/Caches/good/data", "x");
  const CleanupPlan result = plan({"user-caches"});
  EXPECT_EQ(paths(result), std::vector<std::string>{home / "Library/Caches/good"});
  ASSERT_EQ(result.skipped.size(), 1u);
  EXPECT_EQ(result.skipped[0].reason, CleanupPlanSkipReason::invalidPath);
  EXPECT_EQ(result.skipped[0].path, home / "Library/Caches/bad\xEF\xBF\xBD");
  EXPECT_NO_THROW(encodeJson(result));
}

TEST_F(CleanupPlanBuilderTest, InstallersGoByExtension) {
  home.writeFile("Downloads/App.DMG", "d");
  home.writeFile("Downloads/tool.pkg", "p");
  home.writeFile("Downloads/notes.txt", "t");
  home.writeFile("Downloads/.hidden.dmg", "h");
  auto result = paths(plan({"downloaded-installers"}));
  std::sort(result.begin(), result.end());
  EXPECT_EQ(result,
            (std::vector<std::string>{home / "Downloads/App.DMG", home / "Downloads/tool.pkg"}));
}

TEST_F(CleanupPlanBuilderTest, TheCandidateLimitCutsWithoutARecord) {
  for (int i = 0; i < 12; ++i)
    home.writeFile("Library/Caches/c" + std::to_string(i), "x");
  CleanupPlanBuilder builder(home.path(), now);
  builder.maximumCandidates = 10;
  const CleanupPlan result = builder.makePlan({{"user-caches"}, {}});
  EXPECT_EQ(result.items.size(), 10u);
  EXPECT_TRUE(result.skipped.empty());
}

TEST_F(CleanupPlanBuilderTest, AStaleShellLinkEntersThePlanAndALiveOneDoesNot) {
  const std::string shells = home.makeDirectory("Library/Caches/fnm_multishells");
  home.makeDirectory("node/v20");
  // The digits behind the last "_" name the shell: one above the kernel's
  // limit can't exist, and our own does.
  const std::string stale =
      home.makeSymlink("Library/Caches/fnm_multishells/1_999999999", home / "node/v20");
  const std::string live = home.makeSymlink(
      "Library/Caches/fnm_multishells/1_" + std::to_string(::getpid()), home / "node/v20");
  EXPECT_TRUE(isStaleShellLink(stale));
  EXPECT_FALSE(isStaleShellLink(live));
  EXPECT_FALSE(isStaleShellLink(home / "node/v20"));
  EXPECT_EQ(staleShellLinks(shells), std::vector<std::string>{stale});
  // The folder itself is never offered: only its stale links, each checked again.
  const CleanupPlan result = plan({"user-caches"});
  EXPECT_EQ(paths(result), std::vector<std::string>{stale});
  EXPECT_EQ(result.items[0].identity.fileType, static_cast<std::uint32_t>(S_IFLNK));
  EXPECT_TRUE(CleanupPlanBuilder(home.path(), now).pathBelongsToSelection(stale, "user-caches"));
  EXPECT_FALSE(CleanupPlanBuilder(home.path(), now).pathBelongsToSelection(live, "user-caches"));
}

}  // namespace
}  // namespace brisko

namespace brisko {
namespace {

// A cache folder linked to another place (another disk, or by mistake the
// documents): the scan and the plan both refuse the root once, and nothing
// behind the link is offered or measured.
TEST_F(CleanupPlanBuilderTest, ARootThatIsALinkOrBehindOneIsOneSkipInScanAndPlan) {
  home.writeFile("Documents/letter.odt", std::string(30000, 'l'));
  home.writeFile("Documents/thumbnails/normal/a.png", std::string(8000, 't'));
  home.writeFile("Documents/Maps/tile.png", std::string(8000, 'm'));
  home.makeSymlink(".cache", home / "Documents");
  home.makeDirectory(".var/app/org.gnome.Maps");
  home.makeSymlink(".var/app/org.gnome.Maps/cache", home / "Documents/Maps");
  home.writeFile(".var/app/org.example.Real/cache/data", std::string(5000, 'r'));

  const struct {
    const char* rule;
    std::vector<std::string> linkedRoots;
  } cases[] = {
      {"dev-tool-caches", {home / ".cache"}},
      {"thumbnail-cache", {home / ".cache/thumbnails"}},
      {"flatpak-app-caches", {home / ".var/app/org.gnome.Maps/cache"}},
  };
  const CleanupRuleEvaluator evaluator(home.path(), now, std::vector<RunningProcess>{},
                                       std::nullopt, nullptr);
  for (const auto& c : cases) {
    SCOPED_TRACE(c.rule);
    const Measurement scanned = evaluator.measure(*CleanupRuleCatalog::rule(c.rule));
    EXPECT_EQ(scanned.skippedInvalid, static_cast<std::int64_t>(c.linkedRoots.size()));
    const CleanupPlan planned = plan({c.rule});
    std::vector<std::string> skipped;
    for (const auto& skip : planned.skipped) {
      if (skip.reason == CleanupPlanSkipReason::symbolicLink) skipped.push_back(skip.path);
    }
    EXPECT_EQ(skipped, c.linkedRoots);
    for (const auto& path : paths(planned))
      EXPECT_EQ(path.find("Documents"), std::string::npos) << path;
    for (const auto& item : scanned.detailItems)
      EXPECT_EQ(item.path.find("Documents"), std::string::npos) << item.path;
  }
  // The real Flatpak cache beside the linked one is offered as usual.
  EXPECT_EQ(paths(plan({"flatpak-app-caches"})),
            std::vector<std::string>{home / ".var/app/org.example.Real/cache/data"});

  // A plan file edited to name a path behind the link still doesn't belong.
  const CleanupPlanBuilder builder(home.path(), now);
  EXPECT_FALSE(builder.pathBelongsToSelection(home / ".cache/letter.odt", "dev-tool-caches"));
  EXPECT_TRUE(builder.pathBelongsToSelection(home / ".var/app/org.example.Real/cache/data",
                                             "flatpak-app-caches"));
}

// With the default whitelist and the policy's Linux rows, no plan of a whole
// Linux home holds a kept tool's data, a protected editor's or a browser
// profile's.
TEST_F(CleanupPlanBuilderTest, NoPlanOfTheSampleHomeHoldsWhatTheDefaultsKeep) {
  testing::buildSampleHome(home.path());
  std::vector<std::string> everyRule;
  for (const CleanupRule& rule : CleanupRuleCatalog::rules()) {
    // Uninstall leftovers overlap the logs by design, and a run keeps them
    // all on Linux, where no application inventory can call them orphaned.
    if (rule.action == RuleAction::cleanup && rule.id != "orphaned-app-data") {
      everyRule.push_back(rule.id);
    }
  }
  const CleanupPlan whole = plan(everyRule);
  ASSERT_FALSE(whole.items.empty());
  for (const auto& path : paths(whole)) {
    for (const char* kept :
         {"JetBrains", "ms-playwright", "virtualenvs", "Cursor", "History", "Login Data",
          "Bookmarks", "places.sqlite", "keyrings", "Documents", "steamapps/common", "userdata",
          "/data/", "storage", "AppImage", "lm-studio", "huggingface", "settings.json"}) {
      EXPECT_EQ(path.find(kept), std::string::npos) << path;
    }
  }
  // The service worker folder whose index names a protected web app stays.
  const std::string storage = home / ".config/chromium/Default/Service Worker/CacheStorage/";
  const auto items = paths(whole);
  EXPECT_EQ(
      std::count(items.begin(), items.end(), storage + "5e1d0f2a9b8c7d6e5f4a3b2c1d0e9f8a7b6c5d4e"),
      1);
  EXPECT_EQ(
      std::count(items.begin(), items.end(), storage + "c37a80b68feffc6077248fb3c9436b74151561b5"),
      0);
  // Nothing is planned twice, nor inside something else planned.
  std::vector<std::string> sorted = items;
  std::sort(sorted.begin(), sorted.end());
  for (size_t i = 1; i < sorted.size(); ++i) {
    EXPECT_NE(sorted[i], sorted[i - 1]);
    EXPECT_FALSE(sorted[i].starts_with(sorted[i - 1] + "/")) << sorted[i];
  }
}

}  // namespace
}  // namespace brisko
