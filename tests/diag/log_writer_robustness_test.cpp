// The log writer beyond the single-threaded, small-file case: the platform's own formatter, many
// threads at once, logs past 2 and 4 GiB, archives that fall in one second, and hostile arguments.
#include <deskaid/diag/internal/log_writer_lock.h>
#include <deskaid/diag/log_export.h>
#include <deskaid/diag/log_writer.h>

#include <gtest/gtest.h>

#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "log_file.h"
#include "support/scratch_dir.h"

namespace fs = std::filesystem;

namespace {

std::vector<std::string> g_trace;
void CaptureTrace(const char* line, void*) { g_trace.push_back(line); }

// The platform runtime's own formatter, called directly: _vsnprintf on Windows, cut at the last
// byte when the text does not fit; vsnprintf elsewhere.
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

#if defined(__GNUC__)
#pragma GCC diagnostic ignored "-Wformat"  // the table holds conversions GCC does not check
#pragma GCC diagnostic ignored "-Wformat-extra-args"
#endif

// Every format goes through LogPrintf (record and "LOG: " trace line), WriteFormat (record) and
// DebugTrace (trace line); each result must be what the runtime's formatter gives.
TEST(LogWriterFormatting, RecordsAndTraceLinesUseTheRuntimesFormatter) {
  ScratchDir dir;
  const std::string path = dir.PathOf("formats.log");
  ASSERT_TRUE(g_LogWriter.Open(path.c_str(), 0xFFFFFFFF, 1, 20));
  g_trace.clear();
  SetDebugTraceSink(CaptureTrace, nullptr);
  std::vector<std::string> records, traces;
  const std::string longText(700, 'w');
#define FORMAT_CASE(...)                                                  \
  do {                                                                    \
    const std::string text = RuntimeFormat(1024, __VA_ARGS__);            \
    records.push_back(text);                                              \
    records.push_back(text);                                              \
    traces.push_back(RuntimeFormat(512, "LOG: %s\n", text.c_str()));      \
    traces.push_back(RuntimeFormat(512, __VA_ARGS__));                    \
    LogPrintf(LOG_LEVEL_1 | LOG_TO_DEBUG_TRACE, __VA_ARGS__);             \
    g_LogWriter.WriteFormat(LOG_LEVEL_2, 0, __VA_ARGS__);                 \
    DebugTrace(__VA_ARGS__);                                              \
  } while (0)
  FORMAT_CASE("%d %i %u %x %X %o", -42, 7, 4000000000u, 0xBEEFu, 0xBEEFu, 8u);
  FORMAT_CASE("%hd %hu %hhd %hhu", 70000, 70000, 300, 300);
  FORMAT_CASE("%ld %lu %lld %llu", -5L, 5UL, -9000000000LL, 18000000000ULL);
  FORMAT_CASE("%+d|%-6d|%06d|%#x|%#o|%c", 5, 5, -5, 255u, 8u, 'A');
  FORMAT_CASE("%p", reinterpret_cast<void*>(0x0040123a));
  FORMAT_CASE("%e %E %.2e", 10.0, 123456.789, -0.000123);
  FORMAT_CASE("%g %g %G %g", 1e-5, 123456789.0, 1e20, 100.0);
  FORMAT_CASE("%.0f", 2.5);
  FORMAT_CASE("%.0f %.0f %.1f %.2f", 0.5, 1.5, 0.25, 2.675);
  FORMAT_CASE("%f %10.3f %-10.1f|", 1e15, 3.14159, -2.5);
  FORMAT_CASE("%s|%.3s|%8s|%-8s|", "abc", "abcdef", "r", "l");
  FORMAT_CASE("%s", longText.c_str());
  FORMAT_CASE("100%% done, %d%%", 50);
#undef FORMAT_CASE
  SetDebugTraceSink(nullptr, nullptr);
  g_LogWriter.Close();

  auto log = logtest::ParseFile(path);
  ASSERT_TRUE(log.valid);
  ASSERT_EQ(log.records.size(), records.size());
  for (size_t i = 0; i < records.size(); ++i) EXPECT_EQ(log.records[i].text, records[i]) << i;
  EXPECT_EQ(g_trace, traces);
#ifdef _WIN32
  // What the Windows runtime gives and a C99 formatter would not.
  EXPECT_EQ(records[8], sizeof(void*) == 4 ? "0040123A" : "000000000040123A");
  EXPECT_EQ(records[10].substr(0, 13), "1.000000e+001");
  EXPECT_EQ(records[14], "3") << "rounds halves away from zero";
  EXPECT_EQ(records[2].substr(0, 13), "4464 4464 300") << "ignores hh";
#endif
}

// Reads every record of the log and its archives, in file order, as "thread sequence" pairs.
struct Entry {
  int thread;
  int sequence;
};
std::vector<Entry> Entries(const std::string& path) {
  auto log = logtest::ParseFile(path);
  EXPECT_TRUE(log.valid) << path;
  std::vector<Entry> entries;
  for (const auto& record : log.records) {
    Entry e{-1, -1};
    EXPECT_EQ(std::sscanf(record.text.c_str(), "t%d s%d", &e.thread, &e.sequence), 2)
        << record.text;
    entries.push_back(e);
  }
  return entries;
}

constexpr int kThreads = 8;
constexpr int kRecordsPerThread = 20000;

void WriteFromThreads(CLogWriter& writer) {
  std::vector<std::thread> threads;
  std::atomic<int> ready{0};
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&writer, &ready, t] {
      ++ready;
      while (ready < kThreads) std::this_thread::yield();
      for (int s = 0; s < kRecordsPerThread; ++s) writer.WriteFormat(1, 0, "t%d s%d", t, s);
    });
  }
  for (auto& thread : threads) thread.join();
}

