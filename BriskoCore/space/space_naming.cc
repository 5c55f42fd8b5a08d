#include "space/space_naming.h"

#include <cstdlib>

#include "base/path_components.h"
#include "protocol/engine_text.h"

namespace brisko {
namespace {

std::string environment(const char* name) {
  const char* value = std::getenv(name);
  return value != nullptr ? std::string(value) : std::string();
}

// "de_CH.UTF-8@euro" → "de-CH"; "C", "POSIX" and their variants → "".
std::string languageOfLocale(std::string locale) {
  locale = locale.substr(0, locale.find_first_of(".@"));
  if (locale == "C" || locale == "POSIX") return "";
  for (auto& character : locale) {
    if (character == '_') character = '-';
  }
  return locale;
}

}  // namespace

std::string SpaceNaming::namingLanguage() {
  const std::string languages = environment("LANGUAGE");
  const std::string first = languages.substr(0, languages.find(':'));
  if (!first.empty()) return languageOfLocale(first);
  for (const char* name : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
    const std::string value = environment(name);
    if (!value.empty()) return languageOfLocale(value);
  }
  return "";
}

std::string SpaceNaming::displayName(std::string_view path, std::string_view fallback) {
  std::string last = lastPathComponent(path);
  return last.empty() ? std::string(fallback) : last;
}

std::string SpaceNaming::moreItemsName(std::int64_t count) {
  return EngineText::encoded("%lld more items", {std::to_string(count)});
}

std::string SpaceNaming::leftOutNamesWarning(std::int64_t count) {
  return EngineText::encoded("%d places were left out because their names aren\u2019t valid text",
                             {std::to_string(count)});
}

std::string SpaceNaming::tooDeepWarning(std::int64_t count) {
  return EngineText::encoded(
      "%d folders lie too deep to be measured; the sizes above them are partial",
      {std::to_string(count)});
}

}  // namespace brisko
