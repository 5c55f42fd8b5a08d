#pragma once

// Everything here runs as root, and root reads a folder of mode 000; so a test
// of permission denial runs its check again in this test binary, as the
// unprivileged user 65534, through setpriv.

#include <string>
#include <vector>

namespace brisko::testing {

// Runs the tests matching `gtestFilter` (disabled ones included, which is how
// such child tests keep out of the ordinary run) in a new process of this
// binary as user and group 65534 with no extra groups, with `environment`
// ("NAME=value") added. Returns the exit status, or -1 if it could not run.
int runTestsAsOrdinaryUser(const std::string& gtestFilter,
                           const std::vector<std::string>& environment = {});

}  // namespace brisko::testing
