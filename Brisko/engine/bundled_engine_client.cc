#include "engine/bundled_engine_client.h"

#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <climits>
#include <thread>

#include "base/path_components.h"
#include "base/utf8.h"
#include "protocol/json_codec.h"
#include "protocol/line_framer.h"

namespace brisko {

namespace {

std::string joined(const std::vector<std::string>& arguments) {
  std::string text;
  for (const auto& argument : arguments) {
    if (!text.empty()) text += ' ';
    text += argument;
  }
  return text;
}

EngineClientError failureOf(const ChildProcess& process, int status) {
  // The engine's own words, whole: not trimmed, broken UTF-8 repaired.
  return EngineClientError::commandFailed(joined(process.arguments()), status,
                                          repairedUtf8(process.standardError()));
}

bool isExecutableFile(const std::string& path) {
  struct stat info;
  return ::stat(path.c_str(), &info) == 0 && S_ISREG(info.st_mode) &&
         ::access(path.c_str(), X_OK) == 0;
}

// Set when the consumer stopped or the stream ended; the stream's own cancel.
using TaskFlag = std::shared_ptr<std::atomic<bool>>;

// Runs one streaming command to its end on the calling thread and ends the
// stream: events in the order the engine wrote them, then the outcome.
template <typename Event>
void runStreamBody(const std::shared_ptr<ChildProcess>& process, const std::string& input,
                   EngineProcessSession& session, const TaskFlag& taskCancelled,
                   const EventSink<Event>& sink) {
  try {
    session.take(process);
  } catch (...) {
    sink.finish(std::current_exception());  // engineBusy, before anything ran
    return;
  }
  // Whatever happens below, the session is free again before the stream ends.
  struct Release {
    EngineProcessSession& session;
    const std::shared_ptr<ChildProcess>& process;
    ~Release() { session.release(process); }
  };
  std::exception_ptr outcome;
  {
    Release release{session, process};
    // A consumer that is already gone doesn't need the engine started.
    if (taskCancelled->load()) {
      outcome = std::make_exception_ptr(CancellationError());
    } else {
      outcome = [&]() -> std::exception_ptr {
        try {
          process->launch();
        } catch (...) {
          return std::current_exception();
        }
        LineFramer framer;
        std::exception_ptr decodingError;
        process->communicate(input, [&](std::string_view chunk) {
          framer.append(chunk);
          while (auto line = framer.nextLine()) {
            try {
              sink.yield(decodeJson<Event>(*line));
            } catch (...) {
              decodingError = std::current_exception();
              return false;
            }
          }
          return true;
        });
        const int status = process->wait();
        if (decodingError) return decodingError;
        if (session.didRequestCancellation() || taskCancelled->load())
          return std::make_exception_ptr(CancellationError());
        // A last line without its line feed still counts, even from an engine
        // that then failed.
        if (const std::string rest = framer.takeRemainder(); !rest.empty()) {
          try {
            sink.yield(decodeJson<Event>(rest));
          } catch (...) {
            return std::current_exception();
          }
        }
        if (status != 0) return std::make_exception_ptr(failureOf(*process, status));
        return nullptr;
      }();
    }
  }
  sink.finish(outcome);
}

}  // namespace

BundledEngineClient::BundledEngineClient(std::optional<std::string> executable,
                                         SettingsStore settings)
    : executable_(std::move(executable)),
      settings_(std::move(settings)),
      session_(std::make_shared<EngineProcessSession>()) {}

BundledEngineClient::BundledEngineClient()
    : BundledEngineClient(bundledExecutablePath(), SettingsStore(SettingsStore::defaultPath())) {}

std::optional<std::string> BundledEngineClient::bundledExecutablePath() {
  char self[PATH_MAX];
  const ssize_t length = ::readlink("/proc/self/exe", self, sizeof self - 1);
  if (length <= 0) return std::nullopt;
  const std::string folder = parentPath(std::string_view(self, static_cast<size_t>(length)));
  for (const std::string& candidate :
       {folder + "/BriskoEngine", parentPath(folder) + "/libexec/brisko/BriskoEngine"}) {
    struct stat info;
    if (::stat(candidate.c_str(), &info) == 0) return candidate;
  }
  return std::nullopt;
}

std::string BundledEngineClient::runnableExecutable() const {
  if (!executable_ || !isExecutableFile(*executable_)) throw EngineClientError::executableMissing();
  return *executable_;
}

std::string BundledEngineClient::runSingleAnswer(std::vector<std::string> arguments,
                                                 std::string input) {
  ChildProcess process(runnableExecutable(), std::move(arguments), !input.empty());
  process.launch();
  std::string output;
  process.communicate(input, [&](std::string_view chunk) {
    output.append(chunk);
    return true;
  });
  const int status = process.wait();
  if (status != 0) throw failureOf(process, status);
  return output;
}

template <typename Event>
EventStream<Event> BundledEngineClient::stream(std::vector<std::string> arguments,
                                               std::string input) {
  std::string executable;
  try {
    executable = runnableExecutable();
  } catch (...) {
    return EventStream<Event>::failed(std::current_exception());
  }
  auto taskCancelled = std::make_shared<std::atomic<bool>>(false);
  auto session = session_;
  auto process =
      std::make_shared<ChildProcess>(std::move(executable), std::move(arguments), !input.empty());
  // Also runs when the stream ended by itself, by then maybe after the next
  // stream took the session: so it reaches this stream's process only.
  auto [events, sink] = EventStream<Event>::make([taskCancelled, session, process] {
    taskCancelled->store(true);
    session->cancel(process);
  });
  // The thread owns what it uses; the stream's consumer may be long gone when
  // it reaps the process.
  std::thread([process, input = std::move(input), session, taskCancelled, sink = sink] {
    try {
      runStreamBody<Event>(process, input, *session, taskCancelled, sink);
    } catch (...) {
      sink.finish(std::current_exception());
    }
  }).detach();
  return std::move(events);
}

EngineCapabilities BundledEngineClient::capabilities() {
  return decodeJson<EngineCapabilities>(runSingleAnswer({"capabilities"}));
}

DiskSnapshot BundledEngineClient::overview() {
  return decodeJson<DiskSnapshot>(runSingleAnswer({"overview"}));
}

EventStream<ScanEvent> BundledEngineClient::scan() {
  std::vector<std::string> arguments{"scan-stream"};
  const bool scanInstallers =
      installersOverride_.value_or(settings_.boolValue(kDownloadedInstallersSetting) != false);
  if (!scanInstallers) arguments.push_back("--exclude-installers");
  return stream<ScanEvent>(std::move(arguments));
}

void BundledEngineClient::cancelScan() {
  session_->cancel();
}

CleanupPlan BundledEngineClient::createPlan(const CreateCleanupPlanRequest& request) {
  runnableExecutable();
  std::string input = encodeJson(request);
  return decodeJson<CleanupPlan>(runSingleAnswer({"create-plan"}, std::move(input)));
}

EventStream<CleanupEvent> BundledEngineClient::executePlan(
    const ExecuteCleanupPlanRequest& request) {
  std::string input;
  try {
    input = encodeJson(request);
  } catch (...) {
    return EventStream<CleanupEvent>::failed(std::current_exception());
  }
  return stream<CleanupEvent>({"execute-plan"}, std::move(input));
}

void BundledEngineClient::cancelCleanup() {
  session_->cancel();
}

EventStream<SpaceEvent> BundledEngineClient::scanSpace(bool incremental) {
  std::vector<std::string> arguments{"space-stream"};
  if (incremental) arguments.push_back("--incremental");
  return stream<SpaceEvent>(std::move(arguments));
}

void BundledEngineClient::cancelSpaceScan() {
  session_->cancel();
}

}  // namespace brisko
