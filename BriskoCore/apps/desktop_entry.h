#pragma once

// A freedesktop.org desktop entry, read with GLib's key-file parser: only the
// keys that say what is installed and how it starts.

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace brisko {

struct DesktopEntry {
  std::string path;
  std::string id;  // the desktop-file id: "org.gnome.Foo.desktop"
  std::string type;
  std::string name;               // in the naming language where the entry has it
  std::vector<std::string> exec;  // the Exec line split, field codes removed
  std::optional<std::string> tryExec;
  bool noDisplay = false;
  bool hidden = false;
  std::optional<std::string> flatpakID;         // X-Flatpak
  std::optional<std::string> snapInstanceName;  // X-SnapInstanceName

  static constexpr size_t kLargestEntry = 1024 * 1024;

  // The entry in `bytes`, or none when it is larger than 1 MiB, not UTF-8,
  // lacks its "Desktop Entry" group or has an Exec line that can't be split.
  // `language` is a naming language such as "de-CH" ("" for none).
  static std::optional<DesktopEntry> parse(std::string_view bytes, const std::string& language);
  // The entry at `path`, with its path and id set.
  static std::optional<DesktopEntry> read(const std::string& path, const std::string& id,
                                          const std::string& language);
};

// Splits an Exec value (its key-file escapes already undone) by the Desktop
// Entry standard's rules: blanks separate arguments, double quotes group,
// and inside them a backslash escapes '"', '`', '$' and '\'. Field codes
// (%f, %U, ...) are removed, "%%" becomes "%". None for unbalanced quotes.
std::optional<std::vector<std::string>> splitExecLine(std::string_view line);

// The program an Exec line starts: the first argument after an `env` prefix
// (its options and NAME=value settings skipped). Empty when there is none.
std::string execProgram(const std::vector<std::string>& exec);

}  // namespace brisko
