#include "base/path_components.h"

#include "base/unicode_text.h"

namespace brisko {

std::string lastPathComponent(std::string_view path) {
  const auto slash = path.find_last_of('/');
  return std::string(slash == std::string_view::npos ? path : path.substr(slash + 1));
}

std::string parentPath(std::string_view path) {
  const auto slash = path.find_last_of('/');
  if (slash == std::string_view::npos || slash == 0) return "/";
  return std::string(path.substr(0, slash));
}

std::string lowercasedPathExtension(std::string_view path) {
  const std::string name = lastPathComponent(path);
  const auto dot = name.find_last_of('.');
  if (dot == std::string::npos || dot == 0 || dot + 1 == name.size()) return "";
  return lowercasedText(name.substr(dot + 1));
}

}  // namespace brisko
