#include "base/utf8.h"

namespace brisko {

namespace {

// Length of the well-formed sequence at `at`, or 0 when the bytes there are not one.
size_t sequenceLength(std::string_view bytes, size_t at) {
  const auto byte = [&](size_t i) { return static_cast<unsigned char>(bytes[i]); };
  const unsigned char lead = byte(at);
  if (lead < 0x80) return 1;
  size_t length;
  unsigned char low = 0x80, high = 0xBF;  // allowed range of the second byte
  if (lead >= 0xC2 && lead <= 0xDF) {
    length = 2;
  } else if (lead >= 0xE0 && lead <= 0xEF) {
    length = 3;
    if (lead == 0xE0) low = 0xA0;   // overlong
    if (lead == 0xED) high = 0x9F;  // surrogates
  } else if (lead >= 0xF0 && lead <= 0xF4) {
    length = 4;
    if (lead == 0xF0) low = 0x90;   // overlong
    if (lead == 0xF4) high = 0x8F;  // above U+10FFFF
  } else {
    return 0;
  }
  if (at + length > bytes.size()) return 0;
  if (byte(at + 1) < low || byte(at + 1) > high) return 0;
  for (size_t i = 2; i < length; ++i) {
    if ((byte(at + i) & 0xC0) != 0x80) return 0;
  }
  return length;
}

}  // namespace

bool isValidUtf8(std::string_view bytes) {
  size_t at = 0;
  while (at < bytes.size()) {
    // Runs of ASCII are the common case in paths.
    if (static_cast<unsigned char>(bytes[at]) < 0x80) {
      ++at;
      continue;
    }
    const size_t length = sequenceLength(bytes, at);
    if (length == 0) return false;
    at += length;
  }
  return true;
}

std::string repairedUtf8(std::string_view bytes) {
  std::string out;
  out.reserve(bytes.size());
  size_t at = 0;
  while (at < bytes.size()) {
    const size_t length = sequenceLength(bytes, at);
    if (length == 0) {
      out += "\xEF\xBF\xBD";
      ++at;
    } else {
      out.append(bytes.substr(at, length));
      at += length;
    }
  }
  return out;
}

}  // namespace brisko
