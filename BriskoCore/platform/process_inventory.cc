#include "platform/process_inventory.h"

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <memory>

#include "base/path_components.h"
#include "base/utf8.h"

namespace brisko {

namespace {

bool isProcessId(const char* name) {
  if (*name == '\0') return false;
  for (const char* c = name; *c; ++c) {
    if (*c < '0' || *c > '9') return false;
  }
  return true;
}

std::optional<std::string> executableLink(const std::string& folder) {
  char target[4096];
  const ssize_t length = ::readlink((folder + "/exe").c_str(), target, sizeof target);
  if (length <= 0 || static_cast<size_t>(length) >= sizeof target) return std::nullopt;
  std::string path(target, static_cast<size_t>(length));
  // A replaced executable reads as "/usr/bin/app (deleted)"; the name is still the app's.
  constexpr std::string_view kDeleted = " (deleted)";
  if (path.size() > kDeleted.size() && path.ends_with(kDeleted)) {
    path.resize(path.size() - kDeleted.size());
  }
  return path;
}

std::optional<std::string> firstCommandWord(const std::string& folder) {
  const int fd = ::open((folder + "/cmdline").c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return std::nullopt;
  char buffer[4096];
  const ssize_t length = ::read(fd, buffer, sizeof buffer);
  ::close(fd);
  if (length <= 0) return std::nullopt;  // kernel threads have no command line
  const std::string_view text(buffer, static_cast<size_t>(length));
  const std::string_view word = text.substr(0, text.find('\0'));
  if (word.empty()) return std::nullopt;
  return std::string(word);
}

}  // namespace

RunningProcesses ProcessInventory::snapshot() {
  return snapshot("/proc");
}

RunningProcesses ProcessInventory::snapshot(const std::string& procRoot) {
  std::unique_ptr<DIR, int (*)(DIR*)> folder(::opendir(procRoot.c_str()), ::closedir);
  if (!folder) return std::nullopt;
  std::vector<RunningProcess> processes;
  while (true) {
    errno = 0;
    const dirent* entry = ::readdir(folder.get());
    if (entry == nullptr) {
      if (errno != 0) return std::nullopt;
      break;
    }
    if (!isProcessId(entry->d_name)) continue;
    const std::string processFolder = procRoot + "/" + entry->d_name;
    auto path = executableLink(processFolder);
    if (!path) path = firstCommandWord(processFolder);
    if (!path) continue;
    RunningProcess process;
    process.path = repairedUtf8(*path);
    process.name = lastPathComponent(process.path);
    processes.push_back(std::move(process));
  }
  return processes;
}

bool ProcessInventory::matches(const std::vector<std::string>& names,
                               const std::vector<std::string>& fragments,
                               const RunningProcesses& processes) {
  if (!processes) return true;
  return std::any_of(processes->begin(), processes->end(), [&](const RunningProcess& process) {
    return std::find(names.begin(), names.end(), process.name) != names.end() ||
           std::any_of(fragments.begin(), fragments.end(), [&](const std::string& fragment) {
             return process.path.find(fragment) != std::string::npos;
           });
  });
}

}  // namespace brisko
