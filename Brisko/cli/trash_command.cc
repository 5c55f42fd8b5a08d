// `brisko trash`: how much the Trash holds; --empty empties it after asking.

#include "cli/cli_commands.h"
#include "protocol/brisko_formatting.h"
#include "protocol/json_codec.h"
#include "text/app_texts.h"
#include "trash/auto_trash_client.h"
#include "trash/direct_trash_client.h"

namespace brisko::cli {

namespace {

std::string describe(const FinderTrash::Inventory& inventory) {
  if (inventory.entries.empty()) return "The Trash is empty.\n";
  const size_t count = inventory.entries.size();
  std::string text = "The Trash holds " + std::to_string(count) +
                     (count == 1 ? " item, " : " items, ") +
                     BriskoFormatting::bytes(inventory.totalBytes()) + ".";
  for (const FinderTrash::Entry& entry : inventory.entries)
    if (!entry.isSizeComplete) {
      text += " " + AppText::localized(AppText::kTrashAtLeast) +
              ": not every item could be measured whole.";
      break;
    }
  return text + "\n";
}

std::string jsonOf(const FinderTrash::Inventory& inventory) {
  Json entries = Json::array();
  for (const FinderTrash::Entry& entry : inventory.entries)
    entries.push_back({{"bytes", entry.bytes},
                       {"isSizeComplete", entry.isSizeComplete},
                       {"name", entry.name},
                       {"ordinal", entry.ordinal}});
  return encodeJsonText(Json{{"bytes", inventory.totalBytes()},
                             {"entries", entries},
                             {"itemCount", inventory.entries.size()}}) +
         "\n";
}

}  // namespace

int runTrash(CommandCall& call) {
  const ParsedArguments& arguments = call.arguments;
  Console& console = call.console;
  if (!arguments.operands.empty())
    throw UsageError("trash takes no operands, not \u2018" + arguments.operands.front() + "\u2019");
  const bool json = arguments.has("json");
  AutoTrashClient trash(std::make_shared<DirectTrashClient>(DirectTrashClient::forCurrentUser()),
                        [] { return hasFullDiskAccess(); });
  const FinderTrash::Inventory before = trash.inventory();
  if (!arguments.has("empty") || before.entries.empty()) {
    console.write(json ? jsonOf(before) : describe(before));
    return kExitSuccess;
  }
  if (!json) console.write(describe(before));
  if (!arguments.has("yes")) {
    if (!console.inputIsTerminal()) {
      console.error(
          "the Trash stays as it is: standard input is not a terminal, so there is no one to "
          "ask; pass --yes to empty it without asking");
      return kExitFailure;
    }
    if (!console.confirm("Empty the Trash? " + AppText::localized(AppText::kTrashExplanation))) {
      console.error("the Trash stays as it is");
      return kExitFailure;
    }
  }
  std::optional<std::string> failure;
  try {
    trash.empty();
  } catch (const std::exception& error) {
    failure = error.what();
  }
  const FinderTrash::Inventory after = trash.inventory();
  if (json) {
    console.write(jsonOf(after));
  } else {
    const std::int64_t freed = std::max<std::int64_t>(0, before.totalBytes() - after.totalBytes());
    console.write("Emptied the Trash: " + BriskoFormatting::bytes(freed) + " freed.\n");
    if (!after.entries.empty()) console.write(describe(after));
  }
  if (failure) console.error(*failure);
  return failure || !after.entries.empty() ? kExitFailure : kExitSuccess;
}

}  // namespace brisko::cli
