#include "platform/bulk_directory_lister.h"

#include "platform/folder_walk.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <memory>

namespace brisko {
namespace {

constexpr size_t kBufferSize = 256 * 1024;

bool isDotOrDotDot(const char* name) {
  return name[0] == '.' && (name[1] == '\0' || (name[1] == '.' && name[2] == '\0'));
}

Date wholeSecondDate(std::int64_t seconds) {
  return dateFromFileTime(seconds);
}

BulkDirectoryEntry::Kind kindOfMode(mode_t mode) {
  if (S_ISREG(mode)) return BulkDirectoryEntry::Kind::file;
  if (S_ISDIR(mode)) return BulkDirectoryEntry::Kind::directory;
  if (S_ISLNK(mode)) return BulkDirectoryEntry::Kind::symlink;
  return BulkDirectoryEntry::Kind::other;
}

// A file's size and sharing are read from the stat; every other kind carries
// size 0 and no sharing, whatever the stat says.
void fillFromStat(BulkDirectoryEntry& entry, mode_t mode, std::uint64_t blocks, std::uint64_t links,
                  std::int64_t mtimeSeconds) {
  entry.kind = kindOfMode(mode);
  entry.modificationDate = wholeSecondDate(mtimeSeconds);
  if (entry.kind == BulkDirectoryEntry::Kind::file) {
    const auto bytes = static_cast<std::int64_t>(blocks * 512);
    entry.allocatedBytes = bytes < 0 ? 0 : bytes;
    entry.mayShareStorage = links > 1;
  }
}

// The per-thread read buffer: one listing runs at a time on a thread and never
// calls out, so a buffer per thread is a buffer per listing in flight, without
// an allocation per directory.
char* threadBuffer() {
  thread_local std::unique_ptr<char[]> buffer(new char[kBufferSize]);
  return buffer.get();
}

}  // namespace

BulkDirectoryLister::Failure BulkDirectoryLister::failureFromErrno(int errorNumber) {
  if (errorNumber == EACCES || errorNumber == EPERM)
    return Failure{Failure::Kind::permissionDenied, errorNumber};
  return Failure{Failure::Kind::failed, errorNumber};
}

BulkDirectoryLister::Result BulkDirectoryLister::list(const std::string& path) {
  std::vector<BulkDirectoryEntry> entries;
  size_t count = 0;
  if (auto failure = listInto(path, entries, count)) return *failure;
  entries.resize(count);
  return entries;
}

std::optional<BulkDirectoryLister::Failure> BulkDirectoryLister::listInto(
    const std::string& path, std::vector<BulkDirectoryEntry>& slots, size_t& count) {
  count = 0;
  Descriptor dir(::open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_DIRECTORY | O_CLOEXEC));
  if (dir.get() < 0) return failureFromErrno(errno);
  return listOpenInto(dir.get(), slots, count);
}

std::optional<BulkDirectoryLister::Failure> BulkDirectoryLister::listOpenInto(
    int folder, std::vector<BulkDirectoryEntry>& slots, size_t& count) {
  count = 0;
  char* buffer = threadBuffer();
  for (;;) {
    const long bytes = ::syscall(SYS_getdents64, folder, buffer, kBufferSize);
    if (bytes < 0) {
      count = 0;
      return failureFromErrno(errno);
    }
    if (bytes == 0) break;
    for (long offset = 0; offset < bytes;) {
      const auto* record = reinterpret_cast<const struct dirent64*>(buffer + offset);
      offset += record->d_reclen;
      if (isDotOrDotDot(record->d_name)) continue;

      if (count == slots.size()) slots.emplace_back();
      BulkDirectoryEntry& entry = slots[count];
      entry.allocatedBytes = 0;
      entry.modificationDate.reset();
      entry.mayShareStorage = false;
      switch (record->d_type) {
        case DT_DIR:
          entry.kind = BulkDirectoryEntry::Kind::directory;
          break;
        case DT_LNK:
          entry.kind = BulkDirectoryEntry::Kind::symlink;
          break;
        case DT_REG:
        case DT_UNKNOWN: {
          struct statx info;
          if (::statx(folder, record->d_name, AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT,
                      STATX_TYPE | STATX_NLINK | STATX_BLOCKS | STATX_MTIME, &info) != 0) {
            if (errno == ENOENT) continue;  // removed since the directory was read
            count = 0;
            return failureFromErrno(errno);
          }
          fillFromStat(entry, info.stx_mode, info.stx_blocks, info.stx_nlink,
                       info.stx_mtime.tv_sec);
          break;
        }
        default:
          entry.kind = BulkDirectoryEntry::Kind::other;
          break;
      }
      entry.name.assign(record->d_name);  // reuses the slot's storage
      ++count;
    }
  }
  return std::nullopt;
}

BulkDirectoryLister::Result BulkDirectoryLister::listSlowly(const std::string& path) {
  Descriptor fd(::open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_DIRECTORY | O_CLOEXEC));
  if (fd.get() < 0) return failureFromErrno(errno);
  return listOpenSlowly(fd.get());
}

BulkDirectoryLister::Result BulkDirectoryLister::listOpenSlowly(int folder) {
  // The stream owns a duplicate, so that the caller's descriptor stays its own.
  Descriptor fd(::fcntl(folder, F_DUPFD_CLOEXEC, 0));
  if (fd.get() < 0) return failureFromErrno(errno);
  // A listing read before (by listOpenInto) is read again from the start.
  ::lseek(fd.get(), 0, SEEK_SET);
  DIR* stream = ::fdopendir(fd.get());
  if (stream == nullptr) return failureFromErrno(errno);
  const int dirFd = fd.release();  // owned by the stream from here on
  std::unique_ptr<DIR, int (*)(DIR*)> closer(stream, ::closedir);

  std::vector<BulkDirectoryEntry> entries;
  for (;;) {
    errno = 0;
    const dirent* record = ::readdir(stream);
    if (record == nullptr) {
      if (errno != 0) return failureFromErrno(errno);
      break;
    }
    if (isDotOrDotDot(record->d_name)) continue;
    struct stat info;
    if (::fstatat(dirFd, record->d_name, &info, AT_SYMLINK_NOFOLLOW) != 0) continue;
    BulkDirectoryEntry entry;
    entry.name = record->d_name;
    fillFromStat(entry, info.st_mode, static_cast<std::uint64_t>(info.st_blocks), 1,
                 info.st_mtim.tv_sec);
    entries.push_back(std::move(entry));
  }
  return entries;
}

}  // namespace brisko
