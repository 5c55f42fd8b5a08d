// The battery sources, the monitor and the notices against real D-Bus
// services: python3-dbusmock's UPower, BlueZ, logind and notification server
// templates on a private bus that stands for both buses.

#include <gtest/gtest.h>

#include <algorithm>

#include "batteries/battery_list.h"
#include "batteries/battery_section.h"
#include "batteries/battery_settings.h"
#include "batteries/bluetooth_le_battery_monitor.h"
#include "batteries/low_battery_notification_center.h"
#include "batteries/peripheral_battery_monitor.h"
#include "batteries/system_battery_sources.h"
#include "store/manual_executor.h"
#include "testing/mock_bus.h"
#include "testing/temporary_directory.h"

namespace brisko {
namespace {

using testing::MockBus;
using testing::TemporaryDirectory;

constexpr const char* kUPower = "org.freedesktop.UPower";
constexpr const char* kUPowerPath = "/org/freedesktop/UPower";

// Adds a UPower device with the properties given as GVariant text.
std::string addUPowerDevice(MockBus& bus, const std::string& name, const std::string& properties) {
  return bus.call(kUPower, kUPowerPath, "org.freedesktop.DBus.Mock.AddObject",
                  {"/org/freedesktop/UPower/devices/" + name, "org.freedesktop.UPower.Device",
                   properties, "@a(ssss) []"});
}

std::string mouse(double percent) {
  return "{'Type': <uint32 5>, 'PowerSupply': <false>, 'IsPresent': <true>, "
         "'Model': <'Office <Mouse> & Co'>, 'Serial': <'AA-BB-CC-DD-EE-01'>, 'State': <uint32 2>, "
         "'Percentage': <" +
         std::to_string(percent) + ">}";
}

std::string describe(const std::vector<PeripheralBattery>& devices) {
  std::string text;
  for (const PeripheralBattery& d : devices)
    text += d.id + "|" + d.name + "|" + std::string(enumName(d.kind)) + "|" +
            std::to_string(d.percent) + (d.isCharging ? "|charging" : "") + "\n";
  return text;
}

TEST(BatteryServices, UPowerFirstThenTheKernelAndBlueZ) {
  MockBus bus;
  ASSERT_TRUE(bus.isRunning());
  ASSERT_TRUE(bus.startTemplate("upower", kUPower));
  TemporaryDirectory root;
  root.writeFile("machine-info", "PRETTY_HOSTNAME=\"Desk & Co\"\n");
  // The kernel's view, used only once UPower is gone.
  root.writeFile("sys/BAT0/type", "Battery\n");
  root.writeFile("sys/BAT0/capacity", "64\n");
  root.writeFile("sys/hid-11:22:33:44:55:66-battery/type", "Battery\n");
  root.writeFile("sys/hid-11:22:33:44:55:66-battery/scope", "Device\n");
  root.writeFile("sys/hid-11:22:33:44:55:66-battery/capacity", "55\n");

  bus.call(kUPower, kUPowerPath, "org.freedesktop.DBus.Mock.AddChargingBattery",
           {"BAT0", "Laptop", "30.0", "600"});
  bus.call(kUPower, kUPowerPath, "org.freedesktop.DBus.Mock.AddDischargingBattery",
           {"BAT1", "Laptop", "70.0", "600"});
  bus.call(kUPower, kUPowerPath, "org.freedesktop.DBus.Mock.AddAC", {"AC", "Mains"});
  addUPowerDevice(bus, "mouse", mouse(8.4));
  // One keyboard seen through two drivers; a headset whose level is unknown;
  // a device whose percentage is text.
  for (const char* path : {"kb_hid", "kb_bluez"})
    addUPowerDevice(
        bus, path,
        "{'Type': <uint32 6>, 'PowerSupply': <false>, 'IsPresent': <true>, "
        "'Model': <'MX Keys'>, 'NativePath': <'/org/bluez/hci0/dev_C0_FF_EE_00_00_01'>, "
        "'Percentage': <51.0>, 'State': <uint32 1>}");
  addUPowerDevice(bus, "headset",
                  "{'Type': <uint32 17>, 'PowerSupply': <false>, 'IsPresent': <true>, "
                  "'Model': <'Cans'>, 'Serial': <'S1'>, 'Percentage': <0.0>, "
                  "'BatteryLevel': <uint32 0>}");
  addUPowerDevice(bus, "odd",
                  "{'Type': <'mouse'>, 'PowerSupply': <false>, 'IsPresent': <true>, "
                  "'Model': <'Odd'>, 'Serial': <'S2'>, 'Percentage': <'lots'>}");

  SystemBatterySources system(root / "sys", root / "machine-info");
  EXPECT_EQ(describe(PeripheralBatteryReader::readFull(system.sources(), {}).devices),
            "internal-battery|Desk & Co|mac|50|charging\n"
            "c0:ff:ee:00:00:01|MX Keys|keyboard|51|charging\n"
            "aa:bb:cc:dd:ee:01|Office <Mouse> & Co|mouse|8\n");

  // A UPower that stalls: the call gives up and the kernel answers.
  bus.call(kUPower, kUPowerPath, "org.freedesktop.DBus.Mock.AddMethod",
           {"org.freedesktop.UPower", "EnumerateDevices", "", "ao",
            "import time; time.sleep(4); ret = []"});
  const std::map<std::string, RegistryReading> kernelLevels{{"11:22:33:44:55:66", {55, false}}};
  EXPECT_EQ(system.readLevels(), kernelLevels);

  // Without UPower: names from BlueZ's connected devices.
  bus.stopTemplate("upower");
  ASSERT_TRUE(bus.startTemplate("bluez5", "org.bluez"));
  const auto mock = [&](const char* method, std::vector<std::string> arguments) {
    return bus.call("org.bluez", "/org/bluez", std::string("org.bluez.Mock.") + method, arguments);
  };
  mock("AddAdapter", {"hci0", "desk"});
  mock("AddDevice", {"hci0", "11:22:33:44:55:66", "Trail <Mouse>"});
  mock("AddDevice", {"hci0", "77:22:33:44:55:66", "Asleep"});
  mock("ConnectDevice", {"hci0", "11:22:33:44:55:66"});
  bus.call("org.bluez", "/org/bluez/hci0/dev_11_22_33_44_55_66",
           "org.freedesktop.DBus.Mock.AddProperties",
           {"org.bluez.Battery1", "{'Percentage': <byte 90>}"});
  bus.call("org.bluez", "/org/bluez/hci0/dev_11_22_33_44_55_66",
           "org.freedesktop.DBus.Properties.Set", {"org.bluez.Device1", "Icon", "<'input-mouse'>"});
  EXPECT_EQ(describe(PeripheralBatteryReader::readFull(system.sources(), {}).devices),
            "internal-battery|Desk & Co|mac|64\n11:22:33:44:55:66|Trail <Mouse>|mouse|55\n");
  const auto objects = readBlueZObjects();
  ASSERT_TRUE(objects);
  EXPECT_EQ(bluetoothLEReadings(*objects),
            (std::vector<BluetoothLEBatteryReading>{{"11:22:33:44:55:66", "Trail <Mouse>", 90}}));
}

// Counts the Notify calls that the mock server got, and gives the
// `replaces_id` of the last.
struct NotifyCalls {
  int count = 0;
  std::string lastCall;
};

NotifyCalls notifyCalls(MockBus& bus) {
  const std::string text =
      bus.call("org.freedesktop.Notifications", "/org/freedesktop/Notifications",
               "org.freedesktop.DBus.Mock.GetMethodCalls", {"Notify"});
  NotifyCalls calls;
  for (size_t at = text.find("'Brisko'"); at != std::string::npos;
       at = text.find("'Brisko'", at + 1)) {
    ++calls.count;
    calls.lastCall = text.substr(at, text.find(')', at) - at);
  }
  return calls;
}

TEST(BatteryMonitor, NotifiesOnceThenAgainAfterRearmingOnWakeAndOnClick) {
  MockBus bus;
  ASSERT_TRUE(bus.isRunning());
  ASSERT_TRUE(bus.startTemplate("upower", kUPower));
  ASSERT_TRUE(bus.startTemplate("logind", "org.freedesktop.login1"));
  addUPowerDevice(bus, "mouse", mouse(8));
  TemporaryDirectory root;
  SettingsStore settings(root / "settings.json");

  ManualExecutor executor;
  LowBatteryNotificationCenter centre(executor);
  int opened = 0;
  centre.onOpen = [&] { ++opened; };
  centre.start();
  EXPECT_EQ(centre.authorization(), LowBatteryNotificationCenter::Authorization::denied);
  ASSERT_TRUE(bus.startTemplate("notification_daemon", "org.freedesktop.Notifications"));
  ASSERT_TRUE(executor.runUntil([&] {
    return centre.authorization() == LowBatteryNotificationCenter::Authorization::allowed;
  }));

  SystemBatterySources system(root / "no-sysfs", root / "no-machine-info");
  PeripheralBatteryMonitor::Probes probes{
      [&](const PeripheralDirectory& directory, const std::vector<BluetoothLEBatteryReading>& le) {
        return PeripheralBatteryReader::readQuick(system.sources(), directory, le);
      },
      [&](const std::vector<BluetoothLEBatteryReading>& le) {
        return PeripheralBatteryReader::readFull(system.sources(), le);
      }};
  BatteryMonitorTiming timing;
  timing.debounce = std::chrono::milliseconds(50);
  const Date now{std::chrono::seconds{1'800'000'000}};
  timing.now = [now] { return now; };
  PeripheralBatteryMonitor monitor(
      executor, probes, [&] { return currentLowBatteryPolicy(settings); }, {},
      [&](const PeripheralBattery& device) { centre.post(device); }, settings, timing);
  std::vector<int> mouseLevels;  // what each check saw of the mouse
  monitor.onDevices = [&](const std::vector<PeripheralBattery>& devices) {
    for (const PeripheralBattery& device : devices) {
      if (device.kind == PeripheralBattery::Kind::mouse) mouseLevels.push_back(device.percent);
    }
  };
  const auto checks = [&](size_t count) {
    return executor.runUntil([&] { return mouseLevels.size() >= count; });
  };

  monitor.start();
  ASSERT_TRUE(checks(1));
  EXPECT_EQ(notifyCalls(bus).count, 1);
  EXPECT_NE(notifyCalls(bus).lastCall.find(
                "<uint32 0>, <'brisko'>, <'Mouse battery low'>, "
                "<'Office &lt;Mouse&gt; &amp; Co is at 8%.'>, <['default', 'Open']>, "
                "<{'desktop-entry': <'brisko'>, 'category': <'device'>}>"),
            std::string::npos)
      << notifyCalls(bus).lastCall;
  EXPECT_EQ(loadPeripheralDirectory(settings).entries.at("aa:bb:cc:dd:ee:01").name,
            "Office <Mouse> & Co");

  monitor.check();
  ASSERT_TRUE(checks(2));
  EXPECT_EQ(notifyCalls(bus).count, 1) << "a second check within the day";

  // Power-source changes: 60 re-arms, 20 reports again, replacing the first.
  for (const auto& [level, notices] : {std::pair{60, 1}, std::pair{20, 2}}) {
    bus.call(kUPower, kUPowerPath, "org.freedesktop.DBus.Mock.SetDeviceProperties",
             {"/org/freedesktop/UPower/devices/mouse",
              "{'Percentage': <" + std::to_string(level) + ".0>}"});
    ASSERT_TRUE(executor.runUntil([&] {
      return !mouseLevels.empty() && mouseLevels.back() == level;
    })) << level;
    EXPECT_EQ(notifyCalls(bus).count, notices) << level;
  }
  EXPECT_NE(notifyCalls(bus).lastCall.find("'Brisko'>, <uint32 1>, "), std::string::npos)
      << notifyCalls(bus).lastCall;

  // A wake from sleep checks at once.
  const size_t before = mouseLevels.size();
  bus.call("org.freedesktop.login1", "/org/freedesktop/login1",
           "org.freedesktop.DBus.Mock.EmitSignal",
           {"org.freedesktop.login1.Manager", "PrepareForSleep", "b", "[<false>]"});
  ASSERT_TRUE(checks(before + 1));

  // A click on the notice opens the window.
  bus.call("org.freedesktop.Notifications", "/org/freedesktop/Notifications",
           "org.freedesktop.DBus.Mock.EmitSignal",
           {"org.freedesktop.Notifications", "ActionInvoked", "us", "[<uint32 1>, <'default'>]"});
  EXPECT_TRUE(executor.runUntil([&] { return opened == 1; }));
  monitor.stop();
}

TEST(BatteryBluetoothLE, FollowsBlueZ) {
  MockBus bus;
  ASSERT_TRUE(bus.isRunning());
  ManualExecutor executor;
  BluetoothLEBatteryMonitor monitor(executor);
  int changes = 0;
  monitor.onChange = [&] { ++changes; };
  monitor.start();  // BlueZ isn't there yet: nothing, and no verdict
  EXPECT_EQ(monitor.authorization(), BluetoothLEBatteryMonitor::Authorization::notDetermined);
  monitor.stop();

  ASSERT_TRUE(bus.startTemplate("bluez5", "org.bluez"));
  const std::string device = "/org/bluez/hci0/dev_AA_BB_CC_DD_EE_02";
  bus.call("org.bluez", "/org/bluez", "org.bluez.Mock.AddAdapter", {"hci0", "desk"});
  bus.call("org.bluez", "/org/bluez", "org.bluez.Mock.AddDevice",
           {"hci0", "AA:BB:CC:DD:EE:02", "Pen & Pad"});
  bus.call("org.bluez", "/org/bluez", "org.bluez.Mock.ConnectDevice",
           {"hci0", "AA:BB:CC:DD:EE:02"});
  bus.call("org.bluez", device, "org.freedesktop.DBus.Mock.AddProperties",
           {"org.bluez.Battery1", "{'Percentage': <byte 33>}"});
  monitor.start();
  EXPECT_EQ(monitor.authorization(), BluetoothLEBatteryMonitor::Authorization::allowed);
  EXPECT_EQ(monitor.readingList(),
            (std::vector<BluetoothLEBatteryReading>{{"aa:bb:cc:dd:ee:02", "Pen & Pad", 33}}));
  bus.call("org.bluez", device, "org.freedesktop.DBus.Properties.Set",
           {"org.bluez.Battery1", "Percentage", "<byte 12>"});
  ASSERT_TRUE(executor.runUntil([&] {
    return !monitor.readings().empty() && monitor.readings().begin()->second.percent == 12;
  }));
  EXPECT_EQ(changes, 2);
}

TEST(BatterySettings, ThresholdAndStoredObjects) {
  TemporaryDirectory root;
  SettingsStore settings(root / "settings.json");
  const struct {
    Json stored;  // null: absent
    int threshold;
  } rows[] = {{nullptr, 30}, {20, 20}, {40, 40}, {25, 30}, {"40", 30}, {40.5, 30}};
  for (const auto& row : rows) {
    if (row.stored.is_null())
      settings.removeValue(kLowThresholdSetting);
    else
      settings.setValue(kLowThresholdSetting, row.stored);
    EXPECT_EQ(readBatterySettings(settings).lowThreshold, row.threshold) << row.stored.dump();
  }
  LowBatteryLedger ledger;
  ledger.entries["m"] = {Date{std::chrono::seconds{1'800'000'000}}};
  saveLowBatteryLedger(settings, ledger);
  EXPECT_EQ(loadLowBatteryLedger(settings), ledger);
  settings.setValue(kLowLedgerSetting, Json{{"entries", {{"m", {{"lastNotifiedAt", 5}}}}}});
  EXPECT_TRUE(loadLowBatteryLedger(settings).entries.empty());
  settings.setValue(kPeripheralDirectorySetting, "not an object");
  EXPECT_TRUE(loadPeripheralDirectory(settings).entries.empty());
}

// The section the battery pane shows: a plain Refresh never notifies, the
// monitor follows "battery.notifyLow" both ways, and a threshold outside
// the three offered is refused and not stored.
TEST(BatterySection, NoticesOnlyWhileTheSettingIsOn) {
  MockBus bus;
  ASSERT_TRUE(bus.isRunning());
  ASSERT_TRUE(bus.startTemplate("upower", kUPower));
  ASSERT_TRUE(bus.startTemplate("notification_daemon", "org.freedesktop.Notifications"));
  addUPowerDevice(bus, "mouse", mouse(8));
  TemporaryDirectory root;
  SettingsStore settings(root / "settings.json");
  ManualExecutor executor;
  BatterySection section(executor, settings, {root / "none", root / "no-machine-info"});
  int changes = 0;
  section.onChange = [&] { ++changes; };
  const auto mouseAt = [&](int percent) {
    return executor.runUntil([&] {
      return std::any_of(section.devices().begin(), section.devices().end(),
                         [&](const PeripheralBattery& d) { return d.percent == percent; });
    });
  };

  section.applySettings();
  EXPECT_FALSE(section.isMonitoring());
  section.refresh();
  ASSERT_TRUE(mouseAt(8)) << describe(section.devices());
  EXPECT_EQ(notifyCalls(bus).count, 0) << "a Refresh with notices off";
  EXPECT_TRUE(loadLowBatteryLedger(settings).entries.empty());

  section.setNotifyLow(true);
  EXPECT_TRUE(section.isMonitoring());
  EXPECT_EQ(settings.boolValue(kNotifyLowSetting), true);
  ASSERT_TRUE(executor.runUntil([&] { return notifyCalls(bus).count == 1; }));

  EXPECT_THROW(section.setLowThreshold(25), std::invalid_argument);
  EXPECT_FALSE(settings.integerValue(kLowThresholdSetting).has_value());
  section.setLowThreshold(20);
  EXPECT_EQ(section.settings().lowThreshold, 20);

  section.setNotifyLow(false);
  EXPECT_FALSE(section.isMonitoring());
  bus.call(kUPower, kUPowerPath, "org.freedesktop.DBus.Mock.SetDeviceProperties",
           {"/org/freedesktop/UPower/devices/mouse", "{'Percentage': <5.0>}"});
  section.refresh();
  ASSERT_TRUE(mouseAt(5)) << describe(section.devices());
  EXPECT_EQ(notifyCalls(bus).count, 1) << "stopped, the monitor posts nothing";
  EXPECT_GE(changes, 4);
}

// What `brisko batteries` and `brisko batteries --check` print and post.
TEST(BatteryCommandLine, ListsAndChecksWithNotices) {
  MockBus bus;
  ASSERT_TRUE(bus.isRunning());
  ASSERT_TRUE(bus.startTemplate("upower", kUPower));
  ASSERT_TRUE(bus.startTemplate("notification_daemon", "org.freedesktop.Notifications"));
  bus.call(kUPower, kUPowerPath, "org.freedesktop.DBus.Mock.AddDischargingBattery",
           {"BAT0", "Laptop", "20.0", "600"});
  addUPowerDevice(bus, "mouse", mouse(45));
  TemporaryDirectory root;
  SettingsStore settings(root / "settings.json");

  EXPECT_EQ(readBatteryList(settings, false, root / "none"),
            (std::vector<std::string>{"Computer  This computer  20%",
                                      "Mouse  Office <Mouse> & Co  45%"}));
  const Json list = Json::parse(readBatteryList(settings, true, root / "none").at(0));
  EXPECT_EQ(list.at(1), (Json{{"id", "aa:bb:cc:dd:ee:01"},
                              {"name", "Office <Mouse> & Co"},
                              {"kind", "mouse"},
                              {"percent", 45},
                              {"isCharging", false}}));

  for (int round : {1, 2}) {
    EXPECT_EQ(checkBatteriesOnce(settings, root / "none").size(), 2u) << round;
    EXPECT_EQ(notifyCalls(bus).count, 1) << round;
  }
  EXPECT_NE(
      notifyCalls(bus).lastCall.find("<'Computer battery low'>, <'This computer is at 20%.'>"),
      std::string::npos)
      << notifyCalls(bus).lastCall;
  EXPECT_TRUE(loadLowBatteryLedger(settings).entries.contains("internal-battery"));
}

}  // namespace
}  // namespace brisko
