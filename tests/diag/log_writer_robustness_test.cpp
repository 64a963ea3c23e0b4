#include <deskaid/diag/internal/log_writer_lock.h>
#include <deskaid/diag/log_writer.h>

#include <gtest/gtest.h>

#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <thread>

#include "log_file.h"

namespace fs = std::filesystem;

namespace {

// The runtime's own formatter; Windows's _vsnprintf leaves a text that does not fit unterminated.
std::string RuntimeFormat(size_t size, const char* format, ...) {
  std::vector<char> buffer(size);
  va_list args;
  va_start(args, format);
#ifdef _WIN32
  int n = _vsnprintf(buffer.data(), size, format, args);
  if (n < 0 || static_cast<size_t>(n) >= size) buffer[size - 1] = '\0';
#else
  std::vsnprintf(buffer.data(), size, format, args);
#endif
  va_end(args);
  return buffer.data();
}

#pragma GCC diagnostic ignored "-Wformat"  // the table holds conversions GCC does not check
#pragma GCC diagnostic ignored "-Wformat-extra-args"

TEST(LogWriterFormatting, RecordsAndTraceLinesUseTheRuntimesFormatter) {
  ScratchDir dir;
  const std::string path = dir.PathOf("formats.log");
  ASSERT_TRUE(g_LogWriter.Open(path.c_str(), 0xFFFFFFFF, 1, 20));
  std::vector<std::string> records, traces;
  const std::string longText(700, 'w');
  TraceCapture trace;
#define FORMAT_CASE(...)                                                  \
  do {                                                                    \
    const std::string text = RuntimeFormat(1024, __VA_ARGS__);            \
    records.insert(records.end(), {text, text});                          \
    traces.push_back(RuntimeFormat(512, "LOG: %s\n", text.c_str()));      \
    traces.push_back(RuntimeFormat(512, __VA_ARGS__));                    \
    LogPrintf(LOG_LEVEL_1 | LOG_TO_DEBUG_TRACE, __VA_ARGS__);             \
    g_LogWriter.WriteFormat(LOG_LEVEL_2, 0, __VA_ARGS__);                 \
    DebugTrace(__VA_ARGS__);                                              \
  } while (0)
  FORMAT_CASE("%d %i %u %x %X %o %+d|%-6d|%06d|%#x|%#o|%c", -42, 7, 4000000000u, 0xBEEFu, 0xBEEFu, 8u, 5, 5,
              -5, 255u, 8u, 'A');
  FORMAT_CASE("%hd %hu %hhd %hhu", 70000, 70000, 300, 300);
  FORMAT_CASE("%ld %lu %lld %llu", -5L, 5UL, -9000000000LL, 18000000000ULL);
  FORMAT_CASE("%p", reinterpret_cast<void*>(0x0040123a));
  FORMAT_CASE("%e %E %.2e %g %g %G %g", 10.0, 123456.789, -0.000123, 1e-5, 123456789.0, 1e20, 100.0);
  FORMAT_CASE("%.0f %.0f %.0f %.1f %.2f", 2.5, 0.5, 1.5, 0.25, 2.675);
  FORMAT_CASE("%f %10.3f %-10.1f|", 1e15, 3.14159, -2.5);
  FORMAT_CASE("%s|%.3s|%8s|%-8s|", "abc", "abcdef", "r", "l");
  FORMAT_CASE("%s", longText.c_str());
  FORMAT_CASE("100%% done, %d%%", 50);
#undef FORMAT_CASE
  g_LogWriter.Close();

  EXPECT_EQ(logtest::ParseFile(path).Texts(), records);
  EXPECT_EQ(trace.lines, traces);
#ifdef _WIN32
  // What the Windows runtime gives and a C99 formatter would not.
  EXPECT_EQ(records[6], sizeof(void*) == 4 ? "0040123A" : "000000000040123A");
  EXPECT_EQ(records[8].substr(0, 13), "1.000000e+001");
  EXPECT_EQ(records[10].substr(0, 2), "3 ") << "rounds halves away from zero";
  EXPECT_EQ(records[2].substr(0, 13), "4464 4464 300") << "ignores hh";
#endif
}

// Read in order across archives and live file, each thread's records form one run ending in its last.
void ExpectUnbrokenRuns(uint32_t maxSize, uint8_t percent) {
  constexpr int kThreads = 8, kRecords = 20000;
  ScratchDir dir;
  const std::string path = dir.PathOf("threads.log");
  CLogWriter writer;
  ASSERT_TRUE(writer.Open(path.c_str(), maxSize, percent == 255 ? 0 : 1, percent));
  std::vector<std::thread> threads;
  std::atomic<int> ready{0};
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&writer, &ready, t] {
      ++ready;
      while (ready < kThreads) std::this_thread::yield();
      for (int s = 0; s < kRecords; ++s) writer.WriteFormat(1, 0, "t%d s%d", t, s);
    });
  }
  for (auto& thread : threads) thread.join();
  writer.Close();

  std::vector<std::string> files = logtest::ArchivesBeside(path);
  EXPECT_EQ(files.size(), percent == 255 ? 1u : 0u);
  files.push_back(path);
  std::vector<int> next(kThreads, percent == 255 ? 0 : -1);
  for (const std::string& file : files) {
    const auto log = logtest::ParseFile(file);
    ASSERT_TRUE(log.valid) << file;
    for (const std::string& text : log.Texts()) {
      int t = -1, s = -1;
      ASSERT_TRUE(std::sscanf(text.c_str(), "t%d s%d", &t, &s) == 2 && t >= 0 && t < kThreads) << text;
      ASSERT_TRUE(next[t] < 0 || s == next[t]) << text << ", expected s" << next[t];
      next[t] = s + 1;
    }
  }
  int complete = 0;  // under compaction a thread may have lost all its records
  for (int t = 0; t < kThreads; ++t) {
    EXPECT_TRUE(next[t] == kRecords || (next[t] < 0 && percent != 255)) << "thread " << t << " ends at " << next[t];
    complete += next[t] == kRecords;
  }
  EXPECT_GT(complete, 0);
}

