#pragma once

// JSON text of the records that carry a whole space tree: the "completed"
// event and the cache file. The text is exactly what encodeJson gives, but it
// is written node by node instead of through one JSON value of the whole tree,
// which for a large home folder would take several times the tree's memory.

#include <string>

#include "protocol/space_records.h"
#include "space/space_cache_store.h"

namespace brisko {

// One compact line (without the line feed). Throws EncodingError.
std::string encodeSpaceEvent(const SpaceEvent& event);

// Throws EncodingError.
std::string encodeSpaceCacheEnvelope(const SpaceScanCacheEnvelope& envelope, bool pretty);

}  // namespace brisko
