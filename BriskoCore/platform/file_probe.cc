#include "platform/file_probe.h"

#include <sys/stat.h>

#include <algorithm>
#include <atomic>
#include <limits>
#include <mutex>
#include <thread>
#include <vector>

#include "platform/bulk_directory_lister.h"
#include "platform/walk_width.h"

namespace brisko {
namespace {

// A directory's bytes, recursively; `allowance` is shared by the whole walk.
std::int64_t walkDirectory(const std::string& path, std::int64_t& allowance) {
  auto listing = BulkDirectoryLister::list(path);
  auto* entries = std::get_if<std::vector<BulkDirectoryEntry>>(&listing);
  if (entries == nullptr) return 0;
  std::int64_t total = 0;
  for (const auto& entry : *entries) {
    if (allowance < 1) break;
    --allowance;
    if (entry.kind == BulkDirectoryEntry::Kind::symlink) continue;
    if (entry.kind == BulkDirectoryEntry::Kind::directory) {
      total += walkDirectory(path + "/" + entry.name, allowance);
    } else {
      total += entry.allocatedBytes;
    }
  }
  return total;
}

}  // namespace

FileProbe::Kind FileProbe::kind(const std::string& path) {
  struct stat info;
  if (::lstat(path.c_str(), &info) != 0) return Kind::missing;
  if (S_ISLNK(info.st_mode)) return Kind::symlink;
  if (S_ISDIR(info.st_mode)) return Kind::directory;
  return Kind::fileOrOther;
}

std::optional<BundleStamp> FileProbe::stamp(const std::string& path) {
  struct stat info;
  if (::lstat(path.c_str(), &info) != 0) return std::nullopt;
  return BundleStamp{
      static_cast<std::int64_t>(info.st_dev), static_cast<std::uint64_t>(info.st_ino),
      static_cast<double>(info.st_mtim.tv_sec) + static_cast<double>(info.st_mtim.tv_nsec) / 1e9};
}

std::int64_t FileProbe::boundedBytes(const std::string& path, std::int64_t& allowance) {
  struct stat info;
  if (::lstat(path.c_str(), &info) != 0 || S_ISLNK(info.st_mode)) return 0;
  if (S_ISDIR(info.st_mode)) return walkDirectory(path, allowance);
  return static_cast<std::int64_t>(info.st_blocks) * 512;
}

std::int64_t FileProbe::allocatedBytes(const std::string& path) {
  if (kind(path) != Kind::directory) {
    std::int64_t allowance = kDefaultAllowance;
    return boundedBytes(path, allowance);
  }

  // Widen the frontier breadth first until there is enough to share out.
  std::int64_t total = 0;
  std::vector<std::string> frontier{path};
  for (int round = 0; round < 8 && frontier.size() < 512; ++round) {
    std::vector<std::string> next;
    for (const auto& directory : frontier) {
      auto listing = BulkDirectoryLister::list(directory);
      auto* entries = std::get_if<std::vector<BulkDirectoryEntry>>(&listing);
      if (entries == nullptr) continue;
      for (const auto& entry : *entries) {
        if (entry.kind == BulkDirectoryEntry::Kind::symlink) continue;
        if (entry.kind == BulkDirectoryEntry::Kind::directory) {
          next.push_back(directory + "/" + entry.name);
        } else {
          total += entry.allocatedBytes;
        }
      }
    }
    frontier = std::move(next);
  }

  std::mutex lock;
  std::int64_t accumulated = 0;
  std::atomic<size_t> nextIndex{0};
  auto work = [&] {
    for (size_t i = nextIndex++; i < frontier.size(); i = nextIndex++) {
      std::int64_t allowance = std::numeric_limits<std::int64_t>::max();
      const std::int64_t bytes = walkDirectory(frontier[i], allowance);
      std::lock_guard guard(lock);
      accumulated += bytes;
    }
  };
  const size_t threads = std::min<size_t>(frontier.size(), treeWalkWidth());
  std::vector<std::thread> helpers;
  for (size_t i = 1; i < threads; ++i)
    helpers.emplace_back(work);
  work();
  for (auto& helper : helpers)
    helper.join();
  return total + accumulated;
}

}  // namespace brisko
