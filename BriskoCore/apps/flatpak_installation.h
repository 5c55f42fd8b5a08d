#pragma once

// The applications of one Flatpak installation (a user's or the system's),
// read from its folders without running `flatpak`:
//   <installation>/app/<id>/current          → "<arch>/<branch>"
//   <installation>/app/<id>/<arch>/<branch>/active → "<commit>"
//   <installation>/app/<id>/<arch>/<branch>/<commit>/{metadata,files/...}

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/bundle_stamp.h"

namespace brisko {

struct FlatpakApplication {
  std::string id;           // "org.example.Tool"
  std::string folder;       // <installation>/app/<id>: what goes on removal
  std::string deployment;   // the active deployment, links resolved
  BundleStamp activeStamp;  // of the `active` link: an update replaces it
  std::optional<BundleStamp> metadataStamp;
  std::optional<std::string> version;  // of the AppStream metainfo's newest release
  std::optional<std::string> name;     // the metainfo's untranslated name
};

struct FlatpakInstallation {
  std::vector<FlatpakApplication> applications;
  bool isComplete = true;  // false when the app folder exists but can't be listed

  // The applications under `installation`. One whose `active` link dangles
  // or is missing is left out.
  static FlatpakInstallation read(const std::string& installation);
};

// The version of the first <release> and the untranslated <name> of an
// AppStream metainfo document, read with GLib's markup parser. Both none for
// a document that isn't well-formed.
struct MetainfoSummary {
  std::optional<std::string> version;
  std::optional<std::string> name;
};
MetainfoSummary readMetainfo(std::string_view document);

}  // namespace brisko
