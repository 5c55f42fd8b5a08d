#include "tools/python_tools.h"

#include <sys/stat.h>
#include <algorithm>
#include <set>

#include "platform/file_probe.h"
#include "platform/symlink_resolution.h"
#include "tools/tool_files.h"
#include "tools/tool_listing.h"

namespace brisko {
namespace {

// The links of the command folders by where they lead, resolved once for
// all tools: sorted, so that the links into one tool's folder are a range.
using CommandLinks = std::vector<std::pair<std::string, std::string>>;  // resolved, link

CommandLinks commandLinks(const std::vector<std::string>& commandFolders) {
  CommandLinks links;
  for (const std::string& folder : commandFolders) {
    for (const std::string& name : tool_files::visibleEntries(folder)) {
      const std::string path = folder + "/" + name;
      if (FileProbe::kind(path) == FileProbe::Kind::symlink)
        links.emplace_back(resolvingSymlinksInPath(path), path);
    }
  }
  std::sort(links.begin(), links.end());
  return links;
}

std::vector<std::string> commandsInto(const std::string& toolFolder, const CommandLinks& links) {
  const std::string inside = resolvingSymlinksInPath(toolFolder) + "/";
  std::vector<std::string> paths;
  for (auto link =
           std::lower_bound(links.begin(), links.end(), std::make_pair(inside, std::string()));
       link != links.end() && link->first.compare(0, inside.size(), inside) == 0; ++link)
    paths.push_back(link->second);
  return paths;
}

// "black-24.2.0.dist-info" in any lib/*/site-packages gives black's version;
// installers write the name with "_" for "-".
std::optional<std::string> distInfoVersion(const std::string& toolFolder, std::string name) {
  std::replace(name.begin(), name.end(), '-', '_');
  const std::string prefix = name + "-";
  const std::string suffix = ".dist-info";
  for (const std::string& python : tool_files::visibleEntries(toolFolder + "/lib")) {
    for (const std::string& entry :
         tool_files::visibleEntries(toolFolder + "/lib/" + python + "/site-packages")) {
      if (entry.size() > prefix.size() + suffix.size() && entry.rfind(prefix, 0) == 0 &&
          entry.compare(entry.size() - suffix.size(), suffix.size(), suffix) == 0)
        return entry.substr(prefix.size(), entry.size() - prefix.size() - suffix.size());
    }
  }
  return std::nullopt;
}

void addTools(const std::string& root, ToolSource::Kind kind, const CommandLinks& commands,
              std::vector<CommandLineTool>& tools) {
  for (const std::string& name : tool_files::visibleEntries(root)) {
    const std::string folder = root + "/" + name;
    const auto stamp = FileProbe::stamp(folder);
    if (!stamp) continue;
    CommandLineTool tool;
    tool.id = folder;
    tool.name = name;
    bool fromMetadata = false;
    if (auto metadata = tool_files::readJsonObject(folder + "/pipx_metadata.json")) {
      if (auto main = metadata->find("main_package");
          main != metadata->end() && main->is_object()) {
        auto package = tool_files::stringMember(*main, "package");
        auto version = tool_files::stringMember(*main, "package_version");
        if (package && version) {
          tool.name = *package;
          tool.version = *version;
          fromMetadata = true;
        }
      }
    }
    if (!fromMetadata) tool.version = distInfoVersion(folder, name);
    tool.source = {kind, {}};
    tool.installed = tool_files::birthTime(folder);
    tool.stamp = *stamp;
    setCommands(tool, commandsInto(folder, commands));
    lockIfNotWritable(tool);
    tools.push_back(std::move(tool));
  }
}

}  // namespace

std::vector<std::string> PythonTools::commandFolders(const ToolEnvironment& environment) {
  std::vector<std::string> folders;
  for (const char* variable : {"UV_TOOL_BIN_DIR", "PIPX_BIN_DIR", "XDG_BIN_HOME"}) {
    if (auto folder = environment.variable(variable)) folders.push_back(*folder);
  }
  folders.push_back(environment.home + "/.local/bin");
  std::vector<std::string> distinct;
  std::set<std::string> seen;
  for (const std::string& folder : folders) {
    if (seen.insert(resolvingSymlinksInPath(folder)).second) distinct.push_back(folder);
  }
  return distinct;
}

std::vector<CommandLineTool> PythonTools::scan(const ToolEnvironment& environment) {
  std::vector<CommandLineTool> tools;
  const CommandLinks commands = commandLinks(commandFolders(environment));
  addTools(environment.variable("UV_TOOL_DIR").value_or(environment.dataFolder("/uv/tools")),
           ToolSource::Kind::uv, commands, tools);

  std::vector<std::string> pipxRoots;
  if (auto home = environment.variable("PIPX_HOME")) pipxRoots.push_back(*home + "/venvs");
  pipxRoots.push_back(environment.dataFolder("/pipx/venvs"));
  pipxRoots.push_back(environment.home + "/.local/share/pipx/venvs");
  pipxRoots.push_back(environment.home + "/.local/pipx/venvs");
  std::set<std::string> seen;
  for (const std::string& root : pipxRoots) {
    const std::string resolved = resolvingSymlinksInPath(root);
    if (seen.insert(resolved).second) addTools(resolved, ToolSource::Kind::pipx, commands, tools);
  }
  return tools;
}

}  // namespace brisko
