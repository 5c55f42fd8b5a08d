#include "batteries/battery_keys.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>

#include "base/unicode_text.h"
#include "batteries/peripheral_battery.h"

namespace brisko {
namespace {

bool isHex(char c) {
  return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
}

bool isSeparator(char c) {
  return c == ':' || c == '-' || c == '_';
}

// The first run of six hex pairs with one kind of separator, not part of a
// longer run of hex digits.
std::optional<std::string> findAddress(std::string_view text) {
  constexpr size_t length = 17;
  for (size_t start = 0; start + length <= text.size(); ++start) {
    const std::string_view candidate = text.substr(start, length);
    const char separator = candidate[2];
    if (!isSeparator(separator)) continue;
    if (start > 0 && isHex(text[start - 1])) continue;
    if (start > 1 && text[start - 1] == separator && isHex(text[start - 2])) continue;
    bool matches = true;
    for (size_t i = 0; i < length && matches; ++i)
      matches = i % 3 == 2 ? candidate[i] == separator : isHex(candidate[i]);
    if (!matches) continue;
    const size_t after = start + length;
    if (after < text.size() && isHex(text[after])) continue;
    if (after + 1 < text.size() && text[after] == separator && isHex(text[after + 1])) continue;
    return normalizedAddress(candidate);
  }
  return std::nullopt;
}

std::optional<int> parseWholeInteger(std::string_view text) {
  text = trimmingWhitespaceAndNewlines(text);
  if (!text.empty() && text.front() == '+') text.remove_prefix(1);
  long long value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (text.empty() || error != std::errc() || end != text.data() + text.size()) return std::nullopt;
  return static_cast<int>(std::clamp(value, -1000LL, 1000LL));
}

}  // namespace

std::optional<std::string> batteryKey(std::string_view serial, std::string_view name) {
  if (auto address = findAddress(serial)) return address;
  if (auto address = findAddress(name)) return address;
  const std::string_view trimmed = trimmingWhitespaceAndNewlines(serial);
  if (!trimmed.empty()) return normalizedAddress(trimmed);
  return std::nullopt;
}

std::optional<int> upowerPercent(double percentage, std::optional<std::uint32_t> batteryLevel,
                                 std::optional<std::uint32_t> state) {
  if (!std::isfinite(percentage)) return std::nullopt;
  if (batteryLevel == 0u) return std::nullopt;
  const double clamped = std::clamp(percentage, -1000.0, 1000.0);
  const int rounded = static_cast<int>(std::lround(clamped));
  if (state == 0u && rounded == 0) return std::nullopt;
  return rounded;
}

std::optional<int> kernelPercent(const std::optional<std::string>& capacity,
                                 const std::optional<std::string>& capacityLevel) {
  if (capacity) {
    if (auto value = parseWholeInteger(*capacity)) return value;
  }
  if (capacityLevel) {
    const std::string_view level = trimmingWhitespaceAndNewlines(*capacityLevel);
    static constexpr std::pair<std::string_view, int> table[] = {
        {"Full", 100}, {"High", 70}, {"Normal", 55}, {"Low", 10}, {"Critical", 5}};
    for (const auto& [word, percent] : table) {
      if (level == word) return percent;
    }
  }
  return std::nullopt;
}

std::optional<std::string> upowerMinorType(std::uint32_t type) {
  static constexpr std::array<std::string_view, 29> names{"",
                                                          "line-power",
                                                          "",
                                                          "ups",
                                                          "monitor",
                                                          "mouse",
                                                          "keyboard",
                                                          "pda",
                                                          "phone",
                                                          "media-player",
                                                          "tablet",
                                                          "computer",
                                                          "gaming-input",
                                                          "pen",
                                                          "trackpad",
                                                          "modem",
                                                          "network",
                                                          "headset",
                                                          "speakers",
                                                          "headphones",
                                                          "video",
                                                          "other-audio",
                                                          "remote-control",
                                                          "printer",
                                                          "scanner",
                                                          "camera",
                                                          "wearable",
                                                          "toy",
                                                          "bluetooth-generic"};
  if (type >= names.size()) return "unknown";
  if (names[type].empty()) return std::nullopt;
  return std::string(names[type]);
}

}  // namespace brisko
