#include "apps/application_size_cache.h"

#include <nlohmann/json.hpp>

#include "base/atomic_file.h"
#include "base/file_contents.h"
#include "base/path_components.h"
#include "platform/home_directory.h"

namespace brisko {
namespace {

using Json = nlohmann::json;

std::map<std::string, ApplicationSizeCache::Entry> decode(const std::string& text) {
  std::map<std::string, ApplicationSizeCache::Entry> entries;
  const Json root = Json::parse(text, nullptr, /*allow_exceptions=*/false);
  if (!root.is_object()) return {};
  for (const auto& [path, value] : root.items()) {
    if (!value.is_object()) return {};
    const auto number = [&](const char* key) -> const Json& {
      const Json& field = value.at(key);
      if (!field.is_number()) throw Json::type_error::create(302, key, nullptr);
      return field;
    };
    try {
      ApplicationSizeCache::Entry entry;
      entry.device = number("device").get<std::int64_t>();
      entry.inode = number("inode").get<std::uint64_t>();
      entry.modified = number("modified").get<double>();
      if (value.contains("infoModified") && !value["infoModified"].is_null())
        entry.infoModified = number("infoModified").get<double>();
      entry.bytes = number("bytes").get<std::int64_t>();
      entries[path] = entry;
    } catch (const Json::exception&) {
      return {};  // a damaged file is worth nothing, not half of it
    }
  }
  return entries;
}

}  // namespace

ApplicationSizeCache::ApplicationSizeCache(std::string path) : path_(std::move(path)) {
  if (auto text = readFileContents(*path_, 64 * 1024 * 1024)) entries_ = decode(*text);
}

std::string ApplicationSizeCache::defaultPath(const std::string& home) {
  return briskoCacheDirectory(home) + "/application-sizes.json";
}

std::optional<std::int64_t> ApplicationSizeCache::bytes(const InstalledApplication& application) {
  std::lock_guard guard(lock_);
  const auto found = entries_.find(application.id);
  if (found == entries_.end()) return std::nullopt;
  const Entry& entry = found->second;
  const bool infoMatches =
      application.infoIdentity
          ? entry.infoModified && *entry.infoModified == application.infoIdentity->modified
          : !entry.infoModified;
  if (entry.device != application.identity.device || entry.inode != application.identity.inode ||
      entry.modified != application.identity.modified || !infoMatches)
    return std::nullopt;
  return entry.bytes;
}

void ApplicationSizeCache::store(const InstalledApplication& application, std::int64_t bytes) {
  Entry entry{application.identity.device, application.identity.inode,
              application.identity.modified, std::nullopt, bytes};
  if (application.infoIdentity) entry.infoModified = application.infoIdentity->modified;
  std::lock_guard guard(lock_);
  entries_[application.id] = entry;
}

void ApplicationSizeCache::save() {
  if (!path_) return;
  Json root = Json::object();
  {
    std::lock_guard guard(lock_);
    for (const auto& [path, entry] : entries_) {
      Json value = {{"device", entry.device},
                    {"inode", entry.inode},
                    {"modified", entry.modified},
                    {"bytes", entry.bytes}};
      if (entry.infoModified) value["infoModified"] = *entry.infoModified;
      root[path] = std::move(value);
    }
  }
  try {
    createPrivateDirectories(parentPath(*path_));
    writeFileAtomically(*path_, root.dump(2, ' ', false, Json::error_handler_t::replace) + "\n");
  } catch (const std::exception&) {
    // Only a cache: the sizes are measured again next time.
  }
}

std::map<std::string, ApplicationSizeCache::Entry> ApplicationSizeCache::entries() {
  std::lock_guard guard(lock_);
  return entries_;
}

}  // namespace brisko
