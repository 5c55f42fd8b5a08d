#pragma once

// The largest files of a space scan, kept in a bounded heap. Once the heap is
// full its smallest size becomes a gate, and the many offers below the gate
// are turned away by reading one value, without the heap's lock.

#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "base/date.h"
#include "protocol/space_records.h"

namespace brisko {

class LargeFileHeap {
 public:
  LargeFileHeap(std::int64_t threshold, std::int64_t capacity);

  std::int64_t threshold() const { return threshold_; }

  // A file already known to be at or over the threshold. `name` and `path` are
  // given as they will be shown.
  void offer(std::int64_t bytes, const std::string& path, const std::string& name,
             std::optional<Date> modificationDate);

  // Largest first; equal sizes by path, ascending.
  std::vector<LargeFileItem> sortedItems() const;

 private:
  // The gate has a lock of its own, taken under the heap's lock (never the
  // other way round) and alone by the readers.
  struct GateValue {
    mutable std::mutex lock;
    std::int64_t value = 0;
  };

  static bool isWorse(const LargeFileItem& a, const LargeFileItem& b);
  void siftUp(size_t index);
  void siftDown(size_t index);

  std::int64_t threshold_;
  size_t capacity_;
  mutable std::mutex lock_;
  std::vector<LargeFileItem> items_;  // root = the worst item kept
  GateValue gate_;
};

}  // namespace brisko
