// A Linux home through the real engine, with real applications running:
// headless Chromium, a program named firefox-esr and a tiny Flatpak installed
// offline hold their caches back in the scan and the run, while caches that
// no running application guards are cleaned.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <map>
#include <set>
#include <thread>

#include "protocol/guard_warning_text.h"
#include "protocol/plan_records.h"
#include "protocol/receipt_records.h"
#include "protocol/scan_records.h"
#include "testing/subprocess.h"
#include "testing/temporary_directory.h"

namespace brisko {
namespace {

using testing::ProcessOptions;
using testing::ProcessResult;
using testing::TemporaryDirectory;
namespace fs = std::filesystem;

bool onPath(const std::string& program) {
  return testing::runProcess({"sh", "-c", "command -v " + program}).exitStatus == 0;
}

// A program running in a process group of its own, ended with everything it
// started when the object goes.
class RunningProgram {
 public:
  RunningProgram(std::vector<std::string> argv, const std::string& home) {
    std::vector<std::string> environment = {"HOME=" + home, "PATH=/usr/bin:/bin", "LANG=C.UTF-8"};
    std::vector<char*> args;
    for (auto& arg : argv)
      args.push_back(arg.data());
    args.push_back(nullptr);
    std::vector<char*> env;
    for (auto& entry : environment)
      env.push_back(entry.data());
    env.push_back(nullptr);
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETPGROUP);
    posix_spawnattr_setpgroup(&attributes, 0);
    posix_spawn_file_actions_t files;
    posix_spawn_file_actions_init(&files);
    posix_spawn_file_actions_addopen(&files, 1, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_addopen(&files, 2, "/dev/null", O_WRONLY, 0);
    if (::posix_spawnp(&pid_, args[0], &files, &attributes, args.data(), env.data()) != 0)
      pid_ = -1;
    posix_spawn_file_actions_destroy(&files);
    posix_spawnattr_destroy(&attributes);
  }
  ~RunningProgram() { stop(); }
  RunningProgram(const RunningProgram&) = delete;
  RunningProgram& operator=(const RunningProgram&) = delete;

  bool started() const { return pid_ > 0; }
  void stop() {
    if (pid_ <= 0) return;
    ::kill(-pid_, SIGKILL);
    ::waitpid(pid_, nullptr, 0);
    pid_ = -1;
  }

 private:
  pid_t pid_ = -1;
};

bool waitFor(const std::string& path) {
  for (int i = 0; i < 300; ++i) {
    if (fs::exists(path)) return true;
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
  }
  return false;
}

class LinuxHomeTest : public ::testing::Test {
 protected:
  void SetUp() override { home = dir.makeDirectory("home"); }

  ProcessResult engine(const std::string& command, const std::string& input = {}) {
    ProcessOptions options;
    options.standardInput = input;
    options.environment = {{"HOME", home}};
    options.unsetEnvironment = {"XDG_DATA_HOME", "XDG_CACHE_HOME"};
    return testing::runProcess({BRISKO_ENGINE_PATH, command}, options);
  }

  // Guard warnings of a scan: held-back title -> the application named.
  std::map<std::string, std::string> scanWarnings() {
    const ProcessResult result = engine("scan-stream");
    EXPECT_EQ(result.exitStatus, 0) << result.standardError;
    const auto lines = testing::linesOf(result.standardOutput);
    std::map<std::string, std::string> warnings;
    if (lines.empty()) return warnings;
    const auto last = decodeJson<ScanEvent>(lines.back());
    if (!last.report) return warnings;
    for (const std::string& warning : last.report->warnings) {
      const auto title = GuardWarningText::guardedTitle(warning);
      if (!title) continue;
      const size_t nameStart = warning.find('\x02');
      const size_t nameEnd = warning.find('\x02', nameStart + 1);
      warnings[*title] = nameEnd == std::string::npos
                             ? ""
                             : warning.substr(nameStart + 1, nameEnd - nameStart - 1);
    }
    return warnings;
  }

  // Plans the findings, runs the plan, and answers each item's outcome by path.
  std::map<std::string, CleanupItemOutcome> clean(const std::vector<std::string>& findings) {
    const ProcessResult planned =
        engine("create-plan", encodeJson(CreateCleanupPlanRequest{findings, {}}));
    EXPECT_EQ(planned.exitStatus, 0) << planned.standardError;
    const auto plan = decodeJson<CleanupPlan>(planned.standardOutput);
    const ProcessResult ran =
        engine("execute-plan", encodeJson(ExecuteCleanupPlanRequest{plan.id}));
    EXPECT_EQ(ran.exitStatus, 0) << ran.standardError;
    std::map<std::string, CleanupItemOutcome> outcomes;
    for (const std::string& line : testing::linesOf(ran.standardOutput)) {
      const auto event = decodeJson<CleanupEvent>(line);
      if (event.result) outcomes[event.result->originalPath] = event.result->outcome;
    }
    return outcomes;
  }

