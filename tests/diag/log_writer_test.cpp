#include <deskaid/common/internal/platform.h>
#include <deskaid/diag/internal/log_writer_lock.h>
#include <deskaid/diag/log_writer.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <thread>
#include <tuple>

#include "log_file.h"
#include "support/child_process.h"
#include "support/runtime_format.h"
#include "support/trace_capture.h"

namespace fs = std::filesystem;
using Texts = std::vector<std::string>;

namespace {

// This program as the second writer (main.cpp) on `path`: 3 when refused, 4 when it wrote.
int RunSecondWriter(const std::string& path) {
  return static_cast<int>(
      RunChildProcess(OwnExecutablePath(), {"--second-writer", path}, 60000).code);
}

// The descriptors this process holds open, where the system lists them (else -1).
long OpenDescriptors() {
#ifdef __linux__
  return static_cast<long>(std::distance(fs::directory_iterator("/proc/self/fd"), {}));
#else
  return -1;
#endif
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
  EXPECT_EQ(LogPrintf(LOG_LEVEL_2, "open %s failed", "C:\\data.bin"), 1u);
  const std::string text = "open C:\\data.bin failed";
  EXPECT_EQ(g_LogWriter.GetSize(), 10 + text.size()) << "a file begun empty counts no trailer";
  auto log = logtest::ParseFile(path);
  ASSERT_TRUE(log.valid && log.records.size() == 1);
  const auto& r = log.records[0];
  EXPECT_EQ(std::make_tuple(r.level, r.kind, r.keyIndex), std::make_tuple(2u, 2u, 65535u));
  EXPECT_NEAR(r.time, static_cast<double>(std::time(nullptr)), 2.0);
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
  EXPECT_EQ(trace.lines,
            (Texts{"LOG: only traced 7\n", "LOG: c\n", "LOG: " + std::string(506, 'q')}));
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
      Open(writer, "secret.log", 0xFFFFFFFF, 1);  // counting on from the file's length
    }
    // Bodies from a few bytes to past the writer's keystream table (1,024 bytes).
    sent.push_back("secret record " + std::to_string(i) + std::string(i * i * 5, 'x'));
    ASSERT_TRUE(writer.Write(8, sent.back().data(), uint32_t(sent.back().size()), 2));
  }
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
  for (const char* bad : {static_cast<const char*>(nullptr), ""})
    EXPECT_FALSE(writer.Open(bad, 0xFFFFFFFF, 0, 20));
  EXPECT_FALSE(writer.SetPath(nullptr));
  EXPECT_FALSE(writer.IsOpen());
  EXPECT_EQ(LogPrintf(LOG_LEVEL_1 | LOG_TO_DEBUG_TRACE, nullptr), 0u);
  DebugTrace(nullptr);

  const std::string path = dir_.PathOf("later.log");
  EXPECT_TRUE(writer.SetPath(path.c_str()));
  EXPECT_FALSE(fs::exists(path));
  ASSERT_TRUE(writer.OpenFile() && writer.IsOpen());
  EXPECT_FALSE(writer.SetPath(dir_.PathOf("other.log").c_str())) << "no path change while open";
  EXPECT_EQ(writer.GetPath(), path);
  EXPECT_FALSE(writer.WriteFormat(1, 0, nullptr));
  EXPECT_EQ(writer.GetSize(), 0u);
  writer.Close();

  std::string expected = OwnExecutablePath();  // a bare name goes beside the executable
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
  fresh.Close();  // behind the record lies the writer's blank trailer: the next open finds no magic
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

  // Open takes a zero limit as it stands: every record compacts, and 50 % of one rounds down to
  // none, so 1 -> 1, then 2 -> 1 each time.
  const std::string every = Open(writer, "every.log", 0, 0, 50);
  for (int i = 0; i < 4; ++i) writer.WriteFormat(1, 0, "r%d", i);
  EXPECT_EQ(logtest::ParseFile(every).Texts(), Texts{"r3"});
  writer.Close();

  // A compaction that cannot make its new file changes nothing and leaves no file open.
  const std::string stuck = Open(writer, "stuck.log", 2 * 18, 1);
  fs::create_directory(stuck + ".n_");
  const long descriptors = OpenDescriptors();
  for (int i = 0; i < 3; ++i) writer.WriteFormat(1, 0, "r%d", i);
  EXPECT_EQ(logtest::ParseFile(stuck).Texts(), (Texts{"r0", "r1", "r2"}));
  EXPECT_EQ(OpenDescriptors(), descriptors);
  writer.Close();
  std::error_code error;  // Windows refuses while a handle stays open
  EXPECT_TRUE(fs::remove(stuck, error)) << error.message();

  const long closed = OpenDescriptors();
  {
    CLogWriter destroyed;  // a writer destroyed while open closes its file
    Open(destroyed, "destroyed.log");
  }
  EXPECT_EQ(OpenDescriptors(), closed);
  EXPECT_TRUE(fs::remove(dir_.PathOf("destroyed.log"), error)) << error.message();
}

