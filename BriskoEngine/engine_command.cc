#include "engine_command.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <memory>
#include <system_error>

#include "base/message_text.h"
#include "cleanup_commands.h"
#include "platform/home_directory.h"

namespace brisko::engine {

namespace {

constexpr int kFailure = 1;
constexpr int kUsage = 64;     // the command line is wrong
constexpr int kBadInput = 65;  // the request on standard input is wrong

// Far above any real request (ten thousand IDs of long paths take a few
// megabytes), and low enough that a runaway writer can't make the engine hold
// its input many times over while parsing it.
constexpr size_t kMaximumRequestBytes = 16 * 1024 * 1024;

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
    throw UsageError("Unknown command " + quotedForMessage(args[0]) +
                     "; expected one of: " + commandNames() + ".");
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
      throw UsageError("Unknown argument " + quotedForMessage(argument) + " for " +
                       std::string(command.name) + ".");
    }
    if (std::find(flags.begin(), flags.end(), argument) != flags.end()) {
      throw UsageError("Argument " + quotedForMessage(argument) + " given twice.");
    }
    flags.push_back(argument);
  }
  return flags;
}

// Error texts may carry anything; standard error gets exactly one line, and
// a bounded one, since the client reads it only after standard output ends.
std::string oneLine(std::string_view text) {
  return oneLineMessage(text);
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
  // A home that is a link (or lies behind one) is resolved once here, so that
  // the whole command works below the real folder: every path it finds and
  // removes is then reached without passing a link.
  std::unique_ptr<char, decltype(&::free)> resolved(::realpath(home->c_str(), nullptr), &::free);
  if (!resolved) {
    throw std::runtime_error("Cannot resolve the home folder " + *home + ": " +
                             std::strerror(errno) + ".");
  }
  return resolved.get();
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
    if (input.size() > kMaximumRequestBytes) {
      throw DecodingError("", "the request is larger than " +
                                  std::to_string(kMaximumRequestBytes / (1024 * 1024)) +
                                  " MiB and was not parsed");
    }
  }
  return input;
}

int runEngine(std::span<const std::string> args) {
  try {
    const EngineCommand& command = commandFor(args);
    EngineOutput output;
    CommandContext context{checkedFlags(command, args), output};
    settleInterruptedRemovals();
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
