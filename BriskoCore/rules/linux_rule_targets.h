#pragma once

#include <set>
#include <string>
#include <vector>

#include "rules/cleanup_rule.h"
#include "rules/cleanup_rule_catalog.h"

// The places of a Linux home, appended to the catalog's rules where the
// category exists and as rules of their own where it doesn't. Internal to the
// catalog.
namespace brisko::CleanupRuleCatalog::linux_rows {

// The browsers' folders below ~/.config and ~/.cache, as fnmatch patterns:
// other rules that list those folders leave them to the browser rows.
const std::set<std::string>& browserFolders();

// What the ~/.cache row of the developer caches leaves to other rules.
std::set<std::string> excludedFromUserCache();

std::vector<RuleTarget> logTargets();
std::vector<RuleTarget> browserCacheTargets(const Guards& g);
std::vector<RuleTarget> appDeepCacheTargets();

// thumbnail-cache, flatpak-app-caches, snap-app-caches, game-shader-caches.
std::vector<CleanupRule> rules(const Guards& g);

}  // namespace brisko::CleanupRuleCatalog::linux_rows
