#include "cleanup/safe_removal.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <vector>

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

class Remover {
 public:
  explicit Remover(dev_t device) : device_(device) {}

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
    struct stat info;
    if (::fstat(folder, &info) != 0) return fail(errno);
    if (info.st_dev != device_) return fail(EXDEV);
    int error = 0;
    const auto names = namesIn(folder, error);
    if (!names) return fail(error);
    for (const auto& name : *names) {
      if (!removeEntry(folder, name.c_str())) return false;
    }
    return true;
  }

  const std::string& failure() const { return failure_; }

 private:
  bool fail(int error) {
    failure_ = systemWords(error);
    return false;
  }

  dev_t device_;
  std::string failure_;
};

}  // namespace

std::optional<std::string> removeWithoutFollowingLinks(const std::string& path) {
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
  const char* name = components.back().c_str();
  struct stat info;
  if (::fstatat(parent.get(), name, &info, AT_SYMLINK_NOFOLLOW) != 0) return systemWords(errno);
  Remover remover(info.st_dev);
  if (!S_ISDIR(info.st_mode)) {
    if (::unlinkat(parent.get(), name, 0) != 0) return systemWords(errno);
    return std::nullopt;
  }
  if (!remover.removeEntry(parent.get(), name)) return remover.failure();
  return std::nullopt;
}

}  // namespace brisko
