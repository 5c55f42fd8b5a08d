// `brisko tools`: the command-line tools installed by npm, Homebrew, Cargo,
// uv and pipx, read from the managers' folders; nothing is run or changed.

#include <nlohmann/json.hpp>

#include <algorithm>

#include "base/date.h"
#include "cli/cli_commands.h"
#include "cli/tools_records.h"
#include "platform/home_directory.h"
#include "tools/tool_inventory_reader.h"

namespace brisko::cli {

const char* toolSourceName(ToolSource::Kind kind) {
  switch (kind) {
    case ToolSource::Kind::npm:
      return "npm";
    case ToolSource::Kind::homebrew:
      return "homebrew";
    case ToolSource::Kind::cargo:
      return "cargo";
    case ToolSource::Kind::uv:
      return "uv";
    case ToolSource::Kind::pipx:
      return "pipx";
  }
  return "";
}

namespace {

const char* managerName(NodeRuntime::Manager manager) {
  switch (manager) {
    case NodeRuntime::Manager::fnm:
      return "fnm";
    case NodeRuntime::Manager::nvm:
      return "nvm";
    case NodeRuntime::Manager::mise:
      return "mise";
    case NodeRuntime::Manager::asdf:
      return "asdf";
    case NodeRuntime::Manager::homebrew:
      return "homebrew";
    case NodeRuntime::Manager::system:
      return "system";
  }
  return "";
}

const char* lockName(LockReason reason) {
  return reason == LockReason::loginShell ? "loginShell" : "notWritable";
}

std::string lockText(LockReason reason) {
  return reason == LockReason::loginShell ? "your login shell runs from it"
                                          : "its folder isn't yours to change";
}

std::string joined(const std::vector<std::string>& parts, const char* separator) {
  std::string text;
  for (const auto& part : parts)
    text += (text.empty() ? "" : separator) + part;
  return text;
}

}  // namespace

nlohmann::json toolRecord(const CommandLineTool& tool) {
  nlohmann::json record = {{"id", tool.id},
                           {"name", tool.name},
                           {"source", toolSourceName(tool.source.kind)},
                           {"commands", tool.commands},
                           {"commandPaths", tool.commandPaths},
                           {"isLink", tool.isLink},
                           {"requiredBy", tool.requiredBy},
                           {"exclusiveDependencies", tool.exclusiveDependencies},
                           {"stamp",
                            {{"device", tool.stamp.device},
                             {"inode", tool.stamp.inode},
                             {"modified", tool.stamp.modified}}}};
  if (tool.source.kind == ToolSource::Kind::npm) record["runtimeID"] = tool.source.runtimeID;
  if (tool.version) record["version"] = *tool.version;
  if (tool.installed) record["installed"] = formatIso8601(*tool.installed);
  if (tool.bytes) record["bytes"] = *tool.bytes;
  if (tool.lockedReason) record["lockedReason"] = lockName(*tool.lockedReason);
  if (tool.manifestKey) record["manifestKey"] = *tool.manifestKey;
  return record;
}

namespace {

std::string runtimeLabel(const NodeRuntime& runtime) {
  return std::string(managerName(runtime.manager)) +
         (runtime.version ? " " + *runtime.version : "");
}

}  // namespace

int runTools(CommandCall& call) {
  if (!call.arguments.operands.empty() && call.arguments.operands.front() == "remove")
    return runToolsRemove(call);
  if (!call.arguments.operands.empty())
    throw UsageError("tools takes no operands but \u2018remove\u2019, not \u2018" +
                     call.arguments.operands.front() + "\u2019");
  const ToolInventory inventory = readToolInventory(ToolEnvironment::current(homeFolder()));
  const bool json = call.arguments.has("json");

  if (call.arguments.has("runtimes")) {
    for (const NodeRuntime& runtime : inventory.runtimes) {
      if (json) {
        nlohmann::json record = {{"id", runtime.id},
                                 {"manager", managerName(runtime.manager)},
                                 {"isDefault", runtime.isDefault}};
        if (runtime.version) record["version"] = *runtime.version;
        call.console.write(record.dump() + "\n");
      } else {
        call.console.write(runtimeLabel(runtime) + (runtime.isDefault ? " (default)" : "") + "  " +
                           runtime.id + "\n");
      }
    }
    return kExitSuccess;
  }

  std::vector<const CommandLineTool*> tools;
  for (const auto& tool : inventory.tools)
    tools.push_back(&tool);
  std::stable_sort(tools.begin(), tools.end(),
                   [](const auto* left, const auto* right) { return left->name < right->name; });
  if (tools.empty() && !json) call.console.write("No command-line tools found.\n");
  for (const CommandLineTool* tool : tools) {
    if (json) {
      call.console.write(toolRecord(*tool).dump() + "\n");
      continue;
    }
    std::string manager = toolSourceName(tool->source.kind);
    if (tool->source.kind == ToolSource::Kind::npm) {
      for (const auto& runtime : inventory.runtimes) {
        if (runtime.id == tool->source.runtimeID) manager += " (" + runtimeLabel(runtime) + ")";
      }
    }
    std::string line = call.console.paint(tool->name, Colour::bold) + " " +
                       tool->version.value_or("") + "  " + manager;
    if (!tool->commands.empty()) line += "  commands: " + joined(tool->commands, ", ");
    if (tool->isLink) line += "  Linked from a local folder";
    if (!tool->requiredBy.empty()) line += "  needed by " + joined(tool->requiredBy, ", ");
    if (tool->lockedReason)
      line += "  " + call.console.paint("locked: " + lockText(*tool->lockedReason), Colour::dim);
    call.console.write(line + "\n");
  }
  return kExitSuccess;
}

}  // namespace brisko::cli
