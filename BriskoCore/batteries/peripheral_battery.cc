#include "batteries/peripheral_battery.h"

#include "base/unicode_text.h"

namespace brisko {

std::string_view kindLabel(PeripheralBattery::Kind kind) {
  using Kind = PeripheralBattery::Kind;
  switch (kind) {
    case Kind::mac:
      return "Computer";
    case Kind::keyboard:
      return "Keyboard";
    case Kind::trackpad:
      return "Trackpad";
    case Kind::mouse:
      return "Mouse";
    case Kind::earbuds:
      return "Earbuds";
    case Kind::headphones:
      return "Headphones";
    case Kind::other:
      break;
  }
  return "Bluetooth device";
}

Json encodeDirectory(const PeripheralDirectory& directory) {
  Json entries = Json::object();
  for (const auto& [id, entry] : directory.entries)
    entries[id] = Json{{"name", entry.name}, {"kind", enumName(entry.kind)}};
  return Json{{"entries", entries}};
}

PeripheralDirectory decodeDirectory(const Json& json) {
  PeripheralDirectory directory;
  if (!json.is_object()) return {};
  const auto entries = json.find("entries");
  if (entries == json.end() || !entries->is_object()) return {};
  for (const auto& [id, entry] : entries->items()) {
    if (!entry.is_object()) return {};
    const auto name = entry.find("name");
    const auto kind = entry.find("kind");
    if (name == entry.end() || !name->is_string() || kind == entry.end() || !kind->is_string())
      return {};
    const auto parsed = parseEnum<PeripheralBattery::Kind>(kind->get<std::string>());
    if (!parsed) return {};
    directory.entries[id] = {name->get<std::string>(), *parsed};
  }
  return directory;
}

std::string normalizedAddress(std::string_view address) {
  std::string text(address);
  for (char& c : text) {
    if (c == '-' || c == '_') c = ':';
  }
  return lowercasedText(text);
}

PeripheralBattery::Kind decideKind(std::string_view name,
                                   const std::optional<std::string>& minorType) {
  using Kind = PeripheralBattery::Kind;
  const std::string lowerName = lowercasedText(name);
  const auto nameHas = [&](std::string_view part) {
    return lowerName.find(part) != std::string::npos;
  };
  if (nameHas("airpods")) return Kind::earbuds;
  if (minorType) {
    const std::string type = lowercasedText(*minorType);
    const auto typeHas = [&](std::string_view part) {
      return type.find(part) != std::string::npos;
    };
    if (typeHas("keyboard")) return Kind::keyboard;
    if (typeHas("trackpad")) return Kind::trackpad;
    if (typeHas("mouse")) return Kind::mouse;
    if (typeHas("headphones") || typeHas("headset")) return Kind::headphones;
    return Kind::other;
  }
  if (nameHas("keyboard") || nameHas("kb")) return Kind::keyboard;
  if (nameHas("trackpad")) return Kind::trackpad;
  if (nameHas("mouse")) return Kind::mouse;
  return Kind::other;
}

}  // namespace brisko
