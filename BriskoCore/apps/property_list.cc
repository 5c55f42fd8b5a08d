#include "apps/property_list.h"

#include <plist/plist.h>

#include <limits>

#include "base/file_contents.h"
#include "base/utf8.h"

namespace brisko {

void PropertyList::Free::operator()(void* node) const {
  plist_free(static_cast<plist_t>(node));
}

std::optional<PropertyList> PropertyList::parse(std::string_view bytes) {
  if (bytes.substr(0, 3) == "\xEF\xBB\xBF") bytes.remove_prefix(3);
  if (bytes.size() < 8 || bytes.size() > std::numeric_limits<uint32_t>::max()) return std::nullopt;
  plist_t root = nullptr;
  plist_from_memory(bytes.data(), static_cast<uint32_t>(bytes.size()), &root);
  if (root == nullptr) return std::nullopt;
  if (plist_get_node_type(root) != PLIST_DICT) {
    plist_free(root);
    return std::nullopt;
  }
  return PropertyList(std::shared_ptr<void>(root, Free{}));
}

std::optional<PropertyList> PropertyList::read(const std::string& path) {
  const auto bytes = readFileContents(path, 8 * 1024 * 1024);
  if (!bytes) return std::nullopt;
  return parse(*bytes);
}

PropertyList::Value PropertyList::value(const char* key) const {
  plist_t node = plist_dict_get_item(static_cast<plist_t>(root_.get()), key);
  if (node == nullptr) return {};
  if (plist_get_node_type(node) != PLIST_STRING) return {Lookup::notText, {}};
  uint64_t length = 0;
  const char* text = plist_get_string_ptr(node, &length);
  if (text == nullptr) return {Lookup::notText, {}};
  std::string value(text, length);
  if (!isValidUtf8(value)) return {Lookup::notText, {}};
  return {Lookup::text, std::move(value)};
}

}  // namespace brisko
