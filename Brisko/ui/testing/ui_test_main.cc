// The window's tests: GoogleTest over one QApplication on Qt's offscreen
// platform, so that they run without a display, as in CI.

#include <gtest/gtest.h>
#include <stdlib.h>

#include <QApplication>

int main(int argc, char** argv) {
  ::setenv("QT_QPA_PLATFORM", "offscreen", 0);
  QApplication application(argc, argv);
  ::testing::InitGoogleTest(&argc, argv);
  return RUN_ALL_TESTS();
}
