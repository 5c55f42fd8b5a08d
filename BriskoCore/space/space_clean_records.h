#pragma once

// What a clean of the Space basket is given and what it reports.

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "base/date.h"
#include "protocol/json_codec.h"

namespace brisko {

enum class SpaceCleanMode : uint8_t { trash, delete_ };

template <>
struct EnumNames<SpaceCleanMode> {
  // `delete` is a C++ keyword; the wire text is the plain word.
  static constexpr std::array<std::string_view, 2> names{"trash", "delete"};
};

enum class SpaceCleanOutcome : uint8_t {
  moved,    // now in the Trash
  deleted,  // gone for good
  skipped,  // refused; the item was not touched
  failed,   // allowed, but the operation failed
};

template <>
struct EnumNames<SpaceCleanOutcome> {
  static constexpr std::array<std::string_view, 4> names{"moved", "deleted", "skipped", "failed"};
};

struct SpaceCleanTarget {
  std::string path;
  std::int64_t bytes = 0;  // the size as shown to the user

  bool operator==(const SpaceCleanTarget&) const = default;
};

struct SpaceCleanResult {
  std::string path;
  std::int64_t bytes = 0;  // copied from the target
  SpaceCleanOutcome outcome = SpaceCleanOutcome::skipped;
  // The refusal or the failure's words; none on success.
  std::optional<std::string> message;

  bool operator==(const SpaceCleanResult&) const = default;
};

struct SpaceCleanReceipt {
  SpaceCleanMode mode = SpaceCleanMode::trash;
  Date startedAt{};
  Date completedAt{};
  std::vector<SpaceCleanResult> results;  // in target order

  // The results that moved or deleted their item, in order.
  std::vector<SpaceCleanResult> succeeded() const;

  bool operator==(const SpaceCleanReceipt&) const = default;
};

void to_json(Json& json, const SpaceCleanTarget& value);
void from_json(const Json& json, SpaceCleanTarget& value);
void to_json(Json& json, const SpaceCleanResult& value);
void from_json(const Json& json, SpaceCleanResult& value);
void to_json(Json& json, const SpaceCleanReceipt& value);
void from_json(const Json& json, SpaceCleanReceipt& value);

}  // namespace brisko
