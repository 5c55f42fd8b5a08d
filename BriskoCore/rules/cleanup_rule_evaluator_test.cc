#include "rules/cleanup_rule_evaluator.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <atomic>
#include <map>
#include <mutex>

#include "protocol/guard_warning_text.h"
#include "rules/cleanup_rule_catalog.h"
#include "rules/cleanup_rule_runtime.h"
#include "rules/concurrent_scan.h"
#include "rules/orphan_detection.h"
#include "rules/stub_spotlight_resolver.h"
#include "testing/sample_home.h"
#include "testing/temporary_directory.h"

namespace brisko {
namespace {

using testing::allocatedBytesBelow;
using testing::TemporaryDirectory;

Date now() {
  return std::chrono::time_point_cast<Date::duration>(std::chrono::system_clock::now());
}

const CleanupRule& rule(const std::string& id) {
  const CleanupRule* found = CleanupRuleCatalog::rule(id);
  EXPECT_NE(found, nullptr) << id;
  return *found;
}

// title -> bytes of a measurement's rows
std::map<std::string, std::int64_t> rows(const Measurement& m) {
  std::map<std::string, std::int64_t> result;
  for (const auto& item : m.detailItems)
    result[item.title + " | " + item.subtitle] += item.bytes;
  return result;
}

class EvaluatorOnSampleHome : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    dir_ = new TemporaryDirectory;
    home_ = dir_->path() + "/home";
    testing::buildSampleHome(home_);
  }
  static void TearDownTestSuite() { delete dir_; }

  static CleanupRuleEvaluator evaluator(
      RunningProcesses processes = std::vector<RunningProcess>{}) {
    return CleanupRuleEvaluator(home_, now(), std::move(processes), std::nullopt, nullptr);
  }
  static std::string at(const std::string& relative) { return home_ + "/" + relative; }

  static inline TemporaryDirectory* dir_ = nullptr;
  static inline std::string home_;
};

TEST_F(EvaluatorOnSampleHome, TopLevelRowsAreNamedMeasuredAndSortedWithRefusedPlacesLeftOut) {
  const Measurement caches = evaluator().measure(rule("user-caches"));
  const auto found = rows(caches);
  EXPECT_EQ(found.at("Spotify | com.spotify.client"),
            allocatedBytesBelow(at("Library/Caches/com.spotify.client")));
  EXPECT_EQ(found.at("Google Chrome | com.google.Chrome"),
            allocatedBytesBelow(at("Library/Caches/com.google.Chrome")));
  // The updater package inside PhotoStudio's cache counts as nothing.
  EXPECT_EQ(found.at("PhotoStudio | org.example.PhotoStudio"),
            allocatedBytesBelow(at("Library/Caches/org.example.PhotoStudio/previews")));
  EXPECT_EQ(found.size(), 4u) << "protected, whitelisted, empty and linked entries stay out";
  EXPECT_GE(caches.skippedProtected, 2);    // the password manager's folder and its file
  EXPECT_GE(caches.skippedWhitelisted, 1);  // JetBrains
  EXPECT_EQ(caches.skippedInvalid, 1);      // the link into the keychains
  for (size_t i = 1; i < caches.detailItems.size(); ++i)
    EXPECT_GE(caches.detailItems[i - 1].bytes, caches.detailItems[i].bytes);
  const auto& first = caches.detailItems.front();
  EXPECT_EQ(first.id, "user-caches:" + first.path);
  std::int64_t sum = 0;
  for (const auto& item : caches.detailItems)
    sum += item.bytes;
  EXPECT_EQ(caches.bytes, sum);
  EXPECT_FALSE(caches.isPartial);

  const Measurement derived = evaluator().measure(rule("xcode-derived-data"));
  EXPECT_EQ(rows(derived).count("Weather | Weather-bzxqqdyfvkwcdoeuiqnqvagpahqs"), 1u);
}

