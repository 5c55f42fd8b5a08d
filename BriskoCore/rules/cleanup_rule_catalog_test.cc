#include "rules/cleanup_rule_catalog.h"

#include <gtest/gtest.h>

#include <map>
#include <sstream>
#include <string>
#include <vector>

// The catalog written out a second time, flat: one row per rule, guard and
// target, every path in full. The catalog source groups and generates its
// targets; this file doesn't, so a slip in either shows up here.

namespace brisko {
namespace {

struct ExpectedRule {
  const char* id;
  const char* kind;
  const char* risk;
  size_t targetCount;
  const char* action;
  const char* ruleGuard;
  const char* title;
  const char* subtitle;
  const char* explanation;
  const char* guidance;
};

struct ExpectedGuard {
  const char* label;
  std::vector<std::string> names;
  std::vector<std::string> pathFragments;
};

struct ExpectedTarget {
  const char* rule;
  const char* path;
  const char* mode;
  const char* itemTitle;
  const char* guard;
};

const std::vector<ExpectedRule>& expectedRules() {
  static const std::vector<ExpectedRule> rows = {
      {"user-caches", "userCache", "recommended", 1, "cleanup", "", "App caches", "",
       "Apps rebuild these on their own.", ""},
      {"user-logs", "logs", "recommended", 10, "cleanup", "", "Old logs", "",
       "Logs older than 7 days, recreated when needed.", ""},
      {"xcode-derived-data", "developer", "recommended", 1, "cleanup", "Xcode", "Xcode caches", "",
       "Rebuilt on the next build.", ""},
      {"downloaded-installers", "installer", "review", 1, "cleanup", "", "Installers", "",
       "You may still need these; pick each one yourself.", ""},
      {"dev-tool-caches", "developer", "recommended", 38, "cleanup", "", "Developer caches", "",
       "Download caches from npm, cargo and more, restored on use.", ""},
      {"xcode-device-support", "developer", "recommended", 3, "cleanup", "",
       "Old device debug files", "",
       "Rebuilt when an older device reconnects; the newest 2 are kept.", ""},
      {"xcode-simulators", "developer", "recommended", 9, "cleanup", "Simulator",
       "Simulator caches", "", "Rebuilt when a simulator starts; installed apps untouched.", ""},
      {"stale-tool-versions", "developer", "recommended", 3, "cleanup", "", "Old tool versions", "",
       "Left behind by updates; the version in use stays.", ""},
      {"browser-caches", "userCache", "recommended", 181, "cleanup", "", "Browser caches", "",
       "Cleaned while the browser is closed; history and logins untouched.", ""},
      {"browser-old-versions", "userCache", "recommended", 7, "cleanup", "", "Old browser versions",
       "", "Left after updates; the version in use is kept.", ""},
      {"app-deep-caches", "userCache", "recommended", 18, "cleanup", "", "App web caches", "",
       "Caches from Slack, Discord and more; accounts untouched.", ""},
      {"video-project-caches", "userCache", "recommended", 16, "cleanup", "",
       "Video editing caches", "", "Render caches from CapCut and Final Cut, rebuilt on demand.",
       ""},
      {"report-xcode-archives", "developer", "review", 1, "reportOnly", "", "Xcode archives",
       "App archives you exported", "Can’t be recovered once deleted; shown only.",
       "Delete them in Xcode’s Organizer"},
      {"report-ios-backups", "developer", "review", 1, "reportOnly", "", "Device backups",
       "iPhone and iPad backups on this Mac",
       "Usually large; make sure there’s a newer backup first.",
       "In Finder’s sidebar, pick the device → Manage Backups"},
      {"report-mail-data", "userCache", "review", 1, "reportOnly", "", "Mail data",
       "Local data of Mail", "Managed by macOS; shown only.", "Delete large attachments in Mail"},
      {"report-ai-models", "developer", "review", 4, "reportOnly", "", "Local AI models",
       "Models from Ollama, LM Studio and more", "Large to download again; shown only.",
       "Remove them with each tool, such as ollama rm"},
      {"report-simulator-devices", "developer", "review", 1, "reportOnly", "", "Simulator devices",
       "All data of each simulator", "Large; delete them in Xcode.",
       "Delete them in Xcode’s Devices and Simulators"},
      {"report-container-vms", "developer", "review", 1, "reportOnly", "", "Containers and VMs",
       "Docker or OrbStack is installed", "Managed by the apps themselves; not cleaned.",
       "Clean up inside Docker or OrbStack"},
      {"orphaned-app-data", "userCache", "review", 3, "cleanup", "", "Uninstall leftovers", "",
       "The app is gone and unused for 30 days; check before selecting.", ""},
      {"thumbnail-cache", "userCache", "recommended", 2, "cleanup", "", "Thumbnails", "",
       "Previews of pictures and documents, made again when shown.", ""},
      {"flatpak-app-caches", "userCache", "recommended", 1, "cleanup", "", "Flatpak app caches", "",
       "Caches of Flatpak apps, cleaned while each app is closed.", ""},
      {"snap-app-caches", "userCache", "recommended", 1, "cleanup", "", "Snap app caches", "",
       "Caches of Snap apps, cleaned while each app is closed.", ""},
      {"game-shader-caches", "userCache", "recommended", 4, "cleanup", "Steam",
       "Game shader caches", "", "Compiled again when a game starts; games and saves untouched.",
       ""},
  };
  return rows;
}

const std::vector<ExpectedGuard>& expectedGuards() {
  static const std::vector<ExpectedGuard> rows = {
      {"Xcode", {"Xcode"}, {"/Xcode.app/Contents/MacOS/"}},
      {"Simulator",
       {"Simulator", "com.apple.CoreSimulator.CoreSimulatorService", "simdiskimaged", "xcodebuild",
        "xctest", "XCTRunner"},
       {"/Simulator.app/"}},
      {"Chrome",
       {"Google Chrome", "Google Chrome Helper", "chrome"},
       {"/Google Chrome.app/", "/opt/google/chrome"}},
      {"Arc", {"Arc"}, {"/Arc.app/"}},
      {"Brave", {"Brave Browser", "brave"}, {"/Brave Browser.app/", "/opt/brave.com/"}},
      {"Vivaldi", {"Vivaldi", "vivaldi-bin"}, {"/Vivaldi.app/", "/opt/vivaldi"}},
      {"Dia", {"Dia"}, {"/Dia.app/"}},
      {"Helium", {"Helium"}, {"/Helium.app/"}},
      {"Yandex", {"Yandex"}, {"/Yandex.app/"}},
      {"QQ", {"QQBrowser3"}, {}},
      {"Firefox", {"firefox", "Firefox", "firefox-esr", "firefox-bin"}, {"/Firefox.app/"}},
      {"Edge", {"Microsoft Edge", "msedge"}, {"/opt/microsoft/msedge"}},
      {"CapCut", {"VideoFusion-macOS"}, {}},
      {"Final Cut", {"Final Cut Pro"}, {"/Final Cut Pro.app/"}},
      {"Resolve", {"Resolve"}, {"/DaVinci Resolve.app/"}},
      {"Chromium", {"Chromium", "chromium"}, {"/usr/lib/chromium/"}},
      {"Opera", {"Opera", "opera"}, {}},
      {"Steam", {"Steam", "steam", "steamwebhelper", "fossilize_replay"}, {"/steamapps/common/"}},
      // Target guards named after their root's first wildcard.
      {"Flatpak {1}", {}, {"/flatpak/app/{1}/"}},
      {"Snap {1}", {}, {"/snap/{1}/"}},
  };
  return rows;
}

// A Linux home's places, by rule: each rule's come after its own rows.
const std::vector<ExpectedTarget>& expectedLinuxTargets() {
  static const std::vector<ExpectedTarget> rows = {
      {"user-logs", "~/.xsession-errors.old", "oldFiles(7)", "X session errors", ""},
      {"user-logs", "~/.local/share/xorg", "oldFiles(7)", "Xorg logs", ""},
      {"user-logs", "~/.local/state/*/log", "oldFiles(7)", "{1} log", ""},
      {"user-logs", "~/.local/state/*/logs", "oldFiles(7)", "{1} logs", ""},
      {"user-logs", "~/.local/state/nvim/lsp.log", "oldFiles(7)", "Neovim language server log", ""},
      {"user-logs", "~/.mozilla/firefox/Crash Reports/pending", "oldFiles(7)",
       "Firefox crash reports", ""},
      {"user-logs", "~/.mozilla/firefox/Crash Reports/submitted", "oldFiles(7)",
       "Firefox crash reports", ""},
      {"user-logs", "~/.config/mozilla/firefox/Crash Reports/pending", "oldFiles(7)",
       "Firefox crash reports", ""},
      {"user-logs", "~/.config/mozilla/firefox/Crash Reports/submitted", "oldFiles(7)",
       "Firefox crash reports", ""},
      {"browser-caches", "~/.cache/google-chrome*/*/Cache", "contents", "Chrome cache", "Chrome"},
      {"browser-caches", "~/.cache/google-chrome*/*/Code Cache", "contents", "Chrome cache",
       "Chrome"},
      {"browser-caches", "~/.config/google-chrome*/*/GPUCache", "contents", "Chrome cache",
       "Chrome"},
      {"browser-caches", "~/.config/google-chrome*/*/DawnCache", "contents", "Chrome cache",
       "Chrome"},
      {"browser-caches", "~/.config/google-chrome*/*/GrShaderCache", "contents", "Chrome cache",
       "Chrome"},
      {"browser-caches", "~/.config/google-chrome*/*/GraphiteDawnCache", "contents", "Chrome cache",
       "Chrome"},
      {"browser-caches", "~/.config/google-chrome*/*/DawnGraphiteCache", "contents", "Chrome cache",
       "Chrome"},
      {"browser-caches", "~/.config/google-chrome*/*/DawnWebGPUCache", "contents", "Chrome cache",
       "Chrome"},
      {"browser-caches", "~/.config/google-chrome*/ShaderCache", "contents", "Chrome cache",
       "Chrome"},
      {"browser-caches", "~/.config/google-chrome*/GrShaderCache", "contents", "Chrome cache",
       "Chrome"},
      {"browser-caches", "~/.config/google-chrome*/GraphiteDawnCache", "contents", "Chrome cache",
       "Chrome"},
      {"browser-caches", "~/.config/google-chrome*/component_crx_cache", "contents", "Chrome cache",
       "Chrome"},
      {"browser-caches", "~/.config/google-chrome*/extensions_crx_cache", "contents",
       "Chrome cache", "Chrome"},
      {"browser-caches", "~/.config/google-chrome*/Crash Reports/completed", "contents",
       "Chrome cache", "Chrome"},
      {"browser-caches", "~/.config/google-chrome*/OptGuideOnDeviceModel", "contents",
       "Chrome cache", "Chrome"},
      {"browser-caches", "~/.config/google-chrome*/OptGuideOnDeviceClassifierModel", "contents",
       "Chrome cache", "Chrome"},
      {"browser-caches", "~/.config/google-chrome*/optimization_guide_model_store", "contents",
       "Chrome cache", "Chrome"},
      {"browser-caches", "~/.config/google-chrome*/*/Service Worker/CacheStorage", "sw",
       "Chrome cache", ""},
      {"browser-caches", "~/.cache/chromium/*/Cache", "contents", "Chromium cache", "Chromium"},
      {"browser-caches", "~/.cache/chromium/*/Code Cache", "contents", "Chromium cache",
       "Chromium"},
      {"browser-caches", "~/.config/chromium/*/GPUCache", "contents", "Chromium cache", "Chromium"},
      {"browser-caches", "~/.config/chromium/*/DawnCache", "contents", "Chromium cache",
       "Chromium"},
      {"browser-caches", "~/.config/chromium/*/GrShaderCache", "contents", "Chromium cache",
       "Chromium"},
      {"browser-caches", "~/.config/chromium/*/GraphiteDawnCache", "contents", "Chromium cache",
       "Chromium"},
      {"browser-caches", "~/.config/chromium/*/DawnGraphiteCache", "contents", "Chromium cache",
       "Chromium"},
      {"browser-caches", "~/.config/chromium/*/DawnWebGPUCache", "contents", "Chromium cache",
       "Chromium"},
      {"browser-caches", "~/.config/chromium/ShaderCache", "contents", "Chromium cache",
       "Chromium"},
      {"browser-caches", "~/.config/chromium/GrShaderCache", "contents", "Chromium cache",
       "Chromium"},
      {"browser-caches", "~/.config/chromium/GraphiteDawnCache", "contents", "Chromium cache",
       "Chromium"},
      {"browser-caches", "~/.config/chromium/component_crx_cache", "contents", "Chromium cache",
       "Chromium"},
      {"browser-caches", "~/.config/chromium/extensions_crx_cache", "contents", "Chromium cache",
       "Chromium"},
      {"browser-caches", "~/.config/chromium/Crash Reports/completed", "contents", "Chromium cache",
       "Chromium"},
      {"browser-caches", "~/.config/chromium/*/Service Worker/CacheStorage", "sw", "Chromium cache",
       ""},
      {"browser-caches", "~/.cache/BraveSoftware/Brave-Browser/*/Cache", "contents", "Brave cache",
       "Brave"},
      {"browser-caches", "~/.cache/BraveSoftware/Brave-Browser/*/Code Cache", "contents",
       "Brave cache", "Brave"},
      {"browser-caches", "~/.config/BraveSoftware/Brave-Browser/*/GPUCache", "contents",
       "Brave cache", "Brave"},
      {"browser-caches", "~/.config/BraveSoftware/Brave-Browser/*/DawnCache", "contents",
       "Brave cache", "Brave"},
      {"browser-caches", "~/.config/BraveSoftware/Brave-Browser/*/GrShaderCache", "contents",
       "Brave cache", "Brave"},
      {"browser-caches", "~/.config/BraveSoftware/Brave-Browser/*/GraphiteDawnCache", "contents",
       "Brave cache", "Brave"},
      {"browser-caches", "~/.config/BraveSoftware/Brave-Browser/*/DawnGraphiteCache", "contents",
       "Brave cache", "Brave"},
      {"browser-caches", "~/.config/BraveSoftware/Brave-Browser/*/DawnWebGPUCache", "contents",
       "Brave cache", "Brave"},
      {"browser-caches", "~/.config/BraveSoftware/Brave-Browser/ShaderCache", "contents",
       "Brave cache", "Brave"},
      {"browser-caches", "~/.config/BraveSoftware/Brave-Browser/GrShaderCache", "contents",
       "Brave cache", "Brave"},
      {"browser-caches", "~/.config/BraveSoftware/Brave-Browser/GraphiteDawnCache", "contents",
       "Brave cache", "Brave"},
      {"browser-caches", "~/.config/BraveSoftware/Brave-Browser/component_crx_cache", "contents",
       "Brave cache", "Brave"},
      {"browser-caches", "~/.config/BraveSoftware/Brave-Browser/extensions_crx_cache", "contents",
       "Brave cache", "Brave"},
      {"browser-caches", "~/.config/BraveSoftware/Brave-Browser/Crash Reports/completed",
       "contents", "Brave cache", "Brave"},
      {"browser-caches", "~/.config/BraveSoftware/Brave-Browser/*/Service Worker/CacheStorage",
       "sw", "Brave cache", ""},
      {"browser-caches", "~/.cache/microsoft-edge*/*/Cache", "contents", "Edge cache", "Edge"},
      {"browser-caches", "~/.cache/microsoft-edge*/*/Code Cache", "contents", "Edge cache", "Edge"},
      {"browser-caches", "~/.config/microsoft-edge*/*/GPUCache", "contents", "Edge cache", "Edge"},
      {"browser-caches", "~/.config/microsoft-edge*/*/DawnCache", "contents", "Edge cache", "Edge"},
      {"browser-caches", "~/.config/microsoft-edge*/*/GrShaderCache", "contents", "Edge cache",
       "Edge"},
      {"browser-caches", "~/.config/microsoft-edge*/*/GraphiteDawnCache", "contents", "Edge cache",
       "Edge"},
      {"browser-caches", "~/.config/microsoft-edge*/*/DawnGraphiteCache", "contents", "Edge cache",
       "Edge"},
      {"browser-caches", "~/.config/microsoft-edge*/*/DawnWebGPUCache", "contents", "Edge cache",
       "Edge"},
      {"browser-caches", "~/.config/microsoft-edge*/ShaderCache", "contents", "Edge cache", "Edge"},
      {"browser-caches", "~/.config/microsoft-edge*/GrShaderCache", "contents", "Edge cache",
       "Edge"},
      {"browser-caches", "~/.config/microsoft-edge*/GraphiteDawnCache", "contents", "Edge cache",
       "Edge"},
      {"browser-caches", "~/.config/microsoft-edge*/component_crx_cache", "contents", "Edge cache",
       "Edge"},
      {"browser-caches", "~/.config/microsoft-edge*/extensions_crx_cache", "contents", "Edge cache",
       "Edge"},
      {"browser-caches", "~/.config/microsoft-edge*/Crash Reports/completed", "contents",
       "Edge cache", "Edge"},
      {"browser-caches", "~/.config/microsoft-edge*/*/Service Worker/CacheStorage", "sw",
       "Edge cache", ""},
      {"browser-caches", "~/.cache/vivaldi*/*/Cache", "contents", "Vivaldi cache", "Vivaldi"},
      {"browser-caches", "~/.cache/vivaldi*/*/Code Cache", "contents", "Vivaldi cache", "Vivaldi"},
      {"browser-caches", "~/.config/vivaldi*/*/GPUCache", "contents", "Vivaldi cache", "Vivaldi"},
      {"browser-caches", "~/.config/vivaldi*/*/DawnCache", "contents", "Vivaldi cache", "Vivaldi"},
      {"browser-caches", "~/.config/vivaldi*/*/GrShaderCache", "contents", "Vivaldi cache",
       "Vivaldi"},
      {"browser-caches", "~/.config/vivaldi*/*/GraphiteDawnCache", "contents", "Vivaldi cache",
       "Vivaldi"},
      {"browser-caches", "~/.config/vivaldi*/*/DawnGraphiteCache", "contents", "Vivaldi cache",
       "Vivaldi"},
      {"browser-caches", "~/.config/vivaldi*/*/DawnWebGPUCache", "contents", "Vivaldi cache",
       "Vivaldi"},
      {"browser-caches", "~/.config/vivaldi*/ShaderCache", "contents", "Vivaldi cache", "Vivaldi"},
      {"browser-caches", "~/.config/vivaldi*/GrShaderCache", "contents", "Vivaldi cache",
       "Vivaldi"},
      {"browser-caches", "~/.config/vivaldi*/GraphiteDawnCache", "contents", "Vivaldi cache",
       "Vivaldi"},
      {"browser-caches", "~/.config/vivaldi*/component_crx_cache", "contents", "Vivaldi cache",
       "Vivaldi"},
      {"browser-caches", "~/.config/vivaldi*/extensions_crx_cache", "contents", "Vivaldi cache",
       "Vivaldi"},
      {"browser-caches", "~/.config/vivaldi*/Crash Reports/completed", "contents", "Vivaldi cache",
       "Vivaldi"},
      {"browser-caches", "~/.config/vivaldi*/*/Service Worker/CacheStorage", "sw", "Vivaldi cache",
       ""},
      {"browser-caches", "~/.cache/opera*/Cache", "contents", "Opera cache", "Opera"},
      {"browser-caches", "~/.cache/opera*/Code Cache", "contents", "Opera cache", "Opera"},
      {"browser-caches", "~/.config/opera*/GPUCache", "contents", "Opera cache", "Opera"},
      {"browser-caches", "~/.config/opera*/DawnCache", "contents", "Opera cache", "Opera"},
      {"browser-caches", "~/.config/opera*/GrShaderCache", "contents", "Opera cache", "Opera"},
      {"browser-caches", "~/.config/opera*/GraphiteDawnCache", "contents", "Opera cache", "Opera"},
      {"browser-caches", "~/.config/opera*/DawnGraphiteCache", "contents", "Opera cache", "Opera"},
      {"browser-caches", "~/.config/opera*/DawnWebGPUCache", "contents", "Opera cache", "Opera"},
      {"browser-caches", "~/.config/opera*/ShaderCache", "contents", "Opera cache", "Opera"},
      {"browser-caches", "~/.config/opera*/GrShaderCache", "contents", "Opera cache", "Opera"},
      {"browser-caches", "~/.config/opera*/GraphiteDawnCache", "contents", "Opera cache", "Opera"},
      {"browser-caches", "~/.config/opera*/component_crx_cache", "contents", "Opera cache",
       "Opera"},
      {"browser-caches", "~/.config/opera*/extensions_crx_cache", "contents", "Opera cache",
       "Opera"},
      {"browser-caches", "~/.config/opera*/Crash Reports/completed", "contents", "Opera cache",
       "Opera"},
      {"browser-caches", "~/.config/opera*/Service Worker/CacheStorage", "sw", "Opera cache", ""},
      {"browser-caches", "~/.cache/mozilla/firefox/*/cache2", "contents", "Firefox cache",
       "Firefox"},
      {"app-deep-caches", "~/.config",
       "electron(BraveSoftware,chromium,google-chrome*,microsoft-edge*,opera*,vivaldi*)", "", ""},
      {"app-deep-caches", "~/.var/app/*/config",
       "electron(BraveSoftware,chromium,google-chrome*,microsoft-edge*,opera*,vivaldi*)", "", ""},
      {"app-deep-caches", "~/snap/*/*/.config",
       "electron(BraveSoftware,chromium,google-chrome*,microsoft-edge*,opera*,vivaldi*)", "", ""},
      {"app-deep-caches", "~/.config/Code/CachedExtensions", "contents", "VS Code cache", ""},
      {"app-deep-caches", "~/.config/Code/CachedExtensionVSIXs", "contents", "VS Code cache", ""},
      {"app-deep-caches", "~/.config/Code/logs", "contents", "VS Code cache", ""},
      {"app-deep-caches", "~/.config/Code/WebStorage/*/CacheStorage", "contents", "VS Code cache",
       ""},
      {"app-deep-caches", "~/.config/VSCodium/CachedExtensions", "contents", "VSCodium cache", ""},
      {"app-deep-caches", "~/.config/VSCodium/CachedExtensionVSIXs", "contents", "VSCodium cache",
       ""},
      {"app-deep-caches", "~/.config/VSCodium/logs", "contents", "VSCodium cache", ""},
      {"app-deep-caches", "~/.config/VSCodium/WebStorage/*/CacheStorage", "contents",
       "VSCodium cache", ""},
      {"thumbnail-cache", "~/.cache/thumbnails", "contents", "Thumbnails", ""},
      {"thumbnail-cache", "~/.thumbnails", "contents", "Thumbnails", ""},
      {"flatpak-app-caches", "~/.var/app/*/cache", "contents", "{1}", "Flatpak {1}"},
      {"snap-app-caches", "~/snap/*/*/.cache", "contents", "{1}", "Snap {1}"},
      {"game-shader-caches", "~/.local/share/Steam/steamapps/shadercache", "contents",
       "Steam shader cache", ""},
      {"game-shader-caches", "~/.steam/debian-installation/steamapps/shadercache", "contents",
       "Steam shader cache", ""},
      {"game-shader-caches",
       "~/.var/app/com.valvesoftware.Steam/.local/share/Steam/steamapps/shadercache", "contents",
       "Steam shader cache", ""},
      {"game-shader-caches", "~/.var/app/com.valvesoftware.Steam/data/Steam/steamapps/shadercache",
       "contents", "Steam shader cache", ""},
  };
  return rows;
}

const std::vector<ExpectedTarget>& designTargets();

// Every target in catalog order: each rule's rows, then its Linux rows.
const std::vector<ExpectedTarget>& expectedTargets() {
  static const std::vector<ExpectedTarget> rows = [] {
    std::vector<ExpectedTarget> all;
    for (const ExpectedRule& rule : expectedRules()) {
      for (const auto* list : {&designTargets(), &expectedLinuxTargets()}) {
        for (const ExpectedTarget& target : *list) {
          if (std::string(target.rule) == rule.id) all.push_back(target);
        }
      }
    }
    return all;
  }();
  return rows;
}

const std::vector<ExpectedTarget>& designTargets() {
  static const std::vector<ExpectedTarget> rows = {
      {"user-caches", "~/Library/Caches", "topLevel", "", ""},
      {"user-logs", "~/Library/Logs", "oldFiles(7)", "", ""},
      {"xcode-derived-data", "~/Library/Developer/Xcode/DerivedData", "topLevel", "", ""},
      {"downloaded-installers", "~/Downloads", "extensions(deb,dmg,iso,mpkg,pkg,rpm,xip)", "", ""},
      {"dev-tool-caches", "~/.npm/_cacache", "contents", "npm cache", ""},
      {"dev-tool-caches", "~/.npm/_npx", "contents", "npm cache", ""},
      {"dev-tool-caches", "~/.npm/_logs", "contents", "npm cache", ""},
      {"dev-tool-caches", "~/.npm/_prebuilds", "contents", "npm cache", ""},
      {"dev-tool-caches", "~/.yarn/cache", "contents", "Yarn cache", ""},
      {"dev-tool-caches", "~/.bun/install/cache", "contents", "Bun cache", ""},
      {"dev-tool-caches", "~/.cache",
       "topLevel(BraveSoftware,chromium,google-chrome*,huggingface,lm-studio,microsoft-edge*,"
       "mozilla,opera*,thumbnails,vivaldi*)",
       "", ""},
      {"dev-tool-caches", "~/.gradle/caches", "contents", "Gradle build cache", ""},
      {"dev-tool-caches", "~/.m2/repository", "contents", "Maven local repository", ""},
      {"dev-tool-caches", "~/.cargo/registry/cache", "contents", "Cargo cache", ""},
      {"dev-tool-caches", "~/.cargo/git", "contents", "Cargo cache", ""},
      {"dev-tool-caches", "~/.rustup/downloads", "contents", "Rust toolchain downloads", ""},
      {"dev-tool-caches", "~/.pyenv/cache", "contents", "pyenv download cache", ""},
      {"dev-tool-caches", "~/.rbenv/cache", "contents", "rbenv download cache", ""},
      {"dev-tool-caches", "~/.bundle/cache", "contents", "Bundler cache", ""},
      {"dev-tool-caches", "~/.cpan/build", "contents", "CPAN cache", ""},
      {"dev-tool-caches", "~/.cpan/sources", "contents", "CPAN cache", ""},
      {"dev-tool-caches", "~/.composer/cache", "contents", "Composer cache", ""},
      {"dev-tool-caches", "~/.ivy2/cache", "contents", "Ivy cache", ""},
      {"dev-tool-caches", "~/.sbt/boot", "contents", "SBT cache", ""},
      {"dev-tool-caches", "~/.sbt/launchers", "contents", "SBT cache", ""},
      {"dev-tool-caches", "~/.node-gyp", "contents", "node-gyp headers", ""},
      {"dev-tool-caches", "~/.turbo/cache", "contents", "Turborepo cache", ""},
      {"dev-tool-caches", "~/.parcel-cache", "contents", "Parcel cache", ""},
      {"dev-tool-caches", "~/.docker/buildx/cache", "contents", "Docker buildx cache", ""},
      {"dev-tool-caches", "~/.kube/cache", "contents", "kubectl cache", ""},
      {"dev-tool-caches", "~/.aws/cli/cache", "contents", "AWS CLI cache", ""},
      {"dev-tool-caches", "~/.config/gcloud/logs", "contents", "gcloud logs", ""},
      {"dev-tool-caches", "~/.azure/logs", "contents", "Azure CLI logs", ""},
      {"dev-tool-caches", "~/.android/build-cache", "contents", "Android build cache", ""},
      {"dev-tool-caches", "~/.android/cache", "contents", "Android build cache", ""},
      {"dev-tool-caches", "~/.expo/expo-go", "contents", "Expo cache", ""},
      {"dev-tool-caches", "~/.expo/android-apk-cache", "contents", "Expo cache", ""},
      {"dev-tool-caches", "~/.expo/ios-simulator-app-cache", "contents", "Expo cache", ""},
      {"dev-tool-caches", "~/.expo/native-modules-cache", "contents", "Expo cache", ""},
      {"dev-tool-caches", "~/.expo/schema-cache", "contents", "Expo cache", ""},
      {"dev-tool-caches", "~/.expo/template-cache", "contents", "Expo cache", ""},
      {"dev-tool-caches", "~/.expo/versions-cache", "contents", "Expo cache", ""},
      {"xcode-device-support", "~/Library/Developer/Xcode/iOS DeviceSupport", "keepNewest(2)",
       "iOS DeviceSupport", ""},
      {"xcode-device-support", "~/Library/Developer/Xcode/watchOS DeviceSupport", "keepNewest(2)",
       "watchOS DeviceSupport", ""},
      {"xcode-device-support", "~/Library/Developer/Xcode/tvOS DeviceSupport", "keepNewest(2)",
       "tvOS DeviceSupport", ""},
      {"xcode-simulators", "~/Library/Developer/CoreSimulator/Caches", "contents",
       "CoreSimulator cache", ""},
      {"xcode-simulators", "~/Library/Developer/CoreSimulator/Devices/*/data/tmp", "contents",
       "Simulator temporary files", ""},
      {"xcode-simulators", "~/Library/Developer/Xcode/Products", "contents", "Xcode Products", ""},
      {"xcode-simulators", "~/Library/Developer/Xcode/iOS Device Logs", "contents",
       "iOS device logs", ""},
      {"xcode-simulators", "~/Library/Developer/Xcode/watchOS Device Logs", "contents",
       "watchOS device logs", ""},
      {"xcode-simulators", "~/Library/Developer/Xcode/UserData/IB Support", "contents",
       "Interface Builder scratch data", ""},
      {"xcode-simulators", "~/Library/Developer/Xcode/DocumentationCache", "contents",
       "Documentation cache", ""},
      {"xcode-simulators", "~/Library/Developer/Xcode/DocumentationIndex", "contents",
       "Documentation index", ""},
      {"xcode-simulators", "~/Library/Developer/XCTestDevices", "contents", "XCTestDevices", ""},
      {"stale-tool-versions", "~/.local/share/claude/versions", "keepNewest(1,~/.local/bin/claude)",
       "Claude Code", ""},
      {"stale-tool-versions", "~/.local/share/cursor-agent/versions",
       "keepNewest(1,~/.local/bin/cursor-agent)", "Cursor Agent", ""},
      {"stale-tool-versions", "~/.copilot/pkg/universal", "keepNewest(1,~/.local/bin/copilot)",
       "GitHub Copilot", ""},
      {"browser-caches", "~/Library/Application Support/Google/Chrome/*/Application Cache",
       "contents", "Chrome cache", "Chrome"},
      {"browser-caches", "~/Library/Application Support/Google/Chrome/*/Code Cache", "contents",
       "Chrome cache", "Chrome"},
      {"browser-caches", "~/Library/Application Support/Google/Chrome/*/GPUCache", "contents",
       "Chrome cache", "Chrome"},
      {"browser-caches", "~/Library/Application Support/Google/Chrome/*/DawnCache", "contents",
       "Chrome cache", "Chrome"},
      {"browser-caches", "~/Library/Application Support/Google/Chrome/*/GrShaderCache", "contents",
       "Chrome cache", "Chrome"},
      {"browser-caches", "~/Library/Application Support/Google/Chrome/*/GraphiteDawnCache",
       "contents", "Chrome cache", "Chrome"},
      {"browser-caches", "~/Library/Application Support/Google/Chrome/component_crx_cache",
       "contents", "Chrome cache", "Chrome"},
      {"browser-caches", "~/Library/Application Support/Google/Chrome/ShaderCache", "contents",
       "Chrome cache", "Chrome"},
      {"browser-caches", "~/Library/Application Support/Google/Chrome/GrShaderCache", "contents",
       "Chrome cache", "Chrome"},
      {"browser-caches", "~/Library/Application Support/Google/Chrome/GraphiteDawnCache",
       "contents", "Chrome cache", "Chrome"},
      {"browser-caches", "~/Library/Application Support/Google/Chrome/Crashpad/completed",
       "contents", "Chrome cache", "Chrome"},
      {"browser-caches", "~/Library/Application Support/Google/Chrome/OptGuideOnDeviceModel",
       "contents", "Chrome cache", "Chrome"},
      {"browser-caches",
       "~/Library/Application Support/Google/Chrome/OptGuideOnDeviceClassifierModel", "contents",
       "Chrome cache", "Chrome"},
      {"browser-caches",
       "~/Library/Application Support/Google/Chrome/optimization_guide_model_store", "contents",
       "Chrome cache", "Chrome"},
      {"browser-caches",
       "~/Library/Application Support/Google/Chrome/*/Service Worker/CacheStorage", "sw",
       "Chrome cache", ""},
      {"browser-caches", "~/Library/Application Support/Google/GoogleUpdater/crx_cache", "contents",
       "Chrome cache", "Chrome"},
      {"browser-caches", "~/Library/Application Support/Arc/*/Code Cache", "contents", "Arc cache",
       "Arc"},
      {"browser-caches", "~/Library/Application Support/Arc/*/GPUCache", "contents", "Arc cache",
       "Arc"},
      {"browser-caches", "~/Library/Application Support/Arc/*/DawnCache", "contents", "Arc cache",
       "Arc"},
      {"browser-caches", "~/Library/Application Support/Arc/*/GrShaderCache", "contents",
       "Arc cache", "Arc"},
      {"browser-caches", "~/Library/Application Support/Arc/*/GraphiteDawnCache", "contents",
       "Arc cache", "Arc"},
      {"browser-caches", "~/Library/Application Support/Arc/ShaderCache", "contents", "Arc cache",
       "Arc"},
      {"browser-caches", "~/Library/Application Support/Arc/GrShaderCache", "contents", "Arc cache",
       "Arc"},
      {"browser-caches", "~/Library/Application Support/Arc/GraphiteDawnCache", "contents",
       "Arc cache", "Arc"},
      {"browser-caches", "~/Library/Application Support/Arc/Crashpad/completed", "contents",
       "Arc cache", "Arc"},
      {"browser-caches", "~/Library/Application Support/Arc/User Data/component_crx_cache",
       "contents", "Arc cache", "Arc"},
      {"browser-caches", "~/Library/Application Support/Arc/User Data/extensions_crx_cache",
       "contents", "Arc cache", "Arc"},
      {"browser-caches", "~/Library/Application Support/Arc/User Data/*/Code Cache", "contents",
       "Arc cache", "Arc"},
      {"browser-caches", "~/Library/Application Support/Arc/User Data/*/GPUCache", "contents",
       "Arc cache", "Arc"},
      {"browser-caches", "~/Library/Application Support/Arc/User Data/*/DawnCache", "contents",
       "Arc cache", "Arc"},
      {"browser-caches", "~/Library/Application Support/Arc/User Data/*/GrShaderCache", "contents",
       "Arc cache", "Arc"},
      {"browser-caches", "~/Library/Application Support/Arc/User Data/*/GraphiteDawnCache",
       "contents", "Arc cache", "Arc"},
      {"browser-caches", "~/Library/Application Support/Arc/User Data/ShaderCache", "contents",
       "Arc cache", "Arc"},
      {"browser-caches", "~/Library/Application Support/Arc/User Data/GrShaderCache", "contents",
       "Arc cache", "Arc"},
      {"browser-caches", "~/Library/Application Support/Arc/User Data/GraphiteDawnCache",
       "contents", "Arc cache", "Arc"},
      {"browser-caches", "~/Library/Application Support/Arc/User Data/Crashpad/completed",
       "contents", "Arc cache", "Arc"},
      {"browser-caches", "~/Library/Application Support/Arc/*/Service Worker/CacheStorage", "sw",
       "Arc cache", ""},
      {"browser-caches",
       "~/Library/Application Support/Arc/User Data/*/Service Worker/CacheStorage", "sw",
       "Arc cache", ""},
      {"browser-caches",
       "~/Library/Application Support/BraveSoftware/Brave-Browser/*/Application Cache", "contents",
       "Brave cache", "Brave"},
      {"browser-caches", "~/Library/Application Support/BraveSoftware/Brave-Browser/*/Code Cache",
       "contents", "Brave cache", "Brave"},
      {"browser-caches", "~/Library/Application Support/BraveSoftware/Brave-Browser/*/GPUCache",
       "contents", "Brave cache", "Brave"},
      {"browser-caches", "~/Library/Application Support/BraveSoftware/Brave-Browser/*/DawnCache",
       "contents", "Brave cache", "Brave"},
      {"browser-caches",
       "~/Library/Application Support/BraveSoftware/Brave-Browser/*/GrShaderCache", "contents",
       "Brave cache", "Brave"},
      {"browser-caches",
       "~/Library/Application Support/BraveSoftware/Brave-Browser/*/GraphiteDawnCache", "contents",
       "Brave cache", "Brave"},
      {"browser-caches",
       "~/Library/Application Support/BraveSoftware/Brave-Browser/component_crx_cache", "contents",
       "Brave cache", "Brave"},
      {"browser-caches", "~/Library/Application Support/BraveSoftware/Brave-Browser/ShaderCache",
       "contents", "Brave cache", "Brave"},
      {"browser-caches", "~/Library/Application Support/BraveSoftware/Brave-Browser/GrShaderCache",
       "contents", "Brave cache", "Brave"},
      {"browser-caches",
       "~/Library/Application Support/BraveSoftware/Brave-Browser/GraphiteDawnCache", "contents",
       "Brave cache", "Brave"},
      {"browser-caches",
       "~/Library/Application Support/BraveSoftware/Brave-Browser/Crashpad/completed", "contents",
       "Brave cache", "Brave"},
      {"browser-caches",
       "~/Library/Application Support/BraveSoftware/Brave-Browser/*/Service Worker/CacheStorage",
       "sw", "Brave cache", ""},
      {"browser-caches", "~/Library/Application Support/Vivaldi/*/Code Cache", "contents",
       "Vivaldi cache", "Vivaldi"},
      {"browser-caches", "~/Library/Application Support/Vivaldi/*/GPUCache", "contents",
       "Vivaldi cache", "Vivaldi"},
      {"browser-caches", "~/Library/Application Support/Vivaldi/*/DawnCache", "contents",
       "Vivaldi cache", "Vivaldi"},
      {"browser-caches", "~/Library/Application Support/Vivaldi/*/GrShaderCache", "contents",
       "Vivaldi cache", "Vivaldi"},
      {"browser-caches", "~/Library/Application Support/Vivaldi/*/GraphiteDawnCache", "contents",
       "Vivaldi cache", "Vivaldi"},
      {"browser-caches", "~/Library/Application Support/Vivaldi/ShaderCache", "contents",
       "Vivaldi cache", "Vivaldi"},
      {"browser-caches", "~/Library/Application Support/Vivaldi/GrShaderCache", "contents",
       "Vivaldi cache", "Vivaldi"},
      {"browser-caches", "~/Library/Application Support/Vivaldi/GraphiteDawnCache", "contents",
       "Vivaldi cache", "Vivaldi"},
      {"browser-caches", "~/Library/Application Support/Vivaldi/Crashpad/completed", "contents",
       "Vivaldi cache", "Vivaldi"},
      {"browser-caches", "~/Library/Application Support/Vivaldi/*/Service Worker/CacheStorage",
       "sw", "Vivaldi cache", ""},
      {"browser-caches", "~/Library/Application Support/Dia/User Data/GraphiteDawnCache",
       "contents", "Dia cache", "Dia"},
      {"browser-caches", "~/Library/Application Support/Dia/User Data/GPUPersistentCache",
       "contents", "Dia cache", "Dia"},
      {"browser-caches", "~/Library/Application Support/Dia/User Data/component_crx_cache",
       "contents", "Dia cache", "Dia"},
      {"browser-caches", "~/Library/Application Support/Dia/User Data/extensions_crx_cache",
       "contents", "Dia cache", "Dia"},
      {"browser-caches", "~/Library/Application Support/Dia/User Data/*/DawnGraphiteCache",
       "contents", "Dia cache", "Dia"},
      {"browser-caches", "~/Library/Application Support/Dia/User Data/*/DawnWebGPUCache",
       "contents", "Dia cache", "Dia"},
      {"browser-caches", "~/Library/Application Support/Dia/User Data/*/GPUCache", "contents",
       "Dia cache", "Dia"},
      {"browser-caches",
       "~/Library/Application Support/Dia/User Data/*/Service Worker/CacheStorage", "sw",
       "Dia cache", ""},
      {"browser-caches", "~/Library/Application Support/net.imput.helium/*/GPUCache", "contents",
       "Helium cache", "Helium"},
      {"browser-caches", "~/Library/Application Support/net.imput.helium/*/Application Cache",
       "contents", "Helium cache", "Helium"},
      {"browser-caches", "~/Library/Application Support/net.imput.helium/component_crx_cache",
       "contents", "Helium cache", "Helium"},
      {"browser-caches", "~/Library/Application Support/net.imput.helium/extensions_crx_cache",
       "contents", "Helium cache", "Helium"},
      {"browser-caches", "~/Library/Application Support/net.imput.helium/GrShaderCache", "contents",
       "Helium cache", "Helium"},
      {"browser-caches", "~/Library/Application Support/net.imput.helium/GraphiteDawnCache",
       "contents", "Helium cache", "Helium"},
      {"browser-caches", "~/Library/Application Support/net.imput.helium/ShaderCache", "contents",
       "Helium cache", "Helium"},
      {"browser-caches", "~/Library/Application Support/Yandex/YandexBrowser/ShaderCache",
       "contents", "Yandex cache", "Yandex"},
      {"browser-caches", "~/Library/Application Support/Yandex/YandexBrowser/GrShaderCache",
       "contents", "Yandex cache", "Yandex"},
      {"browser-caches", "~/Library/Application Support/Yandex/YandexBrowser/GraphiteDawnCache",
       "contents", "Yandex cache", "Yandex"},
      {"browser-caches", "~/Library/Application Support/Yandex/YandexBrowser/*/GPUCache",
       "contents", "Yandex cache", "Yandex"},
      {"browser-caches", "~/Library/Application Support/QQBrowser3/*/Code Cache", "contents",
       "QQ Browser cache", "QQ"},
      {"browser-caches", "~/Library/Application Support/QQBrowser3/*/GPUCache", "contents",
       "QQ Browser cache", "QQ"},
      {"browser-caches", "~/Library/Application Support/QQBrowser3/ShaderCache", "contents",
       "QQ Browser cache", "QQ"},
      {"browser-caches", "~/Library/Application Support/QQBrowser3/GrShaderCache", "contents",
       "QQ Browser cache", "QQ"},
      {"browser-caches", "~/Library/Application Support/QQBrowser3/GraphiteDawnCache", "contents",
       "QQ Browser cache", "QQ"},
      {"browser-caches", "~/Library/Application Support/QQBrowser3/component_crx_cache", "contents",
       "QQ Browser cache", "QQ"},
      {"browser-caches", "~/Library/Application Support/QQBrowser3/Crashpad/completed", "contents",
       "QQ Browser cache", "QQ"},
      {"browser-caches", "~/Library/Application Support/Firefox/Profiles/*/cache2", "contents",
       "Firefox cache", "Firefox"},
      {"browser-old-versions",
       "/Applications/Google Chrome.app/Contents/Frameworks/Google Chrome "
       "Framework.framework/Versions",
       "activeAndNewer(Current)", "", "Chrome"},
      {"browser-old-versions",
       "~/Applications/Google Chrome.app/Contents/Frameworks/Google Chrome "
       "Framework.framework/Versions",
       "activeAndNewer(Current)", "", "Chrome"},
      {"browser-old-versions",
       "/Applications/Microsoft Edge.app/Contents/Frameworks/Microsoft Edge "
       "Framework.framework/Versions",
       "activeAndNewer(Current)", "", "Edge"},
      {"browser-old-versions",
       "~/Applications/Microsoft Edge.app/Contents/Frameworks/Microsoft Edge "
       "Framework.framework/Versions",
       "activeAndNewer(Current)", "", "Edge"},
      {"browser-old-versions",
       "/Applications/Brave Browser.app/Contents/Frameworks/Brave Browser "
       "Framework.framework/Versions",
       "activeAndNewer(Current)", "", "Brave"},
      {"browser-old-versions",
       "~/Applications/Brave Browser.app/Contents/Frameworks/Brave Browser "
       "Framework.framework/Versions",
       "activeAndNewer(Current)", "", "Brave"},
      {"browser-old-versions",
       "~/Library/Application Support/Microsoft/EdgeUpdater/apps/msedge-stable", "keepNewest(1)",
       "Edge update leftovers", "Edge"},
      {"app-deep-caches", "~/Library/Application Support",
       "electron(Arc,BraveSoftware,Chromium,Dia,Firefox,Google,Microsoft,QQBrowser3,Vivaldi,Yandex,"
       "net.imput.helium)",
       "", ""},
      {"app-deep-caches", "~/Library/Application Support/Code/CachedExtensions", "contents",
       "VS Code cache", ""},
      {"app-deep-caches", "~/Library/Application Support/Code/CachedExtensionVSIXs", "contents",
       "VS Code cache", ""},
      {"app-deep-caches", "~/Library/Application Support/Code/logs", "contents", "VS Code cache",
       ""},
      {"app-deep-caches", "~/Library/Application Support/Code/WebStorage/*/CacheStorage",
       "contents", "VS Code cache", ""},
      {"app-deep-caches", "~/Library/Application Support/Zed/node/cache", "contents", "Zed cache",
       ""},
      {"app-deep-caches", "~/Library/Application Support/Zed/node/node-v*/cache", "contents",
       "Zed cache", ""},
      {"video-project-caches", "~/Movies/JianyingPro/User Data/Cache/recognize", "contents",
       "CapCut cache", "CapCut"},
      {"video-project-caches", "~/Movies/JianyingPro/User Data/Cache/frameThumbnail", "contents",
       "CapCut cache", "CapCut"},
      {"video-project-caches", "~/Movies/JianyingPro/User Data/Cache/audioWave", "contents",
       "CapCut cache", "CapCut"},
      {"video-project-caches", "~/Movies/JianyingPro/User Data/Cache/AlgorithmCache", "contents",
       "CapCut cache", "CapCut"},
      {"video-project-caches", "~/Movies/JianyingPro/User Data/Cache/ILASDKDB", "contents",
       "CapCut cache", "CapCut"},
      {"video-project-caches", "~/Movies/JianyingPro/User Data/Cache/RemuxCache", "contents",
       "CapCut cache", "CapCut"},
      {"video-project-caches", "~/Movies/JianyingPro/User Data/Cache/prerender", "contents",
       "CapCut cache", "CapCut"},
      {"video-project-caches", "~/Movies/JianyingPro/User Data/Cache/segmentPrerenderCache",
       "contents", "CapCut cache", "CapCut"},
      {"video-project-caches", "~/Movies/JianyingPro/User Data/Cache/MotionBlurCache", "contents",
       "CapCut cache", "CapCut"},
      {"video-project-caches", "~/Movies/JianyingPro/User Data/Cache/ttsTemp", "contents",
       "CapCut cache", "CapCut"},
      {"video-project-caches", "~/Movies/JianyingPro/User Data/Cache/tmp", "contents",
       "CapCut cache", "CapCut"},
      {"video-project-caches", "~/Movies/*.fcpbundle/*/Render Files/High Quality Media", "contents",
       "Final Cut render files", "Final Cut"},
      {"video-project-caches", "~/Movies/*.fcpbundle/*/Transcoded Media/Proxy Media", "contents",
       "Final Cut proxy media", "Final Cut"},
      {"video-project-caches", "~/Movies/CacheClip", "contents", "DaVinci render cache", "Resolve"},
      {"video-project-caches", "~/Library/Application Support/Adobe/Common/Media Cache Files",
       "contents", "Adobe media cache", ""},
      {"video-project-caches", "~/Library/Application Support/Adobe/Common/Media Cache", "contents",
       "Adobe media cache", ""},
      {"report-xcode-archives", "~/Library/Developer/Xcode/Archives", "contents", "Xcode archives",
       ""},
      {"report-ios-backups", "~/Library/Application Support/MobileSync/Backup", "contents",
       "Device backup", ""},
      {"report-mail-data", "~/Library/Mail", "contents", "Mail data", ""},
      {"report-ai-models", "~/.ollama/models", "contents", "Ollama models", ""},
      {"report-ai-models", "~/.lmstudio/models", "contents", "LM Studio models", ""},
      {"report-ai-models", "~/.cache/lm-studio", "contents", "LM Studio legacy cache", ""},
      {"report-ai-models", "~/.cache/huggingface", "contents", "Hugging Face cache", ""},
      {"report-simulator-devices", "~/Library/Developer/CoreSimulator/Devices", "contents",
       "Simulator device", ""},
      {"report-container-vms", "/Applications/Docker.app",
       "presence(/Applications/Docker.app|/Applications/OrbStack.app|~/Applications/Docker.app|~/"
       "Applications/OrbStack.app)",
       "Containers and VMs", ""},
      {"orphaned-app-data", "~/Library/Caches", "orphan(caches)", "", ""},
      {"orphaned-app-data", "~/Library/Logs", "orphan(logs)", "", ""},
      {"orphaned-app-data", "~/Library/Saved Application State", "orphan(savedState)", "", ""},
  };
  return rows;
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
  for (const ExpectedGuard& expected : expectedGuards()) {
    if (guard == RuleGuard::processNotRunning(expected.names, expected.pathFragments)) {
      return expected.label;
    }
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
  ASSERT_EQ(rules.size(), 23u);
  ASSERT_EQ(expectedRules().size(), 23u);
  for (size_t i = 0; i < rules.size(); ++i) {
    const CleanupRule& rule = rules[i];
    const ExpectedRule& expected = expectedRules()[i];
    SCOPED_TRACE(expected.id);
    EXPECT_EQ(rule.id, expected.id);
    EXPECT_EQ(nameOf(rule.kind), expected.kind);
    EXPECT_EQ(nameOf(rule.risk), expected.risk);
    EXPECT_EQ(rule.targets.size(), expected.targetCount);
    EXPECT_EQ(nameOf(rule.action), expected.action);
    EXPECT_EQ(labelsOf(rule.guards), expected.ruleGuard);
    EXPECT_EQ(rule.title, expected.title);
    EXPECT_EQ(rule.subtitle, expected.subtitle);
    EXPECT_EQ(rule.explanation, expected.explanation);
    // Guidance is present exactly on the report-only rules.
    if (rule.action == RuleAction::reportOnly) {
      ASSERT_TRUE(rule.guidance.has_value());
      EXPECT_EQ(*rule.guidance, expected.guidance);
    } else {
      EXPECT_FALSE(rule.guidance.has_value());
      EXPECT_STREQ(expected.guidance, "");
    }
  }
}

TEST(CleanupRuleCatalog, GuardsNameTheirProcesses) {
  const auto& g = CleanupRuleCatalog::guards();
  const std::vector<const RuleGuard*> inOrder = {
      &g.xcode,  &g.simulator, &g.chrome,  &g.arc,      &g.brave,   &g.vivaldi,
      &g.dia,    &g.helium,    &g.yandex,  &g.qq,       &g.firefox, &g.edge,
      &g.capCut, &g.finalCut,  &g.resolve, &g.chromium, &g.opera,   &g.steam};
  ASSERT_EQ(expectedGuards().size(), inOrder.size() + 2) << "and the two named by their root";
  for (size_t i = 0; i < inOrder.size(); ++i) {
    SCOPED_TRACE(expectedGuards()[i].label);
    EXPECT_EQ(inOrder[i]->names, expectedGuards()[i].names);
    EXPECT_EQ(inOrder[i]->pathFragments, expectedGuards()[i].pathFragments);
  }
}

TEST(CleanupRuleCatalog, EveryTargetInOrderWithModeTitleAndGuard) {
  std::vector<std::pair<std::string, const RuleTarget*>> actual;
  for (const CleanupRule& rule : CleanupRuleCatalog::rules()) {
    for (const RuleTarget& target : rule.targets)
      actual.emplace_back(rule.id, &target);
  }
  const auto& expected = expectedTargets();
  ASSERT_EQ(actual.size(), expected.size());
  for (size_t i = 0; i < actual.size(); ++i) {
    const RuleTarget& target = *actual[i].second;
    SCOPED_TRACE(std::to_string(i) + ": " + expected[i].path);
    EXPECT_EQ(actual[i].first, expected[i].rule);
    EXPECT_EQ(target.path, expected[i].path);
    EXPECT_EQ(describe(target.mode), expected[i].mode);
    EXPECT_EQ(target.itemTitle.value_or(""), expected[i].itemTitle);
    // An absent title and an empty one are different things; no row has an empty one.
    if (target.itemTitle) {
      EXPECT_FALSE(target.itemTitle->empty());
    }
    EXPECT_EQ(labelsOf(target.guards), expected[i].guard);
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

TEST(CleanupRuleCatalog, InstallersCanBeLeftOutKeepingTheOrder) {
  const auto all = CleanupRuleCatalog::rules(true);
  EXPECT_EQ(all, CleanupRuleCatalog::rules());
  const auto without = CleanupRuleCatalog::rules(false);
  ASSERT_EQ(without.size(), 22u);
  std::vector<std::string> expectedIDs;
  for (const ExpectedRule& rule : expectedRules()) {
    if (std::string(rule.id) != "downloaded-installers") expectedIDs.push_back(rule.id);
  }
  std::vector<std::string> ids;
  for (const CleanupRule& rule : without)
    ids.push_back(rule.id);
  EXPECT_EQ(ids, expectedIDs);
}

TEST(CleanupRuleCatalog, LooksUpRulesAndHoldsTheEssentialIDs) {
  EXPECT_EQ(CleanupRuleCatalog::essentialRuleIDs(),
            (std::set<std::string>{"user-caches", "user-logs", "xcode-derived-data",
                                   "downloaded-installers"}));
  ASSERT_NE(CleanupRuleCatalog::rule("report-mail-data"), nullptr);
  EXPECT_EQ(CleanupRuleCatalog::rule("report-mail-data")->title, "Mail data");
  EXPECT_EQ(CleanupRuleCatalog::rule("no-such-rule"), nullptr);
  // The same object every time: the list is built once.
  EXPECT_EQ(&CleanupRuleCatalog::rules(), &CleanupRuleCatalog::rules());
}

}  // namespace
}  // namespace brisko
