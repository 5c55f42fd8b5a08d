#pragma once

// How UPower's and the kernel's words become a device's key, level and
// minor type. Both sources name a Bluetooth device in the same ways (its
// serial, or a name such as "hid-aa:bb:cc:dd:ee:ff-battery" or a path ending
// in ".../dev_AA_BB_CC_DD_EE_FF"), so one key function serves both.

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace brisko {

// A Bluetooth address (six hex pairs joined by ":", "-" or "_") in `serial`,
// else in `name`, normalised; else the normalised serial; else none: a
// device without any key is not listed.
std::optional<std::string> batteryKey(std::string_view serial, std::string_view name);

// UPower's `Percentage` rounded; none when `BatteryLevel` is 0 (unknown), or
// `State` is 0 (unknown) with 0 %, or the number isn't finite.
std::optional<int> upowerPercent(double percentage, std::optional<std::uint32_t> batteryLevel,
                                 std::optional<std::uint32_t> state);

// The kernel's `capacity` (a decimal integer, optional sign, blanks around),
// else its `capacity_level` ("Full" 100, "High" 70, "Normal" 55, "Low" 10,
// "Critical" 5); none when neither reads. Texts are the files' contents.
std::optional<int> kernelPercent(const std::optional<std::string>& capacity,
                                 const std::optional<std::string>& capacityLevel);

// The minor type that decides a kind, from UPower's device `Type`: 5 "mouse",
// 6 "keyboard", 14 "trackpad", 17 "headset", 19 "headphones", other known
// values their UPower name; none for 0 (unknown) and 2 (battery), which leave
// the decision to the name.
std::optional<std::string> upowerMinorType(std::uint32_t type);

}  // namespace brisko
