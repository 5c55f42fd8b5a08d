#include "settings/settings_store.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <limits>
#include <system_error>

#include "base/atomic_file.h"
#include "base/file_contents.h"
#include "base/path_components.h"
#include "platform/home_directory.h"

namespace brisko {

namespace {

// Far more than any settings file holds; a bigger one is damaged.
constexpr size_t kLargestSettingsFile = 16 * 1024 * 1024;

// The file's object; none when it is missing, damaged or not an object.
std::optional<Json> readObject(const std::string& path, bool& exists) {
  const auto contents = readFileContents(path, kLargestSettingsFile);
  exists = contents.has_value() || ::access(path.c_str(), F_OK) == 0;
  if (!contents) return std::nullopt;
  Json json = Json::parse(*contents, nullptr, /*allow_exceptions=*/false);
  if (json.is_discarded() || !json.is_object()) return std::nullopt;
  return json;
}

// Holds an exclusive flock on the settings folder. The file itself can't
// carry the lock: each write replaces it with a new one.
class FolderLock {
 public:
  explicit FolderLock(const std::string& folder)
      : fd_(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {
    if (fd_ < 0) throw std::system_error(errno, std::generic_category(), folder);
    while (::flock(fd_, LOCK_EX) != 0) {
      if (errno == EINTR) continue;
      const int error = errno;
      ::close(fd_);
      throw std::system_error(error, std::generic_category(), folder);
    }
  }
  ~FolderLock() { ::close(fd_); }
  FolderLock(const FolderLock&) = delete;
  FolderLock& operator=(const FolderLock&) = delete;

 private:
  int fd_;
};

}  // namespace

SettingsStore::SettingsStore(std::string path) : path_(std::move(path)) {}

std::string SettingsStore::defaultPath() {
  const char* configHome = std::getenv("XDG_CONFIG_HOME");
  std::string base;
  if (configHome != nullptr && configHome[0] == '/') {
    base = configHome;
  } else {
    base = currentHomeDirectory().value_or("") + "/.config";
  }
  return base + "/brisko/settings.json";
}

std::optional<Json> SettingsStore::value(std::string_view key) const {
  bool exists = false;
  const auto object = readObject(path_, exists);
  if (!object) return std::nullopt;
  const auto found = object->find(key);
  if (found == object->end()) return std::nullopt;
  return *found;
}

std::optional<bool> SettingsStore::boolValue(std::string_view key) const {
  const auto json = value(key);
  if (!json || !json->is_boolean()) return std::nullopt;
  return json->get<bool>();
}

std::optional<std::int64_t> SettingsStore::integerValue(std::string_view key) const {
  const auto json = value(key);
  if (!json) return std::nullopt;
  if (json->is_number_unsigned()) {
    const auto number = json->get<std::uint64_t>();
    if (number > static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max()))
      return std::nullopt;
    return static_cast<std::int64_t>(number);
  }
  if (!json->is_number_integer()) return std::nullopt;
  return json->get<std::int64_t>();
}

std::optional<std::string> SettingsStore::stringValue(std::string_view key) const {
  const auto json = value(key);
  if (!json || !json->is_string()) return std::nullopt;
  return json->get<std::string>();
}

void SettingsStore::setValue(std::string_view key, const Json& value) {
  change(key, &value);
}

void SettingsStore::removeValue(std::string_view key) {
  change(key, nullptr);
}

void SettingsStore::change(std::string_view key, const Json* value) {
  const std::string folder = parentPath(path_);
  createPrivateDirectories(folder);
  FolderLock lock(folder);
  bool exists = false;
  auto object = readObject(path_, exists);
  if (!object) {
    // A damaged file is the user's to look at: it goes aside, not away.
    if (exists && ::rename(path_.c_str(), (path_ + ".bad").c_str()) != 0)
      throw std::system_error(errno, std::generic_category(), "Cannot keep " + path_);
    object = Json::object();
  }
  if (value != nullptr) {
    (*object)[std::string(key)] = *value;
  } else if (object->erase(std::string(key)) == 0) {
    return;  // nothing to change
  }
  // nlohmann's objects keep their keys sorted.
  writeFileAtomically(path_, object->dump(2) + "\n", 0600);
}

}  // namespace brisko
