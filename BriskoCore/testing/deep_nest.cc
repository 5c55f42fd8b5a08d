#include "testing/deep_nest.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <system_error>

#include "platform/folder_walk.h"

namespace brisko::testing {

namespace {

[[noreturn]] void fail(const std::string& what) {
  throw std::system_error(errno, std::generic_category(), what);
}

}  // namespace

std::string makeDeepNest(const std::string& top, int depth, std::string_view name,
                         std::string_view contents) {
  const std::string folderName(name);
  Descriptor current(::open(top.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!current.valid()) fail("Cannot open " + top);
  std::string path = top;
  for (int level = 0; level < depth; ++level) {
    if (::mkdirat(current.get(), folderName.c_str(), 0755) != 0 && errno != EEXIST)
      fail("Cannot make level " + std::to_string(level));
    Descriptor next = openFolderAt(current.get(), folderName.c_str());
    if (!next.valid()) fail("Cannot open level " + std::to_string(level));
    current = std::move(next);
    path += "/" + folderName;
    if (!contents.empty()) {
      Descriptor file(::openat(current.get(), "f", O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644));
      if (!file.valid() || ::write(file.get(), contents.data(), contents.size()) !=
                               static_cast<ssize_t>(contents.size())) {
        fail("Cannot write level " + std::to_string(level));
      }
    }
  }
  return path;
}

std::int64_t allocatedBytesOfOneLevel(const std::string& top, std::string_view name) {
  struct stat info;
  const std::string file = top + "/" + std::string(name) + "/f";
  if (::lstat(file.c_str(), &info) != 0) fail("Cannot read " + file);
  return static_cast<std::int64_t>(info.st_blocks) * 512;
}

OpenFileLimit::OpenFileLimit(rlim_t soft) {
  ::getrlimit(RLIMIT_NOFILE, &previous_);
  struct rlimit lowered = previous_;
  lowered.rlim_cur = std::min(soft, previous_.rlim_max);
  if (::setrlimit(RLIMIT_NOFILE, &lowered) != 0) fail("Cannot lower the open-file limit");
}

OpenFileLimit::~OpenFileLimit() {
  ::setrlimit(RLIMIT_NOFILE, &previous_);
}

}  // namespace brisko::testing
