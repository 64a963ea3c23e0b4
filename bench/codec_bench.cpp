// The codecs beside OpenSSL over 64 MiB: MD5 against MD5(), Base64 against the EVP block coder.
// The Base64 coder is reused from one iteration to the next, as a caller with a stream of
// messages would, so its buffers are allocated once.
#define OPENSSL_SUPPRESS_DEPRECATED  // MD5() is the one-shot peer being measured
#include <benchmark/benchmark.h>
#include <openssl/evp.h>
#include <openssl/md5.h>

#include <random>
#include <vector>

#include <deskaid/codec/base64.h>
#include <deskaid/codec/md5.h>
#include "ratio_reporter.h"
#include "shipped/shipped_work.h"

namespace {

constexpr uint32_t kSize = shipped::kCodecSize;

// The same bytes as the shipped build's benchmark.
const std::vector<unsigned char>& Data() {
  static const std::vector<unsigned char> data = shipped::CodecData();
  return data;
}

// The Base64 text of Data(), in one line as both decoders take it.
const std::vector<unsigned char>& Text() {
  static const std::vector<unsigned char> text = [] {
    std::vector<unsigned char> t(4 * (kSize / 3 + 1) + 1);
    t.resize(EVP_EncodeBlock(t.data(), Data().data(), int(kSize)));
    return t;
  }();
  return text;
}

void Md5Deskaid(benchmark::State& state) {
  const auto& data = Data();
  for (auto _ : state) {
    CMD5Checksum md5;
    md5.AddBytes(data.data(), kSize);
    benchmark::DoNotOptimize(md5.FinishHex());
  }
  state.SetBytesProcessed(int64_t(state.iterations()) * kSize);
}

void Md5OpenSsl(benchmark::State& state) {
  const auto& data = Data();
  unsigned char digest[MD5_DIGEST_LENGTH];
  for (auto _ : state) {
    MD5(data.data(), kSize, digest);
    benchmark::DoNotOptimize(digest);
  }
  state.SetBytesProcessed(int64_t(state.iterations()) * kSize);
}

void EncodeDeskaid(benchmark::State& state) {
  const auto& data = Data();
  Base64Coder coder;
  // Steady state, as for the peer, whose output buffer is allocated and touched before timing:
  // the coder's buffers have grown to size once.
  coder.Encode(data.data(), kSize);
  for (auto _ : state) {
    coder.Encode(data.data(), kSize);
    benchmark::DoNotOptimize(coder.GetText());
  }
  if (coder.GetTextLength() != Text().size()) state.SkipWithError("encoding differs in length");
  state.SetBytesProcessed(int64_t(state.iterations()) * kSize);
}

void EncodeOpenSsl(benchmark::State& state) {
  const auto& data = Data();
  std::vector<unsigned char> text(Text().size() + 1);
  for (auto _ : state) {
    benchmark::DoNotOptimize(EVP_EncodeBlock(text.data(), data.data(), int(kSize)));
  }
  state.SetBytesProcessed(int64_t(state.iterations()) * kSize);
}

void DecodeDeskaid(benchmark::State& state) {
  const auto& text = Text();
  Base64Coder coder;
  coder.Decode(reinterpret_cast<const char*>(text.data()), uint32_t(text.size()));
  for (auto _ : state) {
    coder.Decode(reinterpret_cast<const char*>(text.data()), uint32_t(text.size()));
    benchmark::DoNotOptimize(coder.GetData());
  }
  // A padded final group counts three bytes, so the length is that of the whole groups.
  if (coder.GetDataLength() != Text().size() / 4 * 3) state.SkipWithError("decoding differs");
  state.SetBytesProcessed(int64_t(state.iterations()) * kSize);
}

void DecodeOpenSsl(benchmark::State& state) {
  const auto& text = Text();
  std::vector<unsigned char> data(kSize + 3);
  for (auto _ : state) {
    benchmark::DoNotOptimize(EVP_DecodeBlock(data.data(), text.data(), int(text.size())));
  }
  state.SetBytesProcessed(int64_t(state.iterations()) * kSize);
}

// A coder that replaces a step runs every step through the virtual table. Informational.
struct StepwiseCoder : Base64Coder {};

void EncodeStepwise(benchmark::State& state) {
  const auto& data = Data();
  StepwiseCoder coder;
  for (auto _ : state) {
    coder.Encode(data.data(), kSize);
    benchmark::DoNotOptimize(coder.GetText());
  }
  state.SetBytesProcessed(int64_t(state.iterations()) * kSize);
}

void DecodeStepwise(benchmark::State& state) {
  const auto& text = Text();
  StepwiseCoder coder;
  for (auto _ : state) {
    coder.Decode(reinterpret_cast<const char*>(text.data()), uint32_t(text.size()));
    benchmark::DoNotOptimize(coder.GetData());
  }
  state.SetBytesProcessed(int64_t(state.iterations()) * kSize);
}

}  // namespace

BENCHMARK(Md5Deskaid)->Name("md5_64MiB/deskaid")->Unit(benchmark::kMillisecond);
BENCHMARK(Md5OpenSsl)->Name("md5_64MiB/openssl")->Unit(benchmark::kMillisecond);
BENCHMARK(EncodeDeskaid)->Name("base64_encode_64MiB/deskaid")->Unit(benchmark::kMillisecond);
BENCHMARK(EncodeOpenSsl)->Name("base64_encode_64MiB/openssl")->Unit(benchmark::kMillisecond);
BENCHMARK(EncodeStepwise)
    ->Name("base64_encode_64MiB/deskaid_stepwise")
    ->Unit(benchmark::kMillisecond);
BENCHMARK(DecodeDeskaid)->Name("base64_decode_64MiB/deskaid")->Unit(benchmark::kMillisecond);
BENCHMARK(DecodeOpenSsl)->Name("base64_decode_64MiB/openssl")->Unit(benchmark::kMillisecond);
BENCHMARK(DecodeStepwise)
    ->Name("base64_decode_64MiB/deskaid_stepwise")
    ->Unit(benchmark::kMillisecond);

DESKAID_BENCH_MAIN()
