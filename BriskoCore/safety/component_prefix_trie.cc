#include "safety/component_prefix_trie.h"

namespace brisko {

namespace {
constexpr uint32_t kNone = 0;  // the root is never anyone's child
}

ComponentPrefixTrie::ComponentPrefixTrie() : nodes_(1) {}

uint32_t ComponentPrefixTrie::childOf(uint32_t node, unsigned char byte) const {
  for (const auto& [childByte, child] : nodes_[node].children) {
    if (childByte == byte) return child;
  }
  return kNone;
}

void ComponentPrefixTrie::add(std::string_view text, Match match, uint8_t tag) {
  uint32_t node = 0;
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    uint32_t child = childOf(node, byte);
    if (child == kNone) {
      child = static_cast<uint32_t>(nodes_.size());
      nodes_.emplace_back();
      nodes_[node].children.emplace_back(byte, child);
    }
    node = child;
  }
  (match == Match::prefix ? nodes_[node].prefixTags : nodes_[node].exactTags) |= tag;
}

uint8_t ComponentPrefixTrie::tagsMatching(std::string_view component) const {
  uint8_t tags = nodes_[0].prefixTags;
  uint32_t node = 0;
  for (const char c : component) {
    node = childOf(node, static_cast<unsigned char>(c));
    if (node == kNone) return tags;
    tags |= nodes_[node].prefixTags;
  }
  return tags | nodes_[node].exactTags;
}

}  // namespace brisko
