#include "safety/whitelist_store.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <system_error>
#include <unordered_set>

#include "base/atomic_file.h"
#include "base/unicode_text.h"
#include "base/utf8.h"
#include "safety/path_safety_policy.h"

namespace brisko {

namespace {

// The design's twenty rows first, then the same tools' places on Linux.
constexpr std::array<std::string_view, 27> kDefaultSuffixes{
    "/Library/Caches/ms-playwright*",
    "/.cache/huggingface*",
    "/.m2/repository/*",
    "/.gradle/caches/*",
    "/.gradle/daemon/*",
    "/.ollama/models/*",
    "/Library/Caches/com.nssurge.surge-mac/*",
    "/Library/Application Support/com.nssurge.surge-mac/*",
    "/Library/Caches/org.R-project.R/R/renv/*",
    "/Library/Caches/pypoetry/virtualenvs*",
    "/Library/Caches/JetBrains*",
    "/Library/Caches/com.jetbrains.toolbox*",
    "/Library/Caches/tealdeer/tldr-pages",
    "/Library/Application Support/JetBrains*",
    "/Library/Caches/com.apple.finder",
    "/Library/Mobile Documents*",
    "/Library/Caches/com.apple.FontRegistry*",
    // The two spellings on purpose: whitelist matching is case-sensitive.
    "/Library/Caches/com.apple.spotlight*",
    "/Library/Caches/com.apple.Spotlight*",
    "/Library/Caches/CloudKit*",
    "/.cache/ms-playwright*",
    "/.cache/R/renv/*",
    "/.cache/pypoetry/virtualenvs*",
    "/.cache/JetBrains*",
    "/.cache/tealdeer/tldr-pages",
    "/.config/JetBrains*",
    "/.local/share/JetBrains*",
};

bool startsWith(std::string_view text, std::string_view prefix) {
  return text.size() >= prefix.size() && text.compare(0, prefix.size(), prefix) == 0;
}

// `relative` starts with "/" or is empty; a home of "/" adds nothing in front.
std::string homeJoined(std::string_view normalHome, std::string_view relative) {
  if (normalHome == "/") return relative.empty() ? std::string("/") : std::string(relative);
  return std::string(normalHome) + std::string(relative);
}

// Settles "." and ".." by the text alone and drops empty pieces; an absolute
// path stays absolute and ".." never climbs above its root.
std::string standardizedPath(std::string_view path) {
  const bool absolute = !path.empty() && path.front() == '/';
  std::vector<std::string_view> pieces;
  size_t from = 0;
  while (from <= path.size()) {
    size_t slash = path.find('/', from);
    if (slash == std::string_view::npos) slash = path.size();
    const std::string_view piece = path.substr(from, slash - from);
    from = slash + 1;
    if (piece.empty() || piece == ".") continue;
    if (piece == "..") {
      if (!pieces.empty() && pieces.back() != "..") {
        pieces.pop_back();
      } else if (!absolute) {
        pieces.push_back(piece);
      }
      continue;
    }
    pieces.push_back(piece);
  }
  std::string standardized = absolute ? "/" : "";
  for (size_t i = 0; i < pieces.size(); ++i) {
    if (i > 0) standardized.push_back('/');
    standardized.append(pieces[i]);
  }
  return standardized;
}

// "~" and "~/..." become the home; nothing else is expanded.
std::string expandedRule(std::string_view rule, std::string_view home) {
  const std::string standardHome = standardizedPath(normalizedPolicyPath(home));
  if (rule == "~") return standardHome;
  if (startsWith(rule, "~/")) return homeJoined(standardHome, rule.substr(1));
  return std::string(rule);
}

bool isActiveLine(std::string_view trimmed) {
  return !trimmed.empty() && trimmed.front() != '#';
}

// The file's lines for a rewrite: split at "\n" alone, so that everything
// else (CR line ends, blank lines, comments) survives; without a readable
// file, the defaults in `~` form.
std::vector<std::string> linesForRewrite(std::string_view home) {
  std::vector<std::string> lines;
  const auto contents = WhitelistStore::readFile(home);
  if (!contents) {
    for (const std::string& pattern : WhitelistStore::defaultPatterns(home)) {
      lines.push_back(WhitelistStore::tildeForm(pattern, home));
    }
    return lines;
  }
  size_t from = 0;
  for (;;) {
    const size_t newline = contents->find('\n', from);
    if (newline == std::string::npos) {
      lines.push_back(contents->substr(from));
      break;
    }
    lines.push_back(contents->substr(from, newline - from));
    from = newline + 1;
  }
  if (lines.back().empty()) lines.pop_back();
  return lines;
}

void writeLines(const std::vector<std::string>& lines, std::string_view home) {
  std::string text;
  for (const std::string& line : lines) {
    text.append(line);
    text.push_back('\n');
  }
  createPrivateDirectories(WhitelistStore::configurationDirectory(home), 0700);
  writeFileAtomically(WhitelistStore::filePath(home), text, 0600);
}

// Length of the line break at `at`, or 0: LF, VT, FF, CR, NEL, U+2028, U+2029.
size_t lineBreakLength(std::string_view text, size_t at) {
  const auto byte = static_cast<unsigned char>(text[at]);
  if (byte >= 0x0A && byte <= 0x0D) return 1;
  if (byte == 0xC2 && at + 1 < text.size() && static_cast<unsigned char>(text[at + 1]) == 0x85) {
    return 2;
  }
  if (byte == 0xE2 && at + 2 < text.size() && static_cast<unsigned char>(text[at + 1]) == 0x80) {
    const auto last = static_cast<unsigned char>(text[at + 2]);
    if (last == 0xA8 || last == 0xA9) return 3;
  }
  return 0;
}

}  // namespace

WhitelistValidationError::WhitelistValidationError(Case validationCase)
    : std::runtime_error(std::string(text(validationCase))), case_(validationCase) {}

std::string_view WhitelistValidationError::text(Case validationCase) {
  switch (validationCase) {
    case Case::empty:
      return "A rule can’t be empty.";
    case Case::notAbsoluteOrHome:
      return "A rule must start with / or ~/.";
    case Case::pathTraversal:
      return "A rule can’t contain .. path segments.";
    case Case::controlCharacter:
      return "A rule can’t contain control characters.";
    case Case::consecutiveSlashes:
      return "A rule can’t contain consecutive slashes.";
    case Case::criticalSystemPath:
      break;
  }
  return "This path is already system-protected; no rule needed.";
}

std::vector<std::string> WhitelistStore::defaultPatterns(std::string_view home) {
  const std::string normalHome = normalizedPolicyPath(home);
  std::vector<std::string> patterns;
  patterns.reserve(kDefaultSuffixes.size());
  for (const std::string_view suffix : kDefaultSuffixes) {
    patterns.push_back(homeJoined(normalHome, suffix));
  }
  return patterns;
}

std::vector<std::string> WhitelistStore::parse(std::string_view contents) {
  const std::vector<std::string_view> lines = activeLines(contents);
  return std::vector<std::string>(lines.begin(), lines.end());
}

std::vector<std::string_view> WhitelistStore::activeLines(std::string_view contents) {
  std::vector<std::string_view> patterns;
  visitActiveLines(contents, [&patterns](std::string_view line) { patterns.push_back(line); });
  return patterns;
}

void WhitelistStore::visitActiveLines(std::string_view contents,
                                      const std::function<void(std::string_view)>& visit) {
  size_t start = 0;
  size_t at = 0;
  const auto takeLine = [&](size_t end) {
    const std::string_view line = trimmingWhitespace(contents.substr(start, end - start));
    if (isActiveLine(line)) visit(line);
  };
  while (at < contents.size()) {
    const size_t breakLength = lineBreakLength(contents, at);
    if (breakLength == 0) {
      ++at;
      continue;
    }
    takeLine(at);
    at += breakLength;
    start = at;
  }
  takeLine(contents.size());
}

std::optional<std::string> WhitelistStore::readFile(std::string_view home) {
  // Non-blocking, so that a FIFO put in the file's place can't hang a scan.
  const int fd = ::open(filePath(home).c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
  if (fd < 0) return std::nullopt;
  std::string contents;
  struct stat status;
  bool readable = ::fstat(fd, &status) == 0 && S_ISREG(status.st_mode);
  if (readable) {
    contents.reserve(static_cast<size_t>(status.st_size));
    char buffer[65536];
    for (;;) {
      const ssize_t n = ::read(fd, buffer, sizeof buffer);
      if (n == 0) break;
      if (n < 0) {
        if (errno == EINTR) continue;
        readable = false;
        break;
      }
      contents.append(buffer, static_cast<size_t>(n));
    }
  }
  ::close(fd);
  if (!readable || !isValidUtf8(contents)) return std::nullopt;
  if (startsWith(contents, "\xEF\xBB\xBF")) contents.erase(0, 3);
  return contents;
}

std::vector<WhitelistEntry> WhitelistStore::entries(std::string_view home) {
  const std::vector<std::string> defaults = defaultPatterns(home);
  std::vector<WhitelistEntry> entries;
  const auto contents = readFile(home);
  if (!contents) {
    for (const std::string& pattern : defaults) {
      entries.push_back({tildeForm(pattern, home), WhitelistEntrySource::default_});
    }
    return entries;
  }
  std::unordered_set<std::string> defaultKeys;
  for (const std::string& pattern : defaults)
    defaultKeys.insert(canonicalKey(pattern, home));
  for (std::string& line : parse(*contents)) {
    const bool isDefault = defaultKeys.contains(canonicalKey(line, home));
    entries.push_back({std::move(line),
                       isDefault ? WhitelistEntrySource::default_ : WhitelistEntrySource::custom});
  }
  return entries;
}

std::string WhitelistStore::validate(std::string_view rule, std::string_view home) {
  using Case = WhitelistValidationError::Case;
  const std::string_view trimmed = trimmingWhitespaceAndNewlines(rule);
  if (trimmed.empty()) throw WhitelistValidationError(Case::empty);
  if (!startsWith(trimmed, "/") && !startsWith(trimmed, "~/") && trimmed != "~") {
    throw WhitelistValidationError(Case::notAbsoluteOrHome);
  }
  if (hasControlCharacter(trimmed)) throw WhitelistValidationError(Case::controlCharacter);
  if (trimmed.find("//") != std::string_view::npos) {
    throw WhitelistValidationError(Case::consecutiveSlashes);
  }
  size_t from = 0;
  while (from <= trimmed.size()) {
    size_t slash = trimmed.find('/', from);
    if (slash == std::string_view::npos) slash = trimmed.size();
    if (trimmed.substr(from, slash - from) == "..") {
      throw WhitelistValidationError(Case::pathTraversal);
    }
    from = slash + 1;
  }
  // Glob characters take part as plain text here.
  const PathSafetyPolicy policy(home, {});
  if (policy.isCriticalSystemRawPath(standardizedPath(expandedRule(trimmed, home)))) {
    throw WhitelistValidationError(Case::criticalSystemPath);
  }
  return std::string(trimmed);
}

void WhitelistStore::add(std::string_view rule, std::string_view home) {
  const std::string validated = validate(rule, home);
  std::vector<std::string> lines = linesForRewrite(home);
  lines.push_back(validated);
  writeLines(lines, home);
}

void WhitelistStore::remove(std::string_view rule, std::string_view home) {
  const std::string target = canonicalKey(rule, home);
  std::vector<std::string> lines = linesForRewrite(home);
  for (auto line = lines.begin(); line != lines.end(); ++line) {
    // Line breaks count as blanks here: a hand-edited file with CRLF line
    // ends keeps a "\r" on every line, which must not hide it from removal.
    const std::string_view trimmed = trimmingWhitespaceAndNewlines(*line);
    if (!isActiveLine(trimmed)) continue;
    if (trimmed == rule || canonicalKey(trimmed, home) == target) {
      lines.erase(line);
      break;
    }
  }
  writeLines(lines, home);
}

void WhitelistStore::restoreDefaults(std::string_view home) {
  const std::string path = filePath(home);
  if (::unlink(path.c_str()) != 0 && errno != ENOENT) {
    throw std::system_error(errno, std::generic_category(), "Cannot remove " + path);
  }
}

bool WhitelistStore::fileExists(std::string_view home) {
  struct stat status;
  return ::stat(filePath(home).c_str(), &status) == 0;
}

std::string WhitelistStore::configurationDirectory(std::string_view home) {
  return homeJoined(normalizedPolicyPath(home), "/.config/brisko");
}

std::string WhitelistStore::filePath(std::string_view home) {
  return homeJoined(normalizedPolicyPath(home), "/" + std::string(kRelativePath));
}

std::string WhitelistStore::canonicalKey(std::string_view pattern, std::string_view home) {
  return normalizedPolicyPath(standardizedPath(expandedRule(pattern, home)));
}

std::string WhitelistStore::tildeForm(std::string_view pattern, std::string_view home) {
  const std::string normalHome = normalizedPolicyPath(home);
  const std::string normalPattern = normalizedPolicyPath(pattern);
  if (normalPattern == normalHome) return "~";
  if (normalHome != "/" && startsWith(normalPattern, normalHome + "/")) {
    return "~" + normalPattern.substr(normalHome.size());
  }
  return std::string(pattern);
}

}  // namespace brisko
