// The battery list: how the sources' answers merge, which kind a device is,
// which key names it, and the kernel's folder of power supplies.

#include "batteries/peripheral_battery_reader.h"

#include <gtest/gtest.h>

#include "batteries/battery_keys.h"
#include "batteries/kernel_power_supplies.h"
#include "testing/temporary_directory.h"

namespace brisko {
namespace {

using Kind = PeripheralBattery::Kind;
using PeripheralBatteryReader::readFull;
using PeripheralBatteryReader::readQuick;

// Sources that answer what a row says.
struct FixedSources : BatteryLevelSource, NamedDeviceSource, ComputerBatterySource {
  std::map<std::string, RegistryReading> levels;
  std::vector<ProfileDevice> named;
  std::optional<RegistryReading> computer;
  int namedReads = 0;

  std::map<std::string, RegistryReading> readLevels() override { return levels; }
  std::vector<ProfileDevice> readDevices() override {
    ++namedReads;
    return named;
  }
  std::optional<RegistryReading> readComputerBattery() override { return computer; }
  BatterySources sources() { return {this, this, this, "Desk"}; }
};

std::string describe(const std::vector<PeripheralBattery>& devices) {
  std::string text;
  for (const PeripheralBattery& d : devices) {
    text += d.id + "|" + d.name + "|" + std::string(enumName(d.kind)) + "|" +
            std::to_string(d.percent) + "|" + d.detail.value_or("-") + "|" +
            (d.isCharging ? "charging" : "") + "\n";
  }
  return text;
}

TEST(BatteryReading, FullReadMergesLevelsNamesAndLowEnergyReadings) {
  const struct {
    const char* name;
    std::map<std::string, RegistryReading> levels;
    std::vector<ProfileDevice> named;
    std::optional<RegistryReading> computer;
    std::vector<BluetoothLEBatteryReading> bluetoothLE;
    const char* expected;
  } rows[] = {
      {"the level source's percent beats main; its charging state counts",
       {{"aa:bb:cc:dd:ee:ff", {41, true}}},
       {{"aa:bb:cc:dd:ee:ff", "MX Keys", Kind::keyboard, 90}},
       RegistryReading{250, false},
       {},
       "internal-battery|Desk|mac|100|-|\naa:bb:cc:dd:ee:ff|MX Keys|keyboard|41|-|charging\n"},
      {"left and right give the smaller, detail joins all three",
       {{"11:22:33:44:55:66", {99, false}}},
       {{"11:22:33:44:55:66", "Buds", Kind::earbuds, 70, 80, 60, 30}},
       {},
       {},
       "11:22:33:44:55:66|Buds|earbuds|60|L 80%, R 60%, Case 30%|\n"},
      {"a case level alone lists nothing; main alone does; -3 shows as 0",
       {},
       {{"k1", "Case only", Kind::earbuds, {}, {}, {}, 50}, {"k2", "Pad", Kind::trackpad, -3}},
       {},
       {},
       "k2|Pad|trackpad|0|-|\n"},
      {"a low-energy reading replaces only the percent of a named line, else adds one",
       {},
       {{"k1", "Mouse One", Kind::mouse, 50}},
       {},
       {{"ff:ee", "Mouse One", 20}, {"00:11", "Zebra kb", 130}},
       "k1|Mouse One|mouse|20|-|\nble:00:11|Zebra kb|keyboard|100|-|\n"},
      {"after the computer, names in human order, then ids",
       {},
       {{"b", "mouse 10", Kind::mouse, 5},
        {"a", "mouse 10", Kind::mouse, 5},
        {"c", "Mouse 9", Kind::mouse, 5}},
       RegistryReading{50, true},
       {},
       "internal-battery|Desk|mac|50|-|charging\nc|Mouse 9|mouse|5|-|\n"
       "a|mouse 10|mouse|5|-|\nb|mouse 10|mouse|5|-|\n"},
  };
  for (const auto& row : rows) {
    FixedSources fixed;
    fixed.levels = row.levels;
    fixed.named = row.named;
    fixed.computer = row.computer;
    const auto reading = readFull(fixed.sources(), row.bluetoothLE);
    EXPECT_EQ(describe(reading.devices), row.expected) << row.name;
    EXPECT_EQ(reading.directory.entries.size(), row.named.size()) << row.name;
  }
}

TEST(BatteryReading, QuickReadNamesByDirectoryAndReportsTheUnknown) {
  FixedSources fixed;
  fixed.levels = {{"aa:bb", {8, false}}, {"cc:dd", {60, true}}};
  fixed.computer = RegistryReading{77, false};
  PeripheralDirectory directory;
  directory.entries["aa:bb"] = {"Office mouse", Kind::mouse};

  auto quick = readQuick(fixed.sources(), directory, {});
  EXPECT_EQ(describe(quick.devices),
            "internal-battery|Desk|mac|77|-|\naa:bb|Office mouse|mouse|8|-|\n");
  EXPECT_EQ(quick.unknown, std::vector<std::string>{"cc:dd"});
  EXPECT_EQ(fixed.namedReads, 0);

  // The directory round-trips through JSON; damage in any part empties it.
  EXPECT_EQ(decodeDirectory(encodeDirectory(directory)), directory);
  for (const char* damaged :
       {R"([])", R"({"entries": 3})", R"({"entries": {"x": {"name": "a", "kind": "toaster"}}})",
        R"({"entries": {"x": {"name": 1, "kind": "mouse"}}})"})
    EXPECT_TRUE(decodeDirectory(Json::parse(damaged)).entries.empty()) << damaged;
}

TEST(BatteryReading, KindsComeFromMinorTypeThenName) {
  const struct {
    const char* name;
    std::optional<std::string> minorType;
    Kind expected;
  } rows[] = {
      {"Bob's AirPods Pro", "headphones", Kind::earbuds},
      {"Desk", "input-keyboard", Kind::keyboard},
      {"Pad", "trackpad", Kind::trackpad},
      {"Keyboard of sorts", "input-mouse", Kind::mouse},
      {"Q", "audio-headset", Kind::headphones},
      {"Mouse", "phone", Kind::other},
      {"MX KB", std::nullopt, Kind::keyboard},
      {"Magic Trackpad", std::nullopt, Kind::trackpad},
      {"MOUSE", std::nullopt, Kind::mouse},
      {"Speaker", std::nullopt, Kind::other},
  };
  for (const auto& row : rows)
    EXPECT_EQ(decideKind(row.name, row.minorType), row.expected) << row.name;
  EXPECT_EQ(decideKind("x", upowerMinorType(14)), Kind::trackpad);
  EXPECT_EQ(decideKind("Mouse", upowerMinorType(2)), Kind::mouse);
  EXPECT_EQ(decideKind("Mouse", upowerMinorType(0)), Kind::mouse);
  EXPECT_EQ(decideKind("Mouse", upowerMinorType(8)), Kind::other);
}

TEST(BatteryReading, KeysAndLevelsFromServiceWords) {
  const struct {
    const char* serial;
    const char* name;
    std::optional<std::string> expected;
  } keys[] = {
      {"AA-BB-CC-DD-EE-FF", "", "aa:bb:cc:dd:ee:ff"},
      {"", "hid-AA:BB:CC:DD:EE:0F-battery", "aa:bb:cc:dd:ee:0f"},
      {"", "/org/bluez/hci0/dev_12_34_56_78_9A_BC", "12:34:56:78:9a:bc"},
      {" SN-77X ", "hid-aa:bb:cc:dd:ee:ff-battery", "aa:bb:cc:dd:ee:ff"},
      {" SN-77X ", "battery_BAT1", "sn:77x"},
      {"", "AA:BB:CC:DD:EE:FF:00", std::nullopt},  // seven pairs are no address
      {"", "mouse", std::nullopt},
  };
  for (const auto& row : keys)
    EXPECT_EQ(batteryKey(row.serial, row.name), row.expected) << row.serial << row.name;

  EXPECT_EQ(upowerPercent(41.5, 1, 2), 42);
  EXPECT_EQ(upowerPercent(60, 0, 2), std::nullopt);
  EXPECT_EQ(upowerPercent(0, std::nullopt, 0), std::nullopt);
  EXPECT_EQ(upowerPercent(0, std::nullopt, 2), 0);
  EXPECT_EQ(kernelPercent("250\n", "Low"), 250);
  EXPECT_EQ(kernelPercent("garbage", "High\n"), 70);
  EXPECT_EQ(kernelPercent(std::nullopt, "Unknown"), std::nullopt);
}

// A power-supply class folder linked as the kernel links it: each entry is a
// symbolic link into a device folder.
TEST(BatteryReading, KernelPowerSuppliesReadsAFixtureTree) {
  testing::TemporaryDirectory root;
  const auto supply = [&](const std::string& name,
                          const std::vector<std::pair<std::string, std::string>>& files) {
    const std::string device = "devices/platform/" + name + "/power_supply/" + name;
    root.makeDirectory(device);
    for (const auto& [file, text] : files)
      root.writeFile(device + "/" + file, text);
    root.makeSymlink("class/power_supply/" + name, root / device);
  };
  supply("BAT0", {{"type", "Battery\n"},
                  {"scope", "System\n"},
                  {"status", "Charging\n"},
                  {"capacity", "40\n"},
                  {"energy_now", "20000000\n"},
                  {"energy_full", "40000000\n"}});
  supply("BAT1", {{"type", "Battery\n"},
                  {"status", "Discharging\n"},
                  {"capacity", "100\n"},
                  {"energy_now", "60000000\n"},
                  {"energy_full", "60000000\n"}});
  supply("AC", {{"type", "Mains\n"}, {"online", "1\n"}});
  supply("hid-aa:bb:cc:dd:ee:ff-battery",
         {{"type", "Battery\n"}, {"scope", "Device\n"}, {"capacity", "250\n"}});
  supply("hid-11:22:33:44:55:66-battery", {{"type", "Battery\n"},
                                           {"scope", "Device\n"},
                                           {"capacity_level", "Critical\n"},
                                           {"status", "Charging\n"}});
  supply("hid-00:00:00:00:00:01-battery",
         {{"type", "Battery\n"}, {"scope", "Device\n"}, {"capacity", "-3\n"}});
  supply("hid-00:00:00:00:00:02-battery",
         {{"type", "Battery\n"}, {"scope", "Device\n"}, {"capacity", "\x01\xff garbage"}});
  supply("hid-00:00:00:00:00:03-battery",
         {{"type", "Battery\n"}, {"scope", "Device\n"}, {"capacity", std::string(3 << 20, '7')}});
  supply("wacom_battery_0", {{"type", "Battery\n"}, {"scope", "Device\n"}, {"capacity", "9"}});

  KernelPowerSupplies kernel(root / "class/power_supply");
  std::map<std::string, RegistryReading> expected{{"aa:bb:cc:dd:ee:ff", {250, false}},
                                                  {"11:22:33:44:55:66", {5, true}},
                                                  {"00:00:00:00:00:01", {-3, false}}};
  EXPECT_EQ(kernel.readLevels(), expected);
  // (20 + 60) / (40 + 60) Wh, charging because one of the two charges.
  EXPECT_EQ(kernel.readComputerBattery(), (RegistryReading{80, true}));

  PeripheralDirectory directory;
  directory.entries["aa:bb:cc:dd:ee:ff"] = {"Keys & <More>", Kind::keyboard};
  directory.entries["00:00:00:00:00:01"] = {"Mouse", Kind::mouse};
  const auto quick = readQuick({&kernel, nullptr, &kernel, "Desk"}, directory, {});
  EXPECT_EQ(
      describe(quick.devices),
      "internal-battery|Desk|mac|80|-|charging\n"
      "aa:bb:cc:dd:ee:ff|Keys & <More>|keyboard|100|-|\n00:00:00:00:00:01|Mouse|mouse|0|-|\n");
  EXPECT_EQ(quick.unknown, std::vector<std::string>{"11:22:33:44:55:66"});

  EXPECT_EQ(KernelPowerSupplies(root / "absent").readComputerBattery(), std::nullopt);
}

}  // namespace
}  // namespace brisko
