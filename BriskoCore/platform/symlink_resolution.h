#pragma once

#include <string>
#include <string_view>

namespace brisko {

// Where an absolute path really leads: symbolic links in the part of the path
// that exists are followed (also a dangling link, whose target is spliced in
// as text), "." and ".." are settled, and the first component that can't be
// looked at (missing, unreadable, not a folder) ends the resolution: it and
// everything after it are kept as given. Errors are absorbed; after 40 links
// the rest is kept unresolved. The result is absolute with single slashes.
// This is the only place where the safety policy touches the disk.
std::string resolvingSymlinksInPath(std::string_view absolutePath);

}  // namespace brisko
