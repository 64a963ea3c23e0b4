#include <deskaid/diag/debug_trace.h>

#include <gtest/gtest.h>

#include <string>

// Away from a Windows debugger the trace lines go to standard error.
TEST(DebugTrace, LinesGoToStandardErrorAndThenTheSink) {
  std::string seen;
  SetDebugTraceSink([](const char* line, void* context) {
    *static_cast<std::string*>(context) += line;
  }, &seen);
  testing::internal::CaptureStderr();
  DebugTrace("trace %d|", 7);
  DebugTrace("%s\n", std::string(600, 'x').c_str());
  const std::string printed = testing::internal::GetCapturedStderr();
  SetDebugTraceSink(nullptr, nullptr);
  EXPECT_EQ(printed, "trace 7|" + std::string(511, 'x'));
  EXPECT_EQ(seen, printed);
}
