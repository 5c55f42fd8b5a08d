#include "apps/directory_listing_cache.h"

#include <dirent.h>

#include <algorithm>
#include <memory>

#include "base/unicode_text.h"

namespace brisko {
namespace {

std::optional<DirectoryListingCache::Listing> readListing(const std::string& path) {
  std::unique_ptr<DIR, int (*)(DIR*)> directory(::opendir(path.c_str()), ::closedir);
  if (!directory) return std::nullopt;
  DirectoryListingCache::Listing listing;
  while (const dirent* entry = ::readdir(directory.get())) {
    const std::string name = entry->d_name;
    if (name == "." || name == "..") continue;
    listing.byLowercasedName.emplace(lowercasedText(name), name);  // keeps the first
    listing.names.push_back(name);
  }
  return listing;
}

}  // namespace

std::optional<DirectoryListingCache::Listing> DirectoryListingCache::listing(
    const std::string& path) {
  {
    std::lock_guard guard(lock_);
    if (auto found = listings_.find(path); found != listings_.end()) return found->second;
  }
  auto fresh = readListing(path);
  std::lock_guard guard(lock_);
  listings_[path] = fresh;
  return fresh;
}

std::optional<std::string> DirectoryListingCache::existingPath(const std::string& name,
                                                               const std::string& directory) {
  if (name.empty() || name == "." || name == ".." || name.find('/') != std::string::npos)
    return std::nullopt;
  const auto folder = listing(directory);
  if (!folder) return std::nullopt;
  const std::string lowered = lowercasedText(name);
  if (folder->byLowercasedName.find(lowered) == folder->byLowercasedName.end()) return std::nullopt;
  if (std::find(folder->names.begin(), folder->names.end(), name) != folder->names.end())
    return directory + "/" + name;
  const auto spellings =
      std::count_if(folder->names.begin(), folder->names.end(),
                    [&](const std::string& other) { return lowercasedText(other) == lowered; });
  if (spellings > 1) return std::nullopt;
  return directory + "/" + folder->byLowercasedName.at(lowered);
}

}  // namespace brisko
