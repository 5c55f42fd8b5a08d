#include "text/app_texts.h"

#include <cctype>
#include <variant>

#include "protocol/brisko_formatting.h"
#include "protocol/engine_text.h"

namespace brisko::AppText {

std::string localized(std::string_view key) {
  // English is the only language so far: the key is its own text.
  return std::string(key);
}

std::string formatted(std::string_view format, const std::vector<std::string>& arguments) {
  const std::string text = localized(format);
  std::string result;
  size_t nextArgument = 0;
  for (size_t i = 0; i < text.size(); ++i) {
    if (text[i] != '%') {
      result += text[i];
      continue;
    }
    if (i + 1 < text.size() && text[i + 1] == '%') {
      result += '%';
      ++i;
      continue;
    }
    size_t j = i + 1;
    size_t position = 0;
    while (j < text.size() && std::isdigit(static_cast<unsigned char>(text[j])))
      position = position * 10 + static_cast<size_t>(text[j++] - '0');
    const bool positional = j < text.size() && text[j] == '$' && position > 0;
    if (positional)
      ++j;
    else
      j = i + 1;
    while (j < text.size() && (text[j] == 'l' || text[j] == 'q'))
      ++j;
    if (j >= text.size() || (text[j] != '@' && text[j] != 'd')) {
      result += '%';
      continue;
    }
    const size_t index = positional ? position - 1 : nextArgument++;
    if (index < arguments.size())
      result += arguments[index];
    else
      result.append(text, i, j + 1 - i);
    i = j;
  }
  return result;
}

std::string engineText(std::string_view text) {
  const auto encoded = EngineText::decoded(text);
  if (!encoded) return localized(text);
  std::vector<std::string> arguments;
  for (const std::string& argument : encoded->arguments) {
    const auto classified = EngineText::classifiedArgument(argument);
    if (const auto* number = std::get_if<std::int64_t>(&classified))
      arguments.push_back(std::to_string(*number));
    else
      arguments.push_back(localized(argument));
  }
  return formatted(encoded->key, arguments);
}

std::string freedOfPlanned(std::int64_t freedBytes, std::int64_t plannedBytes) {
  return formatted(kFreedOfPlanned,
                   {BriskoFormatting::bytes(freedBytes), BriskoFormatting::bytes(plannedBytes)});
}

std::string runSummary(std::int64_t deletedCount, std::int64_t keptCount) {
  std::string summary = formatted(kPermanentlyDeleted, {std::to_string(deletedCount)});
  if (keptCount > 0) summary += formatted(kSkippedAndKept, {std::to_string(keptCount)});
  return summary;
}

std::string blockedSummary(const std::vector<BlockedLocation>& blocked) {
  if (blocked.empty()) return {};
  if (blocked.size() > 1)
    return formatted(kSkippedProtectedLocations, {std::to_string(blocked.size())});
  const BlockedLocation& location = blocked.front();
  return formatted(location.needsFullDiskAccess ? kBlockedNeedsAccess : kBlockedUnreadable,
                   {localized(location.title)});
}

}  // namespace brisko::AppText
