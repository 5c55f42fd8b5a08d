#include "testing/session_bus.h"

#include <unistd.h>

#include <climits>

namespace brisko::testing {

ProcessResult runInSessionBus(const std::vector<std::string>& argv, const ProcessOptions& options) {
  std::vector<std::string> command{"dbus-run-session", "--"};
  command.insert(command.end(), argv.begin(), argv.end());
  return runProcess(command, options);
}

ProcessResult runTestsInSessionBus(std::string_view gtestFilter, const ProcessOptions& options) {
  char binary[PATH_MAX];
  const ssize_t length = ::readlink("/proc/self/exe", binary, sizeof binary - 1);
  if (length <= 0) return {};
  binary[length] = '\0';
  return runInSessionBus({binary, "--gtest_filter=" + std::string(gtestFilter)}, options);
}

}  // namespace brisko::testing
