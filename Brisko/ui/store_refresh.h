#pragma once

// How a page hears of `AppStore`: every change the store announces is
// gathered, and the page is told once per frame-sized interval with the union
// of the fields that changed. A scan that sends hundreds of events a second
// then costs a handful of repaints, never one per event.

#include <QObject>
#include <QTimer>

#include "store/app_store.h"

namespace brisko::ui {

class StoreRefresh : public QObject {
  Q_OBJECT

 public:
  static constexpr int kDefaultIntervalMilliseconds = 50;

  StoreRefresh(AppStore& store, QObject* parent = nullptr,
               int intervalMilliseconds = kDefaultIntervalMilliseconds);

 signals:
  // On the GUI thread, at most once per interval.
  void changed(const brisko::StoreFields& fields);

 private:
  StoreObservers::Subscription subscription_;
  StoreFields pending_;
  QTimer flush_;
};

}  // namespace brisko::ui
