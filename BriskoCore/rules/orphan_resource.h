#pragma once

namespace brisko {

// Where an uninstalled application's data is looked for: ~/Library/Caches,
// ~/Library/Logs and ~/Library/Saved Application State, in this order.
enum class OrphanResource { caches, logs, savedState };

}  // namespace brisko
