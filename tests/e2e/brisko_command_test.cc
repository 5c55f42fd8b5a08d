// The `brisko` command end to end: the real binary, beside the real engine,
// over real temporary homes.

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>

#include "protocol/brisko_formatting.h"
#include "protocol/plan_records.h"
#include "protocol/receipt_records.h"
#include "protocol/scan_records.h"
#include "safety/whitelist_store.h"
#include "testing/sample_home.h"
#include "testing/subprocess.h"
#include "testing/temporary_directory.h"

namespace brisko {
namespace {

namespace fs = std::filesystem;
using testing::ProcessOptions;
using testing::ProcessResult;

class BriskoCommand : public ::testing::Test {
 protected:
  void SetUp() override { testing::buildSampleHome(home_); }

  ProcessOptions options(const std::string& input = {}) const {
    ProcessOptions options;
    options.standardInput = input;
    options.environment = {{"HOME", home_},
                           {"XDG_DATA_HOME", home_ + "/.local/share"},
                           {"XDG_CONFIG_HOME", home_ + "/.config"},
                           {"XDG_CACHE_HOME", home_ + "/.cache"}};
    options.unsetEnvironment = {"NO_COLOR", "DBUS_SESSION_BUS_ADDRESS"};
    return options;
  }

  ProcessResult brisko(std::vector<std::string> arguments, const std::string& input = {}) const {
    arguments.insert(arguments.begin(), BRISKO_CLI_PATH);
    return testing::runProcess(arguments, options(input));
  }

  // Every entry below the home with its type and size, the program's own data
  // folder (plans, receipts) left out: what a command that deletes nothing
  // must leave as it was.
  std::map<std::string, std::string> contents() const {
    std::map<std::string, std::string> entries;
    std::error_code error;
    for (auto walk = fs::recursive_directory_iterator(
             home_, fs::directory_options::skip_permission_denied, error);
         walk != fs::recursive_directory_iterator(); walk.increment(error)) {
      const std::string path = walk->path().string();
      if (path.starts_with(home_ + "/.local/share/brisko")) continue;
      struct stat info {};
      ::lstat(path.c_str(), &info);
      entries[path] = std::to_string(info.st_mode & S_IFMT) + ":" + std::to_string(info.st_size);
    }
    return entries;
  }

