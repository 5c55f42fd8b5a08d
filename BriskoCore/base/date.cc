#include "base/date.h"

#include <algorithm>
#include <cstdio>

namespace brisko {

namespace {

bool isDigits(std::string_view text, size_t from, size_t count) {
  for (size_t i = from; i < from + count; ++i) {
    if (text[i] < '0' || text[i] > '9') return false;
  }
  return true;
}

int number(std::string_view text, size_t from, size_t count) {
  int value = 0;
  for (size_t i = from; i < from + count; ++i)
    value = value * 10 + (text[i] - '0');
  return value;
}

std::int64_t secondsOf(Date date) {
  return std::chrono::floor<std::chrono::seconds>(date).time_since_epoch().count();
}

}  // namespace

Date currentDate() {
  return std::chrono::floor<Date::duration>(std::chrono::system_clock::now());
}

Date dateFromFileTime(std::int64_t seconds, std::int64_t nanoseconds) {
  const std::int64_t earliest = secondsOf(kEarliestDate);
  const std::int64_t latest = secondsOf(kLatestDate);
  if (seconds < earliest) return kEarliestDate;
  if (seconds > latest) return kLatestDate;
  return Date{std::chrono::seconds{seconds} +
              std::chrono::floor<std::chrono::microseconds>(std::chrono::nanoseconds{nanoseconds})};
}

Date wholeSeconds(Date date) {
  return std::chrono::floor<std::chrono::seconds>(date);
}

std::string formatIso8601(Date date) {
  using namespace std::chrono;
  const auto seconds = floor<std::chrono::seconds>(std::clamp(date, kEarliestDate, kLatestDate));
  const auto day = floor<days>(seconds);
  const year_month_day ymd{day};
  const hh_mm_ss time{seconds - day};
  char buffer[32];
  std::snprintf(buffer, sizeof buffer, "%04d-%02u-%02uT%02d:%02d:%02dZ",
                static_cast<int>(ymd.year()), static_cast<unsigned>(ymd.month()),
                static_cast<unsigned>(ymd.day()), static_cast<int>(time.hours().count()),
                static_cast<int>(time.minutes().count()), static_cast<int>(time.seconds().count()));
  return buffer;
}

std::optional<Date> parseIso8601(std::string_view text) {
  // YYYY-MM-DDTHH:MM:SSZ
  if (text.size() != 20) return std::nullopt;
  if (!isDigits(text, 0, 4) || text[4] != '-' || !isDigits(text, 5, 2) || text[7] != '-' ||
      !isDigits(text, 8, 2) || text[10] != 'T' || !isDigits(text, 11, 2) || text[13] != ':' ||
      !isDigits(text, 14, 2) || text[16] != ':' || !isDigits(text, 17, 2) || text[19] != 'Z') {
    return std::nullopt;
  }
  using namespace std::chrono;
  const int yearNumber = number(text, 0, 4);
  const year_month_day ymd{year{yearNumber}, month{static_cast<unsigned>(number(text, 5, 2))},
                           day{static_cast<unsigned>(number(text, 8, 2))}};
  const int hour = number(text, 11, 2);
  const int minute = number(text, 14, 2);
  const int second = number(text, 17, 2);
  // There is no year 0 in the records' calendar, and no leap second's 60.
  if (yearNumber == 0 || !ymd.ok() || hour > 23 || minute > 59 || second > 59) return std::nullopt;
  return Date{sys_days{ymd} + hours{hour} + minutes{minute} + seconds{second}};
}

}  // namespace brisko
