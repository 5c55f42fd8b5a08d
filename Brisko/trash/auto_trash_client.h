#pragma once

// Picks, at each call, how the Trash is read: directly when the Full Disk
// Access probe answers true. Linux has no Full Disk Access and no Finder to
// fall back on, so its probe always answers true and the direct way is taken.

#include <functional>
#include <memory>

#include "trash/trash_client.h"

namespace brisko {

class AutoTrashClient : public TrashClient {
 public:
  AutoTrashClient(std::shared_ptr<TrashClient> direct, std::function<bool()> hasFullDiskAccess);

  FinderTrash::Inventory inventory() override;
  void empty() override;

 private:
  TrashClient& pick() const;

  std::shared_ptr<TrashClient> direct_;
  std::function<bool()> hasFullDiskAccess_;
};

// Whether the application may read privacy-protected folders such as the
// Trash. On Linux nothing guards them beyond file modes: always true.
bool hasFullDiskAccess();

}  // namespace brisko
