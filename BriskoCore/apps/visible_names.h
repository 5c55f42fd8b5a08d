#pragma once

#include <optional>
#include <string>
#include <vector>

namespace brisko {

// The names in a folder that don't begin with ".", in the order the folder
// gives them; none when it can't be listed.
std::optional<std::vector<std::string>> visibleNames(const std::string& folder);

}  // namespace brisko
