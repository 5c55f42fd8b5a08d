#pragma once

// Whether a battery is low enough to tell the user, and when to tell again.
// A pure decision over the list and a ledger of past notices, so that why a
// notice came or didn't can be answered without any service.

#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "base/date.h"
#include "batteries/peripheral_battery.h"

namespace brisko {

struct LowBatteryLedger {
  struct Entry {
    Date lastNotifiedAt;
    bool operator==(const Entry&) const = default;
  };
  std::map<std::string, Entry> entries;  // by device id

  bool operator==(const LowBatteryLedger&) const = default;
};

// {"entries": {"<id>": {"lastNotifiedAt": "2026-11-23T21:00:00Z"}}}
Json encodeLedger(const LowBatteryLedger& ledger);
// Anything that doesn't read as a whole ledger gives an empty one.
LowBatteryLedger decodeLedger(const Json& json);

struct LowBatteryPolicy {
  int threshold = 30;
  int rearmMargin = 10;
  double repeatInterval = 86400;  // seconds
  std::set<PeripheralBattery::Kind> kinds{
      PeripheralBattery::Kind::keyboard, PeripheralBattery::Kind::trackpad,
      PeripheralBattery::Kind::mouse, PeripheralBattery::Kind::mac};

  // The devices to report now, in input order, and the ledger after them. A
  // device is low at `threshold` or below while not charging, reported at
  // once and again each `repeatInterval`; at `threshold + rearmMargin` or
  // above its entry goes, so it is reported at once when it falls again.
  // Between the two levels it keeps its entry. Aborts when the sum
  // overflows, which only a programming fault can cause.
  std::pair<std::vector<PeripheralBattery>, LowBatteryLedger> evaluate(
      const std::vector<PeripheralBattery>& devices, LowBatteryLedger ledger, Date now) const;
};

}  // namespace brisko
