#include "cli/cli_arguments.h"

#include <charconv>

namespace brisko::cli {

std::optional<std::string> ParsedArguments::value(std::string_view name) const {
  const auto found = values.find(name);
  if (found == values.end()) return std::nullopt;
  return found->second;
}

ParsedArguments parseArguments(const std::vector<std::string>& words,
                               std::span<const OptionSpec> options) {
  ParsedArguments parsed;
  bool optionsEnded = false;
  for (size_t index = 0; index < words.size(); ++index) {
    const std::string& word = words[index];
    if (optionsEnded || word == "-" || !word.starts_with("-")) {
      parsed.operands.push_back(word);
      continue;
    }
    if (word == "--") {
      optionsEnded = true;
      continue;
    }
    if (!word.starts_with("--")) throw UsageError("unknown option \u2018" + word + "\u2019");
    const size_t equals = word.find('=');
    const std::string name = word.substr(2, equals == std::string::npos ? equals : equals - 2);
    const OptionSpec* spec = nullptr;
    for (const OptionSpec& option : options)
      if (option.name == name) spec = &option;
    if (!spec) throw UsageError("unknown option \u2018--" + name + "\u2019");
    if (!spec->takesValue) {
      if (equals != std::string::npos)
        throw UsageError("option \u2018--" + name + "\u2019 takes no value");
      parsed.flags.insert(name);
    } else if (equals != std::string::npos) {
      parsed.values[name] = word.substr(equals + 1);
    } else if (index + 1 < words.size()) {
      parsed.values[name] = words[++index];
    } else {
      throw UsageError("option \u2018--" + name + "\u2019 needs a value");
    }
  }
  return parsed;
}

int parseCount(std::string_view option, const std::string& text, int low, int high) {
  int number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc() || end != text.data() + text.size() || number < low || number > high)
    throw UsageError("option \u2018--" + std::string(option) + "\u2019 takes a whole number from " +
                     std::to_string(low) + " to " + std::to_string(high) + ", not \u2018" + text +
                     "\u2019");
  return number;
}

}  // namespace brisko::cli
