// `brisko tools remove`: one tool off the disk by its manager's rules, after
// a fresh look at what is installed. A record read with --stdin counts only
// if the fresh inventory still has that tool, unchanged since the record.

#include <iostream>

#include "cli/tools_records.h"
#include "platform/file_probe.h"
#include "platform/trash_mover.h"
#include "protocol/brisko_formatting.h"
#include "tools/tool_inventory_reader.h"
#include "tools/tool_remover.h"

namespace brisko::cli {
namespace {

const CommandLineTool* fromRecord(const std::string& line, const ToolInventory& inventory,
                                  BundleStamp& recordedStamp) {
  const auto record = nlohmann::json::parse(line, nullptr, false);
  if (!record.is_object() || !record.contains("id") || !record.contains("source") ||
      !record.contains("stamp"))
    throw UsageError("not a record of \u2018brisko tools --json\u2019: " + line.substr(0, 80));
  try {
    const auto& stamp = record.at("stamp");
    recordedStamp = {stamp.at("device").get<std::int64_t>(), stamp.at("inode").get<std::uint64_t>(),
                     stamp.at("modified").get<double>()};
    for (const auto& tool : inventory.tools) {
      if (tool.id == record.at("id").get<std::string>() &&
          toolSourceName(tool.source.kind) == record.at("source").get<std::string>())
        return &tool;
    }
  } catch (const nlohmann::json::exception&) {
    throw UsageError("not a record of \u2018brisko tools --json\u2019: " + line.substr(0, 80));
  }
  return nullptr;
}

std::vector<CommandLineTool> chosenTools(CommandCall& call, const ToolInventory& inventory) {
  std::vector<CommandLineTool> chosen;
  const auto& operands = call.arguments.operands;
  if (call.arguments.has("stdin")) {
    if (operands.size() > 1) throw UsageError("tools remove --stdin takes no names");
    std::string line;
    while (std::getline(std::cin, line)) {
      if (line.empty()) continue;
      BundleStamp stamp;
      const CommandLineTool* tool = fromRecord(line, inventory, stamp);
      if (tool == nullptr) {
        call.console.error("no longer installed, left alone: " + line.substr(0, 80));
        continue;
      }
      chosen.push_back(*tool);
      chosen.back().stamp = stamp;  // removed only while still what the record saw
    }
    return chosen;
  }
  if (operands.size() < 2) throw UsageError("tools remove needs a tool's ID or name");
  for (auto operand = operands.begin() + 1; operand != operands.end(); ++operand) {
    std::vector<const CommandLineTool*> fitting;
    for (const auto& tool : inventory.tools) {
      if (tool.id == *operand) fitting = {&tool};
    }
    if (fitting.empty()) {
      for (const auto& tool : inventory.tools) {
        if (tool.name == *operand) fitting.push_back(&tool);
      }
    }
    if (fitting.empty())
      throw UsageError("no command-line tool is called \u2018" + *operand + "\u2019");
    if (fitting.size() > 1) {
      std::string list;
      for (const auto* tool : fitting)
        list += "\n  " + tool->id + " (" + toolSourceName(tool->source.kind) + ")";
      throw UsageError("\u2018" + *operand +
                       "\u2019 fits several tools; name one by its ID:" + list);
    }
    chosen.push_back(*fitting.front());
  }
  return chosen;
}

std::string outcomeText(const CommandLineTool& tool, const ToolRemovalResult& result) {
  if (!result.failure)
    return "Removed " + tool.name + " (" + BriskoFormatting::bytes(result.bytes) + ").";
  switch (*result.failure) {
    case ToolRemoval::changed:
      return tool.name + ": " + ToolRemover::kChangedText;
    case ToolRemoval::denied:
      return tool.name + ": " + ToolRemover::kDeniedText;
    case ToolRemoval::blocked:
      break;
  }
  if (!tool.requiredBy.empty()) {
    std::string names;
    for (const auto& name : tool.requiredBy)
      names += (names.empty() ? "" : ", ") + name;
    return tool.name + " stays: " + names + " need" + (tool.requiredBy.size() == 1 ? "s" : "") +
           " it.";
  }
  return tool.name + " stays: " +
         (tool.lockedReason == LockReason::loginShell ? "your login shell runs from it."
                                                      : "its folder isn't yours to change.");
}

const char* outcomeName(const ToolRemovalResult& result) {
  if (!result.failure) return "removed";
  switch (*result.failure) {
    case ToolRemoval::changed:
      return "changed";
    case ToolRemoval::denied:
      return "denied";
    case ToolRemoval::blocked:
      return "blocked";
  }
  return "";
}

}  // namespace

int runToolsRemove(CommandCall& call) {
  Console& console = call.console;
  const ToolEnvironment environment = ToolEnvironment::current(homeFolder());
  std::vector<CommandLineTool> tools = chosenTools(call, readToolInventory(environment));
  if (tools.empty()) return kExitFailure;
  const bool json = call.arguments.has("json");

  std::int64_t total = 0;
  for (CommandLineTool& tool : tools) {
    // The listing leaves sizes to whoever shows them; Cargo's come measured.
    if (!tool.bytes) tool.bytes = FileProbe::allocatedBytes(tool.id);
    total += *tool.bytes;
    if (!json) {
      console.write(tool.name + " " + tool.version.value_or("") + "  " +
                    toolSourceName(tool.source.kind) + "  " + BriskoFormatting::bytes(*tool.bytes) +
                    "  " + tool.id + "\n");
    }
  }
  if (!json) console.write("Total: " + BriskoFormatting::bytes(total) + "\n");
  if (call.arguments.has("dry-run")) return kExitSuccess;
  if (!call.arguments.has("yes")) {
    if (!console.inputIsTerminal() || call.arguments.has("stdin")) {
      console.error("nothing removed: there is no one to ask; pass --yes to remove without asking");
      return kExitFailure;
    }
    if (!console.confirm(tools.size() == 1 ? "Remove it?" : "Remove them?")) {
      console.error("nothing removed");
      return kExitFailure;
    }
  }

  const ToolRemover remover(environment, &TrashMover::move, /*runCommands=*/true);
  bool allRemoved = true;
  std::vector<std::string> unneeded;
  for (const CommandLineTool& tool : tools) {
    const ToolRemovalResult result = remover.remove(tool);
    allRemoved = allRemoved && !result.failure;
    if (!result.failure)
      unneeded.insert(unneeded.end(), tool.exclusiveDependencies.begin(),
                      tool.exclusiveDependencies.end());
    if (json) {
      nlohmann::json record = {
          {"id", tool.id}, {"name", tool.name}, {"outcome", outcomeName(result)}};
      if (!result.failure) record["bytes"] = result.bytes;
      console.write(record.dump() + "\n");
    } else {
      console.write(outcomeText(tool, result) + "\n");
    }
  }
  remover.removeUnusedDependencies(unneeded);
  return allRemoved ? kExitSuccess : kExitFailure;
}

}  // namespace brisko::cli
