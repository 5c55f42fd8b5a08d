#pragma once

#include <optional>
#include <string>

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
// - it never crosses into another file system mounted inside the item.
//
// Returns none on success, else the system's words for the first failure
// ("Permission denied", "Too many levels of symbolic links", ...). What was
// removed before a failure stays removed.
std::optional<std::string> removeWithoutFollowingLinks(const std::string& path);

}  // namespace brisko
