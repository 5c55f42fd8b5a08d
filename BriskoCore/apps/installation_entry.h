#pragma once

#include <optional>
#include <string>

namespace brisko {

// One installed thing as the installation index knows it.
struct InstallationEntry {
  std::string path;
  std::optional<std::string> bundleID;
  std::string bundleName;

  bool operator==(const InstallationEntry&) const = default;
};

}  // namespace brisko
