#include "apps/desktop_entry_folders.h"

#include <dirent.h>
#include <sys/stat.h>

#include <algorithm>
#include <memory>
#include <set>

#include "apps/visible_names.h"

namespace brisko {
namespace {

// False when the folder could not be listed.
bool collect(const std::string& folder, const std::string& prefix, bool isUser, int depth,
             std::set<std::string>& ids, std::vector<DesktopEntryFile>& files) {
  auto listed = visibleNames(folder);
  if (!listed) return false;
  std::vector<std::string>& names = *listed;
  std::sort(names.begin(), names.end());
  bool complete = true;
  for (const auto& name : names) {
    const std::string path = folder + "/" + name;
    struct stat info;
    if (::lstat(path.c_str(), &info) != 0) continue;
    if (S_ISDIR(info.st_mode)) {
      if (depth < 8 && !collect(path, prefix + name + "-", isUser, depth + 1, ids, files))
        complete = false;
    } else if (name.size() > 8 && name.compare(name.size() - 8, 8, ".desktop") == 0 &&
               (S_ISREG(info.st_mode) || S_ISLNK(info.st_mode))) {
      const std::string id = prefix + name;
      const bool shadowed = !ids.insert(id).second;
      files.push_back({path, id, isUser, shadowed});
    }
  }
  return complete;
}

bool isDirectory(const std::string& path) {
  struct stat info;
  return ::stat(path.c_str(), &info) == 0 && S_ISDIR(info.st_mode);
}

}  // namespace

std::string desktopIDStem(const std::string& id) {
  return id.size() > 8 && id.compare(id.size() - 8, 8, ".desktop") == 0
             ? id.substr(0, id.size() - 8)
             : id;
}

std::vector<std::string> desktopEntryFolders(const CatalogSettings& settings) {
  std::vector<std::string> folders{settings.dataHome + "/applications"};
  for (const auto& directory : settings.dataDirs)
    folders.push_back(directory + "/applications");
  for (const std::string& exports :
       {settings.flatpakUserDir + "/exports/share", settings.flatpakSystemDir + "/exports/share",
        settings.underRoot("/var/lib/snapd/desktop")}) {
    const std::string folder = exports + "/applications";
    if (std::find(folders.begin(), folders.end(), folder) == folders.end())
      folders.push_back(folder);
  }
  return folders;
}

DesktopEntryFiles findDesktopEntryFiles(const CatalogSettings& settings) {
  DesktopEntryFiles result;
  std::set<std::string> ids;
  std::set<std::string> seen;
  const auto folders = desktopEntryFolders(settings);
  for (size_t i = 0; i < folders.size(); ++i) {
    if (!seen.insert(folders[i]).second || !isDirectory(folders[i])) continue;
    if (!collect(folders[i], "", i == 0, 0, ids, result.files)) result.isComplete = false;
  }
  return result;
}

}  // namespace brisko
