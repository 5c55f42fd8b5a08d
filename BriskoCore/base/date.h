#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <string_view>

namespace brisko {

// A moment in time. In memory it may carry a fraction of a second; it loses the
// fraction at its first crossing of JSON, which holds whole seconds only.
using Date = std::chrono::system_clock::time_point;

// "2026-11-22T04:10:00Z": UTC, whole seconds (the fraction is dropped toward
// the past, so a written date is never later than the moment it stands for).
std::string formatIso8601(Date date);

// Accepts exactly the form that formatIso8601 writes, for a real calendar
// moment; refuses fractions, offsets, lower-case letters and date-only text.
std::optional<Date> parseIso8601(std::string_view text);

// The date cut to whole seconds, as it reads back after a JSON round trip.
Date wholeSeconds(Date date);

}  // namespace brisko
