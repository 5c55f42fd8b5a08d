#include "base/standardized_path.h"

#include <vector>

namespace brisko {

std::string standardizedPath(std::string_view path) {
  const bool absolute = !path.empty() && path.front() == '/';
  std::vector<std::string_view> components;
  size_t start = 0;
  while (start <= path.size()) {
    size_t end = path.find('/', start);
    if (end == std::string_view::npos) end = path.size();
    const std::string_view component = path.substr(start, end - start);
    if (component.empty() || component == ".") {
      // nothing
    } else if (component == ".." && !components.empty() && components.back() != "..") {
      components.pop_back();
    } else if (component == ".." && absolute) {
      // "/.." is "/".
    } else {
      components.push_back(component);
    }
    start = end + 1;
  }
  std::string result;
  result.reserve(path.size());
  for (size_t i = 0; i < components.size(); ++i) {
    if (absolute || i > 0) result.push_back('/');
    result.append(components[i]);
  }
  if (result.empty() && absolute) result.push_back('/');
  if (result.empty() && !path.empty()) result.push_back('.');
  return result;
}

}  // namespace brisko
