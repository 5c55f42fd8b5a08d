#include "platform/volume_snapshot.h"

#include <sys/statvfs.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>

#include "platform/mount_table.h"

namespace brisko {

namespace {

bool holds(const std::string& mountPoint, const std::string& path) {
  if (mountPoint == "/") return true;
  return path == mountPoint ||
         (path.size() > mountPoint.size() && path.compare(0, mountPoint.size(), mountPoint) == 0 &&
          path[mountPoint.size()] == '/');
}

std::string systemWords(int error) {
  return std::strerror(error);
}

}  // namespace

std::string mountPointHolding(std::string_view mountinfo, const std::string& resolvedPath) {
  std::string best = "/";
  std::istringstream lines{std::string(mountinfo)};
  std::string line;
  while (std::getline(lines, line)) {
    // Fields: id, parent id, major:minor, root, mount point, ...
    std::istringstream fields(line);
    std::string id, parent, device, root, mountPoint;
    if (!(fields >> id >> parent >> device >> root >> mountPoint)) continue;
    mountPoint = unescapedMountPath(mountPoint);
    if (holds(mountPoint, resolvedPath) && mountPoint.size() >= best.size()) best = mountPoint;
  }
  return best;
}

DiskSnapshot volumeSnapshot(const std::string& path) {
  struct statvfs volume;
  if (::statvfs(path.c_str(), &volume) != 0) {
    throw VolumeError("Cannot read the volume of " + path + ": " + systemWords(errno));
  }
  char resolved[PATH_MAX];
  if (::realpath(path.c_str(), resolved) == nullptr) {
    throw VolumeError("Cannot resolve " + path + ": " + systemWords(errno));
  }
  std::string mountinfo;
  if (std::ifstream in{"/proc/self/mountinfo"}) {
    std::ostringstream text;
    text << in.rdbuf();
    mountinfo = text.str();
  }
  DiskSnapshot snapshot;
  snapshot.volumeName = mountPointHolding(mountinfo, resolved);
  const auto unit = static_cast<std::int64_t>(volume.f_frsize);
  snapshot.totalBytes = static_cast<std::int64_t>(volume.f_blocks) * unit;
  snapshot.availableBytes = static_cast<std::int64_t>(volume.f_bavail) * unit;
  return snapshot;
}

}  // namespace brisko
