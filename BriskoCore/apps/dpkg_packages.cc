#include "apps/dpkg_packages.h"

#include <charconv>
#include <set>
#include <sstream>

#include <nlohmann/json.hpp>

#include "base/atomic_file.h"
#include "base/file_contents.h"
#include "base/path_components.h"
#include "platform/file_probe.h"
#include "platform/program_output.h"

namespace brisko {
namespace {

using Json = nlohmann::json;
using namespace std::chrono_literals;

Json stampJson(const BundleStamp& stamp) {
  return {{"device", stamp.device}, {"inode", stamp.inode}, {"modified", stamp.modified}};
}

// "pkg-a, pkg-b:amd64: /usr/share/applications/x.desktop" → path → first package.
std::map<std::string, std::string> parseSearch(const std::string& text) {
  std::map<std::string, std::string> owners;
  std::istringstream lines(text);
  std::string line;
  while (std::getline(lines, line)) {
    if (line.rfind("diversion by ", 0) == 0) continue;
    const size_t separator = line.find(": /");
    if (separator == std::string::npos || separator == 0) continue;
    const std::string packages = line.substr(0, separator);
    owners.emplace(line.substr(separator + 2), packages.substr(0, packages.find(", ")));
  }
  return owners;
}

struct Shown {
  std::optional<std::string> version;
  std::optional<std::int64_t> bytes;
};

// One line per package: binary:Package, Package, Version, Installed-Size.
std::map<std::string, Shown> parseShow(const std::string& text) {
  std::map<std::string, Shown> shown;
  std::istringstream lines(text);
  std::string line;
  while (std::getline(lines, line)) {
    std::vector<std::string> fields;
    std::istringstream columns(line);
    std::string field;
    while (std::getline(columns, field, '\t'))
      fields.push_back(field);
    if (fields.size() < 4) continue;
    Shown value;
    if (!fields[2].empty()) value.version = fields[2];
    std::int64_t kibibytes = 0;
    const auto& size = fields[3];
    if (std::from_chars(size.data(), size.data() + size.size(), kibibytes).ec == std::errc() &&
        !size.empty())
      value.bytes = kibibytes * 1024;
    shown[fields[0]] = value;
    shown.emplace(fields[1], value);
  }
  return shown;
}

}  // namespace

DpkgPackages::DpkgPackages(std::string admindir, std::string cachePath)
    : admindir_(std::move(admindir)), cachePath_(std::move(cachePath)) {}

std::map<std::string, std::optional<PackageInfo>> DpkgPackages::owners(
    const std::vector<std::string>& paths) {
  std::map<std::string, std::optional<PackageInfo>> answers;
  for (const auto& path : paths)
    answers[path] = std::nullopt;
  const auto status = FileProbe::stamp(admindir_ + "/status");
  if (!status || paths.empty()) return answers;

  // The cache answers when dpkg's status is the same and it knows every path.
  Json cache;
  if (!cachePath_.empty()) {
    if (auto text = readFileContents(cachePath_, 16 * 1024 * 1024))
      cache = Json::parse(*text, nullptr, false);
  }
  if (cache.is_object() && cache.value("admindir", Json()) == admindir_ &&
      cache.value("status", Json()) == stampJson(*status) && cache["paths"].is_object()) {
    try {
      const Json& known = cache["paths"];
      bool complete = true;
      for (const auto& path : paths) {
        if (!known.contains(path)) {
          complete = false;
          break;
        }
        const Json& value = known[path];
        if (value.is_null()) continue;
        PackageInfo info{value.at("package").get<std::string>(), std::nullopt, std::nullopt};
        if (value.contains("version")) info.version = value["version"].get<std::string>();
        if (value.contains("bytes")) info.bytes = value["bytes"].get<std::int64_t>();
        answers[path] = info;
      }
      if (complete) return answers;
    } catch (const Json::exception&) {
      // a damaged cache: ask dpkg
    }
  }

  const std::string admindirOption = "--admindir=" + admindir_;
  std::vector<std::string> search{kQueryPath, admindirOption, "--search", "--"};
  search.insert(search.end(), paths.begin(), paths.end());
  ++processesStarted_;
  const auto found = runProgram(search, 60s);
  if (!found) return answers;  // no dpkg-query: nothing is known, nothing cached
  const auto owners = parseSearch(found->standardOutput);

  std::set<std::string> packages;
  for (const auto& [path, package] : owners)
    packages.insert(package);
  std::map<std::string, Shown> shown;
  if (!packages.empty()) {
    std::vector<std::string> show{
        kQueryPath, admindirOption, "--show",
        "--showformat=${binary:Package}\t${Package}\t${Version}\t${Installed-Size}\n", "--"};
    show.insert(show.end(), packages.begin(), packages.end());
    ++processesStarted_;
    if (const auto output = runProgram(show, 60s)) shown = parseShow(output->standardOutput);
  }

  Json known = Json::object();
  for (const auto& path : paths) {
    const auto owner = owners.find(path);
    if (owner == owners.end()) {
      known[path] = nullptr;
      continue;
    }
    PackageInfo info{owner->second, std::nullopt, std::nullopt};
    if (const auto details = shown.find(owner->second); details != shown.end()) {
      info.version = details->second.version;
      info.bytes = details->second.bytes;
    }
    Json value = {{"package", info.package}};
    if (info.version) value["version"] = *info.version;
    if (info.bytes) value["bytes"] = *info.bytes;
    known[path] = std::move(value);
    answers[path] = std::move(info);
  }
  if (!cachePath_.empty()) {
    const Json file = {{"admindir", admindir_}, {"status", stampJson(*status)}, {"paths", known}};
    try {
      createPrivateDirectories(parentPath(cachePath_));
      writeFileAtomically(cachePath_,
                          file.dump(2, ' ', false, Json::error_handler_t::replace) + "\n");
    } catch (const std::exception&) {
      // only a cache: dpkg is asked again next time
    }
  }
  return answers;
}

}  // namespace brisko
