#include "apps/bundle_source.h"

#include <dirent.h>
#include <sys/stat.h>

#include <climits>
#include <cstdlib>
#include <map>
#include <memory>
#include <set>

#include "apps/bundle_reader.h"
#include "apps/mounted_volumes.h"
#include "apps/visible_names.h"
#include "base/file_contents.h"
#include "base/path_components.h"
#include "base/unicode_text.h"

namespace brisko {
namespace {

bool isDirectory(const std::string& path) {
  struct stat info;
  return ::stat(path.c_str(), &info) == 0 && S_ISDIR(info.st_mode);
}

std::vector<std::string> volumeRoots(const CatalogSettings& settings) {
  std::vector<std::string> roots;
  const auto mountinfo = readFileContents(settings.mountinfoPath, 16 * 1024 * 1024);
  if (!mountinfo) return roots;
  for (const auto& point : userVolumeMountPoints(*mountinfo, settings.userName)) {
    if (isDirectory(point + "/Applications")) roots.push_back(point + "/Applications");
  }
  return roots;
}

// False when the folder could not be listed.
bool walk(const std::string& folder, int depth, std::vector<std::string>& candidates) {
  auto listed = visibleNames(folder);
  if (!listed) return false;
  const std::vector<std::string>& names = *listed;
  for (const auto& name : names) {
    const std::string path = folder + "/" + name;
    struct stat info;
    if (::lstat(path.c_str(), &info) != 0) continue;
    const bool folderLike = S_ISDIR(info.st_mode);
    if (lowercasedPathExtension(name) == "app" && (folderLike || S_ISLNK(info.st_mode))) {
      candidates.push_back(path);
    } else if (folderLike && depth < 3) {
      walk(path, depth + 1, candidates);  // a sub-folder that can't be read adds nothing
    }
  }
  return true;
}

int rank(const std::string& path, const CatalogSettings& settings) {
  const std::string parent = parentPath(path);
  if (parent == settings.underRoot("/Applications")) return 1;
  if (parent == settings.home + "/Applications") return 2;
  for (const char* base : {"/media/", "/run/media/"}) {
    if (path.rfind(base, 0) == 0) return 4;
  }
  return 3;
}

}  // namespace

std::vector<std::string> BundleSource::searchRoots(const CatalogSettings& settings) {
  std::vector<std::string> roots{
      settings.underRoot("/Applications"), settings.home + "/Applications",
      settings.underRoot("/Library/Input Methods"), settings.home + "/Library/Input Methods"};
  for (auto& volume : volumeRoots(settings))
    roots.push_back(std::move(volume));
  return roots;
}

std::vector<std::string> BundleSource::inventoryRoots(const CatalogSettings& settings) {
  auto roots = searchRoots(settings);
  roots.push_back(settings.underRoot("/System/Applications"));
  roots.push_back(settings.home + "/Library/Application Support/Setapp/Applications");
  roots.push_back(settings.underRoot("/opt/homebrew/Caskroom"));
  roots.push_back(settings.underRoot("/usr/local/Caskroom"));
  return roots;
}

BundleSource::Walk BundleSource::findBundles(const std::vector<std::string>& roots) {
  Walk result;
  std::set<std::string> seen;
  for (const auto& root : roots) {
    if (!seen.insert(root).second || !isDirectory(root)) continue;
    if (!walk(root, 1, result.candidates)) result.isComplete = false;
  }
  return result;
}

SourceListing BundleSource::list(const CatalogSettings& settings) {
  SourceListing listing;
  const Walk found = findBundles(searchRoots(settings));
  listing.isComplete = found.isComplete;

  struct Kept {
    InstalledApplication application;
    int rank = 0;
  };
  std::vector<Kept> kept;
  std::map<std::string, size_t> byKey;
  for (const auto& path : found.candidates) {
    auto application = readBundle(path, settings.root);
    if (!application) continue;
    char resolved[PATH_MAX];
    if (!settings.ownExecutable.empty() && ::realpath(path.c_str(), resolved) != nullptr &&
        settings.ownExecutable.rfind(std::string(resolved) + "/", 0) == 0)
      continue;
    listing.installations.push_back({path, application->bundleID, application->bundleName});
    const std::string key = lowercasedText(application->bundleID.value_or("")) + "|" +
                            lowercasedText(application->bundleName);
    const int candidateRank = rank(path, settings);
    if (auto existing = byKey.find(key); existing != byKey.end()) {
      if (candidateRank < kept[existing->second].rank)
        kept[existing->second] = {std::move(*application), candidateRank};
      continue;
    }
    byKey.emplace(key, kept.size());
    kept.push_back({std::move(*application), candidateRank});
  }
  for (auto& entry : kept)
    listing.applications.push_back(std::move(entry.application));
  return listing;
}

}  // namespace brisko
