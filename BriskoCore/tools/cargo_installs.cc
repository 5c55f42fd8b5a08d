#include "tools/cargo_installs.h"

#include <sstream>

#include "platform/file_probe.h"
#include "tools/tool_files.h"
#include "tools/tool_listing.h"

namespace brisko {

std::string CargoInstalls::cargoHome(const ToolEnvironment& environment) {
  return environment.folder("CARGO_HOME", "/.cargo");
}

std::vector<CommandLineTool> CargoInstalls::scan(const ToolEnvironment& environment) {
  std::vector<CommandLineTool> tools;
  const std::string home = cargoHome(environment);
  const auto manifest = tool_files::readJsonObject(home + "/.crates2.json");
  if (!manifest) return tools;
  const auto installs = manifest->find("installs");
  if (installs == manifest->end() || !installs->is_object()) return tools;

  for (const auto& [key, value] : installs->items()) {
    // "name version (source)": the first two words.
    std::istringstream words(key);
    std::string name, version;
    if (!(words >> name >> version)) continue;
    if (!value.is_object()) continue;
    const auto bins = value.find("bins");
    if (bins == value.end() || !bins->is_array()) continue;

    std::vector<std::string> binaries;
    std::int64_t bytes = 0;
    for (const auto& bin : *bins) {
      if (!bin.is_string()) continue;
      const std::string binName = bin.get<std::string>();
      if (binName.empty() || binName.find('/') != std::string::npos) continue;
      const std::string path = home + "/bin/" + binName;
      if (FileProbe::kind(path) != FileProbe::Kind::fileOrOther) continue;
      binaries.push_back(path);
      bytes += FileProbe::allocatedBytes(path);
    }
    if (binaries.empty()) continue;
    const auto stamp = FileProbe::stamp(binaries.front());
    if (!stamp) continue;

    CommandLineTool tool;
    tool.id = binaries.front();
    tool.name = name;
    tool.version = version;
    tool.source = {ToolSource::Kind::cargo, {}};
    tool.installed = tool_files::birthTime(tool.id);
    tool.bytes = bytes;
    tool.stamp = *stamp;
    tool.manifestKey = key;
    setCommands(tool, std::move(binaries));
    lockIfNotWritable(tool);
    tools.push_back(std::move(tool));
  }
  return tools;
}

}  // namespace brisko
