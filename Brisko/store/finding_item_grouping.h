#pragma once

// A finding's items in labelled groups, for the list's open rows.
//
// The order is Brisko's own: items that share a title (the folders of one
// application's cache, the versions of one tool) form a group under that
// title; an item without a title joins the group of its finding's title.
// Groups come largest first by the sum of their items' bytes, equal sums by
// title (byte order); inside a group items come largest first, equal sizes by
// path. So the heaviest things sit at the top, and a group never splits.

#include <cstdint>
#include <string>
#include <vector>

#include "protocol/scan_records.h"

namespace brisko {

struct FindingItemGrouping {
  struct Group {
    std::string title;
    std::vector<ScanFindingItem> items;

    std::int64_t bytes() const;
    bool operator==(const Group&) const = default;
  };

  // No groups for a finding without items.
  static std::vector<Group> groups(const ScanFinding& finding);
};

}  // namespace brisko
