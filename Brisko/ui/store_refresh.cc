#include "ui/store_refresh.h"

namespace brisko::ui {

StoreRefresh::StoreRefresh(AppStore& store, QObject* parent, int intervalMilliseconds)
    : QObject(parent) {
  flush_.setSingleShot(true);
  flush_.setInterval(intervalMilliseconds);
  connect(&flush_, &QTimer::timeout, this, [this] {
    const StoreFields fields = pending_;
    pending_ = {};
    if (!fields.empty()) emit changed(fields);
  });
  subscription_ = store.subscribe([this](const StoreFields& fields) {
    pending_ |= fields;
    if (!flush_.isActive()) flush_.start();
  });
}

}  // namespace brisko::ui
