#include "base/message_text.h"

#include <unicode/uchar.h>
#include <unicode/utf8.h>

#include <cstdint>
#include <cstdio>

namespace brisko {

namespace {

bool actsRatherThanShows(UChar32 c) {
  const int8_t type = u_charType(c);
  return type == U_CONTROL_CHAR || type == U_FORMAT_CHAR || type == U_LINE_SEPARATOR ||
         type == U_PARAGRAPH_SEPARATOR;
}

void appendByteEscape(std::string& out, unsigned char byte) {
  char buffer[8];
  std::snprintf(buffer, sizeof buffer, "\\x%02X", static_cast<unsigned>(byte));
  out += buffer;
}

void appendCharacterEscape(std::string& out, UChar32 c) {
  char buffer[16];
  std::snprintf(buffer, sizeof buffer, "\\u{%X}", static_cast<unsigned>(c));
  out += buffer;
}

// Appends at most `limit` characters of `text`, escaped, and an ellipsis when
// some were left out.
void appendEscaped(std::string& out, std::string_view text, size_t limit, bool escapeQuotes) {
  const char* bytes = text.data();
  const auto length = static_cast<int64_t>(text.size());
  int64_t at = 0;
  size_t characters = 0;
  while (at < length) {
    if (characters == limit) {
      out += "\u2026";
      return;
    }
    const int64_t start = at;
    UChar32 c;
    U8_NEXT(bytes, at, length, c);
    ++characters;
    if (c < 0) {
      for (int64_t i = start; i < at; ++i)
        appendByteEscape(out, static_cast<unsigned char>(bytes[i]));
    } else if (actsRatherThanShows(c)) {
      appendCharacterEscape(out, c);
    } else if (escapeQuotes && (c == '"' || c == '\\')) {
      out += '\\';
      out += static_cast<char>(c);
    } else {
      out.append(bytes + start, static_cast<size_t>(at - start));
    }
  }
}

}  // namespace

std::string quotedForMessage(std::string_view value) {
  std::string out = "\"";
  appendEscaped(out, value, kQuotedValueLength, /*escapeQuotes=*/true);
  out += '"';
  return out;
}

std::string oneLineMessage(std::string_view text, size_t limit) {
  std::string out;
  appendEscaped(out, text, limit, /*escapeQuotes=*/false);
  return out;
}

}  // namespace brisko
