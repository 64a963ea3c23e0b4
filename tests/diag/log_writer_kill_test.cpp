// A writer killed at any moment (SIGKILL; TerminateProcess on Windows) leaves logs that read
// whole: the log is there, the converter reads it, reopening keeps every record, each archive is
// complete, every record the child saw written is there (unless a rotation dropped it by design),
// and each writing thread's records follow each other without a hole.
//
// DESKAID_KILLS sets the kills per case (50 by default), DESKAID_KILL_SEED the seed of the kill
// times (a new one by default; it is printed, so that a failing run can be repeated).
#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <mutex>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include <deskaid/diag/internal/file_stamp.h>
#include <deskaid/diag/log_writer.h>

#include "log_file.h"
#include "support/child_process.h"

namespace fs = std::filesystem;

namespace {

constexpr uint32_t kSizeLimit = 64 * 1024;

// The record numbered `seq`, written by `thread`: the numbers, then filler of a length that
// varies, so that records end at every place of a page. Large records span several pages, so
// that a kill often falls inside the writing of one.
std::string Body(unsigned thread, uint32_t seq, bool large) {
  std::string body = std::to_string(seq) + " t" + std::to_string(thread) + " ";
  body.append((large ? 8000 : 40) + seq * 7919u % (large ? 8000u : 960u),
              static_cast<char>('a' + seq % 26));
  return body;
}

bool ReadBody(const std::string& text, unsigned& thread, uint32_t& seq) {
  return std::sscanf(text.c_str(), "%u t%u ", &seq, &thread) == 2 &&
         (text == Body(thread, seq, false) || text == Body(thread, seq, true));
}

std::string AckPath(const std::string& dir, unsigned thread) {
  return (fs::path(dir) / ("ack" + std::to_string(thread))).string();
}

}  // namespace

// The child: LOG ACK-DIR ENCIPHER(0|1) ARCHIVE(0|1) THREADS LARGE(0|1). The threads write records
// as fast as they can, numbered in the order they are written (a lock of the child's own keeps
// number and record together). After each record a thread writes the number of the last record it
// saw written into its ack file, in one write at the file's start (a write within a page, which a
// kill never cuts).
int RunKillChild(int argc, char** argv) {
  if (argc != 6) return 2;
  const std::string log = argv[0], acks = argv[1];
  const int threads = std::atoi(argv[4]);
  const bool large = argv[5][0] == '1';
  CLogWriter writer;
  if (!writer.Open(log.c_str(), kSizeLimit, argv[2][0] == '1', argv[3][0] == '1' ? 255 : 20))
    return 3;
  std::mutex order;
  uint32_t next = 0;
  std::vector<std::thread> workers;
  for (int t = 0; t < threads; ++t) {
    workers.emplace_back([&, t] {
      std::FILE* ack = std::fopen(AckPath(acks, t).c_str(), "wb");
      while (ack != nullptr) {
        uint32_t seq;
        {
          std::lock_guard<std::mutex> hold(order);
          seq = next++;
          const std::string body = Body(t, seq, large);
          writer.Write(1, body.data(), static_cast<uint32_t>(body.size()), 2);
        }
        std::fseek(ack, 0, SEEK_SET);
        std::fprintf(ack, "%010u", seq);
        std::fflush(ack);
      }
    });
  }
  for (auto& worker : workers) worker.join();
  return 4;
}

