#pragma once

// The last space report, kept on disk so that the Space page can show it at
// once and an incremental scan can reuse what did not change.

#include <cstdint>
#include <optional>
#include <string>

#include "protocol/json_codec.h"
#include "protocol/space_records.h"

namespace brisko {

struct SpaceScanCacheEnvelope {
  static constexpr std::int64_t currentSchemaVersion = 3;

  struct EventState {
    std::string deviceUUID;
    std::uint64_t lastEventID = 0;
    bool operator==(const EventState&) const = default;
  };

  std::int64_t schemaVersion = currentSchemaVersion;
  std::string namingLanguage;
  SpaceReport report;
  std::optional<EventState> eventState;  // absent when no replay point is known

  bool operator==(const SpaceScanCacheEnvelope&) const = default;
};

void to_json(Json& json, const SpaceScanCacheEnvelope::EventState& value);
void from_json(const Json& json, SpaceScanCacheEnvelope::EventState& value);
void to_json(Json& json, const SpaceScanCacheEnvelope& value);
void from_json(const Json& json, SpaceScanCacheEnvelope& value);

class SpaceCacheStore {
 public:
  static constexpr const char* fileName = "space-cache.json";

  explicit SpaceCacheStore(std::string path) : path_(std::move(path)) {}
  // The default place under the home folder's data directory.
  static SpaceCacheStore forHome(const std::string& home);

  const std::string& path() const { return path_; }

  // The stored envelope, if it is worth anything. A file that can't be read is
  // left alone; one that is damaged, of another schema or of another naming
  // language is deleted. In every such case the answer is none.
  std::optional<SpaceScanCacheEnvelope> load() const;

  // Replaces the file in one step, creating its private folder. Throws
  // EncodingError or std::system_error.
  void save(const SpaceScanCacheEnvelope& envelope) const;

  // Deletes the file; errors are ignored.
  void clear() const;

 private:
  std::string path_;
};

}  // namespace brisko
