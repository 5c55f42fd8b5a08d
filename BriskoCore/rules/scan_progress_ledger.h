#pragma once

#include <cstdint>
#include <string>

#include "protocol/scan_records.h"

namespace brisko {

// Counts finished scan locations for the progress bar. A rule may finish with
// fewer roots than were planned for it (a location vanished); finishing the
// rule fills that gap so the bar still reaches its end. Not thread-safe: the
// scan driver calls it under its own lock.
class ScanProgressLedger {
 public:
  explicit ScanProgressLedger(std::int64_t totalLocations);

  ScanProgress progress(const std::string& title) const;
  ScanProgress finishedLocation(const std::string& title);
  ScanProgress finishedRule(const std::string& title, std::int64_t expected, std::int64_t reported);

  std::int64_t totalLocations() const { return totalLocations_; }
  std::int64_t completed() const { return completed_; }

 private:
  ScanProgress advancedBy(std::int64_t steps, const std::string& title);

  std::int64_t totalLocations_;
  std::int64_t completed_ = 0;
};

}  // namespace brisko
