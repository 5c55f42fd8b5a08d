#include "space/space_cache_store.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>
#include <sstream>

#include "space/space_json_text.h"
#include "space/space_naming.h"
#include "testing/ordinary_user.h"
#include "testing/temporary_directory.h"

namespace brisko {
namespace {

std::string readFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  std::ostringstream contents;
  contents << file.rdbuf();
  return contents.str();
}

bool exists(const std::string& path) {
  return ::access(path.c_str(), F_OK) == 0;
}

SpaceNode leaf(const std::string& path, std::int64_t bytes, SpaceNodeKind kind) {
  SpaceNode node;
  node.id = path;
  node.path = path;
  node.name = path.substr(path.rfind('/') + 1);
  node.bytes = bytes;
  node.itemCount = 1;
  node.kind = kind;
  return node;
}

// A tree with depth, empty and full child lists, and names that need escaping.
SpaceReport sampleReport() {
  SpaceReport report;
  report.scannedAt = Date(std::chrono::seconds(1763784000));
  report.root = leaf("/home/u", 300, SpaceNodeKind::directory);
  report.root.name = "Home folder";
  SpaceNode docs = leaf("/home/u/Docs \"quoted\" \\ tab\t", 200, SpaceNodeKind::directory);
  docs.children.push_back(leaf("/home/u/Docs/a", 150, SpaceNodeKind::file));
  SpaceNode inner = leaf("/home/u/Docs/in", 40, SpaceNodeKind::directory);
  inner.children.push_back(leaf("/home/u/Docs/in/\"children\": []", 40, SpaceNodeKind::folded));
  docs.children.push_back(std::move(inner));
  docs.children.push_back(leaf("/home/u/Docs#other", 10, SpaceNodeKind::otherGroup));
  report.root.children.push_back(std::move(docs));
  report.root.children.push_back(leaf("/home/u/ünïcode", 100, SpaceNodeKind::file));
  report.largeFiles.push_back(LargeFileItem{"/home/u/x", "x", "/home/u/x", 5, report.scannedAt});
  report.warnings.push_back("a warning");
  return report;
}

TEST(SpaceJsonText, WritesExactlyWhatTheGeneralEncoderWrites) {
  SpaceScanCacheEnvelope envelope;
  envelope.namingLanguage = "en-GB";
  envelope.report = sampleReport();
  EXPECT_EQ(encodeSpaceCacheEnvelope(envelope, true), encodeJson(envelope, true));
  EXPECT_EQ(encodeSpaceCacheEnvelope(envelope, false), encodeJson(envelope, false));
  envelope.eventState = SpaceScanCacheEnvelope::EventState{"UUID", 18446744073709551615ull};
  envelope.report.root.children.clear();
  EXPECT_EQ(encodeSpaceCacheEnvelope(envelope, true), encodeJson(envelope, true));

  SpaceEvent completed;
  completed.kind = SpaceEventKind::completed;
  completed.report = sampleReport();
  EXPECT_EQ(encodeSpaceEvent(completed), encodeJson(completed));
  SpaceEvent node;
  node.kind = SpaceEventKind::node;
  node.node = sampleReport().root.children[0];
  node.progress = SpaceScanProgress{1, 2, "Docs", 0.5, 200};
  EXPECT_EQ(encodeSpaceEvent(node), encodeJson(node));
  EXPECT_EQ(decodeJson<SpaceEvent>(encodeSpaceEvent(node)), node);

  completed.report->root.children[0].name = "bad \xff";
  EXPECT_THROW(encodeSpaceEvent(completed), EncodingError);
}

class SpaceCacheStoreTest : public ::testing::Test {
 protected:
  SpaceScanCacheEnvelope envelope() const {
    SpaceScanCacheEnvelope value;
    value.namingLanguage = SpaceNaming::namingLanguage();
    value.report = sampleReport();
    return value;
  }
  // Writes a stored envelope with one key changed to `replacement`.
  void writeWith(const std::string& key, const Json& replacement) {
    Json json = JsonCodec<SpaceScanCacheEnvelope>::encode(envelope());
    json[key] = replacement;
    folder.writeFile("data/space-cache.json", json.dump(2));
  }

