#pragma once

#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "rules/cleanup_rule.h"
#include "rules/running_process.h"

// Pure decisions about rule targets: which concrete paths a pattern means
// today, which version folders may go, whether a guard is hit and what the
// user is told then. The scan, the plan builder and the executor all ask
// these same functions, so a plan can never be wider than a scan.
//
// Everything here only reads the file system and never throws. Where an
// answer is optional, none means the decision can't be made safely and the
// caller must treat the location as holding nothing to remove; an empty list
// means the decision was made and found nothing.
namespace brisko::CleanupRuleRuntime {

// "~" is the home, "~/x" is the home followed by "/x"; anything else is taken
// as written. Always standardised, without a trailing slash.
std::string expandedPath(std::string_view path, std::string_view home);

// The existing paths that a target's pattern means, sorted by path. A
// component holding "*" or "?" is matched with fnmatch against the folders
// below; such a component never matches a hidden folder, a symbolic link or
// anything but a folder. A pattern without wildcards yields its one path if
// anything (also a file) is there.
std::vector<std::string> expandedRoots(const RuleTarget& target, std::string_view home);

// The version folders of `root` to remove: all but the newest `keep` (0 when
// negative) and the one the pin points into. With a pin only folders whose
// name begins with a digit are candidates. None when the pin is given but
// doesn't resolve: then the version in use is unknown.
std::optional<std::vector<std::string>> versionsToRemove(
    const std::string& root, int keep, const std::optional<std::string>& activePin,
    std::string_view home);

// The version folders of `root` not newer than the one that the link
// `currentSymlink` in it points at, sorted by path. Empty when the root is
// missing or not writable; none when the link doesn't resolve to a folder
// directly inside the root.
std::optional<std::vector<std::string>> versionsOlderThanActive(const std::string& root,
                                                                const std::string& currentSymlink);

// The cache folders of a chromium-style application folder: the primary
// cache names that exist and, only if there is one, the secondary ones.
std::vector<std::string> electronCacheFolders(const std::string& appFolder);

// The names that make a folder a chromium-style application, and the generic
// ones that are taken only beside them.
const std::vector<std::string>& primaryCacheFolderNames();
const std::vector<std::string>& secondaryCacheFolderNames();

// True if the lower-cased name contains one of the lower-cased domains.
bool isProtectedDomain(std::string_view name, const std::vector<std::string>& domains);

// Whether a per-origin folder of a CacheStorage root is kept: its name or its
// index.txt (where the origin is written, as the name is only a hash) holds a
// protected domain, or its index.txt can't be read as a regular file.
bool isProtectedServiceWorkerFolder(const std::string& folder,
                                    const std::vector<std::string>& domains);

// Whether `name` matches one of the fnmatch patterns of an excluded-entries set.
bool isExcludedEntry(std::string_view name, const std::set<std::string>& excludedEntries);

// The name that the first wildcard component of the target's pattern matched
// in `root` (a root the pattern expanded to); none for a pattern without one.
std::optional<std::string> firstWildcardMatch(const RuleTarget& target, std::string_view root,
                                              std::string_view home);

// The target as it stands for one of its roots: "{1}" in its item title and
// in its guards becomes the name its first wildcard matched there.
RuleTarget targetForRoot(const RuleTarget& target, std::string_view root, std::string_view home);

// Whether the target's title or guards depend on the root ("{1}").
bool dependsOnRoot(const RuleTarget& target);

// True when `root` is a symbolic link or, where it lies below `home`, some
// folder between the home and it is one. Nothing is offered from such a root:
// a cache folder linked to another place may lead anywhere.
bool isLinkedRoot(std::string_view root, std::string_view home);

// True when a guard is hit. An absent process list hits every non-empty guard
// list: nothing guarded is offered while it can't be told what is running.
bool isGuardHit(const std::vector<RuleGuard>& guards, const RunningProcesses& processes);

// The application to name in a guard warning: "Xcode" for the Xcode and
// Simulator guards, else the first name of the first guard that has one.
std::string guardAppName(const std::vector<RuleGuard>& guards);

// The encoded warning for a target held back by a guard.
std::string guardWarning(std::string_view appName, std::string_view title);

// True when `path` lies directly inside `root`, comparing normalised paths.
bool isDirectChild(std::string_view path, std::string_view root);

// The path with every link resolved, or none when it can't be resolved or
// the result would be 1024 bytes or longer.
std::optional<std::string> realPath(const std::string& path);

}  // namespace brisko::CleanupRuleRuntime
