#include "space/space_reuse_oracle.h"

#include <gtest/gtest.h>

#include "platform/fs_events_replay.h"
#include "space/space_folding.h"
#include "space/space_naming.h"

namespace brisko {
namespace {

SpaceNode node(const std::string& path, SpaceNodeKind kind, std::vector<SpaceNode> children = {}) {
  SpaceNode result;
  result.id = path;
  result.path = path;
  result.name = path.substr(path.rfind('/') + 1);
  result.kind = kind;
  result.children = std::move(children);
  return result;
}

TEST(SpaceReuseOracle, DirtyMeansChangedInOrBelowNeverBeside) {
  const SpaceReuseOracle oracle(node("/Users/vimo", SpaceNodeKind::directory),
                                {"/Users/vimo/z", "/Users/vimo/a/b"});
  EXPECT_TRUE(oracle.isDirty("/Users/vimo/a"));
  EXPECT_TRUE(oracle.isDirty("/Users/vimo/a/b"));
  EXPECT_TRUE(oracle.isDirty("/Users/vimo"));
  EXPECT_FALSE(oracle.isDirty("/Users/vimo/a/b/c"));
  EXPECT_FALSE(oracle.isDirty("/Users/vimo/a/c"));
  EXPECT_FALSE(oracle.isDirty("/Users/vimo/a/bc"));
  EXPECT_FALSE(oracle.isDirty("/Users/vimo/a/"));  // "a//" is no path below "a/"
  EXPECT_FALSE(oracle.isDirty("/Users/vim"));
}

TEST(SpaceReuseOracle, OffersStoredFoldersAtEveryDepthButNotGroupsOrFiles) {
  const auto other = node("/h/d#other", SpaceNodeKind::otherGroup,
                          {node("/h/d/under-group", SpaceNodeKind::directory)});
  const auto tree = node(
      "/h", SpaceNodeKind::directory,
      {node("/h/d", SpaceNodeKind::directory,
            {node("/h/d/e", SpaceNodeKind::directory, {node("/h/d/e/f", SpaceNodeKind::folded)}),
             node("/h/d/file", SpaceNodeKind::file), other}),
       node("/h#hidden", SpaceNodeKind::hiddenGroup, {node("/h/.x", SpaceNodeKind::directory)})});

  const SpaceReuseOracle clean(tree, {});
  EXPECT_EQ(clean.reusableNode("/h"), nullptr);  // the root itself is not offered
  for (const char* path : {"/h/d", "/h/d/e", "/h/d/e/f", "/h/d/under-group", "/h/.x"}) {
    const SpaceNode* found = clean.reusableNode(path);
    ASSERT_NE(found, nullptr) << path;
    EXPECT_EQ(found->path, path);
  }
  for (const char* path : {"/h/d/file", "/h/d#other", "/h#hidden", "/h/missing"})
    EXPECT_EQ(clean.reusableNode(path), nullptr) << path;

  const SpaceReuseOracle dirty(tree, {"/h/d/e/f"});
  EXPECT_EQ(dirty.reusableNode("/h/d"), nullptr);
  EXPECT_EQ(dirty.reusableNode("/h/d/e/f"), nullptr);
  EXPECT_NE(dirty.reusableNode("/h/d/under-group"), nullptr);
}

TEST(FSEventsReplay, LinuxHasNoHistoryAndPathsAreNormalised) {
  EXPECT_EQ(FSEventsReplay::deviceUUID("/"), std::nullopt);
  const auto changed = FSEventsReplay::changedPaths("/", 0, std::chrono::seconds(1));
  ASSERT_TRUE(std::holds_alternative<FSEventsReplay::Failure>(changed));
  EXPECT_EQ(std::get<FSEventsReplay::Failure>(changed),
            FSEventsReplay::Failure::historyUnavailable);
  EXPECT_EQ(FSEventsReplay::normalizedEventPath("/System/Volumes/Data/Users/vimo/x/"),
            "/Users/vimo/x");
  EXPECT_EQ(FSEventsReplay::normalizedEventPath("/System/Volumes/DataX/y"),
            "/System/Volumes/DataX/y");
  EXPECT_EQ(FSEventsReplay::normalizedEventPath("/Users/vimo"), "/Users/vimo");
}

TEST(SpaceFolding, FoldsExactNamesAndYarnCacheOnly) {
  EXPECT_TRUE(SpaceFolding::isFolded("cache", ".yarn"));
  EXPECT_FALSE(SpaceFolding::isFolded("cache", "yarn"));
  EXPECT_FALSE(SpaceFolding::isFolded("cache", std::nullopt));
  EXPECT_FALSE(SpaceFolding::isFolded("Node_Modules", std::nullopt));
  for (const char* name : {"node_modules", ".git", ".hg", ".svn", "Pods", ".venv", "venv", ".tox",
                           ".gradle", ".build", ".next", ".turbo", ".pnpm-store"})
    EXPECT_TRUE(SpaceFolding::isFolded(name, "anything")) << name;
  EXPECT_FALSE(SpaceFolding::isFolded(".gitignore", std::nullopt));
}

class SpaceNamingLanguage : public ::testing::Test {
 protected:
  void SetUp() override {
    for (const char* name : kNames) {
      const char* value = std::getenv(name);
      saved_.emplace_back(name, value ? std::optional<std::string>(value) : std::nullopt);
      ::unsetenv(name);
    }
  }
  void TearDown() override {
    for (const auto& [name, value] : saved_) {
      if (value) {
        ::setenv(name.c_str(), value->c_str(), 1);
      } else {
        ::unsetenv(name.c_str());
      }
    }
  }
  static constexpr const char* kNames[] = {"LANGUAGE", "LC_ALL", "LC_MESSAGES", "LANG"};
  std::vector<std::pair<std::string, std::optional<std::string>>> saved_;
};

TEST_F(SpaceNamingLanguage, FollowsTheLocaleVariablesInOrder) {
  EXPECT_EQ(SpaceNaming::namingLanguage(), "");
  ::setenv("LANG", "C.UTF-8", 1);
  EXPECT_EQ(SpaceNaming::namingLanguage(), "");
  ::setenv("LANG", "de_CH.UTF-8", 1);
  EXPECT_EQ(SpaceNaming::namingLanguage(), "de-CH");
  ::setenv("LC_MESSAGES", "fr_FR@euro", 1);
  EXPECT_EQ(SpaceNaming::namingLanguage(), "fr-FR");
  ::setenv("LC_ALL", "POSIX", 1);
  EXPECT_EQ(SpaceNaming::namingLanguage(), "");
  ::setenv("LANGUAGE", "pt_BR:en", 1);
  EXPECT_EQ(SpaceNaming::namingLanguage(), "pt-BR");
}

}  // namespace
}  // namespace brisko
