#include "space/space_tree_builder.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <functional>
#include <mutex>
#include <set>

#include "base/path_components.h"
#include "base/utf8.h"
#include "platform/folder_walk.h"
#include "platform/walk_width.h"
#include "protocol/engine_text.h"
#include "space/space_naming.h"
#include "space/space_reuse_oracle.h"
#include "testing/deep_nest.h"
#include "testing/ordinary_user.h"
#include "testing/temporary_directory.h"

namespace brisko {
namespace {

using testing::TemporaryDirectory;

// Allocated bytes of every regular file name under `path`, as find counts
// them: links never followed, each hard-linked name counted.
std::int64_t findFileBytes(const std::string& path) {
  const std::string command = "find '" + path + "' -type f -printf '%b\\n'";
  FILE* pipe = ::popen(command.c_str(), "r");
  EXPECT_NE(pipe, nullptr);
  std::int64_t blocks = 0;
  long long value = 0;
  while (std::fscanf(pipe, "%lld", &value) == 1)
    blocks += value;
  ::pclose(pipe);
  return blocks * 512;
}

const SpaceNode* childNamed(const SpaceNode& node, const std::string& name) {
  for (const auto& child : node.children) {
    if (child.name == name) return &child;
  }
  return nullptr;
}

const SpaceNode* nodeAt(const SpaceNode& node, const std::string& path) {
  if (node.path == path) return &node;
  for (const auto& child : node.children) {
    if (auto* found = nodeAt(child, path)) return found;
  }
  return nullptr;
}

// Every shown level adds up: a node's bytes and items are its children's
// (the other-group row holds the files too small to show), and each real
// directory holds what find finds in it.
void expectSizesAddUp(const SpaceNode& node) {
  if (!node.children.empty()) {
    std::int64_t bytes = 0, items = 0;
    for (const auto& child : node.children) {
      bytes += child.bytes;
      items += child.itemCount;
    }
    EXPECT_EQ(node.bytes, bytes) << node.path;
    EXPECT_EQ(node.itemCount, items) << node.path;
  }
  if ((node.kind == SpaceNodeKind::directory || node.kind == SpaceNodeKind::folded) &&
      isValidUtf8(node.path) && !node.accessDenied) {
    EXPECT_EQ(node.bytes, findFileBytes(node.path)) << node.path;
  }
  for (const auto& child : node.children)
    expectSizesAddUp(child);
}

void writeBytes(const TemporaryDirectory& home, const std::string& relative, size_t size) {
  home.writeFile(relative, std::string(size, 'z'));
}

// A home folder with something of everything.
void buildHomeLikeTree(const TemporaryDirectory& home) {
  writeBytes(home, "Documents/report.pdf", 3 << 20);
  writeBytes(home, "Documents/notes.txt", 1500);
  writeBytes(home, "Documents/old/archive.zip", 2 << 20);
  for (int i = 0; i < 40; ++i)
    writeBytes(home, "Documents/small/f" + std::to_string(i), 5000);
  writeBytes(home, "Downloads/big.iso", 5 << 20);
  writeBytes(home, "projects/app/node_modules/lib/index.js", 70000);
  writeBytes(home, "projects/app/node_modules/lib/deep/x.js", 1 << 21);
  writeBytes(home, "projects/app/.yarn/cache/pkg.zip", 1 << 21);
  writeBytes(home, "projects/app/src/main.c", 4000);
  writeBytes(home, "Library/Mobile Documents/com~apple~CloudDocs/a.key", 1 << 21);
  writeBytes(home, "Library/Caches/x/blob", 1 << 21);
  writeBytes(home, "other/Mobile Documents/file", 1 << 21);
  writeBytes(home, ".cache/thing", 1 << 21);
  writeBytes(home, ".config/settings", 100);
  writeBytes(home, ".bashrc", 300);
  writeBytes(home, "cache/inside", 10);  // a home-level "cache" does not fold
  writeBytes(home, "top.bin", 2 << 20);
  EXPECT_EQ(::link((home / "Downloads/big.iso").c_str(), (home / "Documents/big-link").c_str()), 0);
  home.makeSymlink("Documents/loop", home.path());
  home.makeSymlink("Documents/dangling", home / "missing");
  home.makeSymlink("link-to-docs", home / "Documents");
  EXPECT_EQ(::mkfifo((home / "Documents/pipe").c_str(), 0600), 0);
  // A name that is not UTF-8.
  writeBytes(home, std::string("Documents/bad-\xff-name"), 2 << 20);
}

SpaceTreeBuilder::Options smallOptions() {
  SpaceTreeBuilder::Options options;
  options.largeFileThreshold = 1 << 21;
  return options;
}

TEST(SpaceTreeBuilder, MeasuresAHomeFolderAndItAllAddsUp) {
  TemporaryDirectory home;
  buildHomeLikeTree(home);
  std::int64_t startedWith = -1;
  std::vector<SpaceNode> reported;
  auto result =
      SpaceTreeBuilder(smallOptions())
          .build(
              home.path(), [&](std::int64_t count) { startedWith = count; },
              [&](const SpaceNode& node, const SpaceScanProgress&) { reported.push_back(node); });

  const SpaceNode& root = result.root;
  EXPECT_EQ(root.path, home.path());
  EXPECT_EQ(root.id, home.path());
  EXPECT_EQ(root.name, "Home folder");
  EXPECT_EQ(root.bytes, findFileBytes(home.path()));
  // The one name that isn't text.
  EXPECT_EQ(result.warnings, std::vector<std::string>{SpaceNaming::leftOutNamesWarning(1)});
  EXPECT_FALSE(root.isPartial);
  EXPECT_EQ(result.rootEntryCount, 11);
  EXPECT_EQ(startedWith, 11);
  EXPECT_EQ(reported.size(), 11u);
  expectSizesAddUp(root);

  // Hidden entries gather in one row.
  const SpaceNode* hidden = childNamed(root, "Hidden items");
  ASSERT_NE(hidden, nullptr);
  EXPECT_EQ(hidden->kind, SpaceNodeKind::hiddenGroup);
  EXPECT_EQ(hidden->id, home.path() + "#hidden");
  EXPECT_EQ(hidden->children.size(), 3u);  // the root level has no size floor
  EXPECT_EQ(hidden->children[0].name, ".cache");

  // Folded trees keep no nodes, wherever they stand.
  const SpaceNode* modules = nodeAt(root, home / "projects/app/node_modules");
  ASSERT_NE(modules, nullptr);
  EXPECT_EQ(modules->kind, SpaceNodeKind::folded);
  EXPECT_TRUE(modules->children.empty());
  EXPECT_EQ(modules->itemCount, 2);
  const SpaceNode* yarnCache = nodeAt(root, home / "projects/app/.yarn/cache");
  ASSERT_NE(yarnCache, nullptr);
  EXPECT_EQ(yarnCache->kind, SpaceNodeKind::folded);
  const SpaceNode* homeCache = nodeAt(root, home / "cache");
  ASSERT_NE(homeCache, nullptr);
  EXPECT_EQ(homeCache->kind, SpaceNodeKind::directory);

  // iCloud Drive is only the home Library's "Mobile Documents".
  const SpaceNode* drive = nodeAt(root, home / "Library/Mobile Documents");
  ASSERT_NE(drive, nullptr);
  EXPECT_EQ(drive->name, "iCloud Drive");
  EXPECT_EQ(drive->kind, SpaceNodeKind::folded);
  EXPECT_TRUE(drive->children.empty());
  const SpaceNode* elsewhere = nodeAt(root, home / "other/Mobile Documents");
  ASSERT_NE(elsewhere, nullptr);
  EXPECT_EQ(elsewhere->kind, SpaceNodeKind::directory);
  EXPECT_EQ(elsewhere->name, "Mobile Documents");

  // Small files of a level end in its other-group row.
  const SpaceNode* documents = nodeAt(root, home / "Documents");
  ASSERT_NE(documents, nullptr);
  ASSERT_FALSE(documents->children.empty());
  const SpaceNode& other = documents->children.back();
  EXPECT_EQ(other.kind, SpaceNodeKind::otherGroup);
  EXPECT_EQ(other.id, home / "Documents#other");
  // notes.txt, small/ (under 1 MiB), pipe, loop, dangling, and the file
  // whose name isn't text
  EXPECT_EQ(other.name, EngineText::encoded("%lld more items", {"6"}));

  // A hard-linked file counts under each name and is marked as shared.
  const SpaceNode* link = nodeAt(root, home / "Documents/big-link");
  ASSERT_NE(link, nullptr);
  EXPECT_EQ(link->sharedBytes, link->bytes);
  EXPECT_GT(documents->sharedBytes, 0);

  // A name that is not UTF-8 is no row, repaired or not.
  EXPECT_EQ(nodeAt(root, home / "Documents/bad-\xEF\xBF\xBD-name"), nullptr);

  // The large files: largest first; only names that are text.
  ASSERT_GE(result.largeFiles.size(), 5u);
  EXPECT_EQ(result.largeFiles[0].path, home / "Documents/big-link");  // equal size, path order
  EXPECT_EQ(result.largeFiles[1].path, home / "Downloads/big.iso");
  for (const auto& item : result.largeFiles) {
    EXPECT_TRUE(isValidUtf8(item.path));
    EXPECT_EQ(item.id, item.path);
    EXPECT_EQ(item.name, lastPathComponent(item.path));
    EXPECT_GE(item.bytes, 1 << 21);
    EXPECT_TRUE(item.modificationDate.has_value());
  }
}

TEST(SpaceTreeBuilder, NamesThatArentTextAreNoRowsButTheirBytesCount) {
  // A folder "com.twin\xffname" was shown repaired, with the id and path of
  // its real sibling "com.twin\ufffdname": two rows with one id, one of them
  // naming the wrong folder. Each case puts the pair at another level.
  for (const std::string level : {"", "Library/Caches/", ".cache/"}) {
    TemporaryDirectory home;
    const std::string raw = level + "com.twin\xffname";
    const std::string twin = level + "com.twin\xEF\xBF\xBDname";
    writeBytes(home, raw + "/blob", 3 << 20);
    writeBytes(home, raw + "/deeper/blob", 2 << 20);
    writeBytes(home, level + "file-\xfe.bin", 2 << 20);
    writeBytes(home, twin + "/blob", 5 << 20);
    const auto result = SpaceTreeBuilder(smallOptions()).build(home.path());

    EXPECT_EQ(result.root.bytes, findFileBytes(home.path())) << level;
    EXPECT_EQ(result.warnings, std::vector<std::string>{SpaceNaming::leftOutNamesWarning(2)});
    std::set<std::string> ids;
    std::function<void(const SpaceNode&)> visit = [&](const SpaceNode& node) {
      EXPECT_TRUE(isValidUtf8(node.id));
      EXPECT_TRUE(ids.insert(node.id).second) << "two rows with the id " << node.id;
      if (node.kind == SpaceNodeKind::directory && node.path != home.path()) {
        EXPECT_EQ(node.bytes, findFileBytes(node.path)) << "the row names its own folder";
      }
      for (const auto& child : node.children)
        visit(child);
    };
    visit(result.root);
    const SpaceNode* real = nodeAt(result.root, home / twin);
    ASSERT_NE(real, nullptr) << level;
    EXPECT_EQ(real->bytes, findFileBytes(home / twin));
    for (const auto& item : result.largeFiles)
      EXPECT_EQ(::access(item.path.c_str(), F_OK), 0) << item.path;
  }
}

TEST(SpaceTreeBuilder, DeepNestsAreMeasuredPastPathMaxAndMarkedPartialPastTheDepthLimit) {
  struct Case {
    int depth;
    bool tooDeep;
  };
  const int limit = static_cast<int>(kMaximumWalkDepth);
  for (const Case nest : {Case{2100, false}, Case{limit + 300, true}}) {
    TemporaryDirectory home;
    const std::string top = home.makeDirectory("Caches/app");
    testing::makeDeepNest(top, nest.depth, "d", "data");
    writeBytes(home, "Documents/report.pdf", 3 << 20);
    const std::int64_t oneLevel = testing::allocatedBytesOfOneLevel(top);
    const std::int64_t levels = nest.tooDeep ? limit - 2 : nest.depth;  // "Caches/app" are 2
    const testing::OpenFileLimit openFiles(1024);
    const auto result = SpaceTreeBuilder(smallOptions()).build(home.path());
    const SpaceNode* caches = nodeAt(result.root, home / "Caches");
    ASSERT_NE(caches, nullptr);
    EXPECT_EQ(caches->bytes, oneLevel * levels) << nest.depth;
    EXPECT_EQ(caches->isPartial, nest.tooDeep);
    EXPECT_EQ(result.root.isPartial, nest.tooDeep);
    if (nest.tooDeep) {
      EXPECT_EQ(result.warnings, std::vector<std::string>{SpaceNaming::tooDeepWarning(1)});
    } else {
      EXPECT_TRUE(result.warnings.empty());
    }
  }
}

TEST(SpaceTreeBuilder, ParallelAndSerialWalksGiveTheSameTree) {
  TemporaryDirectory home;
  buildHomeLikeTree(home);
  for (int i = 0; i < 30; ++i) {
    for (int j = 0; j < 8; ++j)
      writeBytes(home, "wide/d" + std::to_string(i) + "/e" + std::to_string(j) + "/f", 5000 + i);
  }
  auto options = smallOptions();
  const auto parallel = SpaceTreeBuilder(options).build(home.path());
  options.parallel = false;
  const auto serial = SpaceTreeBuilder(options).build(home.path());
  EXPECT_EQ(parallel.root, serial.root);
  EXPECT_EQ(parallel.largeFiles, serial.largeFiles);
  EXPECT_EQ(serial.helperCount, 0);
  EXPECT_EQ(parallel.helperCount, treeWalkWidth() - 1);
}

TEST(SpaceTreeBuilder, EmptyTinyAndMissingHomeFolders) {
  {
    TemporaryDirectory home;
    home.makeDirectory("a");
    home.makeDirectory("b");
    EXPECT_EQ(SpaceTreeBuilder().build(home.path()).helperCount, 0) << "helpers wait for work";
  }
  {
    TemporaryDirectory home;
    std::int64_t started = -1;
    auto result = SpaceTreeBuilder().build(home.path(), [&](std::int64_t n) { started = n; });
    EXPECT_EQ(started, 0);
    EXPECT_EQ(result.rootEntryCount, 0);
    EXPECT_TRUE(result.root.children.empty());
    EXPECT_TRUE(result.warnings.empty());
    EXPECT_FALSE(result.root.accessDenied);
  }
  {
    TemporaryDirectory home;
    home.writeFile("only", "tiny");
    auto result = SpaceTreeBuilder().build(home.path());
    ASSERT_EQ(result.root.children.size(), 1u);  // no size floor at the top
    EXPECT_EQ(result.root.children[0].kind, SpaceNodeKind::file);
    EXPECT_EQ(result.root.children[0].itemCount, 1);
    EXPECT_EQ(result.root.bytes, findFileBytes(home.path()));
  }
  {
    TemporaryDirectory folder;
    auto result = SpaceTreeBuilder().build(folder / "no-such-home");
    EXPECT_TRUE(result.root.accessDenied);
    EXPECT_TRUE(result.root.children.empty());
    EXPECT_EQ(result.warnings, std::vector<std::string>{SpaceTreeBuilder::homeUnreadableWarning});
  }
}

TEST(SpaceTreeBuilder, ShowsTheTopChildrenAndGroupsTheRest) {
  SpaceTreeBuilder::Options options;
  options.minimumChildBytes = 16384;
  options.topChildrenPerLevel = 5;
  TemporaryDirectory home;
  for (int i = 0; i < 6; ++i)
    writeBytes(home, "six/f" + std::to_string(i), 16384);
  for (int i = 0; i < 5; ++i)
    writeBytes(home, "five/f" + std::to_string(i), 16384);
  for (int i = 0; i < 3; ++i)
    writeBytes(home, "tiny/f" + std::to_string(i), 100);
  for (int i = 0; i < 7; ++i)
    writeBytes(home, "f" + std::to_string(i), 100);
  auto result = SpaceTreeBuilder(options).build(home.path());

  const SpaceNode* six = nodeAt(result.root, home / "six");
  ASSERT_NE(six, nullptr);
  ASSERT_EQ(six->children.size(), 6u);
  EXPECT_EQ(six->children[4].name, "f4");  // equal sizes by name
  EXPECT_EQ(six->children[5].kind, SpaceNodeKind::otherGroup);
  EXPECT_EQ(six->children[5].name, EngineText::encoded("%lld more items", {"1"}));
  EXPECT_EQ(six->children[5].path, home / "six#other");

  const SpaceNode* five = nodeAt(result.root, home / "five");
  ASSERT_NE(five, nullptr);
  EXPECT_EQ(five->children.size(), 5u);  // exactly the top number: no group

  const SpaceNode* tiny = nodeAt(result.root, home / "tiny");
  ASSERT_NE(tiny, nullptr);
  ASSERT_EQ(tiny->children.size(), 1u);
  EXPECT_EQ(tiny->children[0].kind, SpaceNodeKind::otherGroup);
  EXPECT_EQ(tiny->children[0].bytes, tiny->bytes);
  EXPECT_EQ(tiny->children[0].itemCount, 3);

  // The top level: 10 entries, no floor, cut to 5 plus a group.
  ASSERT_EQ(result.root.children.size(), 6u);
  EXPECT_EQ(result.root.children.back().id, home.path() + "#other");
  EXPECT_EQ(result.root.children.back().name, EngineText::encoded("%lld more items", {"5"}));
  expectSizesAddUp(result.root);
}

TEST(SpaceTreeBuilder, AnExhaustedBudgetLeavesPartialFoldersAndAWarning) {
  TemporaryDirectory home;
  writeBytes(home, "a/x/file", 5000);
  writeBytes(home, "b/file", 5000);
  writeBytes(home, "c.txt", 5000);
  SpaceTreeBuilder::Options options;
  options.entryBudget = 0;
  auto result = SpaceTreeBuilder(options).build(home.path());
  EXPECT_TRUE(result.root.isPartial);
  EXPECT_EQ(result.warnings, std::vector<std::string>{SpaceTreeBuilder::budgetExhaustedWarning});
  for (const char* name : {"a", "b"}) {
    const SpaceNode* node = childNamed(result.root, name);
    ASSERT_NE(node, nullptr);
    EXPECT_TRUE(node->isPartial);
    EXPECT_EQ(node->bytes, 0);
  }
  const SpaceNode* file = childNamed(result.root, "c.txt");  // root files need no listing
  ASSERT_NE(file, nullptr);
  EXPECT_GT(file->bytes, 0);

  options.entryBudget = 600;  // a little more than one batch per worker
  for (int i = 0; i < 2000; ++i)
    home.writeFile("many/f" + std::to_string(i));
  auto partial = SpaceTreeBuilder(options).build(home.path());
  const SpaceNode* many = childNamed(partial.root, "many");
  ASSERT_NE(many, nullptr);
  EXPECT_TRUE(many->isPartial);
  EXPECT_LE(many->itemCount, 600);
  EXPECT_GT(many->itemCount, 0);
}

TEST(SpaceTreeBuilder, TheFineFractionMovesInsideAnEntryAndNeverGoesBack) {
  TemporaryDirectory home;
  for (int i = 0; i < 10; ++i)
    home.makeDirectory("only/d" + std::to_string(i));
  SpaceTreeBuilder::Options options;
  options.parallel = false;
  options.progressPulseInterval = 0;
  std::vector<double> fractions;
  std::vector<std::string> titles;
  SpaceTreeBuilder(options).build(home.path(), nullptr, nullptr,
                                  [&](const SpaceScanProgress& progress) {
                                    fractions.push_back(progress.fineFraction.value_or(-1));
                                    titles.push_back(progress.currentTitle.value_or(""));
                                    EXPECT_EQ(progress.totalLocations, 1);
                                  });
  ASSERT_FALSE(fractions.empty());
  EXPECT_TRUE(std::is_sorted(fractions.begin(), fractions.end()));
  EXPECT_NE(std::find(fractions.begin(), fractions.end(), 0.5), fractions.end());
  EXPECT_EQ(titles.front(), "only");
}

TEST(SpaceTreeBuilder, GraftsStoredSubtreesThatDidNotChange) {
  TemporaryDirectory home;
  writeBytes(home, "a/b/file", 1 << 21);
  writeBytes(home, "a/c/file", 1 << 21);
  writeBytes(home, "d/file", 1 << 21);
  writeBytes(home, "e/f/file", 1 << 21);
  const auto first = SpaceTreeBuilder().build(home.path());

  // Changes on disk: in a/b (reported dirty), in a/c and d (not reported).
  writeBytes(home, "a/b/new", 1 << 21);
  writeBytes(home, "a/c/new", 1 << 21);
  writeBytes(home, "d/new", 1 << 21);
  SpaceNode stored = first.root;
  // A stored subtree that was cut short marks its new parent partial.
  SpaceNode* storedF = const_cast<SpaceNode*>(nodeAt(stored, home / "e/f"));
  ASSERT_NE(storedF, nullptr);
  storedF->isPartial = true;
  // "e" itself changed (a file came or went), its folder "f" did not.
  SpaceReuseOracle oracle(stored, {home / "a/b", home / "e"});
  std::vector<SpaceNode> roots;
  const auto second = SpaceTreeBuilder().build(
      home.path(), nullptr,
      [&](const SpaceNode& node, const SpaceScanProgress&) { roots.push_back(node); }, nullptr,
      &oracle);

  const auto bytesAt = [&](const std::string& relative) {
    const SpaceNode* node = nodeAt(second.root, home / relative);
    return node != nullptr ? node->bytes : -1;
  };
  EXPECT_EQ(bytesAt("a/b"), findFileBytes(home / "a/b"));              // walked again
  EXPECT_EQ(bytesAt("a/c"), nodeAt(first.root, home / "a/c")->bytes);  // taken as stored
  EXPECT_EQ(bytesAt("d"), nodeAt(first.root, home / "d")->bytes);
  EXPECT_EQ(bytesAt("a"), bytesAt("a/b") + bytesAt("a/c"));
  const SpaceNode* e = nodeAt(second.root, home / "e");
  ASSERT_NE(e, nullptr);
  EXPECT_TRUE(e->isPartial);
  EXPECT_TRUE(second.root.isPartial);
  EXPECT_EQ(roots.size(), 3u);  // reused root entries report too
  expectSizesAddUp(*nodeAt(second.root, home / "a/b"));
}

TEST(SpaceTreeBuilder, FilesVanishingDuringTheWalkLeaveAValidTree) {
  TemporaryDirectory home;
  for (int d = 0; d < 20; ++d) {
    for (int f = 0; f < 200; ++f)
      home.writeFile("churn/d" + std::to_string(d) + "/f" + std::to_string(f), "data");
  }
  std::atomic<bool> stop{false};
  std::thread remover([&] {
    for (int d = 19; d >= 0 && !stop; --d)
      testing::removeTree(home / ("churn/d" + std::to_string(d)));
  });
  auto result = SpaceTreeBuilder().build(home.path());
  stop = true;
  remover.join();
  EXPECT_TRUE(result.warnings.empty());
  const SpaceNode* churn = childNamed(result.root, "churn");
  ASSERT_NE(churn, nullptr);
  EXPECT_LE(churn->itemCount, 4000);
  std::int64_t sum = 0;
  for (const auto& child : churn->children)
    sum += child.bytes;
  EXPECT_EQ(churn->bytes, sum);
}

// Runs as user 65534 (see SpaceTreeBuilderPermissions below).
TEST(SpaceTreeBuilderAsOrdinaryUser, UnreadableFoldersAreMarkedNotFatal) {
  const std::string base = testing::ordinaryUserArgument("BRISKO_SPACE_TREE");
  if (base.empty()) GTEST_SKIP() << "runs only as the ordinary user";
  const std::string home = std::string(base) + "/home";
  SpaceTreeBuilder::Options options;
  options.minimumChildBytes = 0;  // show the empty denied folder as itself
  auto result = SpaceTreeBuilder(options).build(home);
  EXPECT_TRUE(result.warnings.empty());
  EXPECT_FALSE(result.root.accessDenied);
  const SpaceNode* closed = nodeAt(result.root, home + "/Documents/closed");
  ASSERT_NE(closed, nullptr);
  EXPECT_TRUE(closed->accessDenied);
  EXPECT_EQ(closed->bytes, 0);
  EXPECT_FALSE(closed->isPartial);
  const SpaceNode* documents = nodeAt(result.root, home + "/Documents");
  ASSERT_NE(documents, nullptr);
  EXPECT_FALSE(documents->accessDenied);  // a denied child does not mark its parent
  EXPECT_GT(documents->bytes, 0);

  auto denied = SpaceTreeBuilder().build(std::string(base) + "/closed-home");
  EXPECT_TRUE(denied.root.accessDenied);
  EXPECT_TRUE(denied.root.children.empty());
  EXPECT_EQ(denied.warnings, std::vector<std::string>{SpaceTreeBuilder::homeUnreadableWarning});
}

TEST(SpaceTreeBuilderPermissions, UnreadableFoldersAreMarkedNotFatal) {
  TemporaryDirectory folder;
  ASSERT_EQ(::chmod(folder.path().c_str(), 0755), 0);
  writeBytes(folder, "home/Documents/closed/secret", 1 << 21);
  writeBytes(folder, "home/Documents/open", 1 << 21);
  folder.writeFile("closed-home/file", "x");
  ASSERT_EQ(::chmod((folder / "home/Documents/closed").c_str(), 0000), 0);
  ASSERT_EQ(::chmod((folder / "closed-home").c_str(), 0000), 0);
  EXPECT_EQ(testing::runTestsAsOrdinaryUser("SpaceTreeBuilderAsOrdinaryUser.*",
                                            {{"BRISKO_SPACE_TREE", folder.path()}}),
            0);
}

}  // namespace
}  // namespace brisko
