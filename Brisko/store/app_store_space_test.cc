// The Space page's flow: the store driving the real engine over a real
// temporary home, and cleaning through the real Trash (GIO) and the real
// link-proof removal.

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <iostream>
#include <thread>

#include "base/file_contents.h"
#include "engine/bundled_engine_client.h"
#include "settings/settings_store.h"
#include "store/app_store.h"
#include "store/space_basket.h"
#include "testing/forwarding_engine.h"
#include "testing/ordinary_user.h"
#include "testing/session_bus.h"
#include "testing/store_harness.h"
#include "testing/temporary_directory.h"
#include "text/space_texts.h"

namespace brisko {
namespace {

using testing::ForwardingEngine;
using testing::StoreHarness;

bool exists(const std::string& path) {
  struct stat info {};
  return ::lstat(path.c_str(), &info) == 0;
}

std::string variable(const char* name) {
  const char* value = std::getenv(name);
  return value == nullptr ? std::string() : std::string(value);
}

// A file whose blocks are really allocated, as the walker measures them.
void allocate(const std::string& path, off_t bytes) {
  const int descriptor = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
  ASSERT_GE(descriptor, 0) << path;
  ASSERT_EQ(::posix_fallocate(descriptor, 0, bytes), 0) << path;
  ::close(descriptor);
}

const SpaceNode* nodeAt(const std::vector<SpaceNode>& level, const std::string& path) {
  for (const SpaceNode& node : level)
    if (node.path == path) return &node;
  return nullptr;
}

// The environment that points the engine, GLib and the store at `home`.
std::vector<std::pair<std::string, std::string>> homeEnvironment(const std::string& home) {
  return {{"HOME", home},
          {"XDG_DATA_HOME", home + "/.local/share"},
          {"XDG_CONFIG_HOME", home + "/.config"},
          {"XDG_CACHE_HOME", home + "/.cache"}};
}

// A store over the home that the environment names, with the real engine
// behind a counting wrapper, and a record of what the screen showed.
class SpaceStore {
 public:
  SpaceStore()
      : engine(std::make_shared<ForwardingEngine>(std::make_shared<BundledEngineClient>(
            std::string(BRISKO_ENGINE_PATH),
            SettingsStore(variable("XDG_CONFIG_HOME") + "/brisko/settings.json")))),
        harness(engine) {
    subscription = harness.store->subscribe([this](const StoreFields& changed) {
      if (changed.contains(StoreField::spaceScanState)) states.push_back(store().spaceScanState());
      if (changed.contains(StoreField::spaceNodes))
        screens.push_back({store().spaceScanState().kind, store().spaceNodes()});
    });
  }

  const AppStore& store() const { return *harness.store; }
  void onMain(const std::function<void(AppStore&)>& call) { harness.onMain(call); }
  bool runUntil(const std::function<bool(const AppStore&)>& done) { return harness.runUntil(done); }
  // Runs a space scan to its end; false when it didn't end in `loaded`.
  bool scan(bool incremental) {
    onMain([&](AppStore& s) { s.scanSpace(incremental); });
    return runUntil([](const AppStore& s) {
             return s.spaceScanState().kind != SpaceScanState::Kind::scanning;
           }) &&
           store().spaceScanState().kind == SpaceScanState::Kind::loaded;
  }
  bool clean(SpaceCleanMode mode) {
    onMain([&](AppStore& s) { s.cleanBasket(mode); });
    return runUntil([](const AppStore& s) { return !s.isSpaceCleaning(); });
  }
  void toggle(const SpaceNode& node) {
    onMain([&](AppStore& s) { s.toggleBasket(node); });
  }
  SpaceNode node(const std::string& path) const {
    std::vector<const std::vector<SpaceNode>*> levels{&store().spaceNodes()};
    while (!levels.empty()) {
      const auto* level = levels.back();
      levels.pop_back();
      for (const SpaceNode& candidate : *level) {
        if (candidate.path == path) return candidate;
        levels.push_back(&candidate.children);
      }
    }
    ADD_FAILURE() << "no node at " << path;
    return {};
  }

