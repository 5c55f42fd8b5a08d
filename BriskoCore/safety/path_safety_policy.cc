#include "safety/path_safety_policy.h"

#include <fnmatch.h>

#include <algorithm>
#include <array>
#include <cstring>

#include "base/unicode_text.h"
#include "platform/home_directory.h"
#include "platform/symlink_resolution.h"
#include "safety/protected_tables.h"
#include "safety/whitelist_store.h"

namespace brisko {

namespace {

bool startsWith(std::string_view text, std::string_view prefix) {
  return text.size() >= prefix.size() && text.compare(0, prefix.size(), prefix) == 0;
}

bool contains(std::string_view text, std::string_view needle) {
  return ::memmem(text.data(), text.size(), needle.data(), needle.size()) != nullptr;
}

// `path` is `root` or lies below it. The boundary is tested first: it rules
// out most roots without comparing their text.
bool isWithin(std::string_view path, std::string_view root) {
  return (path.size() == root.size() || (path.size() > root.size() && path[root.size()] == '/')) &&
         startsWith(path, root);
}

struct PathShape {
  // A piece that is exactly ".." or ".": a spelling that names another place
  // than the text seems to, which the protected lists could not recognise.
  bool hasDotPiece = false;
  // No "//" and no trailing "/": the normalisation would leave it as it is.
  bool isNormalized = true;
};

PathShape shapeOf(std::string_view path) {
  PathShape shape;
  size_t pieceStart = 0;
  for (size_t i = 0; i <= path.size(); ++i) {
    if (i < path.size() && path[i] != '/') continue;
    const size_t length = i - pieceStart;
    if ((length == 1 && path[pieceStart] == '.') ||
        (length == 2 && path[pieceStart] == '.' && path[pieceStart + 1] == '.')) {
      shape.hasDotPiece = true;
    }
    if (i < path.size() && i > 0 && path[i - 1] == '/') shape.isNormalized = false;
    pieceStart = i + 1;
  }
  if (path.size() >= 2 && path.back() == '/') shape.isNormalized = false;
  return shape;
}

using MatcherKind = PathSafetyPolicy::CompiledMatcher::Kind;

// The kind of a pattern by its metacharacters, and for the prefix and
// substring kinds the literal text between them.
std::pair<MatcherKind, std::string_view> matcherKindOf(std::string_view pattern) {
  const auto metacharacters = std::count_if(
      pattern.begin(), pattern.end(), [](char c) { return c == '*' || c == '?' || c == '['; });
  if (metacharacters == 0) return {MatcherKind::exact, {}};
  if (metacharacters == 1 && pattern.back() == '*') {
    return {MatcherKind::prefix, pattern.substr(0, pattern.size() - 1)};
  }
  if (metacharacters == 2 && pattern.size() >= 3 && pattern.front() == '*' &&
      pattern.back() == '*') {
    return {MatcherKind::substring, pattern.substr(1, pattern.size() - 2)};
  }
  return {MatcherKind::glob, {}};
}

// `pattern` must be followed in memory by a NUL, for fnmatch.
bool isWhitelistMatch(std::string_view pattern, MatcherKind kind, bool hasGlob,
                      std::string_view normal, std::string& terminatedNormal) {
  using Kind = MatcherKind;
  const std::string_view text = kind == Kind::prefix      ? pattern.substr(0, pattern.size() - 1)
                                : kind == Kind::substring ? pattern.substr(1, pattern.size() - 2)
                                                          : std::string_view();
  // For the plain and prefix kinds, every way to match needs the path and
  // the pattern's literal text to agree up to the shorter of the two; one
  // comparison rules out most patterns before the four tests below.
  if (kind == Kind::exact || kind == Kind::prefix) {
    const std::string_view literal = kind == Kind::exact ? pattern : text;
    const size_t shared = std::min(literal.size(), normal.size());
    if (shared > 0 && normal[shared - 1] != literal[shared - 1]) return false;
    if (std::memcmp(normal.data(), literal.data(), shared) != 0) return false;
  }
  if (normal == pattern) return true;
  switch (kind) {
    case Kind::prefix:
      if (startsWith(normal, text)) return true;
      break;
    case Kind::substring:
      if (contains(normal, text)) return true;
      break;
    case Kind::glob:
      // fnmatch wants terminated text; made once per evaluation, and only
      // when a glob pattern is reached.
      if (terminatedNormal.empty()) terminatedNormal.assign(normal);
      if (::fnmatch(pattern.data(), terminatedNormal.c_str(), 0) == 0) return true;
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
  return !hasGlob && normal.size() > pattern.size() && normal[pattern.size()] == '/' &&
         startsWith(normal, pattern);
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
  const auto [kind, text] = matcherKindOf(pattern);
  matcher.kind = kind;
  matcher.text = std::string(text);
  matcher.hasGlob = pattern.find_first_of("*?[") != std::string::npos;
  matcher.patternSlash = pattern + "/";
  matcher.pattern = std::move(pattern);
  return matcher;
}

template <class EachPattern>
void PathSafetyPolicy::addWhitelistPatterns(const EachPattern& eachPattern) {
  // A home without metacharacters can be left out in front of the patterns
  // that begin with it: every test of a pattern against a path that shares
  // that beginning gives the same answer on the rest of both.
  const bool homeCanBeLeftOut = homeDirectory_.size() > 1 && homeDirectory_.front() == '/' &&
                                homeDirectory_.find_first_of("*?[\\") == std::string::npos;
  const auto normalized = [this](std::string_view raw) {
    const std::string expanded = expandedPattern(raw, homeDirectory_);
    return normalizedPolicyPath(trimmingWhitespaceAndNewlines(expanded));
  };
  const auto leavesOutHome = [&](std::string_view pattern) {
    return homeCanBeLeftOut && startsWith(pattern, homeDirectory_);
  };
  // Sized first, so that the text is allocated once and never copied.
  size_t textSize = whitelistText_.size();
  size_t count = whitelist_.size();
  eachPattern([&](std::string_view raw) {
    const std::string pattern = normalized(raw);
    if (pattern.empty()) return;
    textSize += pattern.size() + 1 - (leavesOutHome(pattern) ? homeDirectory_.size() : 0);
    ++count;
  });
  whitelistText_.reserve(textSize);
  whitelist_.reserve(count);
  eachPattern([&](std::string_view raw) {
    const std::string pattern = normalized(raw);
    if (pattern.empty()) return;
    const bool homeLeftOut = leavesOutHome(pattern);
    WhitelistPattern entry;
    entry.offset = whitelistText_.size();
    entry.kind = static_cast<uint64_t>(matcherKindOf(pattern).first);
    entry.hasGlob = pattern.find_first_of("*?[") != std::string::npos;
    entry.homeLeftOut = homeLeftOut;
    whitelistText_.append(
        std::string_view(pattern).substr(homeLeftOut ? homeDirectory_.size() : 0));
    whitelistText_ += '\0';
    whitelist_.push_back(entry);
  });
}

std::string_view PathSafetyPolicy::whitelistPatternText(size_t index) const {
  const size_t begin = whitelist_[index].offset;
  const size_t end =
      index + 1 < whitelist_.size() ? whitelist_[index + 1].offset : whitelistText_.size();
  return std::string_view(whitelistText_).substr(begin, end - begin - 1);
}

std::vector<std::string> PathSafetyPolicy::whitelistPatterns() const {
  std::vector<std::string> patterns;
  patterns.reserve(whitelist_.size());
  for (size_t i = 0; i < whitelist_.size(); ++i) {
    const std::string_view text = whitelistPatternText(i);
    patterns.push_back(whitelist_[i].homeLeftOut ? homeDirectory_ + std::string(text)
                                                 : std::string(text));
  }
  return patterns;
}

PathSafetyPolicy::PathSafetyPolicy(std::string_view homeDirectory,
                                   const std::vector<std::string>& whitelistPatterns)
    : homeDirectory_(normalizedPolicyPath(homeDirectory)) {
  addWhitelistPatterns([&whitelistPatterns](const auto& visit) {
    for (const std::string& pattern : whitelistPatterns)
      visit(pattern);
  });
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
  // Brisko's own data folder is protected wherever $XDG_DATA_HOME puts it;
  // its default place is already a protected user root.
  std::string dataDirectory =
      lowercasedText(normalizedPolicyPath(briskoDataDirectory(homeDirectory_)));
  if (dataDirectory != base + "/.local/share/brisko")
    movedDataDirectory_ = std::move(dataDirectory);
}

PathSafetyPolicy PathSafetyPolicy::loadingWhitelistFor(std::string_view homeDirectory) {
  const auto contents = WhitelistStore::readFile(homeDirectory);
  if (!contents)
    return PathSafetyPolicy(homeDirectory, WhitelistStore::defaultPatterns(homeDirectory));
  // Straight from the file's text: a long whitelist is held once, not per line.
  PathSafetyPolicy policy(homeDirectory, std::vector<std::string>{});
  policy.addWhitelistPatterns(
      [&contents](const auto& visit) { WhitelistStore::visitActiveLines(*contents, visit); });
  return policy;
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
  // Every root of the home tables is the lower-cased home plus a suffix, so
  // one test of the home rules them all out for paths elsewhere, and for
  // paths below it only the suffixes are left to compare.
  const size_t homeLength = lowerHome_ == "/" ? 0 : lowerHome_.size();
  const bool belowHome =
      lower.size() > homeLength && lower[homeLength] == '/' &&
      lower.compare(0, homeLength, std::string_view(lowerHome_).substr(0, homeLength)) == 0;
  const auto isWithinHomeRoot = [&](const std::string& root) {
    // The boundary and the last byte rule out most roots cheaply.
    return (lower.size() == root.size() ||
            (lower.size() > root.size() && lower[root.size()] == '/')) &&
           lower[root.size() - 1] == root.back() &&
           std::memcmp(lower.data() + homeLength, root.data() + homeLength,
                       root.size() - homeLength) == 0;
  };
  const auto isWithinAnyHomeRoot = [&](const std::vector<std::string>& roots) {
    return std::any_of(roots.begin(), roots.end(), isWithinHomeRoot);
  };
  constexpr auto kProtected = PathSafetyReason::protectedUserData;

  if (belowHome && isWithinHomeRoot(orbstackRoot_)) return kProtected;
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
  if (belowHome && isWithinAnyHomeRoot(protectedUserRoots_)) return kProtected;
  if (!movedDataDirectory_.empty() && isWithin(lower, movedDataDirectory_)) return kProtected;
  for (const std::string_view root : protected_tables::kAudioAndImagingRoots) {
    if (isWithin(lower, root)) return kProtected;
  }
  if (protected_tables::containsSystemSettingsMarker(lower)) return kProtected;

  const bool insideAppData = belowHome && isWithinAnyHomeRoot(appDataRoots_);
  if (protected_tables::matchesProtectedApplicationName(lower, insideAppData)) return kProtected;

  if (belowHome) {
    if (isWithinAnyHomeRoot(highRiskCacheRoots_)) return kProtected;
    // These end in a partial file name, so there is no boundary to test.
    for (const std::string& prefix : preferencePrefixes_) {
      if (startsWith(lower, prefix)) return kProtected;
    }
  }
  return std::nullopt;
}

std::optional<std::string> PathSafetyPolicy::whitelistMatch(std::string_view normal) const {
  // A pattern stored without the home is tested on the rest of a path that
  // begins with the home. A path that doesn't can only be an ancestor of such
  // a pattern, which it is exactly when it is an ancestor of the home.
  const bool beginsWithHome = startsWith(normal, homeDirectory_);
  const std::string_view rest =
      beginsWithHome ? normal.substr(homeDirectory_.size()) : std::string_view();
  const bool aboveHome = !beginsWithHome && normal.size() < homeDirectory_.size() &&
                         homeDirectory_[normal.size()] == '/' && startsWith(homeDirectory_, normal);
  std::string terminatedNormal;
  std::string terminatedRest;
  for (size_t i = 0; i < whitelist_.size(); ++i) {
    const WhitelistPattern& entry = whitelist_[i];
    const std::string_view pattern = whitelistPatternText(i);
    const auto kind = static_cast<MatcherKind>(entry.kind);
    const bool matched =
        !entry.homeLeftOut
            ? isWhitelistMatch(pattern, kind, entry.hasGlob, normal, terminatedNormal)
        : beginsWithHome ? isWhitelistMatch(pattern, kind, entry.hasGlob, rest, terminatedRest)
                         : aboveHome;
    if (matched)
      return entry.homeLeftOut ? homeDirectory_ + std::string(pattern) : std::string(pattern);
  }
  return std::nullopt;
}

PathSafetyVerdict PathSafetyPolicy::evaluate(std::string_view path, bool resolvingSymlinks) const {
  if (path.empty()) return PathSafetyVerdict::invalid(PathSafetyReason::emptyPath);
  if (path.front() != '/') return PathSafetyVerdict::invalid(PathSafetyReason::relativePath);
  // Bytes that are not UTF-8 are refused with the control characters: they
  // can't be folded, so the protected lists could not judge them.
  if (checkScalars(path) != ScalarCheck::clean) {
    return PathSafetyVerdict::invalid(PathSafetyReason::controlCharacter);
  }
  const PathShape shape = shapeOf(path);
  if (shape.hasDotPiece) return PathSafetyVerdict::invalid(PathSafetyReason::pathTraversal);

  // Paths from a walk are already normal; only odd spellings pay for a copy.
  std::string normalized;
  std::string_view normal = path;
  if (!shape.isNormalized) {
    normalized = normalizedPolicyPath(path);
    normal = normalized;
  }
  const std::string lower = lowercasedText(normal);

  if (isCriticalSystemPath(lower)) {
    return PathSafetyVerdict::protected_(PathSafetyReason::criticalSystemPath);
  }
  if (const auto reason = protectionReason(lower)) return PathSafetyVerdict::protected_(*reason);
  if (auto pattern = whitelistMatch(normal)) {
    return PathSafetyVerdict::whitelisted(std::move(*pattern));
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
  // A link into a kept place keeps it too: the user's whitelist names places,
  // not spellings.
  if (auto pattern = whitelistMatch(resolved)) {
    return PathSafetyVerdict::whitelisted(std::move(*pattern));
  }
  return PathSafetyVerdict::allowed();
}

}  // namespace brisko
