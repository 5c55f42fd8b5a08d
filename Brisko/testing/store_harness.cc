#include "testing/store_harness.h"

#include <fstream>
#include <stdexcept>

namespace brisko::testing {

void ScriptedTrash::answerInventory(std::function<FinderTrash::Inventory()> answer) {
  std::lock_guard guard(lock_);
  inventoryAnswers_.push_back(std::move(answer));
}

void ScriptedTrash::answerEmpty(std::function<void()> answer) {
  std::lock_guard guard(lock_);
  emptyAnswer_ = std::move(answer);
}

void ScriptedTrash::holdEmpty() {
  std::lock_guard guard(lock_);
  held_ = true;
}

void ScriptedTrash::release() {
  {
    std::lock_guard guard(lock_);
    held_ = false;
  }
  released_.notify_all();
}

FinderTrash::Inventory ScriptedTrash::inventory() {
  ++inventoryCalls_;
  std::function<FinderTrash::Inventory()> answer;
  {
    std::lock_guard guard(lock_);
    if (inventoryAnswers_.empty())
      throw FinderTrash::Failure(FinderTrash::Failure::Reason::other, "No Trash here.");
    answer = inventoryAnswers_.front();
    if (inventoryAnswers_.size() > 1) inventoryAnswers_.pop_front();
  }
  return answer();
}

void ScriptedTrash::empty() {
  ++emptyCalls_;
  std::function<void()> answer;
  {
    std::unique_lock guard(lock_);
    released_.wait(guard, [&] { return !held_; });
    answer = emptyAnswer_;
  }
  if (answer) answer();
}

FinderTrash::Inventory inventoryOf(std::vector<std::pair<std::string, std::int64_t>> entries) {
  FinderTrash::Inventory inventory;
  int ordinal = 0;
  for (auto& [name, bytes] : entries)
    inventory.entries.push_back(FinderTrash::Entry{ordinal++, name, bytes, true});
  return inventory;
}

void FixtureSet::write(const std::string& name, const std::string& contents) const {
  std::ofstream file(folder_ + "/" + name, std::ios::binary | std::ios::trunc);
  file << contents;
  if (!file.flush()) throw std::runtime_error("can't write fixture " + name);
}

StoreHarness::StoreHarness(std::shared_ptr<EngineClient> engine, std::shared_ptr<TrashClient> trash,
                           std::string trashFolder, std::function<bool()> probe) {
  AppStoreDependencies dependencies;
  dependencies.executor = &executor;
  dependencies.realEngine = std::move(engine);
  dependencies.realTrashClient = trash ? std::move(trash) : std::make_shared<ScriptedTrash>();
  dependencies.fullDiskAccessProbe = std::move(probe);
  dependencies.trashFolder = std::move(trashFolder);
  dependencies.permissionPollInterval = std::chrono::milliseconds(1);
  dependencies.permissionPollWakes = 3;
  store = std::make_unique<AppStore>(std::move(dependencies));
  subscription_ =
      store->subscribe([this](const StoreFields& changed) { notices.push_back(changed); });
}

StoreHarness::~StoreHarness() {
  // The store goes on its own thread, as it would in the window.
  executor.post([this] { store.reset(); });
  executor.runUntil([this] { return store == nullptr; });
}

void StoreHarness::onMain(const std::function<void(AppStore&)>& call) {
  bool ran = false;
  executor.post([&] {
    call(*store);
    ran = true;
  });
  executor.runUntil([&] { return ran; });
}

bool StoreHarness::runUntil(const std::function<bool(const AppStore&)>& done,
                            std::chrono::milliseconds timeout) {
  return executor.runUntil([&] { return done(*this->store); }, timeout);
}

bool StoreHarness::settle() {
  return runUntil([](const AppStore& current) {
    return current.scanState().kind != ScanState::Kind::scanning &&
           current.cleanupActionState().kind != CleanupActionState::Kind::preparing &&
           current.cleanupActionState().kind != CleanupActionState::Kind::executing;
  });
}

}  // namespace brisko::testing
