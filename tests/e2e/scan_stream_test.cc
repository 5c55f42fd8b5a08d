// "scan-stream" driven through the real engine, its output parsed line by line.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <set>

#include "base/utf8.h"
#include "protocol/engine_text.h"
#include "protocol/guard_warning_text.h"
#include "protocol/scan_records.h"
#include "rules/cleanup_rule_catalog.h"
#include "testing/sample_home.h"
#include "testing/subprocess.h"
#include "testing/temporary_directory.h"

namespace brisko {
namespace {

using testing::ProcessOptions;
using testing::ProcessResult;
using testing::TemporaryDirectory;

struct Scan {
  ProcessResult process;
  std::vector<ScanEvent> events;
};

// Every line must be one whole event; a line that doesn't decode fails the test.
std::vector<ScanEvent> eventsOf(const std::string& output) {
  std::vector<ScanEvent> events;
  for (const std::string& line : testing::linesOf(output)) {
    EXPECT_TRUE(isValidUtf8(line));
    try {
      events.push_back(decodeJson<ScanEvent>(line));
    } catch (const std::exception& error) {
      ADD_FAILURE() << "undecodable line: " << error.what() << "\n" << line.substr(0, 300);
    }
  }
  return events;
}

Scan scan(const std::string& home, std::vector<std::string> flags = {},
          std::vector<std::string> prefix = {}) {
  std::vector<std::string> argv = std::move(prefix);
  argv.push_back(BRISKO_ENGINE_PATH);
  argv.push_back("scan-stream");
  argv.insert(argv.end(), flags.begin(), flags.end());
  ProcessOptions options;
  options.environment = {{"HOME", home}};
  Scan result;
  result.process = testing::runProcess(argv, options);
  result.events = eventsOf(result.process.standardOutput);
  return result;
}

const ScanReport& reportOf(const Scan& s) {
  static const ScanReport none;
  if (s.events.empty() || !s.events.back().report) {
    ADD_FAILURE() << "no report at the end: " << s.process.standardError;
    return none;
  }
  return *s.events.back().report;
}

std::vector<std::string> allPaths(const ScanReport& report) {
  std::vector<std::string> paths;
  for (const auto& finding : report.findings) {
    paths.push_back(finding.path);
    if (finding.items) {
      for (const auto& item : *finding.items)
        paths.push_back(item.path);
    }
  }
  return paths;
}

class ScanStreamOnSampleHome : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    dir_ = new TemporaryDirectory;
    home_ = dir_->path() + "/home";
    testing::buildSampleHome(home_);
  }
  static void TearDownTestSuite() { delete dir_; }
  static inline TemporaryDirectory* dir_ = nullptr;
  static inline std::string home_;
};

