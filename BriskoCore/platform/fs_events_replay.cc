#include "platform/fs_events_replay.h"

namespace brisko {

std::optional<std::string> FSEventsReplay::deviceUUID(const std::string&) {
  return std::nullopt;
}

std::optional<std::uint64_t> FSEventsReplay::currentEventID(const std::string&) {
  return std::nullopt;
}

FSEventsReplay::Result FSEventsReplay::changedPaths(const std::string&, std::uint64_t,
                                                    std::chrono::seconds) {
  return Failure::historyUnavailable;
}

std::string FSEventsReplay::normalizedEventPath(std::string path) {
  if (!path.empty() && path.back() == '/') path.pop_back();
  constexpr std::string_view kDataVolume = "/System/Volumes/Data";
  if (path.starts_with(std::string(kDataVolume) + "/")) path.erase(0, kDataVolume.size());
  return path;
}

}  // namespace brisko
