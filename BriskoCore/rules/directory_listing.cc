#include "rules/directory_listing.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>

namespace brisko::rules_internal {

namespace {

Date dateOf(const struct timespec& time) {
  return dateFromFileTime(time.tv_sec, time.tv_nsec);
}

}  // namespace

std::optional<std::vector<ListedEntry>> listDirectory(const std::string& folder, bool skipHidden,
                                                      int* error) {
  DIR* directory = ::opendir(folder.c_str());
  if (directory == nullptr) {
    if (error != nullptr) *error = errno;
    return std::nullopt;
  }
  const int descriptor = ::dirfd(directory);
  const std::string prefix = folder == "/" ? "/" : folder + "/";
  std::vector<ListedEntry> entries;
  while (true) {
    errno = 0;
    const dirent* child = ::readdir(directory);
    if (child == nullptr) {
      if (errno != 0) {
        if (error != nullptr) *error = errno;
        ::closedir(directory);
        return std::nullopt;
      }
      break;
    }
    const char* name = child->d_name;
    if (std::strcmp(name, ".") == 0 || std::strcmp(name, "..") == 0) continue;
    if (skipHidden && name[0] == '.') continue;
    ListedEntry entry;
    entry.name = name;
    entry.path = prefix + entry.name;
    struct stat status;
    if (::fstatat(descriptor, name, &status, AT_SYMLINK_NOFOLLOW) == 0) {
      entry.valuesReadable = true;
      entry.isSymbolicLink = S_ISLNK(status.st_mode);
      entry.isDirectory = S_ISDIR(status.st_mode);
      entry.modificationDate = dateOf(status.st_mtim);
    }
    entries.push_back(std::move(entry));
  }
  ::closedir(directory);
  return entries;
}

std::optional<Date> modificationDate(const std::string& path) {
  struct stat status;
  if (::stat(path.c_str(), &status) != 0) return std::nullopt;
  return dateOf(status.st_mtim);
}

bool exists(const std::string& path) {
  struct stat status;
  return ::stat(path.c_str(), &status) == 0;
}

}  // namespace brisko::rules_internal
