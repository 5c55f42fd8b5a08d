#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace brisko {

// A moment in time, in microseconds since 1970 UTC. The records keep whole
// seconds and name years 0001 to 9999 (the images records use 0001-01-01 for
// an unknown time); a nanosecond clock would wrap outside 1678 to 2262, so
// the unit is coarser and the fraction that matters in memory (an age test
// against now) survives. A date loses its fraction at its first crossing of
// JSON.
using Date = std::chrono::time_point<std::chrono::system_clock, std::chrono::microseconds>;

// The first and last moments that a record can hold: 0001-01-01T00:00:00Z and
// 9999-12-31T23:59:59Z.
inline constexpr Date kEarliestDate{std::chrono::seconds{-62135596800}};
inline constexpr Date kLatestDate{std::chrono::seconds{253402300799}};

// The system clock's present moment.
Date currentDate();

// A file time (seconds and nanoseconds since 1970, as stat gives it), held
// to the range of the records: a file stamped in the year 30000 reads as
// 9999-12-31T23:59:59Z instead of wrapping.
Date dateFromFileTime(std::int64_t seconds, std::int64_t nanoseconds = 0);

// "2026-11-22T04:10:00Z": UTC, whole seconds (the fraction is dropped toward
// the past, so a written date is never later than the moment it stands for).
// A date outside the records' range is written as the nearest end of it, so
// that what is written always reads back.
std::string formatIso8601(Date date);

// Accepts exactly the form that formatIso8601 writes, for a real calendar
// moment of the years 0001 to 9999; refuses fractions, offsets, lower-case
// letters, date-only text and a leap second's 60.
std::optional<Date> parseIso8601(std::string_view text);

// The date cut to whole seconds, as it reads back after a JSON round trip.
Date wholeSeconds(Date date);

}  // namespace brisko
