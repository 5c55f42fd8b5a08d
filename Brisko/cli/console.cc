#include "cli/console.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <iostream>

namespace brisko::cli {

namespace {

bool writeAll(int descriptor, std::string_view text) {
  while (!text.empty()) {
    const ssize_t written = ::write(descriptor, text.data(), text.size());
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) return false;
    text.remove_prefix(static_cast<size_t>(written));
  }
  return true;
}

// The first `columns` characters of `text`, never cutting one in half.
std::string_view firstColumns(std::string_view text, size_t columns) {
  size_t count = 0;
  for (size_t index = 0; index < text.size(); ++index) {
    const auto byte = static_cast<unsigned char>(text[index]);
    if ((byte & 0xC0) == 0x80) continue;
    if (count++ == columns) return text.substr(0, index);
  }
  return text;
}

}  // namespace

Console::Console() {
  const char* noColour = std::getenv("NO_COLOR");
  colours_ = ::isatty(STDOUT_FILENO) == 1 && (noColour == nullptr || *noColour == '\0');
  showsProgress_ = ::isatty(STDERR_FILENO) == 1;
  inputIsTerminal_ = ::isatty(STDIN_FILENO) == 1;
  struct winsize size {};
  if (showsProgress_ && ::ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 10)
    width_ = size.ws_col;
}

bool Console::isClosed() const {
  std::lock_guard guard(lock_);
  return closed_;
}

std::string Console::paint(std::string_view text, Colour colour) const {
  if (!colours_ || colour == Colour::none) return std::string(text);
  const char* code = colour == Colour::bold     ? "1"
                     : colour == Colour::dim    ? "2"
                     : colour == Colour::green  ? "32"
                     : colour == Colour::yellow ? "33"
                                                : "31";
  return "\033[" + std::string(code) + "m" + std::string(text) + "\033[0m";
}

void Console::write(std::string_view text) {
  std::lock_guard guard(lock_);
  if (closed_) throw OutputClosed();
  clearProgressLocked();
  if (!writeAll(STDOUT_FILENO, text)) {
    closed_ = true;
    throw OutputClosed();
  }
}

void Console::progress(std::string_view line) {
  if (!showsProgress_) return;
  std::lock_guard guard(lock_);
  if (progressShown_ && line == lastProgress_) return;
  lastProgress_ = std::string(line);
  const std::string text =
      "\r\033[K" + std::string(firstColumns(line, static_cast<size_t>(width_ - 1)));
  writeAll(STDERR_FILENO, text);
  progressShown_ = true;
}

void Console::clearProgress() {
  std::lock_guard guard(lock_);
  clearProgressLocked();
}

void Console::clearProgressLocked() {
  if (!progressShown_) return;
  writeAll(STDERR_FILENO, "\r\033[K");
  progressShown_ = false;
}

void Console::error(std::string_view message) {
  std::lock_guard guard(lock_);
  clearProgressLocked();
  writeAll(STDERR_FILENO, "brisko: " + std::string(message) + "\n");
}

bool Console::confirm(std::string_view question) {
  {
    std::lock_guard guard(lock_);
    clearProgressLocked();
    writeAll(STDERR_FILENO, std::string(question) + " [y/N] ");
  }
  std::string answer;
  if (!std::getline(std::cin, answer)) {
    writeAll(STDERR_FILENO, "\n");
    return false;
  }
  for (char& character : answer)
    character = static_cast<char>(std::tolower(static_cast<unsigned char>(character)));
  while (!answer.empty() && (answer.back() == ' ' || answer.back() == '\r'))
    answer.pop_back();
  while (!answer.empty() && answer.front() == ' ')
    answer.erase(answer.begin());
  return answer == "y" || answer == "yes";
}

}  // namespace brisko::cli
