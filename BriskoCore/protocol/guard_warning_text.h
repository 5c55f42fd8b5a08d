#pragma once

// The two engine texts that say a running process held a cleanup back. The
// application recognises them to keep the held-back finding unselected.

#include <optional>
#include <string>
#include <string_view>

namespace brisko {

struct GuardWarningText {
  // Arguments: process name, title of the held-back thing.
  static constexpr std::string_view kNamedProcessKey =
      "%1$@ is running, so \u201c%2$@\u201d can\u2019t be cleaned this time";
  // Argument: title of the held-back thing.
  static constexpr std::string_view kRelatedProcessKey =
      "A related process is running, so \u201c%@\u201d can\u2019t be cleaned this time";

  static std::string namedProcess(const std::string& processName, const std::string& title);
  static std::string relatedProcess(const std::string& title);

  // An encoded engine text whose key is exactly one of the two.
  static bool isGuardWarning(std::string_view text);

  // The last argument of a guard warning; none for a guard warning without
  // arguments and for every other text.
  static std::optional<std::string> guardedTitle(std::string_view text);
};

}  // namespace brisko
