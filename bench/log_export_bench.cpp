// Converting a 100 MB log of enciphered 100-byte records to text, beside a plain block copy of
// the same file: the copy is the floor any reader of the file pays in I/O.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include <deskaid/common/rc4.h>
#include <deskaid/diag/log_export.h>
#include <deskaid/diag/log_format.h>
#include "ratio_reporter.h"

namespace {

constexpr size_t kLogBytes = 100u << 20;
constexpr uint16_t kBodyLength = 100;

std::string TempPath(const char* leaf) {
  const char* dir = std::getenv("TMPDIR");
  return std::string(dir != nullptr ? dir : "/tmp") + "/deskaid_bench_" + leaf;
}

// Writes the log once per run: records under rotating keys, a few per second, as a busy program
// would log them.
const std::string& SampleLog() {
  static const std::string path = [] {
    std::string p = TempPath("export.log");
    std::FILE* f = std::fopen(p.c_str(), "wb");
    LogTrailer trailer{};
    trailer.magic = kLogTrailerMagic;
    trailer.keyCount = kLogKeyCount;
    for (uint32_t i = 0; i < kLogKeyCount; ++i) trailer.keys[i] = 0x2545F491u * (i + 7);
    std::vector<uint8_t> record(sizeof(LogRecordHeader) + kBodyLength);
    size_t written = 0;
    for (uint32_t n = 0; written + record.size() + sizeof trailer <= kLogBytes; ++n) {
      LogRecordHeader header{2, kLogRecordKind, static_cast<uint16_t>(n & 15), kBodyLength,
                             1709647629u + n / 8};
      char text[kBodyLength + 1];
      std::snprintf(text, sizeof text, "%-99.99s",
                    ("request " + std::to_string(n) + " served from cache in 12 ms").c_str());
      uint8_t* body = record.data() + sizeof header;
      std::memcpy(record.data(), &header, sizeof header);
      std::memcpy(body, text, kBodyLength);
      uint32_t key = trailer.keys[header.keyIndex];
      uint8_t keyBytes[4] = {uint8_t(key), uint8_t(key >> 8), uint8_t(key >> 16),
                             uint8_t(key >> 24)};
      Rc4Cipher::Transform(keyBytes, 4, body, kBodyLength);
      std::fwrite(record.data(), 1, record.size(), f);
      written += record.size();
      ++trailer.recordCount;
    }
    std::fwrite(&trailer, sizeof trailer, 1, f);
    std::fclose(f);
    return p;
  }();
  return path;
}

size_t FileSize(const std::string& path) {
  std::FILE* f = std::fopen(path.c_str(), "rb");
  std::fseek(f, 0, SEEK_END);
  size_t size = static_cast<size_t>(std::ftell(f));
  std::fclose(f);
  return size;
}

void BM_ExportDeskaid(benchmark::State& state) {
  const std::string& log = SampleLog();
  const std::string text = TempPath("export.txt");
  for (auto _ : state) {
    if (!ConvertLogToText(log.c_str(), text.c_str(), nullptr))
      state.SkipWithError("conversion failed");
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * FileSize(log)));
  std::remove(text.c_str());
}

void BM_ExportCopy(benchmark::State& state) {
  const std::string& log = SampleLog();
  const std::string copy = TempPath("export.copy");
  std::vector<char> buffer(1 << 20);
  for (auto _ : state) {
    std::FILE* in = std::fopen(log.c_str(), "rb");
    std::FILE* out = std::fopen(copy.c_str(), "wb");
    size_t n;
    while ((n = std::fread(buffer.data(), 1, buffer.size(), in)) > 0)
      std::fwrite(buffer.data(), 1, n, out);
    std::fclose(in);
    std::fclose(out);
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * FileSize(log)));
  std::remove(copy.c_str());
}

}  // namespace

BENCHMARK(BM_ExportDeskaid)
    ->Name("export_100MB/deskaid")
    ->Unit(benchmark::kMillisecond)
    ->MinTime(2.0);
BENCHMARK(BM_ExportCopy)->Name("export_100MB/copy")->Unit(benchmark::kMillisecond)->MinTime(2.0);

DESKAID_BENCH_MAIN()
