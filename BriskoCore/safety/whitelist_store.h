#pragma once

// The user's keep-list: paths that Brisko must leave alone although a rule or
// a page would offer them. It is a plain text file that a person can edit by
// hand, <home>/.config/brisko/whitelist, one pattern a line; blank lines and
// lines starting with "#" are ignored when read and kept when rewritten.
//
// Three states, kept apart on purpose:
//  - no file (or a file that can't be read as UTF-8): the twenty built-in
//    defaults apply;
//  - a readable file: exactly its active lines apply;
//  - a readable file without active lines: nothing applies, and nothing falls
//    back to the defaults.
// The first change (add or remove) writes the defaults out, so that they can
// be edited like the rest. Writes are atomic, so the engine, which reads the
// file as a separate process, never sees half a file.
//
// The store keeps no state and takes no lock; each operation takes the home
// folder.

#include <cstdint>
#include <functional>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "protocol/json_codec.h"

namespace brisko {

enum class WhitelistEntrySource : uint8_t { default_, custom };

template <>
struct EnumNames<WhitelistEntrySource> {
  // `default` is a C++ keyword; the name is the plain word.
  static constexpr std::array<std::string_view, 2> names{"default", "custom"};
};

// What the settings pane lists: the line as it stands in the file, or the
// `~` form of a default when there is no file.
struct WhitelistEntry {
  std::string pattern;
  WhitelistEntrySource source = WhitelistEntrySource::custom;

  friend bool operator==(const WhitelistEntry&, const WhitelistEntry&) = default;
};

// Why a rule can't be stored; what() is the text shown to the user.
class WhitelistValidationError : public std::runtime_error {
 public:
  enum class Case : uint8_t {
    empty,
    notAbsoluteOrHome,
    pathTraversal,
    controlCharacter,
    consecutiveSlashes,
    criticalSystemPath,
  };

  explicit WhitelistValidationError(Case validationCase);

  Case validationCase() const { return case_; }
  static std::string_view text(Case validationCase);

 private:
  Case case_;
};

class WhitelistStore {
 public:
  WhitelistStore() = delete;

  static constexpr std::string_view kRelativePath = ".config/brisko/whitelist";
  static constexpr std::string_view kDisplayPath = "~/.config/brisko/whitelist";

  // The twenty built-in patterns, absolute, built from the normalised home.
  static std::vector<std::string> defaultPatterns(std::string_view home);

  // The active patterns of a file's text: split at every line break (LF, VT,
  // FF, CR, NEL, U+2028, U+2029), trimmed of blanks, without empty lines and
  // comments.
  static std::vector<std::string> parse(std::string_view contents);
  // The same lines as views into `contents`.
  static std::vector<std::string_view> activeLines(std::string_view contents);
  // The same lines handed to `visit` one by one, in order.
  static void visitActiveLines(std::string_view contents,
                               const std::function<void(std::string_view)>& visit);

  // The file's text when it can be read as UTF-8 (a leading byte order mark
  // is dropped); none when it is missing, unreadable, not a regular file or
  // not UTF-8: all of these count as no file.
  static std::optional<std::string> readFile(std::string_view home);

  // What the settings pane lists. Without a readable file: the defaults in `~`
  // form. With one: each active line as written, marked default when it names
  // the same place as a default in any spelling, else custom.
  static std::vector<WhitelistEntry> entries(std::string_view home);

  // The rule as it will be stored (trimmed, not expanded). Throws
  // WhitelistValidationError. Only the critical list is consulted: a rule for
  // a place that the protected lists already cover is accepted and idle.
  static std::string validate(std::string_view rule, std::string_view home);

  // Validates, then appends the rule (no duplicate test) and writes the file.
  // Throws WhitelistValidationError, or std::system_error when the folder or
  // the file can't be written; the file is then as it was.
  static void add(std::string_view rule, std::string_view home);

  // Removes the first active line that names the same place as `rule`, or
  // whose trimmed text is `rule`; a second copy stays. Rewrites the file even
  // when nothing matched (materialising the defaults). Throws std::system_error.
  static void remove(std::string_view rule, std::string_view home);

  // Deletes the file, so that the defaults apply again. Throws
  // std::system_error for any failure but a missing file.
  static void restoreDefaults(std::string_view home);

  static bool fileExists(std::string_view home);
  // <home>/.config/brisko
  static std::string configurationDirectory(std::string_view home);
  // <home>/.config/brisko/whitelist
  static std::string filePath(std::string_view home);

  // Two patterns are the same entry when their keys are equal: "~" and "~/"
  // expanded, "." and ".." settled, then the policy's path normalisation.
  static std::string canonicalKey(std::string_view pattern, std::string_view home);

  // A pattern below the home written as "~/..." ("~" for the home itself);
  // any other pattern unchanged.
  static std::string tildeForm(std::string_view pattern, std::string_view home);
};

}  // namespace brisko
