// `brisko tools` against tools that the real npm installed into a home of
// its own: the listing agrees with npm's, and a removal leaves npm's view
// consistent.

#include <gtest/gtest.h>
#include <unistd.h>
#include <nlohmann/json.hpp>

#include <map>
#include <set>

#include "testing/subprocess.h"
#include "testing/temporary_directory.h"

namespace brisko {
namespace {

using testing::ProcessOptions;
using testing::ProcessResult;

class BriskoTools : public ::testing::Test {
 protected:
  void SetUp() override {
    if (::access("/usr/bin/npm", X_OK) != 0) GTEST_SKIP() << "npm is not installed";
    folder_.writeFile(
        "hello/package.json",
        R"({"name":"hello-tool","version":"1.2.3","bin":{"hello":"bin/hello.js","hi":"bin/hello.js"}})");
    folder_.writeFile("hello/bin/hello.js", "#!/usr/bin/env node\nconsole.log('hi')\n");
    folder_.writeFile("scoped/package.json",
                      R"({"name":"@acme/scoped","version":"0.1.0","bin":{"scoped":"cli.js"}})");
    folder_.writeFile("scoped/cli.js", "#!/usr/bin/env node\n");
    folder_.writeFile("linked/package.json",
                      R"({"name":"linked-tool","version":"9.9.9","bin":{"lt":"x.js"}})");
    folder_.writeFile("linked/x.js", "#!/usr/bin/env node\n");
    folder_.makeDirectory("home");
    // Offline: the packages are local folders, and npm is told not to look
    // further.
    const ProcessResult installed =
        npm({"install", "-g", "--offline", "--no-audit", "--no-fund", "--prefix", prefix(),
             folder_ / "hello", folder_ / "scoped"});
    ASSERT_EQ(installed.exitStatus, 0) << installed.standardError;
    ASSERT_EQ(
        npm({"install", "-g", "--offline", "--prefix", prefix(), folder_ / "linked"}).exitStatus,
        0);
  }

  std::string prefix() const { return home_ + "/.npm-global"; }

  ProcessOptions options(const std::string& input = {}) const {
    ProcessOptions options;
    options.standardInput = input;
    options.environment = {{"HOME", home_},
                           {"XDG_DATA_HOME", home_ + "/.local/share"},
                           {"XDG_CONFIG_HOME", home_ + "/.config"},
                           {"XDG_CACHE_HOME", home_ + "/.cache"}};
    options.unsetEnvironment = {"NPM_CONFIG_PREFIX", "npm_config_prefix", "CARGO_HOME",
                                "DBUS_SESSION_BUS_ADDRESS"};
    return options;
  }

  ProcessResult npm(std::vector<std::string> arguments) const {
    arguments.insert(arguments.begin(), "/usr/bin/npm");
    return testing::runProcess(arguments, options());
  }

  ProcessResult brisko(std::vector<std::string> arguments, const std::string& input = {}) const {
    arguments.insert(arguments.begin(), BRISKO_CLI_PATH);
    return testing::runProcess(arguments, options(input));
  }

  // Name to version, as `npm ls -g` reports the prefix's packages.
  std::map<std::string, std::string> npmList() const {
    const ProcessResult listed = npm({"ls", "-g", "--json", "--prefix", prefix()});
    std::map<std::string, std::string> packages;
    const auto json = nlohmann::json::parse(listed.standardOutput, nullptr, false);
    if (json.is_object() && json.contains("dependencies")) {
      for (const auto& [name, package] : json["dependencies"].items())
        packages[name] = package.value("version", "");
    }
    return packages;
  }

  // The tools of our prefix that `brisko tools --json` lists, by name.
  std::map<std::string, nlohmann::json> briskoList() const {
    const ProcessResult listed = brisko({"tools", "--json"});
    EXPECT_EQ(listed.exitStatus, 0) << listed.standardError;
    std::map<std::string, nlohmann::json> tools;
    for (const auto& line : testing::linesOf(listed.standardOutput)) {
      const auto record = nlohmann::json::parse(line);
      if (record.value("runtimeID", "").starts_with(home_)) tools[record["name"]] = record;
    }
    return tools;
  }

  testing::TemporaryDirectory folder_;
  std::string home_ = folder_ / "home";
};

TEST_F(BriskoTools, ListsWhatNpmInstalledAndRemovesItAsNpmWould) {
  auto tools = briskoList();
  std::map<std::string, std::string> versions;
  for (const auto& [name, record] : tools)
    versions[name] = record.value("version", "");
  EXPECT_EQ(versions, npmList());
  ASSERT_TRUE(tools.count("hello-tool"));
  EXPECT_EQ(tools["hello-tool"]["commands"], nlohmann::json({"hello", "hi"}));
  EXPECT_EQ(tools["linked-tool"]["isLink"], true);

  // Nothing goes without a yes, nor in a dry run.
  EXPECT_EQ(brisko({"tools", "remove", "hello-tool"}).exitStatus, 1);
  EXPECT_EQ(brisko({"tools", "remove", "hello-tool", "--dry-run"}).exitStatus, 0);
  EXPECT_EQ(briskoList().size(), 3u);

  // A record piped back is removed while it is still what was listed.
  const ProcessResult scoped = brisko({"tools", "remove", "--stdin", "--yes", "--json"},
                                      tools["@acme/scoped"].dump() + "\n");
  EXPECT_EQ(scoped.exitStatus, 0) << scoped.standardError;
  EXPECT_NE(scoped.standardOutput.find("\"outcome\":\"removed\""), std::string::npos);
  EXPECT_FALSE(std::filesystem::exists(prefix() + "/lib/node_modules/@acme"));

  const ProcessResult removed = brisko({"tools", "remove", "hello-tool", "linked-tool", "--yes"});
  EXPECT_EQ(removed.exitStatus, 0) << removed.standardOutput << removed.standardError;
  EXPECT_TRUE(npmList().empty());
  EXPECT_TRUE(std::filesystem::is_empty(prefix() + "/bin"));
  // Into the Trash, and the folder a link pointed to is untouched.
  std::set<std::string> trashed;
  for (const auto& entry : std::filesystem::directory_iterator(home_ + "/.local/share/Trash/files"))
    trashed.insert(entry.path().filename());
  EXPECT_EQ(trashed, (std::set<std::string>{"hello-tool", "linked-tool", "scoped"}));
  EXPECT_TRUE(std::filesystem::exists(folder_ / "linked/x.js"));

  // npm still works on the prefix afterwards.
  EXPECT_EQ(npm({"install", "-g", "--offline", "--prefix", prefix(), folder_ / "hello"}).exitStatus,
            0);
  EXPECT_EQ(npmList(), (std::map<std::string, std::string>{{"hello-tool", "1.2.3"}}));
}

}  // namespace
}  // namespace brisko
