#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace brisko {

// A fixed set of texts to look for anywhere in a path, in one pass. The
// safety gate runs for every folder of a scan and holds a dozen or more such
// texts per check, so instead of one search per text it walks the path once
// and only looks closer where two bytes begin some text of the set.
class SubstringSet {
 public:
  // Empty texts are ignored: "contains nothing" is not a useful protection.
  explicit SubstringSet(const std::vector<std::string_view>& texts);

  // Some text of the set occurs in `haystack`.
  bool isFoundIn(std::string_view haystack) const;

 private:
  static size_t bigram(unsigned char first, unsigned char second) {
    return (static_cast<size_t>(first) << 8) | second;
  }

  std::vector<std::string> texts_;  // of two bytes or more
  bool hasSingleByteText_ = false;
  std::array<bool, 256> singleBytes_{};
  // One bit for each pair of bytes that begins some text.
  std::vector<uint64_t> firstBigrams_;
};

}  // namespace brisko
