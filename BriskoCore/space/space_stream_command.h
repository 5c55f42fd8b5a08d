#pragma once

// The engine's "space-stream": measures the home folder and reports the tree
// as it grows, as SpaceEvent values, ending with the whole report.

#include <functional>
#include <iosfwd>
#include <string>

#include "protocol/space_records.h"
#include "space/space_json_text.h"  // encodeSpaceEvent: the lean text of each event
#include "space/space_tree_builder.h"

namespace brisko {

struct SpaceStreamOptions {
  // Reuse the cached tree where the file-event history shows no change.
  bool incremental = false;
  SpaceTreeBuilder::Options builder;
};

// Emits `started`, then `node` for each finished root entry and `progress`
// pulses as they come, then a `warning` for each warning, then `completed`
// with the report. The cache is saved before `completed`; a cache that can't
// be saved is told on `diagnostics` and does not fail the command. Events are
// emitted one at a time, never concurrently, though not always from the
// calling thread. An exception from `emit` stops the walk and is raised again
// from here, with nothing saved. Returns the exit status (0).
int runSpaceStream(const std::string& home, const SpaceStreamOptions& options,
                   const std::function<void(const SpaceEvent&)>& emit, std::ostream& diagnostics);

}  // namespace brisko
