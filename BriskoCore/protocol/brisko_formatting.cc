#include "protocol/brisko_formatting.h"

namespace brisko {

namespace {

constexpr std::int64_t kAdaptiveFrom = 102400;

std::string grouped(std::uint64_t value) {
  std::string digits = std::to_string(value);
  for (std::ptrdiff_t at = static_cast<std::ptrdiff_t>(digits.size()) - 3; at > 0; at -= 3) {
    digits.insert(static_cast<size_t>(at), ",");
  }
  return digits;
}

// `scaled` counts units of 10^-decimals of the unit, already rounded.
std::string withUnit(std::uint64_t scaled, int decimals, const char* unit) {
  std::uint64_t divisor = 1;
  for (int i = 0; i < decimals; ++i)
    divisor *= 10;
  std::string text = grouped(scaled / divisor);
  std::uint64_t fraction = scaled % divisor;
  int digits = decimals;
  while (digits > 0 && fraction % 10 == 0 && fraction != 0) {
    fraction /= 10;
    --digits;
  }
  if (fraction != 0) {
    std::string part = std::to_string(fraction);
    text += "." + std::string(static_cast<size_t>(digits) - part.size(), '0') + part;
  }
  return text + " " + unit;
}

// Rounds count / step half up, without overflow for any int64 count.
std::uint64_t roundedDivision(std::uint64_t count, std::uint64_t step) {
  return count / step + (count % step >= (step + 1) / 2 ? 1 : 0);
}

}  // namespace

std::string BriskoFormatting::bytes(std::int64_t count) {
  if (count < 1) return "0 B";
  const auto value = static_cast<std::uint64_t>(count);
  if (count < kAdaptiveFrom) {
    const std::uint64_t kilobytes = roundedDivision(value, 1000);
    return withUnit(kilobytes == 0 ? 1 : kilobytes, 0, "KB");
  }
  // A rounding that reaches 1000 of a unit moves on to the next unit.
  const std::uint64_t tenthsOfMegabytes = roundedDivision(value, 100'000);
  if (tenthsOfMegabytes < 10'000) return withUnit(tenthsOfMegabytes, 1, "MB");
  const std::uint64_t hundredthsOfGigabytes = roundedDivision(value, 10'000'000);
  if (hundredthsOfGigabytes < 100'000) return withUnit(hundredthsOfGigabytes, 2, "GB");
  return withUnit(roundedDivision(value, 10'000'000'000), 2, "TB");
}

}  // namespace brisko
