#pragma once

#include <string>
#include <string_view>

namespace brisko {

// True when the bytes are well-formed UTF-8: no overlong forms, no surrogates,
// nothing above U+10FFFF, no truncated sequence.
bool isValidUtf8(std::string_view bytes);

// The bytes with every ill-formed sequence replaced by U+FFFD, for display only:
// a repaired name no longer names the file on disk.
std::string repairedUtf8(std::string_view bytes);

}  // namespace brisko
