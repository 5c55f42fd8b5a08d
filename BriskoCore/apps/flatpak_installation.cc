#include "apps/flatpak_installation.h"

#include <dirent.h>
#include <glib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <climits>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "apps/visible_names.h"
#include "base/file_contents.h"
#include "platform/file_probe.h"

namespace brisko {
namespace {

std::optional<std::string> linkTarget(const std::string& path) {
  char buffer[PATH_MAX];
  const ssize_t length = ::readlink(path.c_str(), buffer, sizeof buffer);
  if (length <= 0) return std::nullopt;
  return std::string(buffer, static_cast<size_t>(length));
}

bool isDirectory(const std::string& path) {
  struct stat info;
  return ::stat(path.c_str(), &info) == 0 && S_ISDIR(info.st_mode);
}

// "<arch>/<branch>" of the app's `current` link, else the first branch folder
// with an `active` link.
std::optional<std::string> activeBranch(const std::string& folder) {
  if (auto current = linkTarget(folder + "/current")) {
    if (current->find("..") == std::string::npos && current->front() != '/') return *current;
  }
  const auto architectures = visibleNames(folder);
  if (!architectures) return std::nullopt;
  for (const auto& architecture : *architectures) {
    if (architecture == "current") continue;
    const auto branches = visibleNames(folder + "/" + architecture);
    if (!branches) continue;
    for (const auto& branch : *branches) {
      const std::string candidate = architecture + "/" + branch;
      if (FileProbe::kind(folder + "/" + candidate + "/active") == FileProbe::Kind::symlink)
        return candidate;
    }
  }
  return std::nullopt;
}

struct MetainfoState {
  MetainfoSummary summary;
  std::vector<std::string> elements;
  bool inUntranslatedName = false;
};

void startElement(GMarkupParseContext*, const gchar* element, const gchar** names,
                  const gchar** values, gpointer data, GError**) {
  auto& state = *static_cast<MetainfoState*>(data);
  state.elements.emplace_back(element);
  const std::string parent =
      state.elements.size() >= 2 ? state.elements[state.elements.size() - 2] : "";
  bool translated = false;
  for (size_t i = 0; names[i] != nullptr; ++i) {
    if (std::strcmp(names[i], "xml:lang") == 0) translated = true;
    if (std::strcmp(element, "release") == 0 && parent == "releases" &&
        std::strcmp(names[i], "version") == 0 && !state.summary.version)
      state.summary.version = values[i];
  }
  state.inUntranslatedName = std::strcmp(element, "name") == 0 && !translated &&
                             state.elements.size() == 2 && !state.summary.name;
}

void endElement(GMarkupParseContext*, const gchar*, gpointer data, GError**) {
  auto& state = *static_cast<MetainfoState*>(data);
  if (!state.elements.empty()) state.elements.pop_back();
  state.inUntranslatedName = false;
}

void text(GMarkupParseContext*, const gchar* text, gsize length, gpointer data, GError**) {
  auto& state = *static_cast<MetainfoState*>(data);
  if (state.inUntranslatedName) state.summary.name = std::string(text, length);
}

std::optional<std::string> metainfoDocument(const std::string& deployment, const std::string& id) {
  for (const char* folder : {"/files/share/metainfo/", "/files/share/appdata/"}) {
    for (const char* suffix : {".metainfo.xml", ".appdata.xml"}) {
      if (auto document = readFileContents(deployment + folder + id + suffix, 4 * 1024 * 1024))
        return document;
    }
  }
  return std::nullopt;
}

}  // namespace

MetainfoSummary readMetainfo(std::string_view document) {
  MetainfoState state;
  const GMarkupParser parser{startElement, endElement, text, nullptr, nullptr};
  GMarkupParseContext* context =
      g_markup_parse_context_new(&parser, static_cast<GMarkupParseFlags>(0), &state, nullptr);
  const bool parsed = g_markup_parse_context_parse(context, document.data(),
                                                   static_cast<gssize>(document.size()), nullptr) &&
                      g_markup_parse_context_end_parse(context, nullptr);
  g_markup_parse_context_free(context);
  if (!parsed) return {};
  return state.summary;
}

FlatpakInstallation FlatpakInstallation::read(const std::string& installation) {
  FlatpakInstallation result;
  const std::string appFolder = installation + "/app";
  if (!isDirectory(appFolder)) return result;
  const auto ids = visibleNames(appFolder);
  if (!ids) {
    result.isComplete = false;
    return result;
  }
  for (const auto& id : *ids) {
    FlatpakApplication application;
    application.id = id;
    application.folder = appFolder + "/" + id;
    const auto branch = activeBranch(application.folder);
    if (!branch) continue;
    const std::string active = application.folder + "/" + *branch + "/active";
    const auto stamp = FileProbe::stamp(active);
    char resolved[PATH_MAX];
    if (!stamp || ::realpath(active.c_str(), resolved) == nullptr || !isDirectory(resolved))
      continue;  // a dangling `active` link: no deployment to list
    application.activeStamp = *stamp;
    application.deployment = resolved;
    application.metadataStamp = FileProbe::stamp(application.deployment + "/metadata");
    if (const auto document = metainfoDocument(application.deployment, id)) {
      auto summary = readMetainfo(*document);
      application.version = std::move(summary.version);
      application.name = std::move(summary.name);
    }
    result.applications.push_back(std::move(application));
  }
  return result;
}

}  // namespace brisko
