#pragma once

#include <optional>
#include <string>
#include <vector>

namespace brisko {

// One entry of the process list that guards are tested against: the
// executable's last path component and its full path.
struct RunningProcess {
  std::string name;
  std::string path;

  bool operator==(const RunningProcess&) const = default;
};

// Absent when the list couldn't be read, which is not the same as an empty
// list: guards fail closed on the first and pass on the second.
using RunningProcesses = std::optional<std::vector<RunningProcess>>;

}  // namespace brisko
