#include "apps/mounted_volumes.h"

#include <array>
#include <sstream>

namespace brisko {
namespace {

// mountinfo escapes blanks, tabs, line feeds and backslashes as \ooo.
std::string unescaped(std::string_view field) {
  std::string text;
  for (size_t i = 0; i < field.size(); ++i) {
    if (field[i] == '\\' && field.size() - i >= 4) {
      const auto digit = [&](size_t at) { return field[at] >= '0' && field[at] <= '7'; };
      if (digit(i + 1) && digit(i + 2) && digit(i + 3)) {
        text.push_back(static_cast<char>((field[i + 1] - '0') * 64 + (field[i + 2] - '0') * 8 +
                                         (field[i + 3] - '0')));
        i += 3;
        continue;
      }
    }
    text.push_back(field[i]);
  }
  return text;
}

bool isNetworkFileSystem(const std::string& type) {
  static constexpr std::array<std::string_view, 12> kNetwork{
      "nfs", "nfs4", "cifs",      "smb3",  "smbfs",      "9p",
      "afs", "ceph", "glusterfs", "davfs", "fuse.sshfs", "fuse.gvfsd-fuse"};
  for (const auto network : kNetwork) {
    if (type == network) return true;
  }
  return false;
}

}  // namespace

std::vector<std::string> userVolumeMountPoints(std::string_view mountinfo,
                                               const std::string& userName) {
  std::vector<std::string> points;
  if (userName.empty() || userName.find('/') != std::string::npos) return points;
  const std::array<std::string, 2> bases{"/media/" + userName + "/",
                                         "/run/media/" + userName + "/"};
  std::istringstream lines{std::string(mountinfo)};
  std::string line;
  while (std::getline(lines, line)) {
    std::istringstream fields(line);
    std::vector<std::string> parts;
    std::string part;
    while (fields >> part)
      parts.push_back(part);
    // id parent major:minor root mount-point options [optional...] - type source super
    size_t separator = 6;
    while (separator < parts.size() && parts[separator] != "-")
      ++separator;
    if (parts.size() < 5 || separator + 1 >= parts.size()) continue;
    const std::string point = unescaped(parts[4]);
    if (point == "/" || isNetworkFileSystem(parts[separator + 1])) continue;
    for (const auto& base : bases) {
      if (point.size() > base.size() && point.compare(0, base.size(), base) == 0)
        points.push_back(point);
    }
  }
  return points;
}

}  // namespace brisko
