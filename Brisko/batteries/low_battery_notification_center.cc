#include "batteries/low_battery_notification_center.h"

#include <systemd/sd-bus.h>

#include "batteries/dbus_client.h"

namespace brisko {
namespace {

constexpr const char* kServer = "org.freedesktop.Notifications";
constexpr const char* kServerPath = "/org/freedesktop/Notifications";

std::string markupEscaped(std::string_view text) {
  std::string escaped;
  for (const char c : text) {
    switch (c) {
      case '&':
        escaped += "&amp;";
        break;
      case '<':
        escaped += "&lt;";
        break;
      case '>':
        escaped += "&gt;";
        break;
      case '"':
        escaped += "&quot;";
        break;
      case '\'':
        escaped += "&apos;";
        break;
      default:
        escaped += c;
    }
  }
  return escaped;
}

std::optional<std::uint32_t> sendNotify(sd_bus* bus, std::uint32_t replacesID,
                                        const std::string& title, const std::string& body) {
  sd_bus_error error = SD_BUS_ERROR_NULL;
  sd_bus_message* reply = nullptr;
  const int result = sd_bus_call_method(
      bus, kServer, kServerPath, kServer, "Notify", &error, &reply, "susssasa{sv}i", "Brisko",
      replacesID, "brisko", title.c_str(), body.c_str(), 2, "default", "Open", 2, "desktop-entry",
      "s", "brisko", "category", "s", "device", -1);
  sd_bus_error_free(&error);
  std::optional<std::uint32_t> id;
  std::uint32_t value = 0;
  if (result >= 0 && sd_bus_message_read_basic(reply, 'u', &value) > 0) id = value;
  sd_bus_message_unref(reply);
  return id;
}

}  // namespace

std::string lowBatteryTitle(const PeripheralBattery& device) {
  return std::string(kindLabel(device.kind)) + " battery low";
}

std::string lowBatteryBody(const PeripheralBattery& device) {
  return markupEscaped(device.name) + " is at " + std::to_string(device.percent) + "%.";
}

LowBatteryNotificationCenter::LowBatteryNotificationCenter(MainExecutor& executor)
    : executor_(executor), self_(std::make_shared<LowBatteryNotificationCenter*>(this)) {}

LowBatteryNotificationCenter::~LowBatteryNotificationCenter() {
  watcher_.reset();  // no handler runs after this
  *self_ = nullptr;  // tasks already posted find the centre gone
}

void LowBatteryNotificationCenter::start() {
  if (watcher_) return;
  std::weak_ptr<LowBatteryNotificationCenter*> weak = self_;
  MainExecutor* executor = &executor_;
  const auto deliver = [weak, executor](std::function<void(LowBatteryNotificationCenter&)> work) {
    executor->post([weak, work = std::move(work)] {
      if (const auto self = weak.lock(); self && *self) work(**self);
    });
  };
  std::vector<std::pair<std::string, BusWatcher::Handler>> matches;
  matches.emplace_back(
      "type='signal',interface='org.freedesktop.Notifications',member='ActionInvoked'",
      [deliver](sd_bus_message* message) {
        std::uint32_t id = 0;
        const char* action = nullptr;
        if (sd_bus_message_read(message, "us", &id, &action) < 0 || !action) return;
        deliver([id, text = std::string(action)](LowBatteryNotificationCenter& centre) {
          centre.actionInvoked(id, text);
        });
      });
  matches.emplace_back(
      "type='signal',sender='org.freedesktop.DBus',member='NameOwnerChanged',"
      "arg0='org.freedesktop.Notifications'",
      [deliver](sd_bus_message* message) {
        const char *name = nullptr, *before = nullptr, *after = nullptr;
        if (sd_bus_message_read(message, "sss", &name, &before, &after) < 0 || !after) return;
        const bool owned = after[0] != '\0';
        deliver([owned](LowBatteryNotificationCenter& centre) {
          centre.setAuthorization(owned ? Authorization::allowed : Authorization::denied);
        });
      });
  watcher_ = std::make_unique<BusWatcher>(BusKind::session, std::move(matches));
  const auto connection = DBusConnection::open(BusKind::session);
  const auto owned = connection ? connection->nameHasOwner(kServer) : std::nullopt;
  if (owned) setAuthorization(*owned ? Authorization::allowed : Authorization::denied);
}

void LowBatteryNotificationCenter::post(const PeripheralBattery& device) {
  const std::string identifier = "battery.low." + device.id;
  const auto known = serverIDs_.find(identifier);
  const std::uint32_t replaces = known == serverIDs_.end() ? 0 : known->second;
  const std::string title = lowBatteryTitle(device), body = lowBatteryBody(device);
  std::optional<std::uint32_t> id;
  // Through the listening connection when there is one: some servers send
  // the click only to the connection that posted the notice.
  const auto send = [&](sd_bus* bus) { id = sendNotify(bus, replaces, title, body); };
  if (!watcher_ || !watcher_->runOnConnection(send)) {
    if (const auto connection = DBusConnection::open(BusKind::session)) send(connection->bus());
  }
  if (!id) return;
  serverIDs_[identifier] = *id;
  setAuthorization(Authorization::allowed);
}

void LowBatteryNotificationCenter::setAuthorization(Authorization authorization) {
  if (authorization == authorization_) return;
  authorization_ = authorization;
  if (onAuthorizationChange) onAuthorizationChange();
}

void LowBatteryNotificationCenter::actionInvoked(std::uint32_t id, const std::string& action) {
  if (action != "default") return;
  for (const auto& [identifier, serverID] : serverIDs_) {
    if (serverID == id) {
      if (onOpen) onOpen();
      return;
    }
  }
}

}  // namespace brisko
