#include "cli/cli_commands.h"

#include <stdexcept>

#include "base/version.h"
#include "platform/home_directory.h"

namespace brisko::cli {

namespace {

constexpr OptionSpec kJson{"json", false, "print the engine's records, one JSON object a line"};

constexpr OptionSpec kScanOptions[] = {
    {"exclude-installers", false, "leave installers in Downloads out of this scan"},
    kJson,
};
constexpr OptionSpec kCleanOptions[] = {
    {"recommended", false, "clean what is selected by default (the recommended findings)"},
    {"keep-trash", false, "leave the Trash out, also with --recommended"},
    {"dry-run", false, "print the plan and stop"},
    {"yes", false, "don't ask; needed when standard input is not a terminal"},
    {"exclude-installers", false, "leave installers in Downloads out of the scan"},
    kJson,
};
constexpr OptionSpec kSpaceOptions[] = {
    {"depth", true, "levels of the tree to print (1 to 10, 2 by default)"},
    {"cached", false, "print the tree of the last space scan, without walking"},
    kJson,
};
constexpr OptionSpec kTrashOptions[] = {
    {"empty", false, "empty the Trash, after asking"},
    {"yes", false, "don't ask; needed when standard input is not a terminal"},
    kJson,
};
constexpr OptionSpec kJsonOnly[] = {kJson};
constexpr OptionSpec kToolsOptions[] = {
    {"runtimes", false, "list the Node runtimes whose global packages are listed"},
    {"dry-run", false, "remove: print what would go and stop"},
    {"yes", false, "remove: don't ask; needed when standard input is not a terminal"},
    {"stdin", false, "remove: the tools are records of 'brisko tools --json' on standard input"},
    kJson,
};
constexpr OptionSpec kBatteriesOptions[] = {
    {"check", false, "check once for low batteries and post a notice for each"},
    {"json", false, "print the list as one JSON array"},
};

constexpr Command kCommands[] = {
    {"scan", "", "find what can be cleaned, and say why",
     "Scans the home folder with every cleanup rule and prints the findings by section "
     "(recommended, needs review, shown only) with their sizes, explanations and IDs, their "
     "items, the warnings and the locations that couldn't be read. Nothing is changed.",
     kScanOptions, runScan},
    {"clean", "[FINDING-ID | ITEM-ID ...]", "delete what you pick, through a checked plan",
     "Scans, selects the findings and items named (an item's ID is its finding's ID, a colon "
     "and its path; \"trash\" is the Trash) or, with --recommended, what is selected by "
     "default, and builds a plan. Prints what the plan holds and what it left out, asks, "
     "runs the plan (each item is checked again at the moment of its deletion) and prints "
     "the receipt. Deleted items skip the Trash and can't be recovered. Exit status 0 when "
     "everything planned was deleted, 1 when something was kept or failed or nothing was "
     "cleaned.",
     kCleanOptions, runClean},
    {"space", "", "show where the home folder's space went",
     "Measures the home folder and prints its tree with sizes and share bars, then the "
     "largest files. The tree is kept, so that --cached prints it again at once.",
     kSpaceOptions, runSpace},
    {"trash", "", "the Trash's size; --empty empties it",
     "Prints how much the Trash holds. With --empty, asks and then empties it for good.",
     kTrashOptions, runTrash},
    {"whitelist", "[add PATTERN | remove PATTERN]", "the places Brisko must leave alone",
     "Lists the whitelist (~/.config/brisko/whitelist), adds a pattern to it or removes one. "
     "A pattern is an absolute path or one starting with ~/, and may hold * and ?.",
     kJsonOnly, runWhitelist},
    {"history", "", "the receipts of earlier cleans, newest first",
     "Prints one line for each clean: when, how much was freed, what was deleted, kept and "
     "failed, and the receipt's ID.",
     kJsonOnly, runHistory},
    {"batteries", "", "battery levels of the computer and its wireless devices",
     "Prints one line for the computer's battery and one for each wireless device that "
     "reports a level (mouse, keyboard, headset, ...), read from UPower, else from the "
     "kernel and BlueZ. With --check, also posts a desktop notice for each one below the "
     "low-battery threshold, once until it has been charged again.",
     kBatteriesOptions, runBatteries},
    {"tools", "[remove ID | NAME ...]",
     "command-line tools installed by npm, Homebrew, Cargo, uv and pipx",
     "Lists the tools that package managers installed for you, read from their folders and "
     "manifests (no package manager is run): name, version, manager, commands, what needs "
     "each and why one can't be removed. 'tools remove' takes the tools named (a name that "
     "fits several is refused with their IDs) off the disk as their manager would, after "
     "asking: npm, uv and pipx tools and Cargo's binaries go to the Trash with the links to "
     "them, Homebrew's formulae through brew. Exit status 0 when all went, 1 when one stayed.",
     kToolsOptions, runTools},
};

std::string synopsis(const Command& command) {
  std::string text = "brisko " + std::string(command.name);
  if (!command.operands.empty()) text += " " + std::string(command.operands);
  for (const OptionSpec& option : command.options)
    text += " [--" + std::string(option.name) + (option.takesValue ? " N" : "") + "]";
  return text;
}

std::string generalHelp() {
  std::string text =
      "Usage: brisko COMMAND [OPTIONS]\n\n"
      "Finds what can safely be removed from your home folder, says why, and removes only "
      "what you pick.\n\nCommands:\n";
  for (const Command& command : kCommands) {
    std::string name(command.name);
    name.resize(12, ' ');
    text += "  " + name + std::string(command.summary) + "\n";
  }
  text +=
      "\nbrisko help COMMAND (or brisko COMMAND --help) tells more.\n"
      "Exit status: 0 done, 1 something failed or was kept, 2 a command line that can't be "
      "understood.\nColours only on a terminal, never when NO_COLOR is set.\n";
  return text;
}

std::string commandHelp(const Command& command) {
  std::string text = "Usage: " + synopsis(command) + "\n\n" + std::string(command.details) + "\n";
  if (!command.options.empty()) text += "\nOptions:\n";
  for (const OptionSpec& option : command.options) {
    std::string name = "--" + std::string(option.name) + (option.takesValue ? " N" : "");
    name.resize(22, ' ');
    text += "  " + name + std::string(option.help) + "\n";
  }
  return text;
}

const Command* findCommand(std::string_view name) {
  for (const Command& command : kCommands)
    if (command.name == name) return &command;
  return nullptr;
}

bool asksForHelp(const std::vector<std::string>& words) {
  for (const std::string& word : words) {
    if (word == "--") return false;
    if (word == "--help" || word == "-h") return true;
  }
  return false;
}

}  // namespace

std::span<const Command> commandTable() {
  return kCommands;
}

std::string homeFolder() {
  auto home = currentHomeDirectory();
  if (!home) throw std::runtime_error("can\u2019t find the home folder; set HOME");
  return *home;
}

int runBrisko(const std::vector<std::string>& arguments, Console& console) {
  try {
    if (arguments.empty()) {
      console.error("no command given; \u2018brisko --help\u2019 lists them");
      return kExitUsage;
    }
    const std::string& first = arguments.front();
    if (first == "--help" || first == "-h" || (first == "help" && arguments.size() == 1)) {
      console.write(generalHelp());
      return kExitSuccess;
    }
    if (first == "--version") {
      console.write("brisko " + std::string(kBriskoVersion) + "\n");
      return kExitSuccess;
    }
    if (first == "help") {
      const Command* command = findCommand(arguments[1]);
      if (!command) throw UsageError("unknown command \u2018" + arguments[1] + "\u2019");
      console.write(commandHelp(*command));
      return kExitSuccess;
    }
    const Command* command = findCommand(first);
    if (!command)
      throw UsageError("unknown command \u2018" + first +
                       "\u2019; \u2018brisko --help\u2019 lists them");
    const std::vector<std::string> rest(arguments.begin() + 1, arguments.end());
    if (asksForHelp(rest)) {
      console.write(commandHelp(*command));
      return kExitSuccess;
    }
    CommandCall call{parseArguments(rest, command->options), console};
    return command->run(call);
  } catch (const UsageError& error) {
    console.error(error.what());
    return kExitUsage;
  } catch (const OutputClosed& error) {
    console.error(error.what());
    return kExitFailure;
  } catch (const std::exception& error) {
    console.error(error.what());
    return kExitFailure;
  }
}

}  // namespace brisko::cli
