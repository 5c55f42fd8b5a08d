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

namespace brisko {
namespace {

// Sandboxed processes see their own file system; the inventory names their
// paths after the application, which is what the Flatpak and Snap guards test.
TEST(ProcessInventory, SandboxedProcessesArePlacedBelowTheirApplication) {
  struct Case {
    const char* pid;
    const char* exe;
    const char* flatpakInfo;  // null: none
    const char* cgroup;       // null: none
    RunningProcess expected;
  };
  const std::vector<Case> cases = {
      {"100",
       "/app/bin/gnome-maps",
       "[Application]\nname=org.gnome.Maps\nruntime=runtime/org.gnome.Platform/x86_64/46\n",
       nullptr,
       {"gnome-maps", "/flatpak/app/org.gnome.Maps/app/bin/gnome-maps"}},
      {"101",
       "/usr/bin/bwrap",
       "[Application]\nname=org.gnome.Maps\n",
       nullptr,
       {"bwrap", "/flatpak/app/org.gnome.Maps/usr/bin/bwrap"}},
      {"102",
       "/usr/bin/sh",
       "[Runtime]\nname=org.gnome.Platform\n",
       nullptr,
       {"sh", "/usr/bin/sh"}},
      {"103", "/usr/bin/sh", "[Application]\nname=../escape\n", nullptr, {"sh", "/usr/bin/sh"}},
      {"200",
       "/usr/bin/python3",
       nullptr,
       "0::/user.slice/user-1000.slice/user@1000.service/app.slice/"
       "snap.firefox.firefox-7c2f.scope\n",
       {"python3", "/snap/firefox/usr/bin/python3"}},
      {"201",
       "/snap/firefox/4200/usr/lib/firefox/firefox",
       nullptr,
       "0::/user.slice/snap.firefox.firefox-7c2f.scope\n",
       {"firefox", "/snap/firefox/4200/usr/lib/firefox/firefox"}},
      {"300",
       "/usr/bin/bash",
       nullptr,
       "0::/user.slice/user-1000.slice/session-2.scope\n",
       {"bash", "/usr/bin/bash"}},
  };
  TemporaryDirectory proc;
  for (const Case& c : cases) {
    proc.makeSymlink(std::string(c.pid) + "/exe", c.exe);
    if (c.flatpakInfo) proc.writeFile(std::string(c.pid) + "/root/.flatpak-info", c.flatpakInfo);
    if (c.cgroup) proc.writeFile(std::string(c.pid) + "/cgroup", c.cgroup);
  }
  const auto processes = ProcessInventory::snapshot(proc.path());
  ASSERT_TRUE(processes.has_value());
  for (const Case& c : cases) {
    EXPECT_NE(std::find(processes->begin(), processes->end(), c.expected), processes->end())
        << c.pid << " " << c.expected.path;
  }
  EXPECT_EQ(processes->size(), cases.size());

  // One of ours that runs from /app/ and can't say which application it is
  // leaves the guards nothing to go on: the list is absent.
  proc.makeSymlink("400/exe", "/app/bin/unknown");
  EXPECT_FALSE(ProcessInventory::snapshot(proc.path()).has_value());
}

}  // namespace
}  // namespace brisko
