#include "tools/tool_environment.h"

#include <pwd.h>
#include <unistd.h>

extern char** environ;

namespace brisko {

ToolEnvironment ToolEnvironment::current(const std::string& home) {
  ToolEnvironment environment;
  environment.home = home;
  for (char** entry = environ; entry != nullptr && *entry != nullptr; ++entry) {
    const std::string text(*entry);
    const size_t equals = text.find('=');
    if (equals != std::string::npos && equals > 0)
      environment.variables.emplace(text.substr(0, equals), text.substr(equals + 1));
  }
  if (const passwd* user = ::getpwuid(::getuid()); user != nullptr && user->pw_shell != nullptr)
    environment.loginShell = user->pw_shell;
  return environment;
}

std::optional<std::string> ToolEnvironment::variable(const std::string& name) const {
  const auto found = variables.find(name);
  if (found == variables.end() || found->second.empty()) return std::nullopt;
  return found->second;
}

std::string ToolEnvironment::folder(const std::string& name,
                                    const std::string& fallbackBelowHome) const {
  return variable(name).value_or(home + fallbackBelowHome);
}

std::string ToolEnvironment::dataFolder(const std::string& below) const {
  // As the freedesktop base directories say, a relative value is ignored.
  const auto base = variable("XDG_DATA_HOME");
  return (base && (*base)[0] == '/' ? *base : home + "/.local/share") + below;
}

std::string ToolEnvironment::configFolder(const std::string& below) const {
  const auto base = variable("XDG_CONFIG_HOME");
  return (base && (*base)[0] == '/' ? *base : home + "/.config") + below;
}

std::string ToolEnvironment::system(const std::string& path) const {
  return systemRoot == "/" ? path : systemRoot + path;
}

std::vector<std::string> ToolEnvironment::homebrewPrefixes() const {
  return {system("/home/linuxbrew/.linuxbrew"), home + "/.linuxbrew", system("/opt/homebrew"),
          system("/usr/local")};
}

}  // namespace brisko
