#pragma once

#include <sys/types.h>

#include <map>
#include <string>
#include <vector>

namespace brisko::testing {

// A private D-Bus bus (`dbus-daemon --session`) that stands for both the
// session and the system bus of this process: the constructor points
// DBUS_SESSION_BUS_ADDRESS and DBUS_SYSTEM_BUS_ADDRESS at it. Services on it
// are python3-dbusmock templates, run by Debian's python3 ("upower", "bluez5", "logind",
// "notification_daemon"); `call` drives them with `gdbus call`. Going, it
// stops every process it started.
class MockBus {
 public:
  MockBus();
  ~MockBus();
  MockBus(const MockBus&) = delete;
  MockBus& operator=(const MockBus&) = delete;

  bool isRunning() const { return daemon_ > 0; }

  // Starts a template and waits until it owns `busName`; false if it didn't.
  bool startTemplate(const std::string& name, const std::string& busName);
  void stopTemplate(const std::string& name);

  // `gdbus call` of `method` on `destination`'s `path` with GVariant-text
  // arguments; its standard output, or "error: ..." with its standard error.
  std::string call(const std::string& destination, const std::string& path,
                   const std::string& method, const std::vector<std::string>& arguments = {});

 private:
  pid_t daemon_ = -1;
  std::map<std::string, pid_t> templates_;
};

}  // namespace brisko::testing
