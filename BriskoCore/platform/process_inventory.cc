#include "platform/process_inventory.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
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

std::optional<std::string> smallFile(const std::string& path) {
  const int fd = ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  if (fd < 0) return std::nullopt;
  std::string text;
  char buffer[4096];
  while (text.size() < 65536) {
    const ssize_t length = ::read(fd, buffer, sizeof buffer);
    if (length < 0 && errno == EINTR) continue;
    if (length <= 0) break;
    text.append(buffer, static_cast<size_t>(length));
  }
  ::close(fd);
  return text;
}

// A name that can stand as one path component.
bool isComponent(std::string_view name) {
  return !name.empty() && name != "." && name != ".." && name.find('/') == std::string_view::npos;
}

// The application of a Flatpak sandbox: "name" of the [Application] group of
// the /.flatpak-info that Flatpak puts in every sandbox's root (readable by
// the sandbox's own user through /proc/PID/root).
std::optional<std::string> flatpakApplication(const std::string& processFolder) {
  const auto info = smallFile(processFolder + "/root/.flatpak-info");
  if (!info) return std::nullopt;
  bool inApplication = false;
  size_t start = 0;
  while (start < info->size()) {
    size_t end = info->find('\n', start);
    if (end == std::string::npos) end = info->size();
    const std::string_view line = std::string_view(*info).substr(start, end - start);
    start = end + 1;
    if (line.starts_with('[')) {
      inApplication = line == "[Application]";
    } else if (inApplication && line.starts_with("name=")) {
      const std::string_view name = line.substr(5);
      if (isComponent(name)) return std::string(name);
      return std::nullopt;
    }
  }
  return std::nullopt;
}

// The snap a process runs for, from its "snap.<name>.<app>" control group.
std::optional<std::string> snapName(const std::string& processFolder) {
  const auto cgroups = smallFile(processFolder + "/cgroup");
  if (!cgroups) return std::nullopt;
  for (size_t at = cgroups->find("/snap."); at != std::string::npos;
       at = cgroups->find("/snap.", at + 1)) {
    const size_t nameStart = at + 6;
    const size_t dot = cgroups->find_first_of(".\n/", nameStart);
    if (dot == std::string::npos || (*cgroups)[dot] != '.') continue;
    const std::string name = cgroups->substr(nameStart, dot - nameStart);
    if (isComponent(name)) return name;
  }
  return std::nullopt;
}

bool isOwnProcess(const std::string& processFolder) {
  struct stat info;
  return ::stat(processFolder.c_str(), &info) == 0 && info.st_uid == ::geteuid();
}

std::string joinedPath(const std::string& prefix, const std::string& path) {
  return prefix + (path.starts_with('/') ? "" : "/") + path;
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
    process.name = lastPathComponent(repairedUtf8(*path));
    // A sandboxed process sees its own file system: its paths are put below
    // a place named after its application, which the guards of Flatpak and
    // Snap caches look for.
    if (const auto application = flatpakApplication(processFolder)) {
      *path = joinedPath("/flatpak/app/" + *application, *path);
    } else if (path->starts_with("/app/") && isOwnProcess(processFolder)) {
      // Ours, sandboxed, and yet we can't tell which application it is,
      // unless it has just ended.
      if (::access(processFolder.c_str(), F_OK) != 0) continue;
      return std::nullopt;
    } else if (const auto snap = snapName(processFolder)) {
      const std::string prefix = "/snap/" + *snap;
      if (!path->starts_with(prefix + "/")) *path = joinedPath(prefix, *path);
    }
    process.path = repairedUtf8(*path);
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
