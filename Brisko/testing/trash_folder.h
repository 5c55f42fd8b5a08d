#pragma once

#include <cstdint>
#include <string>

namespace brisko::testing {

// Fills a trash folder as a file manager would: the entry in `files/`, its
// `.trashinfo` in `info/`. The helpers create what is missing on the way.
class TrashFolder {
 public:
  explicit TrashFolder(std::string path);

  const std::string& path() const { return path_; }
  std::string files() const { return path_ + "/files"; }
  std::string info() const { return path_ + "/info"; }
  std::string entry(const std::string& name) const { return files() + "/" + name; }

  // `bytes` of data in a file.
  std::string addFile(const std::string& name, std::int64_t bytes) const;
  // A folder with `files` files of `bytes` each, spread over two levels.
  std::string addFolder(const std::string& name, int files, std::int64_t bytes) const;
  std::string addLink(const std::string& name, const std::string& target) const;
  void addInfo(const std::string& name) const;

 private:
  std::string path_;
};

// `du -sB1 -P` of the path: allocated bytes, links not followed.
std::int64_t duBytes(const std::string& path);

}  // namespace brisko::testing
