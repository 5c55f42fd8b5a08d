#pragma once

// Takes one listed tool off the disk in the way of its manager, trusting
// nothing the listing said: the tool must still be what was listed, nothing
// may need it, and every path goes through the safety gate at the moment it
// is moved or removed. Runs off the main thread, one tool at a time; a
// Homebrew removal blocks for as long as brew runs.

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "safety/path_safety_policy.h"
#include "tools/command_line_tool.h"
#include "tools/tool_environment.h"

namespace brisko {

// Why a removal didn't happen.
enum class ToolRemoval {
  changed,  // the tool isn't what was listed
  denied,   // the removal was refused, or can't be tried
  blocked,  // something holds the tool
};

struct ToolRemovalResult {
  std::optional<ToolRemoval> failure;
  std::int64_t bytes = 0;  // what went, when nothing failed: the tool's bytes or 0
};

class ToolRemover {
 public:
  // Moves one path (a link as the link) to the Trash; none on success, else
  // the reason.
  using Trash = std::function<std::optional<std::string>(const std::string& path)>;

  ToolRemover(ToolEnvironment environment, Trash trash, bool runCommands,
              std::chrono::milliseconds brewTimeLimit = std::chrono::seconds(300));

  ToolRemovalResult remove(const CommandLineTool& tool) const;

  // Asks each Homebrew that kept one of `exclusiveDependencies` (keg folders
  // of the tools that went) to remove what nothing needs any more. The
  // outcome isn't looked at.
  void removeUnusedDependencies(const std::vector<std::string>& kegFolders) const;

  // What the page says of a removal that failed.
  static constexpr const char* kChangedText =
      "It changed after it was listed. Select it again to retry.";
  static constexpr const char* kDeniedText = "Couldn’t remove";

 private:
  std::optional<std::string> brewFor(const std::string& kegFolder) const;
  bool runBrew(const std::string& brew, const std::vector<std::string>& arguments) const;
  bool allowed(const std::string& path) const;
  std::optional<ToolRemoval> trashItem(const std::string& path) const;
  std::vector<std::string> linksOf(const CommandLineTool& tool) const;
  ToolRemovalResult removeCargo(const CommandLineTool& tool) const;
  ToolRemovalResult removeHomebrew(const CommandLineTool& tool) const;

  ToolEnvironment environment_;
  Trash trash_;
  bool runCommands_;
  std::chrono::milliseconds brewTimeLimit_;
  PathSafetyPolicy policy_;
};

}  // namespace brisko
