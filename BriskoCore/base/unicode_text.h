#pragma once

// Unicode-aware text helpers for paths and user-typed rules. The input is
// UTF-8; each helper says what it does with bytes that are not.

#include <string>
#include <string_view>

namespace brisko {

// Full Unicode lower-casing in the root locale (so the KELVIN SIGN becomes "k"
// and "İ" becomes "i̇"), with a fast path for pure ASCII. Ill-formed sequences
// are copied unchanged; only the well-formed text around them is folded.
std::string lowercasedText(std::string_view utf8);

// What a check over the scalars of a text found.
enum class ScalarCheck { clean, controlCharacter, invalidUtf8 };

// Looks, in text order, for the first scalar of the general categories Cc or
// Cf (controls, and format characters such as U+200B or U+FEFF) or the first
// ill-formed sequence, and says which it met.
ScalarCheck checkScalars(std::string_view utf8);

// True for a Cc or Cf scalar, and also for ill-formed bytes, which are no
// characters at all and are refused alike.
bool hasControlCharacter(std::string_view utf8);

// The text without leading and trailing blanks: the category Zs and the tab.
std::string_view trimmingWhitespace(std::string_view utf8);

// The text without leading and trailing blanks and line breaks: the categories
// Zs, Zl and Zp, U+0009 to U+000D and U+0085.
std::string_view trimmingWhitespaceAndNewlines(std::string_view utf8);

}  // namespace brisko
