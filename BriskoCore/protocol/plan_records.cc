#include "protocol/plan_records.h"

namespace brisko {

void to_json(Json& json, const CreateCleanupPlanRequest& value) {
  JsonObjectWriter out(json);
  out.set("findingIDs", value.findingIDs);
  out.set("itemIDs", value.itemIDs);
}

void from_json(const Json& json, CreateCleanupPlanRequest& value) {
  JsonObjectReader in(json);
  value.findingIDs = in.required<std::vector<std::string>>("findingIDs");
  value.itemIDs = in.required<std::vector<std::string>>("itemIDs");
}

void to_json(Json& json, const ExecuteCleanupPlanRequest& value) {
  JsonObjectWriter out(json);
  out.set("planID", value.planID);
}

void from_json(const Json& json, ExecuteCleanupPlanRequest& value) {
  JsonObjectReader in(json);
  value.planID = in.required<Uuid>("planID");
}

void to_json(Json& json, const FileIdentitySnapshot& value) {
  JsonObjectWriter out(json);
  out.set("deviceID", value.deviceID);
  out.set("fileID", value.fileID);
  out.set("fileType", value.fileType);
  out.set("logicalBytes", value.logicalBytes);
  out.set("modificationTimeNanoseconds", value.modificationTimeNanoseconds);
}

void from_json(const Json& json, FileIdentitySnapshot& value) {
  JsonObjectReader in(json);
  value.deviceID = in.required<std::uint64_t>("deviceID");
  value.fileID = in.required<std::uint64_t>("fileID");
  value.fileType = in.required<std::uint32_t>("fileType");
  value.logicalBytes = in.required<std::int64_t>("logicalBytes");
  value.modificationTimeNanoseconds = in.required<std::int64_t>("modificationTimeNanoseconds");
}

void to_json(Json& json, const CleanupPlanItem& value) {
  JsonObjectWriter out(json);
  out.set("id", value.id);
  out.set("findingID", value.findingID);
  out.set("title", value.title);
  out.set("path", value.path);
  out.set("estimatedBytes", value.estimatedBytes);
  out.set("identity", value.identity);
}

void from_json(const Json& json, CleanupPlanItem& value) {
  JsonObjectReader in(json);
  value.id = in.required<std::string>("id");
  value.findingID = in.required<std::string>("findingID");
  value.title = in.required<std::string>("title");
  value.path = in.required<std::string>("path");
  value.estimatedBytes = in.required<std::int64_t>("estimatedBytes");
  value.identity = in.required<FileIdentitySnapshot>("identity");
}

void to_json(Json& json, const CleanupPlanSkip& value) {
  JsonObjectWriter out(json);
  out.set("id", value.id);
  out.set("path", value.path);
  out.set("reason", value.reason);
  out.set("message", value.message);
}

void from_json(const Json& json, CleanupPlanSkip& value) {
  JsonObjectReader in(json);
  value.id = in.required<std::string>("id");
  value.path = in.required<std::string>("path");
  value.reason = in.required<CleanupPlanSkipReason>("reason");
  value.message = in.required<std::string>("message");
}

void to_json(Json& json, const CleanupPlan& value) {
  JsonObjectWriter out(json);
  out.set("protocolVersion", value.protocolVersion);
  out.set("id", value.id);
  out.set("createdAt", value.createdAt);
  out.set("expiresAt", value.expiresAt);
  out.set("items", value.items);
  out.set("skipped", value.skipped);
}

void from_json(const Json& json, CleanupPlan& value) {
  JsonObjectReader in(json);
  value.protocolVersion = in.required<std::int64_t>("protocolVersion");
  value.id = in.required<Uuid>("id");
  value.createdAt = in.required<Date>("createdAt");
  value.expiresAt = in.required<Date>("expiresAt");
  value.items = in.required<std::vector<CleanupPlanItem>>("items");
  value.skipped = in.required<std::vector<CleanupPlanSkip>>("skipped");
}

}  // namespace brisko
