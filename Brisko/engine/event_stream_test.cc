#include "engine/event_stream.h"

#include <gtest/gtest.h>

#include <atomic>
#include <stdexcept>
#include <thread>
#include <vector>

#include "store/manual_executor.h"

namespace brisko {
namespace {

TEST(EventStreamTest, AFastProducerNeverWaitsAndASlowConsumerGetsEveryEventThenTheError) {
  std::atomic<int> terminations = 0;
  auto [stream, sink] = EventStream<int>::make([&] { ++terminations; });
  constexpr int kEvents = 20000;
  std::thread producer([sink = sink] {
    for (int i = 0; i < kEvents; ++i)
      ASSERT_TRUE(sink.yield(i));
    sink.finish(std::make_exception_ptr(std::runtime_error("engine died")));
  });
  producer.join();  // the producer finished before anything was read
  std::vector<int> received;
  try {
    while (auto event = stream.next())
      received.push_back(*event);
    FAIL() << "the stream's error was not thrown";
  } catch (const std::runtime_error& error) {
    EXPECT_STREQ(error.what(), "engine died");
  }
  ASSERT_EQ(received.size(), static_cast<size_t>(kEvents));
  for (int i = 0; i < kEvents; ++i)
    ASSERT_EQ(received[i], i);
  EXPECT_EQ(terminations, 1);
}

TEST(EventStreamTest, DroppingTheConsumerTerminatesTheProducerOnceAndLaterEventsAreRefused) {
  std::atomic<int> terminations = 0;
  std::optional<EventSink<int>> sink;
  {
    auto made = EventStream<int>::make([&] { ++terminations; });
    sink.emplace(made.second);
    ASSERT_TRUE(sink->yield(1));
  }
  EXPECT_EQ(terminations, 1);
  sink->finish();
  EXPECT_EQ(terminations, 1);
  EXPECT_FALSE(sink->yield(2));
}

TEST(ManualExecutorTest, PostsFromWorkersRunInOrderOnTheLoopThreadAndDelayedOnesWhenDue) {
  ManualExecutor executor;
  std::vector<int> order;
  bool allOnLoop = true;
  std::thread worker([&] {
    for (int i = 0; i < 100; ++i)
      executor.post([&, i] {
        allOnLoop = allOnLoop && executor.isCurrent();
        order.push_back(i);
      });
  });
  const auto start = std::chrono::steady_clock::now();
  bool delayedRan = false;
  executor.postAfter(std::chrono::milliseconds(50), [&] { delayedRan = true; });
  ASSERT_TRUE(executor.runUntil([&] { return delayedRan && order.size() == 100; }));
  worker.join();
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(50));
  for (int i = 0; i < 100; ++i)
    ASSERT_EQ(order[i], i);
  EXPECT_TRUE(allOnLoop);
  EXPECT_FALSE(executor.isCurrent());
}

}  // namespace
}  // namespace brisko
