#pragma once

// What changed under a folder since a point in the volume's file-event
// history, so that a space scan can take unchanged subtrees from its cache.
//
// Linux keeps no such history: there is no event-store identity, and
// changedPaths always answers historyUnavailable, so every space scan here is
// a full walk. Callers treat any failure as "no reuse", which is exactly right
// for this case too.

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <variant>
#include <vector>

namespace brisko {

class FSEventsReplay {
 public:
  enum class Failure { historyUnavailable, timedOut };

  using Result = std::variant<std::vector<std::string>, Failure>;

  // The identity of the event store of the volume holding `path`; none here.
  static std::optional<std::string> deviceUUID(const std::string& path);

  // The current point of that history, to be stored with a new tree; none here.
  static std::optional<std::uint64_t> currentEventID(const std::string& path);

  static Result changedPaths(const std::string& path, std::uint64_t sinceEventID,
                             std::chrono::seconds timeout);

  // An event's path as the tree spells it: one trailing "/" dropped, and the
  // data-volume prefix "/System/Volumes/Data" taken off.
  static std::string normalizedEventPath(std::string path);
};

}  // namespace brisko
