#include "platform/spotlight_query.h"

namespace brisko {

std::string spotlightBundleIDQuery(std::string_view bundleID) {
  std::string escaped;
  for (char c : bundleID) {
    if (c == '\\') {
      escaped += "\\\\";
    } else if (c == '"') {
      escaped += "\\\"";
    } else {
      escaped += c;
    }
  }
  return "kMDItemCFBundleIdentifier == \"" + escaped + "\"c";
}

}  // namespace brisko
