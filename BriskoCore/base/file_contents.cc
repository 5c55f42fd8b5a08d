#include "base/file_contents.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

namespace brisko {

std::optional<std::string> readFileContents(const std::string& path, size_t limit) {
  // O_NONBLOCK: opening a FIFO would otherwise wait for a writer.
  const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK);
  if (fd < 0) return std::nullopt;
  std::string contents;
  struct stat info;
  if (::fstat(fd, &info) != 0 || !S_ISREG(info.st_mode)) {
    ::close(fd);
    return std::nullopt;
  }
  if (info.st_size > 0) {
    contents.reserve(static_cast<size_t>(info.st_size) < limit ? static_cast<size_t>(info.st_size)
                                                               : limit);
  }
  char buffer[65536];
  while (true) {
    const ssize_t got = ::read(fd, buffer, sizeof buffer);
    if (got == 0) break;
    if (got < 0) {
      if (errno == EINTR) continue;
      ::close(fd);
      return std::nullopt;
    }
    contents.append(buffer, static_cast<size_t>(got));
    if (contents.size() > limit) {
      ::close(fd);
      return std::nullopt;
    }
  }
  ::close(fd);
  return contents;
}

}  // namespace brisko
