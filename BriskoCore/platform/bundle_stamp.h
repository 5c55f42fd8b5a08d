#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>

namespace brisko {

// The cheap identity of a file at a moment: what a listed application must
// still be when it is removed, and what a cached size was measured against.
// An update that replaces or rewrites the file changes at least one field.
struct BundleStamp {
  std::int64_t device = 0;  // st_dev
  std::uint64_t inode = 0;  // st_ino
  double modified = 0;      // st_mtim: seconds + nanoseconds / 1e9

  bool operator==(const BundleStamp&) const = default;
};

}  // namespace brisko

template <>
struct std::hash<brisko::BundleStamp> {
  std::size_t operator()(const brisko::BundleStamp& stamp) const noexcept {
    std::size_t seed = std::hash<std::int64_t>{}(stamp.device);
    seed ^= std::hash<std::uint64_t>{}(stamp.inode) + 0x9e3779b97f4a7c15ULL + (seed << 6);
    seed ^= std::hash<double>{}(stamp.modified) + 0x9e3779b97f4a7c15ULL + (seed << 6);
    return seed;
  }
};
