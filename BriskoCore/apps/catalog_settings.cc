#include "apps/catalog_settings.h"

#include <pwd.h>
#include <unistd.h>

#include <climits>
#include <cstdlib>

#include "platform/home_directory.h"
#include "space/space_naming.h"

namespace brisko {
namespace {

std::string environment(const char* name) {
  const char* value = std::getenv(name);
  return value != nullptr ? std::string(value) : std::string();
}

std::vector<std::string> absoluteEntries(const std::string& list) {
  std::vector<std::string> entries;
  size_t start = 0;
  while (start <= list.size()) {
    size_t end = list.find(':', start);
    if (end == std::string::npos) end = list.size();
    std::string entry = list.substr(start, end - start);
    while (entry.size() > 1 && entry.back() == '/')
      entry.pop_back();
    if (!entry.empty() && entry.front() == '/') entries.push_back(entry);
    start = end + 1;
  }
  return entries;
}

std::string absoluteOr(const std::string& value, const std::string& fallback) {
  return !value.empty() && value.front() == '/' ? value : fallback;
}

}  // namespace

CatalogSettings CatalogSettings::fromEnvironment(const std::string& home, const std::string& root) {
  CatalogSettings settings;
  settings.root = root.empty() ? "/" : root;
  settings.home = home;
  settings.userName = environment("USER");
  if (settings.userName.empty()) {
    if (const passwd* entry = ::getpwuid(::getuid())) settings.userName = entry->pw_name;
  }
  settings.dataHome = absoluteOr(environment("XDG_DATA_HOME"), home + "/.local/share");
  std::string dataDirs = environment("XDG_DATA_DIRS");
  if (absoluteEntries(dataDirs).empty()) dataDirs = "/usr/local/share:/usr/share";
  for (const auto& directory : absoluteEntries(dataDirs))
    settings.dataDirs.push_back(settings.underRoot(directory));
  settings.flatpakUserDir =
      absoluteOr(environment("FLATPAK_USER_DIR"), settings.dataHome + "/flatpak");
  settings.flatpakSystemDir =
      settings.underRoot(absoluteOr(environment("FLATPAK_SYSTEM_DIR"), "/var/lib/flatpak"));
  for (const auto& directory : absoluteEntries(environment("PATH")))
    settings.programPath.push_back(settings.underRoot(directory));
  settings.namingLanguage = SpaceNaming::namingLanguage();
  const std::string cache = briskoCacheDirectory(home);
  settings.sizeCachePath = cache + "/application-sizes.json";
  settings.packageCachePath = cache + "/system-packages.json";
  char resolved[PATH_MAX];
  if (::realpath("/proc/self/exe", resolved) != nullptr) settings.ownExecutable = resolved;
  return settings;
}

std::string CatalogSettings::underRoot(const std::string& path) const {
  if (root == "/" || isInHome(path)) return path;
  return root + path;
}

std::string CatalogSettings::systemPath(const std::string& path) const {
  if (root == "/" || path.compare(0, root.size() + 1, root + "/") != 0) return path;
  return path.substr(root.size());
}

bool CatalogSettings::isInHome(const std::string& path) const {
  return !home.empty() && home != "/" && (path == home || path.rfind(home + "/", 0) == 0);
}

}  // namespace brisko
