// A writer killed at random moments, over and over: whatever instant the kill hits, reopening the
// log gives either a valid log whose every record reads back, or a fresh empty log. The latter
// happens when the kill tore a record write (the kernel may stop a write between pages for a
// fatal signal, leaving no trailer at the end) or fell between the delete and the move of a
// compaction.
#include <gtest/gtest.h>

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <iostream>
#include <random>
#include <string>

#include <deskaid/diag/log_writer.h>
#include "log_file.h"

namespace fs = std::filesystem;

namespace {

std::string Body(uint32_t seq) {
  return "seq=" + std::to_string(seq) + ":" + std::string(seq % 150, static_cast<char>('a' + seq % 26));
}

// Every record must be one the child wrote, in the order it wrote them.
bool RecordsReadBack(const logtest::ParsedLog& log) {
  long previous = -1;
  for (const auto& r : log.records) {
    unsigned long seq = 0;
    if (std::sscanf(r.text.c_str(), "seq=%lu:", &seq) != 1) return false;
    if (r.text != Body(static_cast<uint32_t>(seq))) return false;
    if (previous >= 0 && static_cast<long>(seq) != previous + 1) return false;
    previous = static_cast<long>(seq);
  }
  return true;
}

TEST(LogWriterKill, EveryKilledWriterLeavesAReadableLog) {
  const fs::path dir = fs::temp_directory_path() / ("deskaid-kill-" + std::to_string(getpid()));
  fs::remove_all(dir);
  fs::create_directories(dir);
  const std::string path = (dir / "killed.log").string();

  std::mt19937 random(20261121);
  int valid = 0, tornReplaced = 0, lostReplaced = 0, records = 0;
  const int trials = 60;
  for (int trial = 0; trial < trials; ++trial) {
    const bool encipher = trial % 2 == 0;
    pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
      CLogWriter writer;
      // A small limit makes the kill land inside compactions as well as plain writes.
      if (!writer.Open(path.c_str(), 48 * 1024, encipher ? 1 : 0, 20)) _exit(2);
      for (uint32_t seq = 0;; ++seq) {
        std::string body = Body(seq);
        writer.Write(1, body.data(), static_cast<uint32_t>(body.size()), 2);
      }
    }
    usleep(std::uniform_int_distribution<int>(200, 25000)(random));
    kill(child, SIGKILL);
    int status = 0;
    waitpid(child, &status, 0);
    ASSERT_TRUE(WIFSIGNALED(status)) << "the child must have been killed while writing";

    const bool existed = fs::exists(path);
    const auto before = existed ? logtest::ParseFile(path) : logtest::ParsedLog{};
    const bool wasEmpty = existed && fs::file_size(path) == 0;

    CLogWriter reopened;
    ASSERT_TRUE(reopened.Open(path.c_str(), 0xFFFFFFFF, 0, 20));
    reopened.Close();
    const auto after = logtest::ParseFile(path);

    if (existed && (before.valid || wasEmpty)) {
      ++valid;
      EXPECT_TRUE(wasEmpty || after.valid);
      EXPECT_EQ(after.records.size(), before.records.size()) << "reopening keeps a valid log";
      EXPECT_TRUE(RecordsReadBack(before)) << "trial " << trial;
      records += static_cast<int>(before.records.size());
    } else {
      (existed ? tornReplaced : lostReplaced) += 1;
      EXPECT_EQ(fs::file_size(path), 0u) << "a damaged or missing log starts afresh";
    }
    fs::remove(path);
    fs::remove(path + ".n_");
  }
  std::cout << "kill trials: " << trials << ", valid logs: " << valid
            << " (records read back: " << records << "), damaged and replaced: " << tornReplaced
            << ", lost in a rotation and restarted: " << lostReplaced << "\n";
  EXPECT_EQ(valid + tornReplaced + lostReplaced, trials);
  fs::remove_all(dir);
}

}  // namespace
