#pragma once

// The order in which names are shown to people: numbers inside names compare
// by value ("file 2" before "file 10"), letters without regard to case, by
// the rules of ICU's root collation. Bytes that aren't UTF-8 compare as
// U+FFFD. Thread-safe.

#include <string_view>

namespace brisko {

// Negative, zero or positive, as `a` sorts before, with or after `b`.
int standardCompare(std::string_view a, std::string_view b);

}  // namespace brisko
