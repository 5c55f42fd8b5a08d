#include "apps/installed_application.h"

#include <array>
#include <utility>

#include "base/unicode_text.h"
#include "base/utf8.h"

namespace brisko {
namespace {

constexpr std::array<std::pair<ApplicationSource, std::string_view>, 9> kNames{{
    {ApplicationSource::bundle, "bundle"},
    {ApplicationSource::flatpakUser, "flatpakUser"},
    {ApplicationSource::flatpakSystem, "flatpakSystem"},
    {ApplicationSource::appImage, "appImage"},
    {ApplicationSource::webApp, "webApp"},
    {ApplicationSource::homeFolder, "homeFolder"},
    {ApplicationSource::brokenEntry, "brokenEntry"},
    {ApplicationSource::snap, "snap"},
    {ApplicationSource::system, "system"},
}};

// Length of the UTF-8 sequence that starts with `lead`, 1 for a stray byte.
size_t sequenceLength(unsigned char lead) {
  if (lead >= 0xF0) return 4;
  if (lead >= 0xE0) return 3;
  if (lead >= 0xC0) return 2;
  return 1;
}

}  // namespace

std::string_view applicationSourceName(ApplicationSource source) {
  for (const auto& [value, name] : kNames) {
    if (value == source) return name;
  }
  return "bundle";
}

std::optional<ApplicationSource> applicationSourceNamed(std::string_view name) {
  for (const auto& [value, text] : kNames) {
    if (text == name) return value;
  }
  return std::nullopt;
}

std::string displayableName(std::string_view name) {
  const std::string repaired = repairedUtf8(name);
  if (!hasControlCharacter(repaired)) return repaired;
  std::string kept;
  kept.reserve(repaired.size());
  for (size_t i = 0; i < repaired.size();) {
    const size_t length =
        std::min(sequenceLength(static_cast<unsigned char>(repaired[i])), repaired.size() - i);
    const std::string_view scalar(repaired.data() + i, length);
    if (!hasControlCharacter(scalar)) kept.append(scalar);
    i += length;
  }
  return kept;
}

}  // namespace brisko
