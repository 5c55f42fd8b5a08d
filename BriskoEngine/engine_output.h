#pragma once

// Standard output of the engine: nothing but JSON. Streamed commands write one
// event per line and each line leaves the process at once, because the
// application shows progress as it reads.

#include <string>
#include <string_view>

#include "protocol/json_codec.h"

namespace brisko::engine {

class EngineOutput {
 public:
  explicit EngineOutput(int fd = 1) : fd_(fd) {}

  // One event as a compact line, written with a single system call where the
  // pipe allows. Throws std::system_error when the reader is gone.
  template <class Event>
  void writeLine(const Event& event) {
    writeRaw(encodeJson(event) + "\n");
  }

  // The one answer of a single-answer command.
  template <class Record>
  void writeDocument(const Record& record) {
    writeRaw(encodeJson(record, /*pretty=*/true) + "\n");
  }

  void writeRaw(std::string_view bytes);

 private:
  int fd_;
};

}  // namespace brisko::engine