  TemporaryDirectory dir;
  std::string home;
};

TEST_F(LinuxHomeTest, BrowsersAndAFlatpakRunningAsGuardedProgramsHoldTheirCachesBack) {
  if (!onPath("chromium") || !onPath("flatpak")) {
    GTEST_SKIP() << "needs the Debian packages chromium and flatpak (scripts/install-packages.sh)";
  }
  const std::string setup = std::string(BRISKO_E2E_SOURCE_DIR) + "/tiny_flatpak.sh";
  const ProcessResult installed = testing::runProcess({setup, dir / "flatpak-build", home});
  ASSERT_EQ(installed.exitStatus, 0) << installed.standardError;

  // Caches of applications that are closed, and of those about to run.
  dir.writeFile("home/.cache/google-chrome/Default/Cache/Cache_Data/f_1", std::string(9000, 'g'));
  dir.writeFile("home/.cache/mozilla/firefox/p1.default-esr/cache2/entries/A",
                std::string(9000, 'f'));
  dir.writeFile("home/.var/app/org.example.Closed/cache/blob", std::string(9000, 'c'));

  const std::string firefox = dir / "bin/firefox-esr";
  fs::create_directories(dir / "bin");
  fs::copy_file("/bin/sleep", firefox);
  RunningProgram browser(
      {"chromium", "--headless", "--no-sandbox", "--disable-gpu", "--no-first-run",
       "--disable-background-networking", "--disable-component-update", "--disable-sync",
       "--user-data-dir=" + home + "/.config/chromium", "about:blank"},
      home);
  RunningProgram fox({firefox, "300"}, home);
  RunningProgram app({"flatpak", "run", "org.brisko.TestApp", "300"}, home);
  ASSERT_TRUE(browser.started() && fox.started() && app.started());
  ASSERT_TRUE(waitFor(home + "/.cache/chromium/Default/Cache")) << "Chromium made no disk cache";
  ASSERT_TRUE(waitFor(home + "/.var/app/org.brisko.TestApp/cache/tmp"));
  dir.writeFile("home/.var/app/org.brisko.TestApp/cache/blob", std::string(9000, 'b'));

  const auto warnings = scanWarnings();
  EXPECT_EQ(warnings.count("Chromium cache"), 1u);
  if (warnings.count("Chromium cache")) {
    EXPECT_EQ(warnings.at("Chromium cache"), "Chromium");
  }
  EXPECT_EQ(warnings.count("Firefox cache"), 1u);
  EXPECT_EQ(warnings.count("org.brisko.TestApp"), 1u) << "the running Flatpak's own cache";
  EXPECT_EQ(warnings.count("org.example.Closed"), 0u);
  EXPECT_EQ(warnings.count("Chrome cache"), 0u) << "Chromium is not Chrome";

  const auto outcomes = clean({"browser-caches", "flatpak-app-caches"});
  int held = 0;
  int cleaned = 0;
  for (const auto& [path, outcome] : outcomes) {
    const bool guarded = path.find("/chromium/") != std::string::npos ||
                         path.find("/mozilla/") != std::string::npos ||
                         path.find("org.brisko.TestApp") != std::string::npos;
    EXPECT_EQ(outcome, guarded ? CleanupItemOutcome::skipped : CleanupItemOutcome::deleted) << path;
    ++(guarded ? held : cleaned);
  }
  EXPECT_GE(held, 3);
  EXPECT_EQ(cleaned, 2) << "Chrome's cache and the closed Flatpak's";
  EXPECT_TRUE(fs::exists(home + "/.var/app/org.brisko.TestApp/cache/blob"));
  EXPECT_FALSE(fs::exists(home + "/.var/app/org.example.Closed/cache/blob"));

  // Closed, they hold nothing back.
  browser.stop();
  fox.stop();
  app.stop();
  // A browser's helpers and a sandbox's inner process end a moment after
  // the program that started them.
  auto warningsLeft = scanWarnings();
  for (int i = 0; i < 40 && !warningsLeft.empty(); ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(250));
    warningsLeft = scanWarnings();
  }
  EXPECT_TRUE(warningsLeft.empty()) << warningsLeft.begin()->first;
  const auto after = clean({"flatpak-app-caches"});
  EXPECT_EQ(after.at(home + "/.var/app/org.brisko.TestApp/cache/blob"),
            CleanupItemOutcome::deleted);
}

// A home folder that is itself a link is worked under its real path, so its
// caches clean normally; a linked cache folder inside it is refused once.
TEST_F(LinuxHomeTest, ALinkedHomeCleansAndALinkedCacheIsOneSkip) {
  const std::string real = dir.makeDirectory("real-home");
  dir.writeFile("real-home/.cache/pip/wheels/a.whl", std::string(9000, 'w'));
  dir.writeFile("real-home/Documents/letter.odt", std::string(9000, 'l'));
  dir.makeDirectory("real-home/.var/app/org.example.Maps");
  dir.makeSymlink("real-home/.var/app/org.example.Maps/cache", real + "/Documents");
  fs::remove(home);
  dir.makeSymlink("home", real);

  const ProcessResult planned =
      engine("create-plan",
             encodeJson(CreateCleanupPlanRequest{{"dev-tool-caches", "flatpak-app-caches"}, {}}));
  ASSERT_EQ(planned.exitStatus, 0) << planned.standardError;
  const auto plan = decodeJson<CleanupPlan>(planned.standardOutput);
  ASSERT_EQ(plan.items.size(), 1u);
  EXPECT_EQ(plan.items[0].path, real + "/.cache/pip");
  std::vector<std::string> linked;
  for (const auto& skip : plan.skipped) {
    if (skip.reason == CleanupPlanSkipReason::symbolicLink) linked.push_back(skip.path);
  }
  EXPECT_EQ(linked, std::vector<std::string>{real + "/.var/app/org.example.Maps/cache"});

  const auto outcomes = clean({"dev-tool-caches", "flatpak-app-caches"});
  EXPECT_EQ(outcomes.at(real + "/.cache/pip"), CleanupItemOutcome::deleted);
  EXPECT_TRUE(fs::exists(real + "/Documents/letter.odt"));
}

}  // namespace
}  // namespace brisko
