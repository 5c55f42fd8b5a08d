#include "batteries/low_battery_policy.h"

#include <chrono>
#include <cstdlib>

namespace brisko {

Json encodeLedger(const LowBatteryLedger& ledger) {
  Json entries = Json::object();
  for (const auto& [id, entry] : ledger.entries)
    entries[id] = Json{{"lastNotifiedAt", formatIso8601(entry.lastNotifiedAt)}};
  return Json{{"entries", entries}};
}

LowBatteryLedger decodeLedger(const Json& json) {
  LowBatteryLedger ledger;
  if (!json.is_object()) return {};
  const auto entries = json.find("entries");
  if (entries == json.end() || !entries->is_object()) return {};
  for (const auto& [id, entry] : entries->items()) {
    if (!entry.is_object()) return {};
    const auto at = entry.find("lastNotifiedAt");
    if (at == entry.end() || !at->is_string()) return {};
    const auto date = parseIso8601(at->get<std::string>());
    if (!date) return {};
    ledger.entries[id] = {*date};
  }
  return ledger;
}

std::pair<std::vector<PeripheralBattery>, LowBatteryLedger> LowBatteryPolicy::evaluate(
    const std::vector<PeripheralBattery>& devices, LowBatteryLedger ledger, Date now) const {
  int rearmLevel = 0;
  if (__builtin_add_overflow(threshold, rearmMargin, &rearmLevel)) std::abort();
  const auto interval = std::chrono::duration<double>(repeatInterval);
  std::vector<PeripheralBattery> report;
  for (const PeripheralBattery& device : devices) {
    if (!kinds.contains(device.kind)) continue;
    if (device.percent >= rearmLevel) {
      ledger.entries.erase(device.id);
      continue;
    }
    if (device.percent > threshold || device.isCharging) continue;
    const auto entry = ledger.entries.find(device.id);
    if (entry != ledger.entries.end() && now - entry->second.lastNotifiedAt < interval) continue;
    ledger.entries[device.id] = {now};
    report.push_back(device);
  }
  return {std::move(report), std::move(ledger)};
}

}  // namespace brisko
