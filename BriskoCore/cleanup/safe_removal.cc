#include "cleanup/safe_removal.h"

#include <dirent.h>
#include <fcntl.h>
#include <stdio.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <vector>

#include "base/uuid.h"

namespace brisko {

namespace {

// Owns one descriptor.
class Descriptor {
 public:
  explicit Descriptor(int fd = -1) : fd_(fd) {}
  ~Descriptor() {
    if (fd_ >= 0) ::close(fd_);
  }
  Descriptor(Descriptor&& other) noexcept : fd_(other.fd_) { other.fd_ = -1; }
  Descriptor& operator=(Descriptor&& other) noexcept {
    std::swap(fd_, other.fd_);
    return *this;
  }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;

  int get() const { return fd_; }
  bool valid() const { return fd_ >= 0; }

 private:
  int fd_;
};

constexpr int kFolderFlags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;

std::string systemWords(int error) {
  return std::strerror(error);
}

// Opens `name` inside `parent` as a folder, refusing links.
Descriptor openFolderAt(int parent, const char* name) {
  int fd;
  do {
    fd = ::openat(parent, name, kFolderFlags);
  } while (fd < 0 && errno == EINTR);
  return Descriptor(fd);
}

// The names in an open folder, read through a duplicate descriptor so that
// `folder` stays usable for the removals.
std::optional<std::vector<std::string>> namesIn(int folder, int& error) {
  const int copy = ::fcntl(folder, F_DUPFD_CLOEXEC, 0);
  if (copy < 0) {
    error = errno;
    return std::nullopt;
  }
  DIR* stream = ::fdopendir(copy);
  if (stream == nullptr) {
    error = errno;
    ::close(copy);
    return std::nullopt;
  }
  std::vector<std::string> names;
  while (true) {
    errno = 0;
    const dirent* entry = ::readdir(stream);
    if (entry == nullptr) {
      if (errno != 0) {
        error = errno;
        ::closedir(stream);
        return std::nullopt;
      }
      break;
    }
    if (std::strcmp(entry->d_name, ".") == 0 || std::strcmp(entry->d_name, "..") == 0) continue;
    names.emplace_back(entry->d_name);
  }
  ::closedir(stream);
  return names;
}

// What identifies a thing and the mount it sits on, without following a link.
struct Placement {
  std::uint64_t device = 0;
  std::uint64_t inode = 0;
  std::uint32_t fileType = 0;
  std::optional<std::uint64_t> mountID;  // none where the kernel can't tell
};

std::optional<Placement> placementAt(int folder, const char* name, int flags) {
  struct statx info;
  if (::statx(folder, name, flags | AT_SYMLINK_NOFOLLOW, STATX_TYPE | STATX_INO | STATX_MNT_ID,
              &info) != 0) {
    return std::nullopt;
  }
  Placement placement;
  placement.device = makedev(info.stx_dev_major, info.stx_dev_minor);
  placement.inode = info.stx_ino;
  placement.fileType = info.stx_mode & S_IFMT;
  if (info.stx_mask & STATX_MNT_ID) placement.mountID = info.stx_mnt_id;
  return placement;
}

std::optional<Placement> placementOf(int fd) {
  return placementAt(fd, "", AT_EMPTY_PATH);
}

bool sameMount(const Placement& a, const Placement& b) {
  if (a.mountID && b.mountID) return *a.mountID == *b.mountID;
  return a.device == b.device;
}

bool matches(const Placement& placement, const FileIdentitySnapshot& expected) {
  return placement.device == expected.deviceID && placement.inode == expected.fileID &&
         placement.fileType == expected.fileType;
}

class Remover {
 public:
  explicit Remover(Placement mount) : mount_(std::move(mount)) {}

  // Removes the entry `name` of the open folder `parent`.
  bool removeEntry(int parent, const char* name) {
    // Try it as a file or link first: unlinkat never follows a link, and
    // refuses a folder with EISDIR.
    if (::unlinkat(parent, name, 0) == 0) return true;
    if (errno == ENOENT) return true;  // gone already: nothing left to remove
    if (errno != EISDIR && errno != EPERM) return fail(errno);
    Descriptor folder = openFolderAt(parent, name);
    if (!folder.valid()) {
      // ENOTDIR or ELOOP: it was swapped for a file or a link since; retry once
      // as such, which removes the link itself.
      if (errno == ENOTDIR || errno == ELOOP) {
        if (::unlinkat(parent, name, 0) == 0 || errno == ENOENT) return true;
      }
      return fail(errno);
    }
    if (!emptyFolder(folder.get())) return false;
    if (::unlinkat(parent, name, AT_REMOVEDIR) == 0 || errno == ENOENT) return true;
    return fail(errno);
  }

