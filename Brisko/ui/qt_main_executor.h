#pragma once

// The store's main executor in the window: Qt's event loop of the thread that
// made it (the GUI thread). Tasks posted from any thread run there, in order.

#include <QObject>

#include "store/main_executor.h"

namespace brisko::ui {

class QtMainExecutor : public MainExecutor {
 public:
  QtMainExecutor();
  ~QtMainExecutor() override;

  void post(Task task) override;
  void postAfter(std::chrono::milliseconds delay, Task task) override;
  bool isCurrent() const override;

 private:
  // Queued calls and timers are bound to this object, so that none of them
  // runs once the executor is gone.
  QObject* context_;
};

}  // namespace brisko::ui
