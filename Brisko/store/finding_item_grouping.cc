#include "store/finding_item_grouping.h"

#include <algorithm>
#include <map>

namespace brisko {

std::int64_t FindingItemGrouping::Group::bytes() const {
  std::int64_t total = 0;
  for (const ScanFindingItem& item : items)
    total += item.bytes;
  return total;
}

std::vector<FindingItemGrouping::Group> FindingItemGrouping::groups(const ScanFinding& finding) {
  if (!finding.items) return {};
  std::map<std::string, std::vector<ScanFindingItem>> byTitle;
  for (const ScanFindingItem& item : *finding.items)
    byTitle[item.title.empty() ? finding.title : item.title].push_back(item);

  std::vector<Group> groups;
  for (auto& [title, items] : byTitle) {
    std::sort(items.begin(), items.end(),
              [](const ScanFindingItem& left, const ScanFindingItem& right) {
                if (left.bytes != right.bytes) return left.bytes > right.bytes;
                return left.path < right.path;
              });
    groups.push_back(Group{title, std::move(items)});
  }
  std::stable_sort(groups.begin(), groups.end(), [](const Group& left, const Group& right) {
    return left.bytes() > right.bytes();  // the map gave title order for ties
  });
  return groups;
}

}  // namespace brisko