TEST(LogWriterThreads, CompactingLogKeepsEveryThreadsNewestRecords) { ExpectUnbrokenRuns(256 << 10, 20); }
TEST(LogWriterThreads, ArchivingLogLosesNothing) { ExpectUnbrokenRuns(2 << 20, 255); }

TEST(LogWriterThreads, NestedCallsProceedAndBoundedTriesGiveUp) {
  ScratchDir dir;
  CLogWriter writer;
  ASSERT_TRUE(writer.Open(dir.PathOf("nested.log").c_str(), 0xFFFFFFFF, 0, 20));
  {
    LogWriterTryLock held(writer, std::chrono::milliseconds(100));
    ASSERT_TRUE(held.OwnsLock());
    EXPECT_TRUE(writer.WriteFormat(1, 0, "nested"));
    LogWriterTryLock again(writer, std::chrono::milliseconds(100));
    EXPECT_FALSE(again.OwnsLock()) << "the owning thread may not nest a bounded try";
    std::thread([&writer] {
      EXPECT_FALSE(LogWriterTryLock(writer, std::chrono::milliseconds(50)).OwnsLock());
    }).join();
  }
  std::thread([&writer] {
    EXPECT_TRUE(LogWriterTryLock(writer, std::chrono::milliseconds(50)).OwnsLock());
  }).join();
  writer.Close();
  EXPECT_EQ(logtest::ParseFile(dir.PathOf("nested.log")).Texts(), std::vector<std::string>{"nested"});
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
  EXPECT_EQ(std::vector<std::string>(messages.end() - 3, messages.end()),
            (std::vector<std::string>{"", "first after the hole", "second after reopening"}));
  uint32_t month = 1, day = 1;
  EXPECT_TRUE(ReadLogStamp(path.c_str(), month, day));
  EXPECT_EQ(month + day, 0u);
}

TEST(LogWriterArchives, SecondArchiveInTheSameSecondNeverReplacesTheFirst) {
  for (int attempt = 0; attempt < 20; ++attempt) {
    ScratchDir dir;
    const std::string path = dir.PathOf("busy.log");
    CLogWriter writer;
    ASSERT_TRUE(writer.Open(path.c_str(), 0, 0, 255));  // every record archives the file
    writer.WriteFormat(1, 0, "first");
    writer.WriteFormat(1, 0, "second");
    writer.Close();
    const auto archives = logtest::ArchivesBeside(path);
    if (archives.size() == 2) continue;  // a second boundary fell between them: try again
    ASSERT_EQ(archives.size(), 1u);
    EXPECT_EQ(logtest::ParseFile(archives[0]).Texts(), std::vector<std::string>{"first"});
    EXPECT_EQ(fs::file_size(path), 0u) << "the second file was removed and a new one begun";
    return;
  }
  FAIL() << "every attempt crossed a second boundary";
}

}  // namespace
