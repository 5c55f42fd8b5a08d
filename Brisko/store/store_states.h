#pragma once

// The states of the clean flow that the pages read from `AppStore`.

#include <cstdint>
#include <optional>
#include <string>

#include "base/date.h"

namespace brisko {

// `idle` to `scanning` to `loaded` or `failed`, and from either back to
// `scanning`.
struct ScanState {
  enum class Kind { idle, scanning, loaded, failed };

  Kind kind = Kind::idle;
  Date loadedAt{};      // `loaded` only
  std::string message;  // `failed` only: the user text

  static ScanState idle() { return {}; }
  static ScanState scanning() { return {Kind::scanning, {}, {}}; }
  static ScanState loaded(Date at) { return {Kind::loaded, at, {}}; }
  static ScanState failed(std::string message) { return {Kind::failed, {}, std::move(message)}; }

  bool operator==(const ScanState&) const = default;
};

// `idle` to `preparing` to `executing` to `idle`, and from the two busy states
// to `failed`, which the next start leaves.
struct CleanupActionState {
  enum class Kind { idle, preparing, executing, failed };

  Kind kind = Kind::idle;
  std::string message;  // `failed` only: the user text

  static CleanupActionState idle() { return {}; }
  static CleanupActionState preparing() { return {Kind::preparing, {}}; }
  static CleanupActionState executing() { return {Kind::executing, {}}; }
  static CleanupActionState failed(std::string message) {
    return {Kind::failed, std::move(message)};
  }

  bool operator==(const CleanupActionState&) const = default;
};

// The accounting of one clean while it runs; the Trash counts as one row.
struct CleanupRunProgress {
  std::int64_t totalItems = 0;
  std::int64_t plannedBytes = 0;
  std::int64_t completedItems = 0;
  std::int64_t processedBytes = 0;  // planned bytes of the finished rows
  std::int64_t freedBytes = 0;      // bytes really freed
  std::optional<std::string> currentTitle;
  bool isEmptyingTrash = false;

  bool operator==(const CleanupRunProgress&) const = default;
};

}  // namespace brisko
