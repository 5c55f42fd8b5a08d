#include "base/uuid.h"

#include <sys/random.h>

#include <stdexcept>

namespace brisko {

namespace {

int hexValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  return -1;
}

bool isDashPosition(size_t index) {
  return index == 8 || index == 13 || index == 18 || index == 23;
}

}  // namespace

Uuid Uuid::random() {
  Uuid uuid;
  size_t filled = 0;
  while (filled < uuid.bytes.size()) {
    const ssize_t got = getrandom(uuid.bytes.data() + filled, uuid.bytes.size() - filled, 0);
    if (got < 0) {
      if (errno == EINTR) continue;
      throw std::runtime_error("The system's random source could not be read.");
    }
    filled += static_cast<size_t>(got);
  }
  uuid.bytes[6] = static_cast<std::uint8_t>((uuid.bytes[6] & 0x0F) | 0x40);
  uuid.bytes[8] = static_cast<std::uint8_t>((uuid.bytes[8] & 0x3F) | 0x80);
  return uuid;
}

std::optional<Uuid> Uuid::parse(std::string_view text) {
  if (text.size() != 36) return std::nullopt;
  Uuid uuid;
  size_t byte = 0;
  for (size_t i = 0; i < text.size();) {
    if (isDashPosition(i)) {
      if (text[i] != '-') return std::nullopt;
      ++i;
      continue;
    }
    const int high = hexValue(text[i]);
    const int low = hexValue(text[i + 1]);
    if (high < 0 || low < 0 || isDashPosition(i + 1)) return std::nullopt;
    uuid.bytes[byte++] = static_cast<std::uint8_t>(high * 16 + low);
    i += 2;
  }
  return uuid;
}

std::string Uuid::text() const {
  static constexpr char kDigits[] = "0123456789ABCDEF";
  std::string out;
  out.reserve(36);
  for (size_t i = 0; i < bytes.size(); ++i) {
    if (i == 4 || i == 6 || i == 8 || i == 10) out.push_back('-');
    out.push_back(kDigits[bytes[i] >> 4]);
    out.push_back(kDigits[bytes[i] & 0x0F]);
  }
  return out;
}

}  // namespace brisko
