#include "tools/homebrew_formulae.h"

#include <algorithm>
#include <map>

#include "base/standardized_path.h"
#include "platform/file_probe.h"
#include "platform/symlink_resolution.h"
#include "tools/tool_files.h"
#include "tools/tool_listing.h"

namespace brisko {
namespace {

std::optional<std::string> linkedVersion(const std::string& prefix, const std::string& name) {
  const std::string opt = prefix + "/opt/" + name;
  const auto target = tool_files::linkTarget(opt);
  if (!target) return std::nullopt;
  const std::string absolute =
      standardizedPath((*target)[0] == '/' ? *target : prefix + "/opt/" + *target);
  const std::string formula = prefix + "/Cellar/" + name + "/";
  if (absolute.compare(0, formula.size(), formula) != 0) return std::nullopt;
  const std::string version = absolute.substr(formula.size());
  if (version.empty() || version.find('/') != std::string::npos) return std::nullopt;
  return version;
}

void readReceipt(const std::string& file, HomebrewFormulae::Keg& keg) {
  const auto receipt = tool_files::readJsonObject(file);
  if (!receipt) return;
  if (auto found = receipt->find("runtime_dependencies");
      found != receipt->end() && found->is_array()) {
    for (const auto& dependency : *found) {
      if (!dependency.is_object()) continue;
      if (auto fullName = tool_files::stringMember(dependency, "full_name")) {
        const size_t slash = fullName->rfind('/');
        keg.dependencies.insert(slash == std::string::npos ? *fullName
                                                           : fullName->substr(slash + 1));
      }
    }
  }
  if (auto found = receipt->find("installed_on_request");
      found != receipt->end() && found->is_boolean())
    keg.onRequest = found->get<bool>();
  if (auto found = receipt->find("time"); found != receipt->end() && found->is_number()) {
    const double seconds = found->get<double>();
    if (seconds > -1e11 && seconds < 1e11)
      keg.installed = dateFromFileTime(static_cast<std::int64_t>(seconds));
  }
}

// The login shell counts only when it runs from a Homebrew prefix; it is
// then resolved, since bin/fish is a link into the keg.
std::optional<std::string> shellInPrefixes(const std::optional<std::string>& loginShell,
                                           const std::vector<std::string>& prefixes) {
  if (!loginShell) return std::nullopt;
  for (const std::string& prefix : prefixes) {
    if (loginShell->compare(0, prefix.size() + 1, prefix + "/") == 0)
      return resolvingSymlinksInPath(*loginShell);
  }
  return std::nullopt;
}

}  // namespace

std::vector<HomebrewFormulae::Keg> HomebrewFormulae::kegs(const std::string& prefix) {
  std::vector<Keg> kegs;
  const std::string cellar = prefix + "/Cellar";
  for (const std::string& name : tool_files::visibleEntries(cellar)) {
    std::vector<std::string> versions;
    for (const std::string& version : tool_files::visibleEntries(cellar + "/" + name)) {
      if (tool_files::exists(cellar + "/" + name + "/" + version + "/INSTALL_RECEIPT.json"))
        versions.push_back(version);
    }
    if (versions.empty()) continue;
    std::string version =
        *std::max_element(versions.begin(), versions.end(), tool_files::numericallyBefore);
    if (auto linked = linkedVersion(prefix, name);
        linked && std::find(versions.begin(), versions.end(), *linked) != versions.end())
      version = *linked;
    Keg keg;
    keg.name = name;
    keg.path = cellar + "/" + name + "/" + version;
    keg.version = version;
    readReceipt(keg.path + "/INSTALL_RECEIPT.json", keg);
    kegs.push_back(std::move(keg));
  }
  return kegs;
}

std::vector<CommandLineTool> HomebrewFormulae::scan(const std::vector<std::string>& prefixes,
                                                    const std::optional<std::string>& loginShell) {
  std::vector<CommandLineTool> tools;
  const auto shell = shellInPrefixes(loginShell, prefixes);
  for (const std::string& prefix : prefixes) {
    if (!tool_files::isExecutableFile(prefix + "/bin/brew")) continue;
    const std::vector<Keg> all = kegs(prefix);
    std::map<std::string, const Keg*> byName;
    for (const Keg& keg : all)
      byName[keg.name] = &keg;
    const auto commands = tool_files::linksBelow(
        prefix + "/bin", prefix + "/Cellar", [&](const std::vector<std::string>& rest) {
          if (rest.size() < 2) return std::string();
          const auto keg = byName.find(rest[0]);
          return keg != byName.end() && keg->second->version == rest[1] ? keg->second->path
                                                                        : std::string();
        });

    for (const Keg& keg : all) {
      if (!keg.onRequest) continue;
      CommandLineTool tool;
      std::set<std::string> keptByOthers;
      for (const Keg& other : all) {
        if (!other.onRequest || &other == &keg) continue;
        if (other.dependencies.count(keg.name)) tool.requiredBy.push_back(other.name);
        keptByOthers.insert(other.dependencies.begin(), other.dependencies.end());
      }
      std::sort(tool.requiredBy.begin(), tool.requiredBy.end());
      for (const std::string& dependency : keg.dependencies) {
        const auto installed = byName.find(dependency);
        if (keptByOthers.count(dependency) || installed == byName.end() ||
            installed->second->onRequest)
          continue;
        tool.exclusiveDependencies.push_back(installed->second->path);
      }
      std::sort(tool.exclusiveDependencies.begin(), tool.exclusiveDependencies.end());
      const auto stamp = FileProbe::stamp(keg.path);
      if (!stamp) continue;
      tool.stamp = *stamp;
      tool.id = keg.path;
      tool.name = keg.name;
      tool.version = keg.version;
      tool.installed = keg.installed;
      tool.source = {ToolSource::Kind::homebrew, {}};
      if (auto found = commands.find(keg.path); found != commands.end())
        setCommands(tool, found->second);
      if (shell) {
        const std::string kegFolder = resolvingSymlinksInPath(keg.path) + "/";
        if (shell->compare(0, kegFolder.size(), kegFolder) == 0)
          tool.lockedReason = LockReason::loginShell;
      }
      lockIfNotWritable(tool);
      tools.push_back(std::move(tool));
    }
  }
  return tools;
}

}  // namespace brisko
