#include "platform/program_output.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

extern char** environ;

namespace brisko {

namespace {

std::vector<std::string> environmentWith(
    const std::vector<std::pair<std::string, std::string>>& changes) {
  std::vector<std::string> entries;
  for (char** entry = environ; entry != nullptr && *entry != nullptr; ++entry) {
    const std::string text(*entry);
    bool replaced = false;
    for (const auto& [name, value] : changes)
      replaced = replaced || text.compare(0, name.size() + 1, name + "=") == 0;
    if (!replaced) entries.push_back(text);
  }
  for (const auto& [name, value] : changes)
    entries.push_back(name + "=" + value);
  return entries;
}

}  // namespace

std::optional<ProgramOutput> runProgram(const std::vector<std::string>& argv,
                                        std::chrono::milliseconds timeout,
                                        const ProgramOptions& options) {
  if (argv.empty()) return std::nullopt;
  const std::vector<std::string> environment = environmentWith(options.environment);
  std::vector<char*> environmentPointers;
  for (const auto& entry : environment)
    environmentPointers.push_back(const_cast<char*>(entry.c_str()));
  environmentPointers.push_back(nullptr);
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
  // A group of its own: a time limit ends what the program started, too.
  posix_spawnattr_t attributes;
  posix_spawnattr_init(&attributes);
  posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETPGROUP);
  posix_spawnattr_setpgroup(&attributes, 0);
  pid_t child = 0;
  const int spawned = ::posix_spawn(&child, argv[0].c_str(), &actions, &attributes,
                                    arguments.data(), environmentPointers.data());
  posix_spawnattr_destroy(&attributes);
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
    const size_t room =
        options.outputLimit - std::min(options.outputLimit, output.standardOutput.size());
    output.standardOutput.append(buffer, std::min(room, static_cast<size_t>(count)));
  }
  ::close(pipeFds[0]);
  if (timedOut) ::kill(-child, SIGKILL);
  int status = 0;
  while (::waitpid(child, &status, 0) < 0 && errno == EINTR) {
  }
  if (timedOut || !WIFEXITED(status)) return std::nullopt;
  output.exitStatus = WEXITSTATUS(status);
  return output;
}

}  // namespace brisko
