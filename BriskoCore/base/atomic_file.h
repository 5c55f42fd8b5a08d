#pragma once

#include <sys/types.h>

#include <chrono>
#include <string>
#include <string_view>

namespace brisko {

// Replaces the file at `path` with `contents` so that a reader sees either the
// old file or the whole new one, never a part: the bytes go to a temporary file
// in the same folder, are synced, and the temporary file is renamed over the
// target. The folder must exist. Throws std::system_error with the system's
// words on failure, after removing the temporary file.
void writeFileAtomically(const std::string& path, std::string_view contents, mode_t mode = 0600);

// Removes the temporary files ("<name>.tmp-<UUID>") that writes killed before
// their rename left in `folder`, when they are older than `age`: younger ones
// may belong to a write that is still going on. Only regular files of that
// exact form are touched; errors are ignored.
void sweepStaleTemporaryFiles(const std::string& folder,
                              std::chrono::seconds age = std::chrono::hours(1));

// Creates the folder and any missing parents with `mode`, and gives an existing
// final folder that mode too (our own support folders stay private even when
// something else created them first). Throws std::system_error on failure.
void createPrivateDirectories(const std::string& path, mode_t mode = 0700);

}  // namespace brisko
