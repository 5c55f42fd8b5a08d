#pragma once

// Moving things into the user's Trash, the freedesktop.org Trash
// standard's way, as file managers do it: the `.trashinfo` first, with
// the original path percent-encoded, then a rename into `files/`; the home
// Trash for the home's file system, `$topdir/.Trash/$uid` or
// `$topdir/.Trash-$uid` for another; never a copy across file systems.
//
// `move` is GIO's `g_file_trash`. It lives in the library BriskoSystemTrash,
// the only part of Brisko that links GLib: whoever moves things to the Trash
// links it; the engine never does. `refusal` is plain code in BriskoCore.
//
// GLib reads HOME and XDG_DATA_HOME once per process, at its first use: a
// process trashes into one home Trash for its whole life.

#include <optional>
#include <string>

namespace brisko {

class TrashMover {
 public:
  TrashMover() = delete;

  // Moves the file, folder or link at the absolute `path` (a link moves as
  // the link) into the Trash. Blocks; safe from any thread. Returns none on
  // success, else our refusal or GIO's words ("Unable to find or create trash
  // directory for …", "Permission denied", ...).
  static std::optional<std::string> move(const std::string& path);

  // What GLib would get wrong, refused before it is asked, with
  // `dataDirectory` the folder that holds the home Trash ($XDG_DATA_HOME):
  //  - a home Trash, or its `files` or `info`, that is a symbolic link
  //    (GLib would follow it and write wherever it leads);
  //  - an item that is a Trash folder or lies in one (it would "move" onto
  //    itself): the home Trash, a `.Trash-$uid` or `.Trash/$uid` folder;
  //  - a folder that holds the home Trash.
  // Links above the item (a linked ~/.local/share) are followed, as GLib
  // does; the item itself is not. Reads the disk; never changes it.
  static std::optional<std::string> refusal(const std::string& path,
                                            const std::string& dataDirectory);

  static constexpr const char* kLinkedTrash =
      "The Trash is a symbolic link; Brisko won’t move anything through it.";
  static constexpr const char* kAlreadyInTrash = "This item is already in the Trash.";
  static constexpr const char* kHoldsTrash =
      "This folder holds the Trash; it can’t be moved into the Trash.";
};

}  // namespace brisko