// A record written across a page boundary ends the file, while it is written, in a trailer with
// the old count and the pending mark (0x8000 in keyCount), behind the record's bytes or at the
// start of a later page. A kill in that time leaves such a log: it reads as the records before the
// cut one, and the next open puts an unmarked trailer back behind them, whatever the cut left.
TEST_F(LogWriterTest, ALogLeftInTheMiddleOfARecordReadsWholeAndIsMendedAtOpen) {
  const std::string path = Open(writer, "cut.log");
  for (const char* text : {"one", "two", "three"})
    writer.Write(1, text, 3 + (text[1] == 'h') * 2, 2);
  writer.Close();
  const std::string whole = ReadFileBytes(path);
  std::string pending = whole.substr(whole.size() - 74);
  pending[3] = static_cast<char>(pending[3] | 0x80);
  for (const std::string& cut :
       {std::string("\x01\x02\xff\xff\x40\x00partial"), std::string(300, 'x')}) {
    for (bool atPageStart : {false, true}) {
      std::string bytes = whole.substr(0, whole.size() - 74) + cut;
      if (atPageStart) bytes += std::string(4096 - bytes.size() % 4096, '\0');
      WriteFileBytes(path, bytes + pending);
      EXPECT_EQ(logtest::ExportedMessages(path, dir_.PathOf("cut.txt")),
                (Texts{"one", "two", "three"}));
      Open(writer, "cut.log");
      EXPECT_EQ(writer.GetSize(), whole.size());
      writer.Write(1, "four", 4, 2);
      writer.Close();
      const auto log = logtest::ParseFile(path);
      EXPECT_TRUE(log.valid);
      EXPECT_EQ(log.Texts(), (Texts{"one", "two", "three", "four"}));
    }
  }
}

// A second archive in the same second never replaces the first: that file is dropped instead.
TEST_F(LogWriterTest, ArchivingMovesTheFullFileAsideUnderItsOpeningTimeNeverOverAnother) {
  for (int attempt = 0; attempt < 20; ++attempt) {
    ScratchDir dir;
    const std::string path = dir.PathOf("trace.log");
    CLogWriter archiving;
    ASSERT_TRUE(archiving.Open(path.c_str(), 3 * 15, 1, 255));
    const uint32_t openedAt = deskaid::platform::Time32();
    for (int i = 0; i < 6; ++i) archiving.WriteFormat(2, 0, "line %d", i);
    const auto archives = logtest::ArchivesBeside(path);
    if (archives.size() == 2) continue;  // a second boundary fell between them: try again
    ASSERT_EQ(archives.size(), 1u);
    const std::string name = fs::path(archives[0]).filename().string();
    Texts stamps;  // the opening time, within a second
    for (uint32_t t : {openedAt - 1, openedAt, openedAt + 1}) {
      std::tm local = deskaid::platform::LocalTime(t);
      char expected[64];
      std::strftime(expected, sizeof expected, "trace - %Y.%m.%d %H.%M.%S.log", &local);
      stamps.push_back(expected);
    }
    EXPECT_THAT(stamps, testing::Contains(name));
    EXPECT_EQ(logtest::ParseFile(archives[0]).Texts(), (Texts{"line 0", "line 1", "line 2"}));
    EXPECT_EQ(fs::file_size(path), 0u) << "a new, empty log takes the dropped one's place";
    archiving.WriteFormat(2, 0, "next");
    EXPECT_EQ(logtest::ParseFile(path).Texts(), Texts{"next"});
    return;
  }
  FAIL() << "every attempt crossed a second boundary";
}

