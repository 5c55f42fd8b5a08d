#pragma once

#include <cstdint>
#include <string>

namespace brisko {

// Byte counts as the user reads them, in decimal units (1 KB = 1000 bytes).
struct BriskoFormatting {
  // "0 B" below 1 byte. Below 102400 bytes whole kilobytes ("1 KB" at least, so
  // a non-empty thing never reads as nothing). From 102400 bytes on the fitting
  // unit of MB (one decimal), GB or TB (two decimals), trailing zeros dropped:
  // "0.1 MB", "1.5 MB", "2 GB", "1.25 TB", "1,250 TB".
  static std::string bytes(std::int64_t count);
};

}  // namespace brisko
