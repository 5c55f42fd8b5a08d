#include "platform/process_inventory.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>

#include <algorithm>

#include "testing/temporary_directory.h"

namespace brisko {
namespace {

using testing::TemporaryDirectory;

TEST(ProcessInventory, FindsARealRunningProcessByItsExecutable) {
  // A copy of sleep under a distinctive name, so the match can't come from elsewhere.
  TemporaryDirectory folder;
  std::string program = folder / "brisko-guard-probe";
  std::string seconds = "30";
  ASSERT_EQ(std::system(("cp /bin/sleep '" + program + "'").c_str()), 0);
  pid_t pid;
  char* argv[] = {program.data(), seconds.data(), nullptr};
  ASSERT_EQ(::posix_spawn(&pid, program.c_str(), nullptr, nullptr, argv, environ), 0);

  const auto processes = ProcessInventory::snapshot();
  ::kill(pid, SIGKILL);
  ::waitpid(pid, nullptr, 0);

  ASSERT_TRUE(processes.has_value());
  const auto found = std::find_if(processes->begin(), processes->end(),
                                  [&](const RunningProcess& p) { return p.path == program; });
  ASSERT_NE(found, processes->end());
  EXPECT_EQ(found->name, "brisko-guard-probe");
  EXPECT_TRUE(ProcessInventory::matches({"brisko-guard-probe"}, {}, processes));
  EXPECT_TRUE(ProcessInventory::matches({}, {"/brisko-guard-"}, processes));
  EXPECT_FALSE(ProcessInventory::matches({"brisko-guard"}, {"/BRISKO-GUARD-"}, processes));
}

TEST(ProcessInventory, FallsBackToTheCommandLineAndSkipsKernelThreads) {
  TemporaryDirectory proc;
  proc.writeFile("100/cmdline", std::string("/opt/Editor/bin/editor\0--flag\0", 30));
  proc.writeFile("200/cmdline", "");  // a kernel thread
  proc.writeFile("self/cmdline", std::string("/bin/not-a-pid\0", 15));
  proc.writeFile("300/cmdline", std::string("rel\xff"
                                            "ative\0",
                                            10));
  const auto processes = ProcessInventory::snapshot(proc.path());
  ASSERT_TRUE(processes.has_value());
  std::vector<RunningProcess> sorted = *processes;
  std::sort(sorted.begin(), sorted.end(),
            [](const RunningProcess& a, const RunningProcess& b) { return a.path < b.path; });
  ASSERT_EQ(sorted.size(), 2u);
  EXPECT_EQ(sorted[0], (RunningProcess{"editor", "/opt/Editor/bin/editor"}));
  EXPECT_EQ(sorted[1], (RunningProcess{"rel\xEF\xBF\xBD"
                                       "ative",
                                       "rel\xEF\xBF\xBD"
                                       "ative"}));
}

TEST(ProcessInventory, AnUnreadableProcessTableIsAbsentNotEmpty) {
  EXPECT_FALSE(ProcessInventory::snapshot("/nonexistent/proc").has_value());
  TemporaryDirectory empty;
  const auto none = ProcessInventory::snapshot(empty.path());
  ASSERT_TRUE(none.has_value());
  EXPECT_TRUE(none->empty());

  // Absent blocks every guard; empty blocks none.
  EXPECT_TRUE(ProcessInventory::matches({"Safari"}, {}, std::nullopt));
  EXPECT_FALSE(
      ProcessInventory::matches({"Safari"}, {"Safari.app"}, std::vector<RunningProcess>{}));
}

}  // namespace
}  // namespace brisko