  bool emptyFolder(int folder) {
    const auto placement = placementOf(folder);
    if (!placement) return fail(errno);
    // Another file system, or a bind mount of this one, is never entered.
    if (!sameMount(*placement, mount_)) return fail(EXDEV);
    int error = 0;
    const auto names = namesIn(folder, error);
    if (!names) return fail(error);
    for (const auto& name : *names) {
      if (!removeEntry(folder, name.c_str())) return false;
    }
    return true;
  }

  const std::string& failure() const { return failure_; }

  bool fail(int error) {
    failure_ = systemWords(error);
    return false;
  }

 private:
  Placement mount_;
  std::string failure_;
};

// Removes a file or link after making sure, under a private name, that it is
// the expected one; puts anything else back where it was.
std::optional<std::string> removeCheckedEntry(int parent, const std::string& name,
                                              const FileIdentitySnapshot& expected) {
  const std::string parked = ".brisko-removing-" + Uuid::random().text();
  if (::renameat2(parent, name.c_str(), parent, parked.c_str(), RENAME_NOREPLACE) != 0) {
    return systemWords(errno);
  }
  const auto placement = placementAt(parent, parked.c_str(), 0);
  if (!placement || !matches(*placement, expected)) {
    ::renameat2(parent, parked.c_str(), parent, name.c_str(), RENAME_NOREPLACE);
    return kRemovalIdentityChanged;
  }
  if (::unlinkat(parent, parked.c_str(), 0) != 0) return systemWords(errno);
  return std::nullopt;
}

}  // namespace

std::optional<std::string> removeWithoutFollowingLinks(
    const std::string& path, const std::optional<FileIdentitySnapshot>& expected) {
  if (path.empty() || path.front() != '/') return systemWords(EINVAL);
  std::vector<std::string> components;
  size_t from = 1;
  while (from <= path.size()) {
    size_t slash = path.find('/', from);
    if (slash == std::string::npos) slash = path.size();
    const std::string component = path.substr(from, slash - from);
    from = slash + 1;
    if (component.empty() || component == ".") continue;
    if (component == "..") return systemWords(EINVAL);  // only plain paths are removed
    components.push_back(component);
  }
  if (components.empty()) return systemWords(EBUSY);  // never the root

  Descriptor parent(::open("/", kFolderFlags));
  if (!parent.valid()) return systemWords(errno);
  for (size_t i = 0; i + 1 < components.size(); ++i) {
    Descriptor next = openFolderAt(parent.get(), components[i].c_str());
    if (!next.valid()) return systemWords(errno);
    parent = std::move(next);
  }
  const std::string& name = components.back();
  const auto parentPlacement = placementOf(parent.get());
  const auto item = placementAt(parent.get(), name.c_str(), 0);
  if (!parentPlacement || !item) return systemWords(errno);
  // An item that is itself a mount point would take a whole file system along.
  if (!sameMount(*item, *parentPlacement)) return systemWords(EBUSY);
  if (expected && !matches(*item, *expected)) return kRemovalIdentityChanged;

  if (item->fileType != S_IFDIR) {
    if (expected) return removeCheckedEntry(parent.get(), name, *expected);
    if (::unlinkat(parent.get(), name.c_str(), 0) != 0) return systemWords(errno);
    return std::nullopt;
  }
  Descriptor folder = openFolderAt(parent.get(), name.c_str());
  if (!folder.valid()) return systemWords(errno);
  // What is emptied is what was checked: the descriptor's own identity.
  const auto opened = placementOf(folder.get());
  if (!opened) return systemWords(errno);
  if (expected ? !matches(*opened, *expected)
               : (opened->inode != item->inode || opened->device != item->device)) {
    return kRemovalIdentityChanged;
  }
  Remover remover(*parentPlacement);
  if (!remover.emptyFolder(folder.get())) return remover.failure();
  // Only an empty folder can go, so a folder swapped in meanwhile survives.
  if (::unlinkat(parent.get(), name.c_str(), AT_REMOVEDIR) != 0) return systemWords(errno);
  return std::nullopt;
}

}  // namespace brisko
