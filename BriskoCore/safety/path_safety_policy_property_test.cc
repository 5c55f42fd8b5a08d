// Properties of the safety gate over generated paths: casings, suffixes,
// whitelists and byte strings that no list of examples would think of. The
// tables here are written out again on purpose, so that a row lost or
// mistyped in the policy shows up as a failure. Each test uses a fixed seed,
// printed with every failure, so a failure can be replayed.

#include <gtest/gtest.h>

#include <filesystem>
#include <random>
#include <string>
#include <vector>

#include <stdlib.h>

#include "base/utf8.h"
#include "safety/path_safety_policy.h"
#include "safety/whitelist_store.h"
#include "testing/temporary_directory.h"

namespace brisko {
namespace {

using Kind = PathSafetyVerdict::Kind;

const std::vector<std::string> kHomes = {"/home/vimo", "/data/Users/Élodie", "/root"};

const std::vector<std::string> kHomeRoots = {
    "Library/Accounts",
    "Library/Calendars",
    "Library/Contacts",
    "Library/Keychains",
    "Library/Mail",
    "Library/Mobile Documents",
    "Library/Application Support/Brisko",
    "Library/Application Support/Codex",
    ".codex/sessions",
    ".local/share/brisko",
    ".orbstack",
    "Library/Caches/ms-playwright",
    "Library/Caches/app.cotypist.cotypist",
    "Library/Caches/com.displaylink.DisplayLinkUserAgent",
    "Library/Caches/com.lasersoft-imaging.silverfast9",
    "Library/Caches/com.apple.containermanagerd",
    "Library/Caches/com.apple.homed",
    "Library/Caches/com.apple.ap.adprivacyd",
    "Library/Caches/FamilyCircle",
    "Library/Caches/com.apple.HomeKit",
    ".cache/ms-playwright",
};

const std::vector<std::string> kSystemRoots = {
    "/Library/Audio/Plug-Ins/Components",
    "/Library/Audio/Plug-Ins/VST",
    "/Library/Audio/Plug-Ins/VST3",
    "/Library/Application Support/iZotope",
    "/Library/Application Support/LaserSoft Imaging",
};

const std::vector<std::string> kCriticalTrees = {
    "/Applications/Finder.app",
    "/Applications/Safari.app",
    "/Library/Apple",
    "/Library/Extensions",
    "/Library/Keychains",
    "/System",
    "/Users/Guest",
    "/bin",
    "/dev",
    "/etc",
    "/private/etc",
    "/private/var/audit",
    "/private/var/db",
    "/private/var/root",
    "/sbin",
    "/usr",
    "/var/audit",
    "/var/db",
    "/var/root",
    "/boot",
    "/proc",
    "/sys",
    "/run",
    "/lib",
    "/lib32",
    "/lib64",
    "/libx32",
    "/snap",
};

const std::vector<std::string> kCriticalExactPaths = {
    "/",
    "/Applications",
    "/Library",
    "/Library/Application Support",
    "/Network",
    "/Users",
    "/Users/Shared",
    "/Volumes",
    "/cores",
    "/etc",
    "/home",
    "/net",
    "/opt",
    "/opt/homebrew",
    "/private",
    "/private/tmp",
    "/private/var",
    "/private/var/folders",
    "/private/var/tmp",
    "/tmp",
    "/usr/local",
    "/usr/share",
    "/usr/libexec",
    "/var",
    "/root",
    "/srv",
    "/mnt",
    "/media",
    "/var/tmp",
};

const std::vector<std::string> kNameRows = {
    "com.apple.finder*",
    "com.apple.dock*",
    "com.apple.systempreferences*",
    "com.apple.systemsettings*",
    "com.apple.settings*",
    "com.apple.controlcenter*",
    "com.apple.notes*",
    "com.apple.keychain*",
    "com.apple.security*",
    "com.apple.mobilesoftwareupdate*",
    "com.apple.softwareupdate*",
    "com.1password.*",
    "com.agilebits.*",
    "com.lastpass.*",
    "com.dashlane.*",
    "com.bitwarden.*",
    "org.keepassx*",
    "org.keepassxc*",
    "com.authy.*",
    "com.yubico.*",
    "com.jetbrains.*",
    "com.microsoft.vscode*",
    "com.visualstudio.code.*",
    "com.sublimetext.*",
    "com.sublimehq.*",
    "com.apple.dt.xcode",
    "cursor*",
    "claude*",
    "chatgpt*",
    "com.openai.*",
    "codex*",
    "ollama*",
    "com.docker.*",
    "dev.orbstack.*",
    "com.vmware.fusion*",
    "com.parallels.desktop.*",
    "org.virtualbox.*",
    "com.nssurge.*",
    "com.clash.*",
    "clash*",
    "*clash-verge*",
    "*tailscale*",
    "*zerotier*",
    "*wireguard*",
    "*nordvpn*",
    "*expressvpn*",
    "*protonvpn*",
    "*surfshark*",
    "*mullvad*",
    "com.native-instruments*",
    "com.paceap.*",
    "com.avid.mediacomposer*",
};

const std::vector<std::string> kAppDataRoots = {
    "Library/Application Support",
    "Library/Caches",
    "Library/Containers",
    "Library/Group Containers",
    "Library/Preferences",
    "Library/Saved Application State",
    ".config",
    ".cache",
    ".var/app",
    "snap",
};

class Generator {
 public:
  explicit Generator(uint32_t seed) : random_(seed) {}

