// Removing listed tools from a home laid out as their managers lay it out,
// with a stand-in Trash that really moves and a stand-in brew that logs how
// it was called.

#include "tools/tool_remover.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <map>

#include "base/file_contents.h"
#include "testing/temporary_directory.h"
#include "testing/tool_home.h"
#include "tools/tool_files.h"
#include "tools/tool_inventory_reader.h"

namespace brisko {
namespace {

using testing::TemporaryDirectory;

class ToolRemoverTest : public ::testing::Test {
 protected:
  void SetUp() override {
    testing::layOutToolHome(home);
    home.makeDirectory("trashed");
    // A brew that does what brew-mode says and logs its words and settings.
    home.writeFile(".linuxbrew/bin/brew", R"(#!/bin/sh
echo "$* NO_AUTO_UPDATE=$HOMEBREW_NO_AUTO_UPDATE NONINTERACTIVE=$NONINTERACTIVE" >> "$0.log"
mode=$(cat "$0.mode" 2>/dev/null)
case "$mode" in
  leave) exit 0 ;;
  fail) exit 1 ;;
  hang) sleep 30 ;;
  flood) head -c 50000000 /dev/zero ;;
esac
[ "$1" = uninstall ] && rm -rf "$(dirname "$0")/../Cellar/$3"
exit 0
)");
    ::chmod((home / ".linuxbrew/bin/brew").c_str(), 0755);
  }

  ToolRemover remover(bool runCommands = true) const {
    return ToolRemover(
        testing::toolHomeEnvironment(home),
        [this](const std::string& path) -> std::optional<std::string> {
          const std::string to = home / ("trashed/" + std::to_string(trashed_++));
          if (::rename(path.c_str(), to.c_str()) != 0) return "rename failed";
          return std::nullopt;
        },
        runCommands, std::chrono::seconds(1));
  }

  CommandLineTool listed(const std::string& name) const {
    for (auto& tool : readToolInventory(testing::toolHomeEnvironment(home)).tools) {
      if (tool.name == name) return tool;
    }
    ADD_FAILURE() << name << " isn't listed";
    return {};
  }

  std::string brewLog() const {
    return readFileContents(home / ".linuxbrew/bin/brew.log").value_or("");
  }

  TemporaryDirectory home;
  mutable int trashed_ = 0;
};

TEST_F(ToolRemoverTest, NodePackagesGoWithTheirLinksAndEmptyScopes) {
  const std::string modules = home / ".nvm/versions/node/v20.11.0/lib/node_modules";
  const std::string bin = home / ".nvm/versions/node/v20.11.0/bin";

  auto result = remover().remove(listed("typescript"));
  EXPECT_EQ(result.failure, std::nullopt);
  EXPECT_FALSE(tool_files::exists(modules + "/typescript"));
  EXPECT_FALSE(tool_files::exists(bin + "/tsc"));
  EXPECT_FALSE(tool_files::exists(bin + "/tsserver"));
  EXPECT_TRUE(tool_files::exists(bin + "/elsewhere"));  // another's link stays
  EXPECT_TRUE(tool_files::exists(bin + "/npm"));

  // A scope folder goes once its last package went, not before.
  home.writeFile(".nvm/versions/node/v20.11.0/lib/node_modules/@acme/other/package.json", "{}");
  EXPECT_EQ(remover().remove(listed("@acme/tool")).failure, std::nullopt);
  EXPECT_TRUE(tool_files::exists(modules + "/@acme"));
  EXPECT_FALSE(tool_files::exists(bin + "/acme"));
  EXPECT_EQ(remover().remove(listed("@acme/other")).failure, std::nullopt);
  EXPECT_FALSE(tool_files::exists(modules + "/@acme"));

  // A linked package goes as the link; the folder it points to stays whole.
  EXPECT_EQ(remover().remove(listed("local-tool")).failure, std::nullopt);
  EXPECT_FALSE(tool_files::exists(modules + "/local-tool"));
  EXPECT_TRUE(tool_files::exists(home / "src/local-tool/package.json"));
}

