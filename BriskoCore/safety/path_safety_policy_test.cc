#include "safety/path_safety_policy.h"

#include <gtest/gtest.h>
#include <stdlib.h>

#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "safety/whitelist_store.h"
#include "testing/temporary_directory.h"

namespace brisko {
namespace {

using Reason = PathSafetyReason;
using Verdict = PathSafetyVerdict;

const std::string kHome = "/home/vimo";

Verdict check(const PathSafetyPolicy& policy, std::string_view path) {
  return policy.evaluate(path, false);
}

TEST(PathNormalization, CollapsesSlashesAndDropsTrailingOnes) {
  const std::pair<const char*, const char*> rows[] = {
      {"//home///vimo//", "/home/vimo"},
      {"/", "/"},
      {"////", "/"},
      {"", ""},
      // No mapping of /tmp and no "." resolution or case change.
      {"/tmp/./X/", "/tmp/./X"}};
  for (const auto& [path, normal] : rows)
    EXPECT_EQ(normalizedPolicyPath(path), normal) << path;
}

TEST(PathSafetyPolicyInvalid, RefusesMalformedPathsInOrder) {
  const PathSafetyPolicy policy(kHome, {});
  const Verdict control = Verdict::invalid(Reason::controlCharacter);
  const Verdict traversal = Verdict::invalid(Reason::pathTraversal);
  const std::pair<std::string, Verdict> rows[] = {
      {"", Verdict::invalid(Reason::emptyPath)},
      {"Library/Caches", Verdict::invalid(Reason::relativePath)},
      {"/home/vimo/a\nb", control},
      {"/home/vimo/../x\n", control},  // the control test comes before the traversal test
      {std::string("/home/vimo/a\0b", 14), control},
      {"/home/vimo/\x7f", control},
      {"/home/vimo/\xc2\x85", control},          // NEL, Cc
      {"/home/vimo/a\xe2\x80\x8b", control},     // ZERO WIDTH SPACE, Cf
      {"/home/vimo/\xef\xbb\xbfx", control},     // BOM, Cf
      {"/home/vimo/\xe2\x80\xae", control},      // RIGHT-TO-LEFT OVERRIDE
      {"/home/vimo/\xf3\xa0\x80\x81", control},  // LANGUAGE TAG
      // Bytes that are not UTF-8 can't be folded, so no list could judge them.
      {"/home/vimo/\xff", control},
      {"/home/vimo/\xc3", control},
      {"/home/vimo/\xed\xa0\x80", control},  // a surrogate
      {"/home/vimo/\xc0\xaf", control},      // overlong "/"
      {"/home/vimo/\xf4\x90\x80\x80", control},
      {"/a/../b", traversal},
      {"/a/..", traversal},
      // Dot pieces would dodge the lists.
      {"/home/vimo/./Library/Keychains/login.keychain", traversal},
      {"/home/vimo/.hidden/.", traversal},
      {"/home/vimo/.hidden", Verdict::allowed()},
      {"/home/vimo/a/..b/c", Verdict::allowed()},
      {"/home/vimo/a/...b", Verdict::allowed()},
      {"/home/vimo/Téléchargements/日本", Verdict::allowed()},
  };
  for (const auto& [path, verdict] : rows) {
    EXPECT_EQ(check(policy, path), verdict) << path;
    if (!verdict.isAllowed()) {
      EXPECT_FALSE(policy.evaluate(path, true).isAllowed()) << path;
    }
  }
}

TEST(PathSafetyPolicyInvalid, SurvivesHugeAndDeepPaths) {
  const PathSafetyPolicy policy(kHome, {"~/Keep", "~/proj/*/build"});
  const std::string megabyte = "/home/vimo/" + std::string(1 << 20, 'a');
  EXPECT_EQ(check(policy, megabyte), Verdict::allowed());
  std::string deep = "/home/vimo";
  for (int i = 0; i < 5000; ++i)
    deep += "/d" + std::to_string(i);
  EXPECT_EQ(check(policy, deep), Verdict::allowed());
  EXPECT_EQ(check(policy, deep + "/Com.Docker.Docker"),
            Verdict::protected_(Reason::protectedUserData));
  std::string slashes(100000, '/');
  EXPECT_EQ(check(policy, slashes), Verdict::protected_(Reason::criticalSystemPath));
  EXPECT_EQ(check(policy, std::string(1 << 20, '\0')), Verdict::invalid(Reason::relativePath));
}

TEST(PathSafetyPolicyCritical, ProtectsSystemPlacesAndHomeFolders) {
  const PathSafetyPolicy policy(kHome, {});
  for (const char* path : {"/",
                           "/Users",
                           "/Users/vimo",
                           "/USERS/VIMO",
                           "/home",
                           "/home/vimo",
                           "/home/other",
                           "/HOME/Other/",
                           "/root",
                           "/usr/local",
                           "/usr/bin/x",
                           "/opt/homebrew",
                           "/opt",
                           "/tmp",
                           "/var",
                           "/var/tmp",
                           "/etc",
                           "/etc/passwd",
                           "/var/db/x",
                           "/proc/1/mem",
                           "/sys/kernel",
                           "/boot/vmlinuz",
                           "/lib/x86_64-linux-gnu",
                           "/lib64",
                           "/run/user/0",
                           "/snap/core",
                           "/srv",
                           "/mnt",
                           "/media",
                           "/System/Library",
                           "/Library",
                           "/Library/Keychains/x",
                           "/Applications/Safari.app/Contents",
                           "/private/var/db",
                           "/private/var/folders"}) {
    EXPECT_EQ(check(policy, path), Verdict::protected_(Reason::criticalSystemPath)) << path;
  }
  for (const char* path :
       {"/Users/vimo/Library", "/home/vimo/Library", "/usr/local/bin/x", "/opt/homebrew/Cellar/x",
        "/tmp/x", "/var/tmp/x", "/srv/www", "/mnt/disk/x", "/private/var/folders/ab/cd/T/x",
        "/Library/Caches/x", "/Applications/Safari.apps", "/usrx", "/libexec"}) {
    EXPECT_EQ(check(policy, path), Verdict::allowed()) << path;
  }
}

TEST(PathSafetyPolicyCritical, TheOwnHomeIsCriticalWhereverItLies) {
  const PathSafetyPolicy policy("/data/People/Vimo/", {});
  EXPECT_EQ(policy.homeDirectory(), "/data/People/Vimo");
  EXPECT_EQ(policy.lowerHome(), "/data/people/vimo");
  EXPECT_TRUE(policy.isCriticalSystemRawPath("/DATA/people//Vimo/"));
  EXPECT_FALSE(policy.isCriticalSystemRawPath("/data/people/vimo/x"));
  EXPECT_TRUE(policy.isCriticalSystemPath("/home/someone"));
  EXPECT_FALSE(policy.isCriticalSystemPath("/home/someone/x"));
}

TEST(PathSafetyPolicyProtected, CatchesProtectedUserData) {
  const PathSafetyPolicy policy(kHome, {});
  const Verdict userData = Verdict::protected_(Reason::protectedUserData);
  for (const char* path : {
           "/home/vimo/Library/Keychains",
           "/home/vimo/library/KEYCHAINS/login.keychain-db",
           "/home/vimo/Library/Mobile Documents/x",
           "/home/vimo/.codex/sessions/2026",
           "/home/vimo/.local/share/brisko",
           "/home/vimo/.local/share/brisko/Plans/x.json",
           "/home/vimo/.orbstack",
           "/home/vimo/Library/Group Containers/HUYZ.dev.orbstack/data",
           "/home/vimo/Library/Application Support/Cursor/Cache",
           "/home/vimo/Library/Caches/claude-cli",
           "/home/vimo/Library/Caches/ms-playwright/chromium",
           "/home/vimo/Library/Preferences/com.paceap.eden.plist",
           "/home/vimo/Library/Caches/Foo/My-Tailscale-thing",
           "/home/vimo/Projects/Com.Docker.Docker/x",
           "/home/vimo/Projects/com.apple.dt.Xcode",
           "/home/vimo/Downloads/controlcenter-notes.txt",
           "/Library/Audio/Plug-Ins/VST3/Synth.vst3",
           "/var/folders/ab/cd/C/com.native-instruments.x",
       }) {
    EXPECT_EQ(check(policy, path), userData) << path;
  }
  for (const char* path : {
           "/home/vimo/Projects/cursor-demo/node_modules",
           "/home/vimo/Projects/tailscale-fork",
           "/home/vimo/Library/Keychainsx",
           "/home/vimo/.orbstackx",
           "/home/vimo/Library/Caches/com.apple.dt.Xcodex/x",
           "/home/vimo/Library/Preferences/com.paceap",
           "/home/vimo/.local/share/briskox",
           "/home/vimo/.config/brisko/whitelist",
       }) {
    EXPECT_EQ(check(policy, path), Verdict::allowed()) << path;
  }
}

TEST(PathSafetyPolicyProtected, BriskosOwnDataFolderWhereverItLies) {
  const char* saved = std::getenv("XDG_DATA_HOME");
  const std::string previous = saved == nullptr ? "" : saved;
  ::setenv("XDG_DATA_HOME", "/data/Shared/xdg", 1);
  const PathSafetyPolicy moved(kHome, {});
  if (saved == nullptr) {
    ::unsetenv("XDG_DATA_HOME");
  } else {
    ::setenv("XDG_DATA_HOME", previous.c_str(), 1);
  }
  EXPECT_EQ(check(moved, "/data/shared/XDG/brisko/Plans/x.json"),
            Verdict::protected_(Reason::protectedUserData));
  EXPECT_EQ(check(moved, "/home/vimo/.local/share/brisko"),
            Verdict::protected_(Reason::protectedUserData));
  EXPECT_EQ(check(moved, "/data/Shared/xdg/other"), Verdict::allowed());
}

TEST(PathSafetyPolicyProtected, EndpointSecurityOnlyInTheTemporaryArea) {
  const PathSafetyPolicy policy(kHome, {});
  EXPECT_EQ(check(policy, "/var/folders/ab/cd/T/com.crowdstrike.falcon/x"),
            Verdict::protected_(Reason::endpointSecurityData));
  EXPECT_EQ(check(policy, "/private/var/folders/ab/cd/C/com.jamf.agent"),
            Verdict::protected_(Reason::endpointSecurityData));
  EXPECT_EQ(check(policy, "/home/vimo/Downloads/com.crowdstrike.installer"), Verdict::allowed());
}

TEST(PathSafetyPolicyProtected, FoldsNonAsciiSpellings) {
  const PathSafetyPolicy policy(kHome, {});
  const Verdict userData = Verdict::protected_(Reason::protectedUserData);
  // KELVIN SIGN folds to "k".
  EXPECT_EQ(check(policy, "/home/vimo/Library/\u212Aeychains/x"), userData);
  EXPECT_EQ(check(policy, "/home/vimo/x/com.doc\u212Aer.app"), userData);
  EXPECT_EQ(check(policy, "/\u212Aome/vimo"), Verdict::allowed());  // "/kome/vimo" is no home
  // A non-ASCII home folds too.
  const PathSafetyPolicy accented("/home/ÉLODIE", {});
  EXPECT_EQ(accented.lowerHome(), "/home/élodie");
  EXPECT_EQ(check(accented, "/home/Élodie/Library/Mail/x"), userData);
  EXPECT_EQ(check(accented, "/home/éLODIE"), Verdict::protected_(Reason::criticalSystemPath));
}

TEST(PathSafetyPolicyWhitelist, MatchesPlainPrefixSubstringAndGlobPatterns) {
  const PathSafetyPolicy policy(
      kHome, {"~/Keep", " $HOME/.gradle/caches/* \n", "/data/*tmp*", "~/proj/*/build", "", "   "});
  EXPECT_EQ(policy.whitelistPatterns(),
            (std::vector<std::string>{"/home/vimo/Keep", "/home/vimo/.gradle/caches/*",
                                      "/data/*tmp*", "/home/vimo/proj/*/build"}));
  EXPECT_EQ(check(policy, "/home/vimo/Keep/a/b"), Verdict::whitelisted("/home/vimo/Keep"));
  EXPECT_EQ(check(policy, "/home/vimo/Keep"), Verdict::whitelisted("/home/vimo/Keep"));
  // Critical first: the home stays critical although an ancestor rule names it.
  EXPECT_EQ(check(policy, "/home/vimo"), Verdict::protected_(Reason::criticalSystemPath));
  EXPECT_EQ(check(policy, "/home/vimo/.gradle"),
            Verdict::whitelisted("/home/vimo/.gradle/caches/*"));
  EXPECT_EQ(check(policy, "/home/vimo/.gradle/caches"),
            Verdict::whitelisted("/home/vimo/.gradle/caches/*"));
  EXPECT_EQ(check(policy, "/data/xtmpy/z"), Verdict::whitelisted("/data/*tmp*"));
  EXPECT_EQ(check(policy, "/home/vimo/proj/a/b/build"),
            Verdict::whitelisted("/home/vimo/proj/*/build"));
  // Ancestors of a glob pattern count by its text.
  EXPECT_EQ(check(policy, "/home/vimo/proj"), Verdict::whitelisted("/home/vimo/proj/*/build"));
  EXPECT_EQ(check(policy, "/home/vimo/Other"), Verdict::allowed());

  const PathSafetyPolicy wholeHome(kHome, {"~"});
  EXPECT_EQ(check(wholeHome, "/home/vimo/Other"), Verdict::whitelisted("/home/vimo"));
  EXPECT_EQ(check(wholeHome, "/home/vimo"), Verdict::protected_(Reason::criticalSystemPath));
}

TEST(PathSafetyPolicyWhitelist, PatternsBelowTheHomeMeetPathsAboveBesideAndBelowIt) {
  // The second home holds a glob character, which its patterns take as one.
  const std::vector<std::string> patterns = {"~/Keep/x", "~/*.log", "~/proj*", "/other/Keep"};
  const struct {
    const char* home;
    const char* path;
    std::optional<std::string> match;
  } rows[] = {
      {"/data/u/vimo", "/data/u", "/data/u/vimo/Keep/x"},
      {"/data/u/vimo", "/", std::nullopt},  // "/" ends at no boundary of a pattern
      {"/data/u/vimo", "/data/u/vi", std::nullopt},
      {"/data/u/vimo", "/data/u/vimo", "/data/u/vimo/Keep/x"},
      {"/data/u/vimo", "/data/u/vimo/Keep/x/y", "/data/u/vimo/Keep/x"},
      {"/data/u/vimo", "/data/u/vimo/Keep/y", std::nullopt},
      {"/data/u/vimo", "/data/u/vimo/a/b.log", "/data/u/vimo/*.log"},
      {"/data/u/vimo", "/data/u/vimo2/a.log", std::nullopt},
      {"/data/u/vimo", "/data/u/vimo/project/z", "/data/u/vimo/proj*"},
      {"/data/u/vimo", "/data/u/vimoproj", std::nullopt},
      {"/data/u/vimo", "/other", "/other/Keep"},
      {"/data/u/v[1]", "/data/u", "/data/u/v[1]/Keep/x"},
      {"/data/u/v[1]", "/data/u/v[1]/Keep/x", "/data/u/v[1]/Keep/x"},
      {"/data/u/v[1]", "/data/u/v1/a.log", "/data/u/v[1]/*.log"},
      {"/data/u/v[1]", "/data/u/v1/Keep/x", "/data/u/v[1]/Keep/x"},
  };
  for (const auto& row : rows) {
    const PathSafetyPolicy policy(row.home, patterns);
    const auto match = policy.whitelistMatch(row.path);
    EXPECT_EQ(match ? std::optional<std::string>(*match) : std::nullopt, row.match)
        << row.home << " " << row.path;
  }
}

TEST(PathSafetyPolicyWhitelist, IsCaseSensitiveAndNeverOverridesProtection) {
  const PathSafetyPolicy narrow(kHome, {"~/Keep", "~/Library/Mail/*", "/tmp/x", "~/proj/*/build"});
  EXPECT_EQ(check(narrow, "/home/vimo/keep/a"), Verdict::allowed());
  EXPECT_EQ(check(narrow, "/home/vimo/Keeper"), Verdict::allowed());
  EXPECT_EQ(check(narrow, "/home/vimo/Library/Mail/V10"),
            Verdict::protected_(Reason::protectedUserData));
  EXPECT_EQ(check(narrow, "/tmp/x"), Verdict::whitelisted("/tmp/x"));
  // Nothing below a glob pattern is covered by the plain-pattern rule.
  EXPECT_EQ(check(narrow, "/home/vimo/proj/a/build/x"), Verdict::allowed());
  // An everything pattern keeps everything that is not already protected.
  const PathSafetyPolicy everything(kHome, {"*"});
  EXPECT_EQ(check(everything, "/home/vimo/a"), Verdict::whitelisted("*"));
  EXPECT_EQ(check(everything, "/"), Verdict::protected_(Reason::criticalSystemPath));
}

// A home folder in a temporary folder, spelled without links, so that the
// policy and the resolved paths agree on its text.
class PathSafetyPolicyLinks : public ::testing::Test {
 protected:
  PathSafetyPolicyLinks() {
    char* real = ::realpath(folder.path().c_str(), nullptr);
    home = std::string(real) + "/home";
    ::free(real);
    folder.makeDirectory("home/Library/Caches/App");
    folder.makeDirectory("home/Library/Keychains");
    folder.makeDirectory("home/Documents");
  }

