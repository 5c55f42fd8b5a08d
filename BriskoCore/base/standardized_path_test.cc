#include "base/standardized_path.h"

#include <gtest/gtest.h>

namespace brisko {
namespace {

TEST(StandardizedPath, TakesBackDotsLexicallyAndDropsSlashes) {
  EXPECT_EQ(standardizedPath("/"), "/");
  EXPECT_EQ(standardizedPath("//a///b//"), "/a/b");
  EXPECT_EQ(standardizedPath("/a/./b/../c"), "/a/c");
  EXPECT_EQ(standardizedPath("/.."), "/");
  EXPECT_EQ(standardizedPath("/a/../../b"), "/b");
  EXPECT_EQ(standardizedPath("/a/..b/.c"), "/a/..b/.c");
  EXPECT_EQ(standardizedPath("a/../../b/"), "../b");
  EXPECT_EQ(standardizedPath("./"), ".");
  EXPECT_EQ(standardizedPath(""), "");
}

}  // namespace
}  // namespace brisko
