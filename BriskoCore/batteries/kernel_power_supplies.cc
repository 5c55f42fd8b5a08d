#include "batteries/kernel_power_supplies.h"

#include <dirent.h>

#include <algorithm>
#include <charconv>
#include <memory>

#include "base/file_contents.h"
#include "base/unicode_text.h"
#include "batteries/battery_keys.h"

namespace brisko {
namespace {

constexpr size_t kPage = 4096;

struct Entry {
  std::string name;
  std::string folder;
};

std::vector<Entry> entriesOf(const std::string& root) {
  std::vector<Entry> entries;
  std::unique_ptr<DIR, int (*)(DIR*)> dir(::opendir(root.c_str()), ::closedir);
  if (!dir) return entries;
  while (const dirent* item = ::readdir(dir.get())) {
    const std::string name = item->d_name;
    if (name == "." || name == "..") continue;
    entries.push_back({name, root + "/" + name});
  }
  std::sort(entries.begin(), entries.end(),
            [](const Entry& a, const Entry& b) { return a.name < b.name; });
  return entries;
}

std::optional<std::string> attribute(const Entry& entry, const char* file) {
  auto text = readFileContents(entry.folder + "/" + file, kPage);
  if (!text) return std::nullopt;
  return std::string(trimmingWhitespaceAndNewlines(*text));
}

std::optional<long long> number(const Entry& entry, const char* file) {
  const auto text = attribute(entry, file);
  if (!text || text->empty()) return std::nullopt;
  long long value = 0;
  const auto [end, error] = std::from_chars(text->data(), text->data() + text->size(), value);
  if (error != std::errc() || end != text->data() + text->size() || value < 0) return std::nullopt;
  return value;
}

bool isBattery(const Entry& entry) {
  return attribute(entry, "type") == "Battery";
}

}  // namespace

KernelPowerSupplies::KernelPowerSupplies(std::string root) : root_(std::move(root)) {}

std::map<std::string, RegistryReading> KernelPowerSupplies::readLevels() {
  std::map<std::string, RegistryReading> levels;
  for (const Entry& entry : entriesOf(root_)) {
    if (!isBattery(entry) || attribute(entry, "scope") != "Device") continue;
    const auto key = batteryKey(attribute(entry, "serial_number").value_or(""), entry.name);
    const auto percent =
        kernelPercent(attribute(entry, "capacity"), attribute(entry, "capacity_level"));
    if (!key || !percent) continue;
    levels[*key] = {*percent, attribute(entry, "status") == "Charging"};
  }
  return levels;
}

std::optional<RegistryReading> KernelPowerSupplies::readComputerBattery() {
  long long now = 0, full = 0, levelSum = 0;
  int batteries = 0;
  bool everyHasEnergy = true, charging = false;
  for (const Entry& entry : entriesOf(root_)) {
    if (!isBattery(entry)) continue;
    const auto scope = attribute(entry, "scope");
    if (scope && *scope != "System") continue;
    if (attribute(entry, "present") == "0") continue;
    const auto percent =
        kernelPercent(attribute(entry, "capacity"), attribute(entry, "capacity_level"));
    auto entryNow = number(entry, "energy_now"), entryFull = number(entry, "energy_full");
    if (!entryNow || !entryFull) {
      entryNow = number(entry, "charge_now");
      entryFull = number(entry, "charge_full");
    }
    if (!percent && (!entryNow || !entryFull || *entryFull == 0)) continue;
    ++batteries;
    charging = charging || attribute(entry, "status") == "Charging";
    if (entryNow && entryFull && *entryFull > 0 && *entryNow < (1LL << 48) &&
        *entryFull < (1LL << 48)) {
      now += *entryNow;
      full += *entryFull;
    } else {
      everyHasEnergy = false;
    }
    levelSum += percent.value_or(0);
  }
  if (batteries == 0) return std::nullopt;
  if (everyHasEnergy && full > 0)
    return RegistryReading{static_cast<int>(std::min(now * 100 / full, 1000LL)), charging};
  return RegistryReading{static_cast<int>(levelSum / batteries), charging};
}

}  // namespace brisko
