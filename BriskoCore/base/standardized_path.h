#pragma once

#include <string>
#include <string_view>

namespace brisko {

// The path with repeated slashes collapsed, "." components dropped and ".."
// components taken back lexically (never above "/"), and no trailing slash.
// Links are not resolved: this is a textual form, not the place on disk.
// A relative path stays relative.
std::string standardizedPath(std::string_view path);

}  // namespace brisko
