#include "batteries/dbus_client.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <systemd/sd-bus.h>

namespace brisko {
namespace {

constexpr std::uint64_t kCallTimeoutMicroseconds = 2'000'000;

struct ErrorGuard {
  sd_bus_error error = SD_BUS_ERROR_NULL;
  ~ErrorGuard() { sd_bus_error_free(&error); }
  void fill(DBusFailure* failure) const {
    if (failure) failure->name = error.name ? error.name : "";
  }
};

struct MessageGuard {
  sd_bus_message* message = nullptr;
  ~MessageGuard() { sd_bus_message_unref(message); }
};

// Reads the variant at the message's position; skips what isn't simple.
DBusValue readVariant(sd_bus_message* message) {
  char type = 0;
  const char* contents = nullptr;
  if (sd_bus_message_peek_type(message, &type, &contents) <= 0 || type != 'v') return {};
  if (sd_bus_message_enter_container(message, 'v', contents) < 0) return {};
  DBusValue value;
  const std::string signature = contents ? contents : "";
  bool read = false;
  if (signature.size() == 1) {
    read = true;
    switch (signature[0]) {
      case 'b': {
        int flag = 0;
        if (sd_bus_message_read_basic(message, 'b', &flag) > 0) value = flag != 0;
        break;
      }
      case 'y': {
        std::uint8_t number = 0;
        if (sd_bus_message_read_basic(message, 'y', &number) > 0) value = std::uint64_t{number};
        break;
      }
      case 'n':
      case 'i':
      case 'x': {
        std::int64_t wide = 0;
        std::int32_t mid = 0;
        std::int16_t narrow = 0;
        void* target = signature[0] == 'x'   ? static_cast<void*>(&wide)
                       : signature[0] == 'i' ? static_cast<void*>(&mid)
                                             : static_cast<void*>(&narrow);
        if (sd_bus_message_read_basic(message, signature[0], target) > 0)
          value = signature[0] == 'x'   ? wide
                  : signature[0] == 'i' ? std::int64_t{mid}
                                        : std::int64_t{narrow};
        break;
      }
      case 'q':
      case 'u':
      case 't': {
        std::uint64_t wide = 0;
        std::uint32_t mid = 0;
        std::uint16_t narrow = 0;
        void* target = signature[0] == 't'   ? static_cast<void*>(&wide)
                       : signature[0] == 'u' ? static_cast<void*>(&mid)
                                             : static_cast<void*>(&narrow);
        if (sd_bus_message_read_basic(message, signature[0], target) > 0)
          value = signature[0] == 't'   ? wide
                  : signature[0] == 'u' ? std::uint64_t{mid}
                                        : std::uint64_t{narrow};
        break;
      }
      case 'd': {
        double number = 0;
        if (sd_bus_message_read_basic(message, 'd', &number) > 0) value = number;
        break;
      }
      case 's':
      case 'o': {
        const char* text = nullptr;
        if (sd_bus_message_read_basic(message, signature[0], &text) > 0 && text)
          value = std::string(text);
        break;
      }
      default:
        read = false;
    }
  }
  if (!read) sd_bus_message_skip(message, signature.c_str());
  sd_bus_message_exit_container(message);
  return value;
}

template <class T>
std::optional<T> property(const DBusProperties& properties, const std::string& name) {
  const auto found = properties.find(name);
  if (found == properties.end()) return std::nullopt;
  if (const T* value = std::get_if<T>(&found->second)) return *value;
  return std::nullopt;
}

}  // namespace

std::optional<bool> boolProperty(const DBusProperties& properties, const std::string& name) {
  return property<bool>(properties, name);
}

std::optional<std::uint64_t> unsignedProperty(const DBusProperties& properties,
                                              const std::string& name) {
  if (auto value = property<std::uint64_t>(properties, name)) return value;
  if (auto value = property<std::int64_t>(properties, name); value && *value >= 0)
    return static_cast<std::uint64_t>(*value);
  return std::nullopt;
}

std::optional<double> doubleProperty(const DBusProperties& properties, const std::string& name) {
  if (auto value = property<double>(properties, name)) return value;
  if (auto value = property<std::int64_t>(properties, name)) return static_cast<double>(*value);
  if (auto value = property<std::uint64_t>(properties, name)) return static_cast<double>(*value);
  return std::nullopt;
}

std::optional<std::string> textProperty(const DBusProperties& properties, const std::string& name) {
  return property<std::string>(properties, name);
}

std::optional<DBusProperties> readProperties(sd_bus_message* message) {
  if (sd_bus_message_enter_container(message, 'a', "{sv}") <= 0) return std::nullopt;
  DBusProperties properties;
  while (sd_bus_message_enter_container(message, 'e', "sv") > 0) {
    const char* name = nullptr;
    if (sd_bus_message_read_basic(message, 's', &name) <= 0 || !name) return std::nullopt;
    properties[name] = readVariant(message);
    if (sd_bus_message_exit_container(message) < 0) return std::nullopt;
  }
  if (sd_bus_message_exit_container(message) < 0) return std::nullopt;
  return properties;
}

std::unique_ptr<DBusConnection> DBusConnection::open(BusKind kind) {
  sd_bus* bus = nullptr;
  const int result = kind == BusKind::session ? sd_bus_open_user(&bus) : sd_bus_open_system(&bus);
  if (result < 0 || !bus) return nullptr;
  sd_bus_set_method_call_timeout(bus, kCallTimeoutMicroseconds);
  return std::unique_ptr<DBusConnection>(new DBusConnection(bus));
}

DBusConnection::~DBusConnection() {
  sd_bus_flush_close_unref(bus_);
}

std::optional<std::vector<std::string>> DBusConnection::objectPaths(const char* destination,
                                                                    const char* path,
                                                                    const char* interface,
                                                                    const char* method,
                                                                    DBusFailure* failure) {
  ErrorGuard error;
  MessageGuard reply;
  if (sd_bus_call_method(bus_, destination, path, interface, method, &error.error, &reply.message,
                         "") < 0) {
    error.fill(failure);
    return std::nullopt;
  }
  if (sd_bus_message_enter_container(reply.message, 'a', "o") <= 0) return std::nullopt;
  std::vector<std::string> paths;
  const char* item = nullptr;
  while (sd_bus_message_read_basic(reply.message, 'o', &item) > 0)
    paths.emplace_back(item);
  return paths;
}

std::optional<DBusProperties> DBusConnection::allProperties(const char* destination,
                                                            const char* path, const char* interface,
                                                            DBusFailure* failure) {
  ErrorGuard error;
  MessageGuard reply;
  if (sd_bus_call_method(bus_, destination, path, "org.freedesktop.DBus.Properties", "GetAll",
                         &error.error, &reply.message, "s", interface) < 0) {
    error.fill(failure);
    return std::nullopt;
  }
  return readProperties(reply.message);
}

std::optional<DBusObjects> DBusConnection::managedObjects(const char* destination, const char* path,
                                                          DBusFailure* failure) {
  ErrorGuard error;
  MessageGuard reply;
  if (sd_bus_call_method(bus_, destination, path, "org.freedesktop.DBus.ObjectManager",
                         "GetManagedObjects", &error.error, &reply.message, "") < 0) {
    error.fill(failure);
    return std::nullopt;
  }
  sd_bus_message* m = reply.message;
  if (sd_bus_message_enter_container(m, 'a', "{oa{sa{sv}}}") <= 0) return std::nullopt;
  DBusObjects objects;
  while (sd_bus_message_enter_container(m, 'e', "oa{sa{sv}}") > 0) {
    const char* objectPath = nullptr;
    if (sd_bus_message_read_basic(m, 'o', &objectPath) <= 0) return std::nullopt;
    auto& interfaces = objects[objectPath];
    if (sd_bus_message_enter_container(m, 'a', "{sa{sv}}") <= 0) return std::nullopt;
    while (sd_bus_message_enter_container(m, 'e', "sa{sv}") > 0) {
      const char* name = nullptr;
      if (sd_bus_message_read_basic(m, 's', &name) <= 0) return std::nullopt;
      auto properties = readProperties(m);
      if (!properties) return std::nullopt;
      interfaces[name] = std::move(*properties);
      if (sd_bus_message_exit_container(m) < 0) return std::nullopt;
    }
    if (sd_bus_message_exit_container(m) < 0 || sd_bus_message_exit_container(m) < 0)
      return std::nullopt;
  }
  return objects;
}

std::optional<bool> DBusConnection::nameHasOwner(const char* name) {
  ErrorGuard error;
  MessageGuard reply;
  if (sd_bus_call_method(bus_, "org.freedesktop.DBus", "/org/freedesktop/DBus",
                         "org.freedesktop.DBus", "NameHasOwner", &error.error, &reply.message, "s",
                         name) < 0)
    return std::nullopt;
  int owned = 0;
  if (sd_bus_message_read_basic(reply.message, 'b', &owned) <= 0) return std::nullopt;
  return owned != 0;
}

BusWatcher::BusWatcher(BusKind kind, std::vector<std::pair<std::string, Handler>> matches) {
  connection_ = DBusConnection::open(kind);
  if (!connection_) return;
  for (auto& [rule, handler] : matches) {
    handlers_.push_back(std::make_unique<Handler>(std::move(handler)));
    const auto trampoline = [](sd_bus_message* message, void* userdata, sd_bus_error*) -> int {
      (*static_cast<Handler*>(userdata))(message);
      return 0;
    };
    // Floating slots: they go with the connection.
    if (sd_bus_add_match(connection_->bus(), nullptr, rule.c_str(), trampoline,
                         handlers_.back().get()) < 0) {
      connection_.reset();
      return;
    }
  }
  wakeFd_ = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
  if (wakeFd_ < 0) {
    connection_.reset();
    return;
  }
  thread_ = std::thread([this] { run(); });
}

BusWatcher::~BusWatcher() {
  if (thread_.joinable()) {
    stopping_ = true;
    wake();
    thread_.join();
  }
  if (wakeFd_ >= 0) ::close(wakeFd_);
}

void BusWatcher::wake() {
  const std::uint64_t one = 1;
  [[maybe_unused]] const ssize_t written = ::write(wakeFd_, &one, sizeof one);
}

bool BusWatcher::runOnConnection(std::function<void(sd_bus*)> work) {
  if (!thread_.joinable()) return false;
  std::future<void> done;
  {
    std::lock_guard guard(jobsLock_);
    if (ended_) return false;
    jobs_.push_back(Job{std::move(work), {}});
    done = jobs_.back().done.get_future();
  }
  wake();
  try {
    done.get();
    return true;
  } catch (const std::future_error&) {
    return false;  // the thread ended (its bus went away) before running it
  }
}

void BusWatcher::run() {
  loop();
  // Calls still waiting end unanswered, and no call waits from now on.
  std::lock_guard guard(jobsLock_);
  ended_ = true;
  jobs_.clear();
}

void BusWatcher::loop() {
  sd_bus* bus = connection_->bus();
  while (true) {
    int processed = 0;
    while ((processed = sd_bus_process(bus, nullptr)) > 0) {
    }
    if (processed < 0) return;  // the bus went away
    pollfd fds[2] = {{sd_bus_get_fd(bus), static_cast<short>(sd_bus_get_events(bus)), 0},
                     {wakeFd_, POLLIN, 0}};
    std::uint64_t timeout = 0;
    int wait = -1;
    if (sd_bus_get_timeout(bus, &timeout) > 0 && timeout != UINT64_MAX) wait = 100;
    if (::poll(fds, 2, wait) < 0 && errno != EINTR) return;
    if (fds[1].revents & POLLIN) {
      std::uint64_t count = 0;
      [[maybe_unused]] const ssize_t got = ::read(wakeFd_, &count, sizeof count);
      if (stopping_) return;
      std::deque<Job> jobs;
      {
        std::lock_guard guard(jobsLock_);
        jobs.swap(jobs_);
      }
      for (Job& job : jobs) {
        job.work(bus);
        job.done.set_value();
      }
    }
  }
}

}  // namespace brisko
