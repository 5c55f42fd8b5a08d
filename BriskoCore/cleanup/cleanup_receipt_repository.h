#pragma once

#include <optional>
#include <string>
#include <vector>

#include "protocol/receipt_records.h"

namespace brisko {

// The history of cleanups: one file per run, named
// <completedAt as seconds since 1970>-<receipt ID>.json, kept until the user
// removes them.
class CleanupReceiptRepository {
 public:
  // Without a folder: <brisko data folder of home>/History.
  CleanupReceiptRepository(const std::string& home,
                           std::optional<std::string> historyDirectory = {});

  // Creates the folder (0700) and writes atomically. Throws std::system_error.
  // Returns the file's path.
  std::string save(const CleanupReceipt& receipt) const;

  // Every receipt that reads back, newest first. A folder that can't be listed
  // gives none; a file that can't be read or decoded is passed over.
  std::vector<CleanupReceipt> load() const;

  const std::string& historyDirectory() const { return historyDirectory_; }

  // "1790000000.25-<ID>.json": the completion time in the shortest decimal
  // text that reads back as the same double, so receipts sort by name too.
  static std::string fileName(const CleanupReceipt& receipt);

 private:
  std::string historyDirectory_;
};

}  // namespace brisko
