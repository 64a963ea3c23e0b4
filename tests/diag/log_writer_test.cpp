#include <deskaid/common/internal/platform.h>
#include <deskaid/diag/log_writer.h>

#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "log_file.h"
#include "support/scratch_dir.h"
#include "second_process.h"

namespace fs = std::filesystem;

namespace {

// A fresh directory per test, removed afterwards; the global writer is closed around each test.
class LogWriterTest : public ::testing::Test {
 protected:
  void SetUp() override { g_LogWriter.Close(); }
  void TearDown() override { g_LogWriter.Close(); }
  std::string PathOf(const std::string& name) const { return dir_.PathOf(name); }
  // A file in the test directory holding `content` as it stands.
  std::string FileWith(const std::string& name, const std::string& content) const {
    std::ofstream(PathOf(name), std::ios::binary) << content;
    return PathOf(name);
  }

  ScratchDir dir_;
};

std::vector<std::string> Texts(const logtest::ParsedLog& log) {
  std::vector<std::string> texts;
  for (const auto& r : log.records) texts.push_back(r.text);
  return texts;
}

TEST_F(LogWriterTest, FirstRecordIsHeaderBodyAndTrailer) {
  const std::string path = PathOf("first.log");
  ASSERT_TRUE(g_LogWriter.Open(path.c_str(), 0x100000, 0, 20));
  EXPECT_EQ(fs::file_size(path), 0u) << "the trailer waits for the first record";
  EXPECT_EQ(g_LogWriter.GetSize(), 0u);

  EXPECT_EQ(LogPrintf(LOG_LEVEL_2, "open %s failed", "C:\\data.bin"), 1u);
  const std::string text = "open C:\\data.bin failed";
  auto bytes = logtest::ReadBytes(path);
  ASSERT_EQ(bytes.size(), 10 + text.size() + 74);
  EXPECT_EQ(bytes[0], 2);  // level
  EXPECT_EQ(bytes[1], 2);  // kind
  EXPECT_EQ(logtest::U16(&bytes[2]), 0xFFFF);
  EXPECT_EQ(logtest::U16(&bytes[4]), text.size());
  EXPECT_EQ(std::string(bytes.begin() + 10, bytes.begin() + 10 + text.size()), text);

  auto log = logtest::Parse(bytes);
  ASSERT_TRUE(log.valid);
  EXPECT_EQ(log.recordCount, 1u);
  uint8_t month = 0, day = 0;
  deskaid::platform::ExecutableStamp(month, day);
  EXPECT_EQ(log.month, month);
  EXPECT_EQ(log.day, day);
  EXPECT_GE(month, 1);
  // A file that began empty keeps its counted size a trailer below its length.
  EXPECT_EQ(g_LogWriter.GetSize(), 10 + text.size());
}

TEST_F(LogWriterTest, EncipheredBodiesDecipherWithTheirTrailerKey) {
  const std::string path = PathOf("secret.log");
  ASSERT_TRUE(g_LogWriter.Open(path.c_str(), 0xFFFFFFFF, 1, 20));
  std::vector<std::string> sent;
  for (int i = 0; i < 40; ++i) {
    sent.push_back("secret record " + std::to_string(i) + std::string(i, 'x'));
    ASSERT_EQ(LogPrintf(LOG_LEVEL_8, "%s", sent.back().c_str()), 1u);
  }
  auto log = logtest::ParseFile(path);
  ASSERT_TRUE(log.valid);
  ASSERT_EQ(log.records.size(), sent.size());
  for (size_t i = 0; i < sent.size(); ++i) {
    EXPECT_LT(log.records[i].keyIndex, 16);
    EXPECT_NE(log.records[i].raw, sent[i]);
    EXPECT_EQ(log.records[i].text, sent[i]);
    EXPECT_EQ(log.records[i].level, 8);
  }
}

TEST_F(LogWriterTest, LevelPrecedenceAndTraceOnlyMask) {
  const std::string path = PathOf("levels.log");
  ASSERT_TRUE(g_LogWriter.Open(path.c_str(), 0xFFFFFFFF, 0, 20));
  std::vector<std::string> trace;
  SetDebugTraceSink([](const char* line, void* ctx) {
    static_cast<std::vector<std::string>*>(ctx)->push_back(line);
  }, &trace);
  EXPECT_EQ(LogPrintf(0x03, "a"), 1u);
  EXPECT_EQ(LogPrintf(0x0C, "b"), 1u);
  EXPECT_EQ(LogPrintf(0x10, "only traced %d", 7), 0u);
  EXPECT_EQ(LogPrintf(0x18, "c"), 1u);
  EXPECT_EQ(LogPrintf(0x00, "nothing"), 0u);
  SetDebugTraceSink(nullptr, nullptr);

  EXPECT_EQ(trace, (std::vector<std::string>{"LOG: only traced 7\n", "LOG: c\n"}));
  auto log = logtest::ParseFile(path);
  ASSERT_TRUE(log.valid);
  ASSERT_EQ(log.records.size(), 3u);
  EXPECT_EQ(log.records[0].level, 1);
  EXPECT_EQ(log.records[1].level, 4);
  EXPECT_EQ(log.records[2].level, 8);
  EXPECT_EQ(Texts(log), (std::vector<std::string>{"a", "b", "c"}));
}

TEST_F(LogWriterTest, LongTextsAreCut) {
  const std::string path = PathOf("long.log");
  ASSERT_TRUE(g_LogWriter.Open(path.c_str(), 0xFFFFFFFF, 0, 20));
  const std::string big(2000, 'q');
  std::vector<std::string> trace;
  SetDebugTraceSink([](const char* line, void* ctx) {
    static_cast<std::vector<std::string>*>(ctx)->push_back(line);
  }, &trace);
  LogPrintf(LOG_LEVEL_1 | LOG_TO_DEBUG_TRACE, "%s", big.c_str());
  g_LogWriter.WriteFormat(0x7F, 12345, "%s!", big.c_str());
  SetDebugTraceSink(nullptr, nullptr);

  auto log = logtest::ParseFile(path);
  ASSERT_EQ(log.records.size(), 2u);
  EXPECT_EQ(log.records[0].text, std::string(1023, 'q'));
  EXPECT_EQ(log.records[1].text, std::string(1023, 'q'));
  EXPECT_EQ(log.records[1].level, 0x7F) << "WriteFormat passes the level on unchanged";
  ASSERT_EQ(trace.size(), 1u);
  EXPECT_EQ(trace[0], "LOG: " + std::string(506, 'q'));
}

TEST_F(LogWriterTest, ClosedWriterRefusesAndCreatesNothing) {
  CLogWriter writer;
  EXPECT_FALSE(writer.IsOpen());
  EXPECT_STREQ(writer.GetPath(), "");
  EXPECT_EQ(writer.GetMaxSize(), 0xFFFFFFFFu);
  EXPECT_FALSE(writer.Write(1, "x", 1, 2));
  EXPECT_FALSE(writer.WriteFormat(1, 0, "x"));
  EXPECT_EQ(LogPrintf(LOG_LEVEL_1, "nobody listens"), 0u);
  EXPECT_TRUE(writer.Close());

  const std::string path = PathOf("later.log");
  EXPECT_TRUE(writer.SetPath(path.c_str()));
  EXPECT_FALSE(fs::exists(path));
  ASSERT_TRUE(writer.OpenFile());
  EXPECT_FALSE(writer.SetPath(PathOf("other.log").c_str())) << "no path change while open";
  EXPECT_EQ(std::string(writer.GetPath()), path);
  EXPECT_TRUE(writer.Close());
}

TEST_F(LogWriterTest, MaxSizeClampsOnlyThroughSetMaxSize) {
  CLogWriter writer;
  writer.SetMaxSize(0);
  EXPECT_EQ(writer.GetMaxSize(), 0xFFFFFFFFu);
  writer.SetMaxSize(1);
  EXPECT_EQ(writer.GetMaxSize(), 65536u);
  writer.SetMaxSize(65535);
  EXPECT_EQ(writer.GetMaxSize(), 65536u);
  writer.SetMaxSize(65537);
  EXPECT_EQ(writer.GetMaxSize(), 65537u);
  ASSERT_TRUE(writer.Open(PathOf("zero.log").c_str(), 0, 0, 20));
  EXPECT_EQ(writer.GetMaxSize(), 0u);
}

TEST_F(LogWriterTest, BareNamesGoBesideTheExecutable) {
  char exe[260];
  ASSERT_TRUE(deskaid::platform::ExecutablePath(exe, sizeof exe));
  std::string expected = exe;
  expected = expected.substr(0, expected.rfind(deskaid::platform::kPathSeparator) + 1) +
             "deskaid-bare-name-test.log";
  CLogWriter writer;
  ASSERT_TRUE(writer.Open("deskaid-bare-name-test.log", 0xFFFFFFFF, 0, 20));
  EXPECT_EQ(std::string(writer.GetPath()), expected);
  writer.Close();
  fs::remove(expected);
}

TEST_F(LogWriterTest, DamagedTrailerIsReplacedByAnEmptyFile) {
  const std::string path = FileWith("damaged.log", std::string(100, 'z'));
  CLogWriter writer;
  ASSERT_TRUE(writer.Open(path.c_str(), 0xFFFFFFFF, 0, 20));
  EXPECT_EQ(fs::file_size(path), 0u);
  EXPECT_EQ(writer.GetSize(), 0u);
  ASSERT_TRUE(writer.Write(4, "fresh", 5, 2));
  auto log = logtest::ParseFile(path);
  ASSERT_TRUE(log.valid);
  EXPECT_EQ(Texts(log), std::vector<std::string>{"fresh"});
}

TEST_F(LogWriterTest, ShortFilesAreKeptUncheckedAndOverwrittenFromTheStart) {
  const std::string path = FileWith("short.log", std::string(50, 's'));
  CLogWriter writer;
  ASSERT_TRUE(writer.Open(path.c_str(), 0xFFFFFFFF, 0, 20));
  EXPECT_EQ(fs::file_size(path), 50u);
  EXPECT_EQ(writer.GetSize(), 50u);
  ASSERT_TRUE(writer.Write(1, "abc", 3, 2));
  auto bytes = logtest::ReadBytes(path);
  ASSERT_EQ(bytes.size(), 10u + 3 + 74);
  EXPECT_EQ(std::string(bytes.begin() + 10, bytes.begin() + 13), "abc");
  EXPECT_EQ(writer.GetSize(), 50u + 13);
  // No trailer was ever loaded or made for this file, so the one written behind the record is the
  // writer's blank one with its count raised: the next open finds no magic and starts afresh.
  EXPECT_EQ(logtest::U16(&bytes[13]), 0);
  EXPECT_EQ(logtest::U32(&bytes[13 + 4]), 1u);
  writer.Close();
  ASSERT_TRUE(writer.OpenFile());
  EXPECT_EQ(fs::file_size(path), 0u);
}

TEST_F(LogWriterTest, ReopenAppendsBehindTheRecordsAndKeepsTheKeys) {
  const std::string path = PathOf("reopen.log");
  CLogWriter writer;
  ASSERT_TRUE(writer.Open(path.c_str(), 0xFFFFFFFF, 1, 20));
  writer.Write(1, "one", 3, 2);
  auto before = logtest::ParseFile(path);
  writer.Close();

  // A trailer-only file is also a valid log: its first record goes over the trailer.
  ASSERT_TRUE(writer.Open(path.c_str(), 0xFFFFFFFF, 1, 20));
  EXPECT_EQ(writer.GetSize(), fs::file_size(path));
  writer.Write(1, "two", 3, 2);
  EXPECT_EQ(writer.GetSize(), fs::file_size(path));
  writer.Close();

  auto after = logtest::ParseFile(path);
  ASSERT_TRUE(after.valid);
  EXPECT_EQ(Texts(after), (std::vector<std::string>{"one", "two"}));
  EXPECT_EQ(0, std::memcmp(before.keys, after.keys, sizeof before.keys));
}

TEST_F(LogWriterTest, CompactionDropsTheOldestShareRoundedDown) {
  const std::string path = PathOf("compact.log");
  // Nine records stay below the limit; the tenth reaches it and drops 20 % of ten.
  const uint32_t recordBytes = 10 + 8;  // "record N" bodies
  CLogWriter writer;
  ASSERT_TRUE(writer.Open(path.c_str(), 10 * recordBytes, 1, 20));
  for (int i = 0; i < 10; ++i) writer.WriteFormat(1, 0, "record %d", i);
  auto log = logtest::ParseFile(path);
  ASSERT_TRUE(log.valid);
  EXPECT_EQ(log.recordCount, 8u);
  EXPECT_EQ(Texts(log).front(), "record 2");
  EXPECT_EQ(Texts(log).back(), "record 9");
  EXPECT_FALSE(fs::exists(path + ".n_"));
  EXPECT_EQ(writer.GetSize(), fs::file_size(path));
  writer.Close();

  // Four records at 20 %: 80 / 100 rounds down to none, and every further write compacts again.
  const std::string small = PathOf("small.log");
  ASSERT_TRUE(writer.Open(small.c_str(), 4 * recordBytes, 0, 20));
  for (int i = 0; i < 4; ++i) writer.WriteFormat(1, 0, "record %d", i);
  EXPECT_EQ(logtest::ParseFile(small).recordCount, 4u);
  writer.WriteFormat(1, 0, "record %d", 4);  // five records: one is dropped
  auto after = logtest::ParseFile(small);
  EXPECT_EQ(after.recordCount, 4u);
  EXPECT_EQ(Texts(after).front(), "record 1");
}

TEST_F(LogWriterTest, ArchivingMovesTheFullFileAsideUnderItsOpeningTime) {
  const std::string path = PathOf("trace.log");
  CLogWriter writer;
  ASSERT_TRUE(writer.Open(path.c_str(), 3 * 15, 1, 255));
  const uint32_t openedAt = deskaid::platform::Time32();
  for (int i = 0; i < 3; ++i) writer.WriteFormat(2, 0, "line %d", i);  // 10 + 6 each

  std::vector<fs::path> archives;
  for (const auto& entry : fs::directory_iterator(dir_.path())) {
    if (entry.path().filename() != "trace.log") archives.push_back(entry.path());
  }
  ASSERT_EQ(archives.size(), 1u);
  const std::string name = archives[0].filename().string();
  // "trace - YYYY.MM.DD HH.MM.SS.log", stamped with the opening time (within a second).
  bool matched = false;
  for (uint32_t t : {openedAt - 1, openedAt, openedAt + 1}) {
    std::tm local = deskaid::platform::LocalTime(t);
    char expected[64];
    std::strftime(expected, sizeof expected, "trace - %Y.%m.%d %H.%M.%S.log", &local);
    matched = matched || name == expected;
  }
  EXPECT_TRUE(matched) << name;
  auto archived = logtest::ParseFile(archives[0].string());
  ASSERT_TRUE(archived.valid);
  EXPECT_EQ(Texts(archived), (std::vector<std::string>{"line 0", "line 1", "line 2"}));
  EXPECT_EQ(fs::file_size(path), 0u) << "a new, empty log takes the old one's place";
  EXPECT_TRUE(writer.IsOpen());
  writer.WriteFormat(2, 0, "next");
  auto fresh = logtest::ParseFile(path);
  EXPECT_EQ(Texts(fresh), std::vector<std::string>{"next"});
}

TEST_F(LogWriterTest, ZeroLimitRotatesOnEveryRecord) {
  const std::string path = PathOf("every.log");
  CLogWriter writer;
  ASSERT_TRUE(writer.Open(path.c_str(), 0, 0, 50));
  for (int i = 0; i < 4; ++i) writer.WriteFormat(1, 0, "r%d", i);
  // Counts after each compaction: 1 -> 1 (0 dropped), 2 -> 1, 2 -> 1, 2 -> 1.
  auto log = logtest::ParseFile(path);
  ASSERT_TRUE(log.valid);
  EXPECT_EQ(Texts(log), std::vector<std::string>{"r3"});
}

TEST_F(LogWriterTest, SecondProcessIsRefusedAndLeavesTheLiveFileIntact) {
  const std::string path = PathOf("shared.log");
  CLogWriter writer;
  ASSERT_TRUE(writer.Open(path.c_str(), 0xFFFFFFFF, 1, 20));
  writer.WriteFormat(1, 0, "held by the first writer");
  const auto before = logtest::ReadBytes(path);

  EXPECT_EQ(RunSecondWriter(path), SecondWriterResult::kRefused);
  EXPECT_EQ(logtest::ReadBytes(path), before);

  writer.WriteFormat(1, 0, "still mine");
  writer.Close();
  EXPECT_EQ(RunSecondWriter(path), SecondWriterResult::kWrote);
  auto log = logtest::ParseFile(path);
  ASSERT_TRUE(log.valid);
  EXPECT_EQ(Texts(log), (std::vector<std::string>{"held by the first writer", "still mine",
                                                  "second writer"}));
}

}  // namespace
