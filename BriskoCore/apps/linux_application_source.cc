#include "apps/linux_application_source.h"

#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <map>
#include <memory>
#include <set>

#include "apps/app_image.h"
#include "apps/desktop_entry.h"
#include "apps/desktop_entry_folders.h"
#include "apps/dpkg_packages.h"
#include "apps/flatpak_installation.h"
#include "apps/home_program_folder.h"
#include "base/file_contents.h"
#include "base/path_components.h"
#include "base/unicode_text.h"
#include "platform/file_probe.h"

namespace brisko {
namespace {

bool isExecutableFile(const std::string& path) {
  struct stat info;
  return ::stat(path.c_str(), &info) == 0 && S_ISREG(info.st_mode) && (info.st_mode & 0111) != 0;
}

std::string resolvedPath(const std::string& path) {
  char buffer[PATH_MAX];
  return ::realpath(path.c_str(), buffer) != nullptr ? std::string(buffer) : path;
}

// Where a program named in an entry lies on disk: an absolute path (under the
// root unless it is in the home), or a bare name found on PATH. None when it
// isn't there.
std::optional<std::string> locateProgram(const std::string& program,
                                         const CatalogSettings& settings) {
  if (program.empty()) return std::nullopt;
  if (program.front() == '/') {
    const std::string onDisk = settings.underRoot(program);
    return isExecutableFile(onDisk) ? std::optional(onDisk) : std::nullopt;
  }
  if (program.find('/') != std::string::npos) return std::nullopt;
  for (const auto& directory : settings.programPath) {
    const std::string candidate = directory + "/" + program;
    if (isExecutableFile(candidate)) return candidate;
  }
  return std::nullopt;
}

std::vector<std::string> regularFiles(const std::string& folder) {
  std::vector<std::string> files;
  std::unique_ptr<DIR, int (*)(DIR*)> directory(::opendir(folder.c_str()), ::closedir);
  if (!directory) return files;
  while (const dirent* entry = ::readdir(directory.get())) {
    if (entry->d_name[0] == '.') continue;
    const std::string path = folder + "/" + entry->d_name;
    if (FileProbe::kind(path) == FileProbe::Kind::fileOrOther) files.push_back(path);
  }
  return files;
}

std::string firstLineValue(const std::string& text, const std::string& key) {
  size_t at = 0;
  while (at < text.size()) {
    size_t end = text.find('\n', at);
    if (end == std::string::npos) end = text.size();
    const std::string line = text.substr(at, end - at);
    at = end + 1;
    if (line.rfind(key + ":", 0) != 0) continue;
    std::string value(trimmingWhitespace(line.substr(key.size() + 1)));
    if (value.size() >= 2 && (value.front() == '\'' || value.front() == '"') &&
        value.back() == value.front())
      value = value.substr(1, value.size() - 2);
    return value;
  }
  return "";
}

struct Builder {
  const CatalogSettings& settings;
  std::vector<InstalledApplication> records;
  std::map<std::string, size_t> byOwner;  // owner key → index in records

