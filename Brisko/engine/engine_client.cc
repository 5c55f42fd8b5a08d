#include "engine/engine_client.h"

#include <utility>

namespace brisko {

EngineClientError EngineClientError::commandFailed(std::string command, int status,
                                                   std::string message) {
  EngineClientError error(Kind::commandFailed, "The scan engine failed to run " + command + " (" +
                                                   std::to_string(status) + "): " + message);
  error.command_ = std::move(command);
  error.status_ = status;
  error.message_ = std::move(message);
  return error;
}

EngineClientError EngineClientError::protocolMismatch(std::int64_t expected,
                                                      std::int64_t received) {
  EngineClientError error(Kind::protocolMismatch,
                          "Incompatible scan protocol: the app needs " + std::to_string(expected) +
                              ", the engine returned " + std::to_string(received) + ".");
  error.expected_ = expected;
  error.received_ = received;
  return error;
}

EngineClientError EngineClientError::executableMissing() {
  return EngineClientError(Kind::executableMissing,
                           "The built-in scan engine is missing. Please reinstall Brisko.");
}

EngineClientError EngineClientError::engineBusy() {
  return EngineClientError(Kind::engineBusy, "The scan engine is busy with another task.");
}

}  // namespace brisko
