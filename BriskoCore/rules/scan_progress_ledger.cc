#include "rules/scan_progress_ledger.h"

#include <algorithm>

namespace brisko {

ScanProgressLedger::ScanProgressLedger(std::int64_t totalLocations)
    : totalLocations_(std::max<std::int64_t>(totalLocations, 0)) {}

ScanProgress ScanProgressLedger::progress(const std::string& title) const {
  return ScanProgress{completed_, totalLocations_, title};
}

ScanProgress ScanProgressLedger::finishedLocation(const std::string& title) {
  return advancedBy(1, title);
}

ScanProgress ScanProgressLedger::finishedRule(const std::string& title, std::int64_t expected,
                                              std::int64_t reported) {
  return advancedBy(std::max<std::int64_t>(expected - reported, 0), title);
}

ScanProgress ScanProgressLedger::advancedBy(std::int64_t steps, const std::string& title) {
  completed_ = std::clamp<std::int64_t>(completed_ + steps, 0, totalLocations_);
  return progress(title);
}

}  // namespace brisko