TEST_F(EvaluatorOnSampleHome, ModesMeasureWhatTheirRulesPromise) {
  const auto logs = rows(evaluator().measure(rule("user-logs")));
  EXPECT_EQ(logs.at("Sync | com.example.Sync"),
            allocatedBytesBelow(at("Library/Logs/com.example.Sync/sync-2024-01.log")));

  const auto installers = rows(evaluator().measure(rule("downloaded-installers")));
  EXPECT_EQ(installers.size(), 5u) << "the .deb and the .rpm join; the AppImage is a program";
  EXPECT_EQ(installers.count("Editor-x86_64.AppImage | APPIMAGE"), 0u);
  EXPECT_EQ(installers.at("Docker.dmg | DMG"), allocatedBytesBelow(at("Downloads/Docker.dmg")));

  const auto devices = rows(evaluator().measure(rule("xcode-device-support")));
  ASSERT_EQ(devices.size(), 1u);
  EXPECT_EQ(devices.begin()->first, "iOS DeviceSupport | 16.4 (20E247)");

  // Keep one: the pinned 1.0.17 and the newest 1.0.24 stay.
  const auto versions = rows(evaluator().measure(rule("stale-tool-versions")));
  ASSERT_EQ(versions.size(), 1u);
  EXPECT_EQ(versions.begin()->first, "Claude Code | 1.0.10");

  const std::string chrome = "Library/Application Support/Google/Chrome/Default/";
  const auto browsers = rows(evaluator().measure(rule("browser-caches")));
  EXPECT_EQ(browsers.at("Chrome cache | Offline web cache"),
            allocatedBytesBelow(at(chrome + "Service Worker/CacheStorage")) -
                allocatedBytesBelow(
                    at(chrome + "Service Worker/CacheStorage/77aa01_https_mail.google.com")));
  EXPECT_EQ(browsers.at("Firefox cache | cache2"),
            allocatedBytesBelow(at("Library/Application Support/Firefox/Profiles")) +
                allocatedBytesBelow(at(".cache/mozilla/firefox")));

  Measurement electron = evaluator().measure(rule("app-deep-caches"));
  // The Linux half's rows are checked on their own below.
  std::erase_if(electron.detailItems, [](const ScanFindingItem& item) {
    return item.path.find("/Library/") == std::string::npos;
  });
  ASSERT_EQ(electron.detailItems.size(), 1u) << "Notion's lone Cache folder doesn't qualify";
  EXPECT_EQ(electron.detailItems[0].title, "Slack");
  EXPECT_EQ(electron.detailItems[0].bytes,
            allocatedBytesBelow(at("Library/Application Support/Slack")) -
                allocatedBytesBelow(at("Library/Application Support/Slack/storage")));

  // Report-only rules are measured without the policy, even on a protected root.
  const auto mail = rows(evaluator().measure(rule("report-mail-data")));
  EXPECT_EQ(mail.at("Mail data | Mail"), allocatedBytesBelow(at("Library/Mail")));
  const auto models = rows(evaluator().measure(rule("report-ai-models")));
  EXPECT_EQ(models.size(), 3u) << "Ollama, Hugging Face and LM Studio's cache in ~/.cache";

  // ~/.cache is read item by item; the whitelisted Hugging Face cache and the
  // link out of the home fall out, the whitelisted Gradle cache measures nothing.
  const Measurement dev = evaluator().measure(rule("dev-tool-caches"));
  const auto devRows = rows(dev);
  EXPECT_EQ(devRows.count("huggingface | huggingface"), 0u);
  EXPECT_EQ(devRows.count("escape | escape"), 0u);
  EXPECT_EQ(devRows.at("pip | pip"), allocatedBytesBelow(at(".cache/pip")));
  EXPECT_EQ(devRows.count("Gradle build cache | caches"), 0u);
  EXPECT_GE(dev.skippedWhitelisted, 2);
}

