#pragma once

// The words that follow a command's name: options (`--name`, `--name VALUE`,
// `--name=VALUE`) in any place, and operands; a lone "--" ends the options, so
// that an operand may begin with a hyphen.

#include <map>
#include <optional>
#include <set>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace brisko::cli {

// A command line that can't be understood; `what()` is the one line the user
// reads. Ends the program with status 2.
class UsageError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

struct OptionSpec {
  std::string_view name;  // without the two hyphens
  bool takesValue = false;
  std::string_view help;  // one line for --help
};

struct ParsedArguments {
  std::set<std::string, std::less<>> flags;
  std::map<std::string, std::string, std::less<>> values;
  std::vector<std::string> operands;

  bool has(std::string_view name) const { return flags.contains(name) || values.contains(name); }
  std::optional<std::string> value(std::string_view name) const;
};

// Throws UsageError for an unknown option, a missing value and a value given
// to an option that takes none.
ParsedArguments parseArguments(const std::vector<std::string>& words,
                               std::span<const OptionSpec> options);

// A whole number from `low` to `high`; throws UsageError naming `option`.
int parseCount(std::string_view option, const std::string& text, int low, int high);

}  // namespace brisko::cli
