#include "settings/settings_store.h"

#include <sys/stat.h>

#include <thread>

#include <gtest/gtest.h>

#include "base/file_contents.h"
#include "testing/temporary_directory.h"

namespace brisko {
namespace {

using testing::TemporaryDirectory;

class Settings : public ::testing::Test {
 protected:
  std::string path() const { return folder_ / "config/brisko/settings.json"; }
  void write(const std::string& text) { folder_.writeFile("config/brisko/settings.json", text); }
  Json fileObject() const { return Json::parse(readFileContents(path()).value()); }

  TemporaryDirectory folder_;
};

TEST_F(Settings, ReadsWhatIsThereAndTreatsTheRestAsAbsent) {
  const struct {
    const char* text;  // none: no file
    std::optional<bool> flag;
    std::optional<std::int64_t> threshold;
    std::optional<std::string> order;
  } cases[] = {
      {nullptr, {}, {}, {}},
      {"", {}, {}, {}},
      {"{\"a\": ", {}, {}, {}},
      {"[1, 2]", {}, {}, {}},
      {R"({"scan.downloadedInstallers": false, "battery.lowThreshold": 20,
           "images.sortOrder": "name"})",
       false, 20, "name"},
      // Wrong types count as absent, each key on its own.
      {R"({"scan.downloadedInstallers": 0, "battery.lowThreshold": 20.5,
           "images.sortOrder": ["name"]})",
       {},
       {},
       {}},
      {R"({"scan.downloadedInstallers": null, "battery.lowThreshold": 18446744073709551615,
           "images.sortOrder": "date"})",
       {},
       {},
       "date"},
  };
  for (const auto& testCase : cases) {
    SCOPED_TRACE(testCase.text ? testCase.text : "no file");
    ::unlink(path().c_str());
    if (testCase.text) write(testCase.text);
    const SettingsStore store(path());
    EXPECT_EQ(store.boolValue("scan.downloadedInstallers"), testCase.flag);
    EXPECT_EQ(store.integerValue("battery.lowThreshold"), testCase.threshold);
    EXPECT_EQ(store.stringValue("images.sortOrder"), testCase.order);
  }
}

TEST_F(Settings, WritesOneKeyKeepingTheOthersSortedInAPrivateFolder) {
  write(R"({"zeta.later": {"kept": [1, 2]}, "battery.lowThreshold": 10})");
  SettingsStore store(path());
  store.setValue("images.folders", Json::array({"/a", "/b"}));
  store.setValue("battery.lowThreshold", 25);
  store.removeValue("missing.key");

  const Json object = fileObject();
  EXPECT_EQ(object["zeta.later"], Json::parse(R"({"kept": [1, 2]})"));
  EXPECT_EQ(object["images.folders"], Json::array({"/a", "/b"}));
  EXPECT_EQ(store.integerValue("battery.lowThreshold"), 25);
  const std::string text = readFileContents(path()).value();
  EXPECT_LT(text.find("battery.lowThreshold"), text.find("images.folders"));
  EXPECT_LT(text.find("images.folders"), text.find("zeta.later"));

  store.removeValue("zeta.later");
  EXPECT_FALSE(fileObject().contains("zeta.later"));
  struct stat info;
  ASSERT_EQ(::stat((folder_ / "config/brisko").c_str(), &info), 0);
  EXPECT_EQ(info.st_mode & 0777, 0700u);
  ASSERT_EQ(::stat(path().c_str(), &info), 0);
  EXPECT_EQ(info.st_mode & 0777, 0600u);
}

TEST_F(Settings, ADamagedFileIsKeptAsideBeforeTheFirstWrite) {
  write("{\"scan.downloadedInstallers\": fal");
  SettingsStore store(path());
  store.setValue("scan.downloadedInstallers", true);
  EXPECT_EQ(readFileContents(path() + ".bad"), "{\"scan.downloadedInstallers\": fal");
  EXPECT_EQ(fileObject(), Json::parse(R"({"scan.downloadedInstallers": true})"));
}

TEST_F(Settings, WritersAtTheSameTimeLoseNoKey) {
  constexpr int kWriters = 4, kKeys = 25;
  std::vector<std::thread> writers;
  for (int writer = 0; writer < kWriters; ++writer) {
    writers.emplace_back([&, writer] {
      // A store of its own, as another process would have.
      SettingsStore store(path());
      for (int key = 0; key < kKeys; ++key)
        store.setValue("w" + std::to_string(writer) + ".k" + std::to_string(key), key);
    });
  }
  for (auto& writer : writers)
    writer.join();
  EXPECT_EQ(fileObject().size(), static_cast<size_t>(kWriters * kKeys));
}

TEST_F(Settings, AFolderThatCantBeMadeIsTheSystemsError) {
  folder_.writeFile("config/brisko", "a file where the folder should be");
  SettingsStore store(path());
  EXPECT_THROW(store.setValue("a.b", 1), std::system_error);
  EXPECT_EQ(store.value("a.b"), std::nullopt);
}

}  // namespace
}  // namespace brisko
