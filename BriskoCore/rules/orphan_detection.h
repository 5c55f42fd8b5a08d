#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

#include "base/date.h"
#include "rules/installed_app_inventory.h"
#include "rules/orphan_resource.h"
#include "rules/spotlight_resolver.h"
#include "safety/path_safety_policy.h"

// Decides which folders named by a bundle identifier belong to an application
// that is really gone. A wrong answer costs a live application's data, so
// every doubt keeps the folder: an orphan needs the identifier missing from a
// complete inventory, a clear "not installed" from Spotlight, thirty days
// without a change and a folder that holds something. The same judgement is
// made again at execution time.
namespace brisko::OrphanDetection {

// What a folder was found to be.
struct Judgement {
  struct Orphan {
    int64_t bytes = 0;
    std::string displayBundleID;  // in the folder's own case
    bool operator==(const Orphan&) const = default;
  };
  // Refused by the path safety policy; exactly one flag is set.
  struct PolicySkipped {
    bool protected_ = false;
    bool whitelisted = false;
    bool invalid = false;
    bool operator==(const PolicySkipped&) const = default;
  };
  struct NotOrphan {
    bool operator==(const NotOrphan&) const = default;
  };

  std::variant<Orphan, PolicySkipped, NotOrphan> value;

  static Judgement orphan(int64_t bytes, std::string displayBundleID) {
    return {Orphan{bytes, std::move(displayBundleID)}};
  }
  static Judgement policySkipped(bool protected_, bool whitelisted, bool invalid) {
    return {PolicySkipped{protected_, whitelisted, invalid}};
  }
  static Judgement notOrphan() { return {NotOrphan{}}; }

  template <typename T>
  const T* as() const {
    return std::get_if<T>(&value);
  }
  bool operator==(const Judgement&) const = default;
};

// Where the age of a folder comes from: a date given by the caller (absent
// meaning unknown), or the folder's modification date on disk.
struct MtimeSource {
  struct Fixed {
    std::optional<Date> date;
    bool operator==(const Fixed&) const = default;
  };
  struct ReadFromDisk {
    bool operator==(const ReadFromDisk&) const = default;
  };

  std::variant<Fixed, ReadFromDisk> value;

  static MtimeSource fixed(std::optional<Date> date) { return {Fixed{date}}; }
  static MtimeSource readFromDisk() { return {ReadFromDisk{}}; }
};

// The age from which an untouched folder may be an orphan: 30 days.
inline constexpr int64_t kMinimumAgeSeconds = 2592000;

// Lower-cased, the name begins with "com.", "org.", "net." or "io.".
bool isBundleIDLike(std::string_view name);

// The bundle identifier that a folder's name stands for, or none. In the
// saved-state folder only names ending in ".savedState" count, without that
// ending. Apple's own identifiers never count.
std::optional<std::string> bundleID(std::string_view entryName, OrphanResource resource);

// The resource whose folder (~/Library/Caches, ~/Library/Logs, ~/Library/Saved
// Application State) holds `path` directly, or none.
std::optional<OrphanResource> resource(std::string_view path, std::string_view home);

// Identifiers of password managers, keychains and key tools are never
// offered, whatever else is true of them.
bool isSensitiveName(std::string_view name);

// The bytes allocated to the entry and everything below it, without following
// links; what can't be read counts as nothing.
int64_t allocatedSize(const std::string& path);

// The judgement of one entry of a resource folder; the first decision wins.
Judgement judge(const std::string& entry, OrphanResource resource,
                const InstalledAppInventory& installedApps, const SpotlightResolver& spotlight,
                const PathSafetyPolicy& policy, const MtimeSource& mtime, Date now);

}  // namespace brisko::OrphanDetection
