#include "cleanup/removal_journal.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <fstream>
#include <sstream>

#include "base/atomic_file.h"
#include "base/path_components.h"
#include "cleanup/safe_removal.h"
#include "platform/folder_walk.h"
#include "protocol/json_codec.h"
#include "safety/path_safety_policy.h"

namespace brisko {

namespace {

constexpr const char* kNotePrefix = "removal-journal-";
constexpr const char* kNoteSuffix = ".json";
constexpr size_t kLargestNote = 64 * 1024;

// The start time of a process in clock ticks since boot (the 22nd field of
// its stat file): with the process ID, it tells a running engine from a dead
// one whose number was given again. None when there is no such process.
std::optional<std::string> processStart(const std::string& processID) {
  std::ifstream file("/proc/" + processID + "/stat");
  std::string line;
  if (!std::getline(file, line)) return std::nullopt;
  const size_t close = line.rfind(')');
  if (close == std::string::npos) return std::nullopt;
  std::istringstream fields(line.substr(close + 1));
  std::string field;
  for (int index = 3; index <= 22 && fields >> field; ++index) {
    if (index == 22) return field;
  }
  return std::nullopt;
}

struct Note {
  RemovalStep step;
  std::string processID;
  std::string processStart;
};

void to_json(Json& json, const Note& note) {
  JsonObjectWriter out(json);
  out.set("parkedPath", note.step.parkedPath);
  out.set("originalPath", note.step.originalPath);
  out.set("expected", note.step.expected);
  out.set("processID", note.processID);
  out.set("processStart", note.processStart);
}

void from_json(const Json& json, Note& note) {
  JsonObjectReader in(json);
  note.step.parkedPath = in.required<std::string>("parkedPath");
  note.step.originalPath = in.required<std::string>("originalPath");
  note.step.expected = in.required<FileIdentitySnapshot>("expected");
  note.processID = in.required<std::string>("processID");
  note.processStart = in.required<std::string>("processStart");
}

// A note is read like every data file: never through a link, never blocking
// on something that isn't a regular file.
std::optional<std::string> readNote(int folder, const char* name) {
  Descriptor file(::openat(folder, name, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
  struct stat info;
  if (!file.valid() || ::fstat(file.get(), &info) != 0 || !S_ISREG(info.st_mode) ||
      info.st_size > static_cast<off_t>(kLargestNote)) {
    return std::nullopt;
  }
  std::string text(static_cast<size_t>(info.st_size), '\0');
  if (::read(file.get(), text.data(), text.size()) != static_cast<ssize_t>(text.size()))
    return std::nullopt;
  return text;
}

// Device and inode alone could name a new file given a freed inode: the size
// and the modification time must be the planned ones too.
bool matches(const struct stat& info, const FileIdentitySnapshot& expected) {
  std::int64_t nanoseconds = 0;
  if (__builtin_mul_overflow(static_cast<std::int64_t>(info.st_mtim.tv_sec), 1'000'000'000,
                             &nanoseconds) ||
      __builtin_add_overflow(nanoseconds, static_cast<std::int64_t>(info.st_mtim.tv_nsec),
                             &nanoseconds)) {
    return false;
  }
  return static_cast<std::uint64_t>(info.st_dev) == expected.deviceID &&
         static_cast<std::uint64_t>(info.st_ino) == expected.fileID &&
         static_cast<std::uint32_t>(info.st_mode & S_IFMT) == expected.fileType &&
         static_cast<std::int64_t>(info.st_size) == expected.logicalBytes &&
         nanoseconds == expected.modificationTimeNanoseconds;
}

// Settles one step; answers a line when the file went back under another name.
std::optional<std::string> settle(const RemovalStep& step, const std::string& home) {
  std::string parkedName, originalName;
  int error = 0;
  Descriptor folder = openParentWithoutLinks(step.parkedPath, parkedName, error);
  if (!folder.valid()) return std::nullopt;  // the folder is gone: so is the file
  if (parentPath(step.originalPath) != parentPath(step.parkedPath) ||
      !std::string_view(parkedName).starts_with(kParkedNamePrefix)) {
    return std::nullopt;  // not a note this engine writes
  }
  originalName = lastPathComponent(step.originalPath);
  struct stat info;
  if (::fstatat(folder.get(), parkedName.c_str(), &info, AT_SYMLINK_NOFOLLOW) != 0) {
    return std::nullopt;  // the step had finished: removed or put back
  }
  if (matches(info, step.expected) && PathSafetyPolicy::loadingWhitelistFor(home)
                                          .evaluate(step.originalPath, /*resolvingSymlinks=*/true)
                                          .isAllowed()) {
    ::unlinkat(folder.get(), parkedName.c_str(), 0);
    return std::nullopt;
  }
  const auto visibleName = putBack(folder.get(), parkedName, originalName);
  if (visibleName && !visibleName->empty()) {
    return "Brisko put back " + step.originalPath + " as " + parentPath(step.originalPath) + "/" +
           *visibleName + ", since its name was taken while it was set aside.";
  }
  return std::nullopt;
}

}  // namespace

RemovalJournal::RemovalJournal(const std::string& dataDirectory)
    : dataDirectory_(dataDirectory),
      path_(dataDirectory + "/" + kNotePrefix + std::to_string(::getpid()) + kNoteSuffix) {}

void RemovalJournal::record(const RemovalStep& step) const {
  Note note{step, std::to_string(::getpid()),
            processStart(std::to_string(::getpid())).value_or("")};
  createPrivateDirectories(dataDirectory_);
  writeFileAtomically(path_, encodeJson(note, /*pretty=*/true));
}

void RemovalJournal::clear() const {
  ::unlink(path_.c_str());
}

std::optional<std::string> putBack(int folder, const std::string& parked, const std::string& name) {
  if (::renameat2(folder, parked.c_str(), folder, name.c_str(), RENAME_NOREPLACE) == 0) return "";
  if (errno != EEXIST) return std::nullopt;
  // "App.dmg" is put back as "App (restored).dmg": visible, and still of its kind.
  const size_t dot = name.rfind('.');
  const bool hasExtension = dot != std::string::npos && dot > 0;
  const std::string stem = hasExtension ? name.substr(0, dot) : name;
  const std::string extension = hasExtension ? name.substr(dot) : "";
  for (int attempt = 1; attempt < 1000; ++attempt) {
    const std::string mark =
        attempt == 1 ? " (restored)" : " (restored " + std::to_string(attempt) + ")";
    const std::string visible = stem + mark + extension;
    if (::renameat2(folder, parked.c_str(), folder, visible.c_str(), RENAME_NOREPLACE) == 0)
      return visible;
    if (errno != EEXIST) return std::nullopt;
  }
  return std::nullopt;
}

std::vector<std::string> settleInterruptedRemovals(const std::string& dataDirectory,
                                                   const std::string& home) {
  std::vector<std::string> lines;
  Descriptor folder(::open(dataDirectory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!folder.valid()) return lines;
  std::vector<std::string> names;
  if (DIR* stream = ::fdopendir(::fcntl(folder.get(), F_DUPFD_CLOEXEC, 0))) {
    while (const dirent* entry = ::readdir(stream)) {
      const std::string_view name = entry->d_name;
      if (name.starts_with(kNotePrefix) && name.ends_with(kNoteSuffix)) names.emplace_back(name);
    }
    ::closedir(stream);
  }
  for (const std::string& name : names) {
    const auto text = readNote(folder.get(), name.c_str());
    Note note;
    try {
      if (!text) continue;
      note = decodeJson<Note>(*text);
    } catch (const DecodingError&) {
      ::unlinkat(folder.get(), name.c_str(), 0);  // a damaged note names nothing to settle
      continue;
    }
    const auto start = processStart(note.processID);
    if (start && *start == note.processStart) continue;  // its engine is still at work
    if (auto line = settle(note.step, home)) lines.push_back(std::move(*line));
    ::unlinkat(folder.get(), name.c_str(), 0);
  }
  return lines;
}

}  // namespace brisko