TEST_F(ToolRemoverTest, WhatChangedOrIsNeededStaysUntouched) {
  const std::string python = home / ".local/share/uv/tools/ruff";
  const struct {
    const char* name;
    const char* tool;
    std::function<void(CommandLineTool&)> change;
    ToolRemoval expected;
    std::string staysAt;
  } rows[] = {
      {"replaced folder", "ruff",
       [&](CommandLineTool&) {
         ::rename(python.c_str(), (python + ".old").c_str());
         home.makeDirectory(".local/share/uv/tools/ruff/bin");
       },
       ToolRemoval::changed, python + "/bin"},
      {"parent component", "black",
       [&](CommandLineTool& tool) { tool.id = home / ".local/share/pipx/venvs/black/../black"; },
       ToolRemoval::changed, home / ".local/share/pipx/venvs/black/bin/black"},
      {"needed by a formula, files gone", "jq",
       [&](CommandLineTool&) { testing::removeTree(home / ".linuxbrew/Cellar/jq"); },
       ToolRemoval::blocked, ""},
      {"login shell", "fish", [](CommandLineTool&) {}, ToolRemoval::blocked,
       home / ".linuxbrew/Cellar/fish/4.0/bin/fish"},
  };
  for (const auto& row : rows) {
    CommandLineTool tool = listed(row.tool);
    row.change(tool);
    EXPECT_EQ(remover().remove(tool).failure, row.expected) << row.name;
    if (!row.staysAt.empty()) {
      EXPECT_TRUE(tool_files::exists(row.staysAt)) << row.name;
    }
  }
  EXPECT_EQ(brewLog(), "");
  EXPECT_EQ(trashed_, 0);
}

TEST_F(ToolRemoverTest, CargoBinariesGoAndTheManifestsForgetTheCrate) {
  const auto result = remover().remove(listed("pair"));
  EXPECT_EQ(result.failure, std::nullopt);
  EXPECT_FALSE(tool_files::exists(home / ".cargo/bin/pair-a"));
  // The binary replaced by a link is not what was installed: it stays.
  EXPECT_TRUE(tool_files::exists(home / ".cargo/bin/pair-b"));

  const auto manifest = tool_files::readJsonObject(home / ".cargo/.crates2.json");
  ASSERT_TRUE(manifest.has_value());
  EXPECT_FALSE(manifest->at("installs").contains("pair 0.1.0 (path+file:///src/pair)"));
  EXPECT_TRUE(
      manifest->at("installs")
          .contains("ripgrep 14.1.0 (registry+https://github.com/rust-lang/crates.io-index)"));
  // The list written over several lines goes through its "]"; a key that
  // only begins the same stays.
  EXPECT_EQ(readFileContents(home / ".cargo/.crates.toml"),
            "[v1]\n"
            "\"ripgrep 14.1.0 (registry+https://github.com/rust-lang/crates.io-index)\" = "
            "[\"rg\"]\n"
            "\"pair 0.1.0 (path+file:///src/pair)2\"=[\"p2\"]\n"
            "\n");
}

TEST_F(ToolRemoverTest, PythonToolsGoWithTheLinksThatResolveIntoThem) {
  EXPECT_EQ(remover().remove(listed("ruff")).failure, std::nullopt);
  EXPECT_FALSE(tool_files::exists(home / ".local/share/uv/tools/ruff"));
  EXPECT_FALSE(tool_files::exists(home / ".local/bin/ruff"));
  EXPECT_TRUE(tool_files::exists(home / ".local/bin/black"));
  EXPECT_TRUE(tool_files::exists(home / ".local/bin/stray"));
}

TEST_F(ToolRemoverTest, HomebrewRemovesOnlyWhenItsBrewSucceedsAndTheKegIsGone) {
  EXPECT_EQ(remover(/*runCommands=*/false).remove(listed("yq")).failure, ToolRemoval::denied);
  EXPECT_EQ(brewLog(), "") << "no process may start without runCommands";

  const struct {
    const char* mode;
    std::optional<ToolRemoval> expected;
  } rows[] = {
      {"leave", ToolRemoval::denied},
      {"fail", ToolRemoval::denied},
      {"hang", ToolRemoval::denied},
      {"flood", std::nullopt},  // its output drained, then it removes the keg
  };
  for (const auto& row : rows) {
    home.writeFile(".linuxbrew/bin/brew.mode", row.mode);
    const auto started = std::chrono::steady_clock::now();
    EXPECT_EQ(remover().remove(listed("yq")).failure, row.expected) << row.mode;
    EXPECT_LT(std::chrono::steady_clock::now() - started, std::chrono::seconds(10)) << row.mode;
  }
  EXPECT_FALSE(tool_files::exists(home / ".linuxbrew/Cellar/yq"));
  EXPECT_NE(brewLog().find("uninstall --formula yq NO_AUTO_UPDATE=1 NONINTERACTIVE=1"),
            std::string::npos)
      << brewLog();

  remover().removeUnusedDependencies({home / ".linuxbrew/Cellar/pcre2/10.42", "/elsewhere/x"});
  EXPECT_NE(brewLog().find("autoremove NO_AUTO_UPDATE=1"), std::string::npos) << brewLog();
}

}  // namespace
}  // namespace brisko
