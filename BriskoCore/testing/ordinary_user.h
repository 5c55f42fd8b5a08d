#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace brisko::testing {

// Everything here runs as root, and root reads a folder of mode 000, so a
// test of permission denial runs its code as an ordinary user: this starts
// the running test binary again under `setpriv` as uid and gid 65534 with no
// groups, running only the tests that `gtestFilter` picks, with `environment`
// added. Answers the child's exit status (0 when its tests passed), or -1
// when it could not be started. The child's output goes to ours.
int runTestsAsOrdinaryUser(std::string_view gtestFilter,
                           const std::vector<std::pair<std::string, std::string>>& environment);

// The value of an environment variable set by the parent, or empty when the
// test runs on its own (and should then skip).
std::string ordinaryUserArgument(const char* name);

}  // namespace brisko::testing
