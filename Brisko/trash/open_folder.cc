#include "trash/open_folder.h"

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <utility>

namespace brisko {

namespace {

int openRetrying(int parent, const char* name, int flags) {
  int fd;
  do {
    fd = ::openat(parent, name, flags | O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  } while (fd < 0 && errno == EINTR);
  return fd;
}

}  // namespace

OpenFolder::~OpenFolder() {
  if (fd_ >= 0) ::close(fd_);
}

OpenFolder::OpenFolder(OpenFolder&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}

OpenFolder& OpenFolder::operator=(OpenFolder&& other) noexcept {
  std::swap(fd_, other.fd_);
  return *this;
}

OpenFolder OpenFolder::atPath(const std::string& path) {
  return OpenFolder(openRetrying(AT_FDCWD, path.c_str(), 0));
}

OpenFolder OpenFolder::at(int parent, const std::string& name) {
  return OpenFolder(openRetrying(parent, name.c_str(), O_NOFOLLOW));
}

std::optional<std::vector<std::string>> OpenFolder::names() const {
  // A duplicate, so that reading to the end leaves our descriptor usable.
  const int copy = ::fcntl(fd_, F_DUPFD_CLOEXEC, 0);
  if (copy < 0) return std::nullopt;
  DIR* stream = ::fdopendir(copy);
  if (stream == nullptr) {
    const int error = errno;
    ::close(copy);
    errno = error;
    return std::nullopt;
  }
  ::rewinddir(stream);
  std::vector<std::string> names;
  for (;;) {
    errno = 0;
    const dirent* entry = ::readdir(stream);
    if (entry == nullptr) break;
    if (std::strcmp(entry->d_name, ".") == 0 || std::strcmp(entry->d_name, "..") == 0) continue;
    names.emplace_back(entry->d_name);
  }
  const int error = errno;
  ::closedir(stream);
  if (error != 0) {
    errno = error;
    return std::nullopt;
  }
  return names;
}

}  // namespace brisko
