#include "space/space_stream_command.h"

#include <atomic>
#include <chrono>
#include <exception>
#include <memory>
#include <ostream>
#include <thread>

#include "platform/fs_events_replay.h"
#include "space/space_cache_store.h"
#include "space/space_naming.h"
#include "space/space_reuse_oracle.h"

namespace brisko {
namespace {

constexpr std::chrono::seconds kReplayTimeout{30};

// The stored tree, if the history since it was made is known; else nothing.
std::unique_ptr<SpaceReuseOracle> oracleFromCache(const std::string& home,
                                                  const SpaceCacheStore& store) {
  auto envelope = store.load();
  if (!envelope || !envelope->eventState) return nullptr;
  const auto device = FSEventsReplay::deviceUUID(home);
  if (!device || *device != envelope->eventState->deviceUUID) return nullptr;
  auto changed =
      FSEventsReplay::changedPaths(home, envelope->eventState->lastEventID, kReplayTimeout);
  auto* paths = std::get_if<std::vector<std::string>>(&changed);
  if (paths == nullptr) return nullptr;
  return std::make_unique<SpaceReuseOracle>(std::move(envelope->report.root), std::move(*paths));
}

SpaceEvent eventOf(SpaceEventKind kind) {
  SpaceEvent event;
  event.kind = kind;
  return event;
}

}  // namespace

int runSpaceStream(const std::string& home, const SpaceStreamOptions& options,
                   const std::function<void(const SpaceEvent&)>& emit, std::ostream& diagnostics) {
  const SpaceCacheStore store = SpaceCacheStore::forHome(home);
  const Date scannedAt = currentDate();
  // Taken before the walk, so that what changes during it is replayed next time.
  const auto deviceUUID = FSEventsReplay::deviceUUID(home);
  const auto eventID = FSEventsReplay::currentEventID(home);
  const auto oracle = options.incremental ? oracleFromCache(home, store) : nullptr;

  // The walk's callbacks run on its worker threads, where an exception must
  // not escape: a failed write (the reader went away) stops the walk instead,
  // and is raised again here once the workers are done.
  std::atomic<bool> stop{false};
  std::exception_ptr emitFailure;
  const auto emitDuringWalk = [&](const SpaceEvent& event) {
    if (stop) return;
    try {
      emit(event);
    } catch (...) {
      emitFailure = std::current_exception();
      stop = true;
    }
  };

  const SpaceTreeBuilder builder(options.builder);
  auto result = builder.build(
      home,
      [&](std::int64_t rootEntries) {
        SpaceEvent event = eventOf(SpaceEventKind::started);
        event.progress = SpaceScanProgress{0, rootEntries, std::nullopt, 0.0, 0};
        emitDuringWalk(event);
      },
      [&](const SpaceNode& node, const SpaceScanProgress& progress) {
        SpaceEvent event = eventOf(SpaceEventKind::node);
        event.node = node;
        event.progress = progress;
        emitDuringWalk(event);
      },
      [&](const SpaceScanProgress& progress) {
        SpaceEvent event = eventOf(SpaceEventKind::progress);
        event.progress = progress;
        emitDuringWalk(event);
      },
      oracle.get(), &stop);
  // A tree cut short by a lost reader is neither reported nor stored.
  if (emitFailure) std::rethrow_exception(emitFailure);

  for (const auto& warning : result.warnings) {
    SpaceEvent event = eventOf(SpaceEventKind::warning);
    event.warning = warning;
    emit(event);
  }

  SpaceScanCacheEnvelope envelope;
  envelope.namingLanguage = SpaceNaming::namingLanguage();
  envelope.report.scannedAt = wholeSeconds(scannedAt);
  envelope.report.root = std::move(result.root);
  envelope.report.largeFiles = std::move(result.largeFiles);
  envelope.report.warnings = std::move(result.warnings);
  if (deviceUUID && eventID)
    envelope.eventState = SpaceScanCacheEnvelope::EventState{*deviceUUID, *eventID};

  // The cache's pretty text and the completed event's lean one are each some
  // megabytes for a large home, made from the same tree: made side by side,
  // the reader waits for one, not both.
  SpaceEvent completed = eventOf(SpaceEventKind::completed);
  completed.report = envelope.report;
  std::string saveFailure;
  {
    std::jthread saver([&] {
      try {
        store.save(envelope);
      } catch (const std::exception& error) {
        saveFailure = error.what();
      }
    });
    emit(completed);
  }
  if (!saveFailure.empty()) {
    diagnostics << "space-stream: the space cache could not be saved at " << store.path() << ": "
                << saveFailure << '\n';
  }
  return 0;
}

}  // namespace brisko
