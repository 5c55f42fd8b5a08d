#include "space/large_file_heap.h"

#include <algorithm>

namespace brisko {

LargeFileHeap::LargeFileHeap(std::int64_t threshold, std::int64_t capacity)
    : threshold_(threshold), capacity_(static_cast<size_t>(capacity < 1 ? 1 : capacity)) {}

bool LargeFileHeap::isWorse(const LargeFileItem& a, const LargeFileItem& b) {
  if (a.bytes != b.bytes) return a.bytes < b.bytes;
  return a.path > b.path;
}

void LargeFileHeap::siftUp(size_t index) {
  while (index > 0) {
    const size_t parent = (index - 1) / 2;
    if (!isWorse(items_[index], items_[parent])) break;
    std::swap(items_[index], items_[parent]);
    index = parent;
  }
}

void LargeFileHeap::siftDown(size_t index) {
  for (;;) {
    size_t worst = index;
    for (size_t child : {2 * index + 1, 2 * index + 2}) {
      if (child < items_.size() && isWorse(items_[child], items_[worst])) worst = child;
    }
    if (worst == index) return;
    std::swap(items_[index], items_[worst]);
    index = worst;
  }
}

void LargeFileHeap::offer(std::int64_t bytes, const std::string& path, const std::string& name,
                          std::optional<Date> modificationDate) {
  {
    std::lock_guard guard(gate_.lock);
    if (bytes < gate_.value) return;
  }
  LargeFileItem item{path, name, path, bytes, modificationDate};
  std::lock_guard guard(lock_);
  items_.push_back(std::move(item));
  siftUp(items_.size() - 1);
  if (items_.size() > capacity_) {
    std::swap(items_.front(), items_.back());
    items_.pop_back();
    siftDown(0);
  }
  if (items_.size() == capacity_) {
    std::lock_guard gateGuard(gate_.lock);
    gate_.value = items_.front().bytes;
  }
}

std::vector<LargeFileItem> LargeFileHeap::sortedItems() const {
  std::lock_guard guard(lock_);
  auto sorted = items_;
  std::sort(sorted.begin(), sorted.end(), [](const LargeFileItem& a, const LargeFileItem& b) {
    if (a.bytes != b.bytes) return a.bytes > b.bytes;
    return a.path < b.path;
  });
  return sorted;
}

}  // namespace brisko
