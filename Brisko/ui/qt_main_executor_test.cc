#include "ui/qt_main_executor.h"

#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QElapsedTimer>
#include <mutex>
#include <thread>
#include <vector>

namespace brisko::ui {
namespace {

// Tasks posted from worker threads run on the GUI thread, each thread's in its
// order, and a delayed task runs after the ready ones; none runs once the
// executor is gone.
TEST(QtMainExecutorTest, RunsTasksFromAnyThreadOnTheGuiThreadInOrder) {
  std::vector<std::string> ran;
  bool allOnGuiThread = true;
  {
    QtMainExecutor executor;
    executor.postAfter(std::chrono::milliseconds(30), [&] { ran.push_back("late"); });
    std::thread worker([&] {
      EXPECT_FALSE(executor.isCurrent());
      for (int i = 0; i < 3; ++i)
        executor.post([&, i] {
          allOnGuiThread = allOnGuiThread && executor.isCurrent();
          ran.push_back("w" + std::to_string(i));
        });
    });
    worker.join();
    QElapsedTimer clock;
    clock.start();
    while (ran.size() < 4 && clock.elapsed() < 5000)
      QCoreApplication::processEvents(QEventLoop::AllEvents, 10);
    executor.postAfter(std::chrono::milliseconds(1), [&] { ran.push_back("after the end"); });
  }
  QElapsedTimer clock;
  clock.start();
  while (clock.elapsed() < 50)
    QCoreApplication::processEvents(QEventLoop::AllEvents, 10);
  EXPECT_EQ(ran, (std::vector<std::string>{"w0", "w1", "w2", "late"}));
  EXPECT_TRUE(allOnGuiThread);
}

}  // namespace
}  // namespace brisko::ui
