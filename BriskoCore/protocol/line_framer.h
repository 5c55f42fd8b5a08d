#pragma once

// Cuts the output of a streamed engine command into its lines: one JSON event
// per line, each ended by a line feed. Chunks arrive as the pipe gives them, so
// a line may be split across chunks and a chunk may hold several lines.

#include <optional>
#include <string>
#include <string_view>

namespace brisko {

class LineFramer {
 public:
  void append(std::string_view chunk);

  // The next complete, non-empty line without its line feed; none when the
  // buffer holds no further line feed. Bytes already searched are not searched
  // again when more arrive.
  std::optional<std::string> nextLine();

  // At end of output: the bytes after the last line feed, which form one last
  // event when not empty. Empties the buffer.
  std::string takeRemainder();

  bool empty() const { return start_ == buffer_.size(); }

 private:
  std::string buffer_;
  size_t start_ = 0;       // where the unread part of buffer_ begins
  size_t scanOffset_ = 0;  // bytes after start_ known to hold no line feed
};

}  // namespace brisko