  testing::TemporaryDirectory folder_;
  std::string home_ = folder_ / "home";
};

std::vector<std::string> nonEmptyLines(const std::string& text) {
  std::vector<std::string> lines;
  for (const std::string& line : testing::linesOf(text))
    if (!line.empty()) lines.push_back(line);
  return lines;
}

TEST_F(BriskoCommand, TheRecommendedCleanDeletesThePlanAndItsReceiptCountsWhatWentFromDisk) {
  // The plan that a dry run shows is the one the store's selection makes.
  const ProcessResult dryRun = brisko({"clean", "--recommended", "--dry-run", "--json"});
  ASSERT_EQ(dryRun.exitStatus, 0) << dryRun.standardError;
  const std::vector<std::string> planLines = nonEmptyLines(dryRun.standardOutput);
  ASSERT_EQ(planLines.size(), 1u) << dryRun.standardOutput;
  const auto plan = decodeJson<CleanupPlan>(planLines[0]);
  ASSERT_GT(plan.items.size(), 3u);
  // Plan items may nest (a folder's loose files and a cache folder in it):
  // each file counts once. An application bundle inside a cache is removed
  // with it but measured as nothing, so its files aren't counted here either.
  std::map<std::string, std::int64_t> files;
  for (const CleanupPlanItem& item : plan.items) {
    std::error_code error;
    if (fs::is_regular_file(fs::symlink_status(item.path)))
      files[item.path] = testing::allocatedBytesBelow(item.path);
    for (auto walk = fs::recursive_directory_iterator(item.path, error);
         walk != fs::recursive_directory_iterator(); walk.increment(error))
      if (walk->path().extension() == ".app")
        walk.disable_recursion_pending();
      else if (walk->is_regular_file() && !walk->is_symlink())
        files[walk->path().string()] = testing::allocatedBytesBelow(walk->path().string());
  }
  std::int64_t onDisk = 0;
  for (const auto& [path, bytes] : files)
    onDisk += bytes;
  const std::string documents = home_ + "/Documents";
  ASSERT_TRUE(fs::exists(documents));

  const ProcessResult run = brisko({"clean", "--recommended", "--keep-trash", "--yes"});
  ASSERT_EQ(run.exitStatus, 0) << run.standardOutput << run.standardError;
  EXPECT_EQ(run.standardError, "");
  for (const CleanupPlanItem& item : plan.items) {
    EXPECT_FALSE(fs::exists(fs::symlink_status(item.path))) << item.path;
    EXPECT_NE(run.standardOutput.find(item.path), std::string::npos) << item.path;
  }
  EXPECT_TRUE(fs::exists(documents)) << "what no rule offers stays";
  const std::string summary = "Permanently deleted " + std::to_string(plan.items.size()) +
                              " items. Freed " + BriskoFormatting::bytes(onDisk) + " of " +
                              BriskoFormatting::bytes(onDisk) + " planned.\n";
  EXPECT_TRUE(run.standardOutput.ends_with(summary)) << run.standardOutput;

  const ProcessResult history = brisko({"history", "--json"});
  ASSERT_EQ(history.exitStatus, 0) << history.standardError;
  const std::vector<std::string> receipts = nonEmptyLines(history.standardOutput);
  ASSERT_EQ(receipts.size(), 1u);
  std::int64_t freed = 0;
  for (const CleanupItemResult& result : decodeJson<CleanupReceipt>(receipts[0]).results) {
    EXPECT_EQ(result.outcome, CleanupItemOutcome::deleted) << result.originalPath;
    freed += result.bytes;
  }
  EXPECT_EQ(freed, onDisk);
}

TEST_F(BriskoCommand, NothingIsDeletedWithoutAConfirmedRun) {
  fs::create_directories(home_ + "/.local/share/Trash/files");
  folder_.writeFile("home/.local/share/Trash/files/old.txt", std::string(5000, 'o'));
  struct Case {
    const char* name;
    std::vector<std::string> arguments;
    std::string input;
    int status;
    const char* saying;  // on standard error; empty: nothing there
  };
  const Case cases[] = {
      {"a dry run", {"clean", "--recommended", "--dry-run"}, "", 0, ""},
      {"clean without a terminal", {"clean", "--recommended"}, "y\n", 1, "pass --yes"},
      {"emptying the Trash without a terminal", {"trash", "--empty"}, "y\n", 1, "pass --yes"},
  };
  for (const Case& test : cases) {
    SCOPED_TRACE(test.name);
    const auto before = contents();
    const ProcessResult result = brisko(test.arguments, test.input);
    EXPECT_EQ(result.exitStatus, test.status) << result.standardError;
    if (*test.saying == '\0')
      EXPECT_EQ(result.standardError, "");
    else
      EXPECT_NE(result.standardError.find(test.saying), std::string::npos) << result.standardError;
    EXPECT_EQ(contents(), before);
  }
}

TEST_F(BriskoCommand, JsonLinesAreTheEnginesOwnRecords) {
  const ProcessResult scan = brisko({"scan", "--json"});
  ASSERT_EQ(scan.exitStatus, 0) << scan.standardError;
  std::vector<ScanEvent> events;
  for (const std::string& line : testing::linesOf(scan.standardOutput)) {
    ASSERT_TRUE(Json::accept(line)) << line;
    events.push_back(decodeJson<ScanEvent>(line));
    EXPECT_EQ(encodeJson(events.back()), line) << "printed as the engine writes it";
  }
  ASSERT_GT(events.size(), 2u);
  EXPECT_EQ(events.front().kind, ScanEventKind::started);
  ASSERT_TRUE(events.back().report);

  ProcessOptions engineOptions = options();
  const ProcessResult engine =
      testing::runProcess({BRISKO_ENGINE_PATH, "scan-stream"}, engineOptions);
  ASSERT_EQ(engine.exitStatus, 0) << engine.standardError;
  const auto direct =
      decodeJson<ScanEvent>(testing::linesOf(engine.standardOutput).back()).report.value();
  const auto summary = [](const ScanReport& report) {
    std::map<std::string, std::int64_t> bytes;
    for (const ScanFinding& finding : report.findings)
      bytes[finding.id] = finding.bytes;
    return bytes;
  };
  EXPECT_EQ(summary(*events.back().report), summary(direct));
}

TEST_F(BriskoCommand, BadInputEndsWithOneLineAndItsStatus) {
  // `brisko` alone, without the engine beside it.
  const std::string lonely = folder_.makeDirectory("lonely") + "/brisko";
  fs::copy_file(BRISKO_CLI_PATH, lonely);
  const std::string bash = "\"$0\" scan | true; exit ${PIPESTATUS[0]}";
  struct Case {
    const char* name;
    std::vector<std::string> argv;
    int status;
    std::string line;  // the one line on standard error, or a part of it
  };
  const Case cases[] = {
      {"unknown command", {BRISKO_CLI_PATH, "sweep"}, 2, "unknown command \u2018sweep\u2019"},
      {"unknown option",
       {BRISKO_CLI_PATH, "scan", "--fast"},
       2,
       "unknown option \u2018--fast\u2019"},
      {"no selection", {BRISKO_CLI_PATH, "clean"}, 2, "--recommended"},
      {"an ID that names nothing",
       {BRISKO_CLI_PATH, "clean", "no-such-finding", "--yes"},
       2,
       "no finding or item has the ID \u2018no-such-finding\u2019"},
      {"a depth out of range", {BRISKO_CLI_PATH, "space", "--depth", "0"}, 2, "--depth"},
      {"a relative whitelist pattern",
       {BRISKO_CLI_PATH, "whitelist", "add", "Caches/*"},
       1,
       std::string(
           WhitelistValidationError::text(WhitelistValidationError::Case::notAbsoluteOrHome))},
      {"a whitelist pattern of the system",
       {BRISKO_CLI_PATH, "whitelist", "add", "/usr"},
       1,
       std::string(
           WhitelistValidationError::text(WhitelistValidationError::Case::criticalSystemPath))},
      {"a missing engine",
       {lonely, "scan"},
       1,
       "The built-in scan engine is missing. Please reinstall Brisko."},
      {"a closed standard output",
       {"bash", "-c", bash, BRISKO_CLI_PATH},
       1,
       "standard output was closed"},
  };
  const auto whitelistBefore = WhitelistStore::readFile(home_);
  for (const Case& test : cases) {
    SCOPED_TRACE(test.name);
    const ProcessResult result = testing::runProcess(test.argv, options());
    EXPECT_EQ(result.exitStatus, test.status) << result.standardError;
    const auto lines = testing::linesOf(result.standardError);
    ASSERT_EQ(lines.size(), 1u) << result.standardError;
    EXPECT_TRUE(lines[0].starts_with("brisko: ")) << lines[0];
    EXPECT_NE(lines[0].find(test.line), std::string::npos) << lines[0];
  }
  EXPECT_EQ(WhitelistStore::readFile(home_), whitelistBefore) << "a refused pattern isn't stored";
}

TEST_F(BriskoCommand, EmptyingTheTrashLeavesNothingForGio) {
  if (testing::runProcess({"sh", "-c", "command -v gio && command -v dbus-run-session"})
          .exitStatus != 0)
    GTEST_SKIP() << "needs gio (libglib2.0-bin) and dbus-run-session (dbus-daemon)";
  const auto gio = [&](std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), {"timeout", "60", "dbus-run-session", "--", "gio"});
    return testing::runProcess(arguments, options());
  };
  folder_.writeFile("home/notes.txt", std::string(9000, 'n'));
  folder_.writeFile("home/Old/inner/a", std::string(3000, 'a'));
  ASSERT_EQ(gio({"trash", home_ + "/notes.txt", home_ + "/Old"}).exitStatus, 0);
  ASSERT_EQ(testing::linesOf(gio({"list", "trash://"}).standardOutput).size(), 2u);

