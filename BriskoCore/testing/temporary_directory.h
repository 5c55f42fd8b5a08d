#pragma once

#include <string>
#include <string_view>

namespace brisko::testing {

// A fresh folder for one test, removed with everything in it (links are
// removed, never followed) when the object goes. Lives under
// $BRISKO_TEST_TMP when set, else under $TMPDIR or /tmp; a base that other
// users can't reach is passed over, since permission tests run as one.
class TemporaryDirectory {
 public:
  TemporaryDirectory();
  ~TemporaryDirectory();
  TemporaryDirectory(const TemporaryDirectory&) = delete;
  TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;

  const std::string& path() const { return path_; }
  // path() + "/" + relative
  std::string operator/(std::string_view relative) const;

  // Helpers for building trees: parents are created as needed.
  std::string makeDirectory(std::string_view relative) const;
  std::string writeFile(std::string_view relative, std::string_view contents = {}) const;
  std::string makeSymlink(std::string_view relative, const std::string& target) const;

 private:
  std::string path_;
};

// True when every folder on the way to `path` lets other users pass (o+x),
// so that a test running as an ordinary user can reach what lies there.
bool isReachableByOtherUsers(const std::string& path);

// Removes a tree without following links; for test clean-up only.
void removeTree(const std::string& path);

}  // namespace brisko::testing
