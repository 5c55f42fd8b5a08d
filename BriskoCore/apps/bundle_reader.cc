#include "apps/bundle_reader.h"

#include <dirent.h>
#include <sys/stat.h>

#include <climits>
#include <cstdlib>
#include <memory>

#include "apps/property_list.h"
#include "base/path_components.h"
#include "base/unicode_text.h"
#include "platform/file_probe.h"

namespace brisko {
namespace {

bool endsWithApp(std::string_view name) {
  return name.size() > 4 && lowercasedText(name.substr(name.size() - 4)) == ".app";
}

bool liesInSystemTree(const std::string& resolved) {
  for (const char* prefix : {"/System/", "/usr/bin/", "/usr/lib/", "/bin/", "/sbin/", "/etc/"}) {
    if (resolved.rfind(prefix, 0) == 0) return true;
  }
  return resolved.rfind("/private", 0) == 0;
}

// The Info.plist of the ".app" inside "Wrapper", the form of a wrapped
// application; the first one the folder lists.
std::optional<std::string> wrappedInfoPlist(const std::string& bundle) {
  const std::string wrapper = bundle + "/Wrapper";
  std::unique_ptr<DIR, int (*)(DIR*)> directory(::opendir(wrapper.c_str()), ::closedir);
  if (!directory) return std::nullopt;
  while (const dirent* entry = ::readdir(directory.get())) {
    const std::string name = entry->d_name;
    if (name.front() == '.' || !endsWithApp(name)) continue;
    const std::string plist = wrapper + "/" + name + "/Info.plist";
    if (FileProbe::kind(plist) == FileProbe::Kind::fileOrOther) return plist;
  }
  return std::nullopt;
}

bool isVersionLikeTail(std::string_view tail) {
  size_t start = 0;
  while (start < tail.size() && (tail[start] == ' ' || tail[start] == '-' || tail[start] == '_'))
    ++start;
  if (start == tail.size() || tail[start] < '0' || tail[start] > '9') return false;
  for (const char character : tail.substr(start)) {
    const bool allowed =
        (character >= '0' && character <= '9') || character == '.' || character == ' ' ||
        character == '-' || character == '_' || character == '(' || character == ')' ||
        (character >= 'a' && character <= 'z') || (character >= 'A' && character <= 'Z');
    if (!allowed) return false;
  }
  return true;
}

}  // namespace

std::string bundleNameOf(std::string_view path) {
  std::string name = lastPathComponent(path);
  if (endsWithApp(name)) name.resize(name.size() - 4);
  return name;
}

std::string bundleDisplayName(const std::optional<std::string>& displayName,
                              const std::optional<std::string>& name,
                              const std::string& bundleName) {
  std::string chosen = displayName ? *displayName : name ? *name : bundleName;
  if (chosen.empty() || chosen.front() == '/') return bundleName;
  if (chosen.size() > bundleName.size() && chosen.compare(0, bundleName.size(), bundleName) == 0 &&
      isVersionLikeTail(std::string_view(chosen).substr(bundleName.size())))
    return bundleName;
  return chosen;
}

std::optional<InstalledApplication> readBundle(const std::string& path, const std::string& root) {
  if (FileProbe::kind(path) == FileProbe::Kind::missing) return std::nullopt;
  char buffer[PATH_MAX];
  if (::realpath(path.c_str(), buffer) == nullptr) return std::nullopt;
  std::string resolved = buffer;
  if (root != "/" && resolved.rfind(root + "/", 0) == 0) resolved = resolved.substr(root.size());
  if (liesInSystemTree(resolved)) return std::nullopt;

  std::optional<std::string> infoPath = path + "/Contents/Info.plist";
  if (FileProbe::kind(*infoPath) != FileProbe::Kind::fileOrOther) infoPath = wrappedInfoPlist(path);
  if (!infoPath) return std::nullopt;
  const auto list = PropertyList::read(*infoPath);
  if (!list) return std::nullopt;

  bool wrongType = false;
  const auto text = [&](const char* key) -> std::optional<std::string> {
    auto value = list->value(key);
    if (value.lookup == PropertyList::Lookup::notText) wrongType = true;
    if (value.lookup != PropertyList::Lookup::text) return std::nullopt;
    return std::move(value.text);
  };
  InstalledApplication application;
  application.id = path;
  application.bundleName = bundleNameOf(path);
  if (auto identifier = text("CFBundleIdentifier")) {
    const std::string trimmed(trimmingWhitespaceAndNewlines(*identifier));
    if (!trimmed.empty()) application.bundleID = trimmed;
  }
  application.version = text("CFBundleShortVersionString");
  if (!application.version) application.version = text("CFBundleVersion");
  application.executableName = text("CFBundleExecutable");
  const auto displayName = text("CFBundleDisplayName");
  const auto name = text("CFBundleName");
  if (wrongType) return std::nullopt;
  application.name = displayableName(bundleDisplayName(displayName, name, application.bundleName));

  const auto identity = FileProbe::stamp(path);
  if (!identity) return std::nullopt;
  application.identity = *identity;
  application.infoIdentity = FileProbe::stamp(*infoPath);
  application.source = ApplicationSource::bundle;
  // A link is measured where it leads; measuring the link itself gives nothing.
  if (FileProbe::kind(path) == FileProbe::Kind::symlink) application.sizePath = buffer;
  return application;
}

}  // namespace brisko
