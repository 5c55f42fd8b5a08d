#pragma once

// The one gate that every deletion passes.
//
// Every candidate path, whatever rule or page produced it, goes through
// `PathSafetyPolicy::evaluate`, and only an `allowed` verdict may proceed. The
// protected lists are Brisko's own and compiled in; the whitelist is the user's
// keep-list and can only withhold more, never grant: a protected or invalid
// path reports so even when a whitelist line names it.

#include <cstdint>
#include <optional>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

#include "protocol/json_codec.h"

namespace brisko {

// Why a path is refused. The case name is the wire text.
enum class PathSafetyReason : uint8_t {
  emptyPath,
  relativePath,
  pathTraversal,     // a ".." piece, and also a "." piece
  controlCharacter,  // also bytes that are not UTF-8
  criticalSystemPath,
  protectedUserData,
  endpointSecurityData,
  symbolicLinkRedirect,
};

template <>
struct EnumNames<PathSafetyReason> {
  static constexpr std::array<std::string_view, 8> names{
      "emptyPath",          "relativePath",      "pathTraversal",        "controlCharacter",
      "criticalSystemPath", "protectedUserData", "endpointSecurityData", "symbolicLinkRedirect"};
};

// invalid(reason), protected(reason), whitelisted(pattern) or allowed.
class PathSafetyVerdict {
 public:
  enum class Kind : uint8_t { invalid, protected_, whitelisted, allowed };

  static PathSafetyVerdict invalid(PathSafetyReason reason) { return {Kind::invalid, reason, {}}; }
  static PathSafetyVerdict protected_(PathSafetyReason reason) {
    return {Kind::protected_, reason, {}};
  }
  // `pattern` is the normalised whitelist pattern that matched, not the file's line.
  static PathSafetyVerdict whitelisted(std::string pattern) {
    return {Kind::whitelisted, PathSafetyReason{}, std::move(pattern)};
  }
  static PathSafetyVerdict allowed() { return {Kind::allowed, PathSafetyReason{}, {}}; }

  Kind kind() const { return kind_; }
  bool isAllowed() const { return kind_ == Kind::allowed; }
  // The reason of an invalid or protected verdict; none for the other two.
  std::optional<PathSafetyReason> reason() const;
  // The pattern of a whitelisted verdict; empty for the others.
  const std::string& pattern() const { return pattern_; }

  // "invalid(emptyPath)", "protected(criticalSystemPath)", "whitelisted(/h/Keep)", "allowed".
  std::string description() const;

  friend bool operator==(const PathSafetyVerdict&, const PathSafetyVerdict&) = default;

 private:
  PathSafetyVerdict(Kind kind, PathSafetyReason reason, std::string pattern)
      : kind_(kind), reason_(reason), pattern_(std::move(pattern)) {}

  Kind kind_;
  PathSafetyReason reason_;  // meaningful for invalid and protected only
  std::string pattern_;      // meaningful for whitelisted only
};

std::ostream& operator<<(std::ostream& out, const PathSafetyVerdict& verdict);

// The path normalisation used wherever two paths are compared as the same
// place: every run of "/" becomes one, and trailing slashes go ("/" stays).
// No "." or ".." resolution and no case change. (Linux has no "/private" tree,
// so /tmp, /var and /etc paths stay as written.)
std::string normalizedPolicyPath(std::string_view path);

// A pure value, built once per operation and shared freely between threads:
// it holds no handles and answers from strings. Only `evaluate` with
// `resolvingSymlinks` true looks at the disk.
class PathSafetyPolicy {
 public:
  // A whitelist pattern ready for matching.
  struct CompiledMatcher {
    // prefix and substring hold `text`; exact and glob use `pattern` itself.
    enum class Kind : uint8_t { prefix, substring, exact, glob };

    // Never fails; a malformed bracket behaves as fnmatch treats it.
    static CompiledMatcher compile(std::string pattern);

