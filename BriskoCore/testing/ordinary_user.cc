#include "testing/ordinary_user.h"

#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <climits>

extern char** environ;

namespace brisko::testing {

int runTestsAsOrdinaryUser(const std::string& gtestFilter,
                           const std::vector<std::string>& environment) {
  char self[PATH_MAX];
  const ssize_t length = ::readlink("/proc/self/exe", self, sizeof self - 1);
  if (length <= 0) return -1;
  self[length] = '\0';

  std::vector<std::string> arguments{"setpriv",
                                     "--reuid=65534",
                                     "--regid=65534",
                                     "--clear-groups",
                                     self,
                                     "--gtest_also_run_disabled_tests",
                                     "--gtest_filter=" + gtestFilter};
  std::vector<char*> argv;
  for (auto& argument : arguments)
    argv.push_back(argument.data());
  argv.push_back(nullptr);

  std::vector<std::string> variables;
  for (char** entry = environ; *entry != nullptr; ++entry)
    variables.emplace_back(*entry);
  variables.insert(variables.end(), environment.begin(), environment.end());
  std::vector<char*> envp;
  for (auto& variable : variables)
    envp.push_back(variable.data());
  envp.push_back(nullptr);

  pid_t child = 0;
  if (::posix_spawnp(&child, "setpriv", nullptr, nullptr, argv.data(), envp.data()) != 0) return -1;
  int status = 0;
  while (::waitpid(child, &status, 0) < 0) {
    if (errno != EINTR) return -1;
  }
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

}  // namespace brisko::testing
