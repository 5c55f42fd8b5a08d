#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace brisko {

// Mount points in `mountinfo` (the text of /proc/self/mountinfo) where a
// removable volume of this user lies: local file systems, not the root one,
// under /media/USER/ or /run/media/USER/. In the order of the table.
std::vector<std::string> userVolumeMountPoints(std::string_view mountinfo,
                                               const std::string& userName);

}  // namespace brisko
