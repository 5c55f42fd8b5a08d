#pragma once

// What a Linux desktop has installed, found through its desktop entries: each
// entry leads to its owner (a Flatpak application, a snap, an AppImage, a
// program unpacked in the home folder, a web app, a system package), and each
// owner makes one record. Flatpak applications and AppImages in the usual
// folders are listed even without an entry.

#include "apps/application_lister.h"

namespace brisko {

class LinuxApplicationSource : public ApplicationLister {
 public:
  SourceListing list(const CatalogSettings& settings) override;

  // How many dpkg-query processes the last listing started (0 when the
  // cached answers held).
  int packageQueries() const { return packageQueries_; }

 private:
  int packageQueries_ = 0;
};

// True for an argument "--app-id=" followed by 32 letters a to p: the mark of
// a web app that a Chromium-family browser made.
bool isWebAppArgument(std::string_view argument);

}  // namespace brisko
