#pragma once

#include <sys/resource.h>

#include <cstdint>
#include <string>
#include <string_view>

namespace brisko::testing {

// Makes `depth` folders, each named `name` and made with mkdirat inside the
// one above (so that no path is ever too long to make), below the existing
// folder `top`; with `contents`, a file "f" holding it stands in every one of
// them. Answers the path of the deepest folder as text, which may be far
// longer than PATH_MAX. Throws std::system_error on failure.
std::string makeDeepNest(const std::string& top, int depth, std::string_view name = "d",
                         std::string_view contents = {});

// Allocated bytes of the file "f" that makeDeepNest leaves at every level.
std::int64_t allocatedBytesOfOneLevel(const std::string& top, std::string_view name = "d");

// Lowers the soft limit of open files of this process for the life of the
// value, as a desktop session commonly has it (1,024).
class OpenFileLimit {
 public:
  explicit OpenFileLimit(rlim_t soft = 1024);
  ~OpenFileLimit();
  OpenFileLimit(const OpenFileLimit&) = delete;
  OpenFileLimit& operator=(const OpenFileLimit&) = delete;

 private:
  struct rlimit previous_;
};

}  // namespace brisko::testing