// Compaction drops the oldest records of the file, so each thread keeps an unbroken run of its
// newest ones, ending with its last.
TEST(LogWriterThreads, CompactingLogKeepsEveryThreadsNewestRecordsInOrder) {
  ScratchDir dir;
  const std::string path = dir.PathOf("compacting.log");
  CLogWriter writer;
  ASSERT_TRUE(writer.Open(path.c_str(), 256 * 1024, 1, 20));
  WriteFromThreads(writer);
  writer.Close();
  std::vector<int> next(kThreads, -1);
  for (const Entry& e : Entries(path)) {
    ASSERT_TRUE(e.thread >= 0 && e.thread < kThreads);
    if (next[e.thread] >= 0) {
      ASSERT_EQ(e.sequence, next[e.thread]) << "thread " << e.thread;
    }
    next[e.thread] = e.sequence + 1;
  }
  // A thread whose records all fell to compaction has none left; any other ends with its last.
  int complete = 0;
  for (int t = 0; t < kThreads; ++t) {
    if (next[t] >= 0) {
      EXPECT_EQ(next[t], kRecordsPerThread) << "thread " << t;
    }
    complete += next[t] == kRecordsPerThread;
  }
  EXPECT_GT(complete, 0);
}

// One archive, then the live file: together they hold every record exactly once, in order.
TEST(LogWriterThreads, ArchivingLogLosesNothing) {
  ScratchDir dir;
  const std::string path = dir.PathOf("archiving.log");
  CLogWriter writer;
  ASSERT_TRUE(writer.Open(path.c_str(), 2 * 1024 * 1024, 0, 255));
  WriteFromThreads(writer);
  writer.Close();
  std::vector<std::string> archives;
  for (const auto& entry : fs::directory_iterator(dir.path())) {
    if (entry.path().string() != path) archives.push_back(entry.path().string());
  }
  ASSERT_EQ(archives.size(), 1u);
  std::vector<int> next(kThreads, 0);
  for (const std::string& file : {archives[0], path}) {
    for (const Entry& e : Entries(file)) {
      ASSERT_TRUE(e.thread >= 0 && e.thread < kThreads);
      ASSERT_EQ(e.sequence, next[e.thread]++) << "thread " << e.thread;
    }
  }
  for (int t = 0; t < kThreads; ++t) EXPECT_EQ(next[t], kRecordsPerThread) << "thread " << t;
}

