#include "cleanup/plan_candidates.h"

#include <ftw.h>
#include <sys/stat.h>

#include "base/path_components.h"
#include "base/standardized_path.h"
#include "rules/cleanup_rule_runtime.h"
#include "rules/directory_listing.h"
#include "rules/orphan_detection.h"
#include "safety/path_safety_policy.h"

namespace brisko {

namespace {

namespace runtime = CleanupRuleRuntime;
using Mode = RuleTargetMode;

struct Listing {
  const CleanupSelection& selection;
  const std::set<std::string>* itemIDs;
  size_t limit;
  std::vector<std::string> paths;

  bool full() const { return paths.size() >= limit; }

  std::string idOf(const std::string& path) const {
    return selection.findingID + ":" + standardizedPath(path);
  }
  bool picked(const std::string& path) const {
    return itemIDs == nullptr || itemIDs->contains(idOf(path));
  }
  void add(const std::string& path) {
    if (!full()) paths.push_back(path);
  }
  void addPicked(const std::string& path) {
    if (picked(path)) add(path);
  }
};

std::vector<rules_internal::ListedEntry> children(const std::string& folder, bool skipHidden) {
  auto entries = rules_internal::listDirectory(folder, skipHidden);
  return entries ? std::move(*entries) : std::vector<rules_internal::ListedEntry>{};
}

bool isUnderOrAt(const std::string& path, const std::string& root) {
  const std::string normalPath = normalizedPolicyPath(path);
  const std::string normalRoot = normalizedPolicyPath(root);
  return normalPath == normalRoot || (normalPath.size() > normalRoot.size() + 1 &&
                                      normalPath.compare(0, normalRoot.size(), normalRoot) == 0 &&
                                      normalPath[normalRoot.size()] == '/');
}

// Paths of the picked rows of this finding.
std::vector<std::string> pickedPaths(const Listing& listing) {
  std::vector<std::string> paths;
  const std::string prefix = listing.selection.findingID + ":";
  for (const auto& id : *listing.itemIDs) {
    if (id.size() > prefix.size() && id.compare(0, prefix.size(), prefix) == 0) {
      paths.push_back(id.substr(prefix.size()));
    }
  }
  return paths;
}

Date modificationOf(const struct stat& info) {
  return Date{std::chrono::seconds{info.st_mtim.tv_sec} +
              std::chrono::nanoseconds{info.st_mtim.tv_nsec}};
}

// Old regular files at or below `start`, never descending through a link.
thread_local Listing* oldFilesListing = nullptr;
thread_local Date oldFilesCutoff{};

int collectOldFile(const char* path, const struct stat* info, int type, FTW*) {
  // Strictly older than the cutoff.
  if (type == FTW_F && S_ISREG(info->st_mode) && modificationOf(*info) < oldFilesCutoff) {
    oldFilesListing->add(path);
  }
  return oldFilesListing->full() ? 1 : 0;
}

void addOldFiles(Listing& listing, const std::string& start, Date cutoff) {
  struct stat info;
  if (::lstat(start.c_str(), &info) != 0) return;
  if (S_ISREG(info.st_mode)) {
    if (modificationOf(info) < cutoff) listing.add(start);
    return;
  }
  if (!S_ISDIR(info.st_mode)) return;
  oldFilesListing = &listing;
  oldFilesCutoff = cutoff;
  // FTW_PHYS: links are reported as links and never followed.
  ::nftw(start.c_str(), collectOldFile, 32, FTW_PHYS);
  oldFilesListing = nullptr;
}

bool hasPickedRowAtOrUnder(const Listing& listing, const std::string& root) {
  for (const auto& path : pickedPaths(listing)) {
    if (isUnderOrAt(path, root)) return true;
  }
  return false;
}

}  // namespace

std::vector<std::string> planCandidates(const CleanupSelection& selection, const std::string& home,
                                        Date now, size_t limit,
                                        const std::set<std::string>* itemIDs) {
  Listing listing{selection, itemIDs, limit, {}};
  const std::string& root = selection.root;
  const Mode& mode = selection.mode;
  switch (mode.kind()) {
    case Mode::Case::oldFiles: {
      const auto days = std::int64_t{mode.as<Mode::OldFiles>()->days};
      const Date cutoff = now - std::chrono::seconds{days * 24 * 60 * 60};
      if (itemIDs == nullptr) {
        addOldFiles(listing, root, cutoff);
      } else {
        for (const auto& path : pickedPaths(listing)) {
          if (isUnderOrAt(path, root)) addOldFiles(listing, path, cutoff);
        }
      }
      break;
    }
    case Mode::Case::filesWithExtensions: {
      const auto& extensions = mode.as<Mode::FilesWithExtensions>()->extensions;
      // Hidden files are left out, as the scan never showed them.
      for (const auto& entry : children(root, /*skipHidden=*/true)) {
        if (extensions.contains(lowercasedPathExtension(entry.name))) listing.addPicked(entry.path);
      }
      break;
    }
    case Mode::Case::keepNewestVersions: {
      const auto* keep = mode.as<Mode::KeepNewestVersions>();
      const auto versions = runtime::versionsToRemove(root, keep->keep, keep->activePin, home);
      for (const auto& path : versions.value_or(std::vector<std::string>{})) {
        listing.addPicked(path);
      }
      break;
    }
    case Mode::Case::keepActiveAndNewer: {
      const auto versions = runtime::versionsOlderThanActive(
          root, mode.as<Mode::KeepActiveAndNewer>()->currentSymlink);
      for (const auto& path : versions.value_or(std::vector<std::string>{})) {
        listing.addPicked(path);
      }
      break;
    }
    case Mode::Case::serviceWorkerCacheStorage: {
      if (itemIDs != nullptr && !itemIDs->contains(listing.idOf(root))) break;
      const auto& domains = mode.as<Mode::ServiceWorkerCacheStorage>()->protectedDomains;
      for (const auto& entry : children(root, /*skipHidden=*/true)) {
        if (!entry.isDirectory || entry.isSymbolicLink) continue;
        if (runtime::isProtectedDomain(entry.name, domains)) continue;
        listing.add(entry.path);
      }
      break;
    }
    case Mode::Case::electronAppSupportCaches: {
      const auto& excluded = mode.as<Mode::ElectronAppSupportCaches>()->excludedEntries;
      for (const auto& app : children(root, /*skipHidden=*/true)) {
        if (excluded.contains(app.name) || !app.isDirectory || app.isSymbolicLink) continue;
        // The scan shows one row per application: picking it picks its caches.
        const bool appPicked = listing.picked(app.path);
        for (const auto& cache : runtime::electronCacheFolders(app.path)) {
          if (appPicked || listing.picked(cache)) listing.add(cache);
        }
      }
      break;
    }
    case Mode::Case::orphanedBundles: {
      const OrphanResource resource = mode.as<Mode::OrphanedBundles>()->resource;
      for (const auto& entry : children(root, /*skipHidden=*/false)) {
        if (OrphanDetection::bundleID(entry.name, resource)) listing.addPicked(entry.path);
      }
      break;
    }
    case Mode::Case::topLevel: {
      for (const auto& entry : children(root, /*skipHidden=*/true)) {
        if (entry.name == "fnm_multishells" && entry.isDirectory) {
          // The scan shows the folder as one row; picking it picks its stale links.
          const bool folderPicked = listing.picked(entry.path);
          for (const auto& link : staleShellLinks(entry.path)) {
            if (folderPicked || listing.picked(link)) listing.add(link);
          }
        } else {
          listing.addPicked(entry.path);
        }
      }
      break;
    }
    case Mode::Case::contents:
    case Mode::Case::appBundlePresence: {
      if (itemIDs != nullptr && !hasPickedRowAtOrUnder(listing, root)) break;
      for (const auto& entry : children(root, /*skipHidden=*/false))
        listing.add(entry.path);
      break;
    }
  }
  return listing.paths;
}

}  // namespace brisko
