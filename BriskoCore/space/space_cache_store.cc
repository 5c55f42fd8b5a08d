#include "space/space_cache_store.h"

#include <unistd.h>

#include "base/atomic_file.h"
#include "base/file_contents.h"
#include "platform/home_directory.h"
#include "space/space_json_text.h"
#include "space/space_naming.h"

namespace brisko {

void to_json(Json& json, const SpaceScanCacheEnvelope::EventState& value) {
  JsonObjectWriter out(json);
  out.set("deviceUUID", value.deviceUUID);
  out.set("lastEventID", value.lastEventID);
}

void from_json(const Json& json, SpaceScanCacheEnvelope::EventState& value) {
  JsonObjectReader in(json);
  value.deviceUUID = in.required<std::string>("deviceUUID");
  value.lastEventID = in.required<std::uint64_t>("lastEventID");
}

void to_json(Json& json, const SpaceScanCacheEnvelope& value) {
  JsonObjectWriter out(json);
  out.set("schemaVersion", value.schemaVersion);
  out.set("namingLanguage", value.namingLanguage);
  out.set("report", value.report);
  out.set("eventState", value.eventState);
}

void from_json(const Json& json, SpaceScanCacheEnvelope& value) {
  JsonObjectReader in(json);
  value.schemaVersion = in.required<std::int64_t>("schemaVersion");
  value.namingLanguage = in.required<std::string>("namingLanguage");
  value.report = in.required<SpaceReport>("report");
  value.eventState = in.optional<SpaceScanCacheEnvelope::EventState>("eventState");
}

SpaceCacheStore SpaceCacheStore::forHome(const std::string& home) {
  return SpaceCacheStore(briskoDataDirectory(home) + "/" + fileName);
}

std::optional<SpaceScanCacheEnvelope> SpaceCacheStore::load() const {
  const auto contents = readFileContents(path_);
  if (!contents) return std::nullopt;

  SpaceScanCacheEnvelope envelope;
  try {
    envelope = decodeJson<SpaceScanCacheEnvelope>(*contents);
  } catch (const std::exception&) {  // damaged, truncated or of another layout
    clear();
    return std::nullopt;
  }
  if (envelope.schemaVersion != SpaceScanCacheEnvelope::currentSchemaVersion ||
      envelope.namingLanguage != SpaceNaming::namingLanguage()) {
    clear();
    return std::nullopt;
  }
  return envelope;
}

void SpaceCacheStore::save(const SpaceScanCacheEnvelope& envelope) const {
  const std::string text = encodeSpaceCacheEnvelope(envelope, /*pretty=*/true);
  const size_t slash = path_.rfind('/');
  if (slash != std::string::npos && slash > 0) {
    createPrivateDirectories(path_.substr(0, slash));
    sweepStaleTemporaryFiles(path_.substr(0, slash));
  }
  writeFileAtomically(path_, text);
}

void SpaceCacheStore::clear() const {
  ::unlink(path_.c_str());
}

}  // namespace brisko
