#include "testing/ordinary_user.h"

#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "testing/temporary_directory.h"

namespace brisko::testing {

int runTestsAsOrdinaryUser(std::string_view gtestFilter,
                           const std::vector<std::pair<std::string, std::string>>& environment) {
  char binary[PATH_MAX];
  const ssize_t length = ::readlink("/proc/self/exe", binary, sizeof binary - 1);
  if (length <= 0) return -1;
  binary[length] = '\0';
  // A clone in a private folder (a home of mode 0700) can't be run by the
  // ordinary user: run a copy from a place it can reach instead.
  struct Runnable {
    std::string path;
    std::string copyFolder;  // removed when the test process ends
    ~Runnable() {
      if (!copyFolder.empty()) removeTree(copyFolder);
    }
  };
  static const Runnable runnable = [&] {
    Runnable result{binary, {}};
    if (isReachableByOtherUsers(binary)) return result;
    std::string folder = "/tmp/brisko-ordinary-user-XXXXXX";
    if (::mkdtemp(folder.data()) == nullptr) return result;
    ::chmod(folder.c_str(), 0755);
    const std::string copy = folder + "/tests";
    std::error_code error;
    std::filesystem::copy_file(binary, copy, error);
    ::chmod(copy.c_str(), 0755);
    if (!error) result.path = copy;
    result.copyFolder = folder;
    return result;
  }();
  const std::string filter = "--gtest_filter=" + std::string(gtestFilter);
  const pid_t child = ::fork();
  if (child < 0) return -1;
  if (child == 0) {
    for (const auto& [name, value] : environment)
      ::setenv(name.c_str(), value.c_str(), 1);
    ::execl("/usr/bin/setpriv", "setpriv", "--reuid=65534", "--regid=65534", "--clear-groups",
            runnable.path.c_str(), filter.c_str(), static_cast<char*>(nullptr));
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