#pragma GCC diagnostic ignored "-Wformat"  // the table holds conversions GCC does not check
#pragma GCC diagnostic ignored "-Wformat-extra-args"

// Away from a Windows debugger the trace lines go to standard error as well as to the sink.
TEST_F(LogWriterTest, RecordsAndTraceLinesUseTheRuntimesFormatter) {
  const std::string path = Open(g_LogWriter, "formats.log", 0xFFFFFFFF, 1);
  Texts records, traces;
  TraceCapture trace;
#ifndef _WIN32
  testing::internal::CaptureStderr();
#endif
#define FORMAT_CASE(...)                                             \
  do {                                                               \
    const std::string text = RuntimeFormat(1024, __VA_ARGS__);       \
    records.insert(records.end(), {text, text});                     \
    traces.push_back(RuntimeFormat(512, "LOG: %s\n", text.c_str())); \
    traces.push_back(RuntimeFormat(512, __VA_ARGS__));               \
    LogPrintf(LOG_LEVEL_1 | LOG_TO_DEBUG_TRACE, __VA_ARGS__);        \
    g_LogWriter.WriteFormat(LOG_LEVEL_2, 0, __VA_ARGS__);            \
    DebugTrace(__VA_ARGS__);                                         \
  } while (0)
  FORMAT_CASE("%d %i %u %x %X %o %+d|%-6d|%06d|%#x|%#o|%c", -42, 7, 4000000000u, 0xBEEFu, 0xBEEFu,
              8u, 5, 5, -5, 255u, 8u, 'A');
  FORMAT_CASE("%hd %hu %hhd %hhu", 70000, 70000, 300, 300);
  FORMAT_CASE("%lld %llu|%s|%.3s|%-4s|%%", -9000000000LL, 18000000000ULL, "abc", "abcdef", "l");
  FORMAT_CASE("%p", reinterpret_cast<void*>(0x0040123a));
  FORMAT_CASE("%e %E %.2e %g %g %G %g", 10.0, 123456.789, -0.000123, 1e-5, 123456789.0, 1e20,
              100.0);
  FORMAT_CASE("%.0f %.0f %.0f %.1f %.2f", 2.5, 0.5, 1.5, 0.25, 2.675);
#undef FORMAT_CASE
  g_LogWriter.Close();

  EXPECT_EQ(logtest::ParseFile(path).Texts(), records);
  EXPECT_EQ(trace.lines, traces);
#ifndef _WIN32
  std::string printed;
  for (const std::string& line : traces) printed += line;
  EXPECT_EQ(testing::internal::GetCapturedStderr(), printed);
#else
  // What the Windows runtime gives and a C99 formatter would not.
  EXPECT_EQ(records[6], sizeof(void*) == 4 ? "0040123A" : "000000000040123A");
  EXPECT_EQ(records[8].substr(0, 13), "1.000000e+001");
  EXPECT_EQ(records[10].substr(0, 2), "3 ") << "rounds halves away from zero";
  EXPECT_EQ(records[2].substr(0, 13), "4464 4464 300") << "ignores hh";
#endif
}

// Read in order across the archive and the live file, each thread's records form one unbroken run
// from its first to its last: no record is lost or torn while another thread writes or archives.
TEST_F(LogWriterTest, ThreadsArchivingLoseNothing) {
  constexpr int kThreads = 8, kRecords = 20000;
  const std::string path = Open(writer, "threads.log", 2 << 20, 1, 255);
  std::vector<std::thread> threads;
  std::atomic<int> ready{0};
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([this, &ready, t] {
      ++ready;
      while (ready < kThreads) std::this_thread::yield();
      for (int s = 0; s < kRecords; ++s) writer.WriteFormat(1, 0, "t%d s%d", t, s);
    });
  }
  for (auto& thread : threads) thread.join();
  writer.Close();

  Texts files = logtest::ArchivesBeside(path);
  EXPECT_EQ(files.size(), 1u);
  files.push_back(path);
  std::vector<int> next(kThreads, 0);
  for (const std::string& file : files) {
    const auto log = logtest::ParseFile(file);
    ASSERT_TRUE(log.valid) << file;
    for (const std::string& text : log.Texts()) {
      int t = -1, s = -1;
      ASSERT_TRUE(std::sscanf(text.c_str(), "t%d s%d", &t, &s) == 2 && t >= 0 && t < kThreads)
          << text;
      ASSERT_EQ(s, next[t]) << text;
      next[t] = s + 1;
    }
  }
  EXPECT_EQ(next, std::vector<int>(kThreads, kRecords));
}