TEST_F(ScanStreamOnSampleHome, StreamsStartedProgressFindingsAndTheWholeReport) {
  const Scan s = scan(home_);
  ASSERT_EQ(s.process.exitStatus, 0) << s.process.standardError;
  ASSERT_GE(s.events.size(), 3u);

  const ScanEvent& started = s.events.front();
  EXPECT_EQ(started.kind, ScanEventKind::started);
  ASSERT_TRUE(started.disk && started.progress);
  EXPECT_GT(started.disk->totalBytes, 0);
  EXPECT_EQ(started.progress->completedLocations, 0);
  const std::int64_t total = started.progress->totalLocations;
  EXPECT_GT(total, 100);

  std::int64_t completed = 0;
  std::vector<ScanFinding> streamed;
  for (size_t i = 1; i + 1 < s.events.size(); ++i) {
    const ScanEvent& event = s.events[i];
    EXPECT_EQ(event.protocolVersion, 3);
    EXPECT_NE(event.kind, ScanEventKind::started);
    EXPECT_NE(event.kind, ScanEventKind::completed);
    if (event.kind == ScanEventKind::progress) {
      ASSERT_TRUE(event.progress);
      EXPECT_GE(event.progress->completedLocations, completed) << "progress never goes back";
      completed = event.progress->completedLocations;
      EXPECT_EQ(event.progress->totalLocations, total);
      EXPECT_TRUE(event.progress->currentTitle.has_value());
    }
    if (event.kind == ScanEventKind::finding) streamed.push_back(*event.finding);
  }
  EXPECT_EQ(completed, total) << "the ledger fills up to the planned total";

  const ScanReport& report = reportOf(s);
  EXPECT_EQ(s.events.back().kind, ScanEventKind::completed);
  EXPECT_EQ(report.protocolVersion, 3);
  EXPECT_EQ(report.disk, *started.disk);
  EXPECT_TRUE(report.blocked.empty());
  EXPECT_TRUE(report.warnings.empty()) << "nothing guarded is running here";

  // The report holds what was streamed, in catalog order.
  ASSERT_EQ(report.findings.size(), streamed.size());
  for (const auto& finding : streamed) {
    EXPECT_NE(std::find(report.findings.begin(), report.findings.end(), finding),
              report.findings.end())
        << finding.id;
  }
  std::vector<std::string> ids;
  for (const auto& finding : report.findings)
    ids.push_back(finding.id);
  EXPECT_EQ(
      ids, (std::vector<std::string>{
               "user-caches", "user-logs", "xcode-derived-data", "downloaded-installers",
               "dev-tool-caches", "xcode-device-support", "xcode-simulators", "stale-tool-versions",
               "browser-caches", "app-deep-caches", "video-project-caches", "report-mail-data",
               "report-ai-models", "thumbnail-cache", "flatpak-app-caches", "snap-app-caches",
               "game-shader-caches"}));

  // Sizes are the allocated bytes of what each row names.
  for (const auto& finding : report.findings) {
    if (finding.id != "user-caches" && finding.id != "downloaded-installers") continue;
    std::int64_t sum = 0;
    for (const auto& item : *finding.items) {
      // The updater application inside PhotoStudio's cache is a package: nothing.
      const bool holdsPackage = item.path.ends_with("PhotoStudio");
      EXPECT_EQ(item.bytes,
                testing::allocatedBytesBelow(item.path + (holdsPackage ? "/previews" : "")))
          << item.path;
      EXPECT_EQ(item.id, finding.id + ":" + item.path);
      sum += item.bytes;
    }
    EXPECT_EQ(finding.bytes, sum);
  }

  // Nothing the policy refuses is offered, and no link was followed.
  for (const std::string& path : allPaths(report)) {
    EXPECT_EQ(path.rfind(home_, 0), 0u) << path;
    for (const char* refused : {"1password", "JetBrains", "Keychains", "mail.google.com", "escape",
                                "shortcut", "Quarterly report"}) {
      EXPECT_EQ(path.find(refused), std::string::npos) << path;
    }
    if (path.find("/.cache/huggingface") != std::string::npos) {
      EXPECT_EQ(path, home_ + "/.cache/huggingface") << "only the report-only row shows it";
    }
  }
}

TEST_F(ScanStreamOnSampleHome, ExcludingInstallersDropsTheirRuleAndItsStep) {
  const Scan all = scan(home_);
  const Scan without = scan(home_, {"--exclude-installers"});
  ASSERT_EQ(without.process.exitStatus, 0) << without.process.standardError;
  EXPECT_EQ(without.events.front().progress->totalLocations,
            all.events.front().progress->totalLocations - 1);
  for (const auto& finding : reportOf(without).findings)
    EXPECT_NE(finding.id, "downloaded-installers");
  EXPECT_EQ(reportOf(without).findings.size(), reportOf(all).findings.size() - 1);

  const ProcessResult twice = testing::runProcess(
      {BRISKO_ENGINE_PATH, "scan-stream", "--exclude-installers", "--exclude-installers"});
  EXPECT_EQ(twice.exitStatus, 64);
  EXPECT_EQ(twice.standardOutput, "");
}

