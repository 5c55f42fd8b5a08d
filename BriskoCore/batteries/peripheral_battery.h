#pragma once

// One line of the battery list, and the small records that the readers and
// the low-battery monitor pass around.

#include <array>
#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "protocol/json_codec.h"

namespace brisko {

struct PeripheralBattery {
  enum class Kind { mac, keyboard, trackpad, mouse, earbuds, headphones, other };

  // "internal-battery" for the computer; the normalised Bluetooth address (or
  // another stable key) of a device; "ble:" + address for a device known only
  // through its low-energy reading.
  std::string id;
  std::string name;
  Kind kind = Kind::other;
  int percent = 0;  // 0 to 100
  std::optional<std::string> detail;
  bool isCharging = false;

  bool operator==(const PeripheralBattery&) const = default;
};

template <>
struct EnumNames<PeripheralBattery::Kind> {
  static constexpr std::array<std::string_view, 7> names{
      "mac", "keyboard", "trackpad", "mouse", "earbuds", "headphones", "other"};
};

inline constexpr std::string_view kInternalBatteryID = "internal-battery";

// What the user reads for a kind: "Keyboard", ..., "Bluetooth device"; the
// computer's own kind reads "Computer".
std::string_view kindLabel(PeripheralBattery::Kind kind);

// The level of a device's battery from its low-energy battery service.
// `peripheralID` is the device's Bluetooth address.
struct BluetoothLEBatteryReading {
  std::string peripheralID;
  std::string name;
  int percent = 0;

  bool operator==(const BluetoothLEBatteryReading&) const = default;
};

// Names and kinds of devices as the last full read saw them, so that a quick
// read can name the devices it finds by key alone.
struct PeripheralDirectory {
  struct Entry {
    std::string name;
    PeripheralBattery::Kind kind = PeripheralBattery::Kind::other;
    bool operator==(const Entry&) const = default;
  };
  std::map<std::string, Entry> entries;

  bool operator==(const PeripheralDirectory&) const = default;
};

// {"entries": {"<id>": {"name": ..., "kind": ...}}}
Json encodeDirectory(const PeripheralDirectory& directory);
// Anything that doesn't read as a whole directory gives an empty one.
PeripheralDirectory decodeDirectory(const Json& json);

// Every "-" and "_" becomes ":", and the whole is lower-cased:
// "AA-BB-CC-DD-EE-FF" and "aa:bb:cc:dd:ee:ff" meet in this form.
std::string normalizedAddress(std::string_view address);

// The kind from a device's name and, when its source says one, its minor
// type ("mouse", "keyboard", "headset", an icon name such as "input-mouse").
PeripheralBattery::Kind decideKind(std::string_view name,
                                   const std::optional<std::string>& minorType);

}  // namespace brisko
