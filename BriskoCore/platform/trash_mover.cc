#include "platform/trash_mover.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <string_view>

#include "base/standardized_path.h"

namespace brisko {

namespace {

bool isSymbolicLink(const std::string& path) {
  struct stat info;
  return ::lstat(path.c_str(), &info) == 0 && S_ISLNK(info.st_mode);
}

// The real path of a folder, links followed; its plain text where it can't
// be resolved (missing, unreadable), so that the text comparisons still work.
std::string realFolder(const std::string& path) {
  char* real = ::realpath(path.c_str(), nullptr);
  if (real == nullptr) return standardizedPath(path);
  std::string result(real);
  std::free(real);
  return result;
}

// Where the item really is: its folder resolved, its own name kept, since a
// link is moved as the link.
std::string realLocation(const std::string& path) {
  const std::string plain = standardizedPath(path);
  const size_t slash = plain.rfind('/');
  if (slash == std::string::npos || plain == "/") return plain;
  std::string folder = realFolder(slash == 0 ? "/" : plain.substr(0, slash));
  if (folder == "/") folder.clear();
  return folder + plain.substr(slash);
}

// `path` is `folder` or lies below it.
bool isWithin(std::string_view path, std::string_view folder) {
  if (folder.empty()) return false;
  if (path == folder) return true;
  if (folder == "/") return true;
  return path.size() > folder.size() && path.starts_with(folder) && path[folder.size()] == '/';
}

// A `.Trash-$uid` component, or `.Trash` followed by `$uid`: the Trash
// folders of other file systems.
bool liesInVolumeTrash(std::string_view path) {
  const std::string uid = std::to_string(::getuid());
  const std::string ownTrash = ".Trash-" + uid;
  std::string_view previous;
  size_t from = 0;
  while (from < path.size()) {
    size_t slash = path.find('/', from);
    if (slash == std::string_view::npos) slash = path.size();
    const std::string_view component = path.substr(from, slash - from);
    if (component == ownTrash || (previous == ".Trash" && component == uid)) return true;
    if (!component.empty()) previous = component;
    from = slash + 1;
  }
  return false;
}

}  // namespace

std::optional<std::string> TrashMover::refusal(const std::string& path,
                                               const std::string& dataDirectory) {
  const std::string location = realLocation(path);
  if (!dataDirectory.empty()) {
    // The Trash's parent may be a link (dotfile managers link ~/.local/share);
    // from the Trash down nothing may be one.
    const std::string trash = realFolder(dataDirectory) + "/Trash";
    if (isSymbolicLink(trash) || isSymbolicLink(trash + "/files") ||
        isSymbolicLink(trash + "/info")) {
      return kLinkedTrash;
    }
    if (isWithin(location, trash)) return kAlreadyInTrash;
    if (isWithin(trash, location)) return kHoldsTrash;
  }
  if (liesInVolumeTrash(location)) return kAlreadyInTrash;
  return std::nullopt;
}

}  // namespace brisko
