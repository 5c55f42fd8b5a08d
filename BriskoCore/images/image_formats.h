#pragma once

// The file-name extensions that the images page lists. The extension alone
// admits a file; what is inside decides whether it gets a size.

#include <string>
#include <string_view>
#include <unordered_set>

namespace brisko {

struct ImageFormats {
  // Lower case, without the dot.
  static const std::unordered_set<std::string>& extensions();
  // False for a name without an extension and for a dot-file named only by one.
  static bool isImage(std::string_view path);
};

}  // namespace brisko
