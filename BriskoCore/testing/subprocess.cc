#include "testing/subprocess.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <map>
#include <stdexcept>

extern char** environ;

namespace brisko::testing {

namespace {

std::vector<std::string> mergedEnvironment(const ProcessOptions& options) {
  std::map<std::string, std::string> variables;
  for (char** entry = environ; *entry != nullptr; ++entry) {
    const std::string text(*entry);
    const auto equals = text.find('=');
    if (equals != std::string::npos) variables[text.substr(0, equals)] = text.substr(equals + 1);
  }
  for (const auto& name : options.unsetEnvironment)
    variables.erase(name);
  for (const auto& [name, value] : options.environment)
    variables[name] = value;
  std::vector<std::string> result;
  for (const auto& [name, value] : variables)
    result.push_back(name + "=" + value);
  return result;
}

std::vector<char*> pointers(std::vector<std::string>& texts) {
  std::vector<char*> result;
  for (auto& text : texts)
    result.push_back(text.data());
  result.push_back(nullptr);
  return result;
}

void makePipe(int fds[2]) {
  if (::pipe2(fds, O_CLOEXEC) != 0) throw std::runtime_error("pipe failed");
}

}  // namespace

ProcessResult runProcess(const std::vector<std::string>& argv, const ProcessOptions& options) {
  int in[2] = {-1, -1}, out[2], err[2];
  if (!options.closeStandardInput) makePipe(in);
  makePipe(out);
  makePipe(err);

  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  if (options.closeStandardInput) {
    posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
  } else {
    posix_spawn_file_actions_adddup2(&actions, in[0], 0);
  }
  posix_spawn_file_actions_adddup2(&actions, out[1], 1);
  posix_spawn_file_actions_adddup2(&actions, err[1], 2);

  std::vector<std::string> arguments = argv;
  std::vector<std::string> environment = mergedEnvironment(options);
  auto argumentPointers = pointers(arguments);
  auto environmentPointers = pointers(environment);
  pid_t pid;
  const int spawned = ::posix_spawnp(&pid, argumentPointers[0], &actions, nullptr,
                                     argumentPointers.data(), environmentPointers.data());
  posix_spawn_file_actions_destroy(&actions);
  if (!options.closeStandardInput) ::close(in[0]);
  ::close(out[1]);
  ::close(err[1]);
  if (spawned != 0) {
    if (!options.closeStandardInput) ::close(in[1]);
    ::close(out[0]);
    ::close(err[0]);
    throw std::runtime_error("Cannot start " + argv[0] + ": " + std::strerror(spawned));
  }

  ProcessResult result;
  size_t inputWritten = 0;
  int inputFd = options.closeStandardInput ? -1 : in[1];
  if (inputFd >= 0 && options.standardInput.empty()) {
    ::close(inputFd);
    inputFd = -1;
  }
  if (inputFd >= 0) ::fcntl(inputFd, F_SETFL, O_NONBLOCK);
  int outFd = out[0], errFd = err[0];
  while (outFd >= 0 || errFd >= 0 || inputFd >= 0) {
    pollfd fds[3];
    int count = 0;
    if (inputFd >= 0) fds[count++] = {inputFd, POLLOUT, 0};
    if (outFd >= 0) fds[count++] = {outFd, POLLIN, 0};
    if (errFd >= 0) fds[count++] = {errFd, POLLIN, 0};
    if (::poll(fds, static_cast<nfds_t>(count), -1) < 0) {
      if (errno == EINTR) continue;
      break;
    }
    for (int i = 0; i < count; ++i) {
      if (fds[i].revents == 0) continue;
      if (fds[i].fd == inputFd) {
        const ssize_t n = ::write(inputFd, options.standardInput.data() + inputWritten,
                                  options.standardInput.size() - inputWritten);
        if (n > 0) inputWritten += static_cast<size_t>(n);
        if (n < 0 && errno != EAGAIN && errno != EINTR) inputWritten = options.standardInput.size();
        if (inputWritten == options.standardInput.size()) {
          ::close(inputFd);
          inputFd = -1;
        }
        continue;
      }
      char buffer[65536];
      const ssize_t n = ::read(fds[i].fd, buffer, sizeof buffer);
      if (n > 0) {
        (fds[i].fd == outFd ? result.standardOutput : result.standardError)
            .append(buffer, static_cast<size_t>(n));
      } else if (n == 0 || (errno != EINTR && errno != EAGAIN)) {
        ::close(fds[i].fd);
        (fds[i].fd == outFd ? outFd : errFd) = -1;
      }
    }
  }
  int status = 0;
  while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {
  }
  if (WIFEXITED(status)) result.exitStatus = WEXITSTATUS(status);
  if (WIFSIGNALED(status)) result.signal = WTERMSIG(status);
  return result;
}

std::vector<std::string> linesOf(const std::string& text) {
  std::vector<std::string> lines;
  size_t start = 0;
  while (start < text.size()) {
    const auto feed = text.find('\n', start);
    if (feed == std::string::npos) {
      lines.push_back(text.substr(start));
      break;
    }
    lines.push_back(text.substr(start, feed - start));
    start = feed + 1;
  }
  return lines;
}

}  // namespace brisko::testing