  size_t below(size_t bound) {
    return std::uniform_int_distribution<size_t>(0, bound - 1)(random_);
  }
  bool chance(int percent) { return below(100) < static_cast<size_t>(percent); }
  template <class T>
  const T& pick(const std::vector<T>& items) {
    return items[below(items.size())];
  }

  // Any mixture of cases; a "k" sometimes as the KELVIN SIGN, which folds to "k".
  std::string anyCasing(std::string_view text) {
    std::string out;
    for (const char c : text) {
      const bool letter = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
      if (!letter) {
        out.push_back(c);
      } else if ((c == 'k' || c == 'K') && chance(30)) {
        out += "\u212A";
      } else {
        const char lower = static_cast<char>(c | 0x20);
        out.push_back(chance(50) ? static_cast<char>(lower - 'a' + 'A') : lower);
      }
    }
    return out;
  }

  std::string component() {
    static const std::vector<std::string> pieces = {
        "x",  "Cache", "a b", "..b",          "é",    "日本", "com.foo", "-",     "~", "*",
        "[a", "?",     "v1",  "node_modules", ".git", "Data", "ÅSA",     "\u212A"};
    std::string text = pick(pieces);
    if (chance(30)) text += std::to_string(below(1000));
    return text;
  }

  // "", or "/" and up to four components, now and then with doubled or
  // trailing slashes, which the normalisation removes.
  std::string suffix() {
    std::string text;
    const size_t count = below(5);
    for (size_t i = 0; i < count; ++i) {
      text += chance(10) ? "//" : "/";
      text += component();
    }
    if (chance(10)) text += "/";
    return text;
  }

  std::string whitelistLine(const std::string& home) {
    switch (below(10)) {
      case 0:
        return "~";
      case 1:
        return "*";
      case 2:
        return "~/" + component();
      case 3:
        return "$HOME/Library/" + component() + "*";
      case 4:
        return "*" + component() + "*";
      case 5:
        return home + suffix();
      case 6:
        return "/" + component() + "/*/" + component();
      case 7:
        return "  " + home + "/Library/Caches/*\n";
      case 8:
        return "";
      default:
        return "/" + std::string(pick(kHomeRoots)) + suffix();
    }
  }

  std::mt19937& engine() { return random_; }