// A thread inside an operation may call in again; a path that must not nest or wait is refused.
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
    std::thread other([&writer] {
      LogWriterTryLock elsewhere(writer, std::chrono::milliseconds(50));
      EXPECT_FALSE(elsewhere.OwnsLock()) << "held by another thread";
    });
    other.join();
  }
  std::thread after([&writer] {
    LogWriterTryLock free(writer, std::chrono::milliseconds(50));
    EXPECT_TRUE(free.OwnsLock());
  });
  after.join();
  writer.Close();
  auto log = logtest::ParseFile(dir.PathOf("nested.log"));
  ASSERT_TRUE(log.valid);
  ASSERT_EQ(log.records.size(), 1u);
  EXPECT_EQ(log.records[0].text, "nested");
}

// A log of `count` records with 65,535-byte plain bodies left as holes (zeros), so that a file
// of several GiB takes no room and little time to build.
void BuildSparseLog(const std::string& path, uint32_t count) {
  std::ofstream out(path, std::ios::binary);
  const uint8_t header[10] = {1, 2, 0xFF, 0xFF, 0xFF, 0xFF, 0, 0, 0, 0};
  for (uint32_t i = 0; i < count; ++i) {
    out.seekp(static_cast<std::streamoff>(i) * (10 + 0xFFFF));
    out.write(reinterpret_cast<const char*>(header), sizeof header);
  }
  LogTrailer trailer{};
  trailer.magic = kLogTrailerMagic;
  trailer.keyCount = kLogKeyCount;
  trailer.recordCount = count;
  out.seekp(static_cast<std::streamoff>(count) * (10 + 0xFFFF));
  out.write(reinterpret_cast<const char*>(&trailer), sizeof trailer);
  ASSERT_TRUE(out.good());
}

// The message of the last record, read from the end of the file: its header, body and trailer.
std::string LastMessage(const std::string& path, size_t length) {
  std::ifstream in(path, std::ios::binary);
  in.seekg(-static_cast<std::streamoff>(10 + length + sizeof(LogTrailer)), std::ios::end);
  std::string tail(10 + length, '\0');
  in.read(&tail[0], static_cast<std::streamsize>(tail.size()));
  return tail.substr(10);
}

std::string LastLines(const std::string& path, size_t n) {
  std::ifstream in(path);
  std::vector<std::string> lines;
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  std::string tail;
  for (size_t i = lines.size() > n ? lines.size() - n : 0; i < lines.size(); ++i) {
    std::string message = lines[i].substr(lines[i].find('\t') + 1);
    while (!message.empty() && message.back() == '\r') message.pop_back();
    tail += message + "|";
  }
  return tail;
}

