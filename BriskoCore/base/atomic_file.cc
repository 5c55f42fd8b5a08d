#include "base/atomic_file.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

#include "base/path_components.h"
#include "base/uuid.h"

namespace brisko {

namespace {

[[noreturn]] void throwErrno(const std::string& what) {
  throw std::system_error(errno, std::generic_category(), what);
}

constexpr std::string_view kTemporaryInfix = ".tmp-";

bool isTemporaryName(std::string_view name) {
  const size_t infix = name.rfind(kTemporaryInfix);
  if (infix == std::string_view::npos || infix == 0) return false;
  return Uuid::parse(name.substr(infix + kTemporaryInfix.size())).has_value();
}

}  // namespace

void sweepStaleTemporaryFiles(const std::string& folder, std::chrono::seconds age) {
  const int fd = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
  if (fd < 0) return;
  DIR* listing = ::fdopendir(fd);
  if (listing == nullptr) {
    ::close(fd);
    return;
  }
  const auto cutoff = std::chrono::system_clock::now() - age;
  while (const dirent* entry = ::readdir(listing)) {
    if (!isTemporaryName(entry->d_name)) continue;
    struct stat info;
    if (::fstatat(fd, entry->d_name, &info, AT_SYMLINK_NOFOLLOW) != 0 || !S_ISREG(info.st_mode)) {
      continue;
    }
    const auto modified = std::chrono::system_clock::from_time_t(info.st_mtim.tv_sec);
    if (modified < cutoff) ::unlinkat(fd, entry->d_name, 0);
  }
  ::closedir(listing);
}

void writeFileAtomically(const std::string& path, std::string_view contents, mode_t mode) {
  const std::string temporary = path + std::string(kTemporaryInfix) + Uuid::random().text();
  const int fd =
      ::open(temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, mode);
  if (fd < 0) throwErrno("Cannot create " + temporary);
  const auto failWith = [&](const std::string& what) {
    const int saved = errno;
    ::close(fd);
    ::unlink(temporary.c_str());
    errno = saved;
    throwErrno(what);
  };
  size_t written = 0;
  while (written < contents.size()) {
    const ssize_t n = ::write(fd, contents.data() + written, contents.size() - written);
    if (n < 0) {
      if (errno == EINTR) continue;
      failWith("Cannot write " + temporary);
    }
    written += static_cast<size_t>(n);
  }
  if (::fchmod(fd, mode) != 0) failWith("Cannot set the mode of " + temporary);
  if (::fsync(fd) != 0) failWith("Cannot sync " + temporary);
  if (::close(fd) != 0) {
    const int saved = errno;
    ::unlink(temporary.c_str());
    errno = saved;
    throwErrno("Cannot close " + temporary);
  }
  if (::rename(temporary.c_str(), path.c_str()) != 0) {
    const int saved = errno;
    ::unlink(temporary.c_str());
    errno = saved;
    throwErrno("Cannot replace " + path);
  }
  // The rename is durable only once the folder's entry is on disk.
  const int folder = ::open(parentPath(path).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (folder >= 0) {
    ::fsync(folder);
    ::close(folder);
  }
}

void createPrivateDirectories(const std::string& path, mode_t mode) {
  if (path.empty()) throw std::system_error(ENOENT, std::generic_category(), "Empty folder path");
  std::string partial;
  size_t from = 0;
  while (from <= path.size()) {
    size_t slash = path.find('/', from);
    if (slash == std::string::npos) slash = path.size();
    partial = path.substr(0, slash);
    from = slash + 1;
    if (partial.empty()) continue;
    if (::mkdir(partial.c_str(), mode) != 0 && errno != EEXIST) {
      throwErrno("Cannot create the folder " + partial);
    }
  }
  struct stat info;
  if (::stat(path.c_str(), &info) != 0) throwErrno("Cannot read the folder " + path);
  if (!S_ISDIR(info.st_mode)) {
    throw std::system_error(ENOTDIR, std::generic_category(), "Not a folder: " + path);
  }
  if ((info.st_mode & 07777) != mode && ::chmod(path.c_str(), mode) != 0) {
    throwErrno("Cannot set the mode of " + path);
  }
}

}  // namespace brisko
