#include "cleanup/cleanup_plan_repository.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <stdexcept>
#include <system_error>

#include "base/atomic_file.h"
#include "base/file_contents.h"
#include "cleanup/cleanup_planning_error.h"
#include "platform/home_directory.h"

namespace brisko {

CleanupPlanRepository::CleanupPlanRepository(const std::string& home,
                                             std::optional<std::string> plansDirectory)
    : plansDirectory_(plansDirectory ? std::move(*plansDirectory)
                                     : briskoDataDirectory(home) + "/Plans") {}

std::string CleanupPlanRepository::pathFor(const Uuid& id) const {
  return plansDirectory_ + "/" + id.text() + ".json";
}

void CleanupPlanRepository::save(const CleanupPlan& plan) const {
  createPrivateDirectories(plansDirectory_);
  sweepStaleTemporaryFiles(plansDirectory_);
  writeFileAtomically(pathFor(plan.id), encodeJson(plan, /*pretty=*/true));
}

CleanupPlan CleanupPlanRepository::load(const Uuid& id) const {
  const auto contents = readFileContents(pathFor(id));
  if (!contents) throw CleanupPlanningError(CleanupPlanningError::Kind::planNotFound);
  return decodeJson<CleanupPlan>(*contents);
}

PlanRunLock::~PlanRunLock() {
  if (fd_ >= 0) ::close(fd_);
}

PlanRunLock CleanupPlanRepository::lockForRun(const Uuid& id) const {
  const std::string path = pathFor(id);
  const auto notFound = [] {
    return CleanupPlanningError(CleanupPlanningError::Kind::planNotFound);
  };
  const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK);
  if (fd < 0) throw notFound();
  PlanRunLock lock(fd);
  struct stat held;
  if (::fstat(fd, &held) != 0 || !S_ISREG(held.st_mode)) throw notFound();
  if (::flock(fd, LOCK_EX | LOCK_NB) != 0) {
    if (errno == EWOULDBLOCK) throw std::runtime_error(kPlanAlreadyRunning);
    throw std::system_error(errno, std::generic_category(), "Cannot lock the plan " + path);
  }
  // A run that held the lock until now has removed the file when it ended:
  // the locked file must still be the one under the plan's name.
  struct stat named;
  if (::lstat(path.c_str(), &named) != 0 || named.st_dev != held.st_dev ||
      named.st_ino != held.st_ino) {
    throw notFound();
  }
  return lock;
}

void CleanupPlanRepository::remove(const Uuid& id) const {
  const std::string path = pathFor(id);
  if (::unlink(path.c_str()) != 0 && errno != ENOENT) {
    throw std::system_error(errno, std::generic_category(), "Cannot remove the plan " + path);
  }
}

}  // namespace brisko
