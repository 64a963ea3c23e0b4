// The work measured on the shipped builds, shared by the two programs of each processor mode:
// deskaid's own, built for Windows (32-bit or 64-bit) and run under Wine, and the peers', built
// against OpenSSL and GMP of the same mode (g++ -m32 with the i386 libraries, or native x86-64).
// Both take the same data and time it the same way: a few repetitions, each of a fixed number of
// calls, of which the best counts. Google Benchmark is not packaged for MinGW, hence this small
// harness.
//
// Each program prints one line per case, "<case> <implementation> <seconds per call> <check>",
// where the check is a digest of the result; scripts/bench compares the checks of the two sides
// and puts the times into its table.
#pragma once

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <random>
#include <string>
#include <vector>

namespace shipped {

constexpr uint32_t kCodecSize = 64u << 20;  // as in the native codec benchmark
constexpr int kPowModBits[] = {1024, 2048};
constexpr int kRepetitions = 10;  // the machine may be shared: the best of several

// The codec input: the native benchmark's bytes.
inline std::vector<unsigned char> CodecData() {
  std::vector<unsigned char> v(kCodecSize);
  std::mt19937 rng(64);
  for (auto& b : v) b = static_cast<unsigned char>(rng());
  return v;
}

// A random hexadecimal text of exactly `bits` bits (top bit set), odd when asked; the native
// big-integer benchmark's operands.
inline std::string RandomHex(int bits, uint32_t seed, bool odd) {
  std::mt19937 rng(seed);
  const char* digits = "0123456789ABCDEF";
  std::string s(bits / 4, '0');
  for (auto& c : s) c = digits[rng() % 16];
  s[0] = "89ABCDEF"[rng() % 8];
  if (odd && (s.back() - '0') % 2 == 0 && s.back() <= '9') s.back() = '1';
  if (odd && s.back() >= 'A' && (s.back() - 'A') % 2 == 0) s.back() = 'B';
  return s;
}

// A decimal text of `digits` digits, the first a 9: the text conversions' operand.
inline std::string RandomDecimal(int digits) {
  std::mt19937 rng(8);
  std::string s(digits, '0');
  for (auto& c : s) c = static_cast<char>('0' + rng() % 10);
  s[0] = '9';
  return s;
}

// The best time per call over kRepetitions runs of `calls` calls each.
template <typename F>
double BestOf(int calls, F&& f) {
  double best = 1e30;
  for (int r = 0; r < kRepetitions; ++r) {
    const auto start = std::chrono::steady_clock::now();
    for (int c = 0; c < calls; ++c) f();
    const std::chrono::duration<double> took = std::chrono::steady_clock::now() - start;
    best = std::min(best, took.count() / calls);
  }
  return best;
}

// FNV-1a over a result, as its check.
inline std::string Check(const void* data, size_t size) {
  uint64_t h = 14695981039346656037ull;
  const unsigned char* p = static_cast<const unsigned char*>(data);
  for (size_t i = 0; i < size; ++i) h = (h ^ p[i]) * 1099511628211ull;
  char text[32];
  std::snprintf(text, sizeof text, "%llu:%016llx", static_cast<unsigned long long>(size),
                static_cast<unsigned long long>(h));
  return text;
}

inline std::string Lower(std::string s) {
  for (char& c : s) c = (c >= 'A' && c <= 'Z') ? char(c - 'A' + 'a') : c;
  return s;
}

inline std::string PowModCase(int bits) { return "powmod_" + std::to_string(bits); }

// The other big-integer cases, on the native benchmark's operands: a product of two 4,096-bit
// numbers, the quotient of 8,192 bits by 4,096, and 100,000 decimal digits printed and parsed.
constexpr int kTextDigits = 100000;
inline std::string MulOperand(int which) { return RandomHex(4096, 4 + which, false); }
inline std::string DividendHex() { return RandomHex(8192, 6, false); }
inline std::string DivisorHex() { return RandomHex(4096, 7, false); }

// The check of a big-integer result: its lowercase hexadecimal digits.
inline std::string HexCheck(std::string hex) {
  hex = Lower(hex);
  return Check(hex.data(), hex.size());
}

inline void Report(const char* name, const char* impl, double seconds, const std::string& check) {
  std::printf("%s %s %.6g %s\n", name, impl, seconds, check.c_str());
  std::fflush(stdout);
}

}  // namespace shipped
