#pragma once

#include <string>
#include <string_view>

namespace brisko {

// The Spotlight query for applications with this bundle identifier, compared
// without regard to case: kMDItemCFBundleIdentifier == "<identifier>"c. Each
// backslash is doubled first, then each double quote escaped, so that no
// identifier can end the quoted string early.
std::string spotlightBundleIDQuery(std::string_view bundleID);

}  // namespace brisko
