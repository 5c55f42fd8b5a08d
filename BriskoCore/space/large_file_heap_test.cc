#include "space/large_file_heap.h"

#include <gtest/gtest.h>

#include <thread>

namespace brisko {
namespace {

TEST(LargeFileHeap, KeepsTheLargestAndDropsTheGreatestPathOnTies) {
  constexpr std::int64_t kMiB = 1 << 20;
  LargeFileHeap heap(100 * kMiB, 200);
  // 201 files of 200 MiB, offered in a scrambled order from two threads.
  auto offerRange = [&](int first, int step) {
    for (int i = first; i <= 200; i += step) {
      const int scrambled = (i * 37) % 201;
      char name[16];
      std::snprintf(name, sizeof name, "f%03d", scrambled);
      heap.offer(200 * kMiB, std::string("/h/") + name, name, std::nullopt);
    }
  };
  std::thread other(offerRange, 1, 2);
  offerRange(0, 2);
  other.join();
  heap.offer(300 * kMiB, "/h/zzz", "zzz", std::nullopt);  // beats the gate
  heap.offer(150 * kMiB, "/h/aaa", "aaa", std::nullopt);  // turned away by the gate

  const auto items = heap.sortedItems();
  ASSERT_EQ(items.size(), 200u);
  EXPECT_EQ(items[0].path, "/h/zzz");
  EXPECT_EQ(items[1].path, "/h/f000");
  EXPECT_EQ(items.back().path, "/h/f198");  // f199 and f200 fell out
  for (size_t i = 2; i < items.size(); ++i)
    EXPECT_LT(items[i - 1].path, items[i].path);
}

TEST(LargeFileHeap, ACapacityUnderOneCountsAsOne) {
  LargeFileHeap heap(1, 0);
  heap.offer(5, "/b", "b", std::nullopt);
  heap.offer(5, "/a", "a", std::nullopt);
  heap.offer(4, "/c", "c", std::nullopt);
  const auto items = heap.sortedItems();
  ASSERT_EQ(items.size(), 1u);
  EXPECT_EQ(items[0].path, "/a");
}

}  // namespace
}  // namespace brisko
