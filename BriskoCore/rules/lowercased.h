#pragma once

#include <string>
#include <string_view>

namespace brisko::rules_internal {

// Full Unicode lower-casing (root locale) of UTF-8 text, with a fast path for
// ASCII. Bytes that aren't UTF-8 become U+FFFD.
std::string lowercased(std::string_view text);

}  // namespace brisko::rules_internal
