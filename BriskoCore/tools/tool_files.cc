#include "tools/tool_files.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>

#include "base/file_contents.h"
#include "base/path_components.h"
#include "base/standardized_path.h"

namespace brisko::tool_files {

std::vector<std::string> visibleEntries(const std::string& folder) {
  std::vector<std::string> names;
  DIR* directory = ::opendir(folder.c_str());
  if (directory == nullptr) return names;
  while (const dirent* entry = ::readdir(directory)) {
    if (entry->d_name[0] != '.') names.emplace_back(entry->d_name);
  }
  ::closedir(directory);
  std::sort(names.begin(), names.end());
  return names;
}

bool isFolderOrLink(const std::string& path) {
  struct stat info;
  return ::lstat(path.c_str(), &info) == 0 && (S_ISDIR(info.st_mode) || S_ISLNK(info.st_mode));
}

bool isFolder(const std::string& path) {
  struct stat info;
  return ::stat(path.c_str(), &info) == 0 && S_ISDIR(info.st_mode);
}

bool exists(const std::string& path) {
  struct stat info;
  return ::lstat(path.c_str(), &info) == 0;
}

bool isExecutableFile(const std::string& path) {
  struct stat info;
  return ::stat(path.c_str(), &info) == 0 && S_ISREG(info.st_mode) &&
         ::access(path.c_str(), X_OK) == 0;
}

bool isWritableFolder(const std::string& path) {
  return ::access(path.c_str(), W_OK) == 0;
}

std::optional<Date> birthTime(const std::string& path) {
  struct statx info;
  if (::statx(AT_FDCWD, path.c_str(), AT_SYMLINK_NOFOLLOW, STATX_BTIME, &info) != 0 ||
      (info.stx_mask & STATX_BTIME) == 0) {
    return std::nullopt;
  }
  return dateFromFileTime(info.stx_btime.tv_sec, info.stx_btime.tv_nsec);
}

std::optional<std::string> linkTarget(const std::string& path) {
  std::string target(4096, '\0');
  const ssize_t length = ::readlink(path.c_str(), target.data(), target.size());
  if (length <= 0 || static_cast<size_t>(length) >= target.size()) return std::nullopt;
  target.resize(static_cast<size_t>(length));
  return target;
}

std::optional<nlohmann::json> readJsonObject(const std::string& path) {
  // Manifests are small; a huge one is not what a package manager wrote.
  const auto text = readFileContents(path, 16 * 1024 * 1024);
  if (!text) return std::nullopt;
  auto json = nlohmann::json::parse(*text, nullptr, false);
  if (json.is_discarded() || !json.is_object()) return std::nullopt;
  return json;
}

std::optional<std::string> stringMember(const nlohmann::json& object, const char* key) {
  const auto found = object.find(key);
  if (found == object.end() || !found->is_string()) return std::nullopt;
  return found->get<std::string>();
}

std::map<std::string, std::vector<std::string>> linksBelow(
    const std::string& folder, const std::string& base,
    const std::function<std::string(const std::vector<std::string>& rest)>& keyOf) {
  std::map<std::string, std::vector<std::string>> links;
  const std::string prefix = base + "/";
  for (const std::string& name : visibleEntries(folder)) {
    const std::string path = folder + "/" + name;
    struct stat info;
    if (::lstat(path.c_str(), &info) != 0 || !S_ISLNK(info.st_mode)) continue;
    const auto target = linkTarget(path);
    if (!target) continue;
    const std::string absolute =
        standardizedPath((*target)[0] == '/' ? *target : folder + "/" + *target);
    if (absolute.compare(0, prefix.size(), prefix) != 0) continue;
    std::vector<std::string> rest;
    size_t start = prefix.size();
    while (start <= absolute.size()) {
      const size_t slash = absolute.find('/', start);
      const size_t end = slash == std::string::npos ? absolute.size() : slash;
      rest.push_back(absolute.substr(start, end - start));
      start = end + 1;
    }
    const std::string key = keyOf(rest);
    if (!key.empty()) links[key].push_back(path);
  }
  return links;  // each list in the folder's sorted order
}

bool numericallyBefore(const std::string& left, const std::string& right) {
  size_t i = 0, j = 0;
  while (i < left.size() && j < right.size()) {
    const bool leftDigit = std::isdigit(static_cast<unsigned char>(left[i])) != 0;
    const bool rightDigit = std::isdigit(static_cast<unsigned char>(right[j])) != 0;
    if (leftDigit && rightDigit) {
      size_t leftEnd = i, rightEnd = j;
      while (leftEnd < left.size() && std::isdigit(static_cast<unsigned char>(left[leftEnd])))
        ++leftEnd;
      while (rightEnd < right.size() && std::isdigit(static_cast<unsigned char>(right[rightEnd])))
        ++rightEnd;
      // Leading zeros aside, a longer run of digits is the larger number.
      std::string_view a(left.data() + i, leftEnd - i), b(right.data() + j, rightEnd - j);
      while (a.size() > 1 && a.front() == '0')
        a.remove_prefix(1);
      while (b.size() > 1 && b.front() == '0')
        b.remove_prefix(1);
      if (a.size() != b.size()) return a.size() < b.size();
      if (a != b) return a < b;
      i = leftEnd;
      j = rightEnd;
    } else {
      if (left[i] != right[j]) return left[i] < right[j];
      ++i;
      ++j;
    }
  }
  return left.size() - i < right.size() - j;
}

}  // namespace brisko::tool_files