TEST_F(EvaluatorOnSampleHome, GuardsMarkTheMeasurementButDontStopIt) {
  const Measurement free = evaluator().measure(rule("xcode-derived-data"));
  EXPECT_FALSE(free.guardBlocked);

  const Measurement running =
      evaluator({{{"Xcode", "/Applications/Xcode.app/Contents/MacOS/Xcode"}}})
          .measure(rule("xcode-derived-data"));
  EXPECT_TRUE(running.guardBlocked);
  EXPECT_TRUE(running.isPartial);
  EXPECT_EQ(running.bytes, free.bytes);
  ASSERT_EQ(running.guardWarnings.size(), 1u) << "the rule's own title, once";
  EXPECT_EQ(GuardWarningText::guardedTitle(running.guardWarnings[0]), "Xcode caches");

  // An unreadable process list blocks every guarded rule and no other.
  const auto absent = evaluator(std::nullopt);
  EXPECT_TRUE(absent.measure(rule("browser-caches")).guardBlocked);
  EXPECT_FALSE(absent.measure(rule("user-caches")).guardBlocked);
  // A guard warns for every guarded target, found or not, each text once.
  const auto warnings = absent.measure(rule("browser-caches")).guardWarnings;
  EXPECT_EQ(std::count_if(warnings.begin(), warnings.end(),
                          [](const std::string& w) {
                            return GuardWarningText::guardedTitle(w) == "Chrome cache";
                          }),
            1);
}

TEST_F(EvaluatorOnSampleHome, FindingsCarryTheRuleAndShowReportOnlyPlaces) {
  const auto e = evaluator();
  const Measurement caches = e.measure(rule("user-caches"));
  const auto finding = e.makeFinding(rule("user-caches"), caches);
  ASSERT_TRUE(finding);
  EXPECT_EQ(finding->path, at("Library/Caches"));
  EXPECT_EQ(finding->bytes, caches.bytes);
  EXPECT_EQ(finding->items->size(), caches.detailItems.size());
  EXPECT_EQ(finding->explanation, "Apps rebuild these on their own.");

  EXPECT_FALSE(e.makeFinding(rule("report-xcode-archives"), Measurement{}));
  EXPECT_FALSE(e.makeFinding(rule("user-caches"), Measurement{}));

  Measurement denied;
  denied.permissionDenied = true;
  denied.isPartial = true;
  const auto unreadable = e.makeFinding(rule("report-ios-backups"), denied);
  ASSERT_TRUE(unreadable);
  EXPECT_TRUE(unreadable->isPartial);
  EXPECT_EQ(unreadable->bytes, 0);
  EXPECT_EQ(unreadable->action, RuleAction::reportOnly);
  EXPECT_TRUE(unreadable->guidance.has_value());
}

TEST_F(EvaluatorOnSampleHome, WorkItemsCountEveryPlannedStep) {
  const auto e = evaluator();
  const auto all = e.expandedWorkItems(true);
  const auto without = e.expandedWorkItems(false);
  EXPECT_EQ(all.size(), without.size() + 1);
  const auto count = [&](const std::string& id) {
    return std::count_if(all.begin(), all.end(), [&](const auto& w) { return w.rule.id == id; });
  };
  EXPECT_EQ(count("user-caches"), 1);
  EXPECT_EQ(count("dev-tool-caches"), 38) << "missing fixed places still count";
  EXPECT_EQ(count("report-container-vms"), 1);
  // Pattern targets count only their matches: Chrome's two profiles for each P row,
  // and Chromium's one on Linux.
  const auto codeCaches = std::count_if(all.begin(), all.end(), [](const auto& w) {
    return w.root.ends_with("/Code Cache") && w.rule.id == "browser-caches";
  });
  EXPECT_EQ(codeCaches, 3);
}

