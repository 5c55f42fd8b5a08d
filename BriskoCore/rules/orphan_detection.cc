#include "rules/orphan_detection.h"

#include <dirent.h>
#include <fcntl.h>
#include <fnmatch.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cstring>
#include <vector>

#include "base/path_components.h"
#include "base/unicode_text.h"
#include "rules/cleanup_rule_runtime.h"

namespace brisko::OrphanDetection {

namespace {

constexpr std::string_view kSavedStateSuffix = ".savedState";
constexpr std::string_view kApplePrefix = "com.apple.";

int64_t allocatedBytes(const struct stat& status) {
  const int64_t bytes = static_cast<int64_t>(status.st_blocks) * 512;
  return bytes < 0 ? 0 : bytes;
}

std::optional<Date> modificationDateOnDisk(const std::string& path) {
  struct stat status;
  if (::lstat(path.c_str(), &status) != 0) return std::nullopt;
  return dateFromFileTime(status.st_mtim.tv_sec, status.st_mtim.tv_nsec);
}

}  // namespace

bool isBundleIDLike(std::string_view name) {
  const std::string lower = lowercasedText(name);
  for (std::string_view prefix : {"com.", "org.", "net.", "io."}) {
    if (lower.starts_with(prefix)) return true;
  }
  return false;
}

std::optional<std::string> bundleID(std::string_view entryName, OrphanResource resource) {
  std::string_view name = entryName;
  if (resource == OrphanResource::savedState) {
    if (!name.ends_with(kSavedStateSuffix)) return std::nullopt;
    name.remove_suffix(kSavedStateSuffix.size());
  }
  if (!isBundleIDLike(name) || lowercasedText(name).starts_with(kApplePrefix)) return std::nullopt;
  return std::string(name);
}

std::optional<OrphanResource> resource(std::string_view path, std::string_view home) {
  using Folder = std::pair<const char*, OrphanResource>;
  for (const auto& [folder, kind] :
       {Folder{"~/Library/Caches", OrphanResource::caches},
        Folder{"~/Library/Logs", OrphanResource::logs},
        Folder{"~/Library/Saved Application State", OrphanResource::savedState}}) {
    if (CleanupRuleRuntime::isDirectChild(path, CleanupRuleRuntime::expandedPath(folder, home))) {
      return kind;
    }
  }
  return std::nullopt;
}

bool isSensitiveName(std::string_view name) {
  static constexpr std::array<const char*, 10> patterns = {
      "*1password*", "*keychain*", "*bitwarden*", "*lastpass*", "*keepass*",
      "*dashlane*",  "*enpass*",   "*ssh*",       "*gpg*",      "*gnupg*"};
  const std::string lower = lowercasedText(name);
  for (const char* pattern : patterns) {
    if (::fnmatch(pattern, lower.c_str(), 0) == 0) return true;
  }
  return false;
}

int64_t allocatedSize(const std::string& path) {
  struct stat status;
  if (::lstat(path.c_str(), &status) != 0) return 0;
  if (S_ISREG(status.st_mode)) return allocatedBytes(status);
  if (!S_ISDIR(status.st_mode)) return 0;

  int64_t total = 0;
  std::vector<std::string> pending = {path};
  while (!pending.empty()) {
    const std::string folder = std::move(pending.back());
    pending.pop_back();
    // O_NOFOLLOW: a folder swapped for a link since it was listed is not entered.
    const int descriptor = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    if (descriptor < 0) continue;
    DIR* directory = ::fdopendir(descriptor);
    if (directory == nullptr) {
      ::close(descriptor);
      continue;
    }
    while (const dirent* child = ::readdir(directory)) {
      if (std::strcmp(child->d_name, ".") == 0 || std::strcmp(child->d_name, "..") == 0) continue;
      struct stat childStatus;
      if (::fstatat(descriptor, child->d_name, &childStatus, AT_SYMLINK_NOFOLLOW) != 0) continue;
      if (S_ISREG(childStatus.st_mode)) {
        total += allocatedBytes(childStatus);
      } else if (S_ISDIR(childStatus.st_mode)) {
        pending.push_back(folder + "/" + child->d_name);
      }
    }
    ::closedir(directory);
  }
  return total;
}

Judgement judge(const std::string& entry, OrphanResource resource,
                const InstalledAppInventory& installedApps, const SpotlightResolver& spotlight,
                const PathSafetyPolicy& policy, const MtimeSource& mtime, Date now) {
  // A partial inventory can't tell that an application is gone.
  if (!installedApps.isComplete) return Judgement::notOrphan();

  const auto identifier = bundleID(lastPathComponent(normalizedPolicyPath(entry)), resource);
  if (!identifier) return Judgement::notOrphan();
  const std::string lower = lowercasedText(*identifier);
  if (isSensitiveName(lower) || lower.starts_with(kApplePrefix)) return Judgement::notOrphan();
  if (installedApps.bundleIDs.contains(lower)) return Judgement::notOrphan();

  switch (policy.evaluate(entry, /*resolvingSymlinks=*/false).kind()) {
    case PathSafetyVerdict::Kind::protected_:
      return Judgement::policySkipped(true, false, false);
    case PathSafetyVerdict::Kind::whitelisted:
      return Judgement::policySkipped(false, true, false);
    case PathSafetyVerdict::Kind::invalid:
      return Judgement::policySkipped(false, false, true);
    case PathSafetyVerdict::Kind::allowed:
      break;
  }

  std::optional<Date> date;
  if (const auto* fixed = std::get_if<MtimeSource::Fixed>(&mtime.value)) {
    date = fixed->date;
  } else {
    date = modificationDateOnDisk(entry);
  }
  if (!date) return Judgement::notOrphan();
  // Younger than 30 days, compared without subtracting the date itself, which
  // may lie anywhere.
  if (*date > now - std::chrono::seconds(kMinimumAgeSeconds)) return Judgement::notOrphan();

  // Only a clear "not installed" goes on; no answer keeps the folder.
  const std::optional<bool> installed = spotlight.isInstalled(lower);
  if (!installed || *installed) return Judgement::notOrphan();

  const int64_t bytes = allocatedSize(entry);
  if (bytes <= 0) return Judgement::notOrphan();
  return Judgement::orphan(bytes, *identifier);
}

}  // namespace brisko::OrphanDetection
