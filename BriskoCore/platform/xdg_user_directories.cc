#include "platform/xdg_user_directories.h"

#include <cstdlib>
#include <optional>

#include "base/file_contents.h"
#include "base/standardized_path.h"

namespace brisko {

namespace {

std::string_view trimmed(std::string_view text) {
  while (!text.empty() && (text.front() == ' ' || text.front() == '\t'))
    text.remove_prefix(1);
  while (!text.empty() && (text.back() == ' ' || text.back() == '\t' || text.back() == '\r'))
    text.remove_suffix(1);
  return text;
}

// The value of one `XDG_NAME_DIR="…"` line, its shell escapes undone; none
// for any other line.
std::optional<std::string> valueOf(std::string_view line) {
  line = trimmed(line);
  if (!line.starts_with("XDG_")) return std::nullopt;
  const size_t equals = line.find('=');
  if (equals == std::string_view::npos || !line.substr(0, equals).ends_with("_DIR"))
    return std::nullopt;
  std::string_view quoted = trimmed(line.substr(equals + 1));
  if (quoted.size() < 2 || quoted.front() != '"' || quoted.back() != '"') return std::nullopt;
  quoted = quoted.substr(1, quoted.size() - 2);
  std::string value;
  for (size_t i = 0; i < quoted.size(); ++i) {
    if (quoted[i] == '\\' && i + 1 < quoted.size()) ++i;
    value.push_back(quoted[i]);
  }
  return value;
}

}  // namespace

std::vector<std::string> parseXdgUserDirectories(std::string_view contents,
                                                 const std::string& home) {
  std::vector<std::string> directories;
  size_t from = 0;
  while (from < contents.size()) {
    size_t end = contents.find('\n', from);
    if (end == std::string_view::npos) end = contents.size();
    const auto value = valueOf(contents.substr(from, end - from));
    from = end + 1;
    if (!value) continue;
    std::string path;
    if (value->starts_with("$HOME/")) {
      path = standardizedPath(home + "/" + value->substr(6));
      // "$HOME/" is how a directory is switched off: it names the home.
      if (path == standardizedPath(home)) continue;
    } else if (value->starts_with("/")) {
      path = standardizedPath(*value);
    } else {
      continue;
    }
    directories.push_back(std::move(path));
  }
  return directories;
}

std::vector<std::string> xdgUserDirectories(const std::string& home) {
  const char* configHome = std::getenv("XDG_CONFIG_HOME");
  const std::string folder =
      configHome != nullptr && configHome[0] == '/' ? std::string(configHome) : home + "/.config";
  const auto contents = readFileContents(folder + "/user-dirs.dirs", 1024 * 1024);
  if (!contents) return {};
  return parseXdgUserDirectories(*contents, home);
}

}  // namespace brisko
