// "space-stream" through the real engine: the lines it writes, the tree they
// end with, and the cache it leaves behind.

#include <gtest/gtest.h>

#include "protocol/space_records.h"
#include "space/space_cache_store.h"
#include "testing/subprocess.h"
#include "testing/temporary_directory.h"

namespace brisko {
namespace {

using testing::ProcessResult;
using testing::TemporaryDirectory;

std::int64_t findFileBytes(const std::string& path) {
  const ProcessResult find = testing::runProcess({"find", path, "-type", "f", "-printf", "%b\\n"});
  std::int64_t blocks = 0;
  for (const auto& line : testing::linesOf(find.standardOutput))
    blocks += std::stoll(line);
  return blocks * 512;
}

class EngineSpaceStream : public ::testing::Test {
 protected:
  ProcessResult run(std::vector<std::string> flags = {}) {
    std::vector<std::string> args{BRISKO_ENGINE_PATH, "space-stream"};
    args.insert(args.end(), flags.begin(), flags.end());
    testing::ProcessOptions options;
    options.environment = {{"HOME", home.path()}, {"XDG_DATA_HOME", data.path()}};
    options.closeStandardInput = true;
    return testing::runProcess(args, options);
  }

  std::vector<SpaceEvent> eventsOf(const ProcessResult& result) {
    std::vector<SpaceEvent> events;
    for (const auto& line : testing::linesOf(result.standardOutput))
      events.push_back(decodeJson<SpaceEvent>(line));  // every line one whole event
    return events;
  }

  TemporaryDirectory home;
  TemporaryDirectory data;
};

TEST_F(EngineSpaceStream, StreamsTheHomeFolderAndStoresTheTree) {
  home.writeFile("Documents/report.pdf", std::string(3 << 20, 'r'));
  home.writeFile("Downloads/deep/er/file", std::string(2 << 20, 'd'));
  home.writeFile("projects/app/node_modules/x/index.js", std::string(2 << 20, 'n'));
  home.writeFile(".config/settings", "s");
  home.writeFile(std::string("odd-\xfe-name"), std::string(2 << 20, 'o'));
  home.makeSymlink("loop", home.path());

  const ProcessResult result = run();
  ASSERT_EQ(result.exitStatus, 0) << result.standardError;
  EXPECT_EQ(result.standardError, "");
  const auto events = eventsOf(result);
  ASSERT_GE(events.size(), 2u);
  EXPECT_EQ(events.front().kind, SpaceEventKind::started);
  EXPECT_EQ(events.back().kind, SpaceEventKind::completed);
  int nodes = 0;
  for (const auto& event : events) {
    EXPECT_EQ(event.protocolVersion, 3);
    if (event.kind == SpaceEventKind::node) ++nodes;
  }
  EXPECT_EQ(nodes, 5) << "the name that isn't UTF-8 is no row of its own";

  const SpaceReport& report = *events.back().report;
  EXPECT_EQ(report.root.path, home.path());
  EXPECT_EQ(report.root.bytes, findFileBytes(home.path())) << "its bytes still count";
  EXPECT_EQ(report.warnings.size(), 1u) << "one warning tells of the name left out";

  const auto stored = SpaceCacheStore(data / "brisko/space-cache.json").load();
  ASSERT_TRUE(stored.has_value());
  EXPECT_EQ(stored->schemaVersion, 3);
  EXPECT_EQ(stored->report, report);
  EXPECT_FALSE(stored->eventState.has_value());
}

TEST_F(EngineSpaceStream, IncrementalRunsOverADamagedCache) {
  home.writeFile("Documents/a", std::string(2 << 20, 'a'));
  data.writeFile("brisko/space-cache.json", "{\"schemaVersion\": 99}");
  const ProcessResult result = run({"--incremental"});
  ASSERT_EQ(result.exitStatus, 0) << result.standardError;
  const auto events = eventsOf(result);
  ASSERT_FALSE(events.empty());
  EXPECT_EQ(events.back().report->root.bytes, findFileBytes(home.path()));
  const auto stored = SpaceCacheStore(data / "brisko/space-cache.json").load();
  ASSERT_TRUE(stored.has_value());
  EXPECT_EQ(stored->report, *events.back().report);
}

TEST_F(EngineSpaceStream, AnUnreadableHomeStillEndsWithAReport) {
  const std::string missing = home / "gone";
  testing::ProcessOptions options;
  options.environment = {{"HOME", missing}, {"XDG_DATA_HOME", data.path()}};
  const ProcessResult result = testing::runProcess({BRISKO_ENGINE_PATH, "space-stream"}, options);
  // The engine may refuse a home folder it can't read, with one line on
  // standard error; if it runs the scan, the report says what happened.
  if (result.exitStatus != 0) {
    EXPECT_EQ(result.standardOutput, "");
    EXPECT_EQ(testing::linesOf(result.standardError).size(), 1u);
    return;
  }
  const auto events = eventsOf(result);
  ASSERT_EQ(events.back().kind, SpaceEventKind::completed);
  EXPECT_TRUE(events.back().report->root.accessDenied);
  EXPECT_EQ(events[events.size() - 2].kind, SpaceEventKind::warning);
}

}  // namespace
}  // namespace brisko