namespace {

struct KillCase {
  bool encipher, archive;
  int threads;
  bool large;
};

std::string CaseName(const KillCase& c) {
  return std::string(c.encipher ? "Enciphered" : "Plain") +
         (c.archive ? "Archiving" : "Compacting") + (c.threads == 1 ? "OneThread" : "FourThreads") +
         (c.large ? "LargeRecords" : "");
}

class LogWriterKill : public ::testing::TestWithParam<KillCase> {};

INSTANTIATE_TEST_SUITE_P(
    , LogWriterKill,
    ::testing::Values(KillCase{false, false, 1, false}, KillCase{true, false, 1, false},
                      KillCase{false, true, 1, false}, KillCase{true, true, 1, false},
                      KillCase{false, false, 4, false}, KillCase{true, false, 4, false},
                      KillCase{false, true, 4, false}, KillCase{true, true, 4, false},
                      KillCase{false, false, 1, true}),
    [](const auto& test) { return CaseName(test.param); });

unsigned EnvNumber(const char* name, unsigned otherwise) {
  const char* text = std::getenv(name);
  return text != nullptr && *text != '\0' ? static_cast<unsigned>(std::strtoul(text, nullptr, 10))
                                          : otherwise;
}

// Checks what a kill left: the log and, archiving, its archives beside it.
::testing::AssertionResult CheckKilledLogs(const std::string& log, const std::string& text,
                                           const KillCase& c, const std::vector<long long>& acks) {
  using ::testing::AssertionFailure;
  // Archiving moves the full log aside before a new one is made: then only the archive is there.
  if (!fs::exists(log) && !c.archive) return AssertionFailure() << "the log is gone";
  // The files in the order their records were written: the archives, then the log.
  std::vector<std::string> files;
  if (c.archive) files = logtest::ArchivesBeside(log);
  files.push_back(log);

  long long last = -1;   // the last record seen so far
  bool mayJump = false;  // a dropped file may lie before the next record
  for (const std::string& file : files) {
    logtest::ParsedLog parsed;
    if (file != log) {
      parsed = logtest::ParseFile(file);
      if (!parsed.valid) return AssertionFailure() << "incomplete archive " << file;
    } else if (fs::exists(log) && fs::file_size(log) != 0) {
      // The converter reads the log as the kill left it; reopening it keeps the same records and
      // leaves a log whose records fill the file up to its trailer.
      const std::vector<std::string> texts = logtest::ExportedMessages(log, text);
      if (texts == std::vector<std::string>{"(not converted)"})
        return AssertionFailure() << "the converter refuses the log";
      CLogWriter reopened;
      if (!reopened.Open(log.c_str(), 0xFFFFFFFF, 0, 20)) return AssertionFailure() << "reopen";
      reopened.Close();
      parsed = logtest::ParseFile(log);
      if (!parsed.valid || parsed.Texts() != texts)
        return AssertionFailure() << "reopening changed the log's records";
    }
    for (const std::string& body : parsed.Texts()) {
      unsigned thread = 0;
      uint32_t seq = 0;
      if (!ReadBody(body, thread, seq) || thread >= static_cast<unsigned>(c.threads))
        return AssertionFailure() << "a record the child did not write: " << body;
      // Compaction drops the oldest records, so a log may start anywhere; archives keep them all.
      const bool follows =
          seq == last + 1 || (last < 0 && (!c.archive || seq == 0)) || (mayJump && seq > last);
      if (!follows)
        return AssertionFailure() << "record " << seq << " follows record " << last << " in "
                                  << file;
      last = seq;
      mayJump = false;
    }
    if (file != log && !parsed.records.empty()) {
      // An archive is named after the second its file was opened. A full file that would take the
      // name of an older archive is dropped, so that logging goes on: that can happen only while
      // the second of this archive's name lasts, when its last record was written in that second.
      const std::string stamp = deskaid::FileStamp(parsed.records.back().time);
      mayJump = fs::path(file).stem().string().find(stamp) != std::string::npos;
    }
  }
  // What a thread saw written must be there, unless it went with files dropped after the last
  // archive (the log is then empty).
  for (int t = 0; t < c.threads; ++t) {
    if (acks[t] > last && !mayJump)
      return AssertionFailure() << "thread " << t << " saw record " << acks[t]
                                << " written, but the logs end at " << last;
  }
  return ::testing::AssertionSuccess();
}

TEST_P(LogWriterKill, EveryKillLeavesWholeLogsWithEveryRecordWritten) {
  const KillCase c = GetParam();
  const unsigned kills = EnvNumber("DESKAID_KILLS", 50);
  const unsigned seed = EnvNumber("DESKAID_KILL_SEED", std::random_device()());
  std::printf("%s: %u kills, DESKAID_KILL_SEED=%u\n", CaseName(c).c_str(), kills, seed);
  std::fflush(stdout);
  std::mt19937 random(seed);

  for (unsigned trial = 0; trial < kills; ++trial) {
    ScratchDir dir;
    const std::string logDir = dir.PathOf("logs"), ackDir = dir.PathOf("acks");
    fs::create_directory(logDir);
    fs::create_directory(ackDir);
    const std::string log = (fs::path(logDir) / "killed.log").string();
    // Wine, after many hundred killed children, now and then fails to start the next one
    // (ERROR_INTERNAL_ERROR); a moment later it starts.
    std::unique_ptr<ChildProcess> spawned;
    for (int attempt = 0; attempt < 5 && !(spawned && spawned->Started()); ++attempt) {
      if (spawned) std::this_thread::sleep_for(std::chrono::milliseconds(200));
      spawned = std::make_unique<ChildProcess>(
          OwnExecutablePath(),
          std::vector<std::string>{"--kill-child", log, ackDir, c.encipher ? "1" : "0",
                                   c.archive ? "1" : "0", std::to_string(c.threads),
                                   c.large ? "1" : "0"});
    }
    ChildProcess& child = *spawned;
    ASSERT_TRUE(child.Started()) << "trial " << trial << ": error " << child.StartError();
    // The kill lands at a random moment of the writing, which starts once the first record is
    // acknowledged.
    const auto started = std::chrono::steady_clock::now();
    while (ReadFileBytes(AckPath(ackDir, 0)).empty() &&
           std::chrono::steady_clock::now() - started < std::chrono::seconds(60))
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    std::this_thread::sleep_for(
        std::chrono::microseconds(std::uniform_int_distribution<int>(0, 300000)(random)));
    const ChildExit exit = child.Kill();
    ASSERT_FALSE(exit.finished) << "the child ended by itself, with " << exit.code;

    std::vector<long long> acks(c.threads, -1);  // the last record each thread saw written
    for (int t = 0; t < c.threads; ++t) {
      const std::string text = ReadFileBytes(AckPath(ackDir, t));
      if (!text.empty()) acks[t] = std::stoll(text);
    }
    ASSERT_GE(acks[0], 0) << "trial " << trial << ": the child never wrote";
    ASSERT_TRUE(CheckKilledLogs(log, dir.PathOf("text.txt"), c, acks))
        << "trial " << trial << " of DESKAID_KILL_SEED=" << seed;
  }
}

}  // namespace
