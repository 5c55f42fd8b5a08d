#pragma once

// The user's settings: one flat JSON object under dotted keys
// ("scan.downloadedInstallers", "battery.lowThreshold", ...) in
// `$XDG_CONFIG_HOME/brisko/settings.json` (default `~/.config/brisko/`).
//
// Every read takes the file afresh, so the window, `brisko` and the engine
// client see each other's changes. A missing or damaged file reads as
// defaults; a value of the wrong type reads as absent. Writes change one key
// under an exclusive `flock`, keep unknown keys, and replace the file
// atomically (folder 0700, sorted keys); a damaged file is kept as
// `settings.json.bad` before the first write replaces it.

#include <optional>
#include <string>
#include <string_view>

#include "protocol/json_codec.h"

namespace brisko {

// Whether the scan looks at installers in Downloads; absent means yes.
inline constexpr std::string_view kDownloadedInstallersSetting = "scan.downloadedInstallers";

class SettingsStore {
 public:
  explicit SettingsStore(std::string path);

  // `$XDG_CONFIG_HOME/brisko/settings.json`, else under `~/.config`.
  static std::string defaultPath();

  const std::string& path() const { return path_; }

  std::optional<Json> value(std::string_view key) const;
  std::optional<bool> boolValue(std::string_view key) const;
  std::optional<std::int64_t> integerValue(std::string_view key) const;
  std::optional<std::string> stringValue(std::string_view key) const;

  // Throw std::system_error with the system's words when the file can't be
  // written.
  void setValue(std::string_view key, const Json& value);
  void removeValue(std::string_view key);

 private:
  // Sets `key` to `*value`, or removes it when `value` is null.
  void change(std::string_view key, const Json* value);

  std::string path_;
};

}  // namespace brisko
