#include "rules/cleanup_rule_catalog.h"

#include <initializer_list>
#include <utility>

#include "rules/linux_rule_targets.h"

// The catalog is data. It is laid out so that each block can be read against
// the rule it builds: rule texts first, then the targets in their order.

// Rules name only the fields they set; the others keep their defaults (no
// subtitle, no rule guard, action cleanup, no guidance).

namespace brisko::CleanupRuleCatalog {

namespace {

using Mode = RuleTargetMode;

const std::string kAppSupport = "~/Library/Application Support/";

RuleTarget target(std::string path, RuleTargetMode mode,
                  std::optional<std::string> itemTitle = std::nullopt,
                  std::vector<RuleGuard> guards = {}) {
  return RuleTarget{std::move(path), std::move(mode), std::move(itemTitle), std::move(guards)};
}

// The rule's own rows followed by those of a Linux home.
std::vector<RuleTarget> withLinuxRows(std::vector<RuleTarget> rows,
                                      std::vector<RuleTarget> linuxRows) {
  for (RuleTarget& row : linuxRows)
    rows.push_back(std::move(row));
  return rows;
}

// Appends one `contents` target for each path, all under one item title.
void addContents(std::vector<RuleTarget>& targets, const std::string& itemTitle,
                 std::initializer_list<std::string> paths, std::vector<RuleGuard> guards = {}) {
  for (const std::string& path : paths) {
    targets.push_back(target(path, Mode::contents(), itemTitle, guards));
  }
}

// ---------------------------------------------------------------------------
// Guards

Guards makeGuards() {
  auto guard = RuleGuard::processNotRunning;
  return Guards{
      .xcode = guard({"Xcode"}, {"/Xcode.app/Contents/MacOS/"}),
      .simulator = guard({"Simulator", "com.apple.CoreSimulator.CoreSimulatorService",
                          "simdiskimaged", "xcodebuild", "xctest", "XCTRunner"},
                         {"/Simulator.app/"}),
      .chrome = guard({"Google Chrome", "Google Chrome Helper", "chrome"},
                      {"/Google Chrome.app/", "/opt/google/chrome"}),
      .arc = guard({"Arc"}, {"/Arc.app/"}),
      .brave = guard({"Brave Browser", "brave"}, {"/Brave Browser.app/", "/opt/brave.com/"}),
      .vivaldi = guard({"Vivaldi", "vivaldi-bin"}, {"/Vivaldi.app/", "/opt/vivaldi"}),
      .dia = guard({"Dia"}, {"/Dia.app/"}),
      .helium = guard({"Helium"}, {"/Helium.app/"}),
      .yandex = guard({"Yandex"}, {"/Yandex.app/"}),
      .qq = guard({"QQBrowser3"}, {}),
      // Linux names processes by their executable's file name (never by
      // the shortened command name, which is cut at 15 bytes).
      .firefox = guard({"firefox", "Firefox", "firefox-esr", "firefox-bin"}, {"/Firefox.app/"}),
      .edge = guard({"Microsoft Edge", "msedge"}, {"/opt/microsoft/msedge"}),
      .capCut = guard({"VideoFusion-macOS"}, {}),
      .finalCut = guard({"Final Cut Pro"}, {"/Final Cut Pro.app/"}),
      .resolve = guard({"Resolve"}, {"/DaVinci Resolve.app/"}),
      .chromium = guard({"Chromium", "chromium"}, {"/usr/lib/chromium/"}),
      .opera = guard({"Opera", "opera"}, {}),
      .steam =
          guard({"Steam", "steam", "steamwebhelper", "fossilize_replay"}, {"/steamapps/common/"}),
  };
}

std::vector<std::string> makeProtectedDomains() {
  return {"capcut.com",        "photopea.com",      "pixlr.com",        "docs.google.com",
          "sheets.google.com", "slides.google.com", "drive.google.com", "mail.google.com",
          "github.com",        "gitlab.com",        "codepen.io",       "codesandbox.io",
          "replit.com",        "stackblitz.com",    "notion.so",        "figma.com",
          "linear.app",        "excalidraw.com"};
}

// ---------------------------------------------------------------------------
// Core list: 8 rules

std::vector<RuleTarget> devToolCacheTargets() {
  std::vector<RuleTarget> t;
  addContents(t, "npm cache",
              {"~/.npm/_cacache", "~/.npm/_npx", "~/.npm/_logs", "~/.npm/_prebuilds"});
  addContents(t, "Yarn cache", {"~/.yarn/cache"});
  addContents(t, "Bun cache", {"~/.bun/install/cache"});
  // The one developer root that is read item by item: a protected or
  // whitelisted sub-folder then drops out on its own.
  t.push_back(target("~/.cache", Mode::topLevel(linux_rows::excludedFromUserCache())));
  addContents(t, "Gradle build cache", {"~/.gradle/caches"});
  addContents(t, "Maven local repository", {"~/.m2/repository"});
  addContents(t, "Cargo cache", {"~/.cargo/registry/cache", "~/.cargo/git"});
  addContents(t, "Rust toolchain downloads", {"~/.rustup/downloads"});
  addContents(t, "pyenv download cache", {"~/.pyenv/cache"});
  addContents(t, "rbenv download cache", {"~/.rbenv/cache"});
  addContents(t, "Bundler cache", {"~/.bundle/cache"});
  addContents(t, "CPAN cache", {"~/.cpan/build", "~/.cpan/sources"});
  addContents(t, "Composer cache", {"~/.composer/cache"});
  addContents(t, "Ivy cache", {"~/.ivy2/cache"});
  addContents(t, "SBT cache", {"~/.sbt/boot", "~/.sbt/launchers"});
  addContents(t, "node-gyp headers", {"~/.node-gyp"});
  addContents(t, "Turborepo cache", {"~/.turbo/cache"});
  addContents(t, "Parcel cache", {"~/.parcel-cache"});
  addContents(t, "Docker buildx cache", {"~/.docker/buildx/cache"});
  addContents(t, "kubectl cache", {"~/.kube/cache"});
  addContents(t, "AWS CLI cache", {"~/.aws/cli/cache"});
  addContents(t, "gcloud logs", {"~/.config/gcloud/logs"});
  addContents(t, "Azure CLI logs", {"~/.azure/logs"});
  addContents(t, "Android build cache", {"~/.android/build-cache", "~/.android/cache"});
  addContents(t, "Expo cache",
              {"~/.expo/expo-go", "~/.expo/android-apk-cache", "~/.expo/ios-simulator-app-cache",
               "~/.expo/native-modules-cache", "~/.expo/schema-cache", "~/.expo/template-cache",
               "~/.expo/versions-cache"});
  return t;
}

std::vector<RuleTarget> deviceSupportTargets() {
  const std::string xcode = "~/Library/Developer/Xcode/";
  std::vector<RuleTarget> t;
  for (const char* name : {"iOS DeviceSupport", "watchOS DeviceSupport", "tvOS DeviceSupport"}) {
    t.push_back(target(xcode + name, Mode::keepNewestVersions(2, std::nullopt), name));
  }
  return t;
}

std::vector<RuleTarget> simulatorTargets() {
  std::vector<RuleTarget> t;
  addContents(t, "CoreSimulator cache", {"~/Library/Developer/CoreSimulator/Caches"});
  addContents(t, "Simulator temporary files",
              {"~/Library/Developer/CoreSimulator/Devices/*/data/tmp"});
  addContents(t, "Xcode Products", {"~/Library/Developer/Xcode/Products"});
  addContents(t, "iOS device logs", {"~/Library/Developer/Xcode/iOS Device Logs"});
  addContents(t, "watchOS device logs", {"~/Library/Developer/Xcode/watchOS Device Logs"});
  addContents(t, "Interface Builder scratch data",
              {"~/Library/Developer/Xcode/UserData/IB Support"});
  addContents(t, "Documentation cache", {"~/Library/Developer/Xcode/DocumentationCache"});
  addContents(t, "Documentation index", {"~/Library/Developer/Xcode/DocumentationIndex"});
  addContents(t, "XCTestDevices", {"~/Library/Developer/XCTestDevices"});
  return t;
}

std::vector<RuleTarget> staleToolVersionTargets() {
  auto keepActive = [](const char* pin) { return Mode::keepNewestVersions(1, std::string(pin)); };
  return {
      target("~/.local/share/claude/versions", keepActive("~/.local/bin/claude"), "Claude Code"),
      target("~/.local/share/cursor-agent/versions", keepActive("~/.local/bin/cursor-agent"),
             "Cursor Agent"),
      target("~/.copilot/pkg/universal", keepActive("~/.local/bin/copilot"), "GitHub Copilot"),
  };
}

std::vector<CleanupRule> coreRules(const Guards& g) {
  return {
      CleanupRule{
          .id = "user-caches",
          .kind = FindingKind::userCache,
          .title = "App caches",
          .risk = RiskLevel::recommended,
          .explanation = "Apps rebuild these on their own.",
          .targets = {target("~/Library/Caches", Mode::topLevel())},
      },
      CleanupRule{
          .id = "user-logs",
          .kind = FindingKind::logs,
          .title = "Old logs",
          .risk = RiskLevel::recommended,
          .explanation = "Logs older than 7 days, recreated when needed.",
          .targets = withLinuxRows({target("~/Library/Logs", Mode::oldFiles(7))},
                                   linux_rows::logTargets()),
      },
      CleanupRule{
          .id = "xcode-derived-data",
          .kind = FindingKind::developer,
          .title = "Xcode caches",
          .risk = RiskLevel::recommended,
          .explanation = "Rebuilt on the next build.",
          .targets = {target("~/Library/Developer/Xcode/DerivedData", Mode::topLevel())},
          .guards = {g.xcode},
      },
      CleanupRule{
          .id = "downloaded-installers",
          .kind = FindingKind::installer,
          .title = "Installers",
          .risk = RiskLevel::review,
          .explanation = "You may still need these; pick each one yourself.",
          .targets = {target("~/Downloads", Mode::filesWithExtensions({"dmg", "pkg", "mpkg", "xip",
                                                                       "iso", "deb", "rpm"}))},
      },
      CleanupRule{
          .id = "dev-tool-caches",
          .kind = FindingKind::developer,
          .title = "Developer caches",
          .risk = RiskLevel::recommended,
          .explanation = "Download caches from npm, cargo and more, restored on use.",
          .targets = devToolCacheTargets(),
      },
      CleanupRule{
          .id = "xcode-device-support",
          .kind = FindingKind::developer,
          .title = "Old device debug files",
          .risk = RiskLevel::recommended,
          .explanation = "Rebuilt when an older device reconnects; the newest 2 are kept.",
          .targets = deviceSupportTargets(),
      },
      CleanupRule{
          .id = "xcode-simulators",
          .kind = FindingKind::developer,
          .title = "Simulator caches",
          .risk = RiskLevel::recommended,
          .explanation = "Rebuilt when a simulator starts; installed apps untouched.",
          .targets = simulatorTargets(),
          .guards = {g.simulator},
      },
      CleanupRule{
          .id = "stale-tool-versions",
          .kind = FindingKind::developer,
          .title = "Old tool versions",
          .risk = RiskLevel::recommended,
          .explanation = "Left behind by updates; the version in use stays.",
          .targets = staleToolVersionTargets(),
      },
  };
}

// ---------------------------------------------------------------------------
// Application list: 4 rules

// A suffix below a browser's root. A "P" component stands for the profile
// level and becomes "*". Service-worker rows carry no guard: their mode only
// ever removes whole per-origin folders.
struct BrowserSuffix {
  const char* path;
  bool serviceWorker = false;
};
constexpr bool SW = true;

struct BrowserRow {
  const char* itemTitle;
  RuleGuard Guards::*guard;
  const char* root;  // below ~/Library/Application Support
  std::vector<BrowserSuffix> suffixes;
  std::vector<const char*> extraRoots = {};  // further roots, same title and guard
};

std::string withProfileLevel(const std::string& suffix) {
  std::string result;
  size_t start = 0;
  while (start <= suffix.size()) {
    size_t end = suffix.find('/', start);
    if (end == std::string::npos) end = suffix.size();
    const std::string component = suffix.substr(start, end - start);
    if (!result.empty()) result += '/';
    result += component == "P" ? "*" : component;
    start = end + 1;
  }
  return result;
}

std::vector<RuleTarget> browserCacheTargets(const Guards& g) {
  const std::vector<BrowserRow> rows = {
      {"Chrome cache",
       &Guards::chrome,
       "Google/Chrome",
       {{"P/Application Cache"},
        {"P/Code Cache"},
        {"P/GPUCache"},
        {"P/DawnCache"},
        {"P/GrShaderCache"},
        {"P/GraphiteDawnCache"},
        {"component_crx_cache"},
        {"ShaderCache"},
        {"GrShaderCache"},
        {"GraphiteDawnCache"},
        {"Crashpad/completed"},
        {"OptGuideOnDeviceModel"},
        {"OptGuideOnDeviceClassifierModel"},
        {"optimization_guide_model_store"},
        {"P/Service Worker/CacheStorage", SW}},
       {"Google/GoogleUpdater/crx_cache"}},
      {"Arc cache",
       &Guards::arc,
       "Arc",
       {{"P/Code Cache"},
        {"P/GPUCache"},
        {"P/DawnCache"},
        {"P/GrShaderCache"},
        {"P/GraphiteDawnCache"},
        {"ShaderCache"},
        {"GrShaderCache"},
        {"GraphiteDawnCache"},
        {"Crashpad/completed"},
        {"User Data/component_crx_cache"},
        {"User Data/extensions_crx_cache"},
        {"User Data/P/Code Cache"},
        {"User Data/P/GPUCache"},
        {"User Data/P/DawnCache"},
        {"User Data/P/GrShaderCache"},
        {"User Data/P/GraphiteDawnCache"},
        {"User Data/ShaderCache"},
        {"User Data/GrShaderCache"},
        {"User Data/GraphiteDawnCache"},
        {"User Data/Crashpad/completed"},
        {"P/Service Worker/CacheStorage", SW},
        {"User Data/P/Service Worker/CacheStorage", SW}}},
      {"Brave cache",
       &Guards::brave,
       "BraveSoftware/Brave-Browser",
       {{"P/Application Cache"},
        {"P/Code Cache"},
        {"P/GPUCache"},
        {"P/DawnCache"},
        {"P/GrShaderCache"},
        {"P/GraphiteDawnCache"},
        {"component_crx_cache"},
        {"ShaderCache"},
        {"GrShaderCache"},
        {"GraphiteDawnCache"},
        {"Crashpad/completed"},
        {"P/Service Worker/CacheStorage", SW}}},
      {"Vivaldi cache",
       &Guards::vivaldi,
       "Vivaldi",
       {{"P/Code Cache"},
        {"P/GPUCache"},
        {"P/DawnCache"},
        {"P/GrShaderCache"},
        {"P/GraphiteDawnCache"},
        {"ShaderCache"},
        {"GrShaderCache"},
        {"GraphiteDawnCache"},
        {"Crashpad/completed"},
        {"P/Service Worker/CacheStorage", SW}}},
      {"Dia cache",
       &Guards::dia,
       "Dia/User Data",
       {{"GraphiteDawnCache"},
        {"GPUPersistentCache"},
        {"component_crx_cache"},
        {"extensions_crx_cache"},
        {"P/DawnGraphiteCache"},
        {"P/DawnWebGPUCache"},
        {"P/GPUCache"},
        {"P/Service Worker/CacheStorage", SW}}},
      {"Helium cache",
       &Guards::helium,
       "net.imput.helium",
       {{"P/GPUCache"},
        {"P/Application Cache"},
        {"component_crx_cache"},
        {"extensions_crx_cache"},
        {"GrShaderCache"},
        {"GraphiteDawnCache"},
        {"ShaderCache"}}},
      {"Yandex cache",
       &Guards::yandex,
       "Yandex/YandexBrowser",
       {{"ShaderCache"}, {"GrShaderCache"}, {"GraphiteDawnCache"}, {"P/GPUCache"}}},
      {"QQ Browser cache",
       &Guards::qq,
       "QQBrowser3",
       {{"P/Code Cache"},
        {"P/GPUCache"},
        {"ShaderCache"},
        {"GrShaderCache"},
        {"GraphiteDawnCache"},
        {"component_crx_cache"},
        {"Crashpad/completed"}}},
      {"Firefox cache", &Guards::firefox, "Firefox/Profiles", {{"P/cache2"}}},
  };

  std::vector<RuleTarget> t;
  for (const BrowserRow& row : rows) {
    const RuleGuard& guard = g.*row.guard;
    for (const BrowserSuffix& suffix : row.suffixes) {
      const std::string path = kAppSupport + row.root + "/" + withProfileLevel(suffix.path);
      if (suffix.serviceWorker) {
        t.push_back(
            target(path, Mode::serviceWorkerCacheStorage(protectedDomains()), row.itemTitle));
      } else {
        t.push_back(target(path, Mode::contents(), row.itemTitle, {guard}));
      }
    }
    for (const char* root : row.extraRoots) {
      t.push_back(target(kAppSupport + root, Mode::contents(), row.itemTitle, {guard}));
    }
  }
  return t;
}

std::vector<RuleTarget> browserOldVersionTargets(const Guards& g) {
  std::vector<RuleTarget> t;
  for (const auto& [name, guard] : std::initializer_list<std::pair<std::string, RuleGuard>>{
           {"Google Chrome", g.chrome}, {"Microsoft Edge", g.edge}, {"Brave Browser", g.brave}}) {
    const std::string versions =
        name + ".app/Contents/Frameworks/" + name + " Framework.framework/Versions";
    for (const std::string applications : {"/Applications/", "~/Applications/"}) {
      t.push_back(target(applications + versions, Mode::keepActiveAndNewer("Current"), std::nullopt,
                         {guard}));
    }
  }
  t.push_back(target(kAppSupport + "Microsoft/EdgeUpdater/apps/msedge-stable",
                     Mode::keepNewestVersions(1, std::nullopt), "Edge update leftovers", {g.edge}));
  return t;
}

std::vector<RuleTarget> appDeepCacheTargets() {
  // Folders that the browser rows already serve.
  const std::set<std::string> browserFolders = {
      "Google",           "Arc",    "BraveSoftware", "Microsoft", "Vivaldi", "Dia",
      "net.imput.helium", "Yandex", "QQBrowser3",    "Firefox",   "Chromium"};
  std::vector<RuleTarget> t;
  t.push_back(
      target("~/Library/Application Support", Mode::electronAppSupportCaches(browserFolders)));
  addContents(t, "VS Code cache",
              {kAppSupport + "Code/CachedExtensions", kAppSupport + "Code/CachedExtensionVSIXs",
               kAppSupport + "Code/logs", kAppSupport + "Code/WebStorage/*/CacheStorage"});
  addContents(t, "Zed cache",
              {kAppSupport + "Zed/node/cache", kAppSupport + "Zed/node/node-v*/cache"});
  return t;
}

std::vector<RuleTarget> videoProjectCacheTargets(const Guards& g) {
  std::vector<RuleTarget> t;
  for (const char* folder :
       {"recognize", "frameThumbnail", "audioWave", "AlgorithmCache", "ILASDKDB", "RemuxCache",
        "prerender", "segmentPrerenderCache", "MotionBlurCache", "ttsTemp", "tmp"}) {
    t.push_back(target(std::string("~/Movies/JianyingPro/User Data/Cache/") + folder,
                       Mode::contents(), "CapCut cache", {g.capCut}));
  }
  addContents(t, "Final Cut render files",
              {"~/Movies/*.fcpbundle/*/Render Files/High Quality Media"}, {g.finalCut});
  addContents(t, "Final Cut proxy media", {"~/Movies/*.fcpbundle/*/Transcoded Media/Proxy Media"},
              {g.finalCut});
  addContents(t, "DaVinci render cache", {"~/Movies/CacheClip"}, {g.resolve});
  addContents(
      t, "Adobe media cache",
      {kAppSupport + "Adobe/Common/Media Cache Files", kAppSupport + "Adobe/Common/Media Cache"});
  return t;
}

std::vector<CleanupRule> applicationRules(const Guards& g) {
  return {
      CleanupRule{
          .id = "browser-caches",
          .kind = FindingKind::userCache,
          .title = "Browser caches",
          .risk = RiskLevel::recommended,
          .explanation = "Cleaned while the browser is closed; history and logins untouched.",
          .targets = withLinuxRows(browserCacheTargets(g), linux_rows::browserCacheTargets(g)),
      },
      CleanupRule{
          .id = "browser-old-versions",
          .kind = FindingKind::userCache,
          .title = "Old browser versions",
          .risk = RiskLevel::recommended,
          .explanation = "Left after updates; the version in use is kept.",
          .targets = browserOldVersionTargets(g),
      },
      CleanupRule{
          .id = "app-deep-caches",
          .kind = FindingKind::userCache,
          .title = "App web caches",
          .risk = RiskLevel::recommended,
          .explanation = "Caches from Slack, Discord and more; accounts untouched.",
          .targets = withLinuxRows(appDeepCacheTargets(), linux_rows::appDeepCacheTargets()),
      },
      CleanupRule{
          .id = "video-project-caches",
          .kind = FindingKind::userCache,
          .title = "Video editing caches",
          .risk = RiskLevel::recommended,
          .explanation = "Render caches from CapCut and Final Cut, rebuilt on demand.",
          .targets = videoProjectCacheTargets(g),
      },
  };
}

// ---------------------------------------------------------------------------
// Report list: 6 rules, shown only

std::vector<CleanupRule> reportRules() {
  return {
      CleanupRule{
          .id = "report-xcode-archives",
          .kind = FindingKind::developer,
          .title = "Xcode archives",
          .subtitle = "App archives you exported",
          .risk = RiskLevel::review,
          .explanation = "Can’t be recovered once deleted; shown only.",
          .targets = {target("~/Library/Developer/Xcode/Archives", Mode::contents(),
                             "Xcode archives")},
          .action = RuleAction::reportOnly,
          .guidance = "Delete them in Xcode’s Organizer",
      },
      CleanupRule{
          .id = "report-ios-backups",
          .kind = FindingKind::developer,
          .title = "Device backups",
          .subtitle = "iPhone and iPad backups on this Mac",
          .risk = RiskLevel::review,
          .explanation = "Usually large; make sure there’s a newer backup first.",
          .targets = {target(kAppSupport + "MobileSync/Backup", Mode::contents(), "Device backup")},
          .action = RuleAction::reportOnly,
          .guidance = "In Finder’s sidebar, pick the device → Manage Backups",
      },
      CleanupRule{
          .id = "report-mail-data",
          .kind = FindingKind::userCache,
          .title = "Mail data",
          .subtitle = "Local data of Mail",
          .risk = RiskLevel::review,
          .explanation = "Managed by macOS; shown only.",
          .targets = {target("~/Library/Mail", Mode::contents(), "Mail data")},
          .action = RuleAction::reportOnly,
          .guidance = "Delete large attachments in Mail",
      },
      CleanupRule{
          .id = "report-ai-models",
          .kind = FindingKind::developer,
          .title = "Local AI models",
          .subtitle = "Models from Ollama, LM Studio and more",
          .risk = RiskLevel::review,
          .explanation = "Large to download again; shown only.",
          .targets =
              {
                  target("~/.ollama/models", Mode::contents(), "Ollama models"),
                  target("~/.lmstudio/models", Mode::contents(), "LM Studio models"),
                  target("~/.cache/lm-studio", Mode::contents(), "LM Studio legacy cache"),
                  target("~/.cache/huggingface", Mode::contents(), "Hugging Face cache"),
              },
          .action = RuleAction::reportOnly,
          .guidance = "Remove them with each tool, such as ollama rm",
      },
      CleanupRule{
          .id = "report-simulator-devices",
          .kind = FindingKind::developer,
          .title = "Simulator devices",
          .subtitle = "All data of each simulator",
          .risk = RiskLevel::review,
          .explanation = "Large; delete them in Xcode.",
          .targets = {target("~/Library/Developer/CoreSimulator/Devices", Mode::contents(),
                             "Simulator device")},
          .action = RuleAction::reportOnly,
          .guidance = "Delete them in Xcode’s Devices and Simulators",
      },
      CleanupRule{
          .id = "report-container-vms",
          .kind = FindingKind::developer,
          .title = "Containers and VMs",
          .subtitle = "Docker or OrbStack is installed",
          .risk = RiskLevel::review,
          .explanation = "Managed by the apps themselves; not cleaned.",
          .targets = {target(
              "/Applications/Docker.app",
              Mode::appBundlePresence({"/Applications/Docker.app", "/Applications/OrbStack.app",
                                       "~/Applications/Docker.app", "~/Applications/OrbStack.app"}),
              "Containers and VMs")},
          .action = RuleAction::reportOnly,
          .guidance = "Clean up inside Docker or OrbStack",
      },
  };
}

// ---------------------------------------------------------------------------
// Orphan list: 1 rule

std::vector<CleanupRule> orphanRules() {
  return {
      CleanupRule{
          .id = "orphaned-app-data",
          .kind = FindingKind::userCache,
          .title = "Uninstall leftovers",
          .risk = RiskLevel::review,
          .explanation = "The app is gone and unused for 30 days; check before selecting.",
          .targets =
              {
                  target("~/Library/Caches", Mode::orphanedBundles(OrphanResource::caches)),
                  target("~/Library/Logs", Mode::orphanedBundles(OrphanResource::logs)),
                  target("~/Library/Saved Application State",
                         Mode::orphanedBundles(OrphanResource::savedState)),
              },
      },
  };
}

std::vector<CleanupRule> makeRules() {
  const Guards& g = guards();
  std::vector<CleanupRule> all;
  for (std::vector<CleanupRule> list :
       {coreRules(g), applicationRules(g), reportRules(), orphanRules(), linux_rows::rules(g)}) {
    for (CleanupRule& rule : list)
      all.push_back(std::move(rule));
  }
  return all;
}

}  // namespace

const std::vector<CleanupRule>& rules() {
  static const std::vector<CleanupRule> all = makeRules();
  return all;
}

std::vector<CleanupRule> rules(bool includeDownloadedInstallers) {
  std::vector<CleanupRule> result;
  for (const CleanupRule& rule : rules()) {
    if (includeDownloadedInstallers || rule.id != "downloaded-installers") result.push_back(rule);
  }
  return result;
}

const CleanupRule* rule(const std::string& id) {
  for (const CleanupRule& candidate : rules()) {
    if (candidate.id == id) return &candidate;
  }
  return nullptr;
}

const Guards& guards() {
  static const Guards all = makeGuards();
  return all;
}

const std::vector<std::string>& protectedDomains() {
  static const std::vector<std::string> all = makeProtectedDomains();
  return all;
}

const std::set<std::string>& essentialRuleIDs() {
  static const std::set<std::string> ids = {"user-caches", "user-logs", "xcode-derived-data",
                                            "downloaded-installers"};
  return ids;
}

}  // namespace brisko::CleanupRuleCatalog
