#include "cleanup/file_identity.h"

#include <ftw.h>
#include <sys/stat.h>

#include <limits>

namespace brisko {

namespace {

std::int64_t allocatedBytes(const struct stat& info) {
  return info.st_blocks > 0 ? static_cast<std::int64_t>(info.st_blocks) * 512 : 0;
}

thread_local std::int64_t walkTotal = 0;

int addRegularFile(const char*, const struct stat* info, int type, FTW*) {
  if (type == FTW_F && S_ISREG(info->st_mode)) walkTotal += allocatedBytes(*info);
  return 0;
}

}  // namespace

std::optional<FileIdentitySnapshot> identitySnapshot(const std::string& path) {
  struct stat info;
  if (::lstat(path.c_str(), &info) != 0) return std::nullopt;
  std::int64_t nanoseconds = 0;
  if (__builtin_mul_overflow(static_cast<std::int64_t>(info.st_mtim.tv_sec), 1'000'000'000,
                             &nanoseconds) ||
      __builtin_add_overflow(nanoseconds, static_cast<std::int64_t>(info.st_mtim.tv_nsec),
                             &nanoseconds)) {
    return std::nullopt;
  }
  FileIdentitySnapshot snapshot;
  snapshot.deviceID = static_cast<std::uint64_t>(info.st_dev);
  snapshot.fileID = static_cast<std::uint64_t>(info.st_ino);
  snapshot.fileType = static_cast<std::uint32_t>(info.st_mode & S_IFMT);
  snapshot.logicalBytes = static_cast<std::int64_t>(info.st_size);
  snapshot.modificationTimeNanoseconds = nanoseconds;
  return snapshot;
}

std::int64_t measuredBytes(const std::string& path) {
  struct stat info;
  if (::lstat(path.c_str(), &info) != 0 || S_ISLNK(info.st_mode)) return 0;
  if (S_ISREG(info.st_mode)) return allocatedBytes(info);
  if (!S_ISDIR(info.st_mode)) return 0;
  walkTotal = 0;
  // FTW_PHYS: links are reported as links and never followed.
  ::nftw(path.c_str(), addRegularFile, 32, FTW_PHYS);
  return walkTotal;
}

}  // namespace brisko
