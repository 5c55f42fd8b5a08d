#include "engine/debug_mock_engine.h"

#include <exception>
#include <utility>

#include "base/file_contents.h"
#include "protocol/line_framer.h"

namespace brisko {

namespace {

// The failure of `command` when its `.stderr` file is there, else none.
std::exception_ptr recordedFailure(const std::string& folder, const std::string& command) {
  const auto standardError = readFileContents(folder + "/" + command + ".stderr");
  if (!standardError) return nullptr;
  return std::make_exception_ptr(EngineClientError::commandFailed(command, 1, *standardError));
}

std::string answerFile(const std::string& folder, const std::string& command, bool streamed) {
  return folder + "/" + command + (streamed ? ".jsonl" : ".json");
}

EngineClientError missingFixture(const std::string& command, const std::string& path) {
  return EngineClientError::commandFailed(command, 1, "No recorded answer at " + path + ".");
}

template <typename Answer>
Answer singleAnswer(const std::string& folder, const std::string& command) {
  if (auto failure = recordedFailure(folder, command)) std::rethrow_exception(failure);
  const std::string path = answerFile(folder, command, false);
  const auto text = readFileContents(path);
  if (!text) throw missingFixture(command, path);
  return decodeJson<Answer>(*text);
}

// The whole recorded stream at once: the replay has nothing to wait for, so
// the events are buffered before the consumer sees the stream.
template <typename Event>
EventStream<Event> replay(const std::string& folder, const std::string& command) {
  auto [stream, sink] = EventStream<Event>::make();
  const std::string path = answerFile(folder, command, true);
  const auto text = readFileContents(path);
  if (!text) {
    sink.finish(std::make_exception_ptr(missingFixture(command, path)));
    return std::move(stream);
  }
  try {
    LineFramer framer;
    framer.append(*text);
    while (auto line = framer.nextLine())
      sink.yield(decodeJson<Event>(*line));
    if (const std::string rest = framer.takeRemainder(); !rest.empty())
      sink.yield(decodeJson<Event>(rest));
  } catch (...) {
    sink.finish(std::current_exception());
    return std::move(stream);
  }
  sink.finish(recordedFailure(folder, command));
  return std::move(stream);
}

}  // namespace

DebugMockEngine::DebugMockEngine(std::string fixtureFolder)
    : fixtureFolder_(std::move(fixtureFolder)) {}

EngineCapabilities DebugMockEngine::capabilities() {
  return singleAnswer<EngineCapabilities>(fixtureFolder_, "capabilities");
}

DiskSnapshot DebugMockEngine::overview() {
  return singleAnswer<DiskSnapshot>(fixtureFolder_, "overview");
}

EventStream<ScanEvent> DebugMockEngine::scan() {
  return replay<ScanEvent>(fixtureFolder_, "scan-stream");
}

CleanupPlan DebugMockEngine::createPlan(const CreateCleanupPlanRequest&) {
  return singleAnswer<CleanupPlan>(fixtureFolder_, "create-plan");
}

EventStream<CleanupEvent> DebugMockEngine::executePlan(const ExecuteCleanupPlanRequest&) {
  return replay<CleanupEvent>(fixtureFolder_, "execute-plan");
}

EventStream<SpaceEvent> DebugMockEngine::scanSpace(bool) {
  return replay<SpaceEvent>(fixtureFolder_, "space-stream");
}

// A replayed stream is complete when it is handed out: nothing to stop.
void DebugMockEngine::cancelScan() {}
void DebugMockEngine::cancelCleanup() {}
void DebugMockEngine::cancelSpaceScan() {}

}  // namespace brisko
