#pragma once

#include <optional>
#include <string>

namespace brisko {

// The whole regular file, or none when it can't be opened or read (a missing
// file, no permission) or isn't a regular file of its own: a symbolic link, a
// folder, a FIFO or a device put in a data file's place is never opened
// through, and a FIFO can't hold the reader. `limit` guards against reading a
// huge file by mistake: a longer file also reads as none.
std::optional<std::string> readFileContents(const std::string& path,
                                            size_t limit = 256 * 1024 * 1024);

}  // namespace brisko
