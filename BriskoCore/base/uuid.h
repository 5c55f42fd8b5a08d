#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace brisko {

// A 128-bit identifier. Its text is the canonical 36-character form in upper
// case; parsing also takes lower case, as other writers may produce it.
struct Uuid {
  std::array<std::uint8_t, 16> bytes{};

  // A new random (version 4) identifier from the kernel's random source.
  static Uuid random();
  static std::optional<Uuid> parse(std::string_view text);

  std::string text() const;

  bool operator==(const Uuid&) const = default;
  auto operator<=>(const Uuid&) const = default;
};

}  // namespace brisko
