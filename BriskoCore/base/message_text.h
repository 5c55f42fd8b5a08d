#pragma once

// Error texts quote what they were given, and what they were given may be
// anything: a megabyte of one field, an escape sequence that repaints the
// terminal, a right-to-left override that turns the line around. The engine's
// standard error is one readable line, so quoted values are bounded and every
// character that would act rather than show is written as an escape.

#include <cstddef>
#include <string>
#include <string_view>

namespace brisko {

// The most characters of a value that a message quotes before an ellipsis.
inline constexpr size_t kQuotedValueLength = 200;

// `value` between double quotes: at most kQuotedValueLength characters, then
// "…"; controls, format characters (bidirectional overrides among them) and
// line separators as \u{1B}, ill-formed bytes as \xFF, and the quote and the
// backslash themselves escaped.
std::string quotedForMessage(std::string_view value);

// A whole message made fit for one line: the same escapes (line breaks too),
// at most `limit` characters, then "…".
std::string oneLineMessage(std::string_view text, size_t limit = 2000);

}  // namespace brisko
