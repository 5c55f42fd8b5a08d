#include "space/space_stream_command.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <sstream>

#include "space/space_cache_store.h"
#include "space/space_naming.h"
#include "testing/temporary_directory.h"

namespace brisko {
namespace {

class SpaceStreamCommand : public ::testing::Test {
 protected:
  void SetUp() override {
    const char* saved = std::getenv("XDG_DATA_HOME");
    savedDataHome_ = saved ? std::optional<std::string>(saved) : std::nullopt;
    ::setenv("XDG_DATA_HOME", (data / "share").c_str(), 1);
    options.builder.progressPulseInterval = 0;
  }
  void TearDown() override {
    if (savedDataHome_) {
      ::setenv("XDG_DATA_HOME", savedDataHome_->c_str(), 1);
    } else {
      ::unsetenv("XDG_DATA_HOME");
    }
  }

  // Runs the command; every event must also survive its own line of text.
  std::vector<SpaceEvent> run() {
    std::vector<SpaceEvent> events;
    status = runSpaceStream(
        home.path(), options,
        [&](const SpaceEvent& event) {
          const std::string line = encodeSpaceEvent(event);
          EXPECT_EQ(line.find('\n'), std::string::npos);
          EXPECT_EQ(decodeJson<SpaceEvent>(line), event);
          events.push_back(event);
        },
        diagnostics);
    return events;
  }

  SpaceCacheStore store() const { return SpaceCacheStore(data / "share/brisko/space-cache.json"); }

  testing::TemporaryDirectory home;
  testing::TemporaryDirectory data;
  SpaceStreamOptions options;
  std::ostringstream diagnostics;
  int status = -1;

 private:
  std::optional<std::string> savedDataHome_;
};

TEST_F(SpaceStreamCommand, StreamsTheTreeAndSavesTheCache) {
  home.writeFile("Documents/a", std::string(3 << 20, 'a'));
  home.writeFile("Downloads/deep/b", std::string(2 << 20, 'b'));
  for (int i = 0; i < 50; ++i)
    home.writeFile("Library/d" + std::to_string(i) + "/x", "x");
  home.writeFile(".hidden/c", "c");
  home.writeFile("loose.txt", "l");

  const auto events = run();
  EXPECT_EQ(status, 0);
  EXPECT_EQ(diagnostics.str(), "");
  ASSERT_GE(events.size(), 7u);
  EXPECT_EQ(events.front().kind, SpaceEventKind::started);
  EXPECT_EQ(events.front().progress->totalLocations, 5);
  EXPECT_EQ(events.front().progress->completedLocations, 0);
  EXPECT_EQ(events.back().kind, SpaceEventKind::completed);

  int nodes = 0;
  std::int64_t lastCompleted = 0;
  for (const auto& event : events) {
    EXPECT_EQ(event.protocolVersion, 3);
    if (event.kind == SpaceEventKind::node) {
      ++nodes;
      ASSERT_TRUE(event.node && event.progress);
      EXPECT_GT(event.progress->completedLocations, lastCompleted);
      lastCompleted = event.progress->completedLocations;
    }
    EXPECT_NE(event.kind, SpaceEventKind::warning);
  }
  EXPECT_EQ(nodes, 5);
  EXPECT_EQ(lastCompleted, 5);

  const SpaceReport& report = *events.back().report;
  EXPECT_EQ(report.root.path, home.path());
  EXPECT_EQ(report.largeFiles.size(), 0u);  // nothing of 100 MB here
  EXPECT_TRUE(report.warnings.empty());
  EXPECT_LE(report.scannedAt, std::chrono::system_clock::now());

  const auto stored = store().load();
  ASSERT_TRUE(stored.has_value());
  EXPECT_EQ(stored->schemaVersion, 3);
  EXPECT_EQ(stored->namingLanguage, SpaceNaming::namingLanguage());
  EXPECT_EQ(stored->eventState, std::nullopt);  // no file-event history on Linux
  EXPECT_EQ(stored->report, report);

  // With no file-event history an incremental run over a good cache still
  // walks everything. (A damaged cache is dropped by the store.)
  home.writeFile("Documents/b", std::string(2 << 20, 'b'));
  options.incremental = true;
  const auto again = run();
  EXPECT_GT(again.back().report->root.bytes, report.root.bytes);
}

TEST_F(SpaceStreamCommand, AnUnreadableHomeAndAnUnwritableCacheStillComplete) {
  ::setenv("XDG_DATA_HOME", (data / "file").c_str(), 1);
  data.writeFile("file", "a file where the folder should be");
  const std::string missing = home / "gone";
  std::vector<SpaceEvent> events;
  status = runSpaceStream(
      missing, options, [&](const SpaceEvent& event) { events.push_back(event); }, diagnostics);
  EXPECT_EQ(status, 0);
  ASSERT_EQ(events.size(), 3u);
  EXPECT_EQ(events[0].kind, SpaceEventKind::started);
  EXPECT_EQ(events[1].kind, SpaceEventKind::warning);
  EXPECT_EQ(events[1].warning, SpaceTreeBuilder::homeUnreadableWarning);
  EXPECT_EQ(events[2].kind, SpaceEventKind::completed);
  EXPECT_TRUE(events[2].report->root.accessDenied);
  EXPECT_NE(diagnostics.str().find("could not be saved"), std::string::npos);
}

}  // namespace
}  // namespace brisko

namespace brisko {
namespace {

TEST_F(SpaceStreamCommand, ALostReaderStopsTheWalkAndSavesNothing) {
  for (int i = 0; i < 20; ++i)
    home.writeFile("d" + std::to_string(i) + "/sub/file", "x");
  int calls = 0;
  EXPECT_THROW(runSpaceStream(
                   home.path(), options,
                   [&](const SpaceEvent&) {
                     if (++calls == 2) throw std::runtime_error("the reader went away");
                   },
                   diagnostics),
               std::runtime_error);
  EXPECT_EQ(calls, 2);  // nothing is written after the failure
  EXPECT_EQ(store().load(), std::nullopt);
}

}  // namespace
}  // namespace brisko
