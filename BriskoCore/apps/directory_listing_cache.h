#pragma once

// Case-insensitive name questions about folders, each folder read from disk
// once. Safe from any thread; the lock is never held while reading the disk.

#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace brisko {

class DirectoryListingCache {
 public:
  struct Listing {
    std::vector<std::string> names;  // as the folder gives them, without "." and ".."
    // Lower-cased name → the name as on disk; the first name seen wins.
    std::map<std::string, std::string> byLowercasedName;
  };

  // The folder's names, or none when it can't be listed. Either answer is
  // kept: a folder is read once. Two threads may read the same folder at
  // once; the last answer stands.
  std::optional<Listing> listing(const std::string& path);

  // directory + "/" + the name as on disk that matches `name` case-blind, so
  // that `foo` finds `Foo` on a case-sensitive volume too. When the folder
  // holds the exact spelling, that is the answer; when it holds several
  // spellings but not the exact one, the question has no single answer and
  // gives none. An empty name, one containing "/", "." and ".." give none.
  std::optional<std::string> existingPath(const std::string& name, const std::string& directory);

 private:
  std::mutex lock_;
  std::map<std::string, std::optional<Listing>> listings_;  // guarded by lock_
};

}  // namespace brisko
