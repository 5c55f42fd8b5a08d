#include "space/space_clean_records.h"

namespace brisko {

std::vector<SpaceCleanResult> SpaceCleanReceipt::succeeded() const {
  std::vector<SpaceCleanResult> done;
  for (const SpaceCleanResult& result : results) {
    if (result.outcome == SpaceCleanOutcome::moved || result.outcome == SpaceCleanOutcome::deleted)
      done.push_back(result);
  }
  return done;
}

void to_json(Json& json, const SpaceCleanTarget& value) {
  JsonObjectWriter out(json);
  out.set("path", value.path);
  out.set("bytes", value.bytes);
}

void from_json(const Json& json, SpaceCleanTarget& value) {
  JsonObjectReader in(json);
  value.path = in.required<std::string>("path");
  value.bytes = in.required<std::int64_t>("bytes");
}

void to_json(Json& json, const SpaceCleanResult& value) {
  JsonObjectWriter out(json);
  out.set("path", value.path);
  out.set("bytes", value.bytes);
  out.set("outcome", value.outcome);
  out.set("message", value.message);
}

void from_json(const Json& json, SpaceCleanResult& value) {
  JsonObjectReader in(json);
  value.path = in.required<std::string>("path");
  value.bytes = in.required<std::int64_t>("bytes");
  value.outcome = in.required<SpaceCleanOutcome>("outcome");
  value.message = in.optional<std::string>("message");
}

void to_json(Json& json, const SpaceCleanReceipt& value) {
  JsonObjectWriter out(json);
  out.set("mode", value.mode);
  out.set("startedAt", value.startedAt);
  out.set("completedAt", value.completedAt);
  out.set("results", value.results);
}

void from_json(const Json& json, SpaceCleanReceipt& value) {
  JsonObjectReader in(json);
  value.mode = in.required<SpaceCleanMode>("mode");
  value.startedAt = in.required<Date>("startedAt");
  value.completedAt = in.required<Date>("completedAt");
  value.results = in.required<std::vector<SpaceCleanResult>>("results");
}

}  // namespace brisko
