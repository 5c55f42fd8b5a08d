#include "protocol/receipt_records.h"

namespace brisko {

void to_json(Json& json, const CleanupItemResult& value) {
  JsonObjectWriter out(json);
  out.set("id", value.id);
  out.set("originalPath", value.originalPath);
  out.set("bytes", value.bytes);
  out.set("outcome", value.outcome);
  out.set("message", value.message);
}

void from_json(const Json& json, CleanupItemResult& value) {
  JsonObjectReader in(json);
  value.id = in.required<std::string>("id");
  value.originalPath = in.required<std::string>("originalPath");
  value.bytes = in.required<std::int64_t>("bytes");
  value.outcome = in.required<CleanupItemOutcome>("outcome");
  value.message = in.required<std::string>("message");
}

void to_json(Json& json, const CleanupReceipt& value) {
  JsonObjectWriter out(json);
  out.set("protocolVersion", value.protocolVersion);
  out.set("id", value.id);
  out.set("planID", value.planID);
  out.set("startedAt", value.startedAt);
  out.set("completedAt", value.completedAt);
  out.set("results", value.results);
}

void from_json(const Json& json, CleanupReceipt& value) {
  JsonObjectReader in(json);
  value.protocolVersion = in.required<std::int64_t>("protocolVersion");
  value.id = in.required<Uuid>("id");
  value.planID = in.required<Uuid>("planID");
  value.startedAt = in.required<Date>("startedAt");
  value.completedAt = in.required<Date>("completedAt");
  value.results = in.required<std::vector<CleanupItemResult>>("results");
}

void to_json(Json& json, const CleanupEvent& value) {
  JsonObjectWriter out(json);
  out.set("protocolVersion", value.protocolVersion);
  out.set("kind", value.kind);
  out.set("totalItems", value.totalItems);
  out.set("result", value.result);
  out.set("receipt", value.receipt);
}

void from_json(const Json& json, CleanupEvent& value) {
  JsonObjectReader in(json);
  value.protocolVersion = in.required<std::int64_t>("protocolVersion");
  value.kind = in.required<CleanupEventKind>("kind");
  value.totalItems = in.optional<std::int64_t>("totalItems");
  value.result = in.optional<CleanupItemResult>("result");
  value.receipt = in.optional<CleanupReceipt>("receipt");
}

}  // namespace brisko
