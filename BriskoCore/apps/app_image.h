#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace brisko {

// True when the regular file at `path` (not a link) is an ELF program with
// the AppImage mark "AI" and type 1 or 2 at offset 8. The file is only read,
// never run or unpacked.
bool isAppImage(const std::string& path);

// "Krita" and "5.2.2" of "Krita-5.2.2-x86_64.AppImage": the file name less its
// extension, architecture tail and version tail.
struct NameAndVersion {
  std::string name;
  std::optional<std::string> version;

  bool operator==(const NameAndVersion&) const = default;
};
NameAndVersion appImageNameAndVersion(std::string_view fileName);

// The name less a version tail: "Foo" and "2.1" of "Foo-2.1", "foo" and "3"
// of "foo_v3". A tail is a '-', '_' or blank followed by a digit, or by "v"
// and a digit.
NameAndVersion splitVersionTail(std::string_view name);

}  // namespace brisko