  struct Screen {
    SpaceScanState::Kind state;
    std::vector<SpaceNode> nodes;
  };
  std::shared_ptr<ForwardingEngine> engine;
  StoreHarness harness;
  std::vector<SpaceScanState> states;
  std::vector<Screen> screens;  // each change of spaceNodes, with the state at that moment
  StoreObservers::Subscription subscription;
};

// Builds the home of the flow below.
void buildHome(const testing::TemporaryDirectory& folder) {
  // Rows below the top level show from a megabyte on.
  constexpr off_t megabytes = 2 << 20;
  folder.makeDirectory("home/Projects/app/build");
  allocate(folder / "home/Projects/app/build/out.bin", megabytes);
  folder.writeFile("home/Projects/app/src/main.c", "int main(void) { return 0; }\n");
  allocate(folder / "home/Projects/notes.txt", megabytes);
  folder.writeFile("home/Old Projects/site/index.html", "<html>");
  folder.makeDirectory("home/Media");
  allocate(folder / "home/Media/clip.bin", megabytes);
  ASSERT_EQ(::link((folder / "home/Media/clip.bin").c_str(),
                   (folder / "home/Media/clip-again.bin").c_str()),
            0);
  folder.writeFile("home/.tool/state", "t");
  folder.makeDirectory("home/code/.git/objects/pack");
  // Above the large-file floor, inside a folder that is measured whole.
  allocate(folder / "home/code/.git/objects/pack/big.pack", 101 << 20);
}

// Runs in a session bus, in a process of its own, as GLib reads the home once
// per process: everything from the first scan to a Move to Trash.
TEST(AppStoreSpaceChild, RunsFromScanToMoveToTrash) {
  const std::string home = variable("BRISKO_TEST_SPACE_HOME");
  if (home.empty()) GTEST_SKIP() << "runs only as a child of AppStoreSpaceFlow";
  const std::string projects = home + "/Projects", app = projects + "/app", build = app + "/build",
                    notes = projects + "/notes.txt", old = home + "/Old Projects",
                    clip = home + "/Media/clip.bin",
                    pack = home + "/code/.git/objects/pack/big.pack";
  SpaceStore space;
  const AppStore& store = space.store();

  // A first scan fills the screen as the nodes come, hidden ones in one row.
  ASSERT_TRUE(space.scan(false)) << store.spaceScanState().message;
  bool sawLiveHiddenRow = false;
  for (const auto& screen : space.screens) {
    if (screen.state != SpaceScanState::Kind::scanning) continue;
    for (const SpaceNode& node : screen.nodes) {
      EXPECT_FALSE(node.path.starts_with(home + "/.")) << node.path << " on the live top level";
      sawLiveHiddenRow = sawLiveHiddenRow ||
                         (node.kind == SpaceNodeKind::hiddenGroup && node.path == home + "#hidden");
    }
  }
  EXPECT_TRUE(sawLiveHiddenRow);
  ASSERT_TRUE(store.spaceReport());
  EXPECT_EQ(store.spaceNodes(), store.spaceReport()->root.children);

  // Two levels down.
  space.onMain([&](AppStore& s) { s.enterSpaceNode(space.node(projects)); });
  space.onMain([&](AppStore& s) { s.enterSpaceNode(space.node(app)); });
  ASSERT_EQ(store.spaceBreadcrumb().size(), 2u);
  EXPECT_EQ(store.spaceBreadcrumb()[1]->path, app);
  EXPECT_TRUE(nodeAt(store.spaceDisplayNodes(), build));

  // The basket's rules, one toggle a row.
  SpaceNode denied = space.node(old);
  denied.accessDenied = true;
  const struct {
    const char* name;
    SpaceNode node;
    std::set<std::string> basket;
  } toggles[] = {
      {"a child", space.node(build), {build}},
      {"its parent replaces it", space.node(app), {app}},
      {"a covered child", space.node(build), {app}},
      {"the hidden group", space.node(home + "#hidden"), {app}},
      {"an unreadable row", denied, {app}},
      {"the parent again", space.node(app), {}},
  };
  for (const auto& row : toggles) {
    space.toggle(row.node);
    EXPECT_EQ(store.spaceBasket(), row.basket) << row.name;
  }

  // A refresh over a stale basket and position: the old tree stays on screen
  // until the report, and what vanished meanwhile drops out.
  space.toggle(space.node(build));
  space.toggle(space.node(notes));
  testing::removeTree(app);
  const size_t screensBefore = space.screens.size();
  ASSERT_TRUE(space.scan(true)) << store.spaceScanState().message;
  for (size_t i = screensBefore; i < space.screens.size(); ++i)
    EXPECT_NE(space.screens[i].state, SpaceScanState::Kind::scanning) << "a node event showed";
  EXPECT_EQ(store.spacePathStack(), std::vector<std::string>{projects});
  EXPECT_EQ(store.spaceBasket(), std::set<std::string>{notes});

  // A folder, a hard-linked file and a large file that the tree doesn't show.
  space.toggle(space.node(old));
  space.toggle(space.node(clip));
  const auto large = std::find_if(store.spaceLargeFiles().begin(), store.spaceLargeFiles().end(),
                                  [&](const LargeFileItem& item) { return item.path == pack; });
  ASSERT_NE(large, store.spaceLargeFiles().end());
  space.toggle(largeFileNode(*large));
  ASSERT_EQ(store.spaceBasketNodes().size(), 4u);
  const SpaceNode linked = space.node(clip);
  ASSERT_GT(linked.sharedBytes, 0);
  EXPECT_EQ(store.spaceBasketBytes() - store.spaceBasketFreeableBytes(), linked.sharedBytes);
  EXPECT_NE(store.spaceBasketText().find("actually freeable"), std::string::npos)
      << store.spaceBasketText();
  const int overviews = space.engine->overviewCalls.load();

  ASSERT_TRUE(space.clean(SpaceCleanMode::trash));
  ASSERT_TRUE(store.spaceCleanReceipt());
  for (const SpaceCleanResult& result : store.spaceCleanReceipt()->results)
    EXPECT_EQ(result.outcome, SpaceCleanOutcome::moved)
        << result.path << ": " << result.message.value_or("");
  std::cout << "receipt: " << AppText::spaceReceiptSummary(*store.spaceCleanReceipt()) << "\n";
  EXPECT_TRUE(store.spaceBasket().empty());
  EXPECT_FALSE(nodeAt(store.spaceNodes(), old));
  EXPECT_TRUE(std::none_of(store.spaceLargeFiles().begin(), store.spaceLargeFiles().end(),
                           [&](const LargeFileItem& item) { return item.path == pack; }));
  const SpaceNode media = space.node(home + "/Media");
  EXPECT_EQ(media.children.size(), 1u);
  EXPECT_EQ(media.bytes, media.children.at(0).bytes);
  EXPECT_EQ(media.sharedBytes, 0);
  EXPECT_EQ(store.spacePathStack(), std::vector<std::string>{projects});
  EXPECT_TRUE(space.runUntil([&](const AppStore&) {
    return space.engine->overviewCalls.load() > overviews;
  })) << "the free space wasn't asked for again";

  // The page opened afresh: the cached tree at once, then refreshed in place.
  const auto cached = SpaceCacheStore::forHome(home).load();
  ASSERT_TRUE(cached);
  SpaceStore reopened;
  reopened.onMain([](AppStore& s) {
    s.prepareSpacePage();
    s.prepareSpacePage();
  });
  // The cached tree, the refresh, its report.
  ASSERT_TRUE(reopened.runUntil([&](const AppStore&) { return reopened.states.size() >= 3; }));
  EXPECT_EQ(reopened.states.back().kind, SpaceScanState::Kind::loaded)
      << reopened.states.back().message;
  ASSERT_GE(reopened.screens.size(), 1u);
  EXPECT_EQ(reopened.screens.front().state, SpaceScanState::Kind::loaded);
  EXPECT_EQ(reopened.screens.front().nodes, cached->report.root.children);
  for (const auto& screen : reopened.screens)
    EXPECT_NE(screen.state, SpaceScanState::Kind::scanning) << "a node event showed";
  EXPECT_EQ(std::count_if(reopened.states.begin(), reopened.states.end(),
                          [](const SpaceScanState& state) {
                            return state.kind == SpaceScanState::Kind::scanning;
                          }),
            1);
  EXPECT_FALSE(nodeAt(reopened.store().spaceNodes(), old));
}

TEST(AppStoreSpaceFlow, FromCacheToMoveToTrashOnARealHome) {
  testing::TemporaryDirectory folder;
  buildHome(folder);
  const std::string home = folder / "home";
  testing::ProcessOptions options;
  options.environment = homeEnvironment(home);
  options.environment.emplace_back("BRISKO_TEST_SPACE_HOME", home);
  options.unsetEnvironment = {"DBUS_SESSION_BUS_ADDRESS"};
  // GLib isn't built with ThreadSanitizer, which can't see its locks and so
  // reports races inside GLib's allocator and threads; ignored in this child.
  const std::string glibRaces = folder.writeFile(
      "tsan-suppressions", "race:libglib-2.0.so\nrace:libgio-2.0.so\nrace:libgobject-2.0.so\n");
  const std::string tsan = variable("TSAN_OPTIONS");
  options.environment.emplace_back("TSAN_OPTIONS",
                                   tsan + (tsan.empty() ? "" : ":") + "suppressions=" + glibRaces);
  const auto child = testing::runTestsInSessionBus("AppStoreSpaceChild.*", options);
  std::cout << child.standardOutput;
  ASSERT_EQ(child.exitStatus, 0) << child.standardError;

  const std::string trash = home + "/.local/share/Trash";
  EXPECT_EQ(readFileContents(trash + "/files/Old Projects/site/index.html"), "<html>");
  EXPECT_TRUE(exists(trash + "/files/big.pack"));
  EXPECT_FALSE(exists(home + "/Old Projects"));
  EXPECT_FALSE(exists(home + "/code/.git/objects/pack/big.pack"));
  EXPECT_TRUE(exists(home + "/Media/clip-again.bin"));
  const struct {
    const char* info;
    std::string path;
  } moved[] = {{"Old Projects", home + "/Old%20Projects"},
               {"big.pack", home + "/code/.git/objects/pack/big.pack"},
               {"clip.bin", home + "/Media/clip.bin"},
               {"notes.txt", home + "/Projects/notes.txt"}};
  for (const auto& item : moved) {
    const auto info = readFileContents(trash + "/info/" + item.info + ".trashinfo");
    ASSERT_TRUE(info) << item.info;
    EXPECT_NE(info->find("Path=" + item.path + "\n"), std::string::npos) << *info;
  }
}

// Sets the variables of the home for one test, and puts the old ones back.
class AppStoreSpaceOnHome : public ::testing::Test {
 protected:
  void SetUp() override {
    for (const auto& [name, value] : homeEnvironment(home)) {
      const char* old = std::getenv(name.c_str());
      saved_.emplace_back(name, old ? std::optional<std::string>(old) : std::nullopt);
      ::setenv(name.c_str(), value.c_str(), 1);
    }
  }
  void TearDown() override {
    for (const auto& [name, value] : saved_) {
      if (value)
        ::setenv(name.c_str(), value->c_str(), 1);
      else
        ::unsetenv(name.c_str());
    }
  }

