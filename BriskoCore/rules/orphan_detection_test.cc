#include "rules/orphan_detection.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <mutex>
#include <thread>

#include "platform/spotlight_query.h"
#include "platform/system_spotlight_resolver.h"
#include "rules/caching_spotlight_resolver.h"
#include "rules/stub_spotlight_resolver.h"
#include "testing/ordinary_user.h"
#include "testing/temporary_directory.h"

namespace brisko {
namespace {

using namespace std::chrono_literals;
using OrphanDetection::Judgement;
using OrphanDetection::MtimeSource;
using testing::TemporaryDirectory;

constexpr auto kThirtyDays = std::chrono::seconds(2592000);

TEST(OrphanDetection, BundleIdentifiersComeFromFolderNames) {
  using OrphanDetection::bundleID;
  EXPECT_EQ(bundleID("com.example.App", OrphanResource::caches), "com.example.App");
  EXPECT_EQ(bundleID("ORG.Example.tool", OrphanResource::logs), "ORG.Example.tool");
  EXPECT_EQ(bundleID("io.x", OrphanResource::caches), "io.x");
  EXPECT_EQ(bundleID("net.x", OrphanResource::caches), "net.x");
  EXPECT_EQ(bundleID("dev.orbstack", OrphanResource::caches), std::nullopt);
  EXPECT_EQ(bundleID("Google", OrphanResource::caches), std::nullopt);
  EXPECT_EQ(bundleID("com.apple.Safari", OrphanResource::caches), std::nullopt);
  EXPECT_EQ(bundleID("COM.APPLE.Music", OrphanResource::logs), std::nullopt);
  // In the saved-state folder only ".savedState" names count, without it.
  EXPECT_EQ(bundleID("com.example.app.savedState", OrphanResource::savedState), "com.example.app");
  EXPECT_EQ(bundleID("com.example.app", OrphanResource::savedState), std::nullopt);
  EXPECT_EQ(bundleID("com.apple.Safari.savedState", OrphanResource::savedState), std::nullopt);
  EXPECT_EQ(bundleID("example.savedState", OrphanResource::savedState), std::nullopt);
}

TEST(OrphanDetection, SensitiveNamesAnywhereInTheIdentifier) {
  EXPECT_TRUE(OrphanDetection::isSensitiveName("com.example.1password-helper"));
  EXPECT_TRUE(OrphanDetection::isSensitiveName("com.example.sshfs"));
  EXPECT_TRUE(OrphanDetection::isSensitiveName("com.Bitwarden.Desktop"));
  EXPECT_TRUE(OrphanDetection::isSensitiveName("org.gnupg.agent"));
  EXPECT_TRUE(OrphanDetection::isSensitiveName("io.keepassxc"));
  EXPECT_FALSE(OrphanDetection::isSensitiveName("com.example.editor"));
}

TEST(OrphanDetection, ResourceIsTheFolderThatHoldsThePathDirectly) {
  const std::string home = "/home/ann";
  EXPECT_EQ(OrphanDetection::resource("/home/ann/Library/Caches/com.x", home),
            OrphanResource::caches);
  EXPECT_EQ(OrphanDetection::resource("/home/ann/Library/Logs/com.x/", home), OrphanResource::logs);
  EXPECT_EQ(
      OrphanDetection::resource("/home/ann/Library/Saved Application State/com.x.savedState", home),
      OrphanResource::savedState);
  EXPECT_EQ(OrphanDetection::resource("/home/ann/Library/Caches/com.x/inner", home), std::nullopt);
  EXPECT_EQ(OrphanDetection::resource("/home/ann/Library/CachesOld/com.x", home), std::nullopt);
  EXPECT_EQ(OrphanDetection::resource("/home/ann/Library/Caches", home), std::nullopt);
}

TEST(OrphanDetection, AllocatedSizeCountsFilesBelowWithoutFollowingLinks) {
  TemporaryDirectory folder;
  const std::string entry = folder.makeDirectory("com.example.Gone");
  folder.writeFile("com.example.Gone/a", std::string(10000, 'a'));
  folder.writeFile("com.example.Gone/deep/er/b", std::string(5000, 'b'));
  folder.writeFile("elsewhere/big", std::string(100000, 'c'));
  folder.makeSymlink("com.example.Gone/link", folder / "elsewhere/big");
  folder.makeSymlink("com.example.Gone/linked-folder", folder / "elsewhere");
  folder.makeDirectory("com.example.Gone/empty");

  int64_t expected = 0;
  for (const char* file : {"com.example.Gone/a", "com.example.Gone/deep/er/b"}) {
    struct stat status;
    ASSERT_EQ(::lstat((folder / file).c_str(), &status), 0);
    expected += static_cast<int64_t>(status.st_blocks) * 512;
  }
  EXPECT_GT(expected, 0);
  EXPECT_EQ(OrphanDetection::allocatedSize(entry), expected);
  EXPECT_EQ(OrphanDetection::allocatedSize(folder / "com.example.Gone/empty"), 0);
  EXPECT_EQ(OrphanDetection::allocatedSize(folder / "com.example.Gone/link"), 0);
  EXPECT_EQ(OrphanDetection::allocatedSize(folder / "missing"), 0);
}

class OrphanJudgementTest : public ::testing::Test {
 protected:
  OrphanJudgementTest()
      : policy(home.path(), {}), inventory(InstalledAppInventory::of({"com.example.Live"}, true)) {
    home.makeDirectory("Library/Caches");
    home.makeDirectory("Library/Logs");
    home.makeDirectory("Library/Saved Application State");
  }

