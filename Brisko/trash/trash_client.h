#pragma once

// Measuring and emptying the user's Trash, outside the engine. On Linux the
// Trash is read and emptied directly (`DirectTrashClient`); `AutoTrashClient`
// asks its probe at each call which way to go.
//
// Both operations block their caller: run them on a worker, never on the main
// executor. They may run while scans run.

#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

namespace brisko {

namespace FinderTrash {

// One item in the Trash.
struct Entry {
  int ordinal = 0;  // place in the listing, from 0, taken before sorting
  std::string name;
  std::int64_t bytes = 0;  // allocated size
  bool isSizeComplete = true;

  std::string id() const { return std::to_string(ordinal) + "-" + name; }
  bool operator==(const Entry&) const = default;
};

struct Inventory {
  std::vector<Entry> entries;  // largest first

  std::int64_t totalBytes() const {
    std::int64_t total = 0;
    for (const Entry& entry : entries)
      total += entry.bytes;
    return total;
  }
  bool operator==(const Inventory&) const = default;
};

// The error of every Trash operation; `what()` is `message`.
class Failure : public std::runtime_error {
 public:
  enum class Reason { automationDenied, cancelled, timedOut, other };

  Failure(Reason reason, const std::string& message)
      : std::runtime_error(message), reason_(reason) {}

  Reason reason() const { return reason_; }
  std::string message() const { return what(); }

 private:
  Reason reason_;
};

}  // namespace FinderTrash

class TrashClient {
 public:
  virtual ~TrashClient() = default;

  virtual FinderTrash::Inventory inventory() = 0;
  virtual void empty() = 0;
};

}  // namespace brisko
