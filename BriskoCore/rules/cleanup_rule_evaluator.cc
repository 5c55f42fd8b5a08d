#include "rules/cleanup_rule_evaluator.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <map>
#include <set>

#include "base/path_components.h"
#include "base/standardized_path.h"
#include "base/unicode_text.h"
#include "rules/cleanup_rule_catalog.h"
#include "rules/cleanup_rule_runtime.h"
#include "rules/directory_listing.h"
#include "rules/orphan_detection.h"
#include "rules/tree_walker.h"
#include "safety/path_safety_policy.h"

namespace brisko {

namespace {

using Mode = RuleTargetMode;
namespace Runtime = CleanupRuleRuntime;

constexpr std::string_view kOrphanRuleID = "orphaned-app-data";

std::string uppercasedAscii(std::string text) {
  for (char& c : text) {
    if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
  }
  return text;
}

size_t characterCount(std::string_view utf8) {
  return static_cast<size_t>(std::count_if(utf8.begin(), utf8.end(), [](char c) {
    return (static_cast<unsigned char>(c) & 0xC0) != 0x80;
  }));
}

bool isDenial(int error) {
  return error == EACCES || error == EPERM;
}

// Whether a folder that couldn't be listed was refused to us, as opposed to
// gone or broken.
bool listingIsDenied(const std::string& folder) {
  const int descriptor = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (descriptor >= 0) {
    ::close(descriptor);
    return false;
  }
  return isDenial(errno);
}

bool isSymbolicLink(const std::string& path) {
  struct stat status;
  return ::lstat(path.c_str(), &status) == 0 && S_ISLNK(status.st_mode);
}

bool isRegularFileNoFollow(const std::string& path) {
  struct stat status;
  return ::lstat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode);
}

bool isDirectoryNoFollow(const std::string& path) {
  struct stat status;
  return ::lstat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

void addTotals(Measurement& measurement, const TreeTotals& totals) {
  measurement.bytes += totals.bytes;
  measurement.items += totals.items;
  measurement.isPartial = measurement.isPartial || totals.isPartial;
  measurement.skippedProtected += totals.skippedProtected;
  measurement.skippedWhitelisted += totals.skippedWhitelisted;
  measurement.skippedInvalid += totals.skippedInvalid;
  measurement.foldersTooDeep += totals.foldersTooDeep;
}

void addSkips(Measurement& measurement, const TreeTotals& totals) {
  measurement.isPartial = measurement.isPartial || totals.isPartial;
  measurement.skippedProtected += totals.skippedProtected;
  measurement.skippedWhitelisted += totals.skippedWhitelisted;
  measurement.skippedInvalid += totals.skippedInvalid;
  measurement.foldersTooDeep += totals.foldersTooDeep;
}

void addMeasurement(Measurement& total, Measurement&& part) {
  total.bytes += part.bytes;
  total.items += part.items;
  total.isPartial = total.isPartial || part.isPartial;
  total.skippedProtected += part.skippedProtected;
  total.skippedWhitelisted += part.skippedWhitelisted;
  total.skippedInvalid += part.skippedInvalid;
  total.foldersTooDeep += part.foldersTooDeep;
  for (ScanFindingItem& item : part.detailItems)
    total.detailItems.push_back(std::move(item));
  total.permissionDenied = total.permissionDenied || part.permissionDenied;
  total.guardBlocked = total.guardBlocked || part.guardBlocked;
  total.presenceDetected = total.presenceDetected || part.presenceDetected;
  total.inventoryIncomplete = total.inventoryIncomplete || part.inventoryIncomplete;
}

// Adds the verdict's counter; true when the path may be taken.
bool admitted(const PathSafetyPolicy& policy, const std::string& path, Measurement& measurement) {
  switch (policy.evaluate(path, /*resolvingSymlinks=*/false).kind()) {
    case PathSafetyVerdict::Kind::protected_:
      ++measurement.skippedProtected;
      return false;
    case PathSafetyVerdict::Kind::whitelisted:
      ++measurement.skippedWhitelisted;
      return false;
    case PathSafetyVerdict::Kind::invalid:
      ++measurement.skippedInvalid;
      return false;
    case PathSafetyVerdict::Kind::allowed:
      return true;
  }
  return false;
}

// Measures one root of one target in the target's mode.
class RootMeasurer {
 public:
  RootMeasurer(const CleanupRuleEvaluator& evaluator, const CleanupRule& rule,
               const RuleTarget& target, const PathSafetyPolicy& policy)
      : evaluator_(evaluator), rule_(rule), target_(target), policy_(policy) {}

  Measurement measure(const std::string& root) {
    Measurement m;
    // A root that is a link, or is reached through one below the home, is
    // one skip and nothing more: the plan refuses it the same way.
    if (Runtime::isLinkedRoot(root, evaluator_.homeDirectory)) {
      ++m.skippedInvalid;
      return m;
    }
    const Mode& mode = target_.mode;
    switch (mode.kind()) {
      case Mode::Case::topLevel:
        measureTopLevel(root, m, std::nullopt, nullptr,
                        &mode.as<Mode::TopLevel>()->excludedEntries);
        break;
      case Mode::Case::oldFiles: {
        const auto days = mode.as<Mode::OldFiles>()->days;
        const Date limit =
            evaluator_.now + std::chrono::seconds(std::int64_t{days} * -24 * 60 * 60);
        if (isRegularFileNoFollow(root)) {
          measureOldFile(root, limit, m);
        } else {
          measureTopLevel(root, m, limit, nullptr, nullptr);
        }
        break;
      }
      case Mode::Case::filesWithExtensions:
        measureTopLevel(root, m, std::nullopt, &mode.as<Mode::FilesWithExtensions>()->extensions,
                        nullptr);
        break;
      case Mode::Case::contents:
        measureContents(root, m);
        break;
      case Mode::Case::keepNewestVersions: {
        const auto* payload = mode.as<Mode::KeepNewestVersions>();
        if (!rules_internal::exists(root)) break;
        const auto versions = Runtime::versionsToRemove(root, payload->keep, payload->activePin,
                                                        evaluator_.homeDirectory);
        if (versions) {
          measureVersions(*versions, target_.itemTitle.value_or(lastPathComponent(root)), m);
        }
        break;
      }
      case Mode::Case::keepActiveAndNewer: {
        const auto* payload = mode.as<Mode::KeepActiveAndNewer>();
        if (!rules_internal::exists(root)) break;
        const auto versions = Runtime::versionsOlderThanActive(root, payload->currentSymlink);
        if (versions) {
          measureVersions(*versions,
                          target_.itemTitle.value_or(lastPathComponent(parentPath(root))), m);
        }
        break;
      }
      case Mode::Case::serviceWorkerCacheStorage:
        measureServiceWorkers(root, mode.as<Mode::ServiceWorkerCacheStorage>()->protectedDomains,
                              m);
        break;
      case Mode::Case::electronAppSupportCaches:
        measureElectronCaches(root, mode.as<Mode::ElectronAppSupportCaches>()->excludedEntries, m);
        break;
      case Mode::Case::orphanedBundles:
        measureOrphans(root, mode.as<Mode::OrphanedBundles>()->resource, m);
        break;
      case Mode::Case::appBundlePresence:
        break;  // measured per target, not per root
    }
    return m;
  }

 private:
  bool applySafetyPolicy() const { return rule_.action != RuleAction::reportOnly; }

  TreeTotals walk(const std::string& path, std::optional<Date> modifiedBefore = std::nullopt,
                  bool applyPolicy = true) const {
    TreeWalkOptions options;
    options.policy = &policy_;
    options.applySafetyPolicy = applyPolicy;
    options.modifiedBefore = modifiedBefore;
    options.maximumItems = evaluator_.maximumItemsPerLocation;
    options.cancelled = evaluator_.cancelled;
    return walkTree(path, options);
  }

  ScanFindingItem item(const std::string& path, std::string title, std::string subtitle,
                       const TreeTotals& totals) const {
    ScanFindingItem result;
    result.id = rule_.id + ":" + normalizedPolicyPath(path);
    result.title = std::move(title);
    result.subtitle = std::move(subtitle);
    result.path = path;
    result.bytes = totals.bytes;
    result.itemCount = totals.items;
    return result;
  }

  // A listing of the root, hidden entries left out; none after setting the
  // denial flag when it can't be read. A root that is itself a link is not
  // entered: the scan never follows one.
  std::optional<std::vector<rules_internal::ListedEntry>> listRoot(const std::string& root,
                                                                   Measurement& m) const {
    if (isSymbolicLink(root)) {
      ++m.skippedInvalid;
      return std::nullopt;
    }
    int error = 0;
    auto entries = rules_internal::listDirectory(root, /*skipHidden=*/true, &error);
    if (!entries && isDenial(error)) {
      m.permissionDenied = true;
      m.isPartial = true;
    }
    return entries;
  }

  void measureTopLevel(const std::string& root, Measurement& m, std::optional<Date> modifiedBefore,
                       const std::set<std::string>* extensions,
                       const std::set<std::string>* excluded) const {
    const auto entries = listRoot(root, m);
    if (!entries) return;
    for (const auto& entry : *entries) {
      if (evaluator_.isCancelled()) return;
      if (excluded != nullptr && Runtime::isExcludedEntry(entry.name, *excluded)) continue;
      const std::string extension = lowercasedPathExtension(entry.name);
      if (extensions != nullptr && !extensions->contains(extension)) continue;
      const TreeTotals totals = walk(entry.path, modifiedBefore, applySafetyPolicy());
      addTotals(m, totals);
      if (totals.bytes < 1) continue;
      std::string title;
      std::string subtitle;
      if (extensions != nullptr) {
        title = entry.name;
        subtitle = uppercasedAscii(extension);
      } else if (target_.itemTitle) {
        // A Linux log folder's files are named by the folder's title.
        title = *target_.itemTitle;
        subtitle = entry.name;
      } else {
        title = CleanupRuleEvaluator::displayName(entry.name, rule_.kind);
        subtitle = rule_.kind == FindingKind::installer ? uppercasedAscii(extension) : entry.name;
      }
      m.detailItems.push_back(item(entry.path, std::move(title), std::move(subtitle), totals));
    }
  }

  // An old-files root that is itself a file (a log beside others' data) is
  // one item when it is old enough.
  void measureOldFile(const std::string& root, Date modifiedBefore, Measurement& m) const {
    const TreeTotals totals = walk(root, modifiedBefore, applySafetyPolicy());
    addTotals(m, totals);
    if (totals.bytes < 1) return;
    const std::string name = lastPathComponent(root);
    m.detailItems.push_back(item(root, target_.itemTitle.value_or(name), name, totals));
  }

  void measureContents(const std::string& root, Measurement& m) const {
    if (isDirectoryNoFollow(root) && listingIsDenied(root)) {
      m.permissionDenied = true;
      m.isPartial = true;
      return;
    }
    const TreeTotals totals = walk(root, std::nullopt, applySafetyPolicy());
    if (totals.bytes < 1) {
      addSkips(m, totals);
      return;
    }
    addTotals(m, totals);
    const std::string name = lastPathComponent(root);
    m.detailItems.push_back(item(root, target_.itemTitle.value_or(name), name, totals));
  }

  void measureVersions(const std::vector<std::string>& versions, const std::string& title,
                       Measurement& m) const {
    for (const std::string& version : versions) {
      if (evaluator_.isCancelled()) return;
      // Old versions are removed by this rule, never only shown: always judged.
      const TreeTotals totals = walk(version, std::nullopt, /*applyPolicy=*/true);
      addTotals(m, totals);
      if (totals.bytes < 1) continue;
      m.detailItems.push_back(item(version, title, lastPathComponent(version), totals));
    }
  }

  void measureServiceWorkers(const std::string& root, const std::vector<std::string>& domains,
                             Measurement& m) const {
    const auto entries = listRoot(root, m);
    if (!entries) return;
    TreeTotals sum;
    for (const auto& entry : *entries) {
      if (!entry.valuesReadable || entry.isSymbolicLink || !entry.isDirectory) continue;
      if (Runtime::isProtectedServiceWorkerFolder(entry.path, domains)) continue;
      if (!admitted(policy_, entry.path, m)) continue;
      sum += walk(entry.path, std::nullopt, applySafetyPolicy());
    }
    addTotals(m, sum);
    if (sum.bytes < 1) return;
    m.detailItems.push_back(
        item(root, target_.itemTitle.value_or(lastPathComponent(root)), "Offline web cache", sum));
  }

  void measureElectronCaches(const std::string& root, const std::set<std::string>& excluded,
                             Measurement& m) const {
    const auto entries = listRoot(root, m);
    if (!entries) return;
    for (const auto& entry : *entries) {
      if (evaluator_.isCancelled()) return;
      if (Runtime::isExcludedEntry(entry.name, excluded)) continue;
      if (!entry.valuesReadable || entry.isSymbolicLink || !entry.isDirectory) continue;
      if (!admitted(policy_, entry.path, m)) continue;
      TreeTotals sum;
      for (const std::string& folder : Runtime::electronCacheFolders(entry.path)) {
        sum += walk(folder, std::nullopt, applySafetyPolicy());
      }
      addTotals(m, sum);
      if (sum.bytes < 1) continue;
      m.detailItems.push_back(item(entry.path, entry.name, "App web cache", sum));
    }
  }

  void measureOrphans(const std::string& root, OrphanResource resource, Measurement& m) const {
    if (!evaluator_.installedApps || !evaluator_.spotlight) return;
    if (isSymbolicLink(root)) {
      ++m.skippedInvalid;
      return;
    }
    OrphanDetection::RootScan scan =
        OrphanDetection::scanRoot(root, resource, rule_.id, *evaluator_.installedApps,
                                  *evaluator_.spotlight, policy_, evaluator_.now);
    m.bytes += scan.bytes;
    m.items += scan.items;
    m.skippedProtected += scan.skippedProtected;
    m.skippedWhitelisted += scan.skippedWhitelisted;
    m.skippedInvalid += scan.skippedInvalid;
    m.permissionDenied = m.permissionDenied || scan.permissionDenied;
    m.isPartial = m.isPartial || scan.permissionDenied;
    for (ScanFindingItem& item : scan.detailItems)
      m.detailItems.push_back(std::move(item));
  }

  const CleanupRuleEvaluator& evaluator_;
  const CleanupRule& rule_;
  const RuleTarget& target_;
  const PathSafetyPolicy& policy_;
};

// The candidates of a presence target that exist, in their order.
std::vector<std::string> presentPaths(const Mode::AppBundlePresence& presence,
                                      std::string_view home) {
  std::vector<std::string> found;
  for (const std::string& candidate : presence.paths) {
    std::string path = Runtime::expandedPath(candidate, home);
    if (rules_internal::exists(path)) found.push_back(std::move(path));
  }
  return found;
}

Measurement measurePresence(const CleanupRule& rule, const Mode::AppBundlePresence& presence,
                            std::string_view home) {
  Measurement m;
  const std::vector<std::string> found = presentPaths(presence, home);
  if (found.empty()) return m;
  m.presenceDetected = true;
  m.items = static_cast<std::int64_t>(found.size());
  std::string subtitle;
  for (const std::string& path : found) {
    if (!subtitle.empty()) subtitle += ", ";
    subtitle += lastPathComponent(path);
  }
  ScanFindingItem item;
  item.id = rule.id + ":" + normalizedPolicyPath(found.front());
  item.title = rule.targets.front().itemTitle.value_or(rule.title);
  item.subtitle = std::move(subtitle);
  item.path = found.front();
  item.bytes = 0;
  item.itemCount = static_cast<std::int64_t>(found.size());
  m.detailItems.push_back(std::move(item));
  return m;
}

void addWarningOnce(std::vector<std::string>& warnings, std::string warning) {
  if (std::find(warnings.begin(), warnings.end(), warning) == warnings.end()) {
    warnings.push_back(std::move(warning));
  }
}

}  // namespace

CleanupRuleEvaluator::CleanupRuleEvaluator(std::string_view home, Date now_,
                                           RunningProcesses processes_,
                                           std::optional<InstalledAppInventory> installedApps_,
                                           std::shared_ptr<const SpotlightResolver> spotlight_)
    : homeDirectory(standardizedPath(home)),
      now(now_),
      processes(std::move(processes_)),
      installedApps(std::move(installedApps_)),
      spotlight(std::move(spotlight_)) {}

bool CleanupRuleEvaluator::isCancelled() const {
  return cancelled != nullptr && cancelled->load(std::memory_order_relaxed);
}

std::vector<CleanupRule> CleanupRuleEvaluator::rules(bool includeDownloadedInstallers) const {
  return CleanupRuleCatalog::rules(includeDownloadedInstallers);
}

std::vector<TargetWorkItem> CleanupRuleEvaluator::expandedWorkItems(
    bool includeDownloadedInstallers) const {
  std::vector<TargetWorkItem> items;
  for (const CleanupRule& rule : rules(includeDownloadedInstallers)) {
    for (const RuleTarget& target : rule.targets) {
      const std::string expanded = Runtime::expandedPath(target.path, homeDirectory);
      if (target.mode.kind() == Mode::Case::appBundlePresence) {
        items.push_back({rule, target, expanded});
        continue;
      }
      const std::vector<std::string> roots = Runtime::expandedRoots(target, homeDirectory);
      for (const std::string& root : roots)
        items.push_back({rule, target, root});
      if (roots.empty() && target.path.find('*') == std::string::npos) {
        items.push_back({rule, target, expanded});
      }
    }
  }
  return items;
}

Measurement CleanupRuleEvaluator::measure(const CleanupRule& rule,
                                          const RootMeasured& onRootMeasured) const {
  if (rule.id == kOrphanRuleID) {
    if (!installedApps || !spotlight) return {};
    if (!installedApps->isComplete) {
      Measurement incomplete;
      incomplete.inventoryIncomplete = true;
      return incomplete;
    }
  }
  std::optional<PathSafetyPolicy> ownPolicy;
  if (!policy) ownPolicy.emplace(PathSafetyPolicy::loadingWhitelistFor(homeDirectory));
  const PathSafetyPolicy& gate = policy ? *policy : *ownPolicy;
  Measurement total;
  const auto checkGuards = [&](const RuleTarget& target) {
    const std::vector<RuleGuard> effective = rule.effectiveGuards(target);
    if (!Runtime::isGuardHit(effective, processes)) return;
    total.guardBlocked = true;
    total.isPartial = true;
    addWarningOnce(total.guardWarnings,
                   Runtime::guardWarning(Runtime::guardAppName(effective),
                                         target.itemTitle.value_or(rule.title)));
    if (!rule.guards.empty() && Runtime::isGuardHit(rule.guards, processes)) {
      addWarningOnce(total.guardWarnings,
                     Runtime::guardWarning(Runtime::guardAppName(rule.guards), rule.title));
    }
  };
  for (const RuleTarget& target : rule.targets) {
    if (isCancelled()) break;
    // A target named after its roots (a Flatpak app's cache) is guarded per
    // root; any other is judged once, found or not.
    const bool perRoot = Runtime::dependsOnRoot(target);
    if (!perRoot) checkGuards(target);
    if (const auto* presence = target.mode.as<Mode::AppBundlePresence>()) {
      addMeasurement(total, measurePresence(rule, *presence, homeDirectory));
      if (onRootMeasured) onRootMeasured();
      continue;
    }
    for (const std::string& root : Runtime::expandedRoots(target, homeDirectory)) {
      if (isCancelled()) break;
      const RuleTarget rooted = Runtime::targetForRoot(target, root, homeDirectory);
      if (perRoot) checkGuards(rooted);
      RootMeasurer measurer(*this, rule, rooted, gate);
      addMeasurement(total, measurer.measure(root));
      if (onRootMeasured) onRootMeasured();
    }
  }
  sortDetailItems(total.detailItems);
  return total;
}

std::optional<ScanFinding> CleanupRuleEvaluator::makeFinding(const CleanupRule& rule,
                                                             const Measurement& measurement) const {
  ScanFinding finding;
  finding.id = rule.id;
  finding.kind = rule.kind;
  finding.title = rule.title;
  finding.subtitle = rule.subtitle;
  finding.risk = rule.risk;
  finding.explanation = rule.explanation;
  finding.action = rule.action;
  finding.guidance = rule.guidance;

  finding.path = findingPath(rule);

  if (rule.action == RuleAction::reportOnly) {
    if (measurement.permissionDenied) {
      // Shown as a place that couldn't be read.
      finding.bytes = 0;
      finding.itemCount = 0;
      finding.isPartial = true;
      return finding;
    }
    if (measurement.presenceDetected) {
      finding.bytes = 0;
      finding.itemCount = measurement.items;
      finding.isPartial = false;
      finding.items = measurement.detailItems;
      return finding;
    }
  }
  if (measurement.bytes < 1) return std::nullopt;
  finding.bytes = measurement.bytes;
  finding.itemCount = measurement.items;
  finding.isPartial = measurement.isPartial;
  if (!measurement.detailItems.empty()) finding.items = measurement.detailItems;
  return finding;
}

std::string CleanupRuleEvaluator::findingPath(const CleanupRule& rule) const {
  if (rule.targets.empty()) return homeDirectory;
  if (const auto* presence = rule.targets.front().mode.as<Mode::AppBundlePresence>()) {
    const auto found = presentPaths(*presence, homeDirectory);
    if (!found.empty()) return found.front();
  } else {
    for (const RuleTarget& target : rule.targets) {
      const auto roots = Runtime::expandedRoots(target, homeDirectory);
      if (!roots.empty()) return roots.front();
    }
  }
  return Runtime::expandedPath(rule.targets.front().path, homeDirectory);
}

std::string CleanupRuleEvaluator::displayName(std::string_view name, FindingKind kind) {
  if (kind == FindingKind::trash || kind == FindingKind::installer) return std::string(name);
  if (kind == FindingKind::developer) {
    // Strips the hash that Xcode puts behind a derived-data folder's name.
    const size_t dash = name.rfind('-');
    if (dash != std::string_view::npos && characterCount(name.substr(dash + 1)) >= 21) {
      return std::string(name.substr(0, dash));
    }
  }
  static const std::map<std::string, std::string, std::less<>> knownNames = {
      {"com.google.Chrome", "Google Chrome"},
      {"com.tinyspeck.slackmacgap", "Slack"},
      {"notion.id", "Notion"},
      {"com.apple.Safari", "Safari"},
      {"com.microsoft.VSCode", "Visual Studio Code"},
      {"com.spotify.client", "Spotify"}};
  if (const auto known = knownNames.find(name); known != knownNames.end()) return known->second;
  const size_t dot = name.rfind('.');
  if (dot != std::string_view::npos && dot + 1 < name.size()) {
    return std::string(name.substr(dot + 1));
  }
  return std::string(name);
}

void sortDetailItems(std::vector<ScanFindingItem>& items) {
  std::sort(items.begin(), items.end(), [](const ScanFindingItem& a, const ScanFindingItem& b) {
    if (a.bytes != b.bytes) return a.bytes > b.bytes;
    return a.path < b.path;
  });
}

}  // namespace brisko
