#include <deskaid/common/internal/platform.h>
#include <deskaid/diag/log_writer.h>

#include <gtest/gtest.h>

#include <cstring>

#include "log_file.h"
#include "support/child_process.h"

namespace fs = std::filesystem;
using Texts = std::vector<std::string>;

namespace {

// This program as the second writer (main.cpp) on `path`: 3 when refused, 4 when it wrote.
int RunSecondWriter(const std::string& path) {
  char exe[deskaid::kMaxPath];
  deskaid::platform::ExecutablePath(exe, sizeof exe);
  return static_cast<int>(RunChildProcess(exe, {"--second-writer", path}, 60000).code);
}

class LogWriterTest : public ::testing::Test {
 protected:
  void SetUp() override { g_LogWriter.Close(); }
  void TearDown() override { g_LogWriter.Close(); }
  std::string Open(CLogWriter& w, const char* name, uint32_t maxSize = 0xFFFFFFFF,
                   uint8_t encipher = 0, uint8_t percent = 20) {
    const std::string path = dir_.PathOf(name);
    EXPECT_TRUE(w.Open(path.c_str(), maxSize, encipher, percent)) << path;
    return path;
  }

  ScratchDir dir_;
  CLogWriter writer;
};

TEST_F(LogWriterTest, FirstRecordLevelBitsAndCuts) {
  const std::string path = Open(g_LogWriter, "first.log", 0x100000);
  EXPECT_EQ(fs::file_size(path) + g_LogWriter.GetSize(), 0u) << "the trailer waits for a record";
  EXPECT_EQ(LogPrintf(LOG_LEVEL_2, "open %s failed", "C:\\data.bin"), 1u);
  const std::string text = "open C:\\data.bin failed";
  EXPECT_EQ(fs::file_size(path), 10 + text.size() + 74);
  EXPECT_EQ(g_LogWriter.GetSize(), 10 + text.size()) << "a file begun empty counts no trailer";
  auto log = logtest::ParseFile(path);
  ASSERT_TRUE(log.valid && log.records.size() == 1);
  const auto& r = log.records[0];
  EXPECT_EQ(std::to_string(r.level) + " " + std::to_string(r.kind) + " " + std::to_string(r.keyIndex), "2 2 65535");
  EXPECT_EQ(r.raw, text);
  EXPECT_NEAR(r.time, deskaid::platform::Time32(), 2.0);
  uint8_t month = 0, day = 0;
  deskaid::platform::ExecutableStamp(month, day);
  EXPECT_EQ(log.month * 100 + log.day, month * 100 + day);

  const std::string big(2000, 'q'), cut(1023, 'q');
  TraceCapture trace;
  EXPECT_EQ(LogPrintf(0x03, "a"), 1u);
  EXPECT_EQ(LogPrintf(0x0C, "b"), 1u);
  EXPECT_EQ(LogPrintf(0x10, "only traced %d", 7), 0u);
  EXPECT_EQ(LogPrintf(0x18, "c"), 1u);
  EXPECT_EQ(LogPrintf(0x00, "nothing"), 0u);
  LogPrintf(LOG_LEVEL_1 | LOG_TO_DEBUG_TRACE, "%s", big.c_str());
  g_LogWriter.WriteFormat(0x7F, 12345, "%s!", big.c_str());
  EXPECT_EQ(trace.lines, (Texts{"LOG: only traced 7\n", "LOG: c\n", "LOG: " + std::string(506, 'q')}));
  log = logtest::ParseFile(path);
  EXPECT_EQ(log.Texts(), (Texts{text, "a", "b", "c", cut, cut}));
  std::string levels;
  for (const auto& record : log.records) levels += std::to_string(record.level) + " ";
  EXPECT_EQ(levels, "2 1 4 8 1 127 ") << "WriteFormat passes the level on unchanged";
}

TEST_F(LogWriterTest, EncipheredLogReopensUnderItsKeysAndRefusesASecondProcessWhileOpen) {
  const std::string path = Open(writer, "secret.log", 0xFFFFFFFF, 1);
  Texts sent;
  logtest::ParsedLog first;
  for (int i = 0; i < 40; ++i) {
    if (i == 20) {
      first = logtest::ParseFile(path);
      writer.Close();
      Open(writer, "secret.log", 0xFFFFFFFF, 1);
      EXPECT_EQ(writer.GetSize(), fs::file_size(path));
    }
    sent.push_back("secret record " + std::to_string(i) + std::string(i, 'x'));
    ASSERT_TRUE(writer.WriteFormat(8, 0, "%s", sent.back().c_str()));
  }
  EXPECT_EQ(writer.GetSize(), fs::file_size(path));
  const std::string before = ReadFileBytes(path);
  EXPECT_EQ(RunSecondWriter(path), 3) << "refused";
  EXPECT_EQ(ReadFileBytes(path), before);
  const auto log = logtest::Parse(before);
  ASSERT_TRUE(log.valid);
  EXPECT_EQ(log.Texts(), sent);
  EXPECT_EQ(0, std::memcmp(first.keys, log.keys, sizeof log.keys));
  for (const auto& r : log.records) EXPECT_TRUE(r.keyIndex < 16 && r.raw != r.text && r.level == 8);

  sent.push_back("still mine");
  ASSERT_TRUE(writer.WriteFormat(8, 0, "%s", sent.back().c_str()));
  writer.Close();
  EXPECT_EQ(RunSecondWriter(path), 4) << "wrote";
  sent.push_back("second writer");
  EXPECT_EQ(logtest::ParseFile(path).Texts(), sent);
}

TEST_F(LogWriterTest, ClosedWriterBadArgumentsMaxSizeAndPaths) {
  EXPECT_FALSE(writer.IsOpen());
  EXPECT_STREQ(writer.GetPath(), "");
  const uint32_t sizes[][2] = {{0, 0xFFFFFFFF}, {1, 65536}, {65535, 65536}, {65537, 65537}};
  for (const auto& size : sizes) {
    writer.SetMaxSize(size[0]);
    EXPECT_EQ(writer.GetMaxSize(), size[1]) << size[0];
  }
  EXPECT_FALSE(writer.Write(1, "x", 1, 2));
  EXPECT_FALSE(writer.WriteFormat(1, 0, "x"));
  EXPECT_EQ(LogPrintf(LOG_LEVEL_1, "nobody listens"), 0u);
  EXPECT_TRUE(writer.Close());
  for (const char* bad : {static_cast<const char*>(nullptr), ""}) EXPECT_FALSE(writer.Open(bad, 0xFFFFFFFF, 0, 20));
  EXPECT_FALSE(writer.SetPath(nullptr));
  EXPECT_FALSE(writer.IsOpen());
  EXPECT_EQ(LogPrintf(LOG_LEVEL_1 | LOG_TO_DEBUG_TRACE, nullptr), 0u);
  DebugTrace(nullptr);

  const std::string path = dir_.PathOf("later.log");
  EXPECT_TRUE(writer.SetPath(path.c_str()));
  EXPECT_FALSE(fs::exists(path));
  ASSERT_TRUE(writer.OpenFile());
  EXPECT_FALSE(writer.SetPath(dir_.PathOf("other.log").c_str())) << "no path change while open";
  EXPECT_EQ(writer.GetPath(), path);
  EXPECT_FALSE(writer.WriteFormat(1, 0, nullptr));
  EXPECT_EQ(writer.GetSize(), 0u);
  writer.Close();
  Open(writer, "zero.log", 0);
  EXPECT_EQ(writer.GetMaxSize(), 0u) << "Open takes any limit";
  writer.Close();

  char exe[260];  // a bare name goes beside the executable
  ASSERT_TRUE(deskaid::platform::ExecutablePath(exe, sizeof exe));
  std::string expected = exe;
  expected.erase(expected.rfind(deskaid::platform::kPathSeparator) + 1) += "deskaid-bare-name.log";
  ASSERT_TRUE(writer.Open("deskaid-bare-name.log", 0xFFFFFFFF, 0, 20));
  EXPECT_EQ(writer.GetPath(), expected);
  writer.Close();
  fs::remove(expected);
}

// A file that ends in no trailer starts afresh; one too short for a trailer is written over.
TEST_F(LogWriterTest, FilesWithoutATrailerStartAfreshAndCompactionDropsTheOldestShare) {
  WriteFileBytes(dir_.PathOf("damaged.log"), std::string(100, 'z'));
  const std::string damaged = Open(writer, "damaged.log");
  EXPECT_EQ(fs::file_size(damaged) + writer.GetSize(), 0u);
  ASSERT_TRUE(writer.Write(4, "fresh", 5, 2));
  EXPECT_EQ(logtest::ParseFile(damaged).Texts(), Texts{"fresh"});
  writer.Close();

  CLogWriter fresh;  // one that never held a trailer
  WriteFileBytes(dir_.PathOf("short.log"), std::string(50, 's'));
  const std::string shortLog = Open(fresh, "short.log");
  EXPECT_EQ(fs::file_size(shortLog) + fresh.GetSize(), 100u);
  ASSERT_TRUE(fresh.Write(1, "abc", 3, 2));
  const std::string bytes = ReadFileBytes(shortLog);
  ASSERT_EQ(bytes.size(), 10u + 3 + 74);
  EXPECT_EQ(bytes.substr(10, 3), "abc");
  EXPECT_EQ(fresh.GetSize(), 50u + 13);
  // Behind the record the writer's blank trailer, count raised: the next open finds no magic.
  EXPECT_EQ(std::make_pair(logtest::U32(bytes, 13, 2), logtest::U32(bytes, 17)), std::make_pair(0u, 1u));
  fresh.Close();
  ASSERT_TRUE(fresh.OpenFile());
  EXPECT_EQ(fs::file_size(shortLog), 0u);

  // Nine records of 18 bytes stay below the limit; the tenth reaches it and drops 20 % of ten.
  const std::string path = Open(writer, "compact.log", 10 * 18, 1);
  for (int i = 0; i < 10; ++i) writer.WriteFormat(1, 0, "record %d", i);
  const auto log = logtest::ParseFile(path);
  ASSERT_TRUE(log.valid && log.records.size() == 8);
  EXPECT_EQ(log.Texts().front(), "record 2");
  EXPECT_FALSE(fs::exists(path + ".n_"));
  EXPECT_EQ(writer.GetSize(), fs::file_size(path));
  writer.Close();

  // Four records at 20 %: 80 / 100 rounds down to none, and every further write compacts again.
  const std::string small = Open(writer, "small.log", 4 * 18);
  for (int i = 0; i < 5; ++i) writer.WriteFormat(1, 0, "record %d", i);
  EXPECT_EQ(logtest::ParseFile(small).Texts(), (Texts{"record 1", "record 2", "record 3", "record 4"}));
  writer.Close();

  // A zero limit compacts on every record: 1 -> 1 (none dropped), then 2 -> 1 each time.
  const std::string every = Open(writer, "every.log", 0, 0, 50);
  for (int i = 0; i < 4; ++i) writer.WriteFormat(1, 0, "r%d", i);
  EXPECT_EQ(logtest::ParseFile(every).Texts(), Texts{"r3"});
}

TEST_F(LogWriterTest, ArchivingMovesTheFullFileAsideUnderItsOpeningTime) {
  const std::string path = Open(writer, "trace.log", 3 * 15, 1, 255);
  const uint32_t openedAt = deskaid::platform::Time32();
  for (int i = 0; i < 3; ++i) writer.WriteFormat(2, 0, "line %d", i);

  const auto archives = logtest::ArchivesBeside(path);
  ASSERT_EQ(archives.size(), 1u);
  const std::string name = fs::path(archives[0]).filename().string();
  bool matched = false;  // stamped with the opening time, within a second
  for (uint32_t t : {openedAt - 1, openedAt, openedAt + 1}) {
    std::tm local = deskaid::platform::LocalTime(t);
    char expected[64];
    std::strftime(expected, sizeof expected, "trace - %Y.%m.%d %H.%M.%S.log", &local);
    matched = matched || name == expected;
  }
  EXPECT_TRUE(matched) << name;
  EXPECT_EQ(logtest::ParseFile(archives[0]).Texts(), (Texts{"line 0", "line 1", "line 2"}));
  EXPECT_EQ(fs::file_size(path), 0u) << "a new, empty log takes the old one's place";
  writer.WriteFormat(2, 0, "next");
  EXPECT_EQ(logtest::ParseFile(path).Texts(), Texts{"next"});
}

}  // namespace
