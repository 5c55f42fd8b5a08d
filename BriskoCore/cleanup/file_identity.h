#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "protocol/plan_records.h"

namespace brisko {

// What the path is right now, from lstat (a link is described, not followed).
// None when it can't be read, or when a field doesn't fit its record.
std::optional<FileIdentitySnapshot> identitySnapshot(const std::string& path);

// Allocated bytes of what a cleanup of `path` would free: 0 for a symbolic
// link, the allocated size of a regular file, and for a folder the sum over the
// regular files below it, never descending through a link. Parts that can't be
// read count as nothing, so a tree that became unreadable measures smaller.
std::int64_t measuredBytes(const std::string& path);

}  // namespace brisko
