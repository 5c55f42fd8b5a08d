#pragma once

#include <optional>
#include <set>
#include <string>
#include <variant>
#include <vector>

#include "rules/orphan_resource.h"

namespace brisko {

// How the roots of a target are turned into things to offer. Each case carries
// its own payload; two modes are equal when case and payload are equal.
struct RuleTargetMode {
  // Each top-level item of the root, counting only regular files older than `days`.
  struct OldFiles {
    int days = 0;
    bool operator==(const OldFiles&) const = default;
  };
  // Top-level items whose lower-cased extension is in the set.
  struct FilesWithExtensions {
    std::set<std::string> extensions;
    bool operator==(const FilesWithExtensions&) const = default;
  };
  // Version folders, except the newest `keep` and the one the pin points into.
  struct KeepNewestVersions {
    int keep = 0;
    std::optional<std::string> activePin;
    bool operator==(const KeepNewestVersions&) const = default;
  };
  // Per-origin folders of a CacheStorage root, except those of protected web apps.
  struct ServiceWorkerCacheStorage {
    std::vector<std::string> protectedDomains;
    bool operator==(const ServiceWorkerCacheStorage&) const = default;
  };
  // Version folders older than the one the named link in the root points at.
  struct KeepActiveAndNewer {
    std::string currentSymlink;
    bool operator==(const KeepActiveAndNewer&) const = default;
  };
  // Chromium-style cache folders inside each application's support folder;
  // the excluded entries are fnmatch patterns of application folder names.
  struct ElectronAppSupportCaches {
    std::set<std::string> excludedEntries;
    bool operator==(const ElectronAppSupportCaches&) const = default;
  };
  // Nothing is measured; reports that one of the paths exists.
  struct AppBundlePresence {
    std::vector<std::string> paths;
    bool operator==(const AppBundlePresence&) const = default;
  };
  // Folders named by a bundle identifier whose application is gone.
  struct OrphanedBundles {
    OrphanResource resource = OrphanResource::caches;
    bool operator==(const OrphanedBundles&) const = default;
  };
  // Each top-level item of the root is a detail item, but for the entries
  // that other rules own: names matched as fnmatch patterns.
  struct TopLevel {
    std::set<std::string> excludedEntries;
    bool operator==(const TopLevel&) const = default;
  };
  // The whole root is one detail item.
  struct Contents {
    bool operator==(const Contents&) const = default;
  };

  // The cases in their order; `Case` numbers the alternatives of `Payload`.
  enum class Case {
    oldFiles,
    filesWithExtensions,
    keepNewestVersions,
    serviceWorkerCacheStorage,
    keepActiveAndNewer,
    electronAppSupportCaches,
    appBundlePresence,
    orphanedBundles,
    topLevel,
    contents,
  };
  using Payload =
      std::variant<OldFiles, FilesWithExtensions, KeepNewestVersions, ServiceWorkerCacheStorage,
                   KeepActiveAndNewer, ElectronAppSupportCaches, AppBundlePresence, OrphanedBundles,
                   TopLevel, Contents>;

  Payload payload = Contents{};

  static RuleTargetMode oldFiles(int days) { return {OldFiles{days}}; }
  static RuleTargetMode filesWithExtensions(std::set<std::string> extensions) {
    return {FilesWithExtensions{std::move(extensions)}};
  }
  static RuleTargetMode keepNewestVersions(int keep, const std::optional<std::string>& activePin) {
    // Built field by field: copying an empty optional string here trips a
    // false uninitialised-value warning of g++ 12 under the sanitizers.
    KeepNewestVersions payload;
    payload.keep = keep;
    if (activePin) payload.activePin.emplace(*activePin);
    return {std::move(payload)};
  }
  static RuleTargetMode serviceWorkerCacheStorage(std::vector<std::string> protectedDomains) {
    return {ServiceWorkerCacheStorage{std::move(protectedDomains)}};
  }
  static RuleTargetMode keepActiveAndNewer(std::string currentSymlink) {
    return {KeepActiveAndNewer{std::move(currentSymlink)}};
  }
  static RuleTargetMode electronAppSupportCaches(std::set<std::string> excludedEntries) {
    return {ElectronAppSupportCaches{std::move(excludedEntries)}};
  }
  static RuleTargetMode appBundlePresence(std::vector<std::string> paths) {
    return {AppBundlePresence{std::move(paths)}};
  }
  static RuleTargetMode orphanedBundles(OrphanResource resource) {
    return {OrphanedBundles{resource}};
  }
  static RuleTargetMode topLevel(std::set<std::string> excludedEntries = {}) {
    return {TopLevel{std::move(excludedEntries)}};
  }
  static RuleTargetMode contents() { return {Contents{}}; }

  Case kind() const { return static_cast<Case>(payload.index()); }
  // The payload when the mode is of case T, else null.
  template <typename T>
  const T* as() const {
    return std::get_if<T>(&payload);
  }

  bool operator==(const RuleTargetMode&) const = default;
};

}  // namespace brisko
