// A killed writer leaves a valid log or, when the kill tore a record write (the kernel may stop a
// write between pages for a fatal signal) or fell inside a compaction's delete and move, a fresh one.
#include <gtest/gtest.h>

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <random>

#include <deskaid/diag/log_writer.h>
#include "log_file.h"

static std::string Body(uint32_t seq) {
  return "seq=" + std::to_string(seq) + ":" + std::string(seq % 150, static_cast<char>('a' + seq % 26));
}

TEST(LogWriterKill, EveryKilledWriterLeavesAReadableLog) {
  ScratchDir dir;
  const std::string path = dir.PathOf("killed.log");
  std::mt19937 random(20261121);
  int valid = 0;
  for (int trial = 0; trial < 60; ++trial) {
    pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
      CLogWriter writer;
      // A small limit makes the kill land inside compactions as well as plain writes.
      if (!writer.Open(path.c_str(), 48 * 1024, trial % 2, 20)) _exit(2);
      for (uint32_t seq = 0;; ++seq) writer.Write(1, Body(seq).data(), static_cast<uint32_t>(Body(seq).size()), 2);
    }
    usleep(std::uniform_int_distribution<int>(200, 25000)(random));
    kill(child, SIGKILL);
    int status = 0;
    waitpid(child, &status, 0);
    ASSERT_TRUE(WIFSIGNALED(status)) << "the child must have been killed while writing";

    const auto before = logtest::ParseFile(path);
    const bool empty = std::filesystem::exists(path) && std::filesystem::file_size(path) == 0;
    CLogWriter reopened;
    ASSERT_TRUE(reopened.Open(path.c_str(), 0xFFFFFFFF, 0, 20));
    reopened.Close();
    const auto after = logtest::ParseFile(path);
    if (before.valid || empty) {
      ++valid;
      EXPECT_TRUE(empty || after.valid);
      EXPECT_EQ(after.records.size(), before.records.size()) << "reopening keeps a valid log";
      // Every record is one the child wrote, in the order it wrote them.
      const auto texts = before.Texts();
      for (size_t i = 0; i < texts.size(); ++i)
        ASSERT_EQ(texts[i], Body(std::stoul(texts[0].substr(4)) + i)) << "trial " << trial;
    } else {
      EXPECT_EQ(std::filesystem::file_size(path), 0u) << "a damaged or missing log starts afresh";
    }
    std::filesystem::remove(path);
    std::filesystem::remove(path + ".n_");
  }
  EXPECT_GT(valid, 10) << "most kills leave a valid log; too few give the checks above nothing to read";
}
