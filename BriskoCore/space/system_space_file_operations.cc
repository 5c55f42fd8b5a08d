#include <cstdlib>

#include "base/standardized_path.h"
#include "cleanup/safe_removal.h"
#include "platform/trash_mover.h"
#include "space/space_file_operations.h"

namespace brisko {

SystemSpaceFileOperations::SystemSpaceFileOperations(std::string homeDirectory)
    : homeDirectory_(standardizedPath(homeDirectory)) {}

std::optional<std::string> SystemSpaceFileOperations::moveToTrash(const std::string& path) {
  return TrashMover::move(path);
}

std::optional<std::string> SystemSpaceFileOperations::removeItem(const std::string& path) {
  // The removal walks from "/" refusing every link, so a home under a linked
  // folder would fail every item: the home is resolved here, once, and the
  // rest of the path is taken literally below it.
  std::string target = path;
  const std::string prefix = homeDirectory_ == "/" ? "/" : homeDirectory_ + "/";
  if (target.starts_with(prefix)) {
    if (char* real = ::realpath(homeDirectory_.c_str(), nullptr)) {
      const std::string resolved(real);
      std::free(real);
      target = (resolved == "/" ? "" : resolved) + "/" + target.substr(prefix.size());
    }
  }
  return removeWithoutFollowingLinks(target);
}

}  // namespace brisko
