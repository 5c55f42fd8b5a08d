#include "safety/substring_set.h"

#include <cstring>

namespace brisko {

SubstringSet::SubstringSet(const std::vector<std::string_view>& texts)
    : firstBigrams_(65536 / 64, 0) {
  for (const std::string_view text : texts) {
    if (text.empty()) continue;
    if (text.size() == 1) {
      hasSingleByteText_ = true;
      singleBytes_[static_cast<unsigned char>(text[0])] = true;
      continue;
    }
    texts_.emplace_back(text);
    const size_t pair =
        bigram(static_cast<unsigned char>(text[0]), static_cast<unsigned char>(text[1]));
    firstBigrams_[pair / 64] |= uint64_t{1} << (pair % 64);
  }
}

bool SubstringSet::isFoundIn(std::string_view haystack) const {
  const auto* bytes = reinterpret_cast<const unsigned char*>(haystack.data());
  const size_t size = haystack.size();
  if (hasSingleByteText_) {
    for (size_t i = 0; i < size; ++i) {
      if (singleBytes_[bytes[i]]) return true;
    }
  }
  if (texts_.empty()) return false;
  for (size_t i = 0; i + 1 < size; ++i) {
    const size_t pair = bigram(bytes[i], bytes[i + 1]);
    if ((firstBigrams_[pair / 64] & (uint64_t{1} << (pair % 64))) == 0) continue;
    for (const std::string& text : texts_) {
      if (text.size() <= size - i && std::memcmp(bytes + i, text.data(), text.size()) == 0) {
        return true;
      }
    }
  }
  return false;
}

}  // namespace brisko
