#include "apps/program_output.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>

extern char** environ;

namespace brisko {

std::optional<ProgramOutput> runProgram(const std::vector<std::string>& argv,
                                        std::chrono::milliseconds timeout) {
  if (argv.empty()) return std::nullopt;
  int pipeFds[2];
  if (::pipe2(pipeFds, O_CLOEXEC) != 0) return std::nullopt;
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
  posix_spawn_file_actions_adddup2(&actions, pipeFds[1], STDOUT_FILENO);
  posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
  std::vector<char*> arguments;
  for (const auto& argument : argv)
    arguments.push_back(const_cast<char*>(argument.c_str()));
  arguments.push_back(nullptr);
  pid_t child = 0;
  const int spawned =
      ::posix_spawn(&child, argv[0].c_str(), &actions, nullptr, arguments.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  ::close(pipeFds[1]);
  if (spawned != 0) {
    ::close(pipeFds[0]);
    return std::nullopt;
  }

  ProgramOutput output;
  const auto deadline = std::chrono::steady_clock::now() + timeout;
  bool timedOut = false;
  char buffer[65536];
  for (;;) {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
        deadline - std::chrono::steady_clock::now());
    if (left.count() <= 0) {
      timedOut = true;
      break;
    }
    pollfd watch{pipeFds[0], POLLIN, 0};
    const int ready = ::poll(&watch, 1, static_cast<int>(left.count()));
    if (ready < 0 && errno == EINTR) continue;
    if (ready <= 0) continue;  // the deadline check above ends the wait
    const ssize_t count = ::read(pipeFds[0], buffer, sizeof buffer);
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) break;
    output.standardOutput.append(buffer, static_cast<size_t>(count));
  }
  ::close(pipeFds[0]);
  if (timedOut) ::kill(child, SIGKILL);
  int status = 0;
  while (::waitpid(child, &status, 0) < 0 && errno == EINTR) {
  }
  if (timedOut || !WIFEXITED(status)) return std::nullopt;
  output.exitStatus = WEXITSTATUS(status);
  return output;
}

}  // namespace brisko
