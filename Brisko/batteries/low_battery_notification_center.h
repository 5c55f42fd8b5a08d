#pragma once

// Low-battery notices through the desktop's notification server
// (org.freedesktop.Notifications on the session bus). A newer notice for a
// device replaces its older one: the server's id for "battery.low." + device
// id is kept and sent again as `replaces_id`. Clicking a notice calls
// `onOpen`. Lives on the main executor: `post` blocks it for at most the
// 2-second call time-out; a failed request is ignored.

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>

#include "batteries/peripheral_battery.h"
#include "store/main_executor.h"

namespace brisko {

class BusWatcher;

class LowBatteryNotificationCenter {
 public:
  enum class Authorization { notDetermined, allowed, denied };

  explicit LowBatteryNotificationCenter(MainExecutor& executor);
  ~LowBatteryNotificationCenter();

  // Starts listening for clicks and for the server coming and going. The
  // authorization is `allowed` once the server answers and `denied` while no
  // one owns its name.
  void start();

  void post(const PeripheralBattery& device);

  Authorization authorization() const { return authorization_; }

  std::function<void()> onOpen;
  std::function<void()> onAuthorizationChange;

 private:
  void setAuthorization(Authorization authorization);
  void actionInvoked(std::uint32_t id, const std::string& action);

  MainExecutor& executor_;
  Authorization authorization_ = Authorization::notDetermined;
  std::map<std::string, std::uint32_t> serverIDs_;  // "battery.low." + id to the server's id
  // Shared with tasks that the watcher posts, so that they do nothing once
  // the centre is gone.
  std::shared_ptr<LowBatteryNotificationCenter*> self_;
  std::unique_ptr<BusWatcher> watcher_;
};

// The notice's texts: "Mouse battery low" ("Computer battery low" for the
// computer) and "Office Mouse is at 8%.", the body markup-escaped.
std::string lowBatteryTitle(const PeripheralBattery& device);
std::string lowBatteryBody(const PeripheralBattery& device);

}  // namespace brisko
