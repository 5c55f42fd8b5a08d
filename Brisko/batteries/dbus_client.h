#pragma once

// A small D-Bus client over sd-bus: blocking calls on the calling thread,
// each with a 2-second time-out, a connection per use, and a watcher thread
// that listens for signals. The buses are found as sd-bus finds them, so
// DBUS_SESSION_BUS_ADDRESS and DBUS_SYSTEM_BUS_ADDRESS are honoured.
//
// Only the simple property types are read (booleans, integers, doubles,
// texts and object paths); others read as absent.

#include <atomic>
#include <cstdint>
#include <deque>
#include <functional>
#include <future>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <variant>
#include <vector>

struct sd_bus;
struct sd_bus_message;

namespace brisko {

enum class BusKind { session, system };

using DBusValue =
    std::variant<std::monostate, bool, std::int64_t, std::uint64_t, double, std::string>;
using DBusProperties = std::map<std::string, DBusValue>;
// Object path to interface to properties, as an object manager lists them.
using DBusObjects = std::map<std::string, std::map<std::string, DBusProperties>>;

std::optional<bool> boolProperty(const DBusProperties& properties, const std::string& name);
std::optional<std::uint64_t> unsignedProperty(const DBusProperties& properties,
                                              const std::string& name);
std::optional<double> doubleProperty(const DBusProperties& properties, const std::string& name);
std::optional<std::string> textProperty(const DBusProperties& properties, const std::string& name);

// Reads one `a{sv}` from a message positioned at it.
std::optional<DBusProperties> readProperties(sd_bus_message* message);

// What a failed call left: the error's D-Bus name, empty when none.
struct DBusFailure {
  std::string name;
};

class DBusConnection {
 public:
  // None when the bus can't be reached.
  static std::unique_ptr<DBusConnection> open(BusKind kind);
  ~DBusConnection();
  DBusConnection(const DBusConnection&) = delete;
  DBusConnection& operator=(const DBusConnection&) = delete;

  sd_bus* bus() const { return bus_; }

  // Calls a method without arguments and reads a reply of object paths (`ao`).
  std::optional<std::vector<std::string>> objectPaths(const char* destination, const char* path,
                                                      const char* interface, const char* method,
                                                      DBusFailure* failure = nullptr);
  std::optional<DBusProperties> allProperties(const char* destination, const char* path,
                                              const char* interface,
                                              DBusFailure* failure = nullptr);
  std::optional<DBusObjects> managedObjects(const char* destination, const char* path,
                                            DBusFailure* failure = nullptr);
  // Whether `name` has an owner on the bus; none when the bus doesn't answer.
  std::optional<bool> nameHasOwner(const char* name);

 private:
  explicit DBusConnection(sd_bus* bus) : bus_(bus) {}
  sd_bus* bus_;
};

// Listens on a connection of its own, on a thread of its own, for the
// signals that its match rules pick. A handler runs on that thread, with the
// message positioned at the signal's arguments; it reads what it needs and
// posts the rest elsewhere. Matches are in place when the constructor
// returns; going, it stops the thread and waits for it.
class BusWatcher {
 public:
  using Handler = std::function<void(sd_bus_message*)>;

  BusWatcher(BusKind kind, std::vector<std::pair<std::string, Handler>> matches);
  ~BusWatcher();
  BusWatcher(const BusWatcher&) = delete;
  BusWatcher& operator=(const BusWatcher&) = delete;

  bool isListening() const { return thread_.joinable(); }

  // Runs `work` on the watcher's thread with its connection, and waits for
  // it to end. A call made this way comes from the connection that listens,
  // so a server that answers it with a signal sent to the caller alone (some
  // notification servers do, for clicks) reaches the handlers. False when
  // the watcher isn't listening.
  bool runOnConnection(std::function<void(sd_bus*)> work);

 private:
  struct Job {
    std::function<void(sd_bus*)> work;
    std::promise<void> done;
  };
  void run();
  void loop();
  void wake();

  std::mutex jobsLock_;
  std::deque<Job> jobs_;  // guarded by jobsLock_
  bool ended_ = false;    // guarded by jobsLock_: the thread has stopped
  std::atomic<bool> stopping_{false};

  std::vector<std::unique_ptr<Handler>> handlers_;  // constant while the thread runs
  std::unique_ptr<DBusConnection> connection_;      // the thread's alone once it runs
  int wakeFd_ = -1;
  std::thread thread_;
};

}  // namespace brisko
