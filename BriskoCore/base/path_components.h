#pragma once

#include <string>
#include <string_view>

namespace brisko {

// Text operations on absolute paths without a trailing slash; nothing here
// touches the disk.

// "c" of "/a/b/c"; the whole text when it holds no "/".
std::string lastPathComponent(std::string_view path);

// "/a/b" of "/a/b/c"; "/" for "/a" and for a text without "/".
std::string parentPath(std::string_view path);

// The lower-cased extension of the last component, without the dot: "dmg" of
// "/d/App.DMG". Empty for none, for a name that only begins with a dot
// (".profile") and for a name that ends in one.
std::string lowercasedPathExtension(std::string_view path);

}  // namespace brisko
