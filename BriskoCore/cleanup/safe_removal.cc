#include "cleanup/safe_removal.h"

#include <dirent.h>
#include <fcntl.h>
#include <pthread.h>
#include <signal.h>
#include <stdio.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <vector>

#include "base/path_components.h"
#include "base/uuid.h"

namespace brisko {

namespace {

std::string systemWords(int error) {
  return std::strerror(error);
}

std::string joinedPath(const std::string& folder, const std::string& name) {
  return folder.empty() || folder.back() != '/' ? folder + "/" + name : folder + name;
}

bool matches(const FolderPlacement& placement, const FileIdentitySnapshot& expected) {
  return placement.device == expected.deviceID && placement.inode == expected.fileID &&
         placement.fileType == expected.fileType;
}

// Size and modification time as planned. Device and inode alone are not
// enough for a file: when the planned file is deleted and another is saved
// under its name, the new file may be given the freed inode.
bool sameContentState(int folder, const std::string& name, const FileIdentitySnapshot& expected) {
  struct stat info;
  if (::fstatat(folder, name.c_str(), &info, AT_SYMLINK_NOFOLLOW) != 0) return false;
  std::int64_t nanoseconds = 0;
  if (__builtin_mul_overflow(static_cast<std::int64_t>(info.st_mtim.tv_sec), 1'000'000'000,
                             &nanoseconds) ||
      __builtin_add_overflow(nanoseconds, static_cast<std::int64_t>(info.st_mtim.tv_nsec),
                             &nanoseconds)) {
    return false;
  }
  return static_cast<std::int64_t>(info.st_size) == expected.logicalBytes &&
         nanoseconds == expected.modificationTimeNanoseconds;
}

// Empties a folder depth-first: files and links go with unlinkat, which never
// follows a link, and each folder is left through ".." checked against the
// one gone down from, then removed from its parent.
class Remover : public FolderVisitor {
 public:
  explicit Remover(FolderPlacement mount) : mount_(std::move(mount)) {}

  Step visit(int folder, const std::string&, const std::string& name, unsigned char) override {
    // Try it as a file or link first: unlinkat never follows a link, and
    // refuses a folder with EISDIR.
    if (::unlinkat(folder, name.c_str(), 0) == 0) return Step::next;
    if (errno == ENOENT) return Step::next;  // gone already: nothing left to remove
    if (errno != EISDIR && errno != EPERM) return fail(errno);
    return Step::enter;
  }

  bool entering(int, const FolderPlacement& placement) override {
    // Another file system, or a bind mount of this one, is never entered.
    if (placement.sameMount(mount_)) return true;
    fail(EXDEV);
    stopped_ = true;
    return false;
  }

  Step left(int parent, const std::string& name) override {
    if (stopped_) return Step::stop;
    // Only an empty folder can go, so a folder swapped in meanwhile survives.
    if (::unlinkat(parent, name.c_str(), AT_REMOVEDIR) == 0 || errno == ENOENT) return Step::next;
    return fail(errno);
  }

  Step failed(int parent, const std::string& name, int error) override {
    // ENOTDIR or ELOOP: it was swapped for a file or a link since; retry once
    // as such, which removes the link itself.
    if (parent >= 0 && (error == ENOTDIR || error == ELOOP)) {
      if (::unlinkat(parent, name.c_str(), 0) == 0 || errno == ENOENT) return Step::next;
      error = errno;
    }
    if (parent >= 0 && error == ENOENT) return Step::next;
    return fail(error);
  }

  // Runs the whole emptying; true when nothing stopped it.
  bool empty(Descriptor folder, const std::string& path) {
    switch (descendFolders(std::move(folder), path, *this)) {
      case DescentEnd::finished:
        return !stopped_;
      case DescentEnd::stopped:
        return false;
      case DescentEnd::moved:
        failure_ = kRemovalIdentityChanged;
        return false;
    }
    return false;
  }

  const std::string& failure() const { return failure_; }

 private:
  Step fail(int error) {
    if (failure_.empty()) failure_ = systemWords(error);
    stopped_ = true;
    return Step::stop;
  }

  FolderPlacement mount_;
  std::string failure_;
  bool stopped_ = false;
};

// The termination signals, held on the calling thread while a file stands
// under its private name: a request to stop is honoured once the file is
// either gone or back, never in between.
class HeldTerminationSignals {
 public:
  HeldTerminationSignals() {
    sigset_t held;
    sigemptyset(&held);
    for (int signal : {SIGTERM, SIGINT, SIGHUP, SIGQUIT})
      sigaddset(&held, signal);
    ::pthread_sigmask(SIG_BLOCK, &held, &previous_);
  }
  ~HeldTerminationSignals() { ::pthread_sigmask(SIG_SETMASK, &previous_, nullptr); }
  HeldTerminationSignals(const HeldTerminationSignals&) = delete;
  HeldTerminationSignals& operator=(const HeldTerminationSignals&) = delete;

