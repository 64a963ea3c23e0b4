#include "deskaid/common/internal/cpu_features.h"

#include <cstdint>

#if defined(__GNUC__) && (defined(__x86_64__) || defined(__i386__))
#define DESKAID_CPUID_GNU 1
#include <cpuid.h>
#elif defined(_MSC_VER) && (defined(_M_X64) || defined(_M_IX86))
#define DESKAID_CPUID_MSVC 1
#include <immintrin.h>
#include <intrin.h>
#endif

namespace deskaid {

namespace {

CpuFeatures Detect() {
  CpuFeatures f;
  unsigned regs1[4] = {}, regs7[4] = {};
  unsigned maxLeaf = 0;
  uint64_t saved = 0;  // XCR0: the register states the system saves on a switch
#if defined(DESKAID_CPUID_GNU)
  // On 32-bit x86 this also finds out whether the processor has cpuid at all.
  maxLeaf = __get_cpuid_max(0, nullptr);
  if (maxLeaf < 1) return f;
  __cpuid(1, regs1[0], regs1[1], regs1[2], regs1[3]);
  if (maxLeaf >= 7) __cpuid_count(7, 0, regs7[0], regs7[1], regs7[2], regs7[3]);
  if (regs1[2] & (1u << 27)) {
    unsigned lo, hi;
    __asm__ __volatile__("xgetbv" : "=a"(lo), "=d"(hi) : "c"(0));
    saved = (uint64_t(hi) << 32) | lo;
  }
#elif defined(DESKAID_CPUID_MSVC)
  int info[4];
  __cpuid(info, 0);
  maxLeaf = unsigned(info[0]);
  if (maxLeaf < 1) return f;
  __cpuid(info, 1);
  for (int k = 0; k < 4; ++k) regs1[k] = unsigned(info[k]);
  if (maxLeaf >= 7) {
    __cpuidex(info, 7, 0);
    for (int k = 0; k < 4; ++k) regs7[k] = unsigned(info[k]);
  }
  if (regs1[2] & (1u << 27)) saved = _xgetbv(0);
#else
  return f;
#endif
  const auto bit = [](unsigned reg, int n) { return (reg >> n & 1u) != 0; };
  f.sse2 = bit(regs1[3], 26);
  f.ssse3 = f.sse2 && bit(regs1[2], 9);
  const bool avx = bit(regs1[2], 28) && (saved & 0x06) == 0x06;  // XMM and YMM saved
  f.avx2 = f.ssse3 && avx && bit(regs7[1], 5);
  f.bmi2Adx = bit(regs7[1], 8) && bit(regs7[1], 19);
  // Opmask, and both halves of the 512-bit registers, saved as well.
  const bool avx512 = avx && (saved & 0xE0) == 0xE0 && bit(regs7[1], 16);
  f.avx512Ifma = avx512 && bit(regs7[1], 21);
  return f;
}

}  // namespace

const CpuFeatures& Cpu() {
  static const CpuFeatures features = Detect();
  return features;
}

}  // namespace deskaid
