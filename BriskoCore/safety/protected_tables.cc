#include "safety/protected_tables.h"

#include <fnmatch.h>

#include <string>
#include <vector>

#include "base/unicode_text.h"
#include "safety/component_prefix_trie.h"
#include "safety/substring_set.h"

namespace brisko::protected_tables {

namespace {

bool startsWith(std::string_view text, std::string_view prefix) {
  return text.size() >= prefix.size() && text.compare(0, prefix.size(), prefix) == 0;
}

struct CriticalTables {
  // Exact rows and tree rows, by length.
  std::vector<std::vector<std::string>> exactByLength;
  // Tree rows + "/", by the byte after the leading "/", in table order.
  std::array<std::vector<std::string>, 256> treePrefixesByFirstByte;
};

const CriticalTables& criticalTables() {
  static const CriticalTables tables = [] {
    CriticalTables built;
    const auto addExact = [&built](std::string lower) {
      if (built.exactByLength.size() <= lower.size()) built.exactByLength.resize(lower.size() + 1);
      built.exactByLength[lower.size()].push_back(std::move(lower));
    };
    for (const std::string_view row : kCriticalExactPaths)
      addExact(lowercasedText(row));
    for (const std::string_view row : kCriticalTrees) {
      const std::string lower = lowercasedText(row);
      addExact(lower);
      built.treePrefixesByFirstByte[static_cast<unsigned char>(lower[1])].push_back(lower + "/");
    }
    return built;
  }();
  return tables;
}

enum NameTag : uint8_t { kAnywhere = 1, kInsideAppData = 2 };

uint8_t tagOf(const ProtectedNameMatcher& row) {
  return row.appDataOnly ? kInsideAppData : kAnywhere;
}

// The name table, arranged so that the work per path doesn't grow with the
// rows: prefix and exact rows in a trie walked once per component, substring
// rows without "/" in one pass over the whole path (a hit there lies within
// one component). Any hit gives the same verdict, so the order among rows
// doesn't matter.
struct NameIndex {
  std::vector<ProtectedNameMatcher> rows;
  ComponentPrefixTrie trie;
  SubstringSet anywhereSubstrings{{}};
  SubstringSet appDataSubstrings{{}};
  // Globs, and substrings that hold a "/": tested per component.
  std::vector<const ProtectedNameMatcher*> otherRows;
};

const NameIndex& nameIndex() {
  static const NameIndex index = [] {
    NameIndex built;
    built.rows.reserve(kProtectedApplicationNames.size());
    for (const std::string_view row : kProtectedApplicationNames) {
      const std::string lower = lowercasedText(row);
      const bool appDataOnly = lower.find('.') == std::string::npos;
      built.rows.push_back({PathSafetyPolicy::CompiledMatcher::compile(lower), appDataOnly});
    }
    using Kind = PathSafetyPolicy::CompiledMatcher::Kind;
    std::vector<std::string_view> anywhere;
    std::vector<std::string_view> appData;
    for (const ProtectedNameMatcher& row : built.rows) {
      const auto& matcher = row.matcher;
      if (matcher.kind == Kind::prefix) {
        built.trie.add(matcher.text, ComponentPrefixTrie::Match::prefix, tagOf(row));
      } else if (matcher.kind == Kind::exact) {
        built.trie.add(matcher.pattern, ComponentPrefixTrie::Match::exact, tagOf(row));
      } else if (matcher.kind == Kind::substring && matcher.text.find('/') == std::string::npos) {
        (row.appDataOnly ? appData : anywhere).push_back(matcher.text);
      } else {
        built.otherRows.push_back(&row);
      }
    }
    built.anywhereSubstrings = SubstringSet(anywhere);
    built.appDataSubstrings = SubstringSet(appData);
    return built;
  }();
  return index;
}

const SubstringSet& systemSettingsMarkers() {
  static const SubstringSet markers(
      std::vector<std::string_view>(kSystemSettingsMarkers.begin(), kSystemSettingsMarkers.end()));
  return markers;
}

bool matchesComponent(const PathSafetyPolicy::CompiledMatcher& matcher, std::string_view component,
                      std::string& terminated) {
  using Kind = PathSafetyPolicy::CompiledMatcher::Kind;
  switch (matcher.kind) {
    case Kind::prefix:
      return startsWith(component, matcher.text);
    case Kind::substring:
      return component.find(matcher.text) != std::string_view::npos;
    case Kind::exact:
      return component == matcher.pattern;
    case Kind::glob:
      terminated.assign(component);
      return ::fnmatch(matcher.pattern.c_str(), terminated.c_str(), 0) == 0;
  }
  return false;
}

}  // namespace

const std::vector<ProtectedNameMatcher>& protectedNameMatchers() {
  return nameIndex().rows;
}

bool isCriticalSystemPath(std::string_view lower) {
  // Carved out ahead of everything, also of the /usr and /opt rows.
  if (startsWith(lower, "/usr/local/") || startsWith(lower, "/opt/homebrew/")) return false;
  const CriticalTables& tables = criticalTables();
  if (lower.size() < tables.exactByLength.size()) {
    for (const std::string& row : tables.exactByLength[lower.size()]) {
      if (row == lower) return true;
    }
  }
  if (lower.size() >= 2) {
    for (const std::string& prefix :
         tables.treePrefixesByFirstByte[static_cast<unsigned char>(lower[1])]) {
      if (startsWith(lower, prefix)) return true;
    }
  }
  // Every user's home folder itself (not what lies inside it): /users/NAME or /home/NAME.
  size_t pieces = 0;
  std::string_view first;
  size_t from = 0;
  while (from < lower.size()) {
    size_t slash = lower.find('/', from);
    if (slash == std::string_view::npos) slash = lower.size();
    if (slash > from) {
      if (++pieces == 1) first = lower.substr(from, slash - from);
      if (pieces > 2) return false;
    }
    from = slash + 1;
  }
  return pieces == 2 && (first == "users" || first == "home");
}

bool containsSystemSettingsMarker(std::string_view lower) {
  return systemSettingsMarkers().isFoundIn(lower);
}

bool matchesProtectedApplicationName(std::string_view lower, bool insideAppData) {
  const NameIndex& index = nameIndex();
  if (index.anywhereSubstrings.isFoundIn(lower)) return true;
  if (insideAppData && index.appDataSubstrings.isFoundIn(lower)) return true;
  const uint8_t wanted = insideAppData ? (kAnywhere | kInsideAppData) : kAnywhere;
  std::string terminated;
  size_t start = 0;
  for (size_t i = 0; i <= lower.size(); ++i) {
    if (i < lower.size() && lower[i] != '/') continue;
    const std::string_view component = lower.substr(start, i - start);
    start = i + 1;
    if (component.empty()) continue;
    if ((index.trie.tagsMatching(component) & wanted) != 0) return true;
    for (const ProtectedNameMatcher* row : index.otherRows) {
      if (row->appDataOnly && !insideAppData) continue;
      if (matchesComponent(row->matcher, component, terminated)) return true;
    }
  }
  return false;
}

}  // namespace brisko::protected_tables
