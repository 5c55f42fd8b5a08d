#include "safety/protected_tables.h"

#include <fnmatch.h>

#include <string>
#include <vector>

#include "base/unicode_text.h"

namespace brisko::protected_tables {

namespace {

bool startsWith(std::string_view text, std::string_view prefix) {
  return text.size() >= prefix.size() && text.compare(0, prefix.size(), prefix) == 0;
}

struct CriticalTables {
  std::vector<std::string> exact;         // exact rows and tree rows
  std::vector<std::string> treePrefixes;  // tree rows + "/", in table order
};

const CriticalTables& criticalTables() {
  static const CriticalTables tables = [] {
    CriticalTables built;
    for (const std::string_view row : kCriticalExactPaths)
      built.exact.push_back(lowercasedText(row));
    for (const std::string_view row : kCriticalTrees) {
      const std::string lower = lowercasedText(row);
      built.exact.push_back(lower);
      built.treePrefixes.push_back(lower + "/");
    }
    return built;
  }();
  return tables;
}

// The name table, arranged so that a component meets only the rows that can
// match it: prefix and exact rows by the first byte of their text, substring
// rows once over the whole path. The verdict of any hit is the same, so the
// order among rows doesn't matter.
struct NameIndex {
  std::vector<ProtectedNameMatcher> rows;
  std::array<std::vector<const ProtectedNameMatcher*>, 256> byFirstByte;
  // Substring rows without "/": a hit in the whole path lies within one component.
  std::vector<const ProtectedNameMatcher*> wholePathRows;
  // Globs, and anything with no first byte to sort by.
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
    for (const ProtectedNameMatcher& row : built.rows) {
      const auto& matcher = row.matcher;
      const std::string& key = matcher.kind == Kind::exact ? matcher.pattern : matcher.text;
      if ((matcher.kind == Kind::prefix || matcher.kind == Kind::exact) && !key.empty()) {
        built.byFirstByte[static_cast<unsigned char>(key[0])].push_back(&row);
      } else if (matcher.kind == Kind::substring && key.find('/') == std::string::npos) {
        built.wholePathRows.push_back(&row);
      } else {
        built.otherRows.push_back(&row);
      }
    }
    return built;
  }();
  return index;
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
  for (const std::string& row : tables.exact) {
    if (row.size() == lower.size() && row == lower) return true;
  }
  for (const std::string& prefix : tables.treePrefixes) {
    if (startsWith(lower, prefix)) return true;
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
  for (const std::string_view marker : kSystemSettingsMarkers) {
    if (lower.find(marker) != std::string_view::npos) return true;
  }
  return false;
}

bool matchesProtectedApplicationName(std::string_view lower, bool insideAppData) {
  const NameIndex& index = nameIndex();
  for (const ProtectedNameMatcher* row : index.wholePathRows) {
    if (row->appDataOnly && !insideAppData) continue;
    if (lower.find(row->matcher.text) != std::string_view::npos) return true;
  }
  std::string terminated;
  size_t from = 0;
  while (from < lower.size()) {
    size_t slash = lower.find('/', from);
    if (slash == std::string_view::npos) slash = lower.size();
    const std::string_view component = lower.substr(from, slash - from);
    from = slash + 1;
    if (component.empty()) continue;
    for (const ProtectedNameMatcher* row :
         index.byFirstByte[static_cast<unsigned char>(component[0])]) {
      if (row->appDataOnly && !insideAppData) continue;
      if (matchesComponent(row->matcher, component, terminated)) return true;
    }
    for (const ProtectedNameMatcher* row : index.otherRows) {
      if (row->appDataOnly && !insideAppData) continue;
      if (matchesComponent(row->matcher, component, terminated)) return true;
    }
  }
  return false;
}

}  // namespace brisko::protected_tables