    std::string pattern;       // as given
    std::string patternSlash;  // pattern + "/"
    bool hasGlob = false;      // holds "*", "?" or "["
    Kind kind = Kind::exact;
    std::string text;  // the held text of prefix and substring
  };

  // Builds from explicit patterns. "~", "~/..." and "$HOME" expand to the
  // home; patterns are trimmed and normalised, and empty ones are dropped.
  PathSafetyPolicy(std::string_view homeDirectory,
                   const std::vector<std::string>& whitelistPatterns);

  // Reads <home>/.config/brisko/whitelist. A file that can't be read (missing,
  // unreadable, not UTF-8) means the built-in default patterns; a readable
  // file means exactly its active lines, so an empty file is an empty whitelist.
  static PathSafetyPolicy loadingWhitelistFor(std::string_view homeDirectory);

  // The gate. Never throws on any input and never touches the disk when
  // `resolvingSymlinks` is false. With true, links in the existing part of the
  // path are followed (a missing tail is kept as given) and the path is
  // refused as `symbolicLinkRedirect` when the place it leads to is critical
  // or protected, or reported `whitelisted` when that place is kept.
  PathSafetyVerdict evaluate(std::string_view path, bool resolvingSymlinks) const;

  // Linux's and the system's own places, every home folder (/home/NAME,
  // /Users/NAME) and this policy's own home. `lowercasedPath` must already be
  // normalised and lower-cased; /usr/local/... and /opt/homebrew/... are never
  // critical below their roots.
  bool isCriticalSystemPath(std::string_view lowercasedPath) const;
  // The same test for a path as given: normalises and lower-cases it first.
  bool isCriticalSystemRawPath(std::string_view path) const;

  // The lower-cased, normalised path's protection, if any: protectedUserData
  // or endpointSecurityData. Critical paths are a separate test.
  std::optional<PathSafetyReason> protectionReason(std::string_view lowercasedPath) const;

  const std::string& homeDirectory() const { return homeDirectory_; }
  // The normalised whitelist patterns, in order.
  std::vector<std::string> whitelistPatterns() const;
  const std::string& lowerHome() const { return lowerHome_; }

  // The pattern of the first whitelist matcher that covers `normalPath`
  // (compared case-sensitively), or none. Ancestors of a pattern count too.
  std::optional<std::string> whitelistMatch(std::string_view normalPath) const;

 private:
  // One whitelist pattern in eight bytes: where its text starts in
  // whitelistText_ (it ends at the next NUL), its kind as CompiledMatcher
  // settles it, and whether the text leaves out the home folder in front.
  // A user's whitelist may have a million lines, nearly all below the home:
  // a pattern costs about its line in the file, not a few strings apiece.
  struct WhitelistPattern {
    uint64_t offset : 60;
    uint64_t kind : 2;  // a CompiledMatcher::Kind
    uint64_t hasGlob : 1;
    uint64_t homeLeftOut : 1;
  };

  // Adds the patterns that `eachPattern(visit)` hands to `visit`, one by one;
  // it is called twice, to size the storage first.
  template <class EachPattern>
  void addWhitelistPatterns(const EachPattern& eachPattern);
  // The stored text of the pattern at `index`, without the left-out home.
  std::string_view whitelistPatternText(size_t index) const;

  std::string homeDirectory_;
  std::string lowerHome_;
  // Every pattern's text, each ended by a NUL (fnmatch wants terminated text).
  std::string whitelistText_;
  std::vector<WhitelistPattern> whitelist_;
  std::vector<std::string> protectedUserRoots_;
  std::vector<std::string> highRiskCacheRoots_;
  std::vector<std::string> preferencePrefixes_;
  std::string orbstackRoot_;
  std::vector<std::string> appDataRoots_;
  // Brisko's data folder, lower-cased, when $XDG_DATA_HOME moves it out of
  // <home>/.local/share; else empty.
  std::string movedDataDirectory_;
};

}  // namespace brisko
