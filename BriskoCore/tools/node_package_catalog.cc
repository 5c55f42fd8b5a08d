#include "tools/node_package_catalog.h"

#include "platform/file_probe.h"
#include "tools/tool_files.h"
#include "tools/tool_listing.h"

namespace brisko {
namespace {

bool belongsToRuntime(const std::string& name) {
  return name == "npm" || name == "corepack";
}

}  // namespace

std::vector<CommandLineTool> NodePackageCatalog::packages(const NodeRuntime& runtime) {
  const std::string packageFolder = runtime.id + "/lib/node_modules";

  // The bin folder's links lead to the package that owns each command;
  // npm writes them relative ("../lib/node_modules/p/cli.js").
  const auto commands = tool_files::linksBelow(
      runtime.id + "/bin", packageFolder, [](const std::vector<std::string>& rest) {
        std::string name = rest[0];
        if (!name.empty() && name[0] == '@') {
          if (rest.size() < 2) return std::string();
          name += "/" + rest[1];
        }
        return belongsToRuntime(name) ? std::string() : name;
      });

  std::vector<std::string> names;
  for (const std::string& entry : tool_files::visibleEntries(packageFolder)) {
    if (entry[0] == '@') {
      for (const std::string& scoped : tool_files::visibleEntries(packageFolder + "/" + entry))
        names.push_back(entry + "/" + scoped);
    } else if (!belongsToRuntime(entry)) {
      names.push_back(entry);
    }
  }

  std::vector<CommandLineTool> tools;
  for (const std::string& name : names) {
    const std::string path = packageFolder + "/" + name;
    const auto kind = FileProbe::kind(path);
    if (kind != FileProbe::Kind::directory && kind != FileProbe::Kind::symlink) continue;
    const auto stamp = FileProbe::stamp(path);
    if (!stamp) continue;
    CommandLineTool tool;
    tool.id = path;
    tool.name = name;
    if (auto manifest = tool_files::readJsonObject(path + "/package.json")) {
      if (auto declared = tool_files::stringMember(*manifest, "name");
          declared && !declared->empty())
        tool.name = *declared;
      tool.version = tool_files::stringMember(*manifest, "version");
    }
    tool.source = {ToolSource::Kind::npm, runtime.id};
    tool.isLink = kind == FileProbe::Kind::symlink;
    tool.installed = tool_files::birthTime(path);
    tool.stamp = *stamp;
    if (auto found = commands.find(name); found != commands.end()) setCommands(tool, found->second);
    lockIfNotWritable(tool);
    tools.push_back(std::move(tool));
  }
  return tools;
}

}  // namespace brisko
