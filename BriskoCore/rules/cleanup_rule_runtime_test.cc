#include "rules/cleanup_rule_runtime.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <unistd.h>

#include <ctime>

#include "protocol/guard_warning_text.h"
#include "rules/cleanup_rule_catalog.h"
#include "testing/ordinary_user.h"
#include "testing/temporary_directory.h"

namespace brisko {
namespace {

namespace Runtime = CleanupRuleRuntime;
using testing::TemporaryDirectory;
using Paths = std::vector<std::string>;

// Sets the modification time of `path` (not following a link) to a fixed
// number of seconds after an arbitrary moment.
void setModificationTime(const std::string& path, long seconds) {
  const timespec times[2] = {{1700000000 + seconds, 0}, {1700000000 + seconds, 0}};
  ASSERT_EQ(::utimensat(AT_FDCWD, path.c_str(), times, AT_SYMLINK_NOFOLLOW), 0) << path;
}

RuleTarget contentsTarget(std::string path) {
  return RuleTarget{std::move(path), RuleTargetMode::contents(), std::nullopt, {}};
}

class CleanupRuleRuntimeTest : public ::testing::Test {
 protected:
  // Makes version folders under `relativeRoot`, the first oldest.
  std::string makeVersions(const std::string& relativeRoot, const Paths& names) {
    const std::string root = home.makeDirectory(relativeRoot);
    for (const std::string& name : names)
      home.makeDirectory(relativeRoot + "/" + name);
    dateInOrder(root, names);
    return root;
  }

  // Dates the folders 100 seconds apart, the first oldest; again after
  // something was put inside them.
  static void dateInOrder(const std::string& root, const Paths& names) {
    long seconds = 0;
    for (const std::string& name : names)
      setModificationTime(root + "/" + name, seconds += 100);
  }

