#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

namespace brisko {

// Names that a path component may begin with (prefix rows) or be (exact
// rows), each with a small tag, answered by one walk down the component's
// bytes instead of one comparison per row.
class ComponentPrefixTrie {
 public:
  enum class Match : uint8_t { prefix, exact };

  ComponentPrefixTrie();

  // `tag` is a bit; the answers of `tagsMatching` are the union of the bits
  // of every row that matches.
  void add(std::string_view text, Match match, uint8_t tag);

  uint8_t tagsMatching(std::string_view component) const;

 private:
  struct Node {
    uint8_t prefixTags = 0;  // rows that end here and allow more after them
    uint8_t exactTags = 0;   // rows that end here and allow nothing after them
    std::vector<std::pair<unsigned char, uint32_t>> children;
  };

  uint32_t childOf(uint32_t node, unsigned char byte) const;

  std::vector<Node> nodes_;
};

}  // namespace brisko
