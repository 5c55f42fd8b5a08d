#pragma once

#include <set>
#include <string>
#include <vector>

#include "rules/cleanup_rule.h"

namespace brisko::CleanupRuleCatalog {

// Every rule Brisko knows, in display order: the core rules, the application
// rules, the report-only rules, the orphan rule and the rules of Linux's own
// places (thumbnails, Flatpak, Snap and Steam). Built once, on first use;
// safe to read from any thread afterwards.
const std::vector<CleanupRule>& rules();

// The same list, without "downloaded-installers" when installers are excluded.
std::vector<CleanupRule> rules(bool includeDownloadedInstallers);

// The rule with this id, or null.
const CleanupRule* rule(const std::string& id);

// The guards the rules use, by the application they protect. The browsers'
// guards name their Linux executables after their macOS names; the last three
// guard Linux applications only.
struct Guards {
  RuleGuard xcode, simulator, chrome, arc, brave, vivaldi, dia, helium, yandex, qq, firefox, edge,
      capCut, finalCut, resolve, chromium, opera, steam;
};
const Guards& guards();

// Web applications whose offline storage is never offered, matched as
// substrings of a service worker's per-origin folder name.
const std::vector<std::string>& protectedDomains();

// A fixed set of four rule ids for other parts of Brisko to consult:
// user-caches, user-logs, xcode-derived-data and downloaded-installers.
const std::set<std::string>& essentialRuleIDs();

}  // namespace brisko::CleanupRuleCatalog