  TemporaryDirectory home;
};

TEST_F(CleanupRuleRuntimeTest, ExpandsTheHomeAndStandardises) {
  EXPECT_EQ(Runtime::expandedPath("~", "/Users/ann/"), "/Users/ann");
  EXPECT_EQ(Runtime::expandedPath("~/Library/Caches/", "/Users/ann"), "/Users/ann/Library/Caches");
  EXPECT_EQ(Runtime::expandedPath("~/a/./b/../c", "/Users/ann"), "/Users/ann/a/c");
  EXPECT_EQ(Runtime::expandedPath("/Applications/Docker.app", "/Users/ann"),
            "/Applications/Docker.app");
  // Only a leading "~/" is the home.
  EXPECT_EQ(Runtime::expandedPath("/x/~/y", "/Users/ann"), "/x/~/y");
}

TEST_F(CleanupRuleRuntimeTest, LiteralTargetsYieldWhatExistsFilesIncluded) {
  home.writeFile("Library/Logs/only-a-file");
  home.makeDirectory("weird[1]");
  EXPECT_EQ(Runtime::expandedRoots(contentsTarget("~/Library/Logs/only-a-file"), home.path()),
            Paths{home / "Library/Logs/only-a-file"});
  EXPECT_EQ(Runtime::expandedRoots(contentsTarget("~/Library/Missing"), home.path()), Paths{});
  // "[" alone doesn't make a pattern.
  EXPECT_EQ(Runtime::expandedRoots(contentsTarget("~/weird[1]"), home.path()),
            Paths{home / "weird[1]"});
}

TEST_F(CleanupRuleRuntimeTest, WildcardsMatchVisibleRealFoldersOnly) {
  const std::string tail = "/Render Files/High Quality Media";
  home.makeDirectory("Movies/B.fcpbundle/Event" + tail);
  home.makeDirectory("Movies/A.fcpbundle/Event 2" + tail);
  home.makeDirectory("Movies/A.fcpbundle/Event 1" + tail);
  home.makeDirectory("Movies/.Hidden.fcpbundle/Event" + tail);
  home.makeDirectory("Movies/A.fcpbundle/.hidden" + tail);
  home.makeDirectory("elsewhere/Event" + tail);
  home.makeSymlink("Movies/Linked.fcpbundle", home / "elsewhere");
  home.makeSymlink("Movies/A.fcpbundle/Linked event", home / "elsewhere/Event");
  home.writeFile("Movies/File.fcpbundle");
  home.makeDirectory("Movies/NoRender.fcpbundle/Event");

  const RuleTarget target = contentsTarget("~/Movies/*.fcpbundle/*" + tail);
  EXPECT_EQ(
      Runtime::expandedRoots(target, home.path()),
      (Paths{home / "Movies/A.fcpbundle/Event 1" + tail, home / "Movies/A.fcpbundle/Event 2" + tail,
             home / "Movies/B.fcpbundle/Event" + tail}));
}

TEST_F(CleanupRuleRuntimeTest, AFinalWildcardMatchesFoldersOnly) {
  home.makeDirectory("Zed/node/node-v20/cache");
  home.writeFile("Zed/node/node-v18");
  home.makeDirectory("Zed/node/node-v22");
  home.writeFile("Zed/node/node-v22/cache");
  home.makeSymlink("Zed/node/node-v21", home / "Zed/node/node-v20");
  EXPECT_EQ(Runtime::expandedRoots(contentsTarget("~/Zed/node/node-v*"), home.path()),
            (Paths{home / "Zed/node/node-v20", home / "Zed/node/node-v22"}));
  // A literal last component after a wildcard takes files too.
  EXPECT_EQ(Runtime::expandedRoots(contentsTarget("~/Zed/node/node-v*/cache"), home.path()),
            (Paths{home / "Zed/node/node-v20/cache", home / "Zed/node/node-v22/cache"}));
  EXPECT_EQ(Runtime::expandedRoots(contentsTarget("~/Nothing/*/cache"), home.path()), Paths{});
}

TEST_F(CleanupRuleRuntimeTest, KeepsTheNewestVersionsAndBreaksTiesByPath) {
  const std::string root = makeVersions("DeviceSupport", {"15.0", "16.0", "17.0"});
  EXPECT_EQ(Runtime::versionsToRemove(root, 2, std::nullopt, home.path()), Paths{root + "/15.0"});
  EXPECT_EQ(Runtime::versionsToRemove(root, 0, std::nullopt, home.path()),
            (Paths{root + "/17.0", root + "/16.0", root + "/15.0"}));
  EXPECT_EQ(Runtime::versionsToRemove(root, -3, std::nullopt, home.path()),
            Runtime::versionsToRemove(root, 0, std::nullopt, home.path()));

  // Equal dates: the greater path counts as newer.
  setModificationTime(root + "/15.0", 500);
  setModificationTime(root + "/16.0", 500);
  setModificationTime(root + "/17.0", 500);
  EXPECT_EQ(Runtime::versionsToRemove(root, 1, std::nullopt, home.path()),
            (Paths{root + "/16.0", root + "/15.0"}));
}

TEST_F(CleanupRuleRuntimeTest, VersionCandidatesAreRealVisibleFolders) {
  const std::string root = makeVersions("versions", {"1.0", "latest"});
  home.makeDirectory("versions/.2.0");
  home.writeFile("versions/3.0");
  home.makeSymlink("versions/4.0", root + "/1.0");
  home.makeDirectory("outside");
  // Without a pin every real folder counts, also "latest".
  EXPECT_EQ(Runtime::versionsToRemove(root, 0, std::nullopt, home.path()),
            (Paths{root + "/latest", root + "/1.0"}));
  // With a pin only folders whose name begins with a digit are versions.
  home.writeFile("versions/1.0/tool");
  home.makeSymlink(".local/bin/tool", root + "/1.0/tool");
  EXPECT_EQ(Runtime::versionsToRemove(root, 0, "~/.local/bin/tool", home.path()), Paths{});
  // Digits of any script count.
  home.makeDirectory("versions/١.٠");
  EXPECT_EQ(Runtime::versionsToRemove(root, 0, "~/.local/bin/tool", home.path()),
            Paths{root + "/١.٠"});
  // A missing root is a decision: nothing to remove.
  EXPECT_EQ(Runtime::versionsToRemove(home / "missing", 0, std::nullopt, home.path()), Paths{});
}

TEST_F(CleanupRuleRuntimeTest, ThePinnedVersionStaysBesideTheNewest) {
  const std::string root =
      makeVersions(".local/share/claude/versions", {"1.0.1", "1.0.2", "1.0.3"});
  home.writeFile(".local/share/claude/versions/1.0.1/claude", "binary");
  // The pin points at a file inside the oldest version.
  home.makeSymlink(".local/bin/claude", root + "/1.0.1/claude");
  dateInOrder(root, {"1.0.1", "1.0.2", "1.0.3"});
  EXPECT_EQ(Runtime::versionsToRemove(root, 1, "~/.local/bin/claude", home.path()),
            Paths{root + "/1.0.2"});
  // Pinned to the newest: it is kept once and the quota goes to the next one.
  ::unlink((home / ".local/bin/claude").c_str());
  home.makeSymlink(".local/bin/claude", root + "/1.0.3");
  EXPECT_EQ(Runtime::versionsToRemove(root, 1, "~/.local/bin/claude", home.path()),
            Paths{root + "/1.0.1"});
}

TEST_F(CleanupRuleRuntimeTest, AnUnresolvedPinMeasuresNothing) {
  const std::string root = makeVersions("versions", {"1.0", "2.0"});
  EXPECT_EQ(Runtime::versionsToRemove(root, 1, "~/.local/bin/missing", home.path()), std::nullopt);
  home.makeSymlink(".local/bin/dangling", root + "/9.9/tool");
  EXPECT_EQ(Runtime::versionsToRemove(root, 1, "~/.local/bin/dangling", home.path()), std::nullopt);
}

TEST_F(CleanupRuleRuntimeTest, ThePinIsFoundWhenTheRootIsReachedThroughALink) {
  const std::string real = makeVersions("real/versions", {"1.0", "2.0", "3.0"});
  home.writeFile("real/versions/1.0/tool");
  home.makeSymlink("linked", home / "real");
  home.makeSymlink("bin/tool", real + "/1.0/tool");
  dateInOrder(real, {"1.0", "2.0", "3.0"});
  const std::string root = home / "linked/versions";
  EXPECT_EQ(Runtime::versionsToRemove(root, 1, "~/bin/tool", home.path()), Paths{root + "/2.0"});
}

TEST_F(CleanupRuleRuntimeTest, ListsVersionsNotNewerThanTheActiveOne) {
  const std::string root = makeVersions("Framework/Versions", {"1.0", "2.0", "3.0"});
  home.makeDirectory("Framework/Versions/2.5");
  setModificationTime(root + "/2.5", 200);  // as old as 2.0
  home.makeDirectory("Framework/Versions/.9.0");
  setModificationTime(root + "/.9.0", 0);
  home.makeSymlink("Framework/Versions/Current", "2.0");
  EXPECT_EQ(Runtime::versionsOlderThanActive(root, "Current"),
            (Paths{root + "/1.0", root + "/2.5"}));
}

TEST_F(CleanupRuleRuntimeTest, ACurrentLinkThatLeavesTheRootMeasuresNothing) {
  const std::string root = makeVersions("Framework/Versions", {"1.0", "2.0"});
  const std::string outside = home.makeDirectory("Other/3.0");
  home.makeSymlink("Framework/Versions/Current", outside);
  EXPECT_EQ(Runtime::versionsOlderThanActive(root, "Current"), std::nullopt);
  // Deeper inside the root is not directly inside it either.
  ::unlink((root + "/Current").c_str());
  home.makeDirectory("Framework/Versions/2.0/Inner");
  home.makeSymlink("Framework/Versions/Current", root + "/2.0/Inner");
  EXPECT_EQ(Runtime::versionsOlderThanActive(root, "Current"), std::nullopt);
  // No link at all, or a dangling one.
  ::unlink((root + "/Current").c_str());
  EXPECT_EQ(Runtime::versionsOlderThanActive(root, "Current"), std::nullopt);
  home.makeSymlink("Framework/Versions/Current", "9.0");
  EXPECT_EQ(Runtime::versionsOlderThanActive(root, "Current"), std::nullopt);
  // A missing root is a decision.
  EXPECT_EQ(Runtime::versionsOlderThanActive(home / "missing", "Current"), Paths{});
}

TEST_F(CleanupRuleRuntimeTest, OnlyChromiumStyleFoldersHaveCaches) {
  const std::string plain = home.makeDirectory("Support/Plain");
  home.makeDirectory("Support/Plain/Cache");
  home.makeDirectory("Support/Plain/CachedData");
  EXPECT_EQ(Runtime::electronCacheFolders(plain), Paths{});

  const std::string app = home.makeDirectory("Support/Slack");
  home.makeDirectory("Support/Slack/Cache");
  home.makeDirectory("Support/Slack/GPUCache");
  home.makeDirectory("Support/Slack/Crashpad/completed");
  EXPECT_EQ(Runtime::electronCacheFolders(app),
            (Paths{app + "/GPUCache", app + "/Crashpad/completed", app + "/Cache"}));
}

TEST(CleanupRuleRuntime, ProtectedDomainsMatchAsSubstringsInAnyCase) {
  const auto& domains = CleanupRuleCatalog::protectedDomains();
  EXPECT_TRUE(Runtime::isProtectedDomain("https_DOCS.google.com_0", domains));
  EXPECT_TRUE(Runtime::isProtectedDomain("https_www.figma.com_0", domains));
  EXPECT_FALSE(Runtime::isProtectedDomain("https_www.google.com_0", domains));
  EXPECT_TRUE(Runtime::isProtectedDomain("x", {"X"}));
  EXPECT_FALSE(Runtime::isProtectedDomain("anything", {}));
}

TEST(CleanupRuleRuntime, GuardsFailClosedWithoutAProcessList) {
  const auto& g = CleanupRuleCatalog::guards();
  const std::vector<RuleGuard> chrome = {g.chrome};
  EXPECT_TRUE(Runtime::isGuardHit(chrome, std::nullopt));
  EXPECT_FALSE(Runtime::isGuardHit(chrome, std::vector<RunningProcess>{}));
  EXPECT_FALSE(Runtime::isGuardHit({}, std::nullopt));

  const auto running = [](std::string name, std::string path) {
    return RunningProcesses{{RunningProcess{std::move(name), std::move(path)}}};
  };
  EXPECT_TRUE(Runtime::isGuardHit(chrome, running("Google Chrome Helper", "/x/helper")));
  EXPECT_TRUE(Runtime::isGuardHit(
      chrome, running("renderer", "/Applications/Google Chrome.app/Contents/MacOS/renderer")));
  // Names are compared exactly and fragments case-sensitively.
  EXPECT_FALSE(Runtime::isGuardHit(chrome, running("google chrome", "/usr/bin/google chrome")));
  EXPECT_FALSE(Runtime::isGuardHit({g.qq}, running("QQBrowser", "/Applications/QQBrowser3.app/")));
  EXPECT_TRUE(Runtime::isGuardHit({g.edge, g.firefox}, running("firefox", "/usr/lib/firefox")));
}

TEST(CleanupRuleRuntime, GuardWarningsNameTheApplication) {
  const auto& g = CleanupRuleCatalog::guards();
  EXPECT_EQ(Runtime::guardAppName({g.simulator}), "Xcode");
  EXPECT_EQ(Runtime::guardAppName({g.xcode, g.chrome}), "Xcode");
  EXPECT_EQ(Runtime::guardAppName({RuleGuard::processNotRunning({}, {"/x/"}), g.chrome}),
            "Google Chrome");
  EXPECT_EQ(Runtime::guardAppName({RuleGuard::processNotRunning({}, {"/x/"})}), "");
  EXPECT_EQ(Runtime::guardAppName({}), "");

  // Without an application's name the warning speaks of a related process.
  EXPECT_EQ(Runtime::guardWarning("Arc", "Arc cache"),
            GuardWarningText::namedProcess("Arc", "Arc cache"));
  EXPECT_EQ(Runtime::guardWarning("", "Xcode caches"),
            GuardWarningText::relatedProcess("Xcode caches"));
}

TEST(CleanupRuleRuntime, DirectChildrenAreOneLevelDown) {
  EXPECT_TRUE(Runtime::isDirectChild("/a/b", "/a"));
  EXPECT_TRUE(Runtime::isDirectChild("/a//b/", "/a/"));
  EXPECT_FALSE(Runtime::isDirectChild("/a/b/c", "/a"));
  EXPECT_FALSE(Runtime::isDirectChild("/ab", "/a"));
  EXPECT_FALSE(Runtime::isDirectChild("/a", "/a"));
}

TEST_F(CleanupRuleRuntimeTest, RealPathResolvesLinksOrAnswersNone) {
  home.makeDirectory("real/inside");
  home.makeSymlink("link", home / "real");
  EXPECT_EQ(Runtime::realPath(home / "link/inside"), home / "real/inside");
  EXPECT_EQ(Runtime::realPath(home / "link/missing"), std::nullopt);
  // A result that wouldn't fit 1024 bytes is refused.
  std::string deep = "real";
  while (deep.size() < 1100)
    deep += "/abcdefghijklmnopqrstuvwxyz";
  home.makeDirectory(deep);
  EXPECT_EQ(Runtime::realPath(home / deep), std::nullopt);
}

// Runs in a child as an ordinary user (see the test below); skipped alone.
TEST(CleanupRuleRuntimeAsOrdinaryUser, WhatCantBeReadOrWrittenIsLeftAlone) {
  const std::string home = testing::ordinaryUserArgument("BRISKO_TEST_RULES_HOME");
  if (home.empty()) GTEST_SKIP() << "runs only as a child of the permission test";
  ASSERT_NE(::geteuid(), 0u);
  // A bundle the user can't write to: a decision, not an unknown.
  EXPECT_EQ(Runtime::versionsOlderThanActive(home + "/Framework/Versions", "Current"), Paths{});
  // A folder under a wildcard that can't be listed contributes nothing.
  EXPECT_EQ(Runtime::expandedRoots(contentsTarget("~/Movies/*.fcpbundle/*/Render Files"), home),
            Paths{home + "/Movies/Open.fcpbundle/Event/Render Files"});
  // An unreadable version root lists nothing.
  EXPECT_EQ(Runtime::versionsToRemove(home + "/Closed/versions", 0, std::nullopt, home), Paths{});
}

TEST_F(CleanupRuleRuntimeTest, PermissionDenialAsAnOrdinaryUser) {
  const std::string root = makeVersions("Framework/Versions", {"1.0", "2.0"});
  home.makeSymlink("Framework/Versions/Current", "2.0");
  home.makeDirectory("Movies/Open.fcpbundle/Event/Render Files");
  home.makeDirectory("Movies/Closed.fcpbundle/Event/Render Files");
  makeVersions("Closed/versions", {"1.0", "2.0"});
  for (const char* folder : {"", "/Framework", "/Framework/Versions", "/Movies", "/Closed"}) {
    ASSERT_EQ(::chmod((home.path() + folder).c_str(), 0755), 0);
  }
  ASSERT_EQ(::chmod((home / "Movies/Closed.fcpbundle").c_str(), 0700), 0);
  ASSERT_EQ(::chmod((home / "Closed/versions").c_str(), 0700), 0);
  // As root the same calls find something, so the child's answers are the denial's.
  EXPECT_EQ(Runtime::versionsOlderThanActive(root, "Current"), Paths{root + "/1.0"});
  EXPECT_EQ(
      Runtime::versionsToRemove(home / "Closed/versions", 0, std::nullopt, home.path())->size(),
      2u);

  EXPECT_EQ(testing::runTestsAsOrdinaryUser("CleanupRuleRuntimeAsOrdinaryUser.*",
                                            {{"BRISKO_TEST_RULES_HOME", home.path()}}),
            0);
}

}  // namespace
}  // namespace brisko

