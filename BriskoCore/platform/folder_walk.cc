#include "platform/folder_walk.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <vector>

namespace brisko {

void Descriptor::reset() {
  if (fd_ >= 0) ::close(fd_);
  fd_ = -1;
}

std::optional<FolderPlacement> placementAt(int folder, const char* name) {
  struct statx info;
  const int flags = AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT | (*name == '\0' ? AT_EMPTY_PATH : 0);
  if (::statx(folder, name, flags, STATX_TYPE | STATX_INO | STATX_MNT_ID, &info) != 0) {
    return std::nullopt;
  }
  FolderPlacement placement;
  placement.device = makedev(info.stx_dev_major, info.stx_dev_minor);
  placement.inode = info.stx_ino;
  placement.fileType = info.stx_mode & S_IFMT;
  if (info.stx_mask & STATX_MNT_ID) placement.mountID = info.stx_mnt_id;
  return placement;
}

Descriptor openFolderAt(int parent, const char* name) {
  int fd;
  do {
    fd = ::openat(parent, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
  } while (fd < 0 && errno == EINTR);
  return Descriptor(fd);
}

namespace {

// Levels whose descriptors a descent keeps; below them a parent is let go and
// found again through "..".
constexpr std::size_t kHeldLevels = 32;

struct ListedName {
  std::string name;
  unsigned char type = DT_UNKNOWN;
};

// Every name of the folder open at `folder`, read to its end.
bool readNames(int folder, std::vector<char>& buffer, std::vector<ListedName>& names, int& error) {
  names.clear();
  for (;;) {
    const long got = ::syscall(SYS_getdents64, folder, buffer.data(), buffer.size());
    if (got < 0) {
      error = errno;
      return false;
    }
    if (got == 0) return true;
    for (long offset = 0; offset < got;) {
      // glibc's dirent64 has the layout of the kernel's getdents64 record.
      const auto* record = reinterpret_cast<const struct dirent64*>(buffer.data() + offset);
      offset += record->d_reclen;
      const char* name = record->d_name;
      if (name[0] == '.' && (name[1] == '\0' || (name[1] == '.' && name[2] == '\0'))) continue;
      names.push_back({name, record->d_type});
    }
  }
}

// The process-wide allowance of descriptors that walks hold for later: a
// quarter of the soft limit, so that the rest of the program (and a scan's
// many walks at once) never run short.
class HeldDescriptors {
 public:
  static bool take() {
    const int limit = allowance();
    int held = count().load(std::memory_order_relaxed);
    do {
      if (held >= limit) return false;
    } while (!count().compare_exchange_weak(held, held + 1, std::memory_order_relaxed));
    return true;
  }
  static void give() { count().fetch_sub(1, std::memory_order_relaxed); }

 private:
  static std::atomic<int>& count() {
    static std::atomic<int> held{0};
    return held;
  }
  static int allowance() {
    static const int value = [] {
      struct rlimit limit;
      if (::getrlimit(RLIMIT_NOFILE, &limit) != 0 || limit.rlim_cur == RLIM_INFINITY) return 256;
      return static_cast<int>(std::clamp<rlim_t>(limit.rlim_cur / 4, 8, 256));
    }();
    return value;
  }
};

}  // namespace

DescentEnd descendFolders(Descriptor root, std::string rootPath, FolderVisitor& visitor) {
  struct Frame {
    Descriptor folder;  // invalid once let go
    FolderPlacement placement;
    std::vector<ListedName> names;
    std::size_t next = 0;
    std::size_t pathLength = 0;  // of the path text up to this folder
  };
  std::vector<char> buffer(64 * 1024);
  std::vector<Frame> frames;
  std::string path = std::move(rootPath);

  {
    Frame top;
    int error = 0;
    const auto placement = placementAt(root.get(), "");
    if (!placement)
      return visitor.failed(-1, path, errno) == FolderVisitor::Step::stop ? DescentEnd::stopped
                                                                          : DescentEnd::finished;
    top.placement = *placement;
    if (!readNames(root.get(), buffer, top.names, error)) {
      return visitor.failed(-1, path, error) == FolderVisitor::Step::stop ? DescentEnd::stopped
                                                                          : DescentEnd::finished;
    }
    top.folder = std::move(root);
    top.pathLength = path.size();
    frames.push_back(std::move(top));
  }

  while (!frames.empty()) {
    Frame& top = frames.back();
    if (top.next < top.names.size()) {
      const ListedName& entry = top.names[top.next++];
      path.resize(top.pathLength);
      const FolderVisitor::Step step =
          visitor.visit(top.folder.get(), path, entry.name, entry.type);
      if (step == FolderVisitor::Step::stop) return DescentEnd::stopped;
      if (step == FolderVisitor::Step::next) continue;

      Descriptor child = openFolderAt(top.folder.get(), entry.name.c_str());
      const auto placement = child.valid() ? placementAt(child.get(), "") : std::nullopt;
      if (!placement) {
        if (visitor.failed(top.folder.get(), entry.name, errno) == FolderVisitor::Step::stop)
          return DescentEnd::stopped;
        continue;
      }
      if (!visitor.entering(child.get(), *placement)) continue;
      Frame next;
      int error = 0;
      if (!readNames(child.get(), buffer, next.names, error)) {
        if (visitor.failed(-1, entry.name, error) == FolderVisitor::Step::stop)
          return DescentEnd::stopped;
        // An unreadable folder is still left, so that its parent hears of it.
      }
      if (path.empty() || path.back() != '/') path.push_back('/');
      path += entry.name;
      next.folder = std::move(child);
      next.placement = *placement;
      next.pathLength = path.size();
      // Deep down, the parent is let go: it is found again through "..".
      if (frames.size() >= kHeldLevels) top.folder.reset();
      frames.push_back(std::move(next));  // `top` is not used past this point
      continue;
    }

    if (frames.size() == 1) break;  // the root itself is the caller's
    Frame done = std::move(frames.back());
    frames.pop_back();
    Frame& parent = frames.back();
    if (!parent.folder.valid()) {
      Descriptor up = openFolderAt(done.folder.get(), "..");
      const auto placement = up.valid() ? placementAt(up.get(), "") : std::nullopt;
      // A folder moved elsewhere meanwhile has another parent: the walk
      // must not carry on in a place it never went down into.
      if (!placement || !placement->sameThing(parent.placement)) return DescentEnd::moved;
      parent.folder = std::move(up);
    }
    done.folder.reset();
    const std::string& name = parent.names[parent.next - 1].name;
    if (visitor.left(parent.folder.get(), name) == FolderVisitor::Step::stop)
      return DescentEnd::stopped;
  }
  return DescentEnd::finished;
}

FolderHandle::FolderHandle(Ptr parent, std::string name, std::size_t depth, bool followsLink)
    : parent_(std::move(parent)),
      name_(std::move(name)),
      depth_(depth),
      followsLink_(followsLink) {}

FolderHandle::Ptr FolderHandle::root(std::string path, bool followsLinkAtRoot) {
  return Ptr(new FolderHandle(nullptr, std::move(path), 0, followsLinkAtRoot));
}

FolderHandle::Ptr FolderHandle::child(const Ptr& parent, std::string name) {
  return Ptr(new FolderHandle(parent, std::move(name), parent->depth_ + 1, false));
}

FolderHandle::~FolderHandle() {
  if (held_.valid()) HeldDescriptors::give();
  // A deep chain is let go one link at a time, not by nested destructors.
  Ptr parent = std::move(parent_);
  while (parent && parent.use_count() == 1) {
    Ptr next = std::move(parent->parent_);
    parent.reset();
    parent = std::move(next);
  }
}

Descriptor FolderHandle::open(int& error) {
  error = 0;
  Descriptor folder;
  if (!parent_) {
    int fd;
    do {
      fd = ::open(name_.c_str(),
                  O_RDONLY | O_DIRECTORY | O_CLOEXEC | (followsLink_ ? 0 : O_NOFOLLOW));
    } while (fd < 0 && errno == EINTR);
    if (fd < 0) error = errno;
    folder = Descriptor(fd);
  } else {
    // The parent lets go of its descriptor only once every child has called
    // childOpened(), this one included, so it stays open after the lock is
    // given back. The open itself is done outside the lock: on a cold disk it
    // waits for the folder's inode, and siblings must not wait in line.
    int heldParent = -1;
    {
      std::lock_guard guard(parent_->lock_);
      heldParent = parent_->held_.get();
    }
    const bool fromHeld = heldParent >= 0;
    if (fromHeld) folder = openFolderAt(heldParent, name_.c_str());
    if (!fromHeld) {
      Descriptor parent = parent_->reopened(error);
      if (parent.valid()) folder = openFolderAt(parent.get(), name_.c_str());
    }
    const int openError = errno;
    parent_->childOpened();
    if (!folder.valid()) {
      if (fromHeld || error == 0) error = openError;
      return Descriptor();
    }
  }
  return folder;
}

void FolderHandle::finishedReading(Descriptor folder, std::size_t childFolders) {
  if (childFolders == 0) return;
  // Only a folder with children is ever opened again, so only such a folder
  // records what it is; most folders of a tree are leaves and are spared the
  // call. A folder whose record can't be made can't be opened again: its
  // children then fail as if it had been replaced.
  if (const auto placement = placementAt(folder.get(), "")) placement_ = *placement;
  if (!HeldDescriptors::take()) return;
  std::lock_guard guard(lock_);
  held_ = std::move(folder);
  unopenedChildren_ = childFolders;
}

void FolderHandle::childOpened() {
  std::lock_guard guard(lock_);
  if (unopenedChildren_ > 0 && --unopenedChildren_ == 0 && held_.valid()) {
    held_.reset();
    HeldDescriptors::give();
  }
}

Descriptor FolderHandle::reopened(int& error) {
  // Up to the nearest folder that still holds its descriptor (or the root).
  std::vector<const FolderHandle*> chain;
  Descriptor current;
  for (FolderHandle* at = this; at != nullptr; at = at->parent_.get()) {
    {
      std::lock_guard guard(at->lock_);
      if (at->held_.valid()) current = Descriptor(::fcntl(at->held_.get(), F_DUPFD_CLOEXEC, 0));
    }
    if (current.valid()) break;
    chain.push_back(at);
  }
  // Then down again, each folder checked to be the one first opened there.
  for (auto step = chain.rbegin(); step != chain.rend(); ++step) {
    const FolderHandle& folder = **step;
    Descriptor next;
    if (!current.valid()) {
      next = Descriptor(::open(folder.name_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC |
                                                         (folder.followsLink_ ? 0 : O_NOFOLLOW)));
    } else {
      next = openFolderAt(current.get(), folder.name_.c_str());
    }
    const auto placement = next.valid() ? placementAt(next.get(), "") : std::nullopt;
    if (!placement) {
      error = errno;
      return Descriptor();
    }
    if (!placement->sameThing(folder.placement_)) {
      error = ESTALE;
      return Descriptor();
    }
    current = std::move(next);
  }
  return current;
}

}  // namespace brisko
