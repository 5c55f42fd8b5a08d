#pragma once

// Cleanup plans and their requests, as "create-plan" writes them and as they
// are stored until "execute-plan" runs them.

#include <cstdint>
#include <string>
#include <vector>

#include "base/date.h"
#include "base/uuid.h"
#include "protocol/engine_enums.h"
#include "protocol/engine_protocol.h"
#include "protocol/json_codec.h"

namespace brisko {

struct CreateCleanupPlanRequest {
  std::vector<std::string> findingIDs;  // findings selected as a whole
  std::vector<std::string> itemIDs;     // ScanFindingItem ids of single rows

  bool operator==(const CreateCleanupPlanRequest&) const = default;
};

struct ExecuteCleanupPlanRequest {
  Uuid planID;

  bool operator==(const ExecuteCleanupPlanRequest&) const = default;
};

// What a path was when the plan was made (from lstat).
struct FileIdentitySnapshot {
  std::uint64_t deviceID = 0;
  std::uint64_t fileID = 0;
  std::uint32_t fileType = 0;  // st_mode & S_IFMT
  std::int64_t logicalBytes = 0;
  std::int64_t modificationTimeNanoseconds = 0;

  bool operator==(const FileIdentitySnapshot&) const = default;
};

struct CleanupPlanItem {
  std::string id;  // findingID:deviceID:fileID
  std::string findingID;
  std::string title;
  std::string path;
  std::int64_t estimatedBytes = 0;
  FileIdentitySnapshot identity;

  bool operator==(const CleanupPlanItem&) const = default;
};

// A candidate that did not enter the plan, and why.
struct CleanupPlanSkip {
  std::string id;  // reason:path
  std::string path;
  CleanupPlanSkipReason reason = CleanupPlanSkipReason::pathMissing;
  std::string message;

  bool operator==(const CleanupPlanSkip&) const = default;
};

struct CleanupPlan {
  std::int64_t protocolVersion = EngineProtocol::version;
  Uuid id;
  Date createdAt{};
  Date expiresAt{};
  std::vector<CleanupPlanItem> items;
  std::vector<CleanupPlanSkip> skipped;

  bool operator==(const CleanupPlan&) const = default;
};

void to_json(Json& json, const CreateCleanupPlanRequest& value);
void from_json(const Json& json, CreateCleanupPlanRequest& value);
void to_json(Json& json, const ExecuteCleanupPlanRequest& value);
void from_json(const Json& json, ExecuteCleanupPlanRequest& value);
void to_json(Json& json, const FileIdentitySnapshot& value);
void from_json(const Json& json, FileIdentitySnapshot& value);
void to_json(Json& json, const CleanupPlanItem& value);
void from_json(const Json& json, CleanupPlanItem& value);
void to_json(Json& json, const CleanupPlanSkip& value);
void from_json(const Json& json, CleanupPlanSkip& value);
void to_json(Json& json, const CleanupPlan& value);
void from_json(const Json& json, CleanupPlan& value);

}  // namespace brisko
