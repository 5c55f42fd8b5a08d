#include "platform/symlink_resolution.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "testing/ordinary_user.h"
#include "testing/temporary_directory.h"

namespace brisko {
namespace {

class SymlinkResolution : public ::testing::Test {
 protected:
  testing::TemporaryDirectory folder;
  const std::string& root = folder.path();
};

TEST_F(SymlinkResolution, FollowsLinksInTheExistingPartAndKeepsTheMissingTail) {
  folder.makeDirectory("real/inner");
  folder.makeSymlink("absolute", root + "/real");
  folder.makeSymlink("real/relative", "inner/../inner");
  folder.makeSymlink("chain", "absolute/relative");
  EXPECT_EQ(resolvingSymlinksInPath(root + "/absolute/inner"), root + "/real/inner");
  EXPECT_EQ(resolvingSymlinksInPath(root + "/chain/not/yet"), root + "/real/inner/not/yet");
  EXPECT_EQ(resolvingSymlinksInPath(root + "//real/./inner/"), root + "/real/inner");
  EXPECT_EQ(resolvingSymlinksInPath(root + "/missing/../real"), root + "/real");
  EXPECT_EQ(resolvingSymlinksInPath("/"), "/");
}

TEST_F(SymlinkResolution, SplicesDanglingLinksAndStopsOnLoops) {
  folder.makeDirectory("real");
  folder.makeSymlink("dangling", root + "/real/gone/deeper");
  folder.makeSymlink("loop", "loop");
  folder.makeSymlink("up", "../../../../../../../../..");
  folder.writeFile("file", "x");
  EXPECT_EQ(resolvingSymlinksInPath(root + "/dangling/x"), root + "/real/gone/deeper/x");
  EXPECT_EQ(resolvingSymlinksInPath(root + "/loop/x"), root + "/loop/x");
  EXPECT_EQ(resolvingSymlinksInPath(root + "/up/etc"), "/etc");
  // Below a file nothing can exist: the tail stays as given.
  EXPECT_EQ(resolvingSymlinksInPath(root + "/file/x"), root + "/file/x");
}

// Runs in a child as an ordinary user (see the test below); skipped alone.
TEST(SymlinkResolutionAsOrdinaryUser, StopsAtAFolderItCannotLookInto) {
  const std::string root = testing::ordinaryUserArgument("BRISKO_TEST_RESOLUTION_ROOT");
  if (root.empty()) GTEST_SKIP() << "runs only as a child of the permission test";
  ASSERT_NE(::geteuid(), 0u);
  EXPECT_EQ(resolvingSymlinksInPath(root + "/closed/link/x"), root + "/closed/link/x");
  EXPECT_EQ(resolvingSymlinksInPath(root + "/open/link/x"), root + "/target/x");
}

TEST_F(SymlinkResolution, StopsAtAFolderItCannotLookIntoAsAnOrdinaryUser) {
  folder.makeDirectory("target");
  folder.makeSymlink("closed/link", root + "/target");
  folder.makeSymlink("open/link", root + "/target");
  ASSERT_EQ(::chmod(root.c_str(), 0755), 0);
  ASSERT_EQ(::chmod((root + "/closed").c_str(), 0), 0);
  EXPECT_EQ(testing::runTestsAsOrdinaryUser("SymlinkResolutionAsOrdinaryUser.*",
                                            {{"BRISKO_TEST_RESOLUTION_ROOT", root}}),
            0);
  // Root looks through the closed folder.
  EXPECT_EQ(resolvingSymlinksInPath(root + "/closed/link/x"), root + "/target/x");
  ASSERT_EQ(::chmod((root + "/closed").c_str(), 0755), 0);
}

}  // namespace
}  // namespace brisko
