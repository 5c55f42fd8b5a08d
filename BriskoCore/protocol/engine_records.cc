#include "protocol/engine_records.h"

namespace brisko {

void to_json(Json& json, const EngineCapabilities& value) {
  JsonObjectWriter out(json);
  out.set("protocolVersion", value.protocolVersion);
  out.set("engineVersion", value.engineVersion);
  out.set("commands", value.commands);
}

void from_json(const Json& json, EngineCapabilities& value) {
  JsonObjectReader in(json);
  value.protocolVersion = in.required<std::int64_t>("protocolVersion");
  value.engineVersion = in.required<std::string>("engineVersion");
  value.commands = in.required<std::vector<std::string>>("commands");
}

void to_json(Json& json, const DiskSnapshot& value) {
  JsonObjectWriter out(json);
  out.set("volumeName", value.volumeName);
  out.set("totalBytes", value.totalBytes);
  out.set("availableBytes", value.availableBytes);
}

void from_json(const Json& json, DiskSnapshot& value) {
  JsonObjectReader in(json);
  value.volumeName = in.required<std::string>("volumeName");
  value.totalBytes = in.required<std::int64_t>("totalBytes");
  value.availableBytes = in.required<std::int64_t>("availableBytes");
}

}  // namespace brisko