TEST_F(ScanStreamOnSampleHome, ARunningGuardedProgramHoldsItsFindingBack) {
  // A real process whose executable is called Xcode.
  TemporaryDirectory bin;
  const std::string xcode = bin / "Xcode";
  std::filesystem::copy_file("/bin/sleep", xcode);
  const pid_t sleeper = ::fork();
  ASSERT_GE(sleeper, 0);
  if (sleeper == 0) {
    ::execl(xcode.c_str(), "Xcode", "60", static_cast<char*>(nullptr));
    ::_exit(127);
  }
  const Scan s = scan(home_);
  ::kill(sleeper, SIGKILL);
  ::waitpid(sleeper, nullptr, 0);

  ASSERT_EQ(s.process.exitStatus, 0) << s.process.standardError;
  std::vector<std::string> warnings;
  for (const auto& event : s.events) {
    if (event.kind == ScanEventKind::warning) warnings.push_back(*event.warning);
  }
  ASSERT_EQ(warnings.size(), 1u);
  EXPECT_TRUE(GuardWarningText::isGuardWarning(warnings[0]));
  EXPECT_EQ(GuardWarningText::guardedTitle(warnings[0]), "Xcode caches");
  EXPECT_EQ(reportOf(s).warnings, warnings);
  for (const auto& finding : reportOf(s).findings) {
    EXPECT_EQ(finding.isPartial, finding.id == "xcode-derived-data") << finding.id;
  }
}

TEST(ScanStream, BadInputEndsInACompleteScanForAnOrdinaryUser) {
  if (!testing::isReachableByOtherUsers(BRISKO_ENGINE_PATH)) {
    GTEST_SKIP() << "the engine lies in a folder that the ordinary user can't reach";
  }
  TemporaryDirectory dir;
  const std::string home = dir.path() + "/home";
  testing::buildSampleHome(home);
  dir.writeFile("home/.cache/bad\xff/blob", std::string(9000, 'b'));
  dir.writeFile("home/Library/Caches/caf\xe9/data", std::string(9000, 'c'));
  dir.makeSymlink("home/.cache/loop", dir / "home/.cache/loop");
  dir.makeSymlink("home/.cache/ping", dir / "home/.cache/pong");
  dir.makeSymlink("home/.cache/pong", dir / "home/.cache/ping");
  dir.writeFile("home/Library/Caches/com.example.locked/data", std::string(9000, 'l'));
  ASSERT_EQ(::chmod(dir.path().c_str(), 0755), 0);
  ASSERT_EQ(::chmod((dir / "home/Library/Caches/com.example.locked").c_str(), 0), 0);
  ASSERT_EQ(::chmod((dir / "home/Library/Logs").c_str(), 0), 0);
  ASSERT_EQ(::chmod((dir / "home/Library/Mail").c_str(), 0), 0);

  const Scan s = scan(home, {}, {"setpriv", "--reuid=65534", "--regid=65534", "--clear-groups"});
  ASSERT_EQ(s.process.exitStatus, 0) << s.process.standardError;
  const ScanReport& report = reportOf(s);

  // The denied roots are blocked locations, streamed and reported.
  std::set<std::string> blocked;
  for (const auto& location : report.blocked) {
    blocked.insert(location.id);
    EXPECT_FALSE(location.needsFullDiskAccess);
  }
  // Logs hold both the old logs and uninstall leftovers.
  EXPECT_EQ(blocked, (std::set<std::string>{"orphaned-app-data", "report-mail-data", "user-logs"}));
  const auto streamedBlocks = std::count_if(s.events.begin(), s.events.end(), [](const auto& e) {
    return e.kind == ScanEventKind::blocked;
  });
  EXPECT_EQ(streamedBlocks, 3);

  // A report-only place that can't be read is still shown, as partial.
  const auto mail = std::find_if(report.findings.begin(), report.findings.end(),
                                 [](const auto& f) { return f.id == "report-mail-data"; });
  ASSERT_NE(mail, report.findings.end());
  EXPECT_TRUE(mail->isPartial);
  EXPECT_EQ(mail->bytes, 0);

  // The rest measured as before; the unreadable cache counts as empty.
  for (const auto& finding : report.findings) {
    if (finding.id != "user-caches") continue;
    for (const auto& item : *finding.items) {
      EXPECT_EQ(item.path.find("locked"), std::string::npos);
      EXPECT_EQ(item.path.find("caf"), std::string::npos);
    }
    EXPECT_EQ(finding.items->size(), 4u);
  }
  ::chmod((dir / "home/Library/Caches/com.example.locked").c_str(), 0755);
  ::chmod((dir / "home/Library/Logs").c_str(), 0755);
  ::chmod((dir / "home/Library/Mail").c_str(), 0755);
}

