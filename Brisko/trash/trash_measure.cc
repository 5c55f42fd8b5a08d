#include "trash/trash_measure.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <set>
#include <tuple>
#include <utility>

#include "trash/open_folder.h"

namespace brisko {

namespace {

class EntryMeasure {
 public:
  explicit EntryMeasure(std::int64_t& budget) : budget_(budget) {}

  // Adds the thing `name` in `folder`; descends into a folder.
  void add(int folder, const std::string& name) {
    if (stopped_) return;
    if (budget_ < 1) {
      stop();
      return;
    }
    --budget_;
    struct statx info;
    if (::statx(folder, name.c_str(), AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT,
                STATX_TYPE | STATX_BLOCKS | STATX_INO | STATX_NLINK, &info) != 0) {
      size_.isComplete = false;
      return;
    }
    const bool isFolder = S_ISDIR(info.stx_mode);
    if (!isFolder && info.stx_nlink > 1 &&
        !seen_.emplace(info.stx_dev_major, info.stx_dev_minor, info.stx_ino).second) {
      return;  // another name of a file counted already
    }
    size_.bytes += static_cast<std::int64_t>(info.stx_blocks) * 512;
    if (!isFolder) return;
    const OpenFolder child = OpenFolder::at(folder, name);
    const auto names = child.valid() ? child.names() : std::nullopt;
    if (!names) {
      size_.isComplete = false;
      return;
    }
    for (const auto& inner : *names)
      add(child.fd(), inner);
  }

  TrashEntrySize result() const { return size_; }

 private:
  void stop() {
    stopped_ = true;
    size_.isComplete = false;
  }

  std::int64_t& budget_;
  bool stopped_ = false;
  TrashEntrySize size_;
  std::set<std::tuple<std::uint32_t, std::uint32_t, std::uint64_t>> seen_;
};

}  // namespace

TrashEntrySize measureTrashEntry(int filesFolder, const std::string& name, std::int64_t& budget) {
  EntryMeasure measure(budget);
  measure.add(filesFolder, name);
  return measure.result();
}

}  // namespace brisko
