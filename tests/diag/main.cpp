#include <gtest/gtest.h>

#include "second_process.h"

int main(int argc, char** argv) {
  int exitCode = 0;
  if (RunAsSecondWriter(argc, argv, exitCode)) return exitCode;
  ::testing::InitGoogleTest(&argc, argv);
  return RUN_ALL_TESTS();
}
