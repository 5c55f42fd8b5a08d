#pragma once

#include <optional>
#include <string>

#include "cleanup/removal_journal.h"
#include "platform/folder_walk.h"
#include "protocol/plan_records.h"

namespace brisko {

// Permanently removes the file, link or folder at `path` without ever
// following a symbolic link, at any depth:
//
// - every folder on the way to the item, from "/" down, is opened relative to
//   its parent with O_NOFOLLOW | O_DIRECTORY, so a link anywhere in the path
//   makes the removal fail instead of leading elsewhere;
// - a link at the item itself is removed as a link;
// - a folder is emptied through descriptors opened the same way and entries
//   go with unlinkat, so a sub-folder swapped for a link at any moment is
//   removed as the link (or the removal fails), never walked into;
// - it never enters a mount inside the item, bind mounts of the same file
//   system included, and refuses an item that is itself a mount point;
// - with `expected`, the item must still be that device, inode and type at
//   the moment of removal: a folder is checked on the descriptor it is
//   emptied through, anything else is first renamed to a private name in its
//   folder and checked there, so a thing moved into the item's place after the
//   last check is never removed (it is renamed back and the item fails);
// - while a file stands under its private name, SIGTERM, SIGINT, SIGHUP and
//   SIGQUIT are held on the calling thread and honoured once it is gone or
//   back; with a `journal`, a note naming it is kept on disk for that time, so
//   that a kill nothing can hold is settled at the next start;
// - a tree of any depth goes with a bounded number of open descriptors.
//
// Returns none on success, else the system's words for the first failure
// ("Permission denied", "Too many levels of symbolic links", ...). What was
// removed before a failure stays removed.
std::optional<std::string> removeWithoutFollowingLinks(
    const std::string& path, const std::optional<FileIdentitySnapshot>& expected = std::nullopt,
    const RemovalJournal* journal = nullptr);

// The same removal for the entry `name` of the open folder `parent`, for a
// caller that opened the folder itself and must not have its path looked up
// again (emptying the Trash). `name` is one component: no "/", not "." or "..".
std::optional<std::string> removeEntryWithoutFollowingLinks(
    int parent, const std::string& name,
    const std::optional<FileIdentitySnapshot>& expected = std::nullopt);

// The folder that holds `path`, every folder from "/" down opened relative to
// its parent without following a link; `name` receives the last component.
// Invalid with `error` set (EINVAL for a relative path or one with "..",
// EBUSY for "/" itself) on failure.
Descriptor openParentWithoutLinks(const std::string& path, std::string& name, int& error);

// The failure text when the item is no longer the one that was checked.
inline constexpr const char* kRemovalIdentityChanged =
    "The item was replaced while it was being removed.";

}  // namespace brisko
