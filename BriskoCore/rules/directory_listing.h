#pragma once

#include <optional>
#include <string>
#include <vector>

#include "base/date.h"

namespace brisko::rules_internal {

// One child of a listed folder, described without following it.
struct ListedEntry {
  std::string name;
  std::string path;             // folder + "/" + name
  bool valuesReadable = false;  // false when the child couldn't be examined
  bool isDirectory = false;     // a real folder, not a link to one
  bool isSymbolicLink = false;
  std::optional<Date> modificationDate;
};

// The children of `folder` (a link to a folder is followed for the folder
// itself, never for its children), in no particular order. With
// `skipHidden`, names beginning with "." are left out. None when the folder
// can't be opened or read to its end.
std::optional<std::vector<ListedEntry>> listDirectory(const std::string& folder, bool skipHidden);

// The modification date of the thing at `path`, following links.
std::optional<Date> modificationDate(const std::string& path);

// Whether anything is at `path`, following links (a dangling link is nothing).
bool exists(const std::string& path);

}  // namespace brisko::rules_internal
