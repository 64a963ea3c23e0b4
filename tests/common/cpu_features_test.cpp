// The module's one processor detector, beside the compiler runtime's own: a feature missed means
// a kernel that never runs, one claimed wrongly a kernel that faults. The Base64 kernel sets are
// offered by what it finds.
#include <gtest/gtest.h>

#include <deskaid/codec/internal/base64_vector.h>
#include <deskaid/common/internal/cpu_features.h>

#if defined(__GNUC__) && (defined(__x86_64__) || defined(__i386__))
TEST(CpuFeatures, AgreeWithTheCompilerRuntimesDetection) {
  __builtin_cpu_init();
  const deskaid::CpuFeatures& cpu = deskaid::Cpu();
  EXPECT_EQ(cpu.sse2, __builtin_cpu_supports("sse2") != 0);
  EXPECT_EQ(cpu.ssse3, __builtin_cpu_supports("ssse3") != 0);
  EXPECT_EQ(cpu.avx2, __builtin_cpu_supports("avx2") != 0);
#if defined(__clang__)
  // Clang's runtime has no name for ADX: BMI2 at least.
  if (cpu.bmi2Adx) EXPECT_NE(__builtin_cpu_supports("bmi2"), 0);
#else
  EXPECT_EQ(cpu.bmi2Adx, __builtin_cpu_supports("bmi2") && __builtin_cpu_supports("adx"));
#endif
  EXPECT_EQ(cpu.avx512Ifma,
            __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512ifma"));
  namespace b64 = deskaid::base64;
  EXPECT_TRUE(b64::Supports(b64::Path::kScalar));
  EXPECT_EQ(b64::Supports(b64::Path::kSsse3), cpu.ssse3);
  EXPECT_EQ(b64::Supports(b64::Path::kAvx2), cpu.avx2);
}
#endif
