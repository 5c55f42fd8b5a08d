#include "rules/lowercased.h"

#include <unicode/locid.h>
#include <unicode/unistr.h>

#include <algorithm>

namespace brisko::rules_internal {

std::string lowercased(std::string_view text) {
  if (std::all_of(text.begin(), text.end(),
                  [](char c) { return static_cast<unsigned char>(c) < 0x80; })) {
    std::string result(text);
    for (char& c : result) {
      if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    }
    return result;
  }
  icu::UnicodeString unicode = icu::UnicodeString::fromUTF8(
      icu::StringPiece(text.data(), static_cast<int32_t>(text.size())));
  unicode.toLower(icu::Locale::getRoot());
  std::string result;
  unicode.toUTF8String(result);
  return result;
}

}  // namespace brisko::rules_internal