TEST(ScanStream, PlacesWhoseNamesArentTextAreCountedNeverWrittenBroken) {
  TemporaryDirectory dir;
  // Below a home whose own name isn't UTF-8 the policy refuses everything, but
  // the show-only rules measure without it: their findings can't be written.
  const std::string home = dir.makeDirectory("caf\xe9");
  dir.writeFile("caf\xe9/Library/Mail/V10/index", std::string(9000, 'm'));
  dir.writeFile("caf\xe9/.ollama/models/blob", std::string(9000, 'o'));
  dir.writeFile("caf\xe9/Library/Caches/com.example.app/data", std::string(9000, 'c'));

  const Scan s = scan(home);
  ASSERT_EQ(s.process.exitStatus, 0) << s.process.standardError;
  const ScanReport& report = reportOf(s);
  EXPECT_TRUE(report.findings.empty());
  ASSERT_EQ(report.warnings.size(), 1u);
  const auto text = EngineText::decoded(report.warnings[0]);
  ASSERT_TRUE(text);
  EXPECT_EQ(text->arguments, (std::vector<std::string>{"4"})) << "two findings with a row each";
}

TEST(ScanStream, SigtermEndsTheScanCleanly) {
  TemporaryDirectory dir;
  const std::string home = dir.makeDirectory("home");
  for (int folder = 0; folder < 40; ++folder) {
    testing::makeEmptyFiles(home + "/Library/Caches/com.example.big/" + std::to_string(folder),
                            500);
  }
  int out[2];
  int err[2];
  ASSERT_EQ(::pipe2(out, O_CLOEXEC), 0);
  ASSERT_EQ(::pipe2(err, O_CLOEXEC), 0);
  const std::string homeVariable = "HOME=" + home;
  char* const argv[] = {const_cast<char*>(BRISKO_ENGINE_PATH), const_cast<char*>("scan-stream"),
                        nullptr};
  char* const envp[] = {const_cast<char*>(homeVariable.c_str()), nullptr};
  const pid_t engine = ::fork();
  ASSERT_GE(engine, 0);
  if (engine == 0) {
    ::dup2(out[1], 1);
    ::dup2(err[1], 2);
    ::execve(BRISKO_ENGINE_PATH, argv, envp);
    ::_exit(127);
  }
  ::close(out[1]);
  ::close(err[1]);

  std::string output;
  char buffer[65536];
  // Stop it as soon as the scan has begun.
  while (output.find('\n') == std::string::npos) {
    const ssize_t got = ::read(out[0], buffer, sizeof buffer);
    ASSERT_GT(got, 0);
    output.append(buffer, static_cast<size_t>(got));
  }
  const auto signalled = std::chrono::steady_clock::now();
  ASSERT_EQ(::kill(engine, SIGTERM), 0);
  for (ssize_t got; (got = ::read(out[0], buffer, sizeof buffer)) > 0;)
    output.append(buffer, static_cast<size_t>(got));
  std::string errors;
  for (ssize_t got; (got = ::read(err[0], buffer, sizeof buffer)) > 0;)
    errors.append(buffer, static_cast<size_t>(got));
  int status = 0;
  ::waitpid(engine, &status, 0);
  ::close(out[0]);
  ::close(err[0]);

  EXPECT_LT(std::chrono::steady_clock::now() - signalled, std::chrono::seconds(10));
  ASSERT_TRUE(WIFEXITED(status)) << "ended by a signal, not by itself";
  EXPECT_EQ(WEXITSTATUS(status), 1);
  EXPECT_NE(errors.find("stopped"), std::string::npos) << errors;
  EXPECT_EQ(testing::linesOf(errors).size(), 1u) << errors;
  ASSERT_FALSE(output.empty());
  EXPECT_EQ(output.back(), '\n') << "no line is left half written";
  const auto events = eventsOf(output);
  ASSERT_FALSE(events.empty());
  EXPECT_EQ(events.front().kind, ScanEventKind::started);
  for (const auto& event : events)
    EXPECT_NE(event.kind, ScanEventKind::completed);
}

}  // namespace
}  // namespace brisko
