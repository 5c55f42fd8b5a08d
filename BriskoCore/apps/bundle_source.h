#pragma once

// ".app" bundles in the application folders, as a Mac keeps them and as a
// Linux home can hold them (copied over, on a mounted volume).

#include <string>
#include <vector>

#include "apps/application_lister.h"

namespace brisko {

class BundleSource : public ApplicationLister {
 public:
  // The folders where listed applications live, in order: the system's and
  // the user's "Applications" and "Library/Input Methods", then the
  // "Applications" folder of each of the user's mounted local volumes.
  static std::vector<std::string> searchRoots(const CatalogSettings& settings);
  // The search roots, plus where other installed bundles can hide (system
  // applications, Setapp, Homebrew's Caskrooms).
  static std::vector<std::string> inventoryRoots(const CatalogSettings& settings);

  struct Walk {
    std::vector<std::string> candidates;  // in the order found
    bool isComplete = true;
  };
  // Every ".app" (any case; a folder or a link) under the roots, three folder
  // levels deep at most, never inside a bundle, skipping hidden names.
  static Walk findBundles(const std::vector<std::string>& roots);

  // Bundles of the search roots, read, with the running program's own left
  // out and duplicates merged: for the same identifier and name the lower
  // rank wins ("/Applications" 1, the home's 2, a mounted volume's 4, the
  // rest 3), and on equal rank the first found.
  SourceListing list(const CatalogSettings& settings) override;
};

}  // namespace brisko
