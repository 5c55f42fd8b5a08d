#include "apps/visible_names.h"

#include <dirent.h>

#include <memory>

namespace brisko {

std::optional<std::vector<std::string>> visibleNames(const std::string& folder) {
  std::unique_ptr<DIR, int (*)(DIR*)> directory(::opendir(folder.c_str()), ::closedir);
  if (!directory) return std::nullopt;
  std::vector<std::string> names;
  while (const dirent* entry = ::readdir(directory.get())) {
    if (entry->d_name[0] != '.') names.emplace_back(entry->d_name);
  }
  return names;
}

}  // namespace brisko
