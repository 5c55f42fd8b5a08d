#pragma once

#include <cstdint>

namespace brisko {

// The version of the engine's wire format. Compared for equality only: an
// engine and an application agree on exactly one version.
struct EngineProtocol {
  static constexpr std::int64_t version = 3;
};

}  // namespace brisko