 private:
  std::mt19937 random_;
};

// The whitelist that tries hardest to keep `path`: itself, its parent, a
// glob over it and everything.
std::vector<std::string> keepEverythingWhitelist(const std::string& path) {
  return {path, path + "/*", normalizedPolicyPath(path.substr(0, path.rfind('/'))), "*", "~", "/*"};
}

void expectRefused(const PathSafetyPolicy& policy, const std::string& path) {
  const PathSafetyVerdict verdict = policy.evaluate(path, false);
  EXPECT_TRUE(verdict.kind() == Kind::protected_ || verdict.kind() == Kind::invalid)
      << path << " -> " << verdict;
}

TEST(PathSafetyProperties, ProtectedRootsRefuseEveryCasingAndSuffix) {
  Generator generate(20261122);
  for (const std::string& home : kHomes) {
    for (const std::string& root : kHomeRoots) {
      for (int i = 0; i < 30; ++i) {
        const std::string path = home + "/" + generate.anyCasing(root) + generate.suffix();
        expectRefused(PathSafetyPolicy(home, keepEverythingWhitelist(path)), path);
      }
    }
    for (int i = 0; i < 30; ++i) {
      // Preference rows are plain prefixes of a file name.
      const std::string path =
          home + "/" +
          generate.anyCasing(generate.pick(std::vector<std::string>{
              "Library/Preferences/com.paceap.", "Library/Preferences/com.native-instruments",
              "Library/Preferences/com.avid.mediacomposer"})) +
          generate.component() + generate.suffix();
      expectRefused(PathSafetyPolicy(home, keepEverythingWhitelist(path)), path);
    }
  }
  for (const std::string& root : kSystemRoots) {
    for (int i = 0; i < 30; ++i) {
      const std::string path = generate.anyCasing(root) + generate.suffix();
      expectRefused(PathSafetyPolicy("/home/vimo", keepEverythingWhitelist(path)), path);
    }
  }
}

TEST(PathSafetyProperties, CriticalTreesAndPathsRefuseEveryCasingAndSuffix) {
  Generator generate(7);
  const PathSafetyPolicy policy("/home/vimo", {"*", "/*", "~", "/usr/*", "/etc"});
  for (const std::string& tree : kCriticalTrees) {
    for (int i = 0; i < 40; ++i) {
      std::string suffix = generate.suffix();
      // /usr/local/... is carved out of the /usr tree on purpose.
      if (tree == "/usr" && suffix.size() > 1 &&
          normalizedPolicyPath(suffix).substr(0, 6) == "/local") {
        continue;
      }
      const std::string path = generate.anyCasing(tree) + suffix;
      EXPECT_EQ(policy.evaluate(path, false).kind(), Kind::protected_) << path;
    }
  }
  for (const std::string& exact : kCriticalExactPaths) {
    for (int i = 0; i < 10; ++i) {
      const std::string path = generate.anyCasing(exact) + (generate.chance(30) ? "//" : "");
      EXPECT_EQ(policy.evaluate(path, false),
                PathSafetyVerdict::protected_(PathSafetyReason::criticalSystemPath))
          << path;
    }
  }
  for (int i = 0; i < 200; ++i) {
    const std::string name = generate.component() + std::to_string(i);
    for (const std::string folder : {"/home/", "/Users/", "/HOME/", "/users/"}) {
      const std::string path = folder + name;
      EXPECT_EQ(policy.evaluate(path, false),
                PathSafetyVerdict::protected_(PathSafetyReason::criticalSystemPath))
          << path;
    }
  }
}

TEST(PathSafetyProperties, ProtectedNameRowsRefuseEveryCasingAndSuffix) {
  Generator generate(52);
  const std::string home = "/home/vimo";
  for (const std::string& row : kNameRows) {
    const bool bareWord = row.find('.') == std::string::npos;
    std::string core = row;
    const bool leadingStar = core.front() == '*';
    const bool trailingStar = core.back() == '*';
    if (leadingStar) core.erase(0, 1);
    if (trailingStar) core.pop_back();
    for (int i = 0; i < 30; ++i) {
      std::string name = generate.anyCasing(core);
      if (leadingStar && generate.chance(70)) name = "My-" + name;
      if (trailingStar && generate.chance(70))
        name += generate.pick(std::vector<std::string>{"", ".helper", "-2", "Data", "é"});
      std::string where;
      if (bareWord) {
        where = home + "/" + generate.anyCasing(generate.pick(kAppDataRoots));
        if (generate.chance(50)) where += "/" + generate.component();
      } else {
        where = generate.pick(std::vector<std::string>{home + "/Projects", home + "/Library/Caches",
                                                       "/srv/data", "/var/folders/ab/T"});
      }
      const std::string path = where + "/" + name + generate.suffix();
      expectRefused(PathSafetyPolicy(home, keepEverythingWhitelist(path)), path);
    }
  }
}

TEST(PathSafetyProperties, AddingAWhitelistLineNeverGrantsAnything) {
  Generator generate(99);
  const std::string home = "/home/vimo";
  const std::vector<std::string> places = {home + "/Projects",
                                           home + "/Library/Caches",
                                           home + "/Library/Keychains",
                                           home + "/.cache",
                                           home,
                                           "/tmp",
                                           "/usr/local",
                                           "/etc"};
  for (int i = 0; i < 400; ++i) {
    std::vector<std::string> whitelist;
    for (size_t n = generate.below(5); n > 0; --n)
      whitelist.push_back(generate.whitelistLine(home));
    const std::string line = generate.whitelistLine(home);
    std::vector<std::string> appended = whitelist;
    appended.push_back(line);
    std::vector<std::string> prepended = {line};
    prepended.insert(prepended.end(), whitelist.begin(), whitelist.end());
    const PathSafetyPolicy before(home, whitelist);
    const PathSafetyPolicy afterAppend(home, appended);
    const PathSafetyPolicy afterPrepend(home, prepended);
    for (int j = 0; j < 10; ++j) {
      const std::string path = generate.pick(places) + generate.suffix();
      const PathSafetyVerdict was = before.evaluate(path, false);
      const PathSafetyVerdict appendedVerdict = afterAppend.evaluate(path, false);
      const PathSafetyVerdict prependedVerdict = afterPrepend.evaluate(path, false);
      SCOPED_TRACE(path + " with line \"" + line + "\", was " + was.description());
      if (was.kind() == Kind::allowed) {
        EXPECT_TRUE(appendedVerdict.kind() == Kind::allowed ||
                    appendedVerdict.kind() == Kind::whitelisted);
        EXPECT_TRUE(prependedVerdict.kind() == Kind::allowed ||
                    prependedVerdict.kind() == Kind::whitelisted);
      } else if (was.kind() == Kind::whitelisted) {
        // Appended lines come last: the first match stays the first.
        EXPECT_EQ(appendedVerdict, was);
        EXPECT_EQ(prependedVerdict.kind(), Kind::whitelisted);
      } else {
        EXPECT_EQ(appendedVerdict, was);
        EXPECT_EQ(prependedVerdict, was);
      }
    }
  }
}

TEST(PathSafetyProperties, ResolvingLinksNeverGrantsWhatTheTextRefused) {
  Generator generate(4242);
  testing::TemporaryDirectory folder;
  const std::string home = folder.path() + "/home";
  folder.makeDirectory("home/Library/Keychains/sub");
  folder.makeDirectory("home/Library/Caches/App/data");
  folder.makeDirectory("home/Projects/app/build");
  folder.makeDirectory("home/Keep/inner");
  folder.makeSymlink("home/Library/Caches/App/keys", home + "/Library/Keychains");
  folder.makeSymlink("home/Projects/app/etc", "/etc");
  folder.makeSymlink("home/Projects/app/up", "../..");
  folder.makeSymlink("home/Projects/app/self", "self");
  folder.makeSymlink("home/Keep/link", home + "/Library/Keychains/sub");
  folder.makeSymlink("home/Projects/kept", home + "/Keep/inner");
  const PathSafetyPolicy policy(home, {"~/Keep", "~/Projects/kept/*", "~/Projects/app/b*"});
  int refusedTargets = 0;
  for (int i = 0; i < 1500; ++i) {
    // A walk through what is there, links included, now and then off the
    // end into a place that doesn't exist yet.
    std::string path = home;
    for (size_t n = 1 + generate.below(6); n > 0; --n) {
      std::vector<std::string> names;
      std::error_code error;
      for (const auto& entry : std::filesystem::directory_iterator(path, error)) {
        names.push_back(entry.path().filename().string());
      }
      if (names.empty() || generate.chance(10)) {
        path += "/missing";
        break;
      }
      path += "/" + generate.pick(names);
    }
    const PathSafetyVerdict literal = policy.evaluate(path, false);
    const PathSafetyVerdict resolved = policy.evaluate(path, true);
    SCOPED_TRACE(path + ": " + literal.description() + " then " + resolved.description());
    if (literal.kind() != Kind::allowed) {
      EXPECT_EQ(resolved, literal);
      continue;
    }
    // Where the path exists, the C library's realpath is an independent
    // judge of where it leads: whatever the gate says of that place, it must
    // not grant more for the path.
    char* real = ::realpath(path.c_str(), nullptr);
    if (real == nullptr) continue;
    const PathSafetyVerdict ofTarget = policy.evaluate(real, false);
    ::free(real);
    if (ofTarget.kind() != Kind::allowed) {
      EXPECT_NE(resolved.kind(), Kind::allowed) << "target: " << ofTarget;
      ++refusedTargets;
    }
  }
  // The generated paths did reach refused places through links.
  EXPECT_GT(refusedTargets, 50);
}

TEST(PathSafetyProperties, AnyByteStringGetsAVerdictAndBadTextIsNeverAllowed) {
  Generator generate(31337);
  const PathSafetyPolicy policy("/home/vimo", WhitelistStore::defaultPatterns("/home/vimo"));
  const std::vector<std::string> alphabet = {"/",  "/", "a",      "K",    ".",        "..",
                                             "~",  "*", "\xff",   "\xc3", "\xe2\x80", "\0",
                                             "\n", "é", "\u212A", "//",   "home",     "vimo"};
  for (int i = 0; i < 5000; ++i) {
    std::string path = generate.chance(80) ? "/" : "";
    for (size_t n = generate.below(20); n > 0; --n) {
      const std::string& piece = generate.pick(alphabet);
      path += piece.empty() ? std::string(1, '\0') : piece;
    }
    for (const bool resolving : {false, true}) {
      const PathSafetyVerdict verdict = policy.evaluate(path, resolving);
      const bool wellFormed = isValidUtf8(path) && path.find('\0') == std::string::npos &&
                              path.find('\n') == std::string::npos;
      if (!wellFormed && !path.empty() && path[0] == '/') {
        EXPECT_EQ(verdict.kind(), Kind::invalid) << path;
      }
    }
    // Spellings that normalise alike are judged alike.
    if (!path.empty() && path[0] == '/') {
      EXPECT_EQ(policy.evaluate(path + "//", false),
                policy.evaluate(normalizedPolicyPath(path), false))
          << path;
      EXPECT_EQ(normalizedPolicyPath(normalizedPolicyPath(path)), normalizedPolicyPath(path));
    }
  }
}

}  // namespace
}  // namespace brisko
