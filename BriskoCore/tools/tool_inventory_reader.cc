#include "tools/tool_inventory_reader.h"

#include "tools/cargo_installs.h"
#include "tools/homebrew_formulae.h"
#include "tools/node_package_catalog.h"
#include "tools/node_runtimes.h"
#include "tools/python_tools.h"

namespace brisko {

ToolInventory readToolInventory(const ToolEnvironment& environment) {
  ToolInventory inventory;
  inventory.runtimes = NodeRuntimes::list(environment);
  const auto append = [&](std::vector<CommandLineTool> tools) {
    for (auto& tool : tools)
      inventory.tools.push_back(std::move(tool));
  };
  for (const NodeRuntime& runtime : inventory.runtimes)
    append(NodePackageCatalog::packages(runtime));
  append(HomebrewFormulae::scan(environment.homebrewPrefixes(), environment.loginShell));
  append(CargoInstalls::scan(environment));
  append(PythonTools::scan(environment));
  return inventory;
}

}  // namespace brisko
