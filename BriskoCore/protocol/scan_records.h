#pragma once

// What "scan-stream" reports: findings, blocked locations, progress and the
// whole report, and the events that carry them one line at a time.

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "base/date.h"
#include "protocol/engine_enums.h"
#include "protocol/engine_protocol.h"
#include "protocol/engine_records.h"
#include "protocol/json_codec.h"

namespace brisko {

// One selectable row under a finding. `id` is the finding's id, a colon and
// the item's standardised absolute path; plans take it apart again.
struct ScanFindingItem {
  std::string id;
  std::string title;
  std::string subtitle;
  std::string path;
  std::int64_t bytes = 0;
  std::int64_t itemCount = 0;

  bool operator==(const ScanFindingItem&) const = default;
};

struct ScanFinding {
  std::string id;
  FindingKind kind = FindingKind::userCache;
  std::string title;
  std::string subtitle;
  std::string path;
  std::int64_t bytes = 0;
  std::int64_t itemCount = 0;
  RiskLevel risk = RiskLevel::review;
  std::string explanation;
  bool isPartial = false;
  // Without items a finding is selected as a whole.
  std::optional<std::vector<ScanFindingItem>> items;
  RuleAction action = RuleAction::cleanup;
  std::optional<std::string> guidance;

  bool operator==(const ScanFinding&) const = default;
};

// A location the scan could not enter.
struct BlockedLocation {
  std::string id;
  std::string title;
  std::string path;
  bool needsFullDiskAccess = false;

  bool operator==(const BlockedLocation&) const = default;
};

struct ScanReport {
  std::int64_t protocolVersion = EngineProtocol::version;
  Date scannedAt{};
  DiskSnapshot disk;
  std::vector<ScanFinding> findings;
  std::vector<std::string> warnings;  // engine texts
  std::vector<BlockedLocation> blocked;

  bool operator==(const ScanReport&) const = default;
};

struct ScanProgress {
  std::int64_t completedLocations = 0;
  std::int64_t totalLocations = 0;
  std::optional<std::string> currentTitle;

  bool operator==(const ScanProgress&) const = default;
};

// One line of "scan-stream"; each kind carries only the payload it needs.
struct ScanEvent {
  std::int64_t protocolVersion = EngineProtocol::version;
  ScanEventKind kind = ScanEventKind::started;
  std::optional<DiskSnapshot> disk;
  std::optional<ScanProgress> progress;
  std::optional<ScanFinding> finding;
  std::optional<std::string> warning;
  std::optional<BlockedLocation> blocked;
  std::optional<ScanReport> report;

  bool operator==(const ScanEvent&) const = default;
};

void to_json(Json& json, const ScanFindingItem& value);
void from_json(const Json& json, ScanFindingItem& value);
void to_json(Json& json, const ScanFinding& value);
void from_json(const Json& json, ScanFinding& value);
void to_json(Json& json, const BlockedLocation& value);
void from_json(const Json& json, BlockedLocation& value);
void to_json(Json& json, const ScanReport& value);
void from_json(const Json& json, ScanReport& value);
void to_json(Json& json, const ScanProgress& value);
void from_json(const Json& json, ScanProgress& value);
void to_json(Json& json, const ScanEvent& value);
void from_json(const Json& json, ScanEvent& value);

}  // namespace brisko
