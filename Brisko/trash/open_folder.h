#pragma once

// A folder held open by descriptor, so that what lies below it is reached
// relative to it and never by a path looked up again.

#include <optional>
#include <string>
#include <vector>

namespace brisko {

class OpenFolder {
 public:
  OpenFolder() = default;
  ~OpenFolder();
  OpenFolder(OpenFolder&& other) noexcept;
  OpenFolder& operator=(OpenFolder&& other) noexcept;
  OpenFolder(const OpenFolder&) = delete;
  OpenFolder& operator=(const OpenFolder&) = delete;

  // The folder at `path`, following links on the way (the caller resolved
  // it). Invalid with errno set on failure.
  static OpenFolder atPath(const std::string& path);

  // The entry `name` of `parent`, which must be a real folder: a link fails
  // with ELOOP, anything else with ENOTDIR.
  static OpenFolder at(int parent, const std::string& name);

  bool valid() const { return fd_ >= 0; }
  int fd() const { return fd_; }

  // Every name in the folder but "." and ".."; none with errno set when the
  // folder can't be read.
  std::optional<std::vector<std::string>> names() const;

 private:
  explicit OpenFolder(int fd) : fd_(fd) {}
  int fd_ = -1;
};

}  // namespace brisko