 private:
  sigset_t previous_;
};

// Removes a file or link after making sure, under a private name, that it is
// the expected one; puts anything else back where it was.
std::optional<std::string> removeCheckedEntry(int parent, const std::string& folderPath,
                                              const std::string& name,
                                              const FileIdentitySnapshot& expected,
                                              const RemovalJournal* journal) {
  const std::string parked = std::string(kParkedNamePrefix) + Uuid::random().text();
  const HeldTerminationSignals held;
  if (journal != nullptr) {
    // Written before the rename, so that an engine killed past it leaves a
    // note for the next start to settle.
    try {
      journal->record({joinedPath(folderPath, parked), joinedPath(folderPath, name), expected});
    } catch (const std::exception& error) {
      return std::string(error.what());
    }
  }
  const auto settled = [&](std::optional<std::string> result) {
    if (journal != nullptr) journal->clear();
    return result;
  };
  if (::renameat2(parent, name.c_str(), parent, parked.c_str(), RENAME_NOREPLACE) != 0) {
    return settled(systemWords(errno));
  }
  const auto placement = placementAt(parent, parked.c_str());
  if (!placement || !matches(*placement, expected) || !sameContentState(parent, parked, expected)) {
    // Never the planned file: a file the user saved under the name just now.
    putBack(parent, parked, name);
    return settled(kRemovalIdentityChanged);
  }
  if (::unlinkat(parent, parked.c_str(), 0) != 0) {
    const int error = errno;
    putBack(parent, parked, name);
    return settled(systemWords(error));
  }
  return settled(std::nullopt);
}

// Removes the entry `name` of the open folder `parent`, whose path is
// `folderPath` (for the journal and the walk's own bookkeeping).
std::optional<std::string> removeEntry(int parent, const std::string& folderPath,
                                       const std::string& name,
                                       const std::optional<FileIdentitySnapshot>& expected,
                                       const RemovalJournal* journal) {
  const std::string path = joinedPath(folderPath, name);
  const auto parentPlacement = placementAt(parent, "");
  const auto item = placementAt(parent, name.c_str());
  if (!parentPlacement || !item) return systemWords(errno);
  // An item that is itself a mount point would take a whole file system along.
  if (!item->sameMount(*parentPlacement)) return systemWords(EBUSY);
  if (expected && !matches(*item, *expected)) return kRemovalIdentityChanged;

  if (item->fileType != S_IFDIR) {
    if (expected) return removeCheckedEntry(parent, folderPath, name, *expected, journal);
    if (::unlinkat(parent, name.c_str(), 0) != 0) return systemWords(errno);
    return std::nullopt;
  }
  Descriptor folder = openFolderAt(parent, name.c_str());
  if (!folder.valid()) return systemWords(errno);
  // What is emptied is what was checked: the descriptor's own identity.
  const auto opened = placementAt(folder.get(), "");
  if (!opened) return systemWords(errno);
  if (expected ? !matches(*opened, *expected) : !opened->sameThing(*item)) {
    return kRemovalIdentityChanged;
  }
  Remover remover(*parentPlacement);
  if (!remover.empty(std::move(folder), path)) return remover.failure();
  // Only an empty folder can go, so a folder swapped in meanwhile survives.
  if (::unlinkat(parent, name.c_str(), AT_REMOVEDIR) != 0) return systemWords(errno);
  return std::nullopt;
}

}  // namespace

std::optional<std::string> removeWithoutFollowingLinks(
    const std::string& path, const std::optional<FileIdentitySnapshot>& expected,
    const RemovalJournal* journal) {
  int error = 0;
  std::string name;
  Descriptor parent = openParentWithoutLinks(path, name, error);
  if (!parent.valid()) return systemWords(error);
  return removeEntry(parent.get(), path.substr(0, path.rfind('/')), name, expected, journal);
}

std::optional<std::string> removeEntryWithoutFollowingLinks(
    int parent, const std::string& name, const std::optional<FileIdentitySnapshot>& expected) {
  if (name.empty() || name == "." || name == ".." || name.find('/') != std::string::npos)
    return systemWords(EINVAL);
  return removeEntry(parent, "/proc/self/fd/" + std::to_string(parent), name, expected, nullptr);
}

Descriptor openParentWithoutLinks(const std::string& path, std::string& name, int& error) {
  error = 0;
  if (path.empty() || path.front() != '/') {
    error = EINVAL;
    return Descriptor();
  }
  std::vector<std::string> components;
  size_t from = 1;
  while (from <= path.size()) {
    size_t slash = path.find('/', from);
    if (slash == std::string::npos) slash = path.size();
    std::string component = path.substr(from, slash - from);
    from = slash + 1;
    if (component.empty() || component == ".") continue;
    if (component == "..") {  // only plain paths are removed
      error = EINVAL;
      return Descriptor();
    }
    components.push_back(std::move(component));
  }
  if (components.empty()) {  // never the root
    error = EBUSY;
    return Descriptor();
  }
  Descriptor parent(::open("/", O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  for (size_t i = 0; parent.valid() && i + 1 < components.size(); ++i)
    parent = openFolderAt(parent.get(), components[i].c_str());
  if (!parent.valid()) {
    error = errno;
    return parent;
  }
  name = std::move(components.back());
  return parent;
}

}  // namespace brisko
