#pragma once

// A picture's pixel size, read from its header alone: never a bitmap, at most
// a bounded number of bytes per file. The content picks the parser; a header
// that doesn't parse gives no size. Safe to call from many threads at once.

#include <cstdint>
#include <optional>
#include <string>

namespace brisko {

// Display size: an orientation that turns the picture a quarter turn has
// already swapped width and height.
struct PixelSize {
  std::int64_t width = 0;
  std::int64_t height = 0;
  bool operator==(const PixelSize&) const = default;
};

struct ImageHeader {
  static std::optional<PixelSize> pixelSize(const std::string& path);
};

}  // namespace brisko
