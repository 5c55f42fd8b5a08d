#include "apps/home_program_folder.h"

#include <cstdlib>
#include <set>
#include <sstream>

#include "apps/app_image.h"
#include "base/file_contents.h"
#include "base/path_components.h"
#include "base/unicode_text.h"

namespace brisko {
namespace {

// The user folders of user-dirs.dirs ("$HOME/Downloads"), and the usual ones.
std::set<std::string> userFolders(const std::string& home) {
  std::set<std::string> folders;
  for (const char* name :
       {"Desktop", "Documents", "Downloads", "Music", "Pictures", "Public", "Templates", "Videos"})
    folders.insert(home + "/" + name);
  const char* configured = std::getenv("XDG_CONFIG_HOME");
  const std::string config =
      configured != nullptr && configured[0] == '/' ? configured : home + "/.config";
  const auto text = readFileContents(config + "/user-dirs.dirs", 64 * 1024);
  if (!text) return folders;
  std::istringstream lines(*text);
  std::string line;
  while (std::getline(lines, line)) {
    const size_t open = line.find("=\"");
    if (line.rfind("XDG_", 0) != 0 || open == std::string::npos || line.back() != '"') continue;
    std::string value = line.substr(open + 2, line.size() - open - 3);
    if (value.rfind("$HOME", 0) == 0) value = home + value.substr(5);
    while (value.size() > 1 && value.back() == '/')
      value.pop_back();
    if (!value.empty() && value.front() == '/') folders.insert(value);
  }
  return folders;
}

bool isBaseFolder(const std::string& folder, const std::string& home) {
  if (folder == home || parentPath(folder) == home + "/.local") return true;
  for (const char* base : {"/.local", "/bin", "/opt", "/Applications"}) {
    if (folder == home + base) return true;
  }
  return userFolders(home).count(folder) > 0;
}

std::set<std::string> nameForms(const std::string& name, const std::string& desktopID) {
  std::set<std::string> forms;
  const std::string lowered = lowercasedText(name);
  forms.insert(lowered);
  for (const char joiner : {'\0', '-', '_'}) {
    std::string joined;
    for (const char character : lowered) {
      if (character != ' ') {
        joined.push_back(character);
      } else if (joiner != '\0') {
        joined.push_back(joiner);
      }
    }
    forms.insert(joined);
  }
  std::string id = lowercasedText(desktopID);
  if (id.size() > 8 && id.compare(id.size() - 8, 8, ".desktop") == 0) id.resize(id.size() - 8);
  forms.insert(id);
  forms.insert(id.substr(id.rfind('.') == std::string::npos ? 0 : id.rfind('.') + 1));
  forms.erase("");
  return forms;
}

}  // namespace

std::optional<std::string> homeProgramFolder(const std::string& program, const std::string& name,
                                             const std::string& desktopID,
                                             const CatalogSettings& settings) {
  if (!settings.isInHome(program) || program == settings.home) return std::nullopt;
  std::string folder = parentPath(program);
  if (lastPathComponent(folder) == "bin") folder = parentPath(folder);
  if (!settings.isInHome(folder) || isBaseFolder(folder, settings.home)) return std::nullopt;
  const std::string folderName = lowercasedText(lastPathComponent(folder));
  const auto forms = nameForms(name, desktopID);
  if (forms.count(folderName) > 0 || forms.count(splitVersionTail(folderName).name) > 0)
    return folder;
  return std::nullopt;
}

}  // namespace brisko
