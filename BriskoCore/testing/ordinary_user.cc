#include "testing/ordinary_user.h"

#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdlib>

namespace brisko::testing {

int runTestsAsOrdinaryUser(std::string_view gtestFilter,
                           const std::vector<std::pair<std::string, std::string>>& environment) {
  char binary[PATH_MAX];
  const ssize_t length = ::readlink("/proc/self/exe", binary, sizeof binary - 1);
  if (length <= 0) return -1;
  binary[length] = '\0';
  const std::string filter = "--gtest_filter=" + std::string(gtestFilter);
  const pid_t child = ::fork();
  if (child < 0) return -1;
  if (child == 0) {
    for (const auto& [name, value] : environment)
      ::setenv(name.c_str(), value.c_str(), 1);
    ::execl("/usr/bin/setpriv", "setpriv", "--reuid=65534", "--regid=65534", "--clear-groups",
            binary, filter.c_str(), static_cast<char*>(nullptr));
    ::_exit(127);
  }
  int status = 0;
  while (::waitpid(child, &status, 0) < 0) {
    if (errno != EINTR) return -1;
  }
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

std::string ordinaryUserArgument(const char* name) {
  const char* value = std::getenv(name);
  return value == nullptr ? std::string() : std::string(value);
}

}  // namespace brisko::testing
