// The inventory over a home laid out as npm, nvm, mise, Homebrew, Cargo, uv
// and pipx lay out theirs.

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <map>
#include <sstream>

#include "platform/symlink_resolution.h"
#include "testing/ordinary_user.h"
#include "testing/temporary_directory.h"
#include "testing/tool_home.h"
#include "tools/tool_inventory_reader.h"

namespace brisko {
namespace {

using testing::layOutToolHome;
using testing::TemporaryDirectory;

std::string joined(const std::vector<std::string>& parts) {
  std::string text;
  for (const auto& part : parts)
    text += (text.empty() ? "" : ",") + part;
  return text;
}

std::string lastComponents(const std::vector<std::string>& paths) {
  std::vector<std::string> names;
  for (const auto& path : paths)
    names.push_back(path.substr(path.rfind('/', path.rfind('/') - 1) + 1));  // "name/version"
  return joined(names);
}

const char* sourceName(const ToolSource& source) {
  switch (source.kind) {
    case ToolSource::Kind::npm:
      return "npm";
    case ToolSource::Kind::homebrew:
      return "homebrew";
    case ToolSource::Kind::cargo:
      return "cargo";
    case ToolSource::Kind::uv:
      return "uv";
    case ToolSource::Kind::pipx:
      return "pipx";
  }
  return "?";
}

// One line per tool: what the page shows of it.
std::string describe(const CommandLineTool& tool) {
  std::ostringstream line;
  line << sourceName(tool.source) << " " << tool.name << " " << tool.version.value_or("-") << " ["
       << joined(tool.commands) << "]";
  if (tool.isLink) line << " link";
  if (!tool.requiredBy.empty()) line << " requiredBy=" << joined(tool.requiredBy);
  if (!tool.exclusiveDependencies.empty())
    line << " exclusive=" << lastComponents(tool.exclusiveDependencies);
  if (tool.lockedReason == LockReason::loginShell) line << " locked:shell";
  if (tool.lockedReason == LockReason::notWritable) line << " locked:notWritable";
  return line.str();
}

TEST(ToolInventory, ReadsEveryManagerAsItLaysOutItsFiles) {
  TemporaryDirectory home;
  layOutToolHome(home);
  const ToolInventory inventory = readToolInventory(testing::toolHomeEnvironment(home));

  std::vector<std::string> runtimes;
  for (const auto& runtime : inventory.runtimes)
    runtimes.push_back(runtime.version.value_or("-") + (runtime.isDefault ? " default" : ""));
  EXPECT_EQ(runtimes, (std::vector<std::string>{"18.19.0", "20.11.0 default", "21.6.1"}));

  std::vector<std::string> lines;
  for (const auto& tool : inventory.tools)
    lines.push_back(describe(tool));
  std::sort(lines.begin(), lines.end());
  const std::vector<std::string> expected = {
      "cargo pair 0.1.0 [pair-a]",
      "cargo ripgrep 14.1.0 [rg]",
      "homebrew fish 4.0 [fish] exclusive=pcre2/10.42 locked:shell",
      "homebrew fish-extra 1.0 []",
      "homebrew jq 1.7 [] requiredBy=fish,yq",
      "homebrew multi 1.10.0 []",
      "homebrew pinned 2.0 []",
      "homebrew yq 4.1 []",
      "npm @acme/tool 1.0.0 [acme]",
      "npm broken - []",
      "npm eslint 8.56.0 []",
      "npm local-tool 0.0.1 [] link",
      "npm typescript 5.3.3 [tsc,tsserver]",
      "pipx black 24.2.0 [black]",
      "uv ruff 0.3.0 [ruff]",
  };
  EXPECT_EQ(lines, expected);

  for (const auto& tool : inventory.tools) {
    EXPECT_EQ(tool.stamp.inode == 0, false) << tool.name;
    if (tool.name == "ripgrep") {
      EXPECT_EQ(tool.id, home / ".cargo/bin/rg");
      EXPECT_EQ(tool.manifestKey,
                "ripgrep 14.1.0 (registry+https://github.com/rust-lang/crates.io-index)");
      EXPECT_GE(tool.bytes.value_or(0), 10000);
    }
    if (tool.name == "fish") {
      EXPECT_TRUE(tool.installed.has_value());
    }
    if (tool.source.kind == ToolSource::Kind::npm && tool.name == "eslint") {
      EXPECT_EQ(tool.source.runtimeID,
                resolvingSymlinksInPath(home / ".local/share/mise/installs/node/21.6.1"));
    }
  }
}

// A manifest that isn't what its manager writes leaves fields at their
// fallbacks or the tool out, never the inventory.
TEST(ToolInventory, DamagedManifestsLeaveTheRestStanding) {
  const struct {
    const char* name;
    const char* file;
    const char* contents;
  } rows[] = {
      {"crates2 not an object", ".cargo/.crates2.json", "[1,2]"},
      {"crates2 truncated", ".cargo/.crates2.json", "{\"installs\":{\"rg 1 (x)\":{\"bi"},
      {"installs not an object", ".cargo/.crates2.json", "{\"installs\":[\"rg 1 (x)\"]}"},
      {"bins not a list", ".cargo/.crates2.json",
       "{\"installs\":{\"rg 1 (x)\":{\"bins\":\"rg\"}}}"},
      {"receipt truncated", ".linuxbrew/Cellar/jq/1.7/INSTALL_RECEIPT.json", "{\"install"},
      {"pipx metadata without version", ".local/share/pipx/venvs/black/pipx_metadata.json",
       "{\"main_package\":{\"package\":\"black\"}}"},
  };
  for (const auto& row : rows) {
    TemporaryDirectory home;
    layOutToolHome(home);
    home.writeFile(row.file, row.contents);
    const ToolInventory inventory = readToolInventory(testing::toolHomeEnvironment(home));
    std::map<std::string, const CommandLineTool*> byName;
    for (const auto& tool : inventory.tools)
      byName[tool.name] = &tool;
    EXPECT_TRUE(byName.count("typescript")) << row.name;
    EXPECT_TRUE(byName.count("fish")) << row.name;
    if (std::string(row.file).find("cargo") != std::string::npos) {
      EXPECT_FALSE(byName.count("ripgrep")) << row.name;
    }
    if (std::string(row.file).find("jq") != std::string::npos) {
      // A receipt that can't be read doesn't say the formula was asked for.
      EXPECT_FALSE(byName.count("jq")) << row.name;
    }
    if (std::string(row.file).find("pipx") != std::string::npos) {
      ASSERT_TRUE(byName.count("black")) << row.name;
      EXPECT_FALSE(byName["black"]->version.has_value()) << row.name;
    }
  }
}

// Runs in a child as an ordinary user (see the test below); skipped alone.
TEST(ToolInventoryAsOrdinaryUser, LocksWhatItCannotChange) {
  const std::string home = testing::ordinaryUserArgument("BRISKO_TEST_TOOLS_HOME");
  if (home.empty()) GTEST_SKIP() << "runs only as a child of the permission test";
  ASSERT_NE(::geteuid(), 0u);
  ToolEnvironment environment;
  environment.home = home;
  environment.systemRoot = home + "/system";
  std::map<std::string, std::optional<LockReason>> locks;
  for (const auto& tool : readToolInventory(environment).tools)
    locks[tool.name] = tool.lockedReason;
  ASSERT_EQ(locks.size(), 2u);
  EXPECT_EQ(locks["system-tool"], LockReason::notWritable);
  EXPECT_EQ(locks["user-tool"], std::nullopt);
}

TEST(ToolInventory, LocksToolsInFoldersTheUserCannotWriteAsAnOrdinaryUser) {
  TemporaryDirectory home;
  ASSERT_EQ(::chmod(home.path().c_str(), 0755), 0);
  ASSERT_TRUE(testing::isReachableByOtherUsers(home.path()));
  home.writeFile("system/usr/lib/node_modules/system-tool/package.json", "{}");
  home.writeFile(".npm-global/lib/node_modules/user-tool/package.json", "{}");
  for (const char* owned : {".npm-global", ".npm-global/lib", ".npm-global/lib/node_modules",
                            ".npm-global/lib/node_modules/user-tool"})
    ASSERT_EQ(::chown((home / owned).c_str(), 65534, 65534), 0) << owned;
  EXPECT_EQ(testing::runTestsAsOrdinaryUser("ToolInventoryAsOrdinaryUser.*",
                                            {{"BRISKO_TEST_TOOLS_HOME", home.path()}}),
            0);
}

}  // namespace
}  // namespace brisko