  testing::TemporaryDirectory folder;
  SpaceCacheStore store{folder / "data/space-cache.json"};
};

TEST_F(SpaceCacheStoreTest, SavesPrivatelyAndLoadsBack) {
  EXPECT_EQ(store.load(), std::nullopt);
  store.save(envelope());
  struct stat info;
  ASSERT_EQ(::stat((folder / "data").c_str(), &info), 0);
  EXPECT_EQ(info.st_mode & 0777, 0700u);
  EXPECT_EQ(store.load(), envelope());
  // Pretty, sorted, with ISO 8601 dates.
  const std::string text = readFile(store.path());
  EXPECT_NE(text.find("\n  \"namingLanguage\": "), std::string::npos);
  EXPECT_NE(text.find("\"scannedAt\": \"2025-11-22T04:00:00Z\""), std::string::npos);
  // A second save replaces the first whole and leaves no temporary file.
  auto second = envelope();
  second.report.warnings.clear();
  store.save(second);
  EXPECT_EQ(store.load(), second);
  int files = 0;
  for (const auto& entry : std::filesystem::directory_iterator(folder / "data")) {
    (void)entry;
    ++files;
  }
  EXPECT_EQ(files, 1);
  store.clear();
  EXPECT_FALSE(exists(store.path()));
  store.clear();  // nothing to delete is no error
}

TEST_F(SpaceCacheStoreTest, AnyDoubtDeletesTheFile) {
  const std::string full = [&] {
    store.save(envelope());
    return readFile(store.path());
  }();
  const std::vector<std::pair<std::string, std::string>> damaged = {
      {"truncated", full.substr(0, full.size() / 2)},
      {"not JSON", "garbage"},
      {"empty", ""},
      {"wrong type", "[1, 2]"},
      {"a NUL and more behind it", full + std::string(1, '\0') + "junk"},
  };
  for (const auto& [what, text] : damaged) {
    folder.writeFile("data/space-cache.json", text);
    EXPECT_EQ(store.load(), std::nullopt) << what;
    EXPECT_FALSE(exists(store.path())) << what;
  }
  // A FIFO in the file's place answers none at once, instead of waiting for
  // a writer that never comes.
  ASSERT_EQ(::mkfifo(store.path().c_str(), 0600), 0);
  EXPECT_EQ(store.load(), std::nullopt);
  // It is not ours to read, so it stays until the next save replaces it.
  ASSERT_EQ(::unlink(store.path().c_str()), 0);
  for (auto [key, value] : std::vector<std::pair<std::string, Json>>{{"schemaVersion", 2},
                                                                     {"schemaVersion", 4},
                                                                     {"namingLanguage", "xx-ZZ"},
                                                                     {"report", Json::object()}}) {
    writeWith(key, value);
    EXPECT_EQ(store.load(), std::nullopt) << key << " " << value;
    EXPECT_FALSE(exists(store.path())) << key;
  }
}

// Runs as user 65534 (see SpaceCacheStorePermissions below).
TEST(SpaceCacheStoreAsOrdinaryUser, AnUnreadableFileIsKept) {
  const std::string path = testing::ordinaryUserArgument("BRISKO_SPACE_CACHE");
  if (path.empty()) GTEST_SKIP() << "runs only as the ordinary user";
  EXPECT_EQ(SpaceCacheStore(path).load(), std::nullopt);
  EXPECT_TRUE(exists(path));
}

TEST(SpaceCacheStorePermissions, AnUnreadableFileIsKept) {
  testing::TemporaryDirectory folder;
  ASSERT_EQ(::chmod(folder.path().c_str(), 0777), 0);
  const std::string path = folder.writeFile("space-cache.json", "garbage");
  ASSERT_EQ(::chmod(path.c_str(), 0600), 0);
  EXPECT_EQ(testing::runTestsAsOrdinaryUser("SpaceCacheStoreAsOrdinaryUser.*",
                                            {{"BRISKO_SPACE_CACHE", path}}),
            0);
  EXPECT_TRUE(exists(path));
}

}  // namespace
}  // namespace brisko
