// `brisko tools` against tools that the real npm installed into a home of
// its own: the listing agrees with npm's, and a removal leaves npm's view
// consistent.

#include <gtest/gtest.h>
#include <unistd.h>
#include <nlohmann/json.hpp>

#include <cstdlib>
#include <filesystem>
#include <functional>
#include <map>
#include <set>

#include "testing/subprocess.h"
#include "testing/temporary_directory.h"

namespace brisko {
namespace {

using testing::ProcessOptions;
using testing::ProcessResult;

// A program on the PATH, or in the places where rustup and friends put theirs.
std::string program(const std::string& name) {
  std::string path = std::getenv("PATH") ? std::getenv("PATH") : "";
  if (const char* home = std::getenv("HOME")) path += std::string(":") + home + "/.cargo/bin";
  for (size_t start = 0; start <= path.size();) {
    const size_t colon = std::min(path.find(':', start), path.size());
    const std::string candidate = path.substr(start, colon - start) + "/" + name;
    if (colon > start && ::access(candidate.c_str(), X_OK) == 0) return candidate;
    start = colon + 1;
  }
  return {};
}

// A home of its own, and `brisko` run in it.
class ToolsHome : public ::testing::Test {
 protected:
  ToolsHome() { folder_.makeDirectory("home"); }

  ProcessOptions options(const std::string& input = {}) const {
    ProcessOptions options;
    options.standardInput = input;
    options.environment = {{"HOME", home_},
                           {"XDG_DATA_HOME", home_ + "/.local/share"},
                           {"XDG_CONFIG_HOME", home_ + "/.config"},
                           {"XDG_CACHE_HOME", home_ + "/.cache"},
                           {"CARGO_HOME", home_ + "/.cargo"}};
    // rustup's cargo finds its toolchains under the real home.
    if (const char* home = std::getenv("HOME"))
      options.environment.emplace_back("RUSTUP_HOME", std::getenv("RUSTUP_HOME")
                                                          ? std::getenv("RUSTUP_HOME")
                                                          : std::string(home) + "/.rustup");
    options.unsetEnvironment = {"NPM_CONFIG_PREFIX", "npm_config_prefix",
                                "DBUS_SESSION_BUS_ADDRESS"};
    return options;
  }

  ProcessResult run(const std::string& path, std::vector<std::string> arguments,
                    const std::string& input = {}) const {
    arguments.insert(arguments.begin(), path);
    return testing::runProcess(arguments, options(input));
  }

  ProcessResult brisko(std::vector<std::string> arguments, const std::string& input = {}) const {
    return run(BRISKO_CLI_PATH, std::move(arguments), input);
  }

  // The tools that `brisko tools --json` lists, by name, when `keep` holds.
  std::map<std::string, nlohmann::json> briskoList(
      const std::function<bool(const nlohmann::json&)>& keep) const {
    const ProcessResult listed = brisko({"tools", "--json"});
    EXPECT_EQ(listed.exitStatus, 0) << listed.standardError;
    std::map<std::string, nlohmann::json> tools;
    for (const auto& line : testing::linesOf(listed.standardOutput)) {
      const auto record = nlohmann::json::parse(line);
      if (keep(record)) tools[record["name"]] = record;
    }
    return tools;
  }

  testing::TemporaryDirectory folder_;
  std::string home_ = folder_ / "home";
};

class BriskoTools : public ToolsHome {
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

