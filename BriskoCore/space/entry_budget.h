#pragma once

// The number of directory entries that one space scan may look at, handed to
// the workers in batches so that its lock is taken once per batch.

#include <cstdint>
#include <mutex>

namespace brisko {

class EntryBudget {
 public:
  static constexpr std::int64_t kBatch = 512;

  explicit EntryBudget(std::int64_t total) : remaining_(total < 0 ? 0 : total) {}

  // Up to one batch of entries; none once the budget is spent, which also
  // marks it exhausted for good.
  std::int64_t take() {
    std::lock_guard guard(lock_);
    if (remaining_ == 0) {
      exhausted_ = true;
      return 0;
    }
    const std::int64_t granted = remaining_ < kBatch ? remaining_ : kBatch;
    remaining_ -= granted;
    return granted;
  }

  bool exhausted() const {
    std::lock_guard guard(lock_);
    return exhausted_;
  }

 private:
  mutable std::mutex lock_;
  std::int64_t remaining_;
  bool exhausted_ = false;
};

}  // namespace brisko
