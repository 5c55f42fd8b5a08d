#pragma once

// How a page learns that `AppStore` changed: a subscriber is told, once per
// change on the main executor, which fields took a new value. A field set to
// the value it had is no change and wakes nobody.

#include <bitset>
#include <cstddef>
#include <functional>
#include <initializer_list>
#include <map>
#include <memory>

namespace brisko {

enum class StoreField {
  disk,
  findings,
  selectedFindingIDs,
  selectedFindingItemIDs,
  expandedFindingIDs,
  scanState,
  scanProgress,
  engineVersion,
  warnings,
  blockedLocations,
  trash,
  trashNeedsAutomation,
  fullDiskAccessGranted,
  cleanupActionState,
  cleanupProgress,
  latestReceipt,
  whitelistDirty,
  debugEngine,
  permissionPollTask,
  // The Space page.
  spaceReport,
  spaceNodes,
  spacePathStack,
  spaceLargeFiles,
  spaceProgress,
  spaceScanState,
  spaceBasket,
  spaceCleanReceipt,
  isSpaceCleaning,
  hasPreparedSpacePage,
  // Fields of later flows go above this line.
  count_,
};

class StoreFields {
 public:
  StoreFields() = default;
  StoreFields(std::initializer_list<StoreField> fields) {
    for (StoreField field : fields)
      insert(field);
  }

  void insert(StoreField field) { bits_.set(static_cast<size_t>(field)); }
  bool contains(StoreField field) const { return bits_.test(static_cast<size_t>(field)); }
  bool empty() const { return bits_.none(); }
  size_t size() const { return bits_.count(); }
  StoreFields& operator|=(const StoreFields& other) {
    bits_ |= other.bits_;
    return *this;
  }
  bool operator==(const StoreFields&) const = default;

 private:
  std::bitset<static_cast<size_t>(StoreField::count_)> bits_;
};

// The subscribers of one store. Used on the main executor only.
class StoreObservers {
 public:
  using Subscriber = std::function<void(const StoreFields& changed)>;

  // Ends the subscription when it goes; may outlive the store.
  class Subscription {
   public:
    Subscription() = default;
    Subscription(std::weak_ptr<std::map<int, Subscriber>> subscribers, int key)
        : subscribers_(std::move(subscribers)), key_(key) {}
    Subscription(Subscription&& other) noexcept = default;
    Subscription& operator=(Subscription&& other) noexcept {
      cancel();
      subscribers_ = std::move(other.subscribers_);
      key_ = other.key_;
      return *this;
    }
    ~Subscription() { cancel(); }

    void cancel() {
      if (auto subscribers = subscribers_.lock()) subscribers->erase(key_);
      subscribers_.reset();
    }

   private:
    std::weak_ptr<std::map<int, Subscriber>> subscribers_;
    int key_ = 0;
  };

  [[nodiscard]] Subscription subscribe(Subscriber subscriber) {
    const int key = nextKey_++;
    subscribers_->emplace(key, std::move(subscriber));
    return Subscription(subscribers_, key);
  }

  // A subscriber may subscribe or cancel others while it is told; those
  // changes count from the next notice.
  void notify(const StoreFields& changed) const {
    if (changed.empty()) return;
    const auto snapshot = *subscribers_;
    for (const auto& [key, subscriber] : snapshot)
      subscriber(changed);
  }

 private:
  std::shared_ptr<std::map<int, Subscriber>> subscribers_ =
      std::make_shared<std::map<int, Subscriber>>();
  int nextKey_ = 0;
};

}  // namespace brisko
