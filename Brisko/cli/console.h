#pragma once

// What `brisko` knows of its terminal and how it writes: results to standard
// output, the one progress line and the questions to standard error, answers
// from standard input.
//
// Colours only when standard output is a terminal and `NO_COLOR` is unset or
// empty; the progress line only when standard error is a terminal. Standard
// output that can't be written any more (a reader that went, as in
// `brisko scan | head -1`) makes `write` throw `OutputClosed`, and stays closed.
//
// Threads: `write`, `progress` and `clearProgress` may be called from any
// thread; they are serialised.

#include <mutex>
#include <stdexcept>
#include <string>
#include <string_view>

namespace brisko::cli {

class OutputClosed : public std::runtime_error {
 public:
  OutputClosed() : std::runtime_error("standard output was closed; stopped") {}
};

enum class Colour { none, bold, dim, green, yellow, red };

class Console {
 public:
  // Looks at the three standard descriptors and the environment.
  Console();

  bool colours() const { return colours_; }
  bool showsProgress() const { return showsProgress_; }
  bool inputIsTerminal() const { return inputIsTerminal_; }
  bool isClosed() const;

  // `text` with the colour's escape sequences, when colours are on.
  std::string paint(std::string_view text, Colour colour) const;

  // Writes `text` to standard output at once. Throws OutputClosed.
  void write(std::string_view text);

  // Replaces the progress line on standard error (cut to the terminal's
  // width), or does nothing without a terminal there.
  void progress(std::string_view line);
  void clearProgress();

  // One line on standard error, after the progress line is cleared:
  // "brisko: " and `message`.
  void error(std::string_view message);

  // Asks `question` with " [y/N] " on standard error and reads one line from
  // standard input: true only for "y" or "yes" in any case. The end of input
  // answers no.
  bool confirm(std::string_view question);

 private:
  void clearProgressLocked();

  bool colours_ = false;
  bool showsProgress_ = false;
  bool inputIsTerminal_ = false;
  int width_ = 80;

  mutable std::mutex lock_;
  bool closed_ = false;         // guarded by lock_
  bool progressShown_ = false;  // guarded by lock_
  std::string lastProgress_;    // guarded by lock_
};

}  // namespace brisko::cli
