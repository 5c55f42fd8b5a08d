#pragma once

// Texts that the engine sends for the application to translate. The engine
// has no string tables of its own, so a message is either plain text or a
// format key with arguments, packed as U+0001 key (U+0002 argument)*.
// The key is the English format text itself.

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace brisko {

struct EngineText {
  static constexpr char kKeyMarker = '\x01';
  static constexpr char kArgumentSeparator = '\x02';

  // The packed form of a key and its arguments.
  static std::string encoded(std::string_view key, const std::vector<std::string>& arguments = {});

  struct Encoded {
    std::string key;
    std::vector<std::string> arguments;
    bool operator==(const Encoded&) const = default;
  };

  // None for a plain text (empty, or not starting with U+0001). Splitting keeps
  // empty parts, so "\x01" alone is an empty key with no arguments.
  static std::optional<Encoded> decoded(std::string_view text);

  // How the application must pass one argument to the format: an argument that
  // is entirely a decimal integer with an optional sign (and fits 64 bits) goes
  // in as that integer; anything else is itself a text to look up.
  using Argument = std::variant<std::int64_t, std::string>;
  static Argument classifiedArgument(std::string_view argument);
};

}  // namespace brisko
