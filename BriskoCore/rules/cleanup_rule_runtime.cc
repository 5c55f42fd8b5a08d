#include "rules/cleanup_rule_runtime.h"

#include <fcntl.h>
#include <fnmatch.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <memory>

#include "base/path_components.h"
#include "base/standardized_path.h"
#include "base/unicode_text.h"
#include "protocol/guard_warning_text.h"
#include "rules/directory_listing.h"
#include "safety/path_safety_policy.h"

namespace brisko::CleanupRuleRuntime {

namespace {

using rules_internal::exists;
using rules_internal::listDirectory;

bool isPattern(std::string_view component) {
  return component.find_first_of("*?") != std::string_view::npos;
}

std::vector<std::string> components(std::string_view path) {
  std::vector<std::string> result;
  size_t start = 0;
  while (start <= path.size()) {
    size_t end = path.find('/', start);
    if (end == std::string_view::npos) end = path.size();
    if (end > start) result.emplace_back(path.substr(start, end - start));
    start = end + 1;
  }
  return result;
}

std::string child(const std::string& folder, std::string_view name) {
  return standardizedPath(folder + "/" + std::string(name));
}

// A regular file's bytes, never through a link and never waiting on a FIFO;
// none when it isn't one, can't be read or is longer than `limit`.
std::optional<std::string> readSmallRegularFile(const std::string& path, size_t limit) {
  const int fd = ::open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
  if (fd < 0) return std::nullopt;
  std::string contents;
  struct stat info;
  bool readable = ::fstat(fd, &info) == 0 && S_ISREG(info.st_mode);
  char buffer[16384];
  while (readable) {
    const ssize_t got = ::read(fd, buffer, sizeof buffer);
    if (got == 0) break;
    if (got < 0 && errno == EINTR) continue;
    if (got < 0 || contents.size() + static_cast<size_t>(got) > limit) {
      readable = false;
      break;
    }
    contents.append(buffer, static_cast<size_t>(got));
  }
  ::close(fd);
  if (!readable) return std::nullopt;
  return contents;
}

}  // namespace

std::string expandedPath(std::string_view path, std::string_view home) {
  if (path == "~") return standardizedPath(home);
  if (path.starts_with("~/")) {
    return standardizedPath(std::string(home) + std::string(path.substr(1)));
  }
  return standardizedPath(path);
}

std::vector<std::string> expandedRoots(const RuleTarget& target, std::string_view home) {
  const std::string expanded = expandedPath(target.path, home);
  const std::vector<std::string> pieces = components(expanded);
  if (std::none_of(pieces.begin(), pieces.end(), isPattern)) {
    if (exists(expanded)) return {expanded};
    return {};
  }

  std::vector<std::string> current = {"/"};
  for (const std::string& component : pieces) {
    std::vector<std::string> next;
    for (const std::string& entry : current) {
      if (!isPattern(component)) {
        std::string candidate = child(entry, component);
        if (exists(candidate)) next.push_back(std::move(candidate));
        continue;
      }
      // Wildcards match real folders only: hidden ones and links are never
      // matched, so a pattern can't lead out of the tree through a link.
      const auto children = listDirectory(entry, /*skipHidden=*/true);
      if (!children) continue;
      for (const auto& found : *children) {
        if (!found.valuesReadable || found.isSymbolicLink || !found.isDirectory) continue;
        if (::fnmatch(component.c_str(), found.name.c_str(), 0) == 0) {
          next.push_back(child(entry, found.name));
        }
      }
    }
    current = std::move(next);
    if (current.empty()) break;
  }
  std::sort(current.begin(), current.end());
  return current;
}

const std::vector<std::string>& primaryCacheFolderNames() {
  static const std::vector<std::string> names = {
      "Code Cache",        "GPUCache",          "DawnCache",       "GrShaderCache",
      "GraphiteDawnCache", "DawnGraphiteCache", "DawnWebGPUCache", "Crashpad/completed"};
  return names;
}

const std::vector<std::string>& secondaryCacheFolderNames() {
  static const std::vector<std::string> names = {"Cache", "CachedData"};
  return names;
}

std::vector<std::string> electronCacheFolders(const std::string& appFolder) {
  std::vector<std::string> folders;
  for (const std::string& name : primaryCacheFolderNames()) {
    std::string path = child(appFolder, name);
    if (exists(path)) folders.push_back(std::move(path));
  }
  // The generic names alone say nothing about what kind of application this
  // is; they count only beside a chromium cache.
  if (folders.empty()) return folders;
  for (const std::string& name : secondaryCacheFolderNames()) {
    std::string path = child(appFolder, name);
    if (exists(path)) folders.push_back(std::move(path));
  }
  return folders;
}

bool isProtectedDomain(std::string_view name, const std::vector<std::string>& domains) {
  const std::string lowerName = lowercasedText(name);
  return std::any_of(domains.begin(), domains.end(), [&](const std::string& domain) {
    return lowerName.find(lowercasedText(domain)) != std::string::npos;
  });
}

bool isProtectedServiceWorkerFolder(const std::string& folder,
                                    const std::vector<std::string>& domains) {
  if (isProtectedDomain(lastPathComponent(folder), domains)) return true;
  // The index is small; one far larger is not what it seems and is kept.
  constexpr size_t kIndexLimit = 1 << 20;
  const auto index = readSmallRegularFile(folder + "/index.txt", kIndexLimit);
  if (!index) return true;
  // The index is binary with the origin as plain ASCII text inside.
  std::string lowerIndex = *index;
  for (char& c : lowerIndex) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  }
  return std::any_of(domains.begin(), domains.end(), [&](const std::string& domain) {
    return lowerIndex.find(lowercasedText(domain)) != std::string::npos;
  });
}

