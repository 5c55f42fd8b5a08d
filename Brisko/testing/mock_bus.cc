#include "testing/mock_bus.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <thread>

#include "batteries/dbus_client.h"
#include "testing/subprocess.h"

extern char** environ;

namespace brisko::testing {
namespace {

pid_t spawn(const std::vector<std::string>& argv, int standardOutput) {
  std::vector<char*> args;
  for (const std::string& arg : argv)
    args.push_back(const_cast<char*>(arg.c_str()));
  args.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
  if (standardOutput >= 0)
    posix_spawn_file_actions_adddup2(&actions, standardOutput, 1);
  else
    posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
  pid_t pid = -1;
  if (posix_spawnp(&pid, args[0], &actions, nullptr, args.data(), environ) != 0) pid = -1;
  posix_spawn_file_actions_destroy(&actions);
  return pid;
}

void end(pid_t pid) {
  if (pid <= 0) return;
  ::kill(pid, SIGTERM);
  int status = 0;
  ::waitpid(pid, &status, 0);
}

}  // namespace

MockBus::MockBus() {
  int pipe[2];
  if (::pipe2(pipe, O_CLOEXEC) != 0) return;
  daemon_ = spawn({"dbus-daemon", "--session", "--nofork", "--print-address=1"}, pipe[1]);
  ::close(pipe[1]);
  std::string address;
  char c = 0;
  while (::read(pipe[0], &c, 1) == 1 && c != '\n')
    address += c;
  ::close(pipe[0]);
  if (daemon_ <= 0 || address.empty()) {
    end(daemon_);
    daemon_ = -1;
    return;
  }
  ::setenv("DBUS_SESSION_BUS_ADDRESS", address.c_str(), 1);
  ::setenv("DBUS_SYSTEM_BUS_ADDRESS", address.c_str(), 1);
}

MockBus::~MockBus() {
  for (const auto& [name, pid] : templates_)
    end(pid);
  end(daemon_);
}

bool MockBus::startTemplate(const std::string& name, const std::string& busName) {
  const pid_t pid = spawn({"/usr/bin/python3", "-m", "dbusmock", "--template", name}, -1);
  if (pid <= 0) return false;
  templates_[name] = pid;
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
  while (std::chrono::steady_clock::now() < deadline) {
    const auto connection = DBusConnection::open(BusKind::session);
    if (connection && connection->nameHasOwner(busName.c_str()) == true) return true;
    int status = 0;
    if (::waitpid(pid, &status, WNOHANG) == pid) {
      templates_.erase(name);
      return false;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
  }
  return false;
}

void MockBus::stopTemplate(const std::string& name) {
  const auto found = templates_.find(name);
  if (found == templates_.end()) return;
  end(found->second);
  templates_.erase(found);
}

std::string MockBus::call(const std::string& destination, const std::string& path,
                          const std::string& method, const std::vector<std::string>& arguments) {
  std::vector<std::string> argv{"gdbus",         "call", "--session", "--dest", destination,
                                "--object-path", path,   "--method",  method};
  argv.insert(argv.end(), arguments.begin(), arguments.end());
  const ProcessResult result = runProcess(argv);
  if (result.exitStatus != 0) return "error: " + result.standardError;
  return result.standardOutput;
}

}  // namespace brisko::testing