  // The record of `owner`, made by `make` the first time.
  template <typename Make>
  InstalledApplication* owner(const std::string& key, Make make) {
    if (auto found = byOwner.find(key); found != byOwner.end()) return &records[found->second];
    std::optional<InstalledApplication> made = make();
    if (!made) return nullptr;
    if (made->name.empty()) made->name = made->bundleName;
    made->name = displayableName(made->name);
    byOwner.emplace(key, records.size());
    records.push_back(std::move(*made));
    return &records.back();
  }
};

InstalledApplication entryRecord(const DesktopEntry& entry, ApplicationSource source,
                                 const std::string& program) {
  InstalledApplication record;
  record.id = entry.path;
  record.name = entry.name;
  record.bundleName = desktopIDStem(entry.id);
  record.bundleID = desktopIDStem(entry.id);
  if (!program.empty()) record.executableName = lastPathComponent(program);
  record.identity = FileProbe::stamp(entry.path).value_or(BundleStamp{});
  record.source = source;
  return record;
}

std::optional<InstalledApplication> appImageRecord(const std::string& file,
                                                   const DesktopEntry* entry) {
  const auto identity = FileProbe::stamp(file);
  if (!identity) return std::nullopt;
  const auto named = appImageNameAndVersion(lastPathComponent(file));
  InstalledApplication record;
  record.id = file;
  record.name = entry != nullptr && !entry->name.empty() ? entry->name : named.name;
  record.version = named.version;
  std::string bundleName = lastPathComponent(file);
  if (lowercasedPathExtension(bundleName) == "appimage") bundleName.resize(bundleName.size() - 9);
  record.bundleName = bundleName;
  if (entry != nullptr) {
    record.bundleID = desktopIDStem(entry->id);
    record.infoIdentity = FileProbe::stamp(entry->path);
  }
  record.executableName = lastPathComponent(file);
  record.identity = *identity;
  record.source = ApplicationSource::appImage;
  return record;
}

InstalledApplication flatpakRecord(const FlatpakApplication& application, bool isSystem) {
  InstalledApplication record;
  record.id = application.folder;
  record.name = application.name.value_or(application.id);
  record.bundleName = application.id;
  record.bundleID = application.id;
  record.version = application.version;
  record.identity = application.activeStamp;
  record.infoIdentity = application.metadataStamp;
  record.source = isSystem ? ApplicationSource::flatpakSystem : ApplicationSource::flatpakUser;
  if (isSystem) record.managedBy = "flatpak";
  record.sizePath = application.deployment;
  return record;
}

}  // namespace

bool isWebAppArgument(std::string_view argument) {
  constexpr std::string_view kPrefix = "--app-id=";
  if (argument.substr(0, kPrefix.size()) != kPrefix || argument.size() != kPrefix.size() + 32)
    return false;
  for (const char letter : argument.substr(kPrefix.size())) {
    if (letter < 'a' || letter > 'p') return false;
  }
  return true;
}

SourceListing LinuxApplicationSource::list(const CatalogSettings& settings) {
  SourceListing listing;
  Builder builder{settings, {}, {}};
  packageQueries_ = 0;

  // Flatpak applications stand on their own; their entries only name them.
  std::map<std::string, std::string> flatpakOwners;  // app id → owner key, user first
  for (const bool isSystem : {false, true}) {
    const auto installation =
        FlatpakInstallation::read(isSystem ? settings.flatpakSystemDir : settings.flatpakUserDir);
    listing.isComplete = listing.isComplete && installation.isComplete;
    for (const auto& application : installation.applications) {
      listing.installations.push_back({application.folder, application.id, application.id});
      const std::string key = "flatpak:" + application.folder;
      flatpakOwners.emplace(application.id, key);
      builder.owner(key, [&] { return std::optional(flatpakRecord(application, isSystem)); });
    }
  }
  std::set<std::string> namedFlatpaks;

  const auto files = findDesktopEntryFiles(settings);
  listing.isComplete = listing.isComplete && files.isComplete;
  std::map<std::string, std::string> systemEntryByID;  // id → a system folder's entry
  for (const auto& file : files.files) {
    listing.installations.push_back({file.path, desktopIDStem(file.id), desktopIDStem(file.id)});
    if (!file.isUser) systemEntryByID.emplace(file.id, file.path);
  }

  struct SystemCandidate {
    size_t record;
    std::string lookupPath;  // the system's spelling, for dpkg
    bool isUser = false;
    size_t idLength = 0;
  };
  std::vector<SystemCandidate> systemCandidates;

  const std::string systemExports = settings.flatpakSystemDir + "/exports/";
  for (const auto& file : files.files) {
    // An installation's own export names its application even where the
    // other installation's export of the same id comes first.
    const bool systemExport = file.path.rfind(systemExports, 0) == 0;
    const bool userExport = file.path.rfind(settings.flatpakUserDir + "/exports/", 0) == 0;
    if (file.isShadowed && !systemExport && !userExport) continue;
    const auto entry = DesktopEntry::read(file.path, file.id, settings.namingLanguage);
    if (!entry || entry->type != "Application" || entry->hidden || entry->noDisplay) continue;
    if (file.isShadowed && !entry->flatpakID) continue;
    const std::string program = execProgram(entry->exec);

    bool webApp = false;
    for (const auto& argument : entry->exec)
      webApp = webApp || isWebAppArgument(argument);
    if (webApp && file.isUser) {
      builder.owner("entry:" + file.path, [&] {
        return std::optional(entryRecord(*entry, ApplicationSource::webApp, program));
      });
      continue;
    }
    if (entry->flatpakID) {
      // The installation whose export holds the entry, else the user's, else the system's.
      std::string key;
      if (systemExport || userExport)
        key = "flatpak:" + (systemExport ? settings.flatpakSystemDir : settings.flatpakUserDir) +
              "/app/" + *entry->flatpakID;
      if (builder.byOwner.count(key) == 0) {
        const auto owner = flatpakOwners.find(*entry->flatpakID);
        key = owner != flatpakOwners.end() ? owner->second : "";
      }
      if (!key.empty()) {
        const size_t index = builder.byOwner.at(key);
        if (!entry->name.empty() && namedFlatpaks.insert(key).second)
          builder.records[index].name = displayableName(entry->name);
        continue;
      }
      if (file.isUser) {  // the application it started is gone
        builder.owner("entry:" + file.path, [&] {
          return std::optional(entryRecord(*entry, ApplicationSource::brokenEntry, program));
        });
      }
      continue;
    }
    if (entry->snapInstanceName) {
      const std::string& snap = *entry->snapInstanceName;
      if (snap.empty() || snap.find('/') != std::string::npos || snap.front() == '.') continue;
      builder.owner("snap:" + snap, [&] {
        auto record = entryRecord(*entry, ApplicationSource::snap, program);
        record.bundleName = snap;
        record.bundleID = snap;
        record.managedBy = "snap";
        const std::string current = settings.underRoot("/snap/" + snap + "/current");
        if (auto yaml = readFileContents(current + "/meta/snap.yaml", 1024 * 1024)) {
          const std::string version = firstLineValue(*yaml, "version");
          if (!version.empty()) record.version = version;
        }
        char revision[PATH_MAX];
        const ssize_t length = ::readlink(current.c_str(), revision, sizeof revision);
        record.sizePath = "-";
        if (length > 0) {
          const std::string image = settings.underRoot("/var/lib/snapd/snaps/" + snap + "_" +
                                                       std::string(revision, length) + ".snap");
          if (FileProbe::kind(image) == FileProbe::Kind::fileOrOther) record.sizePath = image;
        }
        return std::optional(record);
      });
      continue;
    }
    if (!file.isUser && entry->tryExec && !locateProgram(*entry->tryExec, settings)) continue;
    const auto located = locateProgram(program, settings);
    if (!located) {
      if (file.isUser && !program.empty()) {
        builder.owner("entry:" + file.path, [&] {
          return std::optional(entryRecord(*entry, ApplicationSource::brokenEntry, program));
        });
      }
      continue;
    }
    const std::string resolved = resolvedPath(*located);
    if (settings.isInHome(resolved) && isAppImage(resolved)) {
      builder.owner("file:" + resolved, [&] { return appImageRecord(resolved, &*entry); });
      continue;
    }
    if (settings.isInHome(resolved)) {
      if (!file.isUser) continue;  // a system entry has no business in the home
      const auto folder = homeProgramFolder(resolved, entry->name, entry->id, settings);
      const std::string id = folder ? *folder : resolved;
      builder.owner("file:" + id, [&] {
        auto record = entryRecord(*entry, ApplicationSource::homeFolder, program);
        record.id = id;
        record.bundleName = lastPathComponent(id);
        record.identity = FileProbe::stamp(id).value_or(BundleStamp{});
        record.infoIdentity = FileProbe::stamp(entry->path);
        if (!folder) record.managedBy = "the user";
        return std::optional(record);
      });
      continue;
    }
    const size_t before = builder.records.size();
    builder.owner("entry:" + file.path, [&] {
      auto record = entryRecord(*entry, ApplicationSource::system, program);
      record.sizePath = "-";
      record.managedBy = "administrator";
      return std::optional(record);
    });
    if (builder.records.size() == before) continue;
    // A user's copy of a system entry is looked up by its id, so it stays the system's.
    std::string lookup = settings.systemPath(file.path);
    if (file.isUser) {
      const auto system = systemEntryByID.find(file.id);
      lookup = settings.systemPath(system != systemEntryByID.end() ? system->second : resolved);
    }
    systemCandidates.push_back({before, lookup, file.isUser, file.id.size()});
  }

  // AppImages in the usual folders that no entry named.
  for (const char* folder : {"/Applications", "/.local/bin", "/bin"}) {
    for (const auto& file : regularFiles(settings.home + folder)) {
      if (!isAppImage(file)) continue;
      builder.owner("file:" + resolvedPath(file), [&] { return appImageRecord(file, nullptr); });
    }
  }

  // System packages: one question to dpkg for all, one record per package.
  std::set<size_t> merged;
  if (!systemCandidates.empty()) {
    std::vector<std::string> lookups;
    for (const auto& candidate : systemCandidates)
      lookups.push_back(candidate.lookupPath);
    DpkgPackages dpkg(settings.underRoot("/var/lib/dpkg"), settings.packageCachePath);
    const auto owners = dpkg.owners(lookups);
    packageQueries_ = dpkg.processesStarted();
    // A package's record is one of its own entries rather than a user's copy,
    // the one with the shortest id ("gimp" before "gimp-extra").
    std::stable_sort(systemCandidates.begin(), systemCandidates.end(),
                     [](const SystemCandidate& a, const SystemCandidate& b) {
                       return std::pair(a.isUser, a.idLength) < std::pair(b.isUser, b.idLength);
                     });
    std::map<std::string, size_t> byPackage;
    for (const auto& candidate : systemCandidates) {
      const auto& owner = owners.at(candidate.lookupPath);
      if (!owner) continue;
      if (!byPackage.emplace(owner->package, candidate.record).second) {
        merged.insert(candidate.record);
        continue;
      }
      auto& record = builder.records[candidate.record];
      record.package = owner->package;
      record.managedBy = "dpkg";
      if (owner->version) record.version = owner->version;
      record.bytes = owner->bytes;
    }
  }
  for (size_t i = 0; i < builder.records.size(); ++i) {
    if (merged.count(i) == 0) listing.applications.push_back(std::move(builder.records[i]));
  }
  return listing;
}

}  // namespace brisko