TEST_F(LogWriterTest, NestedCallsProceedAndBoundedTriesGiveUp) {
  const std::string path = Open(writer, "nested.log");
  {
    LogWriterTryLock held(writer, std::chrono::milliseconds(100));
    ASSERT_TRUE(held.OwnsLock());
    EXPECT_TRUE(writer.WriteFormat(1, 0, "nested"));
    LogWriterTryLock again(writer, std::chrono::milliseconds(100));
    EXPECT_FALSE(again.OwnsLock()) << "the owning thread may not nest a bounded try";
    std::thread([this] {
      EXPECT_FALSE(LogWriterTryLock(writer, std::chrono::milliseconds(50)).OwnsLock());
    }).join();
  }
  std::thread([this] {
    EXPECT_TRUE(LogWriterTryLock(writer, std::chrono::milliseconds(50)).OwnsLock());
  }).join();
  writer.Close();
  EXPECT_EQ(logtest::ParseFile(path).Texts(), Texts{"nested"});
}

// Records of 65,535 bytes left as holes, so that a file of several GiB takes no room to build.
void BuildSparseLog(const std::string& path, uint32_t count) {
  std::ofstream out(path, std::ios::binary);
  const uint8_t header[10] = {1, 2, 0xFF, 0xFF, 0xFF, 0xFF, 0, 0, 0, 0};
  for (uint32_t i = 0; i < count; ++i) {
    out.seekp(static_cast<std::streamoff>(i) * (10 + 0xFFFF));
    out.write(reinterpret_cast<const char*>(header), sizeof header);
  }
  const LogTrailer trailer{kLogTrailerMagic, kLogKeyCount, count, 0, 0, {}};
  out.seekp(static_cast<std::streamoff>(count) * (10 + 0xFFFF));
  out.write(reinterpret_cast<const char*>(&trailer), sizeof trailer);
  ASSERT_TRUE(out.good());
}

// The log is read back once, at the larger size: a few GiB of holes take seconds to read.
TEST(LogWriterLargeFiles, RecordsLandAtTheTrueEndPastTwoAndFourGiB) {
  ScratchDir dir;
  const std::string path = dir.PathOf("large.log");
  for (uint64_t target : {2560ull << 20, 4608ull << 20}) {
    BuildSparseLog(path, static_cast<uint32_t>(target / (10 + 0xFFFF)));
    const uint64_t built = fs::file_size(path);
    ASSERT_GT(built, target - 0x10000);
    for (const char* message : {"first after the hole", "second after reopening"}) {
      CLogWriter writer;
      ASSERT_TRUE(writer.Open(path.c_str(), 0xFFFFFFFF, 0, 20));
      EXPECT_EQ(writer.GetSize(), static_cast<uint32_t>(fs::file_size(path)));
      ASSERT_TRUE(writer.WriteFormat(4, 0, "%s", message));
    }
    EXPECT_EQ(fs::file_size(path), built + (10 + 20) + (10 + 22));
  }
  const auto messages = logtest::ExportedMessages(path, dir.PathOf("large.txt"));
  ASSERT_GE(messages.size(), 3u);
  EXPECT_EQ(Texts(messages.end() - 3, messages.end()),
            (Texts{"", "first after the hole", "second after reopening"}));
  uint32_t month = 1, day = 1;
  EXPECT_TRUE(ReadLogStamp(path.c_str(), month, day));
  EXPECT_EQ(month + day, 0u);
}

}  // namespace
