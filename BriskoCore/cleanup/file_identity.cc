#include "cleanup/file_identity.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <limits>

#include "platform/folder_walk.h"
#include "rules/tree_walker.h"

namespace brisko {

namespace {

std::int64_t allocatedBytes(const struct stat& info) {
  return info.st_blocks > 0 ? static_cast<std::int64_t>(info.st_blocks) * 512 : 0;
}

// Sums the regular files below a folder, as the scan would: never through
// a link, into another mount, or into a package below the item.
class RegularFileSum : public FolderVisitor {
 public:
  explicit RegularFileSum(const FolderPlacement& top) : top_(top) {}

  Step visit(int folder, const std::string&, const std::string& name, unsigned char type) override {
    if (type == DT_DIR) return isPackageName(name) ? Step::next : Step::enter;
    if (type != DT_REG && type != DT_UNKNOWN) return Step::next;
    struct stat info;
    if (::fstatat(folder, name.c_str(), &info, AT_SYMLINK_NOFOLLOW) != 0) return Step::next;
    if (S_ISREG(info.st_mode)) total += allocatedBytes(info);
    if (S_ISDIR(info.st_mode) && !isPackageName(name)) return Step::enter;
    return Step::next;
  }

  bool entering(int, const FolderPlacement& placement) override {
    // Other file systems mounted inside are not measured (nor ever removed).
    return placement.sameMount(top_);
  }

  std::int64_t total = 0;

 private:
  FolderPlacement top_;
};

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
  Descriptor folder(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  const auto placement = folder.valid() ? placementAt(folder.get(), "") : std::nullopt;
  if (!placement) return 0;
  RegularFileSum sum(*placement);
  // A folder that moves away during the walk measures what was met before.
  descendFolders(std::move(folder), path, sum);
  return sum.total;
}

}  // namespace brisko
