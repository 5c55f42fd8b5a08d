#include "trash/auto_trash_client.h"

namespace brisko {

AutoTrashClient::AutoTrashClient(std::shared_ptr<TrashClient> direct,
                                 std::function<bool()> hasFullDiskAccess)
    : direct_(std::move(direct)), hasFullDiskAccess_(std::move(hasFullDiskAccess)) {}

TrashClient& AutoTrashClient::pick() const {
  // Asked at every call: access may be granted while the application runs.
  if (!hasFullDiskAccess_()) {
    throw FinderTrash::Failure(FinderTrash::Failure::Reason::other, "Can\u2019t read the Trash.");
  }
  return *direct_;
}

FinderTrash::Inventory AutoTrashClient::inventory() {
  return pick().inventory();
}

void AutoTrashClient::empty() {
  pick().empty();
}

bool hasFullDiskAccess() {
  return true;
}

}  // namespace brisko
