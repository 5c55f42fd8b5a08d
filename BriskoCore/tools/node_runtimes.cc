#include "tools/node_runtimes.h"

#include <algorithm>
#include <cctype>
#include <set>
#include <sstream>

#include "base/file_contents.h"
#include "base/path_components.h"
#include "platform/symlink_resolution.h"
#include "tools/tool_files.h"

namespace brisko {
namespace {

std::string withoutLeadingV(const std::string& name) {
  return !name.empty() && name[0] == 'v' ? name.substr(1) : name;
}

std::string trimmed(const std::string& text) {
  const auto space = [](unsigned char c) { return std::isspace(c) != 0; };
  const auto begin = std::find_if_not(text.begin(), text.end(), space);
  const auto end = std::find_if_not(text.rbegin(), text.rend(), space).base();
  return begin < end ? std::string(begin, end) : std::string();
}

class RuntimeList {
 public:
  void add(const std::string& root, NodeRuntime::Manager manager,
           std::optional<std::string> version, bool isDefault) {
    const std::string id = resolvingSymlinksInPath(root);
    if (!seen_.insert(id).second) return;
    runtimes_.push_back({id, manager, std::move(version), isDefault});
  }
  std::vector<NodeRuntime> take() { return std::move(runtimes_); }

 private:
  std::set<std::string> seen_;
  std::vector<NodeRuntime> runtimes_;
};

void addFnm(const ToolEnvironment& environment, RuntimeList& runtimes) {
  std::vector<std::string> roots;
  if (auto dir = environment.variable("FNM_DIR")) roots.push_back(*dir);
  roots.push_back(environment.dataFolder("/fnm"));
  roots.push_back(environment.home + "/.local/share/fnm");
  roots.push_back(environment.home + "/.fnm");
  std::set<std::string> seenRoots;
  for (const std::string& root : roots) {
    const std::string resolved = resolvingSymlinksInPath(root);
    if (!seenRoots.insert(resolved).second) continue;
    const std::string defaultTarget = resolvingSymlinksInPath(resolved + "/aliases/default");
    for (const std::string& name : tool_files::visibleEntries(resolved + "/node-versions")) {
      const std::string installation = resolved + "/node-versions/" + name + "/installation";
      if (!tool_files::isFolderOrLink(installation)) continue;
      runtimes.add(installation, NodeRuntime::Manager::fnm, withoutLeadingV(name),
                   resolvingSymlinksInPath(installation) == defaultTarget);
    }
  }
}

void addNvm(const ToolEnvironment& environment, RuntimeList& runtimes) {
  std::string root = environment.home + "/.nvm";
  if (auto dir = environment.variable("NVM_DIR")) {
    root = *dir;
  } else if (!tool_files::isFolder(root)) {
    root = environment.configFolder("/nvm");  // where nvm's installer puts it
  }
  const std::string alias =
      withoutLeadingV(trimmed(readFileContents(root + "/alias/default", 4096).value_or("")));
  for (const std::string& name : tool_files::visibleEntries(root + "/versions/node")) {
    const std::string version = withoutLeadingV(name);
    const bool isDefault =
        !alias.empty() && (version == alias || version.rfind(alias + ".", 0) == 0);
    runtimes.add(root + "/versions/node/" + name, NodeRuntime::Manager::nvm, version, isDefault);
  }
}

void addVersionFolders(const std::string& folder, NodeRuntime::Manager manager,
                       RuntimeList& runtimes) {
  // Neither mise nor asdf keeps a default that a program could read without
  // running it, so none of theirs is the default.
  // An alias ("20", "latest") is a link to a version folder, whose own name
  // is the version.
  for (const std::string& name : tool_files::visibleEntries(folder)) {
    const std::string root = folder + "/" + name;
    runtimes.add(root, manager, withoutLeadingV(lastPathComponent(resolvingSymlinksInPath(root))),
                 false);
  }
}

// npm's own configuration: `prefix` in the user's npmrc, with "~/" and
// "${VAR}" expanded as npm does.
std::optional<std::string> npmrcPrefix(const ToolEnvironment& environment) {
  const std::string file =
      environment.variable("NPM_CONFIG_USERCONFIG")
          .value_or(
              environment.variable("npm_config_userconfig").value_or(environment.home + "/.npmrc"));
  const auto text = readFileContents(file, 1024 * 1024);
  if (!text) return std::nullopt;
  std::istringstream lines(*text);
  std::string line;
  std::optional<std::string> prefix;
  while (std::getline(lines, line)) {
    const size_t equals = line.find('=');
    if (equals == std::string::npos || trimmed(line.substr(0, equals)) != "prefix") continue;
    std::string value = trimmed(line.substr(equals + 1));
    if (value.size() >= 2 && (value.front() == '"' || value.front() == '\'') &&
        value.back() == value.front())
      value = value.substr(1, value.size() - 2);
    std::string expanded;
    for (size_t at = 0; at < value.size();) {
      const size_t open = value.find("${", at);
      const size_t close = open == std::string::npos ? open : value.find('}', open + 2);
      if (close == std::string::npos) {
        expanded += value.substr(at);
        break;
      }
      expanded += value.substr(at, open - at);
      expanded += environment.variable(value.substr(open + 2, close - open - 2)).value_or("");
      at = close + 1;
    }
    if (expanded.rfind("~/", 0) == 0) expanded = environment.home + expanded.substr(1);
    prefix = expanded;  // the last one counts, as in npm
  }
  return prefix;
}

std::optional<std::string> npmPrefix(const ToolEnvironment& environment) {
  // npm reads its settings from the environment in any case of the name.
  for (const auto& [name, value] : environment.variables) {
    std::string lower = name;
    std::transform(lower.begin(), lower.end(), lower.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    if (lower == "npm_config_prefix" && !value.empty()) return value;
  }
  return npmrcPrefix(environment);
}

void addPrefix(const std::string& prefix, RuntimeList& runtimes) {
  if (!tool_files::isFolder(prefix + "/lib/node_modules")) return;
  // Homebrew's node lives in Cellar/node (or node@20)/VERSION/.
  std::optional<std::string> version;
  const std::string node = resolvingSymlinksInPath(prefix + "/bin/node");
  for (size_t at = node.find("/Cellar/node"); at != std::string::npos && !version;
       at = node.find("/Cellar/node", at + 1)) {
    const size_t formulaEnd = node.find('/', at + 8);
    const size_t versionEnd =
        formulaEnd == std::string::npos ? formulaEnd : node.find('/', formulaEnd + 1);
    if (versionEnd != std::string::npos && versionEnd > formulaEnd + 1)
      version = node.substr(formulaEnd + 1, versionEnd - formulaEnd - 1);
  }
  const bool homebrew = tool_files::isFolder(prefix + "/Cellar");
  runtimes.add(prefix, homebrew ? NodeRuntime::Manager::homebrew : NodeRuntime::Manager::system,
               version, false);
}

}  // namespace

std::vector<NodeRuntime> NodeRuntimes::list(const ToolEnvironment& environment) {
  RuntimeList runtimes;
  addFnm(environment, runtimes);
  addNvm(environment, runtimes);
  addVersionFolders(
      environment.variable("MISE_DATA_DIR").value_or(environment.dataFolder("/mise")) +
          "/installs/node",
      NodeRuntime::Manager::mise, runtimes);
  addVersionFolders(environment.folder("ASDF_DATA_DIR", "/.asdf") + "/installs/nodejs",
                    NodeRuntime::Manager::asdf, runtimes);
  std::vector<std::string> prefixes;
  if (auto prefix = npmPrefix(environment); prefix && (*prefix)[0] == '/')
    prefixes.push_back(*prefix);
  prefixes.push_back(environment.home + "/.npm-global");
  prefixes.push_back(environment.home + "/.local");
  for (const std::string& prefix : environment.homebrewPrefixes())
    prefixes.push_back(prefix);
  prefixes.push_back(environment.system("/usr"));
  for (const std::string& prefix : prefixes)
    addPrefix(prefix, runtimes);
  return runtimes.take();
}

}  // namespace brisko
