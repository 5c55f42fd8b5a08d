#include "trash/direct_trash_client.h"

#include <unistd.h>

#include <sys/stat.h>
#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <optional>
#include <set>

#include "base/file_contents.h"
#include "base/standard_compare.h"
#include "base/utf8.h"
#include "cleanup/safe_removal.h"
#include "platform/home_directory.h"
#include "trash/trash_folders.h"
#include "trash/trash_info_files.h"
#include "trash/trash_measure.h"

namespace brisko {

namespace {

constexpr const char* kCantReadTrash = "Can\u2019t read the Trash.";

FinderTrash::Failure cantReadTrash() {
  return FinderTrash::Failure(FinderTrash::Failure::Reason::other, kCantReadTrash);
}

// One trash folder with its two halves, opened relative to each other.
struct OpenTrash {
  OpenFolder trash;
  OpenFolder files;
  OpenFolder info;  // may be invalid: entries need no info
};

// The user's trash folders that exist, each once. The home trash must be a
// real folder when it exists; a per-mount one that fails its checks is
// passed over, as the freedesktop.org Trash standard asks.
std::vector<OpenTrash> openTrashFolders(const std::string& dataHome, const std::string& mountTable,
                                        uid_t uid) {
  std::vector<OpenTrash> folders;
  std::set<std::pair<dev_t, ino_t>> seen;
  for (const auto& location : trashFolderLocations(dataHome, mountTable)) {
    const bool isHome = location.kind == TrashFolderLocation::Kind::home;
    OpenTrash opened{openTrashFolder(location, uid), {}, {}};
    if (!opened.trash.valid()) {
      if (isHome && errno != ENOENT) throw cantReadTrash();
      continue;
    }
    struct stat info;
    if (::fstat(opened.trash.fd(), &info) != 0 || !seen.emplace(info.st_dev, info.st_ino).second)
      continue;
    opened.files = OpenFolder::at(opened.trash.fd(), "files");
    if (!opened.files.valid()) {
      if (isHome && errno != ENOENT) throw cantReadTrash();
      continue;
    }
    opened.info = OpenFolder::at(opened.trash.fd(), "info");
    folders.push_back(std::move(opened));
  }
  return folders;
}

std::vector<std::string> entriesOf(const OpenTrash& folder) {
  auto names = folder.files.names();
  if (!names) throw cantReadTrash();
  return std::move(*names);
}

}  // namespace

DirectTrashClient::DirectTrashClient(std::string dataHome, std::string mountTable, uid_t uid,
                                     std::int64_t fileBudget)
    : dataHome_(std::move(dataHome)),
      mountTable_(std::move(mountTable)),
      uid_(uid),
      fileBudget_(fileBudget) {}

DirectTrashClient DirectTrashClient::forCurrentUser() {
  const char* dataHome = std::getenv("XDG_DATA_HOME");
  std::string folder = dataHome != nullptr && dataHome[0] == '/'
                           ? std::string(dataHome)
                           : currentHomeDirectory().value_or("") + "/.local/share";
  DirectTrashClient client(std::move(folder), {}, ::geteuid());
  client.readsMountTable_ = true;
  return client;
}

std::string DirectTrashClient::mountTable() const {
  if (!readsMountTable_) return mountTable_;
  return readFileContents("/proc/self/mountinfo").value_or("");
}

FinderTrash::Inventory DirectTrashClient::inventory() {
  FinderTrash::Inventory inventory;
  std::int64_t budget = fileBudget_;
  int ordinal = 0;
  for (const auto& folder : openTrashFolders(dataHome_, mountTable(), uid_)) {
    for (const auto& name : entriesOf(folder)) {
      if (name == ".DS_Store") continue;
      const TrashEntrySize size = measureTrashEntry(folder.files.fd(), name, budget);
      inventory.entries.push_back({ordinal++, repairedUtf8(name), size.bytes, size.isComplete});
    }
  }
  std::stable_sort(inventory.entries.begin(), inventory.entries.end(),
                   [](const FinderTrash::Entry& a, const FinderTrash::Entry& b) {
                     if (a.bytes != b.bytes) return a.bytes > b.bytes;
                     return standardCompare(a.name, b.name) < 0;
                   });
  return inventory;
}

void DirectTrashClient::empty() {
  std::optional<std::string> firstFailure;
  for (const auto& folder : openTrashFolders(dataHome_, mountTable(), uid_)) {
    for (const auto& name : entriesOf(folder)) {
      if (const auto failure = removeEntryWithoutFollowingLinks(folder.files.fd(), name)) {
        if (!firstFailure) {
          firstFailure = "Can\u2019t remove \u201C" + repairedUtf8(name) +
                         "\u201D from the Trash: " + *failure;
        }
        continue;  // its .trashinfo stays, so it can still be restored
      }
      if (folder.info.valid()) ::unlinkat(folder.info.fd(), (name + kTrashInfoSuffix).c_str(), 0);
    }
    if (folder.info.valid()) removeOrphanedTrashInfo(folder.files.fd(), folder.info.fd());
    pruneDirectorySizes(folder.trash.fd(), folder.files.fd());
  }
  if (firstFailure) throw FinderTrash::Failure(FinderTrash::Failure::Reason::other, *firstFailure);
}

}  // namespace brisko