  // A cache folder with something in it.
  std::string cacheFolder(const std::string& name,
                          std::string_view relativeRoot = "Library/Caches") {
    const std::string relative = std::string(relativeRoot) + "/" + name;
    home.writeFile(relative + "/data", std::string(20000, 'x'));
    return home / relative;
  }

  Judgement judge(const std::string& entry, const MtimeSource& mtime,
                  OrphanResource resource = OrphanResource::caches) const {
    return OrphanDetection::judge(entry, resource, inventory, spotlight, policy, mtime, now);
  }

  Judgement judgeAged(const std::string& entry, std::chrono::seconds age) const {
    return judge(entry, MtimeSource::fixed(now - age));
  }

  TemporaryDirectory home;
  PathSafetyPolicy policy;
  InstalledAppInventory inventory;
  StubSpotlightResolver spotlight;  // knows nothing: every identifier is "not installed"
  Date now = currentDate();
};

TEST_F(OrphanJudgementTest, ThirtyDaysOfSilenceMakeAnOrphan) {
  const std::string entry = cacheFolder("com.example.Gone");
  const Judgement orphan = judgeAged(entry, kThirtyDays);
  ASSERT_NE(orphan.as<Judgement::Orphan>(), nullptr);
  EXPECT_EQ(orphan.as<Judgement::Orphan>()->displayBundleID, "com.example.Gone");
  EXPECT_EQ(orphan.as<Judgement::Orphan>()->bytes, OrphanDetection::allocatedSize(entry));
  EXPECT_GE(orphan.as<Judgement::Orphan>()->bytes, 20000);

  EXPECT_EQ(judgeAged(entry, kThirtyDays - 1h), Judgement::notOrphan());
  EXPECT_EQ(judgeAged(entry, kThirtyDays - 1s), Judgement::notOrphan());
  EXPECT_EQ(judge(entry, MtimeSource::fixed(std::nullopt)), Judgement::notOrphan());
}

TEST_F(OrphanJudgementTest, TheDateOnDiskCounts) {
  const std::string entry = cacheFolder("com.example.Gone");
  EXPECT_EQ(judge(entry, MtimeSource::readFromDisk()), Judgement::notOrphan());
  const auto old = std::chrono::system_clock::to_time_t(now - kThirtyDays - 1h);
  const timespec times[2] = {{old, 0}, {old, 0}};
  ASSERT_EQ(::utimensat(AT_FDCWD, entry.c_str(), times, AT_SYMLINK_NOFOLLOW), 0);
  EXPECT_NE(judge(entry, MtimeSource::readFromDisk()).as<Judgement::Orphan>(), nullptr);
}

TEST_F(OrphanJudgementTest, EveryDoubtKeepsTheFolder) {
  const auto old = 90 * 24h;
  // Installed, in any case.
  EXPECT_EQ(judgeAged(cacheFolder("COM.EXAMPLE.LIVE"), old), Judgement::notOrphan());
  // Sensitive, Apple's own, or not an identifier at all.
  EXPECT_EQ(judgeAged(cacheFolder("com.example.sshfs"), old), Judgement::notOrphan());
  EXPECT_EQ(judgeAged(cacheFolder("com.apple.Safari"), old), Judgement::notOrphan());
  EXPECT_EQ(judgeAged(cacheFolder("Firefox"), old), Judgement::notOrphan());
  // Empty: nothing to offer.
  home.makeDirectory("Library/Caches/com.example.Empty");
  EXPECT_EQ(judgeAged(home / "Library/Caches/com.example.Empty", old), Judgement::notOrphan());

  // Spotlight: only a clear "not installed" goes on.
  const std::string gone = cacheFolder("com.example.Gone");
  const StubSpotlightResolver knows({{"com.example.gone", true}});
  const StubSpotlightResolver silent({{"COM.example.Gone", std::nullopt}});
  const UnavailableSpotlightResolver unavailable;
  for (const SpotlightResolver* resolver :
       std::vector<const SpotlightResolver*>{&knows, &silent, &unavailable}) {
    EXPECT_EQ(OrphanDetection::judge(gone, OrphanResource::caches, inventory, *resolver, policy,
                                     MtimeSource::fixed(now - old), now),
              Judgement::notOrphan());
  }

  // An inventory that couldn't be completed can't tell that an app is gone.
  const auto partial = InstalledAppInventory::of({}, false);
  EXPECT_EQ(OrphanDetection::judge(gone, OrphanResource::caches, partial, spotlight, policy,
                                   MtimeSource::fixed(now - old), now),
            Judgement::notOrphan());
}

TEST_F(OrphanJudgementTest, ThePolicyIsAskedBeforeTheDate) {
  // Protected by name, whatever its age or date.
  EXPECT_EQ(judge(cacheFolder("com.jetbrains.Toolbox"), MtimeSource::fixed(std::nullopt)),
            Judgement::policySkipped(true, false, false));
  const std::string kept = cacheFolder("com.example.Kept");
  const PathSafetyPolicy keeping(home.path(), {"~/Library/Caches/com.example.Kept"});
  EXPECT_EQ(OrphanDetection::judge(kept, OrphanResource::caches, inventory, spotlight, keeping,
                                   MtimeSource::fixed(now), now),
            Judgement::policySkipped(false, true, false));
  EXPECT_EQ(judge(home / "Library/Caches/com.example.\u200Bhidden", MtimeSource::fixed(now)),
            Judgement::policySkipped(false, false, true));
}

TEST_F(OrphanJudgementTest, SavedStateAndQuotedIdentifiers) {
  const std::string state =
      cacheFolder("com.example.Editor.savedState", "Library/Saved Application State");
  const Judgement judged =
      judge(state, MtimeSource::fixed(now - kThirtyDays), OrphanResource::savedState);
  ASSERT_NE(judged.as<Judgement::Orphan>(), nullptr);
  EXPECT_EQ(judged.as<Judgement::Orphan>()->displayBundleID, "com.example.Editor");
  // The same folder in the caches folder is not a saved state.
  EXPECT_EQ(judge(state, MtimeSource::fixed(now - kThirtyDays), OrphanResource::caches)
                .as<Judgement::Orphan>()
                ->displayBundleID,
            "com.example.Editor.savedState");

  const std::string quoted = cacheFolder("com.example.\"quoted\"");
  const StubSpotlightResolver installed({{"com.example.\"quoted\"", true}});
  EXPECT_EQ(OrphanDetection::judge(quoted, OrphanResource::caches, inventory, installed, policy,
                                   MtimeSource::fixed(now - kThirtyDays), now),
            Judgement::notOrphan());
  EXPECT_EQ(judgeAged(quoted, kThirtyDays).as<Judgement::Orphan>()->displayBundleID,
            "com.example.\"quoted\"");
}

TEST_F(OrphanJudgementTest, ScanningAFolderJudgesEachVisibleFolder) {
  const auto old = std::chrono::system_clock::to_time_t(now - kThirtyDays - 24h);
  const timespec times[2] = {{old, 0}, {old, 0}};
  for (const char* name : {"com.example.Gone", "com.example.Also", "com.jetbrains.Toolbox",
                           "com.example.Empty", ".com.example.Hidden"}) {
    const std::string entry = name == std::string("com.example.Empty")
                                  ? home.makeDirectory(std::string("Library/Caches/") + name)
                                  : cacheFolder(name);
    ASSERT_EQ(::utimensat(AT_FDCWD, entry.c_str(), times, 0), 0);
  }
  cacheFolder("com.example.Fresh");
  home.writeFile("Library/Caches/com.example.file", std::string(9000, 'f'));
  home.makeSymlink("Library/Caches/com.example.link", home / "Library/Caches/com.example.Gone");

  const auto scan =
      OrphanDetection::scanRoot(home / "Library/Caches", OrphanResource::caches,
                                "orphaned-app-data", inventory, spotlight, policy, now);
  ASSERT_EQ(scan.detailItems.size(), 2u);
  const ScanFindingItem& first = scan.detailItems[0];
  EXPECT_EQ(first.title, "com.example.Also");
  EXPECT_EQ(first.subtitle, "Caches");
  EXPECT_EQ(first.path, home / "Library/Caches/com.example.Also");
  EXPECT_EQ(first.id, "orphaned-app-data:" + home / "Library/Caches/com.example.Also");
  EXPECT_EQ(first.itemCount, 1);
  EXPECT_EQ(scan.detailItems[1].title, "com.example.Gone");
  EXPECT_EQ(scan.items, 2);
  EXPECT_EQ(scan.bytes, first.bytes + scan.detailItems[1].bytes);
  EXPECT_EQ(scan.skippedProtected, 1);
  EXPECT_EQ(scan.skippedWhitelisted + scan.skippedInvalid, 0);
  EXPECT_FALSE(scan.permissionDenied);

  EXPECT_EQ(OrphanDetection::resourceSubtitle(OrphanResource::savedState), "Window state");
  EXPECT_FALSE(OrphanDetection::scanRoot(home / "Library/Missing", OrphanResource::logs, "r",
                                         inventory, spotlight, policy, now)
                   .permissionDenied);
}

// Runs in a child as an ordinary user (see the test below); skipped alone.
TEST(OrphanDetectionAsOrdinaryUser, AnUnreadableFolderIsReportedAsDenied) {
  const std::string home = testing::ordinaryUserArgument("BRISKO_TEST_ORPHAN_HOME");
  if (home.empty()) GTEST_SKIP() << "runs only as a child of the permission test";
  ASSERT_NE(::geteuid(), 0u);
  const PathSafetyPolicy policy(home, {});
  const auto scan = OrphanDetection::scanRoot(
      home + "/Library/Caches", OrphanResource::caches, "orphaned-app-data",
      InstalledAppInventory::of({}, true), StubSpotlightResolver(), policy, currentDate());
  EXPECT_TRUE(scan.permissionDenied);
  EXPECT_TRUE(scan.detailItems.empty());
}

TEST_F(OrphanJudgementTest, PermissionDenialAsAnOrdinaryUser) {
  cacheFolder("com.example.Gone");
  ASSERT_EQ(::chmod(home.path().c_str(), 0755), 0);
  ASSERT_EQ(::chmod((home / "Library").c_str(), 0755), 0);
  ASSERT_EQ(::chmod((home / "Library/Caches").c_str(), 0700), 0);
  EXPECT_EQ(testing::runTestsAsOrdinaryUser("OrphanDetectionAsOrdinaryUser.*",
                                            {{"BRISKO_TEST_ORPHAN_HOME", home.path()}}),
            0);
}

TEST(SpotlightQuery, AnIdentifierCannotLeaveItsQuotes) {
  EXPECT_EQ(spotlightBundleIDQuery("com.example.App"),
            "kMDItemCFBundleIdentifier == \"com.example.App\"c");
  EXPECT_EQ(spotlightBundleIDQuery("a\"b"), "kMDItemCFBundleIdentifier == \"a\\\"b\"c");
  // The backslash is escaped first, so an escaped quote can't be unescaped.
  EXPECT_EQ(spotlightBundleIDQuery("a\\\"||x"), "kMDItemCFBundleIdentifier == \"a\\\\\\\"||x\"c");
}

// Counts the questions that reach it and answers from a table.
class CountingResolver : public SpotlightResolver {
 public:
  std::optional<bool> isInstalled(std::string_view bundleID) const override {
    ++asked;
    {
      std::lock_guard<std::mutex> guard(lock);
      lastAsked = std::string(bundleID);
    }
    return StubSpotlightResolver(answers).isInstalled(bundleID);
  }
  std::map<std::string, std::optional<bool>> answers;
  mutable std::atomic<int> asked = 0;
  mutable std::mutex lock;
  mutable std::string lastAsked;  // guarded by lock
};

TEST(SpotlightResolvers, CachingKeepsClearAnswersOnly) {
  auto counting = std::make_shared<CountingResolver>();
  counting->answers = {{"com.example.live", true}, {"com.example.slow", std::nullopt}};
  const CachingSpotlightResolver caching(counting);

  EXPECT_EQ(caching.isInstalled("com.example.Live"), true);
  EXPECT_EQ(counting->lastAsked, "com.example.live");
  EXPECT_EQ(caching.isInstalled("COM.EXAMPLE.LIVE"), true);
  EXPECT_EQ(counting->asked, 1);

  EXPECT_EQ(caching.isInstalled("com.example.gone"), false);
  EXPECT_EQ(caching.isInstalled("com.example.gone"), false);
  EXPECT_EQ(counting->asked, 2);

  // A timeout is asked again next time.
  EXPECT_EQ(caching.isInstalled("com.example.slow"), std::nullopt);
  EXPECT_EQ(caching.isInstalled("com.example.slow"), std::nullopt);
  EXPECT_EQ(counting->asked, 4);
}

TEST(SpotlightResolvers, CachingIsSafeFromManyThreads) {
  auto counting = std::make_shared<CountingResolver>();
  const CachingSpotlightResolver caching(counting);
  std::vector<std::thread> threads;
  std::atomic<int> wrong = 0;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&] {
      for (int i = 0; i < 200; ++i) {
        if (caching.isInstalled("com.example.n" + std::to_string(i % 20)) != false) ++wrong;
      }
    });
  }
  for (auto& thread : threads)
    thread.join();
  EXPECT_EQ(wrong, 0);
  EXPECT_GE(counting->asked, 20);
}

// The stub's answers (in any case, false when unknown) and the inventory's
// case are what the judgement tests above lean on.
TEST(SpotlightResolvers, LinuxHasNoIndexOfApplicationsSoNeverAnswers) {
  EXPECT_EQ(systemSpotlightResolver(2.0)->isInstalled("com.example.app"), std::nullopt);
}

}  // namespace
}  // namespace brisko
