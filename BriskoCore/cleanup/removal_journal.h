#pragma once

// A file is removed by first renaming it to a private name in its folder,
// checking it there, then unlinking it (or renaming it back). Termination
// signals are held for that moment, but `kill -9` and power loss can't be:
// so a note naming the step is written before the rename and removed after
// it, and the next engine to start settles what a killed one left behind.

#include <string>
#include <vector>

#include "protocol/plan_records.h"

namespace brisko {

// The private names of parked files begin with this.
inline constexpr const char* kParkedNamePrefix = ".brisko-removing-";

struct RemovalStep {
  std::string parkedPath;         // where the file stands under its private name
  std::string originalPath;       // the name it had and goes back to
  FileIdentitySnapshot expected;  // what the planned file is
};

// The note of one engine process, in Brisko's data folder. One process removes
// one file at a time.
class RemovalJournal {
 public:
  explicit RemovalJournal(const std::string& dataDirectory);

  // Writes the note atomically, creating the folder. Throws std::system_error.
  void record(const RemovalStep& step) const;
  // Removes the note; a missing one is no error.
  void clear() const;

  const std::string& path() const { return path_; }

 private:
  std::string dataDirectory_;
  std::string path_;
};

// Renames `parked` in the folder open at `folder` back to `name`. When the
// name was taken meanwhile, the file goes to a visible name beside it instead
// ("App.dmg (restored)", then "(restored 2)", ...), which is answered; an
// empty answer means it is back under its own name. Nothing is ever replaced.
// None when it could not be moved at all.
std::optional<std::string> putBack(int folder, const std::string& parked, const std::string& name);

// What the notes of engines that ended in the middle of a removal leave in
// `dataDirectory`, settled: a parked file that is still the planned one and
// whose original path still passes the path safety policy of `home` is
// removed; any other parked file
// goes back to its name, or beside it when the name is taken. Notes of engines
// still running are left alone. Answers one line for each file put back under
// another name, for standard error.
std::vector<std::string> settleInterruptedRemovals(const std::string& dataDirectory,
                                                   const std::string& home);

}  // namespace brisko
