#include "protocol/space_records.h"

namespace brisko {

void to_json(Json& json, const SpaceNode& value) {
  JsonObjectWriter out(json);
  out.set("id", value.id);
  out.set("name", value.name);
  out.set("path", value.path);
  out.set("bytes", value.bytes);
  out.set("itemCount", value.itemCount);
  out.set("isPartial", value.isPartial);
  out.set("kind", value.kind);
  out.set("accessDenied", value.accessDenied);
  out.set("sharedBytes", value.sharedBytes);
  out.set("children", value.children);
}

void from_json(const Json& json, SpaceNode& value) {
  JsonObjectReader in(json);
  value.id = in.required<std::string>("id");
  value.name = in.required<std::string>("name");
  value.path = in.required<std::string>("path");
  value.bytes = in.required<std::int64_t>("bytes");
  value.itemCount = in.required<std::int64_t>("itemCount");
  value.isPartial = in.withDefault<bool>("isPartial", false);
  value.kind = in.withDefault<SpaceNodeKind>("kind", SpaceNodeKind::directory);
  value.accessDenied = in.withDefault<bool>("accessDenied", false);
  value.sharedBytes = in.withDefault<std::int64_t>("sharedBytes", 0);
  value.children = in.withDefault<std::vector<SpaceNode>>("children", {});
}

void to_json(Json& json, const LargeFileItem& value) {
  JsonObjectWriter out(json);
  out.set("id", value.id);
  out.set("name", value.name);
  out.set("path", value.path);
  out.set("bytes", value.bytes);
  out.set("modificationDate", value.modificationDate);
}

void from_json(const Json& json, LargeFileItem& value) {
  JsonObjectReader in(json);
  value.id = in.required<std::string>("id");
  value.name = in.required<std::string>("name");
  value.path = in.required<std::string>("path");
  value.bytes = in.required<std::int64_t>("bytes");
  value.modificationDate = in.optional<Date>("modificationDate");
}

void to_json(Json& json, const SpaceScanProgress& value) {
  JsonObjectWriter out(json);
  out.set("completedLocations", value.completedLocations);
  out.set("totalLocations", value.totalLocations);
  out.set("currentTitle", value.currentTitle);
  out.set("fineFraction", value.fineFraction);
  out.set("measuredBytes", value.measuredBytes);
}

void from_json(const Json& json, SpaceScanProgress& value) {
  JsonObjectReader in(json);
  value.completedLocations = in.required<std::int64_t>("completedLocations");
  value.totalLocations = in.required<std::int64_t>("totalLocations");
  value.currentTitle = in.optional<std::string>("currentTitle");
  value.fineFraction = in.optional<double>("fineFraction");
  value.measuredBytes = in.optional<std::int64_t>("measuredBytes");
}

void to_json(Json& json, const SpaceReport& value) {
  JsonObjectWriter out(json);
  out.set("protocolVersion", value.protocolVersion);
  out.set("scannedAt", value.scannedAt);
  out.set("root", value.root);
  out.set("largeFiles", value.largeFiles);
  out.set("warnings", value.warnings);
}

void from_json(const Json& json, SpaceReport& value) {
  JsonObjectReader in(json);
  value.protocolVersion = in.required<std::int64_t>("protocolVersion");
  value.scannedAt = in.required<Date>("scannedAt");
  value.root = in.required<SpaceNode>("root");
  value.largeFiles = in.required<std::vector<LargeFileItem>>("largeFiles");
  value.warnings = in.required<std::vector<std::string>>("warnings");
}

void to_json(Json& json, const SpaceEvent& value) {
  JsonObjectWriter out(json);
  out.set("protocolVersion", value.protocolVersion);
  out.set("kind", value.kind);
  out.set("progress", value.progress);
  out.set("node", value.node);
  out.set("warning", value.warning);
  out.set("report", value.report);
}

void from_json(const Json& json, SpaceEvent& value) {
  JsonObjectReader in(json);
  value.protocolVersion = in.required<std::int64_t>("protocolVersion");
  value.kind = in.required<SpaceEventKind>("kind");
  value.progress = in.optional<SpaceScanProgress>("progress");
  value.node = in.optional<SpaceNode>("node");
  value.warning = in.optional<std::string>("warning");
  value.report = in.optional<SpaceReport>("report");
}

}  // namespace brisko
