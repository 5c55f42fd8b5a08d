#pragma once

#include <optional>
#include <string>

#include "base/uuid.h"
#include "protocol/plan_records.h"

namespace brisko {

// Held for the length of one run of a plan (an exclusive flock on its file):
// a second engine process running the same plan at once is refused, instead
// of racing the first item by item and writing a second receipt.
class PlanRunLock {
 public:
  explicit PlanRunLock(int fd) : fd_(fd) {}
  PlanRunLock(PlanRunLock&& other) noexcept : fd_(other.fd_) { other.fd_ = -1; }
  PlanRunLock(const PlanRunLock&) = delete;
  PlanRunLock& operator=(const PlanRunLock&) = delete;
  PlanRunLock& operator=(PlanRunLock&&) = delete;
  ~PlanRunLock();

 private:
  int fd_;
};

// The text of a plan that another process is running.
inline constexpr const char* kPlanAlreadyRunning =
    "The cleanup plan is already running in another process.";

// Plans live as <ID>.json between "create-plan" and "execute-plan"; nothing
// else carries a plan from one engine process to the next.
class CleanupPlanRepository {
 public:
  // Without a folder: <brisko data folder of home>/Plans.
  CleanupPlanRepository(const std::string& home, std::optional<std::string> plansDirectory = {});

  // Creates the folder (0700) and writes the plan atomically, pretty-printed
  // with sorted keys. Throws std::system_error.
  void save(const CleanupPlan& plan) const;

  // Throws CleanupPlanningError planNotFound when the file can't be read, and
  // DecodingError when it isn't a plan.
  CleanupPlan load(const Uuid& id) const;

  // Takes the plan's run lock. Throws CleanupPlanningError planNotFound when
  // the file is missing or not a regular file (also when a run that held it
  // removed it meanwhile), and std::runtime_error kPlanAlreadyRunning when
  // another process holds it.
  PlanRunLock lockForRun(const Uuid& id) const;

  // A missing file is no error; a failed removal throws std::system_error.
  void remove(const Uuid& id) const;

  const std::string& plansDirectory() const { return plansDirectory_; }
  std::string pathFor(const Uuid& id) const;

 private:
  std::string plansDirectory_;
};

}  // namespace brisko
