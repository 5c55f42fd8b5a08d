#include "trash/trash_folders.h"

#include <sys/stat.h>

#include <array>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <string_view>

#include "platform/mount_table.h"

namespace brisko {

namespace {

std::string resolved(const std::string& path) {
  char buffer[PATH_MAX];
  if (::realpath(path.c_str(), buffer) == nullptr) return path;
  return buffer;
}

std::string joined(const std::string& folder, std::string_view name) {
  return folder == "/" ? "/" + std::string(name) : folder + "/" + std::string(name);
}

}  // namespace

std::string TrashFolderLocation::path(uid_t uid) const {
  switch (kind) {
    case Kind::home:
      return joined(base, "Trash");
    case Kind::sharedTopDirectory:
      return joined(base, ".Trash/" + std::to_string(uid));
    case Kind::userTopDirectory:
      return joined(base, ".Trash-" + std::to_string(uid));
  }
  return base;
}

bool isTrashableFileSystem(const std::string& type) {
  static constexpr std::array<std::string_view, 38> kPassedOver = {
      // kernel views and in-memory file systems
      "proc", "sysfs", "devtmpfs", "devpts", "tmpfs", "ramfs", "cgroup", "cgroup2", "securityfs",
      "debugfs", "tracefs", "configfs", "fusectl", "mqueue", "hugetlbfs", "pstore", "bpf",
      "binfmt_misc", "efivarfs", "nsfs", "rpc_pipefs", "selinuxfs", "squashfs", "autofs",
      // network file systems
      "nfs", "nfs4", "cifs", "smb3", "smbfs", "ncpfs", "afs", "9p", "ceph", "glusterfs", "lustre",
      "davfs", "sshfs", "fuse"};
  for (const auto passedOver : kPassedOver) {
    if (type == passedOver) return false;
  }
  // FUSE file systems are mostly remote (sshfs, gvfsd-fuse, rclone); only
  // fuseblk sits on a local block device.
  return type.rfind("fuse.", 0) != 0;
}

std::vector<TrashFolderLocation> trashFolderLocations(const std::string& dataHome,
                                                      const std::string& mountTable) {
  std::vector<TrashFolderLocation> locations;
  locations.push_back({TrashFolderLocation::Kind::home, resolved(dataHome)});
  std::vector<std::string> seen;
  for (const auto& mount : parseMountTable(mountTable)) {
    if (!isTrashableFileSystem(mount.fileSystemType)) continue;
    bool known = false;
    for (const auto& point : seen)
      known = known || point == mount.mountPoint;
    if (known) continue;
    seen.push_back(mount.mountPoint);
    locations.push_back({TrashFolderLocation::Kind::sharedTopDirectory, mount.mountPoint});
    locations.push_back({TrashFolderLocation::Kind::userTopDirectory, mount.mountPoint});
  }
  return locations;
}

OpenFolder openTrashFolder(const TrashFolderLocation& location, uid_t uid) {
  OpenFolder base = OpenFolder::atPath(location.base);
  if (!base.valid()) return base;
  switch (location.kind) {
    case TrashFolderLocation::Kind::home:
      return OpenFolder::at(base.fd(), "Trash");
    case TrashFolderLocation::Kind::sharedTopDirectory: {
      OpenFolder shared = OpenFolder::at(base.fd(), ".Trash");
      if (!shared.valid()) return shared;
      struct stat info;
      if (::fstat(shared.fd(), &info) != 0) return OpenFolder();
      // Without the sticky bit any user could remove another's files there.
      if ((info.st_mode & S_ISVTX) == 0) {
        errno = EPERM;
        return OpenFolder();
      }
      return OpenFolder::at(shared.fd(), std::to_string(uid));
    }
    case TrashFolderLocation::Kind::userTopDirectory: {
      OpenFolder own = OpenFolder::at(base.fd(), ".Trash-" + std::to_string(uid));
      if (!own.valid()) return own;
      struct stat info;
      if (::fstat(own.fd(), &info) != 0) return OpenFolder();
      if (info.st_uid != uid) {
        errno = EPERM;
        return OpenFolder();
      }
      return own;
    }
  }
  return OpenFolder();
}

}  // namespace brisko
