#pragma once

// What the Apps page lists in its command-line scope: programs installed by
// npm, Homebrew, Cargo, uv or pipx, found by reading those managers' folders
// and manifests. Plain values.

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "base/date.h"
#include "platform/bundle_stamp.h"

namespace brisko {

struct ToolSource {
  enum class Kind { npm, homebrew, cargo, uv, pipx };
  Kind kind = Kind::npm;
  std::string runtimeID;  // npm's: the root folder of the Node runtime

  bool operator==(const ToolSource&) const = default;
};

// Why a tool can't be removed.
enum class LockReason {
  loginShell,   // the user's login shell runs from it
  notWritable,  // its folder isn't the user's to change: no administrator rights, ever
};

struct CommandLineTool {
  std::string id;  // package, keg or tool folder; Cargo's first binary
  std::string name;
  std::optional<std::string> version;
  ToolSource source;
  std::vector<std::string> commands;  // last components of commandPaths, same order
  bool isLink = false;                // an npm package linked from a local folder
  std::optional<Date> installed;
  std::optional<std::int64_t> bytes;
  std::vector<std::string> requiredBy;  // installed formulae that need this one
  std::optional<LockReason> lockedReason;
  BundleStamp stamp;
  std::vector<std::string> commandPaths;           // sorted
  std::vector<std::string> exclusiveDependencies;  // keg folders only this one keeps
  std::optional<std::string> manifestKey;          // Cargo's key in its manifests

  bool operator==(const CommandLineTool&) const = default;
};

struct NodeRuntime {
  enum class Manager { fnm, nvm, mise, asdf, homebrew, system };
  std::string id;  // the runtime's root folder
  Manager manager = Manager::system;
  std::optional<std::string> version;
  bool isDefault = false;

  bool operator==(const NodeRuntime&) const = default;
};

struct ToolInventory {
  std::vector<NodeRuntime> runtimes;
  std::vector<CommandLineTool> tools;
};

}  // namespace brisko
