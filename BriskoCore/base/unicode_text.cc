#include "base/unicode_text.h"

#include <unicode/bytestream.h>
#include <unicode/casemap.h>
#include <unicode/uchar.h>
#include <unicode/utf8.h>

#include <cstdint>
#include <limits>

namespace brisko {

namespace {

bool isAscii(std::string_view text) {
  for (const char c : text) {
    if (static_cast<unsigned char>(c) >= 0x80) return false;
  }
  return true;
}

// ICU counts in int32_t; longer texts are folded in pieces cut after a "/"
// where there is one (a "/" is neither cased nor case-ignorable, so no casing
// context reaches across it), else at a character boundary.
void appendLowercased(std::string_view text, std::string& out) {
  constexpr size_t kLargestPiece = std::numeric_limits<int32_t>::max() / 4;
  while (!text.empty()) {
    std::string_view piece = text;
    if (piece.size() > kLargestPiece) {
      size_t cut = text.rfind('/', kLargestPiece);
      if (cut == std::string_view::npos || cut == 0) {
        cut = kLargestPiece;
        while (cut > 0 && (static_cast<unsigned char>(text[cut]) & 0xC0) == 0x80)
          --cut;
        if (cut == 0) cut = kLargestPiece;
      }
      piece = text.substr(0, cut);
    }
    icu::StringByteSink<std::string> sink(&out);
    UErrorCode error = U_ZERO_ERROR;
    // Ill-formed bytes pass through unchanged.
    icu::CaseMap::utf8ToLower("", 0,
                              icu::StringPiece(piece.data(), static_cast<int32_t>(piece.size())),
                              sink, nullptr, error);
    if (U_FAILURE(error)) {
      // Only an allocation failure gets here; the ASCII letters at least fold.
      for (const char c : piece) {
        out.push_back(c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c);
      }
    }
    text.remove_prefix(piece.size());
  }
}

bool isBlank(UChar32 c) {
  return c == '\t' || u_charType(c) == U_SPACE_SEPARATOR;
}

bool isBlankOrNewline(UChar32 c) {
  if ((c >= 0x09 && c <= 0x0D) || c == 0x85) return true;
  const int8_t type = u_charType(c);
  return type == U_SPACE_SEPARATOR || type == U_LINE_SEPARATOR || type == U_PARAGRAPH_SEPARATOR;
}

template <class Predicate>
std::string_view trimming(std::string_view text, Predicate shouldTrim) {
  const char* bytes = text.data();
  const auto length = static_cast<int64_t>(text.size());
  int64_t start = 0;
  while (start < length) {
    int64_t next = start;
    UChar32 c;
    U8_NEXT(bytes, next, length, c);
    if (c < 0 || !shouldTrim(c)) break;
    start = next;
  }
  int64_t end = length;
  while (end > start) {
    // Step back to the lead byte of the last character, then decode it forwards.
    int64_t lead = end - 1;
    while (lead > start && end - lead < 4 &&
           (static_cast<unsigned char>(bytes[lead]) & 0xC0) == 0x80) {
      --lead;
    }
    int64_t next = lead;
    UChar32 c;
    U8_NEXT(bytes, next, end, c);
    if (c < 0 || next != end || !shouldTrim(c)) break;
    end = lead;
  }
  return text.substr(static_cast<size_t>(start), static_cast<size_t>(end - start));
}

}  // namespace

std::string lowercasedText(std::string_view utf8) {
  std::string out;
  if (isAscii(utf8)) {
    out.resize(utf8.size());
    for (size_t i = 0; i < utf8.size(); ++i) {
      const char c = utf8[i];
      out[i] = c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
    }
    return out;
  }
  out.reserve(utf8.size());
  appendLowercased(utf8, out);
  return out;
}

ScalarCheck checkScalars(std::string_view utf8) {
  const char* bytes = utf8.data();
  const auto length = static_cast<int64_t>(utf8.size());
  int64_t at = 0;
  while (at < length) {
    const auto byte = static_cast<unsigned char>(bytes[at]);
    if (byte < 0x80) {
      if (byte < 0x20 || byte == 0x7F) return ScalarCheck::controlCharacter;
      ++at;
      continue;
    }
    UChar32 c;
    U8_NEXT(bytes, at, length, c);
    if (c < 0) return ScalarCheck::invalidUtf8;
    const int8_t type = u_charType(c);
    if (type == U_CONTROL_CHAR || type == U_FORMAT_CHAR) return ScalarCheck::controlCharacter;
  }
  return ScalarCheck::clean;
}

bool hasControlCharacter(std::string_view utf8) {
  return checkScalars(utf8) != ScalarCheck::clean;
}

std::string_view trimmingWhitespace(std::string_view utf8) {
  return trimming(utf8, isBlank);
}

std::string_view trimmingWhitespaceAndNewlines(std::string_view utf8) {
  return trimming(utf8, isBlankOrNewline);
}

}  // namespace brisko