// A log that never rotates grows past 2 and then 4 GiB: each reopen finds the true end, the
// next record lands there, and the whole log reads back (read once, at the larger size: a few
// GiB of holes take seconds to read).
TEST(LogWriterLargeFiles, RecordsLandAtTheTrueEndPastTwoAndFourGiB) {
  ScratchDir dir;
  const std::string path = dir.PathOf("large.log");
  const std::string text = dir.PathOf("large.txt");
  for (uint64_t target : {2560ull << 20, 4608ull << 20}) {
    const uint32_t count = static_cast<uint32_t>(target / (10 + 0xFFFF));
    BuildSparseLog(path, count);
    const uint64_t built = fs::file_size(path);
    ASSERT_GT(built, target - 0x10000);
    for (const char* message : {"first after the hole", "second after reopening"}) {
      CLogWriter writer;
      ASSERT_TRUE(writer.Open(path.c_str(), 0xFFFFFFFF, 0, 20));
      EXPECT_EQ(writer.GetSize(), static_cast<uint32_t>(fs::file_size(path)));
      ASSERT_TRUE(writer.WriteFormat(4, 0, "%s", message));
      writer.Close();
      EXPECT_EQ(LastMessage(path, std::strlen(message)), message) << target;
    }
    EXPECT_EQ(fs::file_size(path), built + (10 + 20) + (10 + 22));
  }
  ASSERT_TRUE(ConvertLogToText(path.c_str(), text.c_str(), nullptr));
  EXPECT_EQ(LastLines(text, 3), "|first after the hole|second after reopening|");
  uint32_t month = 1, day = 1;
  EXPECT_TRUE(ReadLogStamp(path.c_str(), month, day));
  EXPECT_EQ(month + day, 0u);
}

// Two archives in one second: the move never replaces the older archive; the current file is
// removed instead, and logging goes on.
TEST(LogWriterArchives, SecondArchiveInTheSameSecondNeverReplacesTheFirst) {
  for (int attempt = 0; attempt < 20; ++attempt) {
    ScratchDir dir;
    const std::string path = dir.PathOf("busy.log");
    CLogWriter writer;
    ASSERT_TRUE(writer.Open(path.c_str(), 0, 0, 255));  // every record archives the file
    writer.WriteFormat(1, 0, "first");
    writer.WriteFormat(1, 0, "second");
    writer.Close();
    std::vector<std::string> archives;
    for (const auto& entry : fs::directory_iterator(dir.path())) {
      if (entry.path().string() != path) archives.push_back(entry.path().string());
    }
    if (archives.size() == 2) continue;  // a second boundary fell between them: try again
    ASSERT_EQ(archives.size(), 1u);
    auto archived = logtest::ParseFile(archives[0]);
    ASSERT_EQ(archived.records.size(), 1u);
    EXPECT_EQ(archived.records[0].text, "first");
    EXPECT_EQ(fs::file_size(path), 0u) << "the second file was removed and a new one begun";
    return;
  }
  FAIL() << "every attempt crossed a second boundary";
}

TEST(LogWriterArguments, NullAndEmptyArgumentsFailCleanly) {
  CLogWriter writer;
  EXPECT_FALSE(writer.Open(nullptr, 0xFFFFFFFF, 0, 20));
  EXPECT_FALSE(writer.Open("", 0xFFFFFFFF, 0, 20));
  EXPECT_FALSE(writer.IsOpen());
  EXPECT_FALSE(writer.SetPath(nullptr));
  EXPECT_EQ(LogPrintf(LOG_LEVEL_1 | LOG_TO_DEBUG_TRACE, nullptr), 0u);
  DebugTrace(nullptr);

  ScratchDir dir;
  ASSERT_TRUE(writer.Open(dir.PathOf("args.log").c_str(), 0xFFFFFFFF, 0, 20));
  EXPECT_FALSE(writer.WriteFormat(1, 0, nullptr));
  EXPECT_EQ(writer.GetSize(), 0u);
  writer.Close();

  uint32_t month = 9, day = 9;
  EXPECT_FALSE(ReadLogStamp(nullptr, month, day));
  EXPECT_FALSE(ReadLogStamp("", month, day));
  EXPECT_EQ(month + day, 0u);
  const std::string text = dir.PathOf("out.txt");
  EXPECT_FALSE(ConvertLogToText(nullptr, text.c_str(), nullptr));
  EXPECT_FALSE(ConvertLogToText("", text.c_str(), nullptr));
  EXPECT_FALSE(ConvertLogToText(dir.PathOf("args.log").c_str(), nullptr, nullptr));
  EXPECT_FALSE(ConvertLogToText(dir.PathOf("args.log").c_str(), "", nullptr));
}

}  // namespace
