#include "apps/desktop_entry.h"

#include <fcntl.h>
#include <glib.h>
#include <unistd.h>

#include <memory>

#include "base/path_components.h"
#include "base/utf8.h"

namespace brisko {
namespace {

constexpr const char* kGroup = "Desktop Entry";

struct KeyFileFree {
  void operator()(GKeyFile* file) const { g_key_file_free(file); }
};
struct TextFree {
  void operator()(gchar* text) const { g_free(text); }
};
using OwnedText = std::unique_ptr<gchar, TextFree>;

std::optional<std::string> stringValue(GKeyFile* file, const char* key) {
  OwnedText value(g_key_file_get_string(file, kGroup, key, nullptr));
  if (!value) return std::nullopt;
  return std::string(value.get());
}

bool booleanValue(GKeyFile* file, const char* key) {
  GError* error = nullptr;
  const gboolean value = g_key_file_get_boolean(file, kGroup, key, &error);
  if (error != nullptr) g_error_free(error);
  return value != FALSE;
}

// GLib spells locales with "_": "de-CH" is asked as "de_CH".
std::string glibLocale(const std::string& language) {
  std::string locale = language.empty() ? "C" : language;
  for (auto& character : locale) {
    if (character == '-') character = '_';
  }
  return locale;
}

}  // namespace

std::optional<std::vector<std::string>> splitExecLine(std::string_view line) {
  std::vector<std::string> arguments;
  std::string current;
  bool inArgument = false;
  bool quoted = false;
  for (size_t i = 0; i < line.size(); ++i) {
    const char character = line[i];
    if (quoted) {
      if (character == '\\' && i + 1 < line.size()) {
        current.push_back(line[++i]);
      } else if (character == '"') {
        quoted = false;
      } else {
        current.push_back(character);
      }
      continue;
    }
    if (character == ' ' || character == '\t' || character == '\n') {
      if (inArgument) arguments.push_back(std::move(current));
      current.clear();
      inArgument = false;
      continue;
    }
    inArgument = true;
    if (character == '"') {
      quoted = true;
    } else if (character == '%' && i + 1 < line.size()) {
      if (line[++i] == '%') current.push_back('%');
      // any other field code stands for something Brisko never passes
    } else {
      current.push_back(character);
    }
  }
  if (quoted) return std::nullopt;
  if (inArgument) arguments.push_back(std::move(current));
  // A lone field code leaves an empty argument behind; it was never a word.
  std::erase_if(arguments, [](const std::string& argument) { return argument.empty(); });
  return arguments;
}

std::string execProgram(const std::vector<std::string>& exec) {
  size_t at = 0;
  if (!exec.empty() && (exec[0] == "env" || exec[0] == "/usr/bin/env" || exec[0] == "/bin/env")) {
    at = 1;
    while (at < exec.size() &&
           (exec[at].front() == '-' || exec[at].find('=') != std::string::npos)) {
      // These options take the next word as their value.
      if (exec[at] == "-u" || exec[at] == "--unset" || exec[at] == "-C" || exec[at] == "--chdir")
        ++at;
      ++at;
    }
  }
  return at < exec.size() ? exec[at] : std::string();
}

std::optional<DesktopEntry> DesktopEntry::parse(std::string_view bytes,
                                                const std::string& language) {
  if (bytes.size() > kLargestEntry || !isValidUtf8(bytes)) return std::nullopt;
  std::unique_ptr<GKeyFile, KeyFileFree> file(g_key_file_new());
  if (!g_key_file_load_from_data(file.get(), bytes.data(), bytes.size(),
                                 G_KEY_FILE_KEEP_TRANSLATIONS, nullptr) ||
      !g_key_file_has_group(file.get(), kGroup))
    return std::nullopt;

  DesktopEntry entry;
  entry.type = stringValue(file.get(), "Type").value_or("");
  const std::string locale = glibLocale(language);
  OwnedText name(g_key_file_get_locale_string(file.get(), kGroup, "Name", locale.c_str(), nullptr));
  if (name) entry.name = name.get();
  if (const auto exec = stringValue(file.get(), "Exec")) {
    auto split = splitExecLine(*exec);
    if (!split) return std::nullopt;
    entry.exec = std::move(*split);
  }
  entry.tryExec = stringValue(file.get(), "TryExec");
  entry.noDisplay = booleanValue(file.get(), "NoDisplay");
  entry.hidden = booleanValue(file.get(), "Hidden");
  entry.flatpakID = stringValue(file.get(), "X-Flatpak");
  entry.snapInstanceName = stringValue(file.get(), "X-SnapInstanceName");
  return entry;
}

std::optional<DesktopEntry> DesktopEntry::read(const std::string& path, const std::string& id,
                                               const std::string& language) {
  const int descriptor = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
  if (descriptor < 0) return std::nullopt;
  std::string bytes;
  char buffer[16384];
  ssize_t count = 0;
  while ((count = ::read(descriptor, buffer, sizeof buffer)) > 0) {
    bytes.append(buffer, static_cast<size_t>(count));
    if (bytes.size() > kLargestEntry) break;
  }
  ::close(descriptor);
  if (count < 0) return std::nullopt;
  auto entry = parse(bytes, language);
  if (!entry) return std::nullopt;
  entry->path = path;
  entry->id = id;
  return entry;
}

}  // namespace brisko
