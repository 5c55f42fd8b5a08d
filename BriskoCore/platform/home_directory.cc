#include "platform/home_directory.h"

#include <pwd.h>
#include <unistd.h>

#include <cstdlib>
#include <vector>

namespace brisko {

namespace {

std::optional<std::string> absolute(const char* value) {
  if (value == nullptr || value[0] != '/') return std::nullopt;
  std::string path(value);
  while (path.size() > 1 && path.back() == '/')
    path.pop_back();
  return path;
}

std::string underXdg(const char* variable, const std::string& home, const char* fallback) {
  if (auto base = absolute(std::getenv(variable))) return *base + "/brisko";
  return (home == "/" ? std::string() : home) + fallback;
}

}  // namespace

std::optional<std::string> currentHomeDirectory() {
  if (auto home = absolute(std::getenv("HOME"))) return home;
  long size = ::sysconf(_SC_GETPW_R_SIZE_MAX);
  std::vector<char> buffer(size > 0 ? static_cast<size_t>(size) : 16384);
  passwd entry;
  passwd* result = nullptr;
  if (::getpwuid_r(::getuid(), &entry, buffer.data(), buffer.size(), &result) != 0 || !result) {
    return std::nullopt;
  }
  return absolute(result->pw_dir);
}

std::string briskoDataDirectory(const std::string& home) {
  return underXdg("XDG_DATA_HOME", home, "/.local/share/brisko");
}

std::string briskoCacheDirectory(const std::string& home) {
  return underXdg("XDG_CACHE_HOME", home, "/.cache/brisko");
}

}  // namespace brisko
