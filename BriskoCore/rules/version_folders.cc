// The two version rules of the runtime: keep the newest versions (and the one
// in use), and keep the active version and anything newer.

#include <unicode/uchar.h>
#include <unicode/utf8.h>
#include <unistd.h>

#include <algorithm>
#include <set>

#include "base/standardized_path.h"
#include "rules/cleanup_rule_runtime.h"
#include "rules/directory_listing.h"
#include "safety/path_safety_policy.h"

namespace brisko::CleanupRuleRuntime {

namespace {

using rules_internal::exists;
using rules_internal::listDirectory;
using rules_internal::ListedEntry;

struct VersionEntry {
  std::string path;
  std::string name;
  Date mtime;
};

// What can't be dated counts as newest, so that it is kept.
constexpr Date kDistantFuture = Date::max();
constexpr Date kDistantPast = Date::min();

// Newest first; of equal dates the greater path counts as newer.
void sortNewestFirst(std::vector<VersionEntry>& entries) {
  std::sort(entries.begin(), entries.end(), [](const VersionEntry& a, const VersionEntry& b) {
    if (a.mtime != b.mtime) return a.mtime > b.mtime;
    return a.path > b.path;
  });
}

// True when the name's first character is a decimal digit of any script.
bool beginsWithDecimalDigit(const std::string& name) {
  if (name.empty()) return false;
  int32_t offset = 0;
  UChar32 first;
  U8_NEXT(name.data(), offset, static_cast<int32_t>(name.size()), first);
  return first >= 0 && u_isdigit(first);
}

// True when `target` is `folder` itself or lies somewhere below it.
bool isSameOrInside(const std::string& target, const std::string& folder) {
  const std::string normalizedTarget = normalizedPolicyPath(target);
  const std::string normalizedFolder = normalizedPolicyPath(folder);
  return normalizedTarget == normalizedFolder ||
         normalizedTarget.starts_with(normalizedFolder + "/");
}

VersionEntry versionEntry(const ListedEntry& entry) {
  return VersionEntry{standardizedPath(entry.path), entry.name,
                      entry.modificationDate.value_or(kDistantFuture)};
}

}  // namespace

std::optional<std::vector<std::string>> versionsToRemove(
    const std::string& root, int keep, const std::optional<std::string>& activePin,
    std::string_view home) {
  std::optional<std::string> activeTarget;
  if (activePin) {
    const std::string pin = expandedPath(*activePin, home);
    if (!exists(pin)) return std::nullopt;
    const auto resolved = realPath(pin);
    if (!resolved) return std::nullopt;
    activeTarget = standardizedPath(*resolved);
  }

  const auto listing = listDirectory(root, /*skipHidden=*/false);
  if (!listing) return std::vector<std::string>{};
  std::vector<VersionEntry> entries;
  for (const ListedEntry& entry : *listing) {
    if (entry.name.starts_with(".")) continue;
    if (activePin && !beginsWithDecimalDigit(entry.name)) continue;
    if (!entry.valuesReadable || entry.isSymbolicLink || !entry.isDirectory) continue;
    entries.push_back(versionEntry(entry));
  }
  sortNewestFirst(entries);

  std::set<std::string> kept;
  if (activeTarget) {
    // The pin resolves links, the root may have been reached through one:
    // the version in use is recognised under either form of the root.
    const auto realRoot = realPath(root);
    for (const VersionEntry& entry : entries) {
      if (isSameOrInside(*activeTarget, entry.path) ||
          (realRoot && isSameOrInside(*activeTarget, *realRoot + "/" + entry.name))) {
        kept.insert(entry.path);
        break;
      }
    }
  }
  // The pinned version doesn't use up the quota.
  const int quota = std::max(keep, 0);
  int added = 0;
  for (const VersionEntry& entry : entries) {
    if (added >= quota) break;
    if (kept.insert(entry.path).second) ++added;
  }

  std::vector<std::string> result;
  for (const VersionEntry& entry : entries) {
    if (!kept.contains(entry.path)) result.push_back(entry.path);
  }
  return result;
}

std::optional<std::vector<std::string>> versionsOlderThanActive(const std::string& root,
                                                                const std::string& currentSymlink) {
  // An application bundle that the user can't write to is left alone.
  if (!exists(root) || ::access(root.c_str(), W_OK) != 0) return std::vector<std::string>{};

  const std::string link = standardizedPath(root + "/" + currentSymlink);
  if (!exists(link)) return std::nullopt;
  const auto resolved = realPath(link);
  if (!resolved) return std::nullopt;
  const std::string active = standardizedPath(*resolved);
  const auto realRoot = realPath(root);
  if (!isDirectChild(active, root) && !(realRoot && isDirectChild(active, *realRoot))) {
    return std::nullopt;
  }
  const Date activeDate = rules_internal::modificationDate(active).value_or(kDistantPast);

  const auto listing = listDirectory(root, /*skipHidden=*/false);
  if (!listing) return std::vector<std::string>{};
  std::vector<std::string> older;
  for (const ListedEntry& entry : *listing) {
    if (entry.name.starts_with(".") || entry.name == currentSymlink) continue;
    if (!entry.valuesReadable || entry.isSymbolicLink || !entry.isDirectory) continue;
    const VersionEntry version = versionEntry(entry);
    if (version.path == active || (realRoot && *realRoot + "/" + entry.name == active)) continue;
    if (version.mtime > activeDate) continue;
    older.push_back(version.path);
  }
  std::sort(older.begin(), older.end());
  return older;
}

}  // namespace brisko::CleanupRuleRuntime
