#pragma once

#include <optional>
#include <string>

#include "base/uuid.h"
#include "protocol/plan_records.h"

namespace brisko {

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

  // A missing file is no error; a failed removal throws std::system_error.
  void remove(const Uuid& id) const;

  const std::string& plansDirectory() const { return plansDirectory_; }
  std::string pathFor(const Uuid& id) const;

 private:
  std::string plansDirectory_;
};

}  // namespace brisko