namespace brisko {
namespace {

// A service worker's folder is named by a hash; its index names the origin.
TEST_F(CleanupRuleRuntimeTest, AServiceWorkerFolderIsKeptByTheOriginItsIndexNames) {
  const std::vector<std::string> domains = {"docs.google.com", "figma.com"};
  struct Case {
    const char* name;
    const char* index;  // null: no index at all
    bool kept;
  };
  const std::vector<Case> cases = {
      {"c37a80b6", "\x12\x1dhttps://DOCS.google.com/\x1a", true},
      {"5e1d0f2a", "\x12\x1dhttps://news.example.com/\x1a", false},
      {"77aa01_https_figma.com", "\x12\x1dhttps://news.example.com/\x1a", true},
      {"9f00d2e1", nullptr, true},
  };
  for (const Case& c : cases) {
    const std::string folder = home.makeDirectory("storage/" + std::string(c.name));
    if (c.index) home.writeFile("storage/" + std::string(c.name) + "/index.txt", c.index);
    EXPECT_EQ(Runtime::isProtectedServiceWorkerFolder(folder, domains), c.kept) << c.name;
  }
  // An index that is a link or a FIFO is never read: kept, and no waiting.
  const std::string linked = home.makeDirectory("storage/a1");
  home.writeFile("elsewhere.txt", "https://news.example.com/");
  home.makeSymlink("storage/a1/index.txt", home / "elsewhere.txt");
  EXPECT_TRUE(Runtime::isProtectedServiceWorkerFolder(linked, domains));
  const std::string fifo = home.makeDirectory("storage/b2");
  ASSERT_EQ(::mkfifo((fifo + "/index.txt").c_str(), 0600), 0);
  EXPECT_TRUE(Runtime::isProtectedServiceWorkerFolder(fifo, domains));
}

TEST_F(CleanupRuleRuntimeTest, TheFirstWildcardNamesTheTitleAndGuardsOfEachRoot) {
  home.makeDirectory(".var/app/org.gnome.Maps/cache");
  home.makeDirectory(".var/app/com.spotify.Client/cache");
  const RuleTarget target{"~/.var/app/*/cache",
                          RuleTargetMode::contents(),
                          "{1}",
                          {RuleGuard::processNotRunning({}, {"/flatpak/app/{1}/"})}};
  EXPECT_TRUE(Runtime::dependsOnRoot(target));
  EXPECT_FALSE(Runtime::dependsOnRoot(contentsTarget("~/.cache/*")));
  const auto roots = Runtime::expandedRoots(target, home.path());
  ASSERT_EQ(roots.size(), 2u);
  const RuleTarget spotify = Runtime::targetForRoot(target, roots[0], home.path());
  EXPECT_EQ(spotify.itemTitle, "com.spotify.Client");
  EXPECT_EQ(spotify.guards[0].pathFragments[0], "/flatpak/app/com.spotify.Client/");
  EXPECT_EQ(Runtime::targetForRoot(target, roots[1], home.path()).itemTitle, "org.gnome.Maps");
  // Without "{1}" a target stands as it is for every root.
  const RuleTarget plain = contentsTarget("~/.var/app/*/cache");
  EXPECT_EQ(Runtime::targetForRoot(plain, roots[0], home.path()), plain);
}

TEST_F(CleanupRuleRuntimeTest, ARootIsLinkedWhenItOrAFolderBetweenItAndTheHomeIsALink) {
  home.makeDirectory("Documents/inner");
  home.makeDirectory("real/cache");
  home.makeSymlink(".cache", home / "Documents");
  home.makeSymlink("linked-cache", home / "real/cache");
  home.makeDirectory("outside");
  struct Case {
    std::string root;
    bool linked;
  };
  for (const Case& c : std::vector<Case>{{home / ".cache", true},
                                         {home / ".cache/inner", true},
                                         {home / "linked-cache", true},
                                         {home / "real/cache", false},
                                         {home / "missing/below", false},
                                         {"/usr/lib", false}}) {
    EXPECT_EQ(Runtime::isLinkedRoot(c.root, home.path()), c.linked) << c.root;
  }
  // Outside the home only the root itself counts.
  EXPECT_TRUE(Runtime::isLinkedRoot(home / "linked-cache", "/nonexistent-home"));
  EXPECT_FALSE(Runtime::isLinkedRoot(home / "linked-cache/x", "/nonexistent-home"));
}

TEST(CleanupRuleRuntime, ExcludedEntriesArePatterns) {
  const std::set<std::string> excluded = {"google-chrome*", "mozilla"};
  EXPECT_TRUE(Runtime::isExcludedEntry("google-chrome-beta", excluded));
  EXPECT_TRUE(Runtime::isExcludedEntry("mozilla", excluded));
  EXPECT_FALSE(Runtime::isExcludedEntry("mozilla-old", excluded));
  EXPECT_FALSE(Runtime::isExcludedEntry("pip", excluded));
}

}  // namespace
}  // namespace brisko
