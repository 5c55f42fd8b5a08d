#include "protocol/line_framer.h"

namespace brisko {

void LineFramer::append(std::string_view chunk) {
  // Drop consumed bytes once they outweigh the rest, so memory stays bounded by
  // the longest line without shifting the buffer on every line.
  if (start_ > 0 && start_ >= buffer_.size() - start_) {
    buffer_.erase(0, start_);
    start_ = 0;
  }
  buffer_.append(chunk);
}

std::optional<std::string> LineFramer::nextLine() {
  while (true) {
    const size_t feed = buffer_.find('\n', start_ + scanOffset_);
    if (feed == std::string::npos) {
      scanOffset_ = buffer_.size() - start_;
      return std::nullopt;
    }
    std::string line = buffer_.substr(start_, feed - start_);
    start_ = feed + 1;
    scanOffset_ = 0;
    if (!line.empty()) return line;
  }
}

std::string LineFramer::takeRemainder() {
  std::string rest = buffer_.substr(start_);
  buffer_.clear();
  start_ = 0;
  scanOffset_ = 0;
  return rest;
}

}  // namespace brisko
