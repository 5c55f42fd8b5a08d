#include "rules/linux_rule_targets.h"

#include <initializer_list>
#include <utility>

// Where a Linux home keeps what Brisko's rules look for. A place that is
// wrong finds nothing; a guard gives both a name and a path, so one wrong
// name doesn't open it.

namespace brisko::CleanupRuleCatalog::linux_rows {

namespace {

using Mode = RuleTargetMode;

RuleTarget target(std::string path, RuleTargetMode mode,
                  std::optional<std::string> itemTitle = std::nullopt,
                  std::vector<RuleGuard> guards = {}) {
  return RuleTarget{std::move(path), std::move(mode), std::move(itemTitle), std::move(guards)};
}

// A chromium-style browser keeps its profiles below ~/.config/<folder> and
// their disk caches below ~/.cache/<folder>, both one level per profile ("P")
// except Opera's, which has its one profile in the folder itself.
struct ChromiumBrowser {
  const char* itemTitle;
  RuleGuard Guards::*guard;
  const char* folder;
  bool profileLevel = true;
  bool modelRows = false;
};

const std::vector<ChromiumBrowser>& chromiumBrowsers() {
  static const std::vector<ChromiumBrowser> browsers = {
      {"Chrome cache", &Guards::chrome, "google-chrome*", true, true},
      {"Chromium cache", &Guards::chromium, "chromium"},
      {"Brave cache", &Guards::brave, "BraveSoftware/Brave-Browser"},
      {"Edge cache", &Guards::edge, "microsoft-edge*"},
      {"Vivaldi cache", &Guards::vivaldi, "vivaldi*"},
      {"Opera cache", &Guards::opera, "opera*", false},
  };
  return browsers;
}

void addBrowserRows(std::vector<RuleTarget>& t, const ChromiumBrowser& browser,
                    const RuleGuard& guard) {
  const std::string profile = browser.profileLevel ? "*/" : "";
  const std::string cache = std::string("~/.cache/") + browser.folder + "/";
  const std::string config = std::string("~/.config/") + browser.folder + "/";
  const auto add = [&](const std::string& path) {
    t.push_back(target(path, Mode::contents(), browser.itemTitle, {guard}));
  };
  // The disk caches live below ~/.cache.
  for (const char* name : {"Cache", "Code Cache"})
    add(cache + profile + name);
  // GPUCache also takes what macOS keeps as a separate persistent GPU cache.
  for (const char* name : {"GPUCache", "DawnCache", "GrShaderCache", "GraphiteDawnCache",
                           "DawnGraphiteCache", "DawnWebGPUCache"}) {
    add(config + profile + name);
  }
  for (const char* name : {"ShaderCache", "GrShaderCache", "GraphiteDawnCache",
                           "component_crx_cache", "extensions_crx_cache",
                           // Crashpad's reports that were already sent.
                           "Crash Reports/completed"}) {
    add(config + name);
  }
  if (browser.modelRows) {
    for (const char* name : {"OptGuideOnDeviceModel", "OptGuideOnDeviceClassifierModel",
                             "optimization_guide_model_store"}) {
      add(config + name);
    }
  }
  // Whole per-origin folders only, so no guard.
  t.push_back(target(config + profile + "Service Worker/CacheStorage",
                     Mode::serviceWorkerCacheStorage(protectedDomains()), browser.itemTitle));
}

}  // namespace

const std::set<std::string>& browserFolders() {
  static const std::set<std::string> folders = {"google-chrome*",  "chromium", "BraveSoftware",
                                                "microsoft-edge*", "vivaldi*", "opera*"};
  return folders;
}

std::set<std::string> excludedFromUserCache() {
  std::set<std::string> excluded = browserFolders();
  // Firefox's disk cache and the thumbnails have rules of their own; the AI
  // model stores are only ever shown.
  excluded.insert({"mozilla", "thumbnails", "lm-studio", "huggingface"});
  return excluded;
}

std::vector<RuleTarget> logTargets() {
  const auto old = Mode::oldFiles(7);
  std::vector<RuleTarget> t = {
      target("~/.xsession-errors.old", old, "X session errors"),
      target("~/.local/share/xorg", old, "Xorg logs"),
      target("~/.local/state/*/log", old, "{1} log"),
      target("~/.local/state/*/logs", old, "{1} logs"),
      target("~/.local/state/nvim/lsp.log", old, "Neovim language server log"),
  };
  // Firefox keeps its profiles (and crash reports) in ~/.mozilla, or in
  // ~/.config/mozilla where it follows the XDG folders.
  for (const char* base : {"~/.mozilla/firefox", "~/.config/mozilla/firefox"}) {
    for (const char* state : {"pending", "submitted"}) {
      t.push_back(
          target(std::string(base) + "/Crash Reports/" + state, old, "Firefox crash reports"));
    }
  }
  return t;
}

std::vector<RuleTarget> browserCacheTargets(const Guards& g) {
  std::vector<RuleTarget> t;
  for (const ChromiumBrowser& browser : chromiumBrowsers())
    addBrowserRows(t, browser, g.*browser.guard);
  // Wherever the profile lives, Firefox's disk cache is below ~/.cache.
  t.push_back(
      target("~/.cache/mozilla/firefox/*/cache2", Mode::contents(), "Firefox cache", {g.firefox}));
  return t;
}

std::vector<RuleTarget> appDeepCacheTargets() {
  std::vector<RuleTarget> t;
  for (const char* root : {"~/.config", "~/.var/app/*/config", "~/snap/*/*/.config"}) {
    t.push_back(target(root, Mode::electronAppSupportCaches(browserFolders())));
  }
  for (const auto& [folder, title] : std::initializer_list<std::pair<const char*, const char*>>{
           {"~/.config/Code/", "VS Code cache"}, {"~/.config/VSCodium/", "VSCodium cache"}}) {
    for (const char* name :
         {"CachedExtensions", "CachedExtensionVSIXs", "logs", "WebStorage/*/CacheStorage"}) {
      t.push_back(target(std::string(folder) + name, Mode::contents(), title));
    }
  }
  return t;
}

std::vector<CleanupRule> rules(const Guards& g) {
  const auto guard = RuleGuard::processNotRunning;
  std::vector<RuleTarget> steam;
  for (const char* root : {"~/.local/share/Steam", "~/.steam/debian-installation",
                           "~/.var/app/com.valvesoftware.Steam/.local/share/Steam",
                           "~/.var/app/com.valvesoftware.Steam/data/Steam"}) {
    steam.push_back(target(std::string(root) + "/steamapps/shadercache", Mode::contents(),
                           "Steam shader cache"));
  }
  return {
      CleanupRule{
          .id = "thumbnail-cache",
          .kind = FindingKind::userCache,
          .title = "Thumbnails",
          .risk = RiskLevel::recommended,
          .explanation = "Previews of pictures and documents, made again when shown.",
          // Writers rename a finished thumbnail into place, so nothing is
          // ever half-written here: no guard.
          .targets = {target("~/.cache/thumbnails", Mode::contents(), "Thumbnails"),
                      target("~/.thumbnails", Mode::contents(), "Thumbnails")},
      },
      CleanupRule{
          .id = "flatpak-app-caches",
          .kind = FindingKind::userCache,
          .title = "Flatpak app caches",
          .risk = RiskLevel::recommended,
          .explanation = "Caches of Flatpak apps, cleaned while each app is closed.",
          // The app's XDG_CACHE_HOME, its temporary folder included.
          .targets = {target("~/.var/app/*/cache", Mode::contents(), "{1}",
                             {guard({}, {"/flatpak/app/{1}/"})})},
      },
      CleanupRule{
          .id = "snap-app-caches",
          .kind = FindingKind::userCache,
          .title = "Snap app caches",
          .risk = RiskLevel::recommended,
          .explanation = "Caches of Snap apps, cleaned while each app is closed.",
          // Each revision's folder and common, never the "current" link.
          .targets = {target("~/snap/*/*/.cache", Mode::contents(), "{1}",
                             {guard({}, {"/snap/{1}/"})})},
      },
      CleanupRule{
          .id = "game-shader-caches",
          .kind = FindingKind::userCache,
          .title = "Game shader caches",
          .risk = RiskLevel::recommended,
          .explanation = "Compiled again when a game starts; games and saves untouched.",
          .targets = std::move(steam),
          .guards = {g.steam},
      },
  };
}

}  // namespace brisko::CleanupRuleCatalog::linux_rows