bool isExcludedEntry(std::string_view name, const std::set<std::string>& excludedEntries) {
  const std::string terminated(name);
  return std::any_of(excludedEntries.begin(), excludedEntries.end(),
                     [&](const std::string& pattern) {
                       return ::fnmatch(pattern.c_str(), terminated.c_str(), 0) == 0;
                     });
}

std::optional<std::string> firstWildcardMatch(const RuleTarget& target, std::string_view root,
                                              std::string_view home) {
  const std::vector<std::string> pattern = components(expandedPath(target.path, home));
  const std::vector<std::string> matched = components(standardizedPath(root));
  for (size_t i = 0; i < pattern.size() && i < matched.size(); ++i) {
    if (isPattern(pattern[i])) return matched[i];
  }
  return std::nullopt;
}

namespace {

constexpr std::string_view kFirstMatch = "{1}";

std::string replacingFirstMatch(std::string text, const std::string& match) {
  for (size_t at = text.find(kFirstMatch); at != std::string::npos;
       at = text.find(kFirstMatch, at + match.size())) {
    text.replace(at, kFirstMatch.size(), match);
  }
  return text;
}

bool holdsFirstMatch(const std::vector<std::string>& texts) {
  return std::any_of(texts.begin(), texts.end(), [](const std::string& text) {
    return text.find(kFirstMatch) != std::string::npos;
  });
}

}  // namespace

bool dependsOnRoot(const RuleTarget& target) {
  if (target.itemTitle && target.itemTitle->find(kFirstMatch) != std::string::npos) return true;
  return std::any_of(target.guards.begin(), target.guards.end(), [](const RuleGuard& guard) {
    return holdsFirstMatch(guard.names) || holdsFirstMatch(guard.pathFragments);
  });
}

RuleTarget targetForRoot(const RuleTarget& target, std::string_view root, std::string_view home) {
  if (!dependsOnRoot(target)) return target;
  const std::string match = firstWildcardMatch(target, root, home).value_or("");
  RuleTarget rooted = target;
  if (rooted.itemTitle) rooted.itemTitle = replacingFirstMatch(*rooted.itemTitle, match);
  for (RuleGuard& guard : rooted.guards) {
    for (std::string& name : guard.names)
      name = replacingFirstMatch(name, match);
    for (std::string& fragment : guard.pathFragments)
      fragment = replacingFirstMatch(fragment, match);
  }
  return rooted;
}

bool isLinkedRoot(std::string_view root, std::string_view home) {
  const std::string normalRoot = normalizedPolicyPath(root);
  const std::string normalHome = normalizedPolicyPath(home);
  const std::string homePrefix = normalHome == "/" ? "/" : normalHome + "/";
  // Outside the home only the root itself is looked at; below it, every
  // folder on the way from the home down.
  size_t at = normalRoot.starts_with(homePrefix) ? homePrefix.size() : normalRoot.size();
  while (true) {
    const size_t slash = normalRoot.find('/', at);
    const std::string prefix = normalRoot.substr(0, slash);
    struct stat info;
    if (::lstat(prefix.c_str(), &info) == 0 && S_ISLNK(info.st_mode)) return true;
    if (slash == std::string::npos) return false;
    at = slash + 1;
  }
}

bool isGuardHit(const std::vector<RuleGuard>& guards, const RunningProcesses& processes) {
  if (guards.empty()) return false;
  if (!processes) return true;
  for (const RuleGuard& guard : guards) {
    for (const RunningProcess& process : *processes) {
      for (const std::string& name : guard.names) {
        if (process.name == name) return true;
      }
      for (const std::string& fragment : guard.pathFragments) {
        if (process.path.find(fragment) != std::string::npos) return true;
      }
    }
  }
  return false;
}

std::string guardAppName(const std::vector<RuleGuard>& guards) {
  for (const RuleGuard& guard : guards) {
    const auto& names = guard.names;
    if (std::find(names.begin(), names.end(), "Xcode") != names.end() ||
        std::find(names.begin(), names.end(), "Simulator") != names.end()) {
      return "Xcode";
    }
    if (!names.empty()) return names.front();
  }
  return "";
}

std::string guardWarning(std::string_view appName, std::string_view title) {
  if (appName.empty()) return GuardWarningText::relatedProcess(std::string(title));
  return GuardWarningText::namedProcess(std::string(appName), std::string(title));
}

bool isDirectChild(std::string_view path, std::string_view root) {
  const std::string normalizedPath = normalizedPolicyPath(path);
  const std::string prefix = normalizedPolicyPath(root) + "/";
  if (!normalizedPath.starts_with(prefix)) return false;
  return normalizedPath.find('/', prefix.size()) == std::string::npos;
}

std::optional<std::string> realPath(const std::string& path) {
  // A result that wouldn't fit a 1024-byte buffer counts as unresolved, so
  // that the answer doesn't depend on the platform's path limit.
  constexpr size_t kBufferSize = 1024;
  std::unique_ptr<char, decltype(&::free)> resolved(::realpath(path.c_str(), nullptr), &::free);
  if (!resolved) return std::nullopt;
  std::string result(resolved.get());
  if (result.size() >= kBufferSize) return std::nullopt;
  return result;
}

}  // namespace brisko::CleanupRuleRuntime
