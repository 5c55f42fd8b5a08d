#include "protocol/scan_records.h"

namespace brisko {

void to_json(Json& json, const ScanFindingItem& value) {
  JsonObjectWriter out(json);
  out.set("id", value.id);
  out.set("title", value.title);
  out.set("subtitle", value.subtitle);
  out.set("path", value.path);
  out.set("bytes", value.bytes);
  out.set("itemCount", value.itemCount);
}

void from_json(const Json& json, ScanFindingItem& value) {
  JsonObjectReader in(json);
  value.id = in.required<std::string>("id");
  value.title = in.required<std::string>("title");
  value.subtitle = in.required<std::string>("subtitle");
  value.path = in.required<std::string>("path");
  value.bytes = in.required<std::int64_t>("bytes");
  value.itemCount = in.required<std::int64_t>("itemCount");
}

void to_json(Json& json, const ScanFinding& value) {
  JsonObjectWriter out(json);
  out.set("id", value.id);
  out.set("kind", value.kind);
  out.set("title", value.title);
  out.set("subtitle", value.subtitle);
  out.set("path", value.path);
  out.set("bytes", value.bytes);
  out.set("itemCount", value.itemCount);
  out.set("risk", value.risk);
  out.set("explanation", value.explanation);
  out.set("isPartial", value.isPartial);
  out.set("items", value.items);
  out.set("action", value.action);
  out.set("guidance", value.guidance);
}

void from_json(const Json& json, ScanFinding& value) {
  JsonObjectReader in(json);
  value.id = in.required<std::string>("id");
  value.kind = in.required<FindingKind>("kind");
  value.title = in.required<std::string>("title");
  value.subtitle = in.required<std::string>("subtitle");
  value.path = in.required<std::string>("path");
  value.bytes = in.required<std::int64_t>("bytes");
  value.itemCount = in.required<std::int64_t>("itemCount");
  value.risk = in.required<RiskLevel>("risk");
  value.explanation = in.required<std::string>("explanation");
  value.isPartial = in.required<bool>("isPartial");
  value.items = in.optional<std::vector<ScanFindingItem>>("items");
  value.action = in.required<RuleAction>("action");
  value.guidance = in.optional<std::string>("guidance");
}

void to_json(Json& json, const BlockedLocation& value) {
  JsonObjectWriter out(json);
  out.set("id", value.id);
  out.set("title", value.title);
  out.set("path", value.path);
  out.set("needsFullDiskAccess", value.needsFullDiskAccess);
}

void from_json(const Json& json, BlockedLocation& value) {
  JsonObjectReader in(json);
  value.id = in.required<std::string>("id");
  value.title = in.required<std::string>("title");
  value.path = in.required<std::string>("path");
  value.needsFullDiskAccess = in.required<bool>("needsFullDiskAccess");
}

void to_json(Json& json, const ScanReport& value) {
  JsonObjectWriter out(json);
  out.set("protocolVersion", value.protocolVersion);
  out.set("scannedAt", value.scannedAt);
  out.set("disk", value.disk);
  out.set("findings", value.findings);
  out.set("warnings", value.warnings);
  out.set("blocked", value.blocked);
}

void from_json(const Json& json, ScanReport& value) {
  JsonObjectReader in(json);
  value.protocolVersion = in.required<std::int64_t>("protocolVersion");
  value.scannedAt = in.required<Date>("scannedAt");
  value.disk = in.required<DiskSnapshot>("disk");
  value.findings = in.required<std::vector<ScanFinding>>("findings");
  value.warnings = in.required<std::vector<std::string>>("warnings");
  value.blocked = in.required<std::vector<BlockedLocation>>("blocked");
}

void to_json(Json& json, const ScanProgress& value) {
  JsonObjectWriter out(json);
  out.set("completedLocations", value.completedLocations);
  out.set("totalLocations", value.totalLocations);
  out.set("currentTitle", value.currentTitle);
}

void from_json(const Json& json, ScanProgress& value) {
  JsonObjectReader in(json);
  value.completedLocations = in.required<std::int64_t>("completedLocations");
  value.totalLocations = in.required<std::int64_t>("totalLocations");
  value.currentTitle = in.optional<std::string>("currentTitle");
}

void to_json(Json& json, const ScanEvent& value) {
  JsonObjectWriter out(json);
  out.set("protocolVersion", value.protocolVersion);
  out.set("kind", value.kind);
  out.set("disk", value.disk);
  out.set("progress", value.progress);
  out.set("finding", value.finding);
  out.set("warning", value.warning);
  out.set("blocked", value.blocked);
  out.set("report", value.report);
}

void from_json(const Json& json, ScanEvent& value) {
  JsonObjectReader in(json);
  value.protocolVersion = in.required<std::int64_t>("protocolVersion");
  value.kind = in.required<ScanEventKind>("kind");
  value.disk = in.optional<DiskSnapshot>("disk");
  value.progress = in.optional<ScanProgress>("progress");
  value.finding = in.optional<ScanFinding>("finding");
  value.warning = in.optional<std::string>("warning");
  value.blocked = in.optional<BlockedLocation>("blocked");
  value.report = in.optional<ScanReport>("report");
}

}  // namespace brisko
