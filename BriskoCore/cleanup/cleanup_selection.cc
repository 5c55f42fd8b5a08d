#include "cleanup/cleanup_selection.h"

#include <signal.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>

#include "base/path_components.h"
#include "base/standardized_path.h"
#include "rules/cleanup_rule_catalog.h"
#include "rules/cleanup_rule_runtime.h"
#include "rules/directory_listing.h"
#include "rules/orphan_detection.h"
#include "safety/path_safety_policy.h"

namespace brisko {

namespace {

namespace runtime = CleanupRuleRuntime;

bool isUnder(const std::string& path, const std::string& root) {
  const std::string normalRoot = normalizedPolicyPath(root);
  const std::string normalPath = normalizedPolicyPath(path);
  const std::string prefix = normalRoot == "/" ? "/" : normalRoot + "/";
  return normalPath.size() > prefix.size() && normalPath.compare(0, prefix.size(), prefix) == 0;
}

bool isSymbolicLink(const std::string& path) {
  struct stat info;
  return ::lstat(path.c_str(), &info) == 0 && S_ISLNK(info.st_mode);
}

bool isHidden(const std::string& path) {
  return lastPathComponent(path).starts_with('.');
}

bool isVisibleDirectChild(const std::string& path, const std::string& root) {
  return runtime::isDirectChild(path, root) && !isHidden(path);
}

Date modificationOf(const struct stat& info) {
  return dateFromFileTime(info.st_mtim.tv_sec, info.st_mtim.tv_nsec);
}

// An old regular file of the selection: the root itself when it is one, or a
// file below the root reached without passing a link.
bool isOldFileOf(const std::string& path, const std::string& root, Date cutoff) {
  struct stat info;
  if (::lstat(path.c_str(), &info) != 0 || !S_ISREG(info.st_mode)) return false;
  if (modificationOf(info) >= cutoff) return false;
  if (normalizedPolicyPath(path) == normalizedPolicyPath(root)) return true;
  return isUnder(path, root) && isReachableWithoutLinks(root, path);
}

CandidateMode candidateModeOf(const RuleTargetMode& mode) {
  if (mode.kind() == RuleTargetMode::Case::appBundlePresence) return RuleTargetMode::contents();
  return mode;
}

// An application support folder's cache folder: <root>/<app>/<cache name>,
// where the app folder isn't excluded and the cache folder is one that the
// chromium-style detection offers for that app today.
bool isElectronCacheCandidate(const std::string& root, const std::string& path,
                              const RuleTargetMode::ElectronAppSupportCaches& mode) {
  if (!isUnder(path, root)) return false;
  const std::string relative =
      normalizedPolicyPath(path).substr(normalizedPolicyPath(root).size() + 1);
  const auto slash = relative.find('/');
  if (slash == std::string::npos) return false;
  const std::string app = relative.substr(0, slash);
  if (app.empty() || app.front() == '.' || runtime::isExcludedEntry(app, mode.excludedEntries)) {
    return false;
  }
  const std::string appFolder = normalizedPolicyPath(root) + "/" + app;
  if (isSymbolicLink(appFolder)) return false;
  const auto caches = runtime::electronCacheFolders(appFolder);
  const std::string normalPath = normalizedPolicyPath(path);
  return std::any_of(caches.begin(), caches.end(), [&](const std::string& cache) {
    return normalizedPolicyPath(cache) == normalPath;
  });
}

}  // namespace

std::vector<CleanupSelection> buildCleanupSelections(const std::string& home) {
  std::vector<CleanupSelection> selections;
  for (const CleanupRule& rule : CleanupRuleCatalog::rules()) {
    if (rule.action != RuleAction::cleanup) continue;
    for (const RuleTarget& target : rule.targets) {
      if (target.mode.kind() == RuleTargetMode::Case::appBundlePresence) continue;
      std::vector<std::string> roots = runtime::expandedRoots(target, home);
      // A fixed location that is gone still gets its "no longer exists" skip;
      // a pattern that matches nothing offers nothing.
      if (roots.empty() && target.path.find('*') == std::string::npos) {
        roots.push_back(runtime::expandedPath(target.path, home));
      }
      for (const auto& root : roots) {
        const RuleTarget rooted = runtime::targetForRoot(target, root, home);
        selections.push_back({rule.id, rule.title, standardizedPath(root),
                              candidateModeOf(target.mode), rooted.itemTitle,
                              rule.effectiveGuards(rooted)});
      }
    }
  }
  return selections;
}

bool isStaleShellLink(const std::string& path) {
  if (lastPathComponent(parentPath(path)) != "fnm_multishells") return false;
  if (!isSymbolicLink(path)) return false;
  const std::string name = lastPathComponent(path);
  const auto underscore = name.find_last_of('_');
  if (underscore == std::string::npos) return false;
  const std::string digits = name.substr(underscore + 1);
  if (digits.empty() || digits.size() > 9 ||
      digits.find_first_not_of("0123456789") != std::string::npos) {
    return false;
  }
  const long pid = std::stol(digits);
  // 0 would address our own process group: never a shell of its own.
  if (pid <= 0) return false;
  if (::kill(static_cast<pid_t>(pid), 0) == 0 || errno == EPERM) return false;
  return errno == ESRCH;
}

std::vector<std::string> staleShellLinks(const std::string& multishellsFolder) {
  std::vector<std::string> links;
  const auto entries = rules_internal::listDirectory(multishellsFolder, /*skipHidden=*/false);
  if (!entries) return links;
  for (const auto& entry : *entries) {
    if (entry.isSymbolicLink && isStaleShellLink(entry.path)) links.push_back(entry.path);
  }
  return links;
}

Date oldFilesCutoff(const RuleTargetMode::OldFiles& mode, Date now) {
  return now - std::chrono::seconds{std::int64_t{mode.days} * 24 * 60 * 60};
}

bool isReachableWithoutLinks(const std::string& root, const std::string& path) {
  if (!isUnder(path, root)) return false;
  const std::string normalRoot = normalizedPolicyPath(root);
  const std::string normalPath = normalizedPolicyPath(path);
  size_t at = normalRoot == "/" ? 0 : normalRoot.size();
  while (at < normalPath.size()) {
    const size_t next = normalPath.find('/', at + 1);
    const std::string prefix = normalPath.substr(0, next);
    if (isSymbolicLink(prefix)) return false;
    if (next == std::string::npos) break;
    at = next;
  }
  return true;
}

namespace {

// True when nothing stands at `path` any more (or a folder above it went).
bool hasVanished(const std::string& path) {
  struct stat info;
  return ::lstat(path.c_str(), &info) != 0 && (errno == ENOENT || errno == ENOTDIR);
}

// Whether `path` lies where the selection offers things, judged from the
// text alone; the listing's own tests, which need the thing to be there, come
// on top of it.
bool placeAccepts(const CleanupSelection& selection, const std::string& path) {
  const std::string& root = selection.root;
  switch (selection.mode.kind()) {
    case RuleTargetMode::Case::oldFiles:
      return normalizedPolicyPath(path) == normalizedPolicyPath(root) || isUnder(path, root);
    case RuleTargetMode::Case::serviceWorkerCacheStorage:
    case RuleTargetMode::Case::contents:
    case RuleTargetMode::Case::appBundlePresence:
    case RuleTargetMode::Case::electronAppSupportCaches:
      return isUnder(path, root);
    case RuleTargetMode::Case::filesWithExtensions:
      return runtime::isDirectChild(path, root) &&
             selection.mode.as<RuleTargetMode::FilesWithExtensions>()->extensions.contains(
                 lowercasedPathExtension(path));
    case RuleTargetMode::Case::keepNewestVersions:
    case RuleTargetMode::Case::keepActiveAndNewer:
      return runtime::isDirectChild(path, root);
    case RuleTargetMode::Case::orphanedBundles:
      return runtime::isDirectChild(path, root) &&
             OrphanDetection::bundleID(
                 lastPathComponent(path),
                 selection.mode.as<RuleTargetMode::OrphanedBundles>()->resource)
                 .has_value();
    case RuleTargetMode::Case::topLevel: {
      if (runtime::isDirectChild(path, root)) {
        return !runtime::isExcludedEntry(
            lastPathComponent(path),
            selection.mode.as<RuleTargetMode::TopLevel>()->excludedEntries);
      }
      const std::string parent = parentPath(path);
      return lastPathComponent(parent) == "fnm_multishells" && runtime::isDirectChild(parent, root);
    }
  }
  return false;
}

}  // namespace

bool selectionAccepts(const CleanupSelection& selection, const std::string& rawPath, Date now) {
  const std::string path = standardizedPath(rawPath);
  const std::string& root = selection.root;
  if (!placeAccepts(selection, path)) return false;
  // A planned thing that is gone (the user or its application removed it)
  // can only be judged by its place; the identity check then reports it.
  if (hasVanished(path)) return true;
  switch (selection.mode.kind()) {
    case RuleTargetMode::Case::oldFiles:
      return isOldFileOf(path, root,
                         oldFilesCutoff(*selection.mode.as<RuleTargetMode::OldFiles>(), now));
    case RuleTargetMode::Case::serviceWorkerCacheStorage: {
      struct stat info;
      return isVisibleDirectChild(path, root) && ::lstat(path.c_str(), &info) == 0 &&
             S_ISDIR(info.st_mode) &&
             !runtime::isProtectedServiceWorkerFolder(
                 path,
                 selection.mode.as<RuleTargetMode::ServiceWorkerCacheStorage>()->protectedDomains);
    }
    case RuleTargetMode::Case::contents:
    case RuleTargetMode::Case::appBundlePresence:
      return runtime::isDirectChild(path, root);
    case RuleTargetMode::Case::filesWithExtensions:
      return !isHidden(path);
    case RuleTargetMode::Case::keepNewestVersions:
    case RuleTargetMode::Case::keepActiveAndNewer:
    case RuleTargetMode::Case::orphanedBundles:
      return true;
    case RuleTargetMode::Case::electronAppSupportCaches:
      return isElectronCacheCandidate(
          root, path, *selection.mode.as<RuleTargetMode::ElectronAppSupportCaches>());
    case RuleTargetMode::Case::topLevel: {
      // A direct child, visible and not left to another rule; or a stale
      // link of a fnm_multishells child.
      const auto& excluded = selection.mode.as<RuleTargetMode::TopLevel>()->excludedEntries;
      if (isVisibleDirectChild(path, root)) {
        return !runtime::isExcludedEntry(lastPathComponent(path), excluded);
      }
      return !runtime::isDirectChild(path, root) && isStaleShellLink(path);
    }
  }
  return false;
}

}  // namespace brisko
