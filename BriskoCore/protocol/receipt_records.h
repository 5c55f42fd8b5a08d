#pragma once

// What "execute-plan" reports: one result per plan item, the receipt of the
// whole run, and the events that carry them.

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "base/date.h"
#include "base/uuid.h"
#include "protocol/engine_enums.h"
#include "protocol/engine_protocol.h"
#include "protocol/json_codec.h"

namespace brisko {

struct CleanupItemResult {
  std::string id;  // the item's path, not the plan item's id
  std::string originalPath;
  std::int64_t bytes = 0;  // estimatedBytes when deleted, else 0
  CleanupItemOutcome outcome = CleanupItemOutcome::skipped;
  std::string message;

  bool operator==(const CleanupItemResult&) const = default;
};

struct CleanupReceipt {
  std::int64_t protocolVersion = EngineProtocol::version;
  Uuid id;
  Uuid planID;
  Date startedAt{};
  Date completedAt{};
  std::vector<CleanupItemResult> results;  // in the order of the plan's items

  bool operator==(const CleanupReceipt&) const = default;
};

// One line of "execute-plan".
struct CleanupEvent {
  std::int64_t protocolVersion = EngineProtocol::version;
  CleanupEventKind kind = CleanupEventKind::started;
  std::optional<std::int64_t> totalItems;
  std::optional<CleanupItemResult> result;
  std::optional<CleanupReceipt> receipt;

  bool operator==(const CleanupEvent&) const = default;
};

void to_json(Json& json, const CleanupItemResult& value);
void from_json(const Json& json, CleanupItemResult& value);
void to_json(Json& json, const CleanupReceipt& value);
void from_json(const Json& json, CleanupReceipt& value);
void to_json(Json& json, const CleanupEvent& value);
void from_json(const Json& json, CleanupEvent& value);

}  // namespace brisko
