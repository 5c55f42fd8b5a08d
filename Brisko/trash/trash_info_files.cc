#include "trash/trash_info_files.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <sstream>

#include "base/uuid.h"
#include "trash/open_folder.h"

namespace brisko {

namespace {

bool hasEntry(int filesFolder, const std::string& name) {
  struct stat info;
  return ::fstatat(filesFolder, name.c_str(), &info, AT_SYMLINK_NOFOLLOW) == 0 || errno != ENOENT;
}

int hexValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

std::string readAll(int fd) {
  std::string text;
  char buffer[16 * 1024];
  for (;;) {
    const ssize_t n = ::read(fd, buffer, sizeof buffer);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) break;
    text.append(buffer, static_cast<size_t>(n));
  }
  return text;
}

// Replaces `name` in `folder` with `contents` through a temporary file there.
bool replaceAtomically(int folder, const std::string& name, const std::string& contents) {
  const std::string temporary = "." + name + ".tmp-" + Uuid::random().text();
  const int fd = ::openat(folder, temporary.c_str(),
                          O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
  if (fd < 0) return false;
  size_t written = 0;
  bool ok = true;
  while (ok && written < contents.size()) {
    const ssize_t n = ::write(fd, contents.data() + written, contents.size() - written);
    if (n < 0 && errno == EINTR) continue;
    ok = n > 0;
    if (ok) written += static_cast<size_t>(n);
  }
  ok = ok && ::fsync(fd) == 0;
  ok = ::close(fd) == 0 && ok;
  ok = ok && ::renameat(folder, temporary.c_str(), folder, name.c_str()) == 0;
  if (!ok) ::unlinkat(folder, temporary.c_str(), 0);
  return ok;
}

}  // namespace

std::string percentDecoded(const std::string& text) {
  std::string out;
  for (size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '%' && i + 2 < text.size() && hexValue(text[i + 1]) >= 0 &&
        hexValue(text[i + 2]) >= 0) {
      out.push_back(static_cast<char>(hexValue(text[i + 1]) * 16 + hexValue(text[i + 2])));
      i += 2;
    } else {
      out.push_back(text[i]);
    }
  }
  return out;
}

void removeOrphanedTrashInfo(int filesFolder, int infoFolder) {
  const OpenFolder info = OpenFolder::at(infoFolder, ".");
  const auto names = info.valid() ? info.names() : std::nullopt;
  if (!names) return;
  const size_t suffix = std::strlen(kTrashInfoSuffix);
  for (const auto& name : *names) {
    if (name.size() <= suffix || name.compare(name.size() - suffix, suffix, kTrashInfoSuffix) != 0)
      continue;
    if (!hasEntry(filesFolder, name.substr(0, name.size() - suffix)))
      ::unlinkat(infoFolder, name.c_str(), 0);
  }
}

void pruneDirectorySizes(int trashFolder, int filesFolder) {
  const int fd = ::openat(trashFolder, "directorysizes", O_RDONLY | O_NOFOLLOW | O_CLOEXEC);
  if (fd < 0) return;
  const std::string text = readAll(fd);
  ::close(fd);
  // Each line: size, modification time, percent-encoded name.
  std::istringstream lines(text);
  std::string line, kept;
  bool dropped = false;
  while (std::getline(lines, line)) {
    const auto last = line.rfind(' ');
    if (last != std::string::npos &&
        !hasEntry(filesFolder, percentDecoded(line.substr(last + 1)))) {
      dropped = true;
      continue;
    }
    kept += line + "\n";
  }
  if (dropped) replaceAtomically(trashFolder, "directorysizes", kept);
}

}  // namespace brisko
