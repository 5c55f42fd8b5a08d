#include "space/disk_usage.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <condition_variable>
#include <mutex>
#include <thread>

#include "base/utf8.h"
#include "platform/file_probe.h"

extern char** environ;

namespace brisko {
namespace {

// Terminates the child when the time runs out, unless cancelled first.
class ChildTimeout {
 public:
  ChildTimeout(pid_t child, std::chrono::seconds timeout)
      : thread_([this, child, timeout] {
          std::unique_lock guard(lock_);
          if (!wake_.wait_for(guard, timeout, [this] { return cancelled_; }))
            ::kill(child, SIGTERM);
        }) {}
  ~ChildTimeout() {
    {
      std::lock_guard guard(lock_);
      cancelled_ = true;
    }
    wake_.notify_one();
    thread_.join();
  }

 private:
  std::mutex lock_;
  std::condition_variable wake_;
  bool cancelled_ = false;
  std::thread thread_;
};

std::map<std::string, std::int64_t> parseDuOutput(const std::string& raw) {
  std::map<std::string, std::int64_t> sizes;
  const std::string text = repairedUtf8(raw);
  size_t start = 0;
  while (start < text.size()) {
    size_t end = text.find('\n', start);
    if (end == std::string::npos) end = text.size();
    const std::string_view line(text.data() + start, end - start);
    start = end + 1;
    const size_t tab = line.find('\t');
    if (tab == std::string_view::npos || tab == 0) continue;
    std::int64_t kilobytes = 0;
    const auto parsed = std::from_chars(line.data(), line.data() + tab, kilobytes);
    if (parsed.ec != std::errc() || parsed.ptr != line.data() + tab) continue;
    sizes[std::string(line.substr(tab + 1))] = kilobytes * 1024;
  }
  return sizes;
}

}  // namespace

std::map<std::string, std::int64_t> DiskUsage::runDu(const std::vector<std::string>& directories,
                                                     std::chrono::seconds timeout) {
  int pipeFds[2];
  if (::pipe2(pipeFds, O_CLOEXEC) != 0) return {};

  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
  posix_spawn_file_actions_adddup2(&actions, pipeFds[1], STDOUT_FILENO);
  posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);

  std::vector<std::string> arguments{kDuPath, "-skP", "--"};
  arguments.insert(arguments.end(), directories.begin(), directories.end());
  std::vector<char*> argv;
  for (auto& argument : arguments)
    argv.push_back(argument.data());
  argv.push_back(nullptr);

  pid_t child = 0;
  const int spawned = ::posix_spawn(&child, kDuPath, &actions, nullptr, argv.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  ::close(pipeFds[1]);
  if (spawned != 0) {
    ::close(pipeFds[0]);
    return {};
  }

  std::string output;
  {
    ChildTimeout guard(child, timeout);
    char chunk[65536];
    for (;;) {
      const ssize_t count = ::read(pipeFds[0], chunk, sizeof chunk);
      if (count > 0) {
        output.append(chunk, static_cast<size_t>(count));
      } else if (count == 0 || errno != EINTR) {
        break;
      }
    }
    ::close(pipeFds[0]);
    int status = 0;
    while (::waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
  }
  return parseDuOutput(output);
}

std::map<std::string, std::int64_t> DiskUsage::allocatedBytes(const std::vector<std::string>& paths,
                                                              std::chrono::seconds timeout) {
  std::map<std::string, std::int64_t> sizes;
  std::vector<std::string> directories;
  for (const auto& path : paths) {
    if (sizes.contains(path)) continue;
    struct stat info;
    if (::lstat(path.c_str(), &info) != 0 || S_ISLNK(info.st_mode)) {
      sizes[path] = 0;
    } else if (S_ISDIR(info.st_mode)) {
      sizes[path] = 0;
      directories.push_back(path);
    } else {
      std::int64_t allowance = FileProbe::kDefaultAllowance;
      sizes[path] = FileProbe::boundedBytes(path, allowance);
    }
  }
  if (directories.empty()) return sizes;

  const auto measured = runDu(directories, timeout);
  for (const auto& directory : directories) {
    const auto found = measured.find(directory);
    sizes[directory] =
        found != measured.end() ? found->second : FileProbe::allocatedBytes(directory);
  }
  return sizes;
}

}  // namespace brisko
