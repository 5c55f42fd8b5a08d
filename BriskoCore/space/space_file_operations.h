#pragma once

// The seam between a clean of the Space basket (or the image bin) and the
// disk: two operations on an absolute path. Each answers none on success,
// else the words of the failure, which land in the receipt as they are.
// Implementations are safe to call from any thread.

#include <optional>
#include <string>

namespace brisko {

class SpaceFileOperations {
 public:
  virtual ~SpaceFileOperations() = default;

  virtual std::optional<std::string> moveToTrash(const std::string& path) = 0;
  virtual std::optional<std::string> removeItem(const std::string& path) = 0;
};

// The real disk. Moving is the Trash seam (GIO, so whoever builds one links
// BriskoSystemTrash); removing never follows a link at any depth and never
// enters another mount. A home folder reached through a link (/home ->
// /data/home) is resolved once per removal, and nothing below it is followed.
class SystemSpaceFileOperations final : public SpaceFileOperations {
 public:
  explicit SystemSpaceFileOperations(std::string homeDirectory);

  std::optional<std::string> moveToTrash(const std::string& path) override;
  std::optional<std::string> removeItem(const std::string& path) override;

 private:
  std::string homeDirectory_;  // standardised, not resolved
};

}  // namespace brisko