TEST_F(EvaluatorOnSampleHome, ConcurrentScanGivesEachRuleItsOwnMeasurementInRuleOrder) {
  const auto e = evaluator();
  const auto rules = e.rules(true);
  std::mutex lock;
  std::vector<std::string> began;
  std::map<std::string, std::int64_t> roots;
  ConcurrentScan::Callbacks callbacks;
  callbacks.onRuleBegan = [&](const CleanupRule& r) {
    std::lock_guard guard(lock);
    began.push_back(r.id);
  };
  callbacks.onRuleMeasured = [&](const CleanupRule& r, const Measurement&, std::int64_t n) {
    std::lock_guard guard(lock);
    roots[r.id] = n;
  };
  const auto results = ConcurrentScan::measureAll(rules, e, callbacks);
  ASSERT_EQ(results.size(), rules.size());
  EXPECT_EQ(began.size(), rules.size());
  for (size_t i = 0; i < rules.size(); ++i) {
    const Measurement alone = e.measure(rules[i]);
    EXPECT_EQ(results[i].bytes, alone.bytes) << rules[i].id;
    EXPECT_EQ(results[i].detailItems, alone.detailItems) << rules[i].id;
  }
  EXPECT_EQ(roots.at("user-caches"), 1);
  EXPECT_EQ(roots.at("dev-tool-caches"), 5) << "only the places that exist report";

  const auto order = ConcurrentScan::schedulingOrder(rules);
  EXPECT_EQ(rules[order[0]].id, "app-deep-caches");
  EXPECT_EQ(rules[order[1]].id, "user-caches");
  EXPECT_EQ(rules[order.back()].id, "game-shader-caches") << "weight 0, last in the catalog";
}

TEST(CleanupRuleEvaluator, OrphanRuleNeedsACompleteInventoryAndAClearAnswer) {
  TemporaryDirectory dir;
  const std::string home = dir.makeDirectory("home");
  dir.writeFile("home/Library/Caches/com.example.gone/data", std::string(20000, 'g'));
  dir.writeFile("home/Library/Caches/com.example.present/data", std::string(20000, 'p'));
  const auto old =
      std::chrono::system_clock::to_time_t(std::chrono::system_clock::now()) - 40 * 24 * 60 * 60;
  const struct timespec times[2] = {{old, 0}, {old, 0}};
  for (const char* name : {"com.example.gone", "com.example.present"}) {
    ASSERT_EQ(::utimensat(AT_FDCWD, (home + "/Library/Caches/" + name).c_str(), times, 0), 0);
  }
  auto spotlight = std::make_shared<StubSpotlightResolver>(
      std::map<std::string, std::optional<bool>>{{"com.example.gone", false}});
  const CleanupRule& orphans = *CleanupRuleCatalog::rule("orphaned-app-data");

  CleanupRuleEvaluator incomplete(home, now(), std::vector<RunningProcess>{},
                                  InstalledAppInventory::of({}, false), spotlight);
  const Measurement none = incomplete.measure(orphans);
  EXPECT_TRUE(none.inventoryIncomplete);
  EXPECT_FALSE(incomplete.makeFinding(orphans, none));

  CleanupRuleEvaluator complete(home, now(), std::vector<RunningProcess>{},
                                InstalledAppInventory::of({"com.example.present"}, true),
                                spotlight);
  const Measurement found = complete.measure(orphans);
  ASSERT_EQ(found.detailItems.size(), 1u);
  EXPECT_EQ(found.detailItems[0].title, "com.example.gone");
  EXPECT_EQ(found.detailItems[0].subtitle, "Caches");
  EXPECT_EQ(found.bytes, OrphanDetection::allocatedSize(home + "/Library/Caches/com.example.gone"));
}

TEST(CleanupRuleEvaluator, DisplayNamesOfTopLevelChildren) {
  using E = CleanupRuleEvaluator;
  EXPECT_EQ(E::displayName("com.google.Chrome", FindingKind::userCache), "Google Chrome");
  EXPECT_EQ(E::displayName("org.example.Tool", FindingKind::userCache), "Tool");
  EXPECT_EQ(E::displayName("plain", FindingKind::userCache), "plain");
  EXPECT_EQ(E::displayName("App-abcdefghijklmnopqrstu", FindingKind::developer), "App");
  EXPECT_EQ(E::displayName("App-abcdefghijklmnopqrst", FindingKind::developer),
            "App-abcdefghijklmnopqrst")
      << "20 characters after the dash are no hash";
  EXPECT_EQ(E::displayName("com.google.Chrome", FindingKind::installer), "com.google.Chrome");
}

}  // namespace
}  // namespace brisko

