#include "apps/app_image.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>

#include "base/unicode_text.h"

namespace brisko {
namespace {

bool isDigit(char character) {
  return character >= '0' && character <= '9';
}

bool endsWithCaseBlind(std::string_view text, std::string_view suffix) {
  return text.size() >= suffix.size() &&
         lowercasedText(text.substr(text.size() - suffix.size())) == suffix;
}

}  // namespace

bool isAppImage(const std::string& path) {
  const int descriptor = ::open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK);
  if (descriptor < 0) return false;
  struct stat info;
  std::array<unsigned char, 11> header{};
  const bool read =
      ::fstat(descriptor, &info) == 0 && S_ISREG(info.st_mode) &&
      ::pread(descriptor, header.data(), header.size(), 0) == static_cast<ssize_t>(header.size());
  ::close(descriptor);
  return read && header[0] == 0x7f && header[1] == 'E' && header[2] == 'L' && header[3] == 'F' &&
         header[8] == 'A' && header[9] == 'I' && (header[10] == 1 || header[10] == 2);
}

NameAndVersion splitVersionTail(std::string_view name) {
  for (size_t i = 1; i + 1 < name.size(); ++i) {
    const char separator = name[i];
    if (separator != '-' && separator != '_' && separator != ' ') continue;
    size_t start = i + 1;
    if ((name[start] == 'v' || name[start] == 'V') && start + 1 < name.size() &&
        isDigit(name[start + 1]))
      ++start;
    if (isDigit(name[start]))
      return {std::string(name.substr(0, i)), std::string(name.substr(start))};
  }
  return {std::string(name), std::nullopt};
}

NameAndVersion appImageNameAndVersion(std::string_view fileName) {
  if (endsWithCaseBlind(fileName, ".appimage")) fileName.remove_suffix(9);
  static constexpr std::array<std::string_view, 11> kArchitectures{
      "x86_64", "x86-64", "amd64", "aarch64", "arm64", "armhf",
      "armv7l", "i386",   "i686",  "x64",     "x86"};
  for (const auto architecture : kArchitectures) {
    if (fileName.size() > architecture.size() + 1 && endsWithCaseBlind(fileName, architecture)) {
      const char separator = fileName[fileName.size() - architecture.size() - 1];
      if (separator == '-' || separator == '_' || separator == '.') {
        fileName.remove_suffix(architecture.size() + 1);
        break;
      }
    }
  }
  auto split = splitVersionTail(fileName);
  if (split.name.empty()) return {std::string(fileName), std::nullopt};
  return split;
}

}  // namespace brisko
