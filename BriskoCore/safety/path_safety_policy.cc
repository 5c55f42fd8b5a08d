#include "safety/path_safety_policy.h"

#include <fnmatch.h>

#include <algorithm>
#include <array>

#include "base/unicode_text.h"
#include "platform/symlink_resolution.h"
#include "safety/protected_tables.h"
#include "safety/whitelist_store.h"

namespace brisko {

namespace {

bool startsWith(std::string_view text, std::string_view prefix) {
  return text.size() >= prefix.size() && text.compare(0, prefix.size(), prefix) == 0;
}

bool contains(std::string_view text, std::string_view needle) {
  return text.find(needle) != std::string_view::npos;
}

// `path` is `root` or lies below it.
bool isWithin(std::string_view path, std::string_view root) {
  return startsWith(path, root) && (path.size() == root.size() || path[root.size()] == '/');
}

bool isNormalized(std::string_view path) {
  if (path.size() >= 2 && path.back() == '/') return false;
  return path.find("//") == std::string_view::npos;
}

// A piece of the path that is exactly ".." (or "."): a spelling that names a
// place other than the one the text seems to, which the protected lists
// could not recognise.
bool hasTraversalPiece(std::string_view path) {
  size_t from = 0;
  while (from <= path.size()) {
    size_t slash = path.find('/', from);
    if (slash == std::string_view::npos) slash = path.size();
    const std::string_view piece = path.substr(from, slash - from);
    if (piece == ".." || piece == ".") return true;
    from = slash + 1;
  }
  return false;
}

bool isWhitelistMatch(const PathSafetyPolicy::CompiledMatcher& matcher, std::string_view normal,
                      std::string& terminatedNormal) {
  using Kind = PathSafetyPolicy::CompiledMatcher::Kind;
  const std::string& pattern = matcher.pattern;
  if (normal == pattern) return true;
  switch (matcher.kind) {
    case Kind::prefix:
      if (startsWith(normal, matcher.text)) return true;
      break;
    case Kind::substring:
      if (contains(normal, matcher.text)) return true;
      break;
    case Kind::glob:
      // fnmatch wants terminated text; made once per evaluation, and only
      // when a glob pattern is reached.
      if (terminatedNormal.empty()) terminatedNormal.assign(normal);
      if (::fnmatch(pattern.c_str(), terminatedNormal.c_str(), 0) == 0) return true;
      break;
    case Kind::exact:
      break;  // equality was tested above
  }
  // Every ancestor of a kept place is kept too, so that removing a parent
  // can't take a kept child with it.
  if (pattern.size() > normal.size() && pattern[normal.size()] == '/' &&
      startsWith(pattern, normal)) {
    return true;
  }
  return !matcher.hasGlob && startsWith(normal, matcher.patternSlash);
}

std::string expandedPattern(std::string_view pattern, const std::string& home) {
  if (pattern == "~") return home;
  if (startsWith(pattern, "~/")) return home + std::string(pattern.substr(1));
  std::string expanded;
  size_t from = 0;
  for (;;) {
    const size_t at = pattern.find("$HOME", from);
    if (at == std::string_view::npos) break;
    expanded.append(pattern.substr(from, at - from));
    expanded.append(home);
    from = at + 5;
  }
  expanded.append(pattern.substr(from));
  return expanded;
}

}  // namespace

std::optional<PathSafetyReason> PathSafetyVerdict::reason() const {
  if (kind_ == Kind::invalid || kind_ == Kind::protected_) return reason_;
  return std::nullopt;
}

std::string PathSafetyVerdict::description() const {
  switch (kind_) {
    case Kind::invalid:
      return "invalid(" + std::string(enumName(reason_)) + ")";
    case Kind::protected_:
      return "protected(" + std::string(enumName(reason_)) + ")";
    case Kind::whitelisted:
      return "whitelisted(" + pattern_ + ")";
    case Kind::allowed:
      break;
  }
  return "allowed";
}

std::ostream& operator<<(std::ostream& out, const PathSafetyVerdict& verdict) {
  return out << verdict.description();
}

std::string normalizedPolicyPath(std::string_view path) {
  std::string normal;
  normal.reserve(path.size());
  for (const char c : path) {
    if (c == '/' && !normal.empty() && normal.back() == '/') continue;
    normal.push_back(c);
  }
  while (normal.size() >= 2 && normal.back() == '/')
    normal.pop_back();
  return normal;
}

PathSafetyPolicy::CompiledMatcher PathSafetyPolicy::CompiledMatcher::compile(std::string pattern) {
  CompiledMatcher matcher;
  const auto metacharacters = std::count_if(
      pattern.begin(), pattern.end(), [](char c) { return c == '*' || c == '?' || c == '['; });
  matcher.hasGlob = metacharacters > 0;
  if (metacharacters == 0) {
    matcher.kind = Kind::exact;
  } else if (metacharacters == 1 && pattern.back() == '*') {
    matcher.kind = Kind::prefix;
    matcher.text = pattern.substr(0, pattern.size() - 1);
  } else if (metacharacters == 2 && pattern.size() >= 3 && pattern.front() == '*' &&
             pattern.back() == '*') {
    matcher.kind = Kind::substring;
    matcher.text = pattern.substr(1, pattern.size() - 2);
  } else {
    matcher.kind = Kind::glob;
  }
  matcher.patternSlash = pattern + "/";
  matcher.pattern = std::move(pattern);
  return matcher;
}

PathSafetyPolicy::PathSafetyPolicy(std::string_view homeDirectory,
                                   const std::vector<std::string>& whitelistPatterns)
    : homeDirectory_(normalizedPolicyPath(homeDirectory)) {
  for (const std::string& raw : whitelistPatterns) {
    const std::string expanded = expandedPattern(raw, homeDirectory_);
    std::string pattern = normalizedPolicyPath(trimmingWhitespaceAndNewlines(expanded));
    if (pattern.empty()) continue;
    compiledWhitelist_.push_back(CompiledMatcher::compile(pattern));
    whitelistPatterns_.push_back(std::move(pattern));
  }
  lowerHome_ = lowercasedText(homeDirectory_);
  // With "/" as the home the suffixes stand on their own.
  const std::string base = lowerHome_ == "/" ? std::string() : lowerHome_;
  const auto rootsOf = [&base](const auto& suffixes) {
    std::vector<std::string> roots;
    roots.reserve(suffixes.size());
    for (const std::string_view suffix : suffixes)
      roots.push_back(base + std::string(suffix));
    return roots;
  };
  protectedUserRoots_ = rootsOf(protected_tables::kProtectedUserRootSuffixes);
  highRiskCacheRoots_ = rootsOf(protected_tables::kHighRiskCacheRootSuffixes);
  preferencePrefixes_ = rootsOf(protected_tables::kPreferencePrefixSuffixes);
  appDataRoots_ = rootsOf(protected_tables::kAppDataRootSuffixes);
  orbstackRoot_ = base + "/.orbstack";
}

PathSafetyPolicy PathSafetyPolicy::loadingWhitelistFor(std::string_view homeDirectory) {
  const auto contents = WhitelistStore::readFile(homeDirectory);
  if (!contents)
    return PathSafetyPolicy(homeDirectory, WhitelistStore::defaultPatterns(homeDirectory));
  return PathSafetyPolicy(homeDirectory, WhitelistStore::parse(*contents));
}

bool PathSafetyPolicy::isCriticalSystemPath(std::string_view lower) const {
  // The home itself, wherever it lies (for example /root), is never removed.
  if (lower == lowerHome_) return true;
  return protected_tables::isCriticalSystemPath(lower);
}

bool PathSafetyPolicy::isCriticalSystemRawPath(std::string_view path) const {
  return isCriticalSystemPath(lowercasedText(normalizedPolicyPath(path)));
}

std::optional<PathSafetyReason> PathSafetyPolicy::protectionReason(std::string_view lower) const {
  // Every home table lies below the home, so one test skips them all for
  // paths elsewhere.
  const bool belowHome =
      lowerHome_ == "/" || (startsWith(lower, lowerHome_) && lower.size() > lowerHome_.size() &&
                            lower[lowerHome_.size()] == '/');
  constexpr auto kProtected = PathSafetyReason::protectedUserData;

  if (belowHome && isWithin(lower, orbstackRoot_)) return kProtected;
  if (contains(lower, "/library/group containers/") && contains(lower, "dev.orbstack")) {
    return kProtected;
  }
  if (startsWith(lower, "/private/var/folders/") || startsWith(lower, "/var/folders/")) {
    for (const std::string_view marker : protected_tables::kEndpointSecurityMarkers) {
      if (contains(lower, marker)) return PathSafetyReason::endpointSecurityData;
    }
    for (const std::string_view marker : protected_tables::kTemporaryAreaMarkers) {
      if (contains(lower, marker)) return kProtected;
    }
  }
  if (belowHome) {
    for (const std::string& root : protectedUserRoots_) {
      if (isWithin(lower, root)) return kProtected;
    }
  }
  for (const std::string_view root : protected_tables::kAudioAndImagingRoots) {
    if (isWithin(lower, root)) return kProtected;
  }
  if (protected_tables::containsSystemSettingsMarker(lower)) return kProtected;

  bool insideAppData = false;
  if (belowHome) {
    for (const std::string& root : appDataRoots_) {
      if (isWithin(lower, root)) {
        insideAppData = true;
        break;
      }
    }
  }
  if (protected_tables::matchesProtectedApplicationName(lower, insideAppData)) return kProtected;

  if (belowHome) {
    for (const std::string& root : highRiskCacheRoots_) {
      if (isWithin(lower, root)) return kProtected;
    }
    // These end in a partial file name, so there is no boundary to test.
    for (const std::string& prefix : preferencePrefixes_) {
      if (startsWith(lower, prefix)) return kProtected;
    }
  }
  return std::nullopt;
}

const std::string* PathSafetyPolicy::whitelistMatch(std::string_view normal) const {
  std::string terminatedNormal;
  for (const CompiledMatcher& matcher : compiledWhitelist_) {
    if (isWhitelistMatch(matcher, normal, terminatedNormal)) return &matcher.pattern;
  }
  return nullptr;
}

PathSafetyVerdict PathSafetyPolicy::evaluate(std::string_view path, bool resolvingSymlinks) const {
  if (path.empty()) return PathSafetyVerdict::invalid(PathSafetyReason::emptyPath);
  if (path.front() != '/') return PathSafetyVerdict::invalid(PathSafetyReason::relativePath);
  // Bytes that are not UTF-8 are refused with the control characters: they
  // can't be folded, so the protected lists could not judge them.
  if (checkScalars(path) != ScalarCheck::clean) {
    return PathSafetyVerdict::invalid(PathSafetyReason::controlCharacter);
  }
  if (hasTraversalPiece(path)) return PathSafetyVerdict::invalid(PathSafetyReason::pathTraversal);

  // Paths from a walk are already normal; only odd spellings pay for a copy.
  std::string normalized;
  std::string_view normal = path;
  if (!isNormalized(path)) {
    normalized = normalizedPolicyPath(path);
    normal = normalized;
  }
  const std::string lower = lowercasedText(normal);

  if (isCriticalSystemPath(lower)) {
    return PathSafetyVerdict::protected_(PathSafetyReason::criticalSystemPath);
  }
  if (const auto reason = protectionReason(lower)) return PathSafetyVerdict::protected_(*reason);
  if (const std::string* pattern = whitelistMatch(normal)) {
    return PathSafetyVerdict::whitelisted(*pattern);
  }
  if (!resolvingSymlinks) return PathSafetyVerdict::allowed();

  const std::string resolved = normalizedPolicyPath(resolvingSymlinksInPath(normal));
  if (resolved == normal) return PathSafetyVerdict::allowed();
  // A link whose target can't even be read as text leads somewhere that no
  // list could judge.
  if (checkScalars(resolved) != ScalarCheck::clean) {
    return PathSafetyVerdict::protected_(PathSafetyReason::symbolicLinkRedirect);
  }
  const std::string lowerResolved = lowercasedText(resolved);
  if (isCriticalSystemPath(lowerResolved) || protectionReason(lowerResolved)) {
    return PathSafetyVerdict::protected_(PathSafetyReason::symbolicLinkRedirect);
  }
  return PathSafetyVerdict::allowed();
}

}  // namespace brisko
