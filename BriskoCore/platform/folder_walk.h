#pragma once

// How every walk of a tree opens its folders, whatever the tree holds: no
// recursion whose depth follows the tree's, every folder opened relative to
// its parent's descriptor with O_NOFOLLOW | O_DIRECTORY (so neither a link nor
// a path longer than PATH_MAX is ever in the way), and only a bounded number
// of descriptors held at once, however deep the tree goes.
//
// Two shapes of walk share this: `descendFolders` for one thread that goes
// down and back up through "..", checked against the folder it came from, and
// `FolderHandle` for walks whose folders are read by many threads in any
// order, which reopen a folder from its nearest ancestor still held.

#include <sys/types.h>

#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <utility>

namespace brisko {

// Owns one descriptor.
class Descriptor {
 public:
  explicit Descriptor(int fd = -1) : fd_(fd) {}
  ~Descriptor() { reset(); }
  Descriptor(Descriptor&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
  Descriptor& operator=(Descriptor&& other) noexcept {
    std::swap(fd_, other.fd_);
    return *this;
  }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;

  int get() const { return fd_; }
  bool valid() const { return fd_ >= 0; }
  int release() { return std::exchange(fd_, -1); }
  void reset();

 private:
  int fd_;
};

// What identifies a thing and the mount it sits on, read without following a
// link.
struct FolderPlacement {
  std::uint64_t device = 0;
  std::uint64_t inode = 0;
  std::uint32_t fileType = 0;            // st_mode & S_IFMT
  std::optional<std::uint64_t> mountID;  // none where the kernel can't tell

  bool sameThing(const FolderPlacement& other) const {
    return device == other.device && inode == other.inode;
  }
  // Bind mounts of one file system share a device but not a mount.
  bool sameMount(const FolderPlacement& other) const {
    if (mountID && other.mountID) return *mountID == *other.mountID;
    return device == other.device;
  }
};

// `name` inside the folder open at `folder` (AT_FDCWD and a path work too),
// or of the descriptor itself when `name` is empty. None with errno set.
std::optional<FolderPlacement> placementAt(int folder, const char* name);

// Opens `name` inside the folder open at `parent` as a folder, refusing a
// link; retried on EINTR. Invalid with errno set on failure.
Descriptor openFolderAt(int parent, const char* name);

// How deep a walk that keeps paths as text goes. A folder further down is
// not entered and its walk is partial, so that a hostile nest can't make a
// walk's memory grow with the square of its depth.
inline constexpr std::size_t kMaximumWalkDepth = 4096;
inline constexpr std::size_t kMaximumWalkPathLength = 16384;

inline bool isBeyondWalkLimits(std::size_t depth, std::size_t pathLength) {
  return depth > kMaximumWalkDepth || pathLength > kMaximumWalkPathLength;
}

// A single-threaded depth-first walk below one folder. The visitor is told of
// every entry, and may ask to go into it; the walk holds the descriptors of
// the first few levels and lets go of deeper parents, coming back to them
// through ".." checked against their recorded device and inode.
class FolderVisitor {
 public:
  enum class Step { next, enter, stop };

  virtual ~FolderVisitor() = default;

  // One entry of the folder open at `folder`, whose path is `folderPath`;
  // `type` is the listing's DT_ value (DT_UNKNOWN where the file system
  // doesn't say). "." and ".." are never shown.
  virtual Step visit(int folder, const std::string& folderPath, const std::string& name,
                     unsigned char type) = 0;
  // A folder was opened for entering; false leaves it unread.
  virtual bool entering(int /*folder*/, const FolderPlacement& /*placement*/) { return true; }
  // The folder `name` inside `parent` has been read to its end.
  virtual Step left(int /*parent*/, const std::string& /*name*/) { return Step::next; }
  // The entry `name` couldn't be opened as a folder, or (with `parent` -1)
  // an entered folder couldn't be read. `error` is the errno.
  virtual Step failed(int /*parent*/, const std::string& /*name*/, int /*error*/) {
    return Step::next;
  }
};

// What ended a descent.
enum class DescentEnd {
  finished,
  stopped,  // the visitor said so
  moved,    // a folder on the way back up is no longer the one gone down from
};

// Walks below the folder open at `root`, whose path is `rootPath`.
DescentEnd descendFolders(Descriptor root, std::string rootPath, FolderVisitor& visitor);

// One folder of a walk that many threads share. A handle names its folder by
// its parent and its leaf name; it is opened relative to the parent's
// descriptor while the parent holds one, and otherwise by reopening the chain
// from the nearest ancestor that still does, each step checked against the
// device and inode recorded when that ancestor was first opened. A folder
// holds its descriptor for its children only while some of them are yet to be
// opened, and only while the process-wide allowance of held descriptors lasts.
class FolderHandle {
 public:
  using Ptr = std::shared_ptr<FolderHandle>;

  // The top of a walk, at `path`; with `followsLinkAtRoot` a link at the path
  // itself is followed (a home folder reached through a link), never below.
  static Ptr root(std::string path, bool followsLinkAtRoot);
  static Ptr child(const Ptr& parent, std::string name);

  FolderHandle(const FolderHandle&) = delete;
  FolderHandle& operator=(const FolderHandle&) = delete;
  ~FolderHandle();

  // Levels below the root: 0 for the root.
  std::size_t depth() const { return depth_; }
  const std::string& name() const { return name_; }

  // Opens the folder; call once per handle. Invalid with `error` set (an
  // errno) on failure; ESTALE when an ancestor was replaced meanwhile.
  Descriptor open(int& error);

  // Hands the descriptor that `open` gave back once the folder is read;
  // `childFolders` is the number of child handles that will be opened.
  void finishedReading(Descriptor folder, std::size_t childFolders);

 private:
  FolderHandle(Ptr parent, std::string name, std::size_t depth, bool followsLink);

  // A descriptor of this (already opened) folder for a child to open from.
  Descriptor reopened(int& error);
  void childOpened();

  Ptr parent_;
  const std::string name_;  // the whole path for the root
  const std::size_t depth_;
  const bool followsLink_;
  FolderPlacement placement_;  // written by finishedReading(), before any child is opened

  std::mutex lock_;
  Descriptor held_;                   // guarded by lock_
  std::size_t unopenedChildren_ = 0;  // guarded by lock_
};

}  // namespace brisko
