#pragma once

#include <optional>
#include <string>

namespace brisko {

// The whole file, or none when it can't be opened or read (a folder, a missing
// file, no permission). `limit` guards against reading a huge file by mistake:
// a longer file also reads as none.
std::optional<std::string> readFileContents(const std::string& path,
                                            size_t limit = 256 * 1024 * 1024);

}  // namespace brisko
