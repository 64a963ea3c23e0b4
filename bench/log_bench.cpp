// The log writer beside spdlog's basic file sink (flushing every record, as the writer does) and
// beside its floor, and compaction of a 100 MB log beside a plain block copy of the same file.
// The floor writes the bytes the writer puts in the file with one positioned write per record and
// nothing else, so its ratio is the writer's rate as a fraction of what the system allows.
#include <benchmark/benchmark.h>
#include <spdlog/sinks/basic_file_sink.h>
#include <spdlog/spdlog.h>

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <string>
#include <vector>

#include <deskaid/diag/log_format.h>
#include <deskaid/diag/log_writer.h>
#include "log_floor.h"
#include "ratio_reporter.h"

namespace fs = std::filesystem;

namespace {

const fs::path& BenchDir() {
  static const fs::path dir = [] {
    fs::path d = fs::temp_directory_path() / "deskaid-log-bench";
    fs::create_directories(d);
    return d;
  }();
  return dir;
}

constexpr int kRecords = 100000;
// Records that reach the disk one by one are far slower; fewer of them make a run.
constexpr int kDurableRecords = 2000;
const std::string kMessage(100, 'm');

void LogWrite_Deskaid(benchmark::State& state, uint8_t encipher, bool durable = false) {
  const std::string path = (BenchDir() / "writer.log").string();
  const int records = durable ? kDurableRecords : kRecords;
  for (auto _ : state) {
    state.PauseTiming();
    g_LogWriter.Close();
    fs::remove(path);
    g_LogWriter.Open(path.c_str(), 0xFFFFFFFF, encipher, 20);
    g_LogWriter.SetFlushToDisk(durable);
    state.ResumeTiming();
    for (int i = 0; i < records; ++i) LogPrintf(LOG_LEVEL_1, "%s", kMessage.c_str());
  }
  g_LogWriter.SetFlushToDisk(false);
  g_LogWriter.Close();
  state.SetItemsProcessed(state.iterations() * records);
}

void LogWrite_Spdlog(benchmark::State& state) {
  const std::string path = (BenchDir() / "spdlog.log").string();
  for (auto _ : state) {
    state.PauseTiming();
    fs::remove(path);
    auto sink = std::make_shared<spdlog::sinks::basic_file_sink_mt>(path, true);
    spdlog::logger logger("bench", sink);
    logger.set_pattern("%v");
    logger.flush_on(spdlog::level::trace);
    state.ResumeTiming();
    for (int i = 0; i < kRecords; ++i) logger.info("{}", kMessage);
  }
  state.SetItemsProcessed(state.iterations() * kRecords);
}

// Each record in one positioned write (and, durable, one fsync).
void FloorWrites(benchmark::State& state, bool durable) {
  const int records = durable ? kDurableRecords : kRecords;
  const std::string path = (BenchDir() / "floor.log").string();
  LogFloorRecords floor(kMessage);
  for (auto _ : state) {
    state.PauseTiming();
    fs::remove(path);
    const int fd = open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0666);
    const LogTrailer empty = floor.EmptyTrailer();
    bool ok = fd >= 0 && pwrite(fd, &empty, sizeof empty, 0) == ssize_t(sizeof empty);
    state.ResumeTiming();
    off_t at = 0;
    for (int i = 0; ok && i < records; ++i) {
      const std::vector<char>& record = floor.Record(i);
      ok = pwrite(fd, record.data(), record.size(), at) == ssize_t(record.size()) &&
           (!durable || fsync(fd) == 0);
      at += off_t(floor.Advance());
    }
    state.PauseTiming();
    if (fd >= 0) close(fd);
    if (!ok) state.SkipWithError("write failed");
    state.ResumeTiming();
  }
  state.SetItemsProcessed(state.iterations() * records);
}

// A 100 MB log of 100-byte enciphered records, rebuilt before every compaction.
constexpr uint32_t kBigLogRecords = 100u * 1000 * 1000 / 110;