  const ProcessResult listed = brisko({"trash"});
  EXPECT_EQ(listed.exitStatus, 0) << listed.standardError;
  EXPECT_TRUE(listed.standardOutput.starts_with("The Trash holds 2 items, "))
      << listed.standardOutput;

  const ProcessResult emptied = brisko({"trash", "--empty", "--yes"});
  EXPECT_EQ(emptied.exitStatus, 0) << emptied.standardError;
  EXPECT_EQ(gio({"list", "trash://"}).standardOutput, "");
  EXPECT_EQ(brisko({"trash"}).standardOutput, "The Trash is empty.\n");
}

// One golden text for the words of `scan` over the sample home. The volume's
// line changes with the machine and the temporary home's path with the run.
TEST_F(BriskoCommand, ScanSpeaksInTheWordsOfTheGoldenText) {
  const ProcessResult scan = brisko({"scan"});
  ASSERT_EQ(scan.exitStatus, 0) << scan.standardError;
  EXPECT_EQ(scan.standardError, "") << "no progress line without a terminal";
  std::string text = scan.standardOutput;
  if (text.starts_with("Volume ")) text.erase(0, text.find('\n') + 1);
  for (size_t at; (at = text.find(home_)) != std::string::npos;)
    text.replace(at, home_.size(), "~");
  const std::string golden = std::string(BRISKO_E2E_SOURCE_DIR) + "/golden/scan.txt";
  if (std::getenv("BRISKO_UPDATE_GOLDEN")) std::ofstream(golden) << text;
  std::ifstream file(golden);
  std::stringstream expected;
  expected << file.rdbuf();
  EXPECT_EQ(text, expected.str()) << "set BRISKO_UPDATE_GOLDEN=1 to write " << golden;
}

}  // namespace
}  // namespace brisko
