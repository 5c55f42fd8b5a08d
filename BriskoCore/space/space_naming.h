#pragma once

// The fixed names of the space tree, and the language stamp that ties a stored
// tree to the language its names were made in.

#include <cstdint>
#include <string>
#include <string_view>

namespace brisko {

class SpaceNaming {
 public:
  static constexpr const char* homeFolderName = "Home folder";
  static constexpr const char* hiddenItemsName = "Hidden items";
  static constexpr const char* iCloudDriveName = "iCloud Drive";

  // The user's first preferred language: the first entry of LANGUAGE, else the
  // language of LC_ALL, LC_MESSAGES or LANG (encoding and modifier dropped,
  // "en_US" written "en-US"). "C" and "POSIX" give "".
  static std::string namingLanguage();

  // The name a root entry is shown under. Linux has no localised names, so it
  // is the last component of the path, or `fallback` when that is empty.
  static std::string displayName(std::string_view path, std::string_view fallback);

  // The keyed engine text of a row that stands for `count` items.
  static std::string moreItemsName(std::int64_t count);

  // The keyed warnings for `count` entries left out because their names
  // aren't valid text (the scan's own words), and for `count` folders too
  // deep to be walked.
  static std::string leftOutNamesWarning(std::int64_t count);
  static std::string tooDeepWarning(std::int64_t count);
};

}  // namespace brisko
