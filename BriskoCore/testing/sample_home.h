#pragma once

#include <cstdint>
#include <string>

namespace brisko::testing {

// A home folder as a developer's Mac would hold it, in small: application
// caches, old and new logs, Xcode's derived data and device support, the
// download caches of npm, cargo and friends, browser profiles with their
// cache folders and a service-worker store, an Electron application,
// installers in Downloads, tool versions with a pin, a protected folder, a
// whitelisted one, and links that lead into protected places and out of the
// home. Files hold real bytes, so their allocated sizes are real too.
//
// `scale` multiplies every file size: 1 gives about 2 MB, which suits tests;
// 64 gives about 150 MB, which makes a demo look like a real machine.
// Creates `home` if needed; fails with std::runtime_error.
void buildSampleHome(const std::string& home, std::int64_t scale = 1);

// `count` empty files named 0, 1, 2 ... in a new folder at `path`.
void makeEmptyFiles(const std::string& path, int count);

// A fresh folder for a test that creates very many files: in memory
// (/dev/shm) where the machine has it, since hundreds of thousands of files
// on disk cost far more than the code under test; else in the usual place.
// Removed with everything in it when the object goes.
class ScratchFolder {
 public:
  ScratchFolder();
  ~ScratchFolder();
  ScratchFolder(const ScratchFolder&) = delete;
  ScratchFolder& operator=(const ScratchFolder&) = delete;
  const std::string& path() const { return path_; }

 private:
  std::string path_;
};

// The allocated bytes of every regular file below `path` (or of `path`
// itself), never following a link: the reference a walk is checked against.
std::int64_t allocatedBytesBelow(const std::string& path);

}  // namespace brisko::testing
