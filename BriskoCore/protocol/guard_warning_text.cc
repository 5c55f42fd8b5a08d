#include "protocol/guard_warning_text.h"

#include "protocol/engine_text.h"

namespace brisko {

namespace {

bool isGuardKey(std::string_view key) {
  return key == GuardWarningText::kNamedProcessKey || key == GuardWarningText::kRelatedProcessKey;
}

}  // namespace

std::string GuardWarningText::namedProcess(const std::string& processName,
                                           const std::string& title) {
  return EngineText::encoded(kNamedProcessKey, {processName, title});
}

std::string GuardWarningText::relatedProcess(const std::string& title) {
  return EngineText::encoded(kRelatedProcessKey, {title});
}

bool GuardWarningText::isGuardWarning(std::string_view text) {
  const auto decoded = EngineText::decoded(text);
  return decoded && isGuardKey(decoded->key);
}

std::optional<std::string> GuardWarningText::guardedTitle(std::string_view text) {
  auto decoded = EngineText::decoded(text);
  if (!decoded || !isGuardKey(decoded->key) || decoded->arguments.empty()) return std::nullopt;
  return std::move(decoded->arguments.back());
}

}  // namespace brisko
