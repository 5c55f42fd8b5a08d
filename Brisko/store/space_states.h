#pragma once

// The states of the Space page that `AppStore` holds and the page reads.

#include <cstdint>
#include <string>

#include "base/date.h"
#include "protocol/space_records.h"

namespace brisko {

// `idle` to `scanning` to `loaded`, `failed` or (a first scan cancelled before
// any row came) `idle`; `loaded` and `failed` go back to `scanning` on a new
// scan. A cached tree enters `loaded` straight from `idle`.
struct SpaceScanState {
  enum class Kind { loaded, failed, idle, scanning };

  Kind kind = Kind::idle;
  Date loadedAt{};      // `loaded` only: the date of the result shown
  std::string message;  // `failed` only: the user text

  static SpaceScanState idle() { return {}; }
  static SpaceScanState scanning() { return {Kind::scanning, {}, {}}; }
  static SpaceScanState loaded(Date at) { return {Kind::loaded, at, {}}; }
  static SpaceScanState failed(std::string message) {
    return {Kind::failed, {}, std::move(message)};
  }

  bool operator==(const SpaceScanState&) const = default;
};

struct SpaceView {
  // What the bottom dock of the page shows.
  enum class DockPhase { hidden, scanning, basket, receipt };
};

// One row of the page's list.
struct DirectoryRow {
  SpaceNode node;
  std::int64_t scale = 0;  // the size that a full-length bar stands for
  bool isRootLevel = false;
  bool isHovered = false;  // the pointer is over the row; the page sets it

  bool operator==(const DirectoryRow&) const = default;
};

}  // namespace brisko
