#pragma once

// The measured tree of the home folder, as "space-stream" reports it and as
// the space cache stores it.

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "base/date.h"
#include "protocol/engine_enums.h"
#include "protocol/engine_protocol.h"
#include "protocol/json_codec.h"

namespace brisko {

// One node of the tree. The encoder writes every key; the decoder requires
// only the first five, so that older cache files stay readable.
struct SpaceNode {
  std::string id;
  std::string name;
  std::string path;
  std::int64_t bytes = 0;
  std::int64_t itemCount = 0;
  bool isPartial = false;
  SpaceNodeKind kind = SpaceNodeKind::directory;
  bool accessDenied = false;
  std::int64_t sharedBytes = 0;
  std::vector<SpaceNode> children;

  bool operator==(const SpaceNode&) const = default;
};

struct LargeFileItem {
  std::string id;
  std::string name;
  std::string path;
  std::int64_t bytes = 0;
  std::optional<Date> modificationDate;

  bool operator==(const LargeFileItem&) const = default;
};

struct SpaceScanProgress {
  std::int64_t completedLocations = 0;
  std::int64_t totalLocations = 0;
  std::optional<std::string> currentTitle;
  std::optional<double> fineFraction;  // progress within the current location
  std::optional<std::int64_t> measuredBytes;

  bool operator==(const SpaceScanProgress&) const = default;
};

struct SpaceReport {
  std::int64_t protocolVersion = EngineProtocol::version;
  Date scannedAt{};
  SpaceNode root;
  std::vector<LargeFileItem> largeFiles;
  std::vector<std::string> warnings;  // engine texts

  bool operator==(const SpaceReport&) const = default;
};

// One line of "space-stream".
struct SpaceEvent {
  std::int64_t protocolVersion = EngineProtocol::version;
  SpaceEventKind kind = SpaceEventKind::started;
  std::optional<SpaceScanProgress> progress;
  std::optional<SpaceNode> node;
  std::optional<std::string> warning;
  std::optional<SpaceReport> report;

  bool operator==(const SpaceEvent&) const = default;
};

void to_json(Json& json, const SpaceNode& value);
void from_json(const Json& json, SpaceNode& value);
void to_json(Json& json, const LargeFileItem& value);
void from_json(const Json& json, LargeFileItem& value);
void to_json(Json& json, const SpaceScanProgress& value);
void from_json(const Json& json, SpaceScanProgress& value);
void to_json(Json& json, const SpaceReport& value);
void from_json(const Json& json, SpaceReport& value);
void to_json(Json& json, const SpaceEvent& value);
void from_json(const Json& json, SpaceEvent& value);

}  // namespace brisko