  testing::TemporaryDirectory folder;
  const std::string home = folder.makeDirectory("home");

 private:
  std::vector<std::pair<std::string, std::optional<std::string>>> saved_;
};

TEST_F(AppStoreSpaceOnHome, AStoppedFirstScanKeepsWhatCame) {
  for (int i = 0; i < 6; ++i)
    folder.writeFile("home/folder" + std::to_string(i) + "/file", std::string(4096, 'x'));
  const struct {
    const char* name;
    int nodes;
    SpaceScanState::Kind state;
  } cases[] = {{"no node came", 0, SpaceScanState::Kind::idle},
               {"a node came", 1, SpaceScanState::Kind::loaded}};
  for (const auto& c : cases) {
    SpaceStore space;
    space.engine->holdSpaceScanAfterNodes = c.nodes;
    const Date before = currentDate();
    space.onMain([](AppStore& s) { s.scanSpace(false); });
    // With no node to wait for, the stop may come before the engine started.
    ASSERT_TRUE(space.runUntil([&](const AppStore& s) {
      return static_cast<int>(s.spaceNodes().size()) >= c.nodes;
    })) << c.name;
    space.onMain([](AppStore& s) { s.stopSpaceScan(); });
    ASSERT_TRUE(space.runUntil([](const AppStore& s) {
      return s.spaceScanState().kind != SpaceScanState::Kind::scanning;
    })) << c.name;
    EXPECT_EQ(space.store().spaceScanState().kind, c.state) << c.name;
    EXPECT_EQ(static_cast<int>(space.store().spaceNodes().size()), c.nodes) << c.name;
    if (c.state == SpaceScanState::Kind::loaded) {
      EXPECT_GE(space.store().spaceScanState().loadedAt, before - std::chrono::seconds(1))
          << c.name;
    }
    EXPECT_FALSE(space.store().spaceProgress()) << c.name;
  }
}

TEST_F(AppStoreSpaceOnHome, DeletePermanentlyNeverFollowsASubFolderSwappedForALink) {
  folder.writeFile("outside/a", "keep");
  folder.writeFile("outside/deeper/b", "keep");
  SpaceStore space;
  for (int round = 0; round < 8; ++round) {
    for (int i = 0; i < 40; ++i)
      folder.writeFile("home/tree/sub/f" + std::to_string(i), "x");
    folder.writeFile("home/tree/a/b/c", "x");
    ASSERT_TRUE(space.scan(false)) << space.store().spaceScanState().message;
    space.toggle(space.node(home + "/tree"));
    std::atomic<bool> stop{false};
    std::thread swapper([&] {
      const std::string sub = home + "/tree/sub", aside = home + "/aside";
      while (!stop.load()) {
        if (::rename(sub.c_str(), aside.c_str()) == 0) {
          (void)::symlink((folder / "outside").c_str(), sub.c_str());
          std::this_thread::yield();
          ::unlink(sub.c_str());
          ::rename(aside.c_str(), sub.c_str());
        }
      }
    });
    const bool cleaned = space.clean(SpaceCleanMode::delete_);
    stop = true;
    swapper.join();
    ASSERT_TRUE(cleaned);
    ASSERT_TRUE(space.store().spaceCleanReceipt());
    ASSERT_EQ(space.store().spaceCleanReceipt()->results.size(), 1u);
    EXPECT_NE(space.store().spaceCleanReceipt()->results[0].outcome, SpaceCleanOutcome::skipped);
    ASSERT_EQ(readFileContents(folder / "outside/a"), "keep") << "round " << round;
    ASSERT_EQ(readFileContents(folder / "outside/deeper/b"), "keep") << "round " << round;
    testing::removeTree(home + "/tree");
    testing::removeTree(home + "/aside");
  }
}

// Run as an ordinary user by the test below: its move and its delete fail.
TEST(AppStoreSpaceAsOrdinaryUser, FailsWithTheSystemsWordsAndKeepsThePicks) {
  const std::string home = testing::ordinaryUserArgument("BRISKO_TEST_SPACE_HOME");
  if (home.empty()) GTEST_SKIP() << "runs as an ordinary user only";
  SpaceStore space;
  ASSERT_TRUE(space.scan(false)) << space.store().spaceScanState().message;
  const std::set<std::string> picked{home + "/locked/folder", home + "/locked/item"};
  for (const std::string& path : picked)
    space.toggle(space.node(path));
  for (const SpaceCleanMode mode : {SpaceCleanMode::trash, SpaceCleanMode::delete_}) {
    ASSERT_TRUE(space.clean(mode));
    const auto& receipt = space.store().spaceCleanReceipt();
    ASSERT_TRUE(receipt);
    ASSERT_EQ(receipt->results.size(), 2u);
    for (const SpaceCleanResult& result : receipt->results) {
      EXPECT_EQ(result.outcome, SpaceCleanOutcome::failed) << result.path;
      EXPECT_NE(result.message.value_or("").find("Permission denied"), std::string::npos)
          << result.message.value_or("(none)");
    }
    EXPECT_EQ(space.store().spaceBasket(), picked);
    const auto failures = AppText::spaceReceiptFailures(*receipt);
    ASSERT_TRUE(failures);
    std::cout << AppText::spaceReceiptSummary(*receipt) << ". " << *failures << "\n";
  }
}

TEST_F(AppStoreSpaceOnHome, AMoveAndADeleteFailForAnOrdinaryUser) {
  // Rows below the top level show from a megabyte on.
  folder.makeDirectory("home/locked/folder");
  allocate(home + "/locked/item", 2 << 20);
  allocate(home + "/locked/folder/inner", 2 << 20);
  folder.makeDirectory("home/.local/share");
  folder.makeDirectory("home/.config");
  folder.makeDirectory("home/.cache");
  ASSERT_EQ(::chmod(folder.path().c_str(), 0777), 0);
  // The ordinary user owns its home and its data folders, not the locked one.
  for (const char* owned : {"", "/.config", "/.cache", "/.local", "/.local/share"})
    ASSERT_EQ(::chown((home + owned).c_str(), 65534, 65534), 0);
  auto environment = homeEnvironment(home);
  environment.emplace_back("BRISKO_TEST_SPACE_HOME", home);
  EXPECT_EQ(testing::runTestsAsOrdinaryUser("AppStoreSpaceAsOrdinaryUser.*", environment), 0);
  EXPECT_TRUE(exists(home + "/locked/item"));
  EXPECT_TRUE(exists(home + "/locked/folder/inner"));
}

}  // namespace
}  // namespace brisko
