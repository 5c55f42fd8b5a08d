#pragma once

// The application's whole view of the engine. `BundledEngineClient` runs the
// real `BriskoEngine`, one child process a command; `DebugMockEngine` replays
// fixtures. The application holds an `EngineClient` and doesn't know which.
//
// Threads: the single-answer operations block their caller until the engine
// answered; call them from a worker, never from the main executor. The stream
// operations return at once; their events are read by a thread of the client
// and buffered without bound, so the consumer may be slow. The cancel
// operations may be called from any thread.

#include <stdexcept>
#include <string>

#include "engine/event_stream.h"
#include "protocol/engine_records.h"
#include "protocol/plan_records.h"
#include "protocol/receipt_records.h"
#include "protocol/scan_records.h"
#include "protocol/space_records.h"

namespace brisko {

// The failures of the client. `what()` is the user text.
class EngineClientError : public std::runtime_error {
 public:
  enum class Kind { commandFailed, protocolMismatch, executableMissing, engineBusy };

  static EngineClientError commandFailed(std::string command, int status, std::string message);
  static EngineClientError protocolMismatch(std::int64_t expected, std::int64_t received);
  static EngineClientError executableMissing();
  static EngineClientError engineBusy();

  Kind kind() const { return kind_; }
  // commandFailed's payload; empty or 0 for the other kinds.
  const std::string& command() const { return command_; }
  int status() const { return status_; }
  const std::string& message() const { return message_; }
  // protocolMismatch's payload; 0 for the other kinds.
  std::int64_t expected() const { return expected_; }
  std::int64_t received() const { return received_; }

 private:
  EngineClientError(Kind kind, std::string text)
      : std::runtime_error(std::move(text)), kind_(kind) {}

  Kind kind_;
  std::string command_;
  int status_ = 0;
  std::string message_;
  std::int64_t expected_ = 0;
  std::int64_t received_ = 0;
};

// A stream or an operation that ended because somebody cancelled it. Callers
// treat it as no failure.
class CancellationError : public std::runtime_error {
 public:
  CancellationError() : std::runtime_error("The operation was cancelled.") {}
};

class EngineClient {
 public:
  virtual ~EngineClient() = default;

  virtual EngineCapabilities capabilities() = 0;
  virtual DiskSnapshot overview() = 0;
  virtual EventStream<ScanEvent> scan() = 0;
  virtual void cancelScan() = 0;
  virtual CleanupPlan createPlan(const CreateCleanupPlanRequest& request) = 0;
  virtual EventStream<CleanupEvent> executePlan(const ExecuteCleanupPlanRequest& request) = 0;
  virtual void cancelCleanup() = 0;
  virtual EventStream<SpaceEvent> scanSpace(bool incremental = false) = 0;
  virtual void cancelSpaceScan() = 0;
};

}  // namespace brisko
