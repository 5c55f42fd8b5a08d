#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "protocol/engine_protocol.h"
#include "protocol/json_codec.h"

namespace brisko {

// The answer of "capabilities".
struct EngineCapabilities {
  std::int64_t protocolVersion = EngineProtocol::version;
  std::string engineVersion;
  std::vector<std::string> commands;

  bool operator==(const EngineCapabilities&) const = default;
};

// The answer of "overview": the volume that holds the home folder.
struct DiskSnapshot {
  std::string volumeName;
  std::int64_t totalBytes = 0;
  std::int64_t availableBytes = 0;

  bool operator==(const DiskSnapshot&) const = default;
};

void to_json(Json& json, const EngineCapabilities& value);
void from_json(const Json& json, EngineCapabilities& value);
void to_json(Json& json, const DiskSnapshot& value);
void from_json(const Json& json, DiskSnapshot& value);

}  // namespace brisko