namespace brisko {
namespace {

// The Linux half of the sample home: each place in its finding, titled, with
// the allocated bytes of what it names, and no file in two items.
TEST_F(EvaluatorOnSampleHome, ALinuxHomesPlacesStandInTheirFindingsOnceWithTheirBytes) {
  struct Place {
    const char* rule;
    std::string item;  // the item's path below the home
    const char* title;
    std::vector<std::string> measured;  // what its bytes are; the item itself when empty
  };
  const std::string sw = ".config/chromium/Default/Service Worker/CacheStorage";
  const std::vector<Place> places = {
      {"browser-caches", ".cache/chromium/Default/Cache", "Chromium cache", {}},
      {"browser-caches", ".cache/chromium/Default/Code Cache", "Chromium cache", {}},
      {"browser-caches", ".config/chromium/Default/GPUCache", "Chromium cache", {}},
      {"browser-caches", ".config/chromium/Default/DawnWebGPUCache", "Chromium cache", {}},
      {"browser-caches", ".config/chromium/component_crx_cache", "Chromium cache", {}},
      {"browser-caches", ".config/chromium/Crash Reports/completed", "Chromium cache", {}},
      // Only the origin whose index names no protected web app.
      {"browser-caches", sw, "Chromium cache", {sw + "/5e1d0f2a9b8c7d6e5f4a3b2c1d0e9f8a7b6c5d4e"}},
      {"browser-caches", ".cache/google-chrome/Profile 1/Cache", "Chrome cache", {}},
      {"browser-caches", ".config/google-chrome/Profile 1/GPUCache", "Chrome cache", {}},
      {"browser-caches", ".config/google-chrome/OptGuideOnDeviceModel", "Chrome cache", {}},
      {"browser-caches", ".cache/mozilla/firefox/ab12cd34.default-esr/cache2", "Firefox cache", {}},
      {"app-deep-caches",
       ".config/Slack",
       "Slack",
       {".config/Slack/Code Cache", ".config/Slack/GPUCache", ".config/Slack/Cache"}},
      {"app-deep-caches", ".config/Code", "Code", {".config/Code/Code Cache"}},
      {"app-deep-caches", ".config/Code/CachedExtensionVSIXs", "VS Code cache", {}},
      {"app-deep-caches", ".config/Code/logs", "VS Code cache", {}},
      {"app-deep-caches",
       ".var/app/com.discordapp.Discord/config/discord",
       "discord",
       {".var/app/com.discordapp.Discord/config/discord/Code Cache",
        ".var/app/com.discordapp.Discord/config/discord/GPUCache"}},
      {"flatpak-app-caches", ".var/app/org.gnome.Maps/cache", "org.gnome.Maps", {}},
      {"flatpak-app-caches", ".var/app/com.spotify.Client/cache", "com.spotify.Client", {}},
      {"snap-app-caches", "snap/firefox/common/.cache", "firefox", {}},
      {"snap-app-caches", "snap/firefox/4200/.cache", "firefox", {}},
      {"thumbnail-cache", ".cache/thumbnails", "Thumbnails", {}},
      {"game-shader-caches", ".local/share/Steam/steamapps/shadercache", "Steam shader cache", {}},
      {"user-logs", ".xsession-errors.old", "X session errors", {}},
      {"user-logs", ".local/share/xorg/Xorg.0.log.old", "Xorg logs", {}},
      {"user-logs", ".local/state/nvim/log", "nvim log", {}},
      {"user-logs", ".local/state/nvim/lsp.log", "Neovim language server log", {}},
      {"user-logs", ".local/state/syncthing/logs/2024-05.log", "syncthing logs", {}},
      {"user-logs", ".mozilla/firefox/Crash Reports/pending/3c4d.dmp", "Firefox crash reports", {}},
      {"user-logs",
       ".mozilla/firefox/Crash Reports/submitted/bp-5e6f.txt",
       "Firefox crash reports",
       {}},
      {"downloaded-installers", "Downloads/code_1.90.0_amd64.deb", "code_1.90.0_amd64.deb", {}},
      {"downloaded-installers", "Downloads/tool-2.0-1.x86_64.rpm", "tool-2.0-1.x86_64.rpm", {}},
      {"dev-tool-caches", ".cache/pip", "pip", {}},
  };
  const auto e = evaluator();
  std::map<std::string, Measurement> measured;
  for (const CleanupRule& r : CleanupRuleCatalog::rules()) {
    if (r.action == RuleAction::cleanup) measured[r.id] = e.measure(r);
  }
  for (const Place& place : places) {
    SCOPED_TRACE(place.item);
    const auto& items = measured.at(place.rule).detailItems;
    const auto found = std::find_if(items.begin(), items.end(),
                                    [&](const auto& item) { return item.path == at(place.item); });
    ASSERT_NE(found, items.end()) << place.rule;
    EXPECT_EQ(found->title, place.title);
    EXPECT_FALSE(found->subtitle.empty());
    std::int64_t bytes = 0;
    for (const std::string& part :
         place.measured.empty() ? std::vector<std::string>{place.item} : place.measured) {
      bytes += allocatedBytesBelow(at(part));
    }
    EXPECT_EQ(found->bytes, bytes);
  }

  // No item holds another's file: no path twice, none inside another. An
  // application's web cache row stands for its cache folders only.
  std::vector<std::pair<std::string, std::string>> all;
  for (const auto& [id, m] : measured) {
    for (const auto& item : m.detailItems) {
      if (item.subtitle != "App web cache") {
        all.emplace_back(item.path, id);
        continue;
      }
      for (const std::string& folder : CleanupRuleRuntime::electronCacheFolders(item.path))
        all.emplace_back(folder, id);
    }
  }
  std::sort(all.begin(), all.end());
  for (size_t i = 1; i < all.size(); ++i) {
    EXPECT_NE(all[i].first, all[i - 1].first) << all[i].second << " and " << all[i - 1].second;
    EXPECT_FALSE(all[i].first.starts_with(all[i - 1].first + "/"))
        << all[i].first << " (" << all[i].second << ") inside " << all[i - 1].second;
  }
  // What other rules own or nobody may touch stays out of ~/.cache's rows.
  for (const auto& item : measured.at("dev-tool-caches").detailItems) {
    for (const char* owned : {"chromium", "google-chrome", "mozilla", "thumbnails", "lm-studio",
                              "JetBrains", "ms-playwright"}) {
      EXPECT_NE(item.title, owned);
    }
  }
  EXPECT_FALSE(measured.at("user-logs").detailItems.empty());
  for (const auto& item : measured.at("user-logs").detailItems) {
    EXPECT_NE(item.path, at(".local/share/xorg/Xorg.0.log")) << "a fresh log stays";
    EXPECT_NE(item.path, at(".mozilla/firefox/Crash Reports/pending/fresh.dmp"));
  }
}

TEST_F(EvaluatorOnSampleHome, FlatpakAndSnapCachesAreGuardedByTheirOwnApplication) {
  const RunningProcesses maps =
      std::vector<RunningProcess>{{"gnome-maps", "/flatpak/app/org.gnome.Maps/app/bin/gnome-maps"},
                                  {"firefox", "/snap/firefox/4200/usr/lib/firefox/firefox"}};
  for (const char* id : {"flatpak-app-caches", "snap-app-caches"}) {
    const Measurement running = evaluator(maps).measure(rule(id));
    EXPECT_TRUE(running.guardBlocked) << id;
    ASSERT_EQ(running.guardWarnings.size(), 1u) << id;
    const std::string title = GuardWarningText::guardedTitle(running.guardWarnings[0]).value_or("");
    EXPECT_TRUE(title == "org.gnome.Maps" || title == "firefox") << title;
  }
  const RunningProcesses other =
      std::vector<RunningProcess>{{"spotify", "/flatpak/app/com.spotify.Client/app/bin/spotify"}};
  const auto warnings = evaluator(other).measure(rule("flatpak-app-caches")).guardWarnings;
  ASSERT_EQ(warnings.size(), 1u);
  EXPECT_EQ(GuardWarningText::guardedTitle(warnings[0]), "com.spotify.Client");
  EXPECT_FALSE(evaluator().measure(rule("flatpak-app-caches")).guardBlocked);
}

}  // namespace
}  // namespace brisko