  testing::TemporaryDirectory folder;
  std::string home;
};

TEST_F(PathSafetyPolicyLinks, RefusesALinkThatLeadsIntoProtectedPlaces) {
  const PathSafetyPolicy policy(home, {"~/Kept"});
  folder.makeSymlink("home/Library/Caches/App/keys", home + "/Library/Keychains");
  folder.makeSymlink("home/Library/Caches/App/relative", "../../Keychains");
  folder.makeSymlink("home/Library/Caches/App/system", "/etc");
  folder.makeSymlink("home/Library/Caches/App/dangling", home + "/Library/Keychains/gone/x");
  folder.makeSymlink("home/Library/Caches/App/docs", home + "/Documents");
  folder.makeSymlink("home/Kept", home + "/Library/Keychains");
  const Verdict redirect = Verdict::protected_(Reason::symbolicLinkRedirect);
  const std::string app = home + "/Library/Caches/App";
  EXPECT_EQ(policy.evaluate(app + "/keys", true), redirect);
  EXPECT_EQ(policy.evaluate(app + "/keys", false), Verdict::allowed());
  EXPECT_EQ(policy.evaluate(app + "/relative/login.keychain", true), redirect);
  EXPECT_EQ(policy.evaluate(app + "/system/passwd", true), redirect);
  EXPECT_EQ(policy.evaluate(app + "/dangling", true), redirect);
  // A link to a harmless place is no objection.
  EXPECT_EQ(policy.evaluate(app + "/docs/report.txt", true), Verdict::allowed());
  // A whitelisted path is never resolved, and stays whitelisted.
  EXPECT_EQ(policy.evaluate(home + "/Kept", true), Verdict::whitelisted(home + "/Kept"));
}

TEST_F(PathSafetyPolicyLinks, ResolvesThroughTheNearestExistingAncestor) {
  const PathSafetyPolicy policy(home, {});
  folder.makeSymlink("home/Documents/keys", home + "/Library/Keychains");
  EXPECT_EQ(policy.evaluate(home + "/Documents/not/yet/there", true), Verdict::allowed());
  EXPECT_EQ(policy.evaluate(home + "/Documents/keys/not/yet/there", true),
            Verdict::protected_(Reason::symbolicLinkRedirect));
  folder.makeSymlink("home/Documents/loop", home + "/Documents/loop");
  EXPECT_EQ(policy.evaluate(home + "/Documents/loop/x", true), Verdict::allowed());
}

// A scan shares one policy between its walkers, and the first evaluations
// of a process build the process-wide tables; under the thread sanitizer
// this shows that both are safe.
TEST(PathSafetyPolicyConcurrency, WalkersShareOnePolicy) {
  const PathSafetyPolicy policy(kHome, WhitelistStore::defaultPatterns(kHome));
  const std::vector<std::string> paths = {"/home/vimo/Library/Caches/com.docker.docker",
                                          "/home/vimo/Projects/x/node_modules",
                                          "/home/vimo/.gradle/caches/x", "/etc/passwd",
                                          "/home/vimo/Library/Application Support/Claude"};
  std::vector<std::vector<Verdict>> seen(4);
  std::vector<std::thread> walkers;
  for (size_t t = 0; t < seen.size(); ++t) {
    walkers.emplace_back([&, t] {
      for (int round = 0; round < 200; ++round) {
        for (const std::string& path : paths)
          seen[t].push_back(policy.evaluate(path, false));
      }
    });
  }
  for (auto& walker : walkers)
    walker.join();
  for (const auto& verdicts : seen)
    EXPECT_EQ(verdicts, seen.front());
  EXPECT_EQ(seen.front()[0], Verdict::protected_(Reason::protectedUserData));
  EXPECT_EQ(seen.front()[1], Verdict::allowed());
  EXPECT_EQ(seen.front()[2], Verdict::whitelisted("/home/vimo/.gradle/caches/*"));
  EXPECT_EQ(seen.front()[3], Verdict::protected_(Reason::criticalSystemPath));
  EXPECT_EQ(seen.front()[4], Verdict::protected_(Reason::protectedUserData));
}

TEST(PathSafetyPolicyLoading, TellsNoFileFromAnEmptyOne) {
  testing::TemporaryDirectory folder;
  const std::string home = folder.path();
  EXPECT_EQ(PathSafetyPolicy::loadingWhitelistFor(home).whitelistPatterns(),
            WhitelistStore::defaultPatterns(home));
  folder.writeFile(".config/brisko/whitelist", "");
  EXPECT_TRUE(PathSafetyPolicy::loadingWhitelistFor(home).whitelistPatterns().empty());
  folder.writeFile(".config/brisko/whitelist", "# only a comment\n\n  # another\n");
  EXPECT_TRUE(PathSafetyPolicy::loadingWhitelistFor(home).whitelistPatterns().empty());
  folder.writeFile(".config/brisko/whitelist", "~/Keep\r\n$HOME/Other\r\n");
  EXPECT_EQ(PathSafetyPolicy::loadingWhitelistFor(home).whitelistPatterns(),
            (std::vector<std::string>{home + "/Keep", home + "/Other"}));
  folder.writeFile(".config/brisko/whitelist", "~/Keep\n\xff\n");
  EXPECT_EQ(PathSafetyPolicy::loadingWhitelistFor(home).whitelistPatterns(),
            WhitelistStore::defaultPatterns(home));
}

}  // namespace
}  // namespace brisko