void BuildBigLog(const std::string& path) {
  static std::vector<char> image;
  if (image.empty()) {
    fs::remove(path);
    CLogWriter writer;
    writer.Open(path.c_str(), 0xFFFFFFFF, 1, 20);
    for (uint32_t i = 0; i < kBigLogRecords; ++i) writer.Write(1, kMessage.data(), 100, 2);
    writer.Close();
    std::FILE* in = std::fopen(path.c_str(), "rb");
    image.resize(fs::file_size(path));
    size_t got = std::fread(image.data(), 1, image.size(), in);
    std::fclose(in);
    image.resize(got);
    return;
  }
  std::FILE* out = std::fopen(path.c_str(), "wb");
  std::fwrite(image.data(), 1, image.size(), out);
  std::fclose(out);
}

void Compact100MB_Deskaid(benchmark::State& state) {
  const std::string path = (BenchDir() / "big.log").string();
  uint64_t bytes = 0;
  for (auto _ : state) {
    state.PauseTiming();
    BuildBigLog(path);
    bytes += fs::file_size(path);
    CLogWriter writer;
    // The limit sits just above the file: the next record reaches it and compacts 20 %.
    writer.Open(path.c_str(), static_cast<uint32_t>(fs::file_size(path)) + 1, 1, 20);
    state.ResumeTiming();
    writer.Write(1, kMessage.data(), 100, 2);
    state.PauseTiming();
    writer.Close();
    state.ResumeTiming();
  }
  state.SetBytesProcessed(static_cast<int64_t>(bytes));
}

void Compact100MB_Copy(benchmark::State& state) {
  const std::string path = (BenchDir() / "big.log").string();
  const std::string copy = (BenchDir() / "big.copy").string();
  uint64_t bytes = 0;
  std::vector<char> block(1 << 20);
  for (auto _ : state) {
    state.PauseTiming();
    BuildBigLog(path);
    bytes += fs::file_size(path);
    state.ResumeTiming();
    std::FILE* in = std::fopen(path.c_str(), "rb");
    std::FILE* out = std::fopen(copy.c_str(), "wb");
    size_t n;
    while ((n = std::fread(block.data(), 1, block.size(), in)) > 0)
      std::fwrite(block.data(), 1, n, out);
    std::fclose(in);
    std::fclose(out);
  }
  state.SetBytesProcessed(static_cast<int64_t>(bytes));
}

void LogWritePlain_Deskaid(benchmark::State& state) { LogWrite_Deskaid(state, 0); }
void LogWriteEnciphered_Deskaid(benchmark::State& state) { LogWrite_Deskaid(state, 1); }
void LogWriteDurable_Deskaid(benchmark::State& state) { LogWrite_Deskaid(state, 0, true); }
void LogWriteDurable_Floor(benchmark::State& state) { FloorWrites(state, true); }
void LogWrite_Floor(benchmark::State& state) { FloorWrites(state, false); }

}  // namespace

BENCHMARK(LogWritePlain_Deskaid)
    ->Name("log_write_100k_plain/deskaid")
    ->Unit(benchmark::kMillisecond);
BENCHMARK(LogWrite_Spdlog)->Name("log_write_100k_plain/spdlog")->Unit(benchmark::kMillisecond);
BENCHMARK(LogWrite_Floor)->Name("log_write_100k_plain/floor")->Unit(benchmark::kMillisecond);
BENCHMARK(LogWriteEnciphered_Deskaid)
    ->Name("log_write_100k_enciphered/deskaid")
    ->Unit(benchmark::kMillisecond);
BENCHMARK(LogWrite_Spdlog)->Name("log_write_100k_enciphered/spdlog")->Unit(benchmark::kMillisecond);
BENCHMARK(LogWrite_Floor)->Name("log_write_100k_enciphered/floor")->Unit(benchmark::kMillisecond);
BENCHMARK(LogWriteDurable_Deskaid)
    ->Name("log_write_2k_durable/deskaid")
    ->Unit(benchmark::kMillisecond);
BENCHMARK(LogWriteDurable_Floor)->Name("log_write_2k_durable/floor")->Unit(benchmark::kMillisecond);
BENCHMARK(Compact100MB_Deskaid)
    ->Name("compact_100MB/deskaid")
    ->Unit(benchmark::kMillisecond)
    ->Iterations(3);
BENCHMARK(Compact100MB_Copy)
    ->Name("compact_100MB/copy")
    ->Unit(benchmark::kMillisecond)
    ->Iterations(3);

DESKAID_BENCH_MAIN();
