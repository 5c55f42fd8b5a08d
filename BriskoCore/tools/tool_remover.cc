#include "tools/tool_remover.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>

#include "base/path_components.h"
#include "base/standardized_path.h"
#include "platform/file_probe.h"
#include "platform/program_output.h"
#include "platform/symlink_resolution.h"
#include "tools/cargo_installs.h"
#include "tools/cargo_manifests.h"
#include "tools/tool_files.h"

namespace brisko {
namespace {

bool hasParentComponent(const std::string& path) {
  size_t start = 0;
  while (start <= path.size()) {
    const size_t slash = path.find('/', start);
    const size_t end = slash == std::string::npos ? path.size() : slash;
    if (path.compare(start, end - start, "..") == 0 && end - start == 2) return true;
    if (slash == std::string::npos) break;
    start = slash + 1;
  }
  return false;
}

bool isAtOrBelow(const std::string& path, const std::string& folder) {
  return path == folder || path.compare(0, folder.size() + 1, folder + "/") == 0;
}

struct LinkState {
  std::string path;
  BundleStamp stamp;
  std::string target;
};

ToolRemovalResult failed(ToolRemoval removal) {
  return {removal, 0};
}

}  // namespace

ToolRemover::ToolRemover(ToolEnvironment environment, Trash trash, bool runCommands,
                         std::chrono::milliseconds brewTimeLimit)
    : environment_(std::move(environment)),
      trash_(std::move(trash)),
      runCommands_(runCommands),
      brewTimeLimit_(brewTimeLimit),
      policy_(PathSafetyPolicy::loadingWhitelistFor(environment_.home)) {}

bool ToolRemover::allowed(const std::string& path) const {
  // The item itself is judged where it lies, not where a link leads: a link
  // goes as the link.
  const std::string place =
      resolvingSymlinksInPath(parentPath(path)) + "/" + lastPathComponent(path);
  return policy_.evaluate(place, /*resolvingSymlinks=*/false).isAllowed();
}

std::optional<ToolRemoval> ToolRemover::trashItem(const std::string& path) const {
  if (!allowed(path)) return ToolRemoval::denied;
  if (trash_(path)) return ToolRemoval::denied;
  return std::nullopt;
}

// The links among the tool's commands that lead into it, judged before the
// tool moves (afterwards they would lead nowhere): by their target as
// written, made absolute, and by where they resolve, since a tool folder may
// lie behind a link of its own.
std::vector<std::string> ToolRemover::linksOf(const CommandLineTool& tool) const {
  std::vector<std::string> links;
  const std::string resolvedTool = resolvingSymlinksInPath(tool.id);
  for (const std::string& path : tool.commandPaths) {
    if (FileProbe::kind(path) != FileProbe::Kind::symlink) continue;
    const auto target = tool_files::linkTarget(path);
    if (!target) {
      links.push_back(path);  // a link with no readable target leads nowhere
      continue;
    }
    const std::string absolute =
        standardizedPath((*target)[0] == '/' ? *target : parentPath(path) + "/" + *target);
    if (isAtOrBelow(absolute, tool.id) || isAtOrBelow(resolvingSymlinksInPath(path), resolvedTool))
      links.push_back(path);
  }
  return links;
}

ToolRemovalResult ToolRemover::remove(const CommandLineTool& tool) const {
  if (!tool.requiredBy.empty() || tool.lockedReason) return failed(ToolRemoval::blocked);
  if (tool.id.empty() || tool.id[0] != '/' || hasParentComponent(tool.id))
    return failed(ToolRemoval::changed);
  const auto stamp = FileProbe::stamp(tool.id);
  if (!stamp || *stamp != tool.stamp) return failed(ToolRemoval::changed);

  switch (tool.source.kind) {
    case ToolSource::Kind::homebrew:
      return removeHomebrew(tool);
    case ToolSource::Kind::cargo:
      return removeCargo(tool);
    case ToolSource::Kind::npm:
    case ToolSource::Kind::uv:
    case ToolSource::Kind::pipx:
      break;
  }

  std::vector<LinkState> links;
  for (const std::string& path : linksOf(tool)) {
    if (auto linkStamp = FileProbe::stamp(path))
      links.push_back({path, *linkStamp, tool_files::linkTarget(path).value_or("")});
  }
  if (auto failure = trashItem(tool.id)) return failed(*failure);

  // A link goes only while it is the one judged above; one put in its place
  // since belongs to something else. Failures here don't undo the removal.
  for (const LinkState& link : links) {
    if (FileProbe::stamp(link.path) == link.stamp &&
        tool_files::linkTarget(link.path).value_or("") == link.target && allowed(link.path))
      ::unlink(link.path.c_str());
  }
  if (tool.source.kind == ToolSource::Kind::npm) {
    const std::string parent = parentPath(tool.id);
    if (parent != tool.source.runtimeID + "/lib/node_modules" &&
        lastPathComponent(parent).rfind('@', 0) == 0 &&
        tool_files::visibleEntries(parent).empty() && allowed(parent))
      ::rmdir(parent.c_str());  // only ever an empty folder
  }
  return {std::nullopt, tool.bytes.value_or(0)};
}

ToolRemovalResult ToolRemover::removeCargo(const CommandLineTool& tool) const {
  for (const std::string& path : tool.commandPaths) {
    // Gone, a folder or a link: not the binary that was installed.
    if (FileProbe::kind(path) != FileProbe::Kind::fileOrOther) continue;
    if (auto failure = trashItem(path)) return failed(*failure);
  }
  if (tool.manifestKey)
    CargoManifests::removeKey(CargoInstalls::cargoHome(environment_), *tool.manifestKey);
  return {std::nullopt, tool.bytes.value_or(0)};
}

std::optional<std::string> ToolRemover::brewFor(const std::string& kegFolder) const {
  for (const std::string& prefix : environment_.homebrewPrefixes()) {
    if (kegFolder.compare(0, prefix.size() + 8, prefix + "/Cellar/") != 0) continue;
    const std::string brew = prefix + "/bin/brew";
    return tool_files::isExecutableFile(brew) ? std::optional(brew) : std::nullopt;
  }
  return std::nullopt;
}

bool ToolRemover::runBrew(const std::string& brew,
                          const std::vector<std::string>& arguments) const {
  std::vector<std::string> argv{brew};
  argv.insert(argv.end(), arguments.begin(), arguments.end());
  ProgramOptions options;
  for (const char* name :
       {"HOMEBREW_NO_AUTO_UPDATE", "HOMEBREW_NO_ENV_HINTS", "HOMEBREW_NO_INSTALL_CLEANUP",
        "HOMEBREW_NO_ANALYTICS", "NONINTERACTIVE"})
    options.environment.emplace_back(name, "1");
  options.outputLimit = 0;  // drained, never kept
  const auto outcome = runProgram(argv, brewTimeLimit_, options);
  return outcome && outcome->exitStatus == 0;
}

ToolRemovalResult ToolRemover::removeHomebrew(const CommandLineTool& tool) const {
  if (!runCommands_) return failed(ToolRemoval::denied);
  const auto brew = brewFor(tool.id);
  if (!brew || !allowed(tool.id)) return failed(ToolRemoval::denied);
  if (!runBrew(*brew, {"uninstall", "--formula", tool.name})) return failed(ToolRemoval::denied);
  if (tool_files::exists(tool.id)) return failed(ToolRemoval::denied);
  return {std::nullopt, tool.bytes.value_or(0)};
}

void ToolRemover::removeUnusedDependencies(const std::vector<std::string>& kegFolders) const {
  if (!runCommands_) return;
  std::vector<std::string> brews;
  for (const std::string& keg : kegFolders) {
    const auto brew = brewFor(keg);
    if (brew && std::find(brews.begin(), brews.end(), *brew) == brews.end()) brews.push_back(*brew);
  }
  for (const std::string& brew : brews)
    runBrew(brew, {"autoremove"});
}

}  // namespace brisko
