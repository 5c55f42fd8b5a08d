#include "platform/mount_table.h"

#include <sstream>

namespace brisko {

std::string unescapedMountPath(std::string_view field) {
  std::string out;
  for (size_t i = 0; i < field.size(); ++i) {
    if (field[i] == '\\' && i + 3 < field.size() &&
        field.substr(i + 1, 3).find_first_not_of("01234567") == std::string_view::npos) {
      out.push_back(static_cast<char>((field[i + 1] - '0') * 64 + (field[i + 2] - '0') * 8 +
                                      (field[i + 3] - '0')));
      i += 3;
    } else {
      out.push_back(field[i]);
    }
  }
  return out;
}

std::vector<MountEntry> parseMountTable(std::string_view mountinfo) {
  std::vector<MountEntry> mounts;
  std::istringstream lines{std::string(mountinfo)};
  std::string line;
  while (std::getline(lines, line)) {
    // id, parent id, major:minor, root, mount point, options, optional
    // fields, "-", type, source, super options.
    std::istringstream fields(line);
    std::string id, parent, device, root, mountPoint, field;
    if (!(fields >> id >> parent >> device >> root >> mountPoint)) continue;
    while (fields >> field && field != "-") {
    }
    std::string type;
    if (field != "-" || !(fields >> type)) continue;
    mounts.push_back({unescapedMountPath(mountPoint), std::move(type)});
  }
  return mounts;
}

}  // namespace brisko
