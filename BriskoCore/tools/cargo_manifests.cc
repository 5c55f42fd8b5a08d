#include "tools/cargo_manifests.h"

#include <sys/stat.h>

#include <stdexcept>

#include "base/atomic_file.h"
#include "base/file_contents.h"
#include "tools/tool_files.h"

namespace brisko {
namespace {

void replaceKeepingMode(const std::string& path, const std::string& contents) {
  struct stat info;
  const mode_t mode = ::lstat(path.c_str(), &info) == 0 ? (info.st_mode & 07777) : 0644;
  try {
    writeFileAtomically(path, contents, mode);
  } catch (const std::exception&) {
    // The binaries are gone already; Cargo's view mends itself on its next run.
  }
}

}  // namespace

std::string CargoManifests::tomlWithoutKey(const std::string& text, const std::string& key) {
  const std::string quoted = "\"" + key + "\"";
  std::string kept;
  bool insideDroppedList = false;
  size_t start = 0;
  while (start <= text.size()) {
    const size_t newline = text.find('\n', start);
    const size_t end = newline == std::string::npos ? text.size() : newline;
    const std::string line = text.substr(start, end - start);
    bool drop = insideDroppedList;
    if (insideDroppedList) {
      insideDroppedList = line.find(']') == std::string::npos;
    } else if (line.compare(0, quoted.size(), quoted) == 0 &&
               (line.compare(quoted.size(), 2, " =") == 0 ||
                line.compare(quoted.size(), 1, "=") == 0)) {
      drop = true;
      const size_t open = line.find('[', quoted.size());
      insideDroppedList = open != std::string::npos && line.find(']', open) == std::string::npos;
    }
    if (!drop) {
      kept += line;
      if (newline != std::string::npos) kept += '\n';
    }
    if (newline == std::string::npos) break;
    start = newline + 1;
  }
  return kept;
}

void CargoManifests::removeKey(const std::string& cargoHome, const std::string& key) {
  const std::string json = cargoHome + "/.crates2.json";
  if (auto manifest = tool_files::readJsonObject(json)) {
    auto installs = manifest->find("installs");
    if (installs != manifest->end() && installs->is_object() && installs->erase(key) > 0)
      replaceKeepingMode(json, manifest->dump());
  }
  const std::string toml = cargoHome + "/.crates.toml";
  if (auto text = readFileContents(toml, 16 * 1024 * 1024)) {
    const std::string kept = tomlWithoutKey(*text, key);
    if (kept != *text) replaceKeepingMode(toml, kept);
  }
}

}  // namespace brisko
