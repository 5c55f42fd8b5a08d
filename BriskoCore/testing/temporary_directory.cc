#include "testing/temporary_directory.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>

#include "cleanup/safe_removal.h"
#include "platform/folder_walk.h"

namespace brisko::testing {

namespace {

std::string baseFolder() {
  for (const char* variable : {"BRISKO_TEST_TMP", "TMPDIR"}) {
    const char* value = std::getenv(variable);
    if (value == nullptr || value[0] != '/') continue;
    // The folder may not exist yet: judge the part of the way that does.
    std::string existing = value;
    while (!std::filesystem::exists(existing) && existing.size() > 1) {
      existing = std::filesystem::path(existing).parent_path().string();
    }
    if (isReachableByOtherUsers(existing)) return value;
  }
  return "/tmp";
}

}  // namespace

TemporaryDirectory::TemporaryDirectory() {
  const std::string base = baseFolder();
  std::filesystem::create_directories(base);
  std::string pattern = base + "/brisko-test-XXXXXX";
  if (::mkdtemp(pattern.data()) == nullptr) {
    throw std::runtime_error("Cannot create a temporary folder under " + base);
  }
  // Resolve links in the base (for example a /tmp that is a link) so that
  // paths reported by the code under test compare equal to ours.
  path_ = std::filesystem::canonical(pattern).string();
}

TemporaryDirectory::~TemporaryDirectory() {
  removeTree(path_);
}

std::string TemporaryDirectory::operator/(std::string_view relative) const {
  return path_ + "/" + std::string(relative);
}

std::string TemporaryDirectory::makeDirectory(std::string_view relative) const {
  const std::string path = *this / relative;
  std::filesystem::create_directories(path);
  return path;
}

std::string TemporaryDirectory::writeFile(std::string_view relative,
                                          std::string_view contents) const {
  const std::string path = *this / relative;
  std::filesystem::create_directories(std::filesystem::path(path).parent_path());
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out.write(contents.data(), static_cast<std::streamsize>(contents.size()));
  if (!out) throw std::runtime_error("Cannot write " + path);
  return path;
}

std::string TemporaryDirectory::makeSymlink(std::string_view relative,
                                            const std::string& target) const {
  const std::string path = *this / relative;
  std::filesystem::create_directories(std::filesystem::path(path).parent_path());
  std::filesystem::create_symlink(target, path);
  return path;
}

bool isReachableByOtherUsers(const std::string& path) {
  std::filesystem::path folder = std::filesystem::path(path);
  while (true) {
    struct stat info;
    if (::stat(folder.c_str(), &info) != 0 || (info.st_mode & S_IXOTH) == 0) return false;
    if (folder == folder.root_path() || folder.parent_path() == folder) return true;
    folder = folder.parent_path();
  }
}

namespace {

// Gives every folder of a tree its permissions back, at any depth.
class PermissionRestorer : public FolderVisitor {
 public:
  Step visit(int folder, const std::string&, const std::string& name, unsigned char type) override {
    if (type != DT_DIR) return Step::next;
    ::fchmodat(folder, name.c_str(), 0700, 0);
    return Step::enter;
  }
};

}  // namespace

void removeTree(const std::string& path) {
  // Tests may leave folders without permissions; give them back first.
  ::chmod(path.c_str(), 0700);
  Descriptor top(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  if (top.valid()) {
    PermissionRestorer restorer;
    descendFolders(std::move(top), path, restorer);
  }
  // Trees deeper than PATH_MAX or than the open-file limit go too.
  std::error_code error;
  if (removeWithoutFollowingLinks(path).has_value()) std::filesystem::remove_all(path, error);
}

}  // namespace brisko::testing
