#include "cleanup/plan_candidates.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

#include "base/path_components.h"
#include "base/standardized_path.h"
#include "platform/folder_walk.h"
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
  std::set<std::string> listed;  // nested picked rows may meet the same file twice

  bool full() const { return paths.size() >= limit; }

  std::string idOf(const std::string& path) const {
    return selection.findingID + ":" + standardizedPath(path);
  }
  bool picked(const std::string& path) const {
    return itemIDs == nullptr || itemIDs->contains(idOf(path));
  }
  void add(const std::string& path) {
    if (!full() && listed.insert(standardizedPath(path)).second) paths.push_back(path);
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

// Paths of the picked rows of this finding, standardised (so ".." can't
// climb out of the root) and in ID order without repeats.
std::vector<std::string> pickedPaths(const Listing& listing) {
  std::vector<std::string> paths;
  const std::string prefix = listing.selection.findingID + ":";
  for (const auto& id : *listing.itemIDs) {
    if (id.size() > prefix.size() && id.compare(0, prefix.size(), prefix) == 0) {
      paths.push_back(standardizedPath(id.substr(prefix.size())));
    }
  }
  return paths;
}

Date modificationOf(const struct stat& info) {
  return dateFromFileTime(info.st_mtim.tv_sec, info.st_mtim.tv_nsec);
}

// Old regular files below a folder, never through a link nor into another
// mount, until the listing is full.
class OldFileCollector : public FolderVisitor {
 public:
  OldFileCollector(Listing& listing, Date cutoff, FolderPlacement top)
      : listing_(listing), cutoff_(cutoff), top_(top) {}

  Step visit(int folder, const std::string& folderPath, const std::string& name,
             unsigned char type) override {
    if (type == DT_DIR) return Step::enter;
    if (type != DT_REG && type != DT_UNKNOWN) return Step::next;
    struct stat info;
    if (::fstatat(folder, name.c_str(), &info, AT_SYMLINK_NOFOLLOW) != 0) return Step::next;
    if (S_ISDIR(info.st_mode)) return Step::enter;
    // Strictly older than the cutoff.
    if (S_ISREG(info.st_mode) && modificationOf(info) < cutoff_) {
      listing_.add(folderPath + "/" + name);
    }
    return listing_.full() ? Step::stop : Step::next;
  }

  bool entering(int, const FolderPlacement& placement) override {
    return placement.sameMount(top_);
  }

 private:
  Listing& listing_;
  Date cutoff_;
  FolderPlacement top_;
};

// Old regular files at or below `start`, never descending through a link.
void addOldFiles(Listing& listing, const std::string& start, Date cutoff) {
  struct stat info;
  if (::lstat(start.c_str(), &info) != 0) return;
  if (S_ISREG(info.st_mode)) {
    if (modificationOf(info) < cutoff) listing.add(start);
    return;
  }
  if (!S_ISDIR(info.st_mode)) return;
  Descriptor folder(::open(start.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  const auto placement = folder.valid() ? placementAt(folder.get(), "") : std::nullopt;
  if (!placement) return;
  OldFileCollector collector(listing, cutoff, *placement);
  descendFolders(std::move(folder), start, collector);
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
  Listing listing{selection, itemIDs, limit, {}, {}};
  const std::string& root = selection.root;
  const Mode& mode = selection.mode;
  switch (mode.kind()) {
    case Mode::Case::oldFiles: {
      const Date cutoff = oldFilesCutoff(*mode.as<Mode::OldFiles>(), now);
      if (itemIDs == nullptr) {
        addOldFiles(listing, root, cutoff);
      } else {
        // A picked row is walked only where it really lies below the root:
        // not through "..", not through a link on the way.
        for (const auto& path : pickedPaths(listing)) {
          const bool isRoot = normalizedPolicyPath(path) == normalizedPolicyPath(root);
          if (isRoot || isReachableWithoutLinks(root, path)) addOldFiles(listing, path, cutoff);
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
        if (runtime::isProtectedServiceWorkerFolder(entry.path, domains)) continue;
        listing.add(entry.path);
      }
      break;
    }
    case Mode::Case::electronAppSupportCaches: {
      const auto& excluded = mode.as<Mode::ElectronAppSupportCaches>()->excludedEntries;
      for (const auto& app : children(root, /*skipHidden=*/true)) {
        if (runtime::isExcludedEntry(app.name, excluded) || !app.isDirectory ||
            app.isSymbolicLink) {
          continue;
        }
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
      const auto& excluded = mode.as<Mode::TopLevel>()->excludedEntries;
      for (const auto& entry : children(root, /*skipHidden=*/true)) {
        if (runtime::isExcludedEntry(entry.name, excluded)) continue;
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
