#include "protocol/engine_text.h"

#include <charconv>

namespace brisko {

std::string EngineText::encoded(std::string_view key, const std::vector<std::string>& arguments) {
  std::string text;
  text.push_back(kKeyMarker);
  text.append(key);
  for (const auto& argument : arguments) {
    text.push_back(kArgumentSeparator);
    text.append(argument);
  }
  return text;
}

std::optional<EngineText::Encoded> EngineText::decoded(std::string_view text) {
  if (text.empty() || text.front() != kKeyMarker) return std::nullopt;
  std::vector<std::string> parts;
  std::string_view rest = text.substr(1);
  while (true) {
    const auto separator = rest.find(kArgumentSeparator);
    parts.emplace_back(rest.substr(0, separator));
    if (separator == std::string_view::npos) break;
    rest = rest.substr(separator + 1);
  }
  Encoded result;
  result.key = std::move(parts.front());
  result.arguments.assign(std::make_move_iterator(parts.begin() + 1),
                          std::make_move_iterator(parts.end()));
  return result;
}

EngineText::Argument EngineText::classifiedArgument(std::string_view argument) {
  std::string_view digits = argument;
  if (!digits.empty() && (digits.front() == '+' || digits.front() == '-')) {
    digits.remove_prefix(1);
  }
  if (!digits.empty() && digits.find_first_not_of("0123456789") == std::string_view::npos) {
    // from_chars takes a leading '-' but not '+'.
    std::string_view parseable = argument.front() == '+' ? argument.substr(1) : argument;
    std::int64_t value = 0;
    const auto [end, error] =
        std::from_chars(parseable.data(), parseable.data() + parseable.size(), value);
    if (error == std::errc() && end == parseable.data() + parseable.size()) return value;
  }
  return std::string(argument);
}

}  // namespace brisko