  ProcessResult npm(std::vector<std::string> arguments) const {
    return run("/usr/bin/npm", std::move(arguments));
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

  std::map<std::string, nlohmann::json> briskoList() const {
    return ToolsHome::briskoList([&](const nlohmann::json& record) {
      return record.value("runtimeID", "").starts_with(home_);
    });
  }
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

namespace brisko {
namespace {

// Cargo's two manifests after a removal: `cargo install --list` no longer
// has the crate, and installing it again works (a manifest left broken
// fails every later install).
TEST_F(ToolsHome, CargoCratesGoAndCargoStillReadsItsManifests) {
  const std::string cargo = program("cargo");
  if (cargo.empty()) GTEST_SKIP() << "cargo is not installed";
  // Two crates whose names begin alike; one of two binaries.
  folder_.writeFile("pair/Cargo.toml",
                    "[package]\nname=\"pair\"\nversion=\"0.1.0\"\nedition=\"2021\"\n"
                    "[[bin]]\nname=\"pair-a\"\npath=\"src/a.rs\"\n"
                    "[[bin]]\nname=\"pair-b\"\npath=\"src/b.rs\"\n");
  folder_.writeFile("pair/src/a.rs", "fn main() {}\n");
  folder_.writeFile("pair/src/b.rs", "fn main() {}\n");
  folder_.writeFile("pairtool/Cargo.toml",
                    "[package]\nname=\"pairtool\"\nversion=\"0.2.0\"\nedition=\"2021\"\n");
  folder_.writeFile("pairtool/src/main.rs", "fn main() {}\n");
  for (const char* crate : {"pair", "pairtool"}) {
    const ProcessResult installed =
        run(cargo, {"install", "--offline", "--quiet", "--path", folder_ / crate});
    ASSERT_EQ(installed.exitStatus, 0) << installed.standardError;
  }
  const auto cargoTools = [](const nlohmann::json& record) { return record["source"] == "cargo"; };
  auto tools = briskoList(cargoTools);
  ASSERT_EQ(tools.size(), 2u);
  EXPECT_EQ(tools["pair"]["commands"], nlohmann::json({"pair-a", "pair-b"}));
  EXPECT_EQ(tools["pairtool"]["version"], "0.2.0");

  const ProcessResult removed = brisko({"tools", "remove", "pair", "--yes"});
  EXPECT_EQ(removed.exitStatus, 0) << removed.standardOutput << removed.standardError;
  const std::string list = run(cargo, {"install", "--list"}).standardOutput;
  EXPECT_EQ(list.find("pair v0.1.0"), std::string::npos) << list;
  EXPECT_NE(list.find("pairtool v0.2.0"), std::string::npos) << list;
  EXPECT_EQ(briskoList(cargoTools).size(), 1u);
  const ProcessResult again =
      run(cargo, {"install", "--offline", "--quiet", "--path", folder_ / "pair"});
  EXPECT_EQ(again.exitStatus, 0) << again.standardError;
  EXPECT_NE(run(cargo, {"install", "--list"}).standardOutput.find("pair v0.1.0"),
            std::string::npos);
}

}  // namespace
}  // namespace brisko

namespace brisko {
namespace {

// The login shell comes from the user database, here nss_wrapper's: a shell
// run from Homebrew's fish keg locks that formula, and only that one.
TEST_F(ToolsHome, AFormulaTheLoginShellRunsFromIsLocked) {
  const char* wrapper = "/usr/lib/x86_64-linux-gnu/libnss_wrapper.so";
  if (::access(wrapper, R_OK) != 0) GTEST_SKIP() << "libnss-wrapper is not installed";
  const std::string brew = home_ + "/.linuxbrew";
  folder_.writeFile("home/.linuxbrew/bin/brew", "#!/bin/sh\nexit 1\n");
  std::filesystem::permissions(brew + "/bin/brew", std::filesystem::perms::owner_all);
  for (const char* keg : {"fish/4.0", "fish-extra/1.0"}) {
    folder_.writeFile(std::string("home/.linuxbrew/Cellar/") + keg + "/INSTALL_RECEIPT.json",
                      R"({"installed_on_request":true})");
  }
  folder_.writeFile("home/.linuxbrew/Cellar/fish/4.0/bin/fish");
  folder_.makeSymlink("home/.linuxbrew/bin/fish", "../Cellar/fish/4.0/bin/fish");
  folder_.writeFile("passwd", "root:x:0:0:root:" + home_ + ":" + brew + "/bin/fish\n");
  folder_.writeFile("group", "root:x:0:\n");

  ProcessOptions withShell = options();
  withShell.environment.insert(withShell.environment.end(),
                               {{"LD_PRELOAD", wrapper},
                                {"NSS_WRAPPER_PASSWD", folder_ / "passwd"},
                                {"NSS_WRAPPER_GROUP", folder_ / "group"},
                                // The wrapper comes before the sanitizer's runtime.
                                {"ASAN_OPTIONS", "verify_asan_link_order=0"}});
  const ProcessResult listed = testing::runProcess({BRISKO_CLI_PATH, "tools", "--json"}, withShell);
  ASSERT_EQ(listed.exitStatus, 0) << listed.standardError;
  std::map<std::string, std::string> locks;
  for (const auto& line : testing::linesOf(listed.standardOutput)) {
    const auto record = nlohmann::json::parse(line);
    if (record["source"] == "homebrew") locks[record["name"]] = record.value("lockedReason", "");
  }
  EXPECT_EQ(locks,
            (std::map<std::string, std::string>{{"fish", "loginShell"}, {"fish-extra", ""}}));

  const ProcessResult removal =
      testing::runProcess({BRISKO_CLI_PATH, "tools", "remove", "fish", "--yes"}, withShell);
  EXPECT_EQ(removal.exitStatus, 1);
  EXPECT_NE(removal.standardOutput.find("fish stays: your login shell runs from it."),
            std::string::npos)
      << removal.standardOutput;
  EXPECT_TRUE(std::filesystem::exists(brew + "/Cellar/fish/4.0/bin/fish"));
}

}  // namespace
}  // namespace brisko

namespace brisko {
namespace {

// A wheel of one console script, written by Python's zipfile: pipx installs
// it offline, as a package folder would need the network for its build.
constexpr const char* kWriteWheel = R"(
import base64, hashlib, sys, zipfile
folder, name, version = sys.argv[1:4]
info = f"{name}-{version}.dist-info"
files = {f"{name}/__init__.py": "def main():\n    print('hi')\n",
         f"{info}/METADATA": f"Metadata-Version: 2.1\nName: {name.replace('_', '-')}\nVersion: {version}\n",
         f"{info}/WHEEL": "Wheel-Version: 1.0\nGenerator: brisko-test\nRoot-Is-Purelib: true\nTag: py3-none-any\n",
         f"{info}/entry_points.txt": f"[console_scripts]\ngreet = {name}:main\n"}
record = []
for path, text in files.items():
    digest = base64.urlsafe_b64encode(hashlib.sha256(text.encode()).digest()).rstrip(b"=").decode()
    record.append(f"{path},sha256={digest},{len(text)}")
record.append(f"{info}/RECORD,,")
with zipfile.ZipFile(f"{folder}/{name}-{version}-py3-none-any.whl", "w") as wheel:
    for path, text in files.items():
        wheel.writestr(path, text)
    wheel.writestr(f"{info}/RECORD", "\n".join(record) + "\n")
)";

TEST_F(ToolsHome, PipxToolsAgreeWithPipxAndGoWithTheirCommand) {
  const std::string pipx = program("pipx");
  if (pipx.empty()) GTEST_SKIP() << "pipx is not installed";
  ASSERT_EQ(run("/usr/bin/python3", {"-c", kWriteWheel, folder_.path(), "greet_tool", "0.3.0"})
                .exitStatus,
            0);
  ProcessOptions offline = options();
  offline.environment.emplace_back("PIP_NO_INDEX", "1");
  const ProcessResult installed = testing::runProcess(
      {pipx, "install", folder_ / "greet_tool-0.3.0-py3-none-any.whl"}, offline);
  ASSERT_EQ(installed.exitStatus, 0) << installed.standardError;

  const auto pipxTools = [](const nlohmann::json& record) { return record["source"] == "pipx"; };
  auto tools = briskoList(pipxTools);
  const auto listed = nlohmann::json::parse(run(pipx, {"list", "--json"}).standardOutput);
  ASSERT_EQ(tools.size(), 1u);
  ASSERT_TRUE(tools.count("greet-tool"));
  EXPECT_EQ(tools["greet-tool"]["version"],
            listed["venvs"]["greet-tool"]["metadata"]["main_package"]["package_version"]);
  EXPECT_EQ(tools["greet-tool"]["commands"], nlohmann::json({"greet"}));

  const ProcessResult removed = brisko({"tools", "remove", "greet-tool", "--yes"});
  EXPECT_EQ(removed.exitStatus, 0) << removed.standardOutput << removed.standardError;
  EXPECT_TRUE(nlohmann::json::parse(run(pipx, {"list", "--json"}).standardOutput)["venvs"].empty());
  EXPECT_FALSE(
      std::filesystem::exists(std::filesystem::symlink_status(home_ + "/.local/bin/greet")));
  EXPECT_TRUE(briskoList(pipxTools).empty());
}

}  // namespace
}  // namespace brisko
