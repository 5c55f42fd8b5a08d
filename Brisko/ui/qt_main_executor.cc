#include "ui/qt_main_executor.h"

#include <QMetaObject>
#include <QThread>
#include <QTimer>

namespace brisko::ui {

QtMainExecutor::QtMainExecutor() : context_(new QObject) {}

QtMainExecutor::~QtMainExecutor() {
  delete context_;
}

void QtMainExecutor::post(Task task) {
  QMetaObject::invokeMethod(context_, std::move(task), Qt::QueuedConnection);
}

void QtMainExecutor::postAfter(std::chrono::milliseconds delay, Task task) {
  // A timer can only start on the thread whose loop runs it: hop there first.
  QObject* context = context_;
  post([context, delay, task = std::move(task)]() mutable {
    QTimer::singleShot(delay, context, std::move(task));
  });
}

bool QtMainExecutor::isCurrent() const {
  return QThread::currentThread() == context_->thread();
}

}  // namespace brisko::ui
