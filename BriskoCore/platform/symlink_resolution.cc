#include "platform/symlink_resolution.h"

#include <sys/stat.h>
#include <unistd.h>

#include <deque>
#include <optional>
#include <vector>

namespace brisko {

namespace {

constexpr int kMostLinksFollowed = 40;  // as the kernel's ELOOP limit

void appendComponents(std::string_view text, std::deque<std::string>& components, bool atFront) {
  std::vector<std::string> pieces;
  size_t from = 0;
  while (from <= text.size()) {
    size_t slash = text.find('/', from);
    if (slash == std::string_view::npos) slash = text.size();
    if (slash > from) pieces.emplace_back(text.substr(from, slash - from));
    from = slash + 1;
  }
  if (atFront) {
    components.insert(components.begin(), pieces.begin(), pieces.end());
  } else {
    components.insert(components.end(), pieces.begin(), pieces.end());
  }
}

void dropLastComponent(std::string& path) {
  const size_t slash = path.find_last_of('/');
  path.resize(slash == 0 ? 1 : slash);
}

void appendComponent(std::string& path, std::string_view component) {
  if (path.size() > 1) path.push_back('/');
  path.append(component);
}

std::optional<std::string> linkTarget(const std::string& path, off_t sizeHint) {
  std::string target(static_cast<size_t>(sizeHint > 0 ? sizeHint : 255) + 1, '\0');
  for (;;) {
    const ssize_t n = ::readlink(path.c_str(), target.data(), target.size());
    if (n < 0) return std::nullopt;
    if (static_cast<size_t>(n) < target.size()) {
      target.resize(static_cast<size_t>(n));
      return target;
    }
    // A link that grew between lstat and readlink: try with more room.
    target.resize(target.size() * 2);
  }
}

}  // namespace

std::string resolvingSymlinksInPath(std::string_view absolutePath) {
  std::deque<std::string> pending;
  appendComponents(absolutePath, pending, false);
  std::string resolved = "/";
  int linksFollowed = 0;
  bool resolving = true;
  while (!pending.empty()) {
    std::string component = std::move(pending.front());
    pending.pop_front();
    if (component == ".") continue;
    if (component == "..") {
      dropLastComponent(resolved);
      continue;
    }
    const size_t before = resolved.size();
    appendComponent(resolved, component);
    if (!resolving) continue;
    struct stat status;
    if (::lstat(resolved.c_str(), &status) != 0) {
      resolving = false;  // the missing (or unreadable) tail stays as given
      continue;
    }
    if (!S_ISLNK(status.st_mode)) continue;
    const auto target = linkTarget(resolved, status.st_size);
    if (!target || target->empty() || ++linksFollowed > kMostLinksFollowed) {
      resolving = false;
      continue;
    }
    if ((*target)[0] == '/') {
      resolved.assign(1, '/');
    } else {
      resolved.resize(before);
    }
    appendComponents(*target, pending, true);
  }
  return resolved;
}

}  // namespace brisko
