#include "cleanup/cleanup_plan_repository.h"

#include <unistd.h>

#include <cerrno>
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
  writeFileAtomically(pathFor(plan.id), encodeJson(plan, /*pretty=*/true));
}

CleanupPlan CleanupPlanRepository::load(const Uuid& id) const {
  const auto contents = readFileContents(pathFor(id));
  if (!contents) throw CleanupPlanningError(CleanupPlanningError::Kind::planNotFound);
  return decodeJson<CleanupPlan>(*contents);
}

void CleanupPlanRepository::remove(const Uuid& id) const {
  const std::string path = pathFor(id);
  if (::unlink(path.c_str()) != 0 && errno != ENOENT) {
    throw std::system_error(errno, std::generic_category(), "Cannot remove the plan " + path);
  }
}

}  // namespace brisko
