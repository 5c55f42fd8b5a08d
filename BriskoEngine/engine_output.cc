#include "engine_output.h"

#include <unistd.h>

#include <cerrno>
#include <system_error>

namespace brisko::engine {

void EngineOutput::writeRaw(std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t written = ::write(fd_, bytes.data(), bytes.size());
    if (written < 0) {
      if (errno == EINTR) continue;
      throw std::system_error(errno, std::generic_category(), "Cannot write to standard output");
    }
    bytes.remove_prefix(static_cast<size_t>(written));
  }
}

}  // namespace brisko::engine
