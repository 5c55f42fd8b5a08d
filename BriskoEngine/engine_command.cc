#include "engine_command.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <iostream>
#include <system_error>

#include "platform/home_directory.h"

namespace brisko::engine {

namespace {

constexpr int kFailure = 1;
constexpr int kUsage = 64;     // the command line is wrong
constexpr int kBadInput = 65;  // the request on standard input is wrong

std::string commandNames() {
  std::string names;
  for (const auto& command : engineCommands()) {
    if (!names.empty()) names += ", ";
    names += command.name;
  }
  return names;
}

const EngineCommand& commandFor(std::span<const std::string> args) {
  if (args.empty()) throw UsageError("Missing command; expected one of: " + commandNames() + ".");
  const auto& commands = engineCommands();
  const auto found = std::find_if(commands.begin(), commands.end(),
                                  [&](const EngineCommand& c) { return c.name == args[0]; });
  if (found == commands.end()) {
    throw UsageError("Unknown command \"" + args[0] + "\"; expected one of: " + commandNames() +
                     ".");
  }
  return *found;
}

std::vector<std::string> checkedFlags(const EngineCommand& command,
                                      std::span<const std::string> args) {
  std::vector<std::string> flags;
  for (const auto& argument : args.subspan(1)) {
    const bool known =
        std::find(command.flags.begin(), command.flags.end(), argument) != command.flags.end();
    if (!known) {
      throw UsageError("Unknown argument \"" + argument + "\" for " + std::string(command.name) +
                       ".");
    }
    if (std::find(flags.begin(), flags.end(), argument) != flags.end()) {
      throw UsageError("Argument \"" + argument + "\" given twice.");
    }
    flags.push_back(argument);
  }
  return flags;
}

// Error texts may carry anything; standard error gets exactly one line.
std::string oneLine(std::string text) {
  std::replace(text.begin(), text.end(), '\n', ' ');
  std::replace(text.begin(), text.end(), '\r', ' ');
  return text;
}

}  // namespace

bool CommandContext::hasFlag(std::string_view flag) const {
  return std::find(flags.begin(), flags.end(), flag) != flags.end();
}

std::string CommandContext::homeDirectory() const {
  auto home = currentHomeDirectory();
  if (!home) {
    throw std::runtime_error(
        "The home folder is unknown: HOME is not an absolute path and the password database has "
        "no entry for this user.");
  }
  struct stat info;
  if (::stat(home->c_str(), &info) != 0) {
    throw std::runtime_error("Cannot read the home folder " + *home + ": " + std::strerror(errno) +
                             ".");
  }
  if (!S_ISDIR(info.st_mode)) {
    throw std::runtime_error("The home folder " + *home + " is not a folder.");
  }
  return *home;
}

std::string CommandContext::readStandardInput() const {
  std::string input;
  char buffer[65536];
  while (true) {
    const ssize_t got = ::read(0, buffer, sizeof buffer);
    if (got == 0) break;
    if (got < 0) {
      if (errno == EINTR) continue;
      throw std::system_error(errno, std::generic_category(), "Cannot read standard input");
    }
    input.append(buffer, static_cast<size_t>(got));
  }
  return input;
}

int runEngine(std::span<const std::string> args) {
  try {
    const EngineCommand& command = commandFor(args);
    EngineOutput output;
    CommandContext context{checkedFlags(command, args), output};
    command.run(context);
    return 0;
  } catch (const UsageError& error) {
    std::cerr << "BriskoEngine: " << oneLine(error.what()) << '\n';
    return kUsage;
  } catch (const DecodingError& error) {
    std::cerr << "BriskoEngine: The request could not be read: " << oneLine(error.what()) << '\n';
    return kBadInput;
  } catch (const std::exception& error) {
    std::cerr << "BriskoEngine: " << oneLine(error.what()) << '\n';
    return kFailure;
  }
}

}  // namespace brisko::engine
